#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <string_view>
#include <system_error>

namespace mox {

/// Takes whole numbers from the start of a text, as the conversions of sscanf() do: after white
/// space, with an optional sign, as many digits as there are. What does not fit becomes the nearest
/// number that does, where sscanf() leaves it to the C library.
class NumberScan {
public:
    explicit NumberScan(std::string_view text) : m_left(text) {}

    /// As "%lld".
    bool take(long long& number) {
        unsigned long long magnitude = 0;
        bool negative = false;
        if (!take_magnitude(10, negative, magnitude)) {
            return false;
        }
        constexpr auto largest = std::numeric_limits<long long>::max();
        if (magnitude > static_cast<unsigned long long>(largest)) {
            number = negative ? std::numeric_limits<long long>::min() : largest;
        } else {
            number = static_cast<long long>(magnitude);
            number = negative ? -number : number;
        }
        return true;
    }

    /// As "%llu": a negative number counts from 2^64 down.
    bool take(unsigned long long& number) {
        bool negative = false;
        if (!take_magnitude(10, negative, number)) {
            return false;
        }
        number = negative ? 0 - number : number;
        return true;
    }

    /// As "%d".
    bool take(std::int32_t& number) {
        long long wide = 0;
        if (!take(wide)) {
            return false;
        }
        constexpr long long smallest = std::numeric_limits<std::int32_t>::min();
        constexpr long long largest = std::numeric_limits<std::int32_t>::max();
        number = static_cast<std::int32_t>(std::clamp(wide, smallest, largest));
        return true;
    }

    /// As "%d,%d" and so on.
    template <std::size_t N>
    bool take_all(std::int32_t (&numbers)[N]) {
        bool all = take(numbers[0]);
        for (std::size_t i = 1; all && i < N; ++i) {
            all = take_comma() && take(numbers[i]);
        }
        return all;
    }

    /// As "%p": hexadecimal with or without "0x", or "(nil)".
    bool take(void*& pointer) {
        skip_blanks();
        if (m_left.substr(0, 5) == "(nil)") {
            pointer = nullptr;
            return true;
        }
        if (m_left.substr(0, 2) == "0x" || m_left.substr(0, 2) == "0X") {
            m_left.remove_prefix(2);
            if (m_left.empty() || kBlanksAndSigns.find(m_left.front()) != kBlanksAndSigns.npos) {
                return false;
            }
        }
        unsigned long long address = 0;
        bool negative = false;
        if (!take_magnitude(16, negative, address)) {
            return false;
        }
        // The address is only carried, never followed.
        pointer = reinterpret_cast<void*>(  // NOLINT(performance-no-int-to-ptr)
            static_cast<std::uintptr_t>(negative ? 0 - address : address));
        return true;
    }

    bool take_comma() {
        if (m_left.empty() || m_left.front() != ',') {
            return false;
        }
        m_left.remove_prefix(1);
        return true;
    }

private:
    static constexpr std::string_view kBlanks = " \t\n\v\f\r";
    static constexpr std::string_view kBlanksAndSigns = " \t\n\v\f\r+-";

    void skip_blanks() {
        m_left.remove_prefix(std::min(m_left.find_first_not_of(kBlanks), m_left.size()));
    }

    bool take_magnitude(int base, bool& negative, unsigned long long& magnitude) {
        skip_blanks();
        negative = !m_left.empty() && m_left.front() == '-';
        if (negative || (!m_left.empty() && m_left.front() == '+')) {
            m_left.remove_prefix(1);
        }
        const char* const begin = m_left.data();
        const auto [stop, error] = std::from_chars(begin, begin + m_left.size(), magnitude, base);
        if (error == std::errc::invalid_argument) {
            return false;
        }
        if (error == std::errc::result_out_of_range) {
            magnitude = std::numeric_limits<unsigned long long>::max();
        }
        m_left.remove_prefix(static_cast<std::size_t>(stop - begin));
        return true;
    }

    std::string_view m_left;
};

}  // namespace mox
