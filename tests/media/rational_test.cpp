extern "C" {
#include <libavutil/mathematics.h>
#include <libavutil/rational.h>
}

#include <framewell/media/rational.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <type_traits>

namespace {

using ff::Rational;

__extension__ using Wide = __int128;

constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

// Compares the two fields, where == compares the values.
void expect_form(const Rational& actual, std::int64_t num, std::int64_t den) {
    EXPECT_EQ(actual.num, num);
    EXPECT_EQ(actual.den, den);
}

std::string text_of(const Rational& value) {
    char buf[Rational::kTextSize];
    return value.toString(buf);
}

Rational reduced(Rational value) {
    value.reduce();
    return value;
}

static_assert(std::is_aggregate_v<Rational> && std::is_trivially_copyable_v<Rational>);
static_assert(sizeof(Rational) == 16 && std::is_standard_layout_v<Rational>);
static_assert(Rational{1, 2} + Rational{1, 4} == Rational{3, 4}, "usable in constants");

TEST(RationalTest, IsZeroSecondsByDefault) {
    expect_form(Rational{}, 0, 1);
}

TEST(RationalTest, ReducesWithTheSignThatEuclidGives) {
    expect_form(reduced({-3, 6}), 1, -2);
    expect_form(reduced({3, -6}), 1, -2);
    expect_form(reduced({-4, -6}), 2, 3);
    expect_form(reduced({0, 5}), 0, 1);
    expect_form(reduced({5, 0}), 1, 0);
    expect_form(reduced({-5, 0}), 1, 0);
    expect_form(reduced({7, 3}), 7, 3);
    expect_form(reduced({-1, 2}), 1, -2);
    expect_form(reduced({1, -2}), 1, -2);
}

TEST(RationalTest, LeavesZeroOverZeroUnreduced) {
    expect_form(reduced({0, 0}), 0, 0);
}

TEST(RationalTest, ReducesTheSmallestIntegerWithoutTrapping) {
    expect_form(reduced({kMin, -1}), kMin, 1);
    expect_form(reduced({-1, kMin}), 1, kMin);  // gcd is -1, and -kMin wraps to kMin
    expect_form(reduced({kMin, kMin}), 1, 1);
    expect_form(reduced({kMin, 2}), kMin / 2, 1);
}

TEST(RationalTest, GcdTakesTheSignOfTheLastRemainder) {
    EXPECT_EQ(ff::gcd(12, 18), 6);
    EXPECT_EQ(ff::gcd(-3, 6), -3);
    EXPECT_EQ(ff::gcd(3, -6), 3);
    EXPECT_EQ(ff::gcd(-4, -6), -2);
    EXPECT_EQ(ff::gcd(5, 0), 5);
    EXPECT_EQ(ff::gcd(-5, 0), -5);
    EXPECT_EQ(ff::gcd(0, 5), 5);
    EXPECT_EQ(ff::gcd(0, 0), 0);
    EXPECT_EQ(ff::gcd(kMin, -1), -1);
}

TEST(RationalTest, MultipliesIntoLowestTerms) {
    expect_form(Rational{2, 3} * Rational{3, 4}, 1, 2);
    expect_form(Rational{1, 2} * Rational{1, 3}, 1, 6);
    expect_form(Rational{-1, 2} * Rational{1, 3}, 1, -6);
    expect_form(Rational{1001, 30000} * Rational{30, 1}, 1001, 1000);
}

TEST(RationalTest, DividesIntoLowestTerms) {
    expect_form(Rational{1, 2} / Rational{1, 4}, 2, 1);
    expect_form(Rational{1, 1} / Rational{30000, 1001}, 1001, 30000);
}

TEST(RationalTest, ZeroProductsAndQuotientsAreZeroOverZero) {
    expect_form(Rational{0, 5} * Rational{3, 4}, 0, 0);
    expect_form(Rational{2, 3} / Rational{0, 1}, 0, 0);
    expect_form(Rational{2, 3} * Rational{1, 0}, 0, 0);
    expect_form(Rational{0, 1} / Rational{2, 3}, 0, 0);
    expect_form(Rational{0, 0} * Rational{0, 0}, 0, 0);
}

TEST(RationalTest, ProductsWrapAt64Bits) {
    // 2^32 * 2^32 wraps to 0, and a zero in one field makes the whole 0/0.
    expect_form(Rational{std::int64_t{1} << 32, 1} * Rational{std::int64_t{1} << 32, 3}, 0, 0);
    expect_form(Rational{kMax, 1} * Rational{3, 1}, kMax - 2, 1);
}

TEST(RationalTest, AddsUnreducedWhenDenominatorsAreEqual) {
    expect_form(Rational{1, 2} + Rational{1, 2}, 2, 2);
    expect_form(Rational{1, 4} - Rational{3, 4}, -2, 4);
    expect_form(Rational{1, 4} - Rational{1, 4}, 0, 4);
}

TEST(RationalTest, AddsUnreducedWhenOneDenominatorDividesTheOther) {
    expect_form(Rational{1, 4} + Rational{1, 2}, 3, 4);
    expect_form(Rational{1, 3} + Rational{1, 6}, 3, 6);
    expect_form(Rational{1, 6} + Rational{1, 3}, 3, 6);
    expect_form(Rational{1, 4} - Rational{1, 2}, -1, 4);
    expect_form(Rational{1, 3} - Rational{1, 6}, 1, 6);
    expect_form(Rational{1, 6} + Rational{1, -3}, -1, 6);  // 6 is -2 times -3
}

TEST(RationalTest, AddsReducedWhenDenominatorsAreUnrelated) {
    expect_form(Rational{1, 6} + Rational{1, 10}, 4, 15);
    expect_form(Rational{1, 2} - Rational{1, 3}, 1, 6);
    expect_form(Rational{1, 2} + Rational{-3, 6}, 0, 6);  // related: stays as it is
    expect_form(Rational{2, 4} - Rational{3, 6}, 0, 1);   // unrelated and zero
}

TEST(RationalTest, ZeroOperandsLeaveTheOtherOperandUntouched) {
    expect_form(Rational{1, 2} + Rational{0, 0}, 1, 2);
    expect_form(Rational{0, 7} + Rational{3, 9}, 3, 9);
    expect_form(Rational{0, 7} - Rational{3, 9}, -3, 9);
    expect_form(Rational{3, 9} - Rational{0, 7}, 3, 9);
    expect_form(Rational{4, 0} + Rational{3, 9}, 3, 9);
    expect_form(Rational{4, 0} + Rational{0, 9}, 4, 0);
    expect_form(Rational{0, 1} - Rational{kMin, 3}, kMin, 3);
}

TEST(RationalTest, CompoundOperatorsChangeTheObjectAndReturnIt) {
    Rational value{1, 2};
    EXPECT_EQ(&(value += Rational{1, 2}), &value);
    expect_form(value, 2, 2);
    EXPECT_EQ(&(value *= Rational{3, 4}), &value);
    expect_form(value, 3, 4);
    EXPECT_EQ(&(value -= Rational{1, 2}), &value);
    expect_form(value, 1, 4);
    EXPECT_EQ(&(value /= Rational{1, 4}), &value);
    expect_form(value, 1, 1);
}

TEST(RationalTest, CompoundOperatorsAcceptTheirOwnObject) {
    Rational value{3, 4};
    const Rational& same = value;
    value += same;
    expect_form(value, 6, 4);
    value -= same;
    expect_form(value, 0, 4);
    value = {2, 3};
    value *= same;
    expect_form(value, 4, 9);
    value /= same;
    expect_form(value, 1, 1);
}

TEST(RationalTest, EqualityComparesValuesAcrossForms) {
    EXPECT_TRUE((Rational{2, 2} == Rational{1, 1}));
    EXPECT_TRUE((Rational{1, -2} == Rational{-3, 6}));
    EXPECT_FALSE((Rational{1, 2} == Rational{1, 3}));
    EXPECT_TRUE((Rational{1, 2} != Rational{1, 3}));
    EXPECT_FALSE((Rational{2, 2} != Rational{1, 1}));
}

TEST(RationalTest, AZeroDenominatorEqualsOnlyItself) {
    EXPECT_TRUE((Rational{0, 0} == Rational{0, 0}));
    EXPECT_FALSE((Rational{0, 0} == Rational{0, 1}));
    EXPECT_TRUE((Rational{0, 0} != Rational{0, 1}));
    EXPECT_FALSE((Rational{1, 0} == Rational{2, 0}));
    EXPECT_TRUE((Rational{0, 5} == Rational{0, 1}));
}

TEST(RationalTest, OrdersByTheSignOfTheDifference) {
    EXPECT_TRUE((Rational{1, -2} < Rational{0, 1}));
    EXPECT_FALSE((Rational{1, -2} > Rational{0, 1}));
    EXPECT_TRUE((Rational{-1, -2} > Rational{0, 1}));
    EXPECT_TRUE((Rational{1, 2} >= Rational{2, 4}));
    EXPECT_TRUE((Rational{1, 2} <= Rational{2, 4}));
    EXPECT_FALSE((Rational{1, 2} > Rational{2, 4}));
    EXPECT_FALSE((Rational{1, 2} < Rational{2, 4}));
}

TEST(RationalTest, ZeroOperandsOrderByTheRulesOfSubtraction) {
    EXPECT_FALSE((Rational{0, 0} >= Rational{5, 1}));
    EXPECT_TRUE((Rational{0, 0} <= Rational{5, 1}));
    EXPECT_TRUE((Rational{5, 1} > Rational{0, 0}));
    EXPECT_TRUE((Rational{0, 0} >= Rational{0, 1}));
    EXPECT_TRUE((Rational{0, 0} <= Rational{0, 1}));
    EXPECT_FALSE((Rational{0, 0} > Rational{0, 1}));
    EXPECT_FALSE((Rational{0, 0} < Rational{0, 1}));
}

TEST(RationalTest, WritesBothFieldsAsText) {
    EXPECT_EQ(text_of({-1, 2}), "(-1/2)");
    EXPECT_EQ(text_of({0, 0}), "(0/0)");
    EXPECT_EQ(text_of({kMin, kMin}), "(-9223372036854775808/-9223372036854775808)");
    EXPECT_EQ(text_of({kMin, kMin}).size() + 1, Rational::kTextSize);
}

TEST(RationalTest, WritesNoFurtherThanTheTextNeeds) {
    char buf[8];
    std::memset(buf, '#', sizeof buf);
    Rational value{-1, 2};
    EXPECT_EQ(value.toString(buf), buf);
    EXPECT_EQ(std::string(buf), "(-1/2)");
    EXPECT_EQ(buf[7], '#');
    EXPECT_EQ(value.toString(nullptr), nullptr);
}

// What the operators do step by step, written out once more without a shared line, for values at
// which everything wraps.
struct Steps {
    static std::int64_t wrap(Wide value) {
        return static_cast<std::int64_t>(static_cast<std::uint64_t>(value));
    }

    static Rational divide_out(std::int64_t n, std::int64_t d) {
        Wide a = n;
        Wide b = d;
        while (b != 0) {
            const Wide r = a % b;
            a = b;
            b = r;
        }
        if (a == 1 || a == 0) {
            return {n, d};
        }
        return {wrap(n / a), wrap(d / a)};
    }

    static Rational combine(const Rational& l, const Rational& r, int sign) {
        if (r.den == 0 || r.num == 0) {
            return l;
        }
        const Wide ln = l.num;
        const Wide ld = l.den;
        const Wide rn = r.num;
        const Wide rd = r.den;
        if (ld == 0 || ln == 0) {
            return {wrap(sign * rn), r.den};
        }
        if (ld == rd) {
            return {wrap(ln + sign * rn), l.den};
        }
        if (ld > rd && ld % rd == 0) {
            return {wrap(ln + sign * (Wide{wrap(ld / rd * rn)})), l.den};
        }
        if (rd > ld && rd % ld == 0) {
            return {wrap(Wide{wrap(rd / ld * ln)} + sign * rn), r.den};
        }
        return divide_out(wrap(Wide{wrap(ln * rd)} + sign * Wide{wrap(rn * ld)}), wrap(ld * rd));
    }

    static Rational multiply(std::int64_t n, std::int64_t d) {
        return n == 0 || d == 0 ? Rational{0, 0} : divide_out(n, d);
    }
};

std::int64_t random_field(std::mt19937_64& random) {
    static constexpr std::int64_t kCorners[] = {kMin, kMin + 1, -2, -1, 0, 1, 2, kMax - 1, kMax};
    const std::uint64_t pick = random() % 8;
    if (pick == 0) {
        return kCorners[random() % 9];
    }
    // All widths from 1 to 64 bits are equally likely.
    return static_cast<std::int64_t>(random()) >> (random() % 64);
}

TEST(RationalTest, FollowsItsStepsForAnyFields) {
    std::mt19937_64 random(20);
    for (int i = 0; i < 300000; ++i) {
        const Rational a{random_field(random), random_field(random)};
        const Rational b{random_field(random), random_field(random)};
        SCOPED_TRACE(text_of(a) + " and " + text_of(b));
        const Rational sum = Steps::combine(a, b, 1);
        const Rational difference = Steps::combine(a, b, -1);
        const Rational product =
            Steps::multiply(Steps::wrap(Wide{a.num} * b.num), Steps::wrap(Wide{a.den} * b.den));
        const Rational quotient =
            Steps::multiply(Steps::wrap(Wide{a.num} * b.den), Steps::wrap(Wide{a.den} * b.num));
        expect_form(a + b, sum.num, sum.den);
        expect_form(a - b, difference.num, difference.den);
        expect_form(a * b, product.num, product.den);
        expect_form(a / b, quotient.num, quotient.den);
        if (testing::Test::HasFailure()) {
            return;
        }
    }
}

TEST(RationalTest, IsExactWhereProductsFit) {
    std::mt19937_64 random(21);
    const auto field = [&random] {
        const auto magnitude = static_cast<std::int64_t>(random() % 20000) + 1;
        return random() % 2 == 0 ? magnitude : -magnitude;
    };
    for (int i = 0; i < 100000; ++i) {
        const Rational a{field(), field()};
        const Rational b{field(), field()};
        SCOPED_TRACE(text_of(a) + " and " + text_of(b));
        const auto is = [](const Rational& value, Wide num, Wide den) {
            return value.num * den == value.den * num;
        };
        const Wide den = Wide{a.den} * b.den;
        EXPECT_TRUE(is(a + b, Wide{a.num} * b.den + Wide{b.num} * a.den, den));
        EXPECT_TRUE(is(a - b, Wide{a.num} * b.den - Wide{b.num} * a.den, den));
        EXPECT_TRUE(is(a * b, Wide{a.num} * b.num, den));
        EXPECT_TRUE(is(a / b, Wide{a.num} * b.den, Wide{a.den} * b.num));
        const Wide cross = (Wide{a.num} * b.den - Wide{b.num} * a.den) * (den < 0 ? -1 : 1);
        EXPECT_EQ(a < b, cross < 0);
        EXPECT_EQ(a > b, cross > 0);
        EXPECT_EQ(a <= b, cross <= 0);
        EXPECT_EQ(a >= b, cross >= 0);
        EXPECT_EQ(a == b, cross == 0);
        if (testing::Test::HasFailure()) {
            return;
        }
    }
}

struct ToTicks {
    const char* name;
    Rational time;
    Rational time_base;
    long long ticks;
};

class TimeToTimestampTest : public testing::TestWithParam<ToTicks> {};

TEST_P(TimeToTimestampTest, RoundsHalfUpInDoublePrecision) {
    EXPECT_EQ(ff::time_to_timestamp(GetParam().time, GetParam().time_base), GetParam().ticks);
}

constexpr std::int64_t kTwoTo53 = std::int64_t{1} << 53;

INSTANTIATE_TEST_SUITE_P(
    Table, TimeToTimestampTest,
    testing::Values(ToTicks{"HalfUp", {5, 2}, {1, 1}, 3},
                    ToTicks{"NegativeHalfUp", {-5, 2}, {1, 1}, -2},
                    ToTicks{"NegativeBeyondHalf", {-13, 5}, {1, 1}, -3},
                    ToTicks{"NegativeBeforeHalf", {-12, 5}, {1, 1}, -2},
                    ToTicks{"Zero", {0, 1}, {1, 1}, 0}, ToTicks{"MinusHalf", {-1, 2}, {1, 1}, 0},
                    ToTicks{"MinusOne", {-1, 1}, {1, 1}, -1},
                    ToTicks{"Mpeg", {1, 30}, {1, 90000}, 3000},
                    ToTicks{"Ntsc", {1001, 30000}, {1001, 30000}, 1},
                    ToTicks{"NoDenominatorInTime", {5, 0}, {1, 90000}, 0},
                    ToTicks{"NoNumeratorInTimeBase", {5, 1}, {0, 90000}, 0},
                    ToTicks{"NoDenominatorInTimeBase", {5, 1}, {1, 0}, 0},
                    ToTicks{"QuotientsAreRoundedFirst", {7007, 200}, {1, 44100}, 1545043},
                    ToTicks{"SumIsRoundedBeforeTheCut", {kTwoTo53 - 1, 2 * kTwoTo53}, {1, 1}, 1},
                    ToTicks{"Microseconds", {1, 3}, {1, 1000000}, 333333},
                    ToTicks{"TooLarge", {kMax, 1}, {1, 2147483647}, kMax},
                    ToTicks{"TooSmall", {kMin, 1}, {1, 2147483647}, kMin},
                    ToTicks{"LargestDouble", {kMax, 1}, {1, 1}, kMax},
                    ToTicks{"Smallest", {kMin, 1}, {1, 1}, kMin}),
    [](const testing::TestParamInfo<ToTicks>& row) { return row.param.name; });

TEST(RationalTest, TurnsTicksIntoSecondsInLowestTerms) {
    expect_form(ff::timestamp_to_time(3000, {1, 90000}), 1, 30);
    expect_form(ff::timestamp_to_time(0, {1, 90000}), 0, 1);
    expect_form(ff::timestamp_to_time(0, {0, 1}), 0, 1);
    expect_form(ff::timestamp_to_time(5, {0, 1}), 0, 0);
    expect_form(ff::timestamp_to_time(5, {1, 0}), 0, 0);
    expect_form(ff::timestamp_to_time(-3000, {1, 90000}), 1, -30);
}

TEST(RationalTest, TurnsAnUnknownTimestampIntoSecondsWithoutTrapping) {
    expect_form(ff::timestamp_to_time(kMin, {1, -1}), kMin, 1);
    expect_form(ff::timestamp_to_time(kMin, {-1, 1}), kMin, 1);
    expect_form(ff::timestamp_to_time(kMin, {2, 1}), 0, 0);  // the product wraps to 0
}

TEST(RationalTest, TicksSurviveTheWayToSecondsAndBack) {
    std::mt19937_64 random(22);
    for (const Rational& tb : {Rational{1, 90000}, Rational{1, 48000}, Rational{1001, 30000},
                               Rational{1, 1000}, Rational{1, 44100}, Rational{2, 1}}) {
        for (int i = 0; i < 20000; ++i) {
            // Below 2^40 ticks the two roundings to double stay far below half a tick.
            const long long ts = static_cast<std::int64_t>(random()) >> 24;
            EXPECT_EQ(ff::time_to_timestamp(ff::timestamp_to_time(ts, tb), tb), ts);
        }
    }
}

TEST(RationalTest, ConvertsToFfmpegByTheLow32BitsOfEachField) {
    const AVRational cut = ff::rational_convert(Rational{4294967297, 1});
    EXPECT_EQ(cut.num, 1);
    EXPECT_EQ(cut.den, 1);
    const AVRational negative = ff::rational_convert(Rational{-3, 2147483648});
    EXPECT_EQ(negative.num, -3);
    EXPECT_EQ(negative.den, std::numeric_limits<int>::min());
}

TEST(RationalTest, ConvertsFromFfmpegWithTheSign) {
    expect_form(ff::rational_convert(AVRational{-1001, 30000}), -1001, 30000);
}

TEST(RationalTest, RescalesAsFfmpegDoes) {
    EXPECT_EQ(ff::rescale_q(3000, {1, 90000}, {1, 1000}), 33);
    EXPECT_EQ(ff::rescale_q(1, {1, 2}, {1, 1}), 1);
    EXPECT_EQ(ff::rescale_q(-1, {1, 2}, {1, 1}), -1);
    EXPECT_EQ(ff::rescale_q(1, {1, 2}, {0, 1}), kMin);
}

TEST(RationalTest, RoundsAsAsked) {
    const auto half = [](ff::Rounding rnd) { return ff::rescale_q_rnd(-5, {1, 2}, {1, 1}, rnd); };
    EXPECT_EQ(half(ff::Rounding::Zero), -2);
    EXPECT_EQ(half(ff::Rounding::Inf), -3);
    EXPECT_EQ(half(ff::Rounding::Down), -3);
    EXPECT_EQ(half(ff::Rounding::Up), -2);
    EXPECT_EQ(half(ff::Rounding::NearInf), -3);
    EXPECT_EQ(ff::rescale_q_rnd(kMin, {1, 2}, {1, 1}, ff::Rounding::Up | ff::Rounding::PassMinMax),
              kMin);
}

TEST(RationalTest, RoundingHasTheNumbersOfFfmpeg) {
    EXPECT_EQ(static_cast<int>(ff::Rounding::Zero), AV_ROUND_ZERO);
    EXPECT_EQ(static_cast<int>(ff::Rounding::Inf), AV_ROUND_INF);
    EXPECT_EQ(static_cast<int>(ff::Rounding::Down), AV_ROUND_DOWN);
    EXPECT_EQ(static_cast<int>(ff::Rounding::Up), AV_ROUND_UP);
    EXPECT_EQ(static_cast<int>(ff::Rounding::NearInf), AV_ROUND_NEAR_INF);
    EXPECT_EQ(static_cast<int>(ff::Rounding::PassMinMax), AV_ROUND_PASS_MINMAX);
}

}  // namespace
