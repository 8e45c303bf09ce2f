#include "media/ff_compat.h"

#include <framewell/media/rational.h>

#include <cstdio>
#include <cstring>
#include <limits>

namespace ff {

namespace {

constexpr long long kMaxTicks = std::numeric_limits<long long>::max();
constexpr long long kMinTicks = std::numeric_limits<long long>::min();
constexpr double kTicksEnd = 9223372036854775808.0;  // 2^63, the first value that does not fit

long long round_half_up(double value) {
    if (value >= kTicksEnd) {
        return kMaxTicks;
    }
    if (value < -kTicksEnd) {
        return kMinTicks;
    }
    if (value > 0) {
        // Deliberate, where lround() would differ: the sum is rounded to a double before it is cut,
        // so the double just below 0.5 gives 1. Hosts compute the same ticks.
        // At this size a sum that reaches 2^63 has been caught above: doubles from 2^53 on are
        // whole, and adding 0.5 to them changes nothing.
        return static_cast<long long>(value + 0.5);  // NOLINT(bugprone-incorrect-roundings): above
    }
    // Moved above zero first, because a conversion cuts towards zero.
    const double below = value - 1.0;
    const auto shift = static_cast<long long>(below);
    // NOLINTNEXTLINE(bugprone-incorrect-roundings): as above
    return static_cast<long long>(value - static_cast<double>(shift) + 0.5) + shift;
}

}  // namespace

char* Rational::toString(char* buf) const {
    if (buf == nullptr) {
        return nullptr;
    }
    char text[kTextSize];
    const int length = std::snprintf(text, sizeof text, "(%lld/%lld)", static_cast<long long>(num),
                                     static_cast<long long>(den));
    // By way of `text`, so that no more is claimed of the caller's buffer than the text needs.
    std::memcpy(buf, text, static_cast<std::size_t>(length) + 1);
    return buf;
}

long long time_to_timestamp(const Rational& time, const Rational& time_base) {
    if (time.den == 0 || time_base.num == 0) {
        return 0;
    }
    const double ticks_per_second =
        static_cast<double>(time_base.den) / static_cast<double>(time_base.num);
    const double seconds = static_cast<double>(time.num) / static_cast<double>(time.den);
    // volatile keeps the product a double of its own: fused with the addition that follows (what
    // compilers for Arm do unasked), it would round to another tick on that processor.
    const volatile double ticks = ticks_per_second * seconds;
    return round_half_up(ticks);
}

long long rescale_q(long long a, const Rational& bq, const Rational& cq) {
    return av_rescale_q(a, rational_convert(bq), rational_convert(cq));
}

long long rescale_q_rnd(long long a, const Rational& bq, const Rational& cq, Rounding rnd) {
    return av_rescale_q_rnd(a, rational_convert(bq), rational_convert(cq),
                            static_cast<AVRounding>(rnd));
}

AVRational rational_convert(const Rational& value) {
    return {static_cast<int>(static_cast<std::uint32_t>(value.num)),
            static_cast<int>(static_cast<std::uint32_t>(value.den))};
}

Rational rational_convert(const AVRational& value) {
    return {value.num, value.den};
}

}  // namespace ff
