#pragma once

#include <locale.h>  // NOLINT(modernize-deprecated-headers): POSIX declares newlocale() there
#if __has_include(<xlocale.h>)
#include <xlocale.h>
#endif

namespace mox {

/// While it lives, the calling thread prints and scans numbers as in the C locale, whatever
/// setlocale() or std::locale::global() was told. Other threads notice nothing.
class CLocaleScope {
public:
    CLocaleScope() : m_before(uselocale(c_locale())) {}

    CLocaleScope(const CLocaleScope&) = delete;
    CLocaleScope& operator=(const CLocaleScope&) = delete;

    ~CLocaleScope() { (void)uselocale(m_before); }

private:
    // Made once and kept: a thread may be using it until the process ends.
    static locale_t c_locale() {
        static const locale_t s_locale = newlocale(LC_ALL_MASK, "C", locale_t{});
        return s_locale;
    }

    const locale_t m_before;
};

}  // namespace mox
