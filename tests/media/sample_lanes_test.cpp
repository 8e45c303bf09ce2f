// Every path of mixing and measuring against the plain rule, byte by byte.

#include "media/sample_lanes.h"

#include "tests/support/sanitized.h"

#include <climits>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace {

using ff::lanes::kFormats;
using ff::lanes::Path;
using ff::lanes::plain_path;
using ff::lanes::sample_bytes;

constexpr std::size_t kMaxShift = 31;  // a vector of 32 bytes can lie at any of these addresses
constexpr std::size_t kMaxLength = 130;
// A sanitizer, under which all takes several times as long, gets a sample of the volumes (extremes
// meet at all of them even so), and lengths that still end in every lane of a vector.
constexpr int kVolumeStep = fw_test::kSanitized ? 16 : 1;
constexpr std::size_t kLengthStep = fw_test::kSanitized ? 3 : 1;
constexpr int kVolumes[] = {0,   1,   2,  63,  64,   65,   127,     128,
                            129, 255, -1, -64, -128, -129, INT_MAX, INT_MIN};
constexpr std::uint32_t kExtremes32[] = {
    // whole numbers of every size, and the borders of their halves
    0x00000000,
    0x80000000,
    0x7FFFFFFF,
    0xFFFFFFFF,
    0x00000001,
    0x80000001,
    0x80808080,
    0x7F7F7F7F,
    0x00007FFF,
    0x00008000,
    0xFFFF8000,
    0x0000FFFF,
    0xFFFF0000,
    // infinities
    0x7F800000,
    0xFF800000,
    // NaNs, quiet and signalling
    0x7FC00000,
    0xFFC00000,
    0x7F800001,
    0xFFBFFFFF,
    0x7FFFFFFE,
    // the largest floats
    0x7F7FFFFF,
    0xFF7FFFFF,
    0x7F7FFFFE,
    0x73FFFFFF,
    // the smallest
    0x00000002,
    0x007FFFFF,
    0x807FFFFF,
    0x00800000,
    0x80800000,
    0x3F800000,
    0xBF800000,
    0x3F000000,
    0x34000000,
    0x7E800000,
    0x7C000000,
};

using Bytes = std::vector<std::uint8_t>;

void put(Bytes* bytes, std::size_t sample, std::size_t size, bool swapped, std::uint32_t bits) {
    for (std::size_t i = 0; i < size; ++i) {
        const std::size_t at = swapped ? size - 1 - i : i;
        (*bytes)[sample * size + at] = static_cast<std::uint8_t>(bits >> (8 * i));
    }
}

bool is_swapped(std::uint32_t format) {
    return format == 3 || format == 5 || format == 7 || format == 9;
}

/// Samples of which half are extreme and half are anything.
Bytes make_samples(std::uint32_t format, std::size_t count, std::uint32_t seed) {
    const std::size_t size = sample_bytes(format);
    std::mt19937 random(seed);
    Bytes bytes(count * size);
    for (std::size_t i = 0; i < count; ++i) {
        std::uint32_t bits = static_cast<std::uint32_t>(random());
        if (random() % 2 == 0) {
            bits = kExtremes32[random() % std::size(kExtremes32)];
            // The extremes of smaller samples are the top bits of those of larger ones.
            bits = random() % 2 == 0 ? bits : bits >> (32 - 8 * size);
        }
        put(&bytes, i, size, is_swapped(format), bits);
    }
    return bytes;
}

const Path* path_of(const std::string& name) {
    for (const Path* const path :
         {&plain_path(), ff::lanes::sse2_path(), ff::lanes::avx2_path(), ff::lanes::neon_path()}) {
        if (path != nullptr && name == path->name) {
            return path;
        }
    }
    return nullptr;
}

struct SampleLanesTest : testing::TestWithParam<std::tuple<std::string, std::uint32_t>> {
    void SetUp() override {
        path = path_of(std::get<0>(GetParam()));
        if (path == nullptr) {
            GTEST_SKIP() << "this processor has no " << std::get<0>(GetParam());
        }
    }

    /// Mixes `count` samples that begin `dst_shift` and `src_shift` bytes into blocks of their own,
    /// by this path and by the plain rule. All bytes of both blocks must come out the same, also
    /// those around the samples.
    void expect_same(const Bytes& dst, std::size_t dst_shift, const Bytes& src,
                     std::size_t src_shift, std::size_t count, int volume) const {
        Bytes expected = dst;
        Bytes actual = dst;
        plain_path().mix[format](expected.data() + dst_shift, src.data() + src_shift, count,
                                 volume);
        path->mix[format](actual.data() + dst_shift, src.data() + src_shift, count, volume);
        ASSERT_EQ(actual, expected) << count << " samples from " << dst_shift << " and "
                                    << src_shift << " on, volume " << volume;
    }

    double peak_of(const Path& of, const std::uint8_t* data, std::size_t count) const {
        return of.peak[format](data, count);
    }

    const Path* path = nullptr;
    std::uint32_t format = std::get<1>(GetParam());
    std::size_t size = sample_bytes(format);
};

TEST_P(SampleLanesTest, MixesEveryLengthAtEveryVolume) {
    const std::size_t room = kMaxLength + 8;
    for (std::size_t count = 0; count <= kMaxLength; ++count) {
        const auto seed = static_cast<std::uint32_t>(count);
        const Bytes dst = make_samples(format, room, seed);
        const Bytes src = make_samples(format, room, seed + 1000);
        for (const int volume : kVolumes) {
            ASSERT_NO_FATAL_FAILURE(expect_same(dst, 0, src, 0, count, volume));
        }
    }
}

TEST_P(SampleLanesTest, MixesFromEveryAddress) {
    const std::size_t room = kMaxLength + kMaxShift + 1;
    const Bytes dst = make_samples(format, room, 1);
    const Bytes src = make_samples(format, room, 2);
    std::size_t next_volume = 0;
    for (std::size_t dst_shift = 0; dst_shift <= kMaxShift; ++dst_shift) {
        for (std::size_t src_shift = 0; src_shift <= kMaxShift; ++src_shift) {
            for (std::size_t count = 0; count <= kMaxLength; count += kLengthStep) {
                const int volume = kVolumes[next_volume++ % std::size(kVolumes)];
                ASSERT_NO_FATAL_FAILURE(expect_same(dst, dst_shift, src, src_shift, count, volume));
            }
        }
    }
}

TEST_P(SampleLanesTest, MixesABlockOntoItself) {
    for (std::size_t count = 0; count <= kMaxLength; ++count) {
        for (const int volume : kVolumes) {
            Bytes expected =
                make_samples(format, kMaxLength + 8, static_cast<std::uint32_t>(count));
            Bytes actual = expected;
            plain_path().mix[format](expected.data() + 1, expected.data() + 1, count, volume);
            path->mix[format](actual.data() + 1, actual.data() + 1, count, volume);
            ASSERT_EQ(actual, expected) << count << " samples, volume " << volume;
        }
    }
}

TEST_P(SampleLanesTest, MixesLongBlocksAtAllVolumes) {
    constexpr std::size_t count = 20011;
    const Bytes dst = make_samples(format, count, 3);
    const Bytes src = make_samples(format, count, 4);
    for (int volume = 0; volume <= 128; volume += kVolumeStep) {
        ASSERT_NO_FATAL_FAILURE(expect_same(dst, 0, src, 0, count, volume));
    }
}

// Pairs of all extremes, at every volume: both sums that clip and sums that just do not.
TEST_P(SampleLanesTest, MixesAllPairsOfExtremes) {
    constexpr std::size_t extremes = std::size(kExtremes32);
    Bytes dst(extremes * extremes * size);
    Bytes src(dst.size());
    for (std::size_t i = 0; i < extremes * extremes; ++i) {
        // Small samples get the low or the high bits of these.
        const std::size_t low = 32 - 8 * size;
        const std::uint32_t d = kExtremes32[i / extremes];
        const std::uint32_t s = kExtremes32[i % extremes];
        put(&dst, i, size, is_swapped(format), i % 2 == 0 ? d : d >> low);
        put(&src, i, size, is_swapped(format), i % 3 == 0 ? s : s >> low);
    }
    for (int volume = -130; volume <= 260; ++volume) {
        ASSERT_NO_FATAL_FAILURE(expect_same(dst, 0, src, 0, extremes * extremes, volume));
    }
}

// All there is: every sample of 8 or 16 bits, at every volume, onto samples that are far up, far
// down and in the middle.
TEST_P(SampleLanesTest, MixesEverySmallSampleAtEveryVolume) {
    if (size > 2) {
        GTEST_SKIP() << "too many samples";
    }
    const std::size_t count = std::size_t{1} << (8 * size);
    Bytes src(count * size);
    for (std::size_t i = 0; i < count; ++i) {
        put(&src, i, size, false, static_cast<std::uint32_t>(i));
    }
    for (const std::uint32_t onto : {0x0000U, 0x0001U, 0x7F7FU, 0x8000U, 0x8080U, 0xFFFFU}) {
        Bytes dst(src.size());
        for (std::size_t i = 0; i < count; ++i) {
            put(&dst, i, size, false, onto);
        }
        for (int volume = 0; volume <= 128; volume += kVolumeStep) {
            ASSERT_NO_FATAL_FAILURE(expect_same(dst, 0, src, 0, count, volume));
        }
    }
}

TEST_P(SampleLanesTest, HasAPeakWhereThePlainRuleHasOne) {
    EXPECT_EQ(path->peak[format] != nullptr, plain_path().peak[format] != nullptr);
}

TEST_P(SampleLanesTest, MeasuresEveryLengthFromEveryAddress) {
    if (path->peak[format] == nullptr) {
        GTEST_SKIP() << "this format has no peak";
    }
    for (std::uint32_t seed = 0; seed < 8; ++seed) {
        const Bytes data = make_samples(format, kMaxLength + kMaxShift + 1, seed);
        for (std::size_t shift = 0; shift <= kMaxShift; ++shift) {
            for (std::size_t count = 0; count <= kMaxLength; ++count) {
                const std::uint8_t* const at = data.data() + shift;
                ASSERT_EQ(peak_of(*path, at, count), peak_of(plain_path(), at, count))
                    << count << " samples from " << shift << " on";
            }
        }
    }
}

// One sample is louder than all others, and no vector, lane or rest of a block may lose it.
TEST_P(SampleLanesTest, FindsTheLoudestSampleWhereverItIs) {
    if (path->peak[format] == nullptr) {
        GTEST_SKIP() << "this format has no peak";
    }
    constexpr std::size_t count = 300;
    for (const std::uint32_t bits : kExtremes32) {
        for (std::size_t at = 0; at < count; ++at) {
            Bytes data(count * size);
            put(&data, at, size, is_swapped(format), bits);
            Bytes alone(size);
            put(&alone, 0, size, is_swapped(format), bits);
            ASSERT_EQ(peak_of(*path, data.data(), count), peak_of(plain_path(), alone.data(), 1))
                << "at " << at;
        }
    }
}

std::string name_of(const testing::TestParamInfo<SampleLanesTest::ParamType>& info) {
    return std::string(std::get<0>(info.param)) + "Format" +
           std::to_string(std::get<1>(info.param));
}

INSTANTIATE_TEST_SUITE_P(Paths, SampleLanesTest,
                         testing::Combine(testing::Values(std::string("SSE2"), "AVX2", "NEON"),
                                          testing::Range(0U, kFormats)),
                         name_of);

TEST(SampleLanesBestPathTest, TakesTheWidestThatTheProcessorHas) {
    const Path* const best = &ff::lanes::best_path();
    if (ff::lanes::avx2_path() != nullptr) {
        EXPECT_EQ(best, ff::lanes::avx2_path());
    } else if (ff::lanes::sse2_path() != nullptr) {
        EXPECT_EQ(best, ff::lanes::sse2_path());
    } else if (ff::lanes::neon_path() != nullptr) {
        EXPECT_EQ(best, ff::lanes::neon_path());
    } else {
        EXPECT_EQ(best, &plain_path());
    }
}

}  // namespace
