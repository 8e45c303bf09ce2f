#pragma once

#include <framewell/base/config.h>

#include <cstddef>
#include <cstdint>

/// @file
/// Exact time: fractions of 64-bit integers, and the way from seconds to stream ticks and back.

struct AVRational;

namespace ff {

/// A fraction of two signed 64-bit integers: a time or a duration in seconds, a rate, or the length
/// of a tick. A plain value: `Rational half{1, 2};`.
///
/// The arithmetic is exact and cheap rather than tidy, and what it does in the corners is part of
/// its contract, because results are compared and used as keys:
/// - Fractions are not kept in lowest terms. `*`, `/` and sums of unrelated denominators reduce;
///   sums of equal denominators, or where one divides the other, do not: 1/2 + 1/2 is 2/2. The
///   comparisons see through this, 2/2 == 1/1 holds.
/// - The sign may stand on either field: reducing -3/6 gives 1/-2.
/// - A fraction with a 0 in either field is a zero operand: added to or subtracted from another it
///   changes nothing. Products and quotients that are zero come out as 0/0, and 0/0 == 0/1 is
///   false.
/// - 64-bit products wrap. That needs seconds with denominators around 4e8 that do not divide each
///   other; the time bases of media files stay far below.
/// Thread-safety: as for an int.
struct Rational {
    /// Enough bytes for what toString() writes about any value.
    static constexpr std::size_t kTextSize = 44;

    std::int64_t num = 0;  ///< numerator
    std::int64_t den = 1;  ///< denominator; may be negative, and 0

    /// Product and quotient in lowest terms (up to the sign, see gcd()); 0/0 when either field of
    /// the result would be 0.
    constexpr Rational operator*(const Rational& rhs) const;
    constexpr Rational operator/(const Rational& rhs) const;

    /// Sum and difference; an operand that is not zero is returned as it is when the other is zero.
    constexpr Rational operator+(const Rational& rhs) const;
    constexpr Rational operator-(const Rational& rhs) const;

    /// `*this = *this * rhs`, and likewise for the other three.
    constexpr Rational& operator*=(const Rational& rhs) { return *this = *this * rhs; }

    /// See `*=`.
    constexpr Rational& operator/=(const Rational& rhs) { return *this = *this / rhs; }

    /// See `*=`.
    constexpr Rational& operator+=(const Rational& rhs) { return *this = *this + rhs; }

    /// See `*=`.
    constexpr Rational& operator-=(const Rational& rhs) { return *this = *this - rhs; }

    /// True for equal values in any form (1/2 and 2/4). A denominator of 0 equals only another 0
    /// with the same numerator.
    constexpr bool operator==(const Rational& rhs) const;

    /// The opposite of `==`.
    constexpr bool operator!=(const Rational& rhs) const { return !(*this == rhs); }

    /// Order by the sign of the difference, so a zero operand compares by the rules of `-`:
    /// x > 0/0 says whether x is positive. `>=` and `<=` both hold for a difference of zero.
    constexpr bool operator>(const Rational& rhs) const;
    constexpr bool operator<(const Rational& rhs) const;
    constexpr bool operator>=(const Rational& rhs) const;
    constexpr bool operator<=(const Rational& rhs) const;

    /// Divides both fields by their gcd(), sign included: -3/6 becomes 1/-2. 0/0 stays.
    constexpr void reduce();

    /// Writes "(num/den)" into `buf`, which the caller provides (kTextSize bytes hold any value),
    /// and returns it.
    FRAMEWELL_API char* toString(char* buf) const;
};

/// How to round to a tick. The values are FFmpeg's AVRounding.
enum class Rounding : int {
    Zero = 0,           ///< towards zero
    Inf = 1,            ///< away from zero
    Down = 2,           ///< towards minus infinity
    Up = 3,             ///< towards plus infinity
    NearInf = 5,        ///< to the nearest, halves away from zero
    PassMinMax = 8192,  ///< a flag for the others: INT64_MIN and INT64_MAX come back unchanged
};

/// Combines a way of rounding with Rounding::PassMinMax.
constexpr Rounding operator|(Rounding a, Rounding b) {
    return static_cast<Rounding>(static_cast<int>(a) | static_cast<int>(b));
}

/// Returns the greatest common divisor by Euclid's algorithm with remainders that take the sign of
/// the dividend, hence with that algorithm's sign: gcd(-3, 6) is -3. gcd(a, 0) is a.
constexpr long long gcd(long long a, long long b);

/// Returns `time` (seconds) in ticks of `time_base` seconds, rounded to the nearest tick and halves
/// up, computed in double precision. 0 for a time with denominator 0 or a time base with numerator
/// 0; values beyond 64 bits end at the nearest bound.
FRAMEWELL_API long long time_to_timestamp(const Rational& time, const Rational& time_base);

/// Returns `ts` ticks of `time_base` in seconds, in lowest terms. 0/1 for 0 ticks; 0/0 if
/// `time_base` has a 0 in either field.
constexpr Rational timestamp_to_time(long long ts, const Rational& time_base);

/// Returns `a` ticks of `bq` in ticks of `cq`, exactly, to the nearest and halves away from zero:
/// FFmpeg's av_rescale_q(). INT64_MIN where that cannot be (a `cq` of 0, a result beyond 64 bits).
FRAMEWELL_API long long rescale_q(long long a, const Rational& bq, const Rational& cq);

/// rescale_q() with the rounding `rnd`, which goes to FFmpeg's av_rescale_q_rnd() as it is.
FRAMEWELL_API long long rescale_q_rnd(long long a, const Rational& bq, const Rational& cq,
                                      Rounding rnd);

/// Converts to and from FFmpeg's 32-bit fractions. The way to FFmpeg keeps the low 32 bits of each
/// field without a check. Callers include <libavutil/rational.h>.
FRAMEWELL_API AVRational rational_convert(const Rational& value);
FRAMEWELL_API Rational rational_convert(const AVRational& value);

// What follows is the arithmetic itself, in the header because it is a few instructions each.

namespace detail {

// Signed overflow is undefined, and here it is meant to wrap: hence unsigned arithmetic.
constexpr std::int64_t wrap_mul(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) * static_cast<std::uint64_t>(b));
}

constexpr std::int64_t wrap_add(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) + static_cast<std::uint64_t>(b));
}

constexpr std::int64_t wrap_sub(std::int64_t a, std::int64_t b) {
    return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

/// a + k * b
constexpr std::int64_t add_scaled(std::int64_t a, std::int64_t k, std::int64_t b) {
    return wrap_add(a, wrap_mul(k, b));
}

// Dividing INT64_MIN by -1 traps on x86; as a wrapping negation it is INT64_MIN.
constexpr std::int64_t wrap_div(std::int64_t a, std::int64_t b) {
    return b == -1 ? wrap_sub(0, a) : a / b;
}

/// Both fields divided by their gcd(); 0/0, whose gcd is 0, as it is.
constexpr Rational reduced(std::int64_t num, std::int64_t den) {
    const std::int64_t g = gcd(num, den);
    if (g == 0 || g == 1) {
        return {num, den};
    }
    return {wrap_div(num, g), wrap_div(den, g)};
}

/// A product, where a zero in either field makes the whole 0/0.
constexpr Rational reduced_product(std::int64_t num, std::int64_t den) {
    if (num == 0 || den == 0) {
        return {0, 0};
    }
    return reduced(num, den);
}

/// True if `large` is the larger one and a whole multiple of `small`. Times of one file mostly have
/// equal or related denominators: this spares them the wide products and the search for a divisor.
constexpr bool is_multiple(std::int64_t large, std::int64_t small) {
    return large > small && wrap_mul(wrap_div(large, small), small) == large;
}

constexpr bool is_zero(const Rational& value) {
    return value.num == 0 || value.den == 0;
}

/// -1, 0 or 1; a zero in either field counts as zero.
constexpr int sign(const Rational& value) {
    if (is_zero(value)) {
        return 0;
    }
    return (value.num < 0) == (value.den < 0) ? 1 : -1;
}

}  // namespace detail

constexpr long long gcd(long long a, long long b) {
    while (b != 0) {
        const long long remainder = b == -1 ? 0 : a % b;  // INT64_MIN % -1 traps on x86
        a = b;
        b = remainder;
    }
    return a;
}

constexpr Rational Rational::operator*(const Rational& rhs) const {
    return detail::reduced_product(detail::wrap_mul(num, rhs.num), detail::wrap_mul(den, rhs.den));
}

constexpr Rational Rational::operator/(const Rational& rhs) const {
    return detail::reduced_product(detail::wrap_mul(num, rhs.den), detail::wrap_mul(den, rhs.num));
}

constexpr Rational Rational::operator+(const Rational& rhs) const {
    if (detail::is_zero(rhs)) {
        return *this;
    }
    if (detail::is_zero(*this)) {
        return rhs;
    }
    if (den == rhs.den) {
        return {detail::wrap_add(num, rhs.num), den};
    }
    if (detail::is_multiple(den, rhs.den)) {
        return {detail::add_scaled(num, detail::wrap_div(den, rhs.den), rhs.num), den};
    }
    if (detail::is_multiple(rhs.den, den)) {
        return {detail::add_scaled(rhs.num, detail::wrap_div(rhs.den, den), num), rhs.den};
    }
    return detail::reduced(detail::add_scaled(detail::wrap_mul(den, rhs.num), rhs.den, num),
                           detail::wrap_mul(den, rhs.den));
}

constexpr Rational Rational::operator-(const Rational& rhs) const {
    // A difference is the sum with the negated operand: in wrapping arithmetic the two agree to the
    // last bit, on every path above.
    if (detail::is_zero(rhs)) {
        return *this;
    }
    return *this + Rational{detail::wrap_sub(0, rhs.num), rhs.den};
}

constexpr bool Rational::operator==(const Rational& rhs) const {
    if (den == rhs.den) {
        return num == rhs.num;
    }
    if (den == 0 || rhs.den == 0) {
        return false;
    }
    return detail::wrap_mul(num, rhs.den) == detail::wrap_mul(rhs.num, den);
}

constexpr bool Rational::operator>(const Rational& rhs) const {
    return detail::sign(*this - rhs) > 0;
}

constexpr bool Rational::operator<(const Rational& rhs) const {
    return detail::sign(*this - rhs) < 0;
}

constexpr bool Rational::operator>=(const Rational& rhs) const {
    return detail::sign(*this - rhs) >= 0;
}

constexpr bool Rational::operator<=(const Rational& rhs) const {
    return detail::sign(*this - rhs) <= 0;
}

constexpr void Rational::reduce() {
    *this = detail::reduced(num, den);
}

constexpr Rational timestamp_to_time(long long ts, const Rational& time_base) {
    if (ts == 0) {
        return {0, 1};
    }
    return detail::reduced_product(detail::wrap_mul(ts, time_base.num), time_base.den);
}

}  // namespace ff
