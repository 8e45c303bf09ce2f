#pragma once

#include <clocale>

namespace ut {

/// Gives the calling thread a locale of its own for the life of the object; other threads, and the
/// locale of the process, do not notice. Objects on one thread end in reverse order.
class ThreadLocale {
public:
    /// If there is no locale of that name, the thread keeps its own and is_set() is false.
    explicit ThreadLocale(const char* name)
        : m_locale(newlocale(LC_ALL_MASK, name, static_cast<locale_t>(nullptr))),
          m_previous(m_locale != nullptr ? uselocale(m_locale) : nullptr) {}

    ThreadLocale(const ThreadLocale&) = delete;
    ThreadLocale& operator=(const ThreadLocale&) = delete;

    ~ThreadLocale() {
        if (m_locale != nullptr) {
            (void)uselocale(m_previous);  // cannot fail: it was in use before
            freelocale(m_locale);
        }
    }

    bool is_set() const { return m_locale != nullptr; }

private:
    const locale_t m_locale;
    const locale_t m_previous;
};

}  // namespace ut
