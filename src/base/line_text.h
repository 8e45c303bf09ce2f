#pragma once

// What the lines of the logger and of the tracer have in common. Nothing here allocates or throws.

#include <cstddef>
#include <cstdio>
#include <ctime>

namespace mox {

inline const char* text_or_empty(const char* text) {
    return text != nullptr ? text : "";
}

/// What a snprintf() into `size` bytes left there, given what it returned: it returns the length
/// that it would have liked to write.
inline std::size_t written(int wanted, std::size_t size) {
    if (wanted < 0 || size == 0) {
        return 0;
    }
    const auto length = static_cast<std::size_t>(wanted);
    return length < size ? length : size - 1;
}

/// Writes the local time into `buf` as strftime() formats it; the empty text if it does not fit.
inline void format_local_time(char* buf, std::size_t size, const char* format) {
    const std::time_t seconds = std::time(nullptr);
    std::tm parts{};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // the format is the host's
    const bool fits = format != nullptr && localtime_r(&seconds, &parts) != nullptr &&
                      std::strftime(buf, size, format, &parts) != 0;
#pragma GCC diagnostic pop
    if (!fits) {
        buf[0] = '\0';  // strftime leaves an unknown text behind when it fails
    }
}

}  // namespace mox
