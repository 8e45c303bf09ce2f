#pragma once

#include <framewell/media/rational.h>

#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

namespace tool {

/// A time as a user writes it, or the reason why the text is none.
struct ParsedTime {
    bool ok = false;
    ff::Rational time{0, 1};  ///< seconds, exactly as written and not reduced: "12.5" is 125/10
    std::string error;        ///< one line without a full stop; empty if `ok`
};

/// Reads the text of a time from left to right.
class TimeReader {
public:
    explicit TimeReader(std::string_view text) : m_rest(text) {}

    bool at_end() const { return m_rest.empty(); }

    bool starts_with_digit() const {
        return !at_end() && m_rest.front() >= '0' && m_rest.front() <= '9';
    }

    /// Takes `expected` if it comes next.
    bool take(char expected) {
        if (at_end() || m_rest.front() != expected) {
            return false;
        }
        m_rest.remove_prefix(1);
        return true;
    }

    /// Appends the digits that come next to `value`; returns how many there were. Once the number
    /// does not fit 64 bits any more, too_large() stays true.
    int take_digits(std::int64_t& value) {
        int count = 0;
        while (starts_with_digit()) {
            value = add(times(value, 10), m_rest.front() - '0');
            m_rest.remove_prefix(1);
            ++count;
        }
        return count;
    }

    /// a * b and a + b of numbers that are not negative; see too_large().
    std::int64_t times(std::int64_t a, std::int64_t b) {
        if (b != 0 && a > kLargest / b) {
            m_too_large = true;
            return 0;
        }
        return a * b;
    }

    std::int64_t add(std::int64_t a, std::int64_t b) {
        if (a > kLargest - b) {
            m_too_large = true;
            return 0;
        }
        return a + b;
    }

    bool too_large() const { return m_too_large; }

private:
    static constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();

    std::string_view m_rest;
    bool m_too_large = false;
};

/// Reads "[hh:]mm:ss" whose first number, `first`, is taken already; the total in seconds comes
/// back in `seconds`. Returns the reason if it is none, else null.
inline const char* read_clock(TimeReader& reader, std::int64_t first, std::int64_t& seconds) {
    constexpr const char* range_rule = "minutes after hours, and seconds, have two digits up to 59";
    std::int64_t last = 0;
    if (reader.take_digits(last) != 2 || last > 59) {
        return range_rule;
    }
    std::int64_t minutes = first;
    if (reader.take(':')) {
        minutes = reader.add(reader.times(first, 60), last);
        last = 0;
        if (reader.take_digits(last) != 2 || last > 59) {
            return range_rule;
        }
    }
    seconds = reader.add(reader.times(minutes, 60), last);
    return nullptr;
}

/// Reads what follows the sign into `time`. Returns the reason if it is no time, else null.
inline const char* read_unsigned_time(TimeReader& reader, ff::Rational& time) {
    constexpr const char* shape_rule =
        "write seconds (12.5), a fraction of seconds (1001/30000) or [hh:]mm:ss[.fff]";
    std::int64_t num = 0;
    std::int64_t den = 1;
    const bool has_whole = reader.take_digits(num) > 0;
    if (has_whole && reader.take('/')) {
        den = 0;
        if (reader.take_digits(den) == 0 || !reader.at_end()) {
            return shape_rule;
        }
        if (den == 0 && !reader.too_large()) {
            return "the denominator is 0";
        }
    } else {
        if (has_whole && reader.take(':')) {
            const char* const error = read_clock(reader, num, num);
            if (error != nullptr) {
                return error;
            }
        }
        int digits = 0;
        if (reader.take('.')) {
            digits = reader.take_digits(num);
        }
        for (int i = 0; i < digits; ++i) {
            den = reader.times(den, 10);
        }
        if (!reader.at_end() || (!has_whole && digits == 0)) {
            return shape_rule;
        }
    }
    time = {num, den};
    return reader.too_large() ? "it has more digits than fit 64 bits" : nullptr;
}

/// Reads a time: seconds as a decimal ("12.5"), a fraction ("1001/30000") or "[hh:]mm:ss[.fff]",
/// each with a sign in front if need be. Nothing is rounded: a number that does not fit 64 bits is
/// an error.
inline ParsedTime parse_time(std::string_view text) {
    ParsedTime result;
    TimeReader reader(text);
    const bool negative = reader.take('-');
    if (!negative) {
        (void)reader.take('+');  // a plus sign changes nothing
    }
    const char* const error = read_unsigned_time(reader, result.time);
    if (error != nullptr) {
        result.time = {0, 1};
        result.error = error;
        return result;
    }
    if (negative) {
        result.time.num = -result.time.num;
    }
    result.ok = true;
    return result;
}

}  // namespace tool
