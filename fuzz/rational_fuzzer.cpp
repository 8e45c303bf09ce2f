// Fractions, ticks and ranges of any numbers, held against 128-bit integers wherever the 64-bit
// arithmetic is meant to be exact.

#include "byte_script.h"
#include "expect.h"

#include <framewell/media/range.h>
#include <framewell/media/rational.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>

namespace {

using ff::Range;
using ff::Rational;
using ff::Rounding;
using fuzz::ByteScript;
using fuzz::expect;

__extension__ using Wide = __int128;

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

bool fits(Wide value) {
    return value > kMin && value <= kMax;  // the smallest has no counterpart: leave it out
}

bool is_zero(const Rational& value) {
    return value.num == 0 || value.den == 0;
}

Wide absolute(Wide value) {
    return value < 0 ? -value : value;
}

Rational fraction(ByteScript& script) {
    const std::int64_t num = script.number();
    return {num, script.number()};
}

// Whether both fields of `value` are those of num/den in lowest terms, up to a common sign.
bool is_reduced_form(const Rational& value, Wide num, Wide den) {
    return Wide{value.num} * den == Wide{value.den} * num &&
           (value.num == kMin || value.den == kMin || std::gcd(value.num, value.den) == 1);
}

void check_products(const Rational& a, const Rational& b) {
    const Rational product = a * b;
    const Wide num = Wide{a.num} * b.num;
    const Wide den = Wide{a.den} * b.den;
    if (num == 0 || den == 0) {
        expect(product.num == 0 && product.den == 0, "a product that is zero is 0/0");
    } else if (fits(num) && fits(den)) {
        expect(is_reduced_form(product, num, den), "a product is exact and in lowest terms");
        const Rational back = product / b;
        expect(!fits(Wide{product.num} * b.den) || !fits(Wide{product.den} * b.num) || back == a,
               "dividing by a factor gives the other one");
    }
}

// Whether nothing on the way of a sum or a difference leaves 64 bits.
bool has_exact_sum(const Rational& a, const Rational& b) {
    const Wide limit = Wide{1} << 62;
    return absolute(Wide{a.num} * b.den) < limit && absolute(Wide{b.num} * a.den) < limit &&
           absolute(Wide{a.den} * b.den) < limit;
}

void check_sums(const Rational& a, const Rational& b) {
    const Rational sum = a + b;
    const Rational difference = a - b;
    if (is_zero(a) || is_zero(b) || !has_exact_sum(a, b)) {
        return;
    }
    const Wide left = Wide{a.num} * b.den;
    const Wide right = Wide{b.num} * a.den;
    const Wide den = Wide{a.den} * b.den;
    expect(Wide{sum.num} * den == (left + right) * sum.den, "a sum is exact");
    expect(Wide{difference.num} * den == (left - right) * difference.den, "a difference is exact");
    const bool is_less = den < 0 ? left > right : left < right;
    expect((a < b) == is_less && (b > a) == is_less, "the order is that of the values");
    expect((a == b) == (left == right) && (a != b) == (left != right), "equal are equal values");
    expect((a <= b) == (is_less || left == right), "the order has no holes");
}

void check_gcd(const Rational& a) {
    const long long divisor = ff::gcd(a.num, a.den);
    Rational reduced = a;
    reduced.reduce();
    if (a.num == kMin || a.den == kMin) {
        return;
    }
    expect((divisor < 0 ? -divisor : divisor) == std::gcd(a.num, a.den),
           "the divisor is the greatest one");
    expect(divisor == 0 || (reduced.num == a.num / divisor && reduced.den == a.den / divisor),
           "reducing divides both fields");
}

// a / b rounded, where b is above 0.
Wide rounded(Wide a, Wide b, Rounding rounding) {
    const Wide cut = absolute(a) / b;
    const Wide rest = absolute(a) % b;
    const Wide sign = a < 0 ? -1 : 1;
    switch (rounding) {
        case Rounding::Inf:
            return sign * (cut + (rest > 0 ? 1 : 0));
        case Rounding::Down:
            return a / b - (a < 0 && rest > 0 ? 1 : 0);
        case Rounding::Up:
            return a / b + (a > 0 && rest > 0 ? 1 : 0);
        case Rounding::NearInf:
            return sign * (cut + (2 * rest >= b ? 1 : 0));
        default:
            return sign * cut;
    }
}

void check_rescaling(ByteScript& script) {
    constexpr Rounding roundings[] = {Rounding::Zero, Rounding::Inf, Rounding::Down, Rounding::Up,
                                      Rounding::NearInf};
    const Rounding rounding = script.one_of(roundings);
    const std::int64_t ticks = script.number();
    const Rational from{static_cast<std::int32_t>(script.number()),
                        static_cast<std::int32_t>(script.number())};
    const Rational to{static_cast<std::int32_t>(script.number()),
                      static_cast<std::int32_t>(script.number())};
    const long long result = ff::rescale_q_rnd(ticks, from, to, rounding);
    expect(ff::rescale_q(ticks, from, to) == ff::rescale_q_rnd(ticks, from, to, Rounding::NearInf),
           "to the nearest is what happens unasked");
    const Wide multiplier = Wide{from.num} * to.den;
    const Wide divisor = Wide{to.num} * from.den;
    if (multiplier < 0 || divisor <= 0) {
        expect(result == kMin, "what cannot be rescaled has no time");
        return;
    }
    const Rounding passing = rounding | Rounding::PassMinMax;
    expect(ff::rescale_q_rnd(kMin, from, to, passing) == kMin, "no time stays no time");
    expect(ff::rescale_q_rnd(kMax, from, to, passing) == kMax, "no end stays no end");
    if (ticks == kMin) {
        return;
    }
    const Wide exact = rounded(ticks * multiplier, divisor, rounding);
    if (fits(exact)) {
        expect(result == static_cast<long long>(exact), "ticks are rescaled exactly");
    }
}

void check_ticks(ByteScript& script) {
    const Rational time = fraction(script);
    const Rational base = fraction(script);
    const std::int64_t ticks = script.number();
    (void)ff::time_to_timestamp(time, base);
    const Rational seconds = ff::timestamp_to_time(ticks, base);
    constexpr std::int64_t largest = std::int64_t{1} << 40;
    constexpr std::int64_t largest_field = std::int64_t{1} << 20;
    if (base.num > 0 && base.num < largest_field && base.den > 0 && base.den < largest_field &&
        absolute(ticks) < largest) {
        expect(ff::time_to_timestamp(seconds, base) == ticks, "a tick is found by its time");
    }
    const Wide num = Wide{time.num} * base.den;
    const Wide den = Wide{time.den} * base.num;
    if (time.den != 0 && base.num != 0 && absolute(num) < largest && absolute(den) < largest &&
        absolute(num / den) < (1 << 20)) {
        const Wide off = ff::time_to_timestamp(time, base) * den - num;
        // A double has 53 bits: what it loses of a tick is far less than 1/1000.
        expect(1000 * absolute(off) <= 501 * absolute(den), "the nearest tick is taken");
    }
}

void check_texts(const Rational& a, const Rational& b, int y, int h) {
    const auto text = std::make_unique<char[]>(Rational::kTextSize);
    expect(std::strlen(a.toString(text.get())) < Rational::kTextSize, "a fraction has room");
    const Range range{a, b};
    const auto range_text = std::make_unique<char[]>(Range::kTextSize);
    expect(std::strlen(range.toString(range_text.get())) < Range::kTextSize, "a range has room");
    const ff::XRect rect{range, y, h};
    const auto rect_text = std::make_unique<char[]>(ff::XRect::kTextSize);
    expect(std::strlen(rect.toString(rect_text.get())) < ff::XRect::kTextSize,
           "a rectangle has room");
}

void check_ranges(ByteScript& script) {
    const Range a{fraction(script), fraction(script)};
    const Range b{fraction(script), fraction(script)};
    const Range hull = a | b;
    (void)((a + b.start) == (b - a.end));
    Range scaled = a;
    scaled *= b.start;
    scaled /= b.end;
    if (a.start.den != 0 && a.end.den != 0 && b.start.den != 0 && b.end.den != 0 &&
        has_exact_sum(a.start, b.start) && has_exact_sum(a.end, b.end) &&
        has_exact_sum(a.start, b.end) && has_exact_sum(a.end, b.start)) {
        expect(hull.start <= a.start && hull.start <= b.start, "a hull begins first");
        expect(hull.end >= a.end && hull.end >= b.end, "a hull ends last");
        expect(a.intersects(b) == b.intersects(a), "both have the moment in common");
    }
    const ff::XRect left{a, script.small_number(), script.small_number()};
    const ff::XRect right{b, script.small_number(), script.small_number()};
    (void)(left | right);  // any rows, also such as wrap
    check_texts(a.start, b.end, left.y, right.h);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    ByteScript script(data, size);
    switch (script.below(4)) {
        case 0:
            check_rescaling(script);
            break;
        case 1:
            check_ticks(script);
            break;
        case 2:
            check_ranges(script);
            break;
        default: {
            const Rational a = fraction(script);
            const Rational b = fraction(script);
            check_products(a, b);
            check_sums(a, b);
            check_gcd(a);
        }
    }
    return 0;
}
