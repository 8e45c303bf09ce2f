#include <framewell/utils/text.h>

#include <strings.h>

#include <atomic>
#include <cctype>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace ut {

namespace {

constexpr char kBlanks[] = " \t\n\r";
// How far a text may outgrow what one replacement per character explains before it counts as one
// that grows for ever. Whether it would is not decidable in general.
constexpr std::size_t kMaxGrowth = std::size_t{4} << 20;

bool is_empty(const char* s) {
    return s == nullptr || *s == '\0';
}

bool is_equal(const char* a, const char* b, std::size_t length, bool case_sensitive) {
    return (case_sensitive ? std::strncmp(a, b, length) : strncasecmp(a, b, length)) == 0;
}

// Formats `args` into a string of just the needed length.
FRAMEWELL_PRINTF(1, 0)

std::string format_list(const char* fmt, std::va_list args) {
    std::va_list measured;
    va_copy(measured, args);
    const int length = std::vsnprintf(nullptr, 0, fmt, measured);
    va_end(measured);
    if (length < 0) {
        return {};
    }
    std::string text(static_cast<std::size_t>(length), '\0');
    // Room for the NUL too: the element behind the last one of a string is one and may be set so.
    return std::vsnprintf(text.data(), text.size() + 1, fmt, args) == length ? text : std::string();
}

std::string replace_once(std::string_view s, std::string_view from, std::string_view to) {
    std::string result;
    std::size_t done = 0;
    for (std::size_t at = s.find(from); at != std::string_view::npos; at = s.find(from, done)) {
        result.append(s, done, at - done).append(to);
        done = at + from.size();
    }
    return result.append(s, done);
}

// Replaces the first occurrence until there is none; nothing if that does not come to an end. What
// has been read has no occurrence in it, so the first of the whole text ends where the next one of
// the read part is completed, and searching from the start again each time is not needed.
std::optional<std::string> replace_until_gone(std::string_view s, std::string_view from,
                                              std::string_view to) {
    const std::size_t max_size = s.size() + s.size() / from.size() * to.size() + kMaxGrowth;
    std::string unread(s.rbegin(), s.rend());  // the next character is the last one
    std::string read;
    while (!unread.empty()) {
        read += unread.back();
        unread.pop_back();
        if (read.size() < from.size() ||
            read.compare(read.size() - from.size(), from.size(), from) != 0) {
            continue;
        }
        read.resize(read.size() - from.size());
        unread.append(to.rbegin(), to.rend());
        if (read.size() + unread.size() > max_size) {
            return std::nullopt;
        }
    }
    return read;
}

}  // namespace

char* trim_begin(char* s) {
    return s == nullptr ? nullptr : s + std::strspn(s, kBlanks);
}

const char* trim_begin(const char* s) {
    return s == nullptr ? nullptr : s + std::strspn(s, kBlanks);
}

char* trim_end(char* s) {
    return trim_end2(s, kBlanks);
}

char* trim(char* s) {
    return trim_begin(trim_end(s));
}

char* trim_begin2(char* s, const char* set) {
    return is_empty(s) || is_empty(set) ? s : s + std::strspn(s, set);
}

char* trim_end2(char* s, const char* set) {
    if (is_empty(s) || is_empty(set)) {
        return s;
    }
    std::size_t length = std::strlen(s);
    // Deliberate: the first character stays, also one of `set`.
    while (length > 1 && std::strchr(set, s[length - 1]) != nullptr) {
        --length;
    }
    s[length] = '\0';
    return s;
}

std::string str_format(const char* fmt, ...) {
    if (fmt == nullptr) {
        return {};
    }
    std::va_list args;
    va_start(args, fmt);
    std::string text;
    try {
        text = format_list(fmt, args);
    } catch (const std::exception&) {
        text.clear();
    }
    va_end(args);
    return text;
}

bool begin_width(const char* s, const char* prefix, bool case_sensitive) {
    if (s == nullptr || prefix == nullptr) {
        return false;
    }
    const std::size_t length = std::strlen(prefix);
    return std::strlen(s) >= length && is_equal(s, prefix, length, case_sensitive);
}

bool end_width(const char* s, const char* suffix, bool case_sensitive) {
    if (s == nullptr || suffix == nullptr) {
        return false;
    }
    const std::size_t size = std::strlen(s);
    const std::size_t length = std::strlen(suffix);
    return size >= length && is_equal(s + (size - length), suffix, length, case_sensitive);
}

char* str_to_lower(char* s) {
    for (char* p = s; !is_empty(p); ++p) {
        *p = static_cast<char>(std::tolower(static_cast<unsigned char>(*p)));
    }
    return s;
}

char* str_to_upper(char* s) {
    for (char* p = s; !is_empty(p); ++p) {
        *p = static_cast<char>(std::toupper(static_cast<unsigned char>(*p)));
    }
    return s;
}

std::string rand_str(int n) {
    constexpr char characters[] = "1234567890abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
    constexpr int count = static_cast<int>(sizeof characters) - 1;
    static std::atomic<unsigned> s_calls{0};
    std::srand(static_cast<unsigned>(std::time(nullptr)) + s_calls++);
    std::string text;
    try {
        for (int i = 0; i < n; ++i) {
            // NOLINTNEXTLINE(concurrency-mt-unsafe): hosts that seed it count on this generator
            text += characters[std::rand() % count];
        }
    } catch (const std::exception&) {
        text.clear();
    }
    return text;
}

std::string str_replace_all(const char* s, const char* from, const char* to) {
    if (s == nullptr || from == nullptr || to == nullptr) {
        return {};
    }
    if (*from == '\0' || std::strstr(to, from) != nullptr) {
        return str_replace_all_distinct(s, from, to);
    }
    try {
        std::optional<std::string> text = replace_until_gone(s, from, to);
        return text ? *std::move(text) : replace_once(s, from, to);
    } catch (const std::exception&) {
        return {};
    }
}

std::string str_replace_all_distinct(const char* s, const char* from, const char* to) {
    if (s == nullptr || from == nullptr || to == nullptr) {
        return {};
    }
    try {
        return *from == '\0' ? std::string(s) : replace_once(s, from, to);
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace ut
