#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

namespace tool {

/// Microseconds as people read a clock: "0:01.500", "59:59.999", "1:00:00.000".
/// @param digits  after the seconds, 0 to 3; the rest is cut off, towards zero.
inline std::string clock_text(std::int64_t microseconds, int digits) {
    // Through unsigned, since the smallest number has no positive counterpart.
    const auto bits = static_cast<std::uint64_t>(microseconds);
    const std::uint64_t total = (microseconds < 0 ? 0 - bits : bits) / 1000;
    const std::uint64_t seconds = total / 1000;
    const auto part = [](std::uint64_t value) { return static_cast<unsigned int>(value); };
    char text[64];
    if (seconds >= 3600) {
        (void)std::snprintf(text, sizeof text, "%llu:%02u:%02u",
                            static_cast<unsigned long long>(seconds / 3600),
                            part(seconds / 60 % 60), part(seconds % 60));
    } else {
        (void)std::snprintf(text, sizeof text, "%u:%02u", part(seconds / 60), part(seconds % 60));
    }
    std::string result = text;
    if (digits > 0) {
        (void)std::snprintf(text, sizeof text, ".%03u", part(total % 1000));
        result += std::string(text, static_cast<std::size_t>(std::min(digits, 3)) + 1);
    }
    const bool is_zero = result.find_first_of("123456789") == std::string::npos;
    return (microseconds < 0 && !is_zero ? "-" : "") + result;
}

}  // namespace tool
