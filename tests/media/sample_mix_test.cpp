// What the two routines promise, against values worked out by hand and against the same rule in
// wider arithmetic. That the vector paths give the same bytes is sample_lanes_test.cpp.

#include "media/sample_lanes.h"

#include <framewell/media/sample_mix.h>

#include <climits>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr float kLargest = std::numeric_limits<float>::max();
constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNan = std::numeric_limits<float>::quiet_NaN();
constexpr float kTiniest = std::numeric_limits<float>::denorm_min();

template <class T>
T swapped(T value) {
    std::uint8_t bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    std::reverse(bytes, bytes + sizeof value);
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

/// Mixes one sample with one sample.
template <class T>
T mix_one(SDL_AudioFormat format, T d, T s, int volume) {
    std::uint8_t dst[sizeof d];
    std::uint8_t src[sizeof s];
    std::memcpy(dst, &d, sizeof d);
    std::memcpy(src, &s, sizeof s);
    SDL_MixAudioFormat(dst, src, format, sizeof dst, volume);
    std::memcpy(&d, dst, sizeof d);
    return d;
}

template <class T>
std::uint32_t peak_of(SDL_AudioFormat format, const std::vector<T>& samples, int scale) {
    return Audio_Volume_Peak(format, reinterpret_cast<const std::uint8_t*>(samples.data()),
                             static_cast<std::uint32_t>(samples.size() * sizeof(T)), scale);
}

std::uint32_t bits_of(float value) {
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

template <class T>
struct Case {
    int d;
    int s;
    int volume;
    int expected;
};

TEST(SampleMixTest, MixesSigned16BitWithClipping) {
    constexpr Case<std::int16_t> cases[] = {
        {30000, 10000, 128, 32767},
        {-30000, -10000, 128, -32768},
        {0, 10000, 64, 5000},
        {100, 10000, 64, 5100},
        {0, -1, 64, 0},
        {0, -3, 64, -1},
        {0, 3, 64, 1},
        {0, -32768, 128, -32768},
        {0, -32768, 127, -32512},
        {32767, -32768, 128, -1},
        {0, 10000, 129, 10078},
        {0, 10000, -64, -5000},
        {0, 32767, INT_MAX, 32767},
        {0, 1, INT_MIN, -32768},
        {0, 32767, INT_MIN, -32768},
    };
    for (const auto& c : cases) {
        const auto d = static_cast<std::int16_t>(c.d);
        const auto s = static_cast<std::int16_t>(c.s);
        EXPECT_EQ(mix_one(2, d, s, c.volume), c.expected) << c.d << " " << c.s << " " << c.volume;
        EXPECT_EQ(swapped(mix_one(3, swapped(d), swapped(s), c.volume)), c.expected);
        // Unsigned samples are the same, 32768 higher.
        const auto high_d = static_cast<std::uint16_t>(c.d + 32768);
        const auto high_s = static_cast<std::uint16_t>(c.s + 32768);
        EXPECT_EQ(mix_one(4, high_d, high_s, c.volume), c.expected + 32768);
        EXPECT_EQ(swapped(mix_one(5, swapped(high_d), swapped(high_s), c.volume)),
                  c.expected + 32768);
    }
}

TEST(SampleMixTest, MixesUnsigned8BitUpTo254) {
    constexpr Case<std::uint8_t> cases[] = {
        {200, 250, 128, 254},  {128, 128, 128, 128}, {255, 128, 128, 254}, {255, 128, 1, 254},
        {0, 0, 128, 0},        {10, 118, 128, 0},    {128, 127, 64, 128},  {128, 0, 64, 64},
        {0, 255, 128, 127},    {128, 255, 128, 254}, {128, 254, 128, 254}, {128, 253, 128, 253},
        {128, 192, 128, 192},  {128, 192, 256, 0},  // 128 + 128 wraps to 0: 128 below the middle
        {200, 192, -128, 136},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(
            mix_one(0, static_cast<std::uint8_t>(c.d), static_cast<std::uint8_t>(c.s), c.volume),
            c.expected)
            << c.d << " " << c.s << " " << c.volume;
    }
}

TEST(SampleMixTest, MixesSigned8BitWithClipping) {
    constexpr Case<std::int8_t> cases[] = {
        {100, 100, 128, 127}, {-100, -100, 128, -128}, {0, 100, 64, 50},   {0, -101, 64, -50},
        {1, -1, 127, 1},      {0, -128, 128, -128},    {0, 1, 1000, 7},    {5, 1, INT_MIN, -128},
        {127, -128, 128, -1}, {0, -128, INT_MIN, 127}, {0, 127, 256, 127},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(
            mix_one(1, static_cast<std::int8_t>(c.d), static_cast<std::int8_t>(c.s), c.volume),
            c.expected)
            << c.d << " " << c.s << " " << c.volume;
    }
}

TEST(SampleMixTest, MixesSigned32BitWithClipping) {
    struct {
        std::int32_t d;
        std::int32_t s;
        int volume;
        std::int32_t expected;
    } const cases[] = {
        {2000000000, 2000000000, 128, INT32_MAX},
        {-2000000000, -2000000000, 128, INT32_MIN},
        {1, 1000000001, 64, 500000001},
        {0, -1000000001, 64, -500000000},
        {0, INT32_MIN, 128, INT32_MIN},
        {INT32_MAX, INT32_MIN, 128, -1},
        {0, INT32_MIN, 127, -2130706432},
        {0, INT32_MAX, 127, 2130706431},
        {0, INT32_MIN, INT_MIN, INT32_MAX},
        {0, INT32_MAX, INT_MIN, INT32_MIN},
        {0, 128, INT_MIN, INT32_MIN},
        {0, -3, 64, -1},
    };

    for (const auto& c : cases) {
        EXPECT_EQ(mix_one(6, c.d, c.s, c.volume), c.expected) << c.d << " " << c.s;
        EXPECT_EQ(swapped(mix_one(7, swapped(c.d), swapped(c.s), c.volume)), c.expected);
    }
}

TEST(SampleMixTest, MixesFloatWithoutClippingAtOne) {
    struct {
        float d;
        float s;
        int volume;
        float expected;
    } const cases[] = {
        {0.75F, 0.75F, 128, 1.5F},
        {0.75F, 0.75F, 64, 1.125F},
        {1.0F, 1.0F, -128, 0.0F},
        {3e38F, 3e38F, 1, 3e38F + 2.34375e36F},
        {3e38F, 1e36F, 128, 3.01e38F},
        {3e38F, 2e36F, 128, 3.02e38F},
        {kLargest, 1.0F, 128, kLargest},
        {0.0F, 3e38F, 128, kLargest},  // overflows when multiplied, before it is made smaller
        {0.0F, -3e38F, 2, -kLargest},
        {0.0F, 3e38F, 1, 3e38F * 0.0078125F},
        {3e38F, 1e38F, 64, kLargest},
        {0.0F, kInfinity, 1, kLargest},
        {0.0F, -kInfinity, 128, -kLargest},
        {-kInfinity, 1.0F, 128, -kLargest},
        {kTiniest, kTiniest, 128, 2 * kTiniest},
        {0.0F, kTiniest, 64, 0.0F},  // halves go to even
        {0.0F, 3 * kTiniest, 64, 2 * kTiniest},
        {0.0F, 128 * kTiniest, 1, kTiniest},
    };

    for (const auto& c : cases) {
        const float mixed = mix_one(8, c.d, c.s, c.volume);
        EXPECT_EQ(bits_of(mixed), bits_of(c.expected))
            << c.d << " " << c.s << " " << c.volume << ": " << mixed;
        EXPECT_EQ(
            mix_one(9, __builtin_bswap32(bits_of(c.d)), __builtin_bswap32(bits_of(c.s)), c.volume),
            __builtin_bswap32(bits_of(c.expected)));
    }
}

TEST(SampleMixTest, AnyFloatThatIsNoNumberBecomesTheQuietNan) {
    struct {
        std::uint32_t d;
        std::uint32_t s;
    } const cases[] = {
        {bits_of(kNan), bits_of(1.0F)},
        {bits_of(1.0F), bits_of(kNan)},
        {bits_of(kNan), bits_of(kNan)},
        {bits_of(kInfinity), bits_of(-kInfinity)},
        {0xFFC12345, bits_of(1.0F)},
        {bits_of(1.0F), 0x7F800001},
        {bits_of(-kInfinity), bits_of(kInfinity)},
        {0x7FFFFFFF, 0xFFFFFFFF},
    };

    for (const auto& c : cases) {
        EXPECT_EQ(mix_one(8, c.d, c.s, 128), 0x7FC00000U) << c.d << " " << c.s;
        EXPECT_EQ(mix_one(9, __builtin_bswap32(c.d), __builtin_bswap32(c.s), 64),
                  __builtin_bswap32(0x7FC00000U));
    }
}

// The rule again, in a type that holds every product and sum.
long double wide_sum(long double d, long double s, int volume, long double low, long double high) {
    const long double scaled = std::trunc(s * volume / 128);
    return std::min(std::max(d + scaled, low), high);
}

template <class T>
void expect_wide_rule(SDL_AudioFormat format, std::uint32_t seed) {
    constexpr long double low = std::numeric_limits<T>::min();
    constexpr long double high = std::numeric_limits<T>::max();
    std::mt19937 random(seed);
    for (int i = 0; i < 200000; ++i) {
        const auto d = static_cast<T>(random());
        const auto s = static_cast<T>(random());
        const int volume = i % 3 == 0 ? static_cast<int>(random()) : static_cast<int>(i % 129);
        if (volume == 0) {
            continue;
        }
        const auto expected = static_cast<T>(wide_sum(d, s, volume, low, high));
        ASSERT_EQ(mix_one(format, d, s, volume), expected) << +d << " " << +s << " " << volume;
        ASSERT_EQ(
            swapped(mix_one(format + (sizeof(T) > 1 ? 1U : 0U), sizeof(T) > 1 ? swapped(d) : d,
                            sizeof(T) > 1 ? swapped(s) : s, volume)),
            swapped(sizeof(T) > 1 ? swapped(expected) : expected));
    }
}

TEST(SampleMixTest, SignedSamplesFollowTheRuleInWideArithmetic) {
    expect_wide_rule<std::int8_t>(1, 1);
    expect_wide_rule<std::int16_t>(2, 2);
    expect_wide_rule<std::int32_t>(6, 3);
}

TEST(SampleMixTest, EveryPairOfUnsigned8BitSamplesFollowsTheTable) {
    int table[512];
    for (int i = 0; i < 512; ++i) {
        table[i] = std::max(0, std::min(254, i - 128));
    }
    for (const int volume : {1, 63, 64, 127, 128, 129, -1, 1000, -1000}) {
        std::vector<std::uint8_t> dst;
        std::vector<std::uint8_t> src;
        std::vector<std::uint8_t> expected;
        for (int d = 0; d < 256; ++d) {
            for (int s = 0; s < 256; ++s) {
                dst.push_back(static_cast<std::uint8_t>(d));
                src.push_back(static_cast<std::uint8_t>(s));
                const long double exact = static_cast<long double>(s - 128) * volume / 128;
                const int scaled = (static_cast<int>(std::trunc(exact)) + 128) & 255;
                expected.push_back(static_cast<std::uint8_t>(table[scaled + d]));
            }
        }
        SDL_MixAudioFormat(dst.data(), src.data(), 0, 65536, volume);
        EXPECT_EQ(dst, expected) << volume;
    }
}

// Products in double are exact for these volumes, so each conversion to float rounds once.
TEST(SampleMixTest, FloatsFollowTheRuleInWideArithmetic) {
    std::mt19937 random(5);
    for (int i = 0; i < 500000; ++i) {
        const auto d_bits = static_cast<std::uint32_t>(random());
        // Every second pair has exponents that meet, which is where rounding is decided.
        const auto s_bits = i % 2 == 0 ? static_cast<std::uint32_t>(random())
                                       : d_bits ^ static_cast<std::uint32_t>(random() >> 6);
        float d = 0;
        float s = 0;
        std::memcpy(&d, &d_bits, sizeof d);
        std::memcpy(&s, &s_bits, sizeof s);
        if (!std::isfinite(d) || !std::isfinite(s)) {
            continue;
        }
        const int volume = 1 + i % 128;
        const auto louder = static_cast<float>(static_cast<double>(s) * volume);
        const auto scaled = static_cast<float>(static_cast<double>(louder) / 128);
        const long double sum = static_cast<long double>(d) + scaled;
        const auto expected = static_cast<float>(std::clamp<long double>(sum, -kLargest, kLargest));
        ASSERT_EQ(bits_of(mix_one(8, d, s, volume)), bits_of(expected))
            << d << " " << s << " " << volume;
    }
}

TEST(SampleMixTest, VolumeZeroChangesNothingInAnyFormat) {
    testing::internal::CaptureStderr();
    for (const SDL_AudioFormat format : {0U, 1U, 2U, 8U, 9U, 10U, UINT32_MAX}) {
        EXPECT_EQ(mix_one<std::uint32_t>(format, 0xFF800001, 0x12345678, 0), 0xFF800001U);
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(SampleMixTest, AnUnknownFormatIsReportedWithTheSystemsErrorText) {
    for (const SDL_AudioFormat format : {10U, 255U, 65536U, UINT32_MAX}) {
        testing::internal::CaptureStderr();
        errno = ENOENT;
        EXPECT_EQ(mix_one<std::uint32_t>(format, 1, 2, 128), 1U);
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "MixAudio: unknown audio format: No such file or directory\n");
    }
}

TEST(SampleMixTest, APartOfASampleAtTheEndIsLeftAlone) {
    for (SDL_AudioFormat format = 0; format < ff::lanes::kFormats; ++format) {
        const std::size_t size = ff::lanes::sample_bytes(format);
        for (std::uint32_t len = 0; len <= 140; ++len) {
            std::vector<std::uint8_t> dst(len + 1, 0x11);
            const std::vector<std::uint8_t> src(len + 1, 0x22);
            SDL_MixAudioFormat(dst.data(), src.data(), format, len, 128);
            const std::size_t whole = len / size * size;
            for (std::size_t i = whole; i < dst.size(); ++i) {
                ASSERT_EQ(dst[i], 0x11) << format << " " << len << " " << i;
            }
        }
    }
}

TEST(SampleMixTest, NullBlocksAreLeftAlone) {
    std::uint8_t block[16] = {1};
    SDL_MixAudioFormat(nullptr, block, 2, sizeof block, 128);
    SDL_MixAudioFormat(block, nullptr, 2, sizeof block, 128);
    EXPECT_EQ(block[0], 1);
    EXPECT_EQ(Audio_Volume_Peak(2, nullptr, 16, 100), 0U);
}

TEST(SamplePeakTest, ReadsSigned16BitSamplesAsUnsigned) {
    EXPECT_EQ(peak_of<std::int16_t>(2, {100, -1}, 100), 200U);
    EXPECT_EQ(peak_of<std::int16_t>(2, {16384, 0}, 100), 50U);
    EXPECT_EQ(peak_of<std::int16_t>(2, {32767}, 100), 100U);
    EXPECT_EQ(peak_of<std::int16_t>(2, {-32768}, 32767), 32768U);
    EXPECT_EQ(peak_of<std::int16_t>(3, {swapped<std::int16_t>(16384), 0}, 100), 50U);
    EXPECT_EQ(peak_of<std::int16_t>(3, {swapped<std::int16_t>(-2)}, 32767), 65534U);
}

TEST(SamplePeakTest, Reads8BitSamples) {
    EXPECT_EQ(peak_of<std::uint8_t>(0, {128, 128}, 127), 128U);  // silence
    EXPECT_EQ(peak_of<std::uint8_t>(0, {0, 3}, 127), 3U);
    EXPECT_EQ(peak_of<std::uint8_t>(0, {255}, 100), 200U);
    EXPECT_EQ(peak_of<std::int8_t>(1, {-128, 5}, 127), 128U);
    EXPECT_EQ(peak_of<std::int8_t>(1, {-5, 4}, 127), 5U);
    EXPECT_EQ(peak_of<std::int8_t>(1, {0, 127}, 100), 100U);
}

TEST(SamplePeakTest, ReadsSigned32BitSamples) {
    EXPECT_EQ(peak_of<std::int32_t>(6, {1, INT32_MIN}, INT_MAX), 2147483648U);
    EXPECT_EQ(peak_of<std::int32_t>(6, {INT32_MAX, 0}, 100), 100U);
    EXPECT_EQ(peak_of<std::int32_t>(6, {-1073741824, 5}, 1000), 500U);
    EXPECT_EQ(peak_of<std::int32_t>(7, {swapped(-1073741824), 5}, 1000), 500U);
}

TEST(SamplePeakTest, OrdinaryFloatSoundMeasuresZero) {
    EXPECT_EQ(peak_of<float>(8, {0.5F}, 100), 0U);
    EXPECT_EQ(peak_of<float>(8, {-kLargest, 1}, 100), 100U);
    EXPECT_EQ(peak_of<float>(8, {kLargest / 2}, 100), 50U);
    EXPECT_EQ(peak_of<std::uint32_t>(9, {swapped(bits_of(-kLargest))}, 100), 100U);
}

TEST(SamplePeakTest, FloatsThatAreNoNumbersDoNotCountAndInfiniteOnesDo) {
    EXPECT_EQ(peak_of<float>(8, {kNan, kLargest, kNan}, 100), 100U);
    EXPECT_EQ(peak_of<float>(8, {kNan, -kNan}, 100), 0U);
    EXPECT_EQ(peak_of<float>(8, {kInfinity}, 1), UINT32_MAX);
    EXPECT_EQ(peak_of<float>(8, {-kInfinity}, 0), 0U);  // infinity times 0
    EXPECT_EQ(peak_of<float>(8, {kInfinity}, -1), 0U);
}

TEST(SamplePeakTest, ResultsBeyondTheTypeEndAtItsBounds) {
    EXPECT_EQ(peak_of<std::int16_t>(2, {32767}, -100), 0U);
    EXPECT_EQ(peak_of<std::int16_t>(2, {32767}, INT_MIN), 0U);
    EXPECT_EQ(peak_of<std::int16_t>(2, {-1}, INT_MAX), UINT32_MAX);
    EXPECT_EQ(peak_of<std::uint8_t>(0, {255}, INT_MAX), UINT32_MAX);
    EXPECT_EQ(peak_of<std::uint8_t>(0, {254}, INT_MAX), 4294967294U);
    EXPECT_EQ(peak_of<std::int16_t>(2, {1}, 0), 0U);
}

TEST(SamplePeakTest, EmptyBlocksAndFormatsWithoutPeakAreZeroAndSilent) {
    const std::vector<std::uint32_t> loud(16, 0x7F7F7F7F);
    testing::internal::CaptureStderr();
    for (SDL_AudioFormat format = 0; format < 12; ++format) {
        EXPECT_EQ(
            Audio_Volume_Peak(format, reinterpret_cast<const std::uint8_t*>(loud.data()), 0, 100),
            0U);
    }
    for (const SDL_AudioFormat format : {4U, 5U, 10U, UINT32_MAX}) {
        EXPECT_EQ(peak_of(format, loud, 100), 0U) << format;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(SamplePeakTest, APartOfASampleAtTheEndDoesNotCount) {
    const std::uint8_t bytes[] = {1, 0, 255, 255, 255, 255, 255};
    EXPECT_EQ(Audio_Volume_Peak(2, bytes, 3, 32767), 1U);
    EXPECT_EQ(Audio_Volume_Peak(6, bytes, 3, INT_MAX), 0U);
}

}  // namespace
