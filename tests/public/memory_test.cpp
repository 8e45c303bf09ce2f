#include "tests/support/decoders.h"
#include "tests/support/heap_use.h"
#include "tests/support/sanitized.h"

#include <framewell/base/data.h>
#include <framewell/ffdecoder.h>
#include <framewell/utils/mempool.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using ff::PixelFormat;
using fw_test::bytes_in_use;
using fw_test::kSanitized;
using fw_test::picture_at;
using fw_test::stream_of;

constexpr const char* kSanitizerReason =
    "a sanitizer brings its own allocator, which keeps what is freed";

/// 40 pictures of 1920x1080, a key picture every 10, cheap to decode.
std::string clip_full_hd() {
    return fw_test::make_clip("full_hd.mp4",
                              "-f lavfi -i testsrc2=size=1920x1080:rate=10:duration=4,"
                              "format=yuv420p -c:v libx264 -preset ultrafast -threads 1 -g 10");
}

constexpr double kFullHdFrame = 1920 * 1080 * 1.5;  // bytes of a decoded picture

/// Bytes of the process that are in memory.
double resident_bytes() {
    std::ifstream statm("/proc/self/statm");
    double all = 0;
    double resident = 0;
    statm >> all >> resident;
    return resident * static_cast<double>(::sysconf(_SC_PAGESIZE));
}

ff::Rational random_time(std::mt19937* random, int pictures, int rate) {
    return {static_cast<std::int64_t>((*random)() % static_cast<unsigned>(pictures)), rate};
}

class MemoryTest : public ::testing::Test {
protected:
    MemoryTest() { (void)ff::mem_collection(0); }

    ff::FFDecoder decoder;
};

}  // namespace

// What the pool accounts for

TEST_F(MemoryTest, HoldsOneBufferPerResultThatIsOutstanding) {
    ASSERT_TRUE(decoder.open(stream_of(clip_full_hd())));
    std::vector<std::shared_ptr<ff::VFrameCtx>> held;
    std::set<const std::uint8_t*> buffers;
    for (int i = 0; i < 12; ++i) {
        held.push_back(decoder.getVideoFrame(picture_at({i, 10})));
        ASSERT_NE(held.back(), nullptr);
        buffers.insert(held.back()->buffer);
    }
    EXPECT_EQ(buffers.size(), held.size());
    EXPECT_EQ(ff::mem_collection(0), 0U);
    held.resize(5);
    EXPECT_EQ(ff::mem_collection(0), 7U);
    held.clear();
    EXPECT_EQ(ff::mem_collection(0), 5U);
    EXPECT_EQ(ff::mem_collection(0), 0U);
}

TEST_F(MemoryTest, UsesOneBufferAgainForResultsThatAreLetGo) {
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_small())));
    for (int i = 0; i < 60; ++i) {
        ASSERT_NE(decoder.getVideoFrame(picture_at({i, 30})), nullptr);
    }
    EXPECT_EQ(ff::mem_collection(0), 1U);
}

TEST_F(MemoryTest, TakesNoBufferForRequestsWithoutAResult) {
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_small())));
    (void)decoder.getVideoFrame(picture_at({1, 1}, PixelFormat::SeekOnly));
    (void)decoder.getVideoFrame(picture_at({1, 1}, PixelFormat::None));
    (void)decoder.getVideoFrame(picture_at({1, 1}, PixelFormat::Rgba, 1000));
    decoder.close();
    (void)decoder.getVideoFrame(picture_at({1, 1}));
    EXPECT_EQ(ff::mem_collection(0), 0U);
}

TEST_F(MemoryTest, KeepsNoBufferAfterTheDecoderIsGone) {
    {
        ff::FFDecoder temporary;
        ASSERT_TRUE(temporary.open(stream_of(fw_test::clip_png())));
        const auto picture = temporary.getVideoFrame(picture_at({0, 1}));
        ASSERT_NE(picture, nullptr);
    }
    EXPECT_EQ(ff::mem_collection(0), 1U);
}

// What the decoder holds

TEST_F(MemoryTest, RemembersAtMostNineFramesOfAStream) {
    if (kSanitized) {
        GTEST_SKIP() << kSanitizerReason;
    }
    const ff::StreamCtx* const stream = stream_of(clip_full_hd());
    const auto bytes_held = [stream](int remembered) {
        // Not to be replaced by a worker's default: the limit is read when a worker is opened.
        (void)mox::Data::instance()->set("dec.max_vf", mox::Value::integer(remembered));
        const double before = bytes_in_use();
        ff::FFDecoder measured;
        EXPECT_TRUE(measured.open(stream));
        for (int i = 0; i < 40; ++i) {
            EXPECT_NE(measured.getVideoFrame(picture_at({i, 10})), nullptr);
        }
        (void)ff::mem_collection(0);
        return bytes_in_use() - before;
    };
    (void)bytes_held(1);  // what libraries set up once
    const double few = bytes_held(0);
    const double usual = bytes_held(8);
    const double many = bytes_held(20);
    (void)mox::Data::instance()->remove("dec.max_vf");
    // With the limit n there are n + 1 frames: one more is decoded before it is known which frame
    // covers a time. A quarter more for the borders that FFmpeg adds to each.
    EXPECT_LE(usual - few, 8 * 1.25 * kFullHdFrame);
    EXPECT_GE(usual - few, 4 * kFullHdFrame) << "the measure does not see frames";
    EXPECT_GE(many - usual, 8 * kFullHdFrame) << "the measure does not see frames";
}

TEST_F(MemoryTest, DoesNotGrowOnAFullHdStream) {
    if (kSanitized) {
        GTEST_SKIP() << kSanitizerReason;
    }
    ASSERT_TRUE(decoder.open(stream_of(clip_full_hd())));
    std::mt19937 random(5);
    const auto ask = [&](int requests) {
        for (int i = 0; i < requests; ++i) {
            ASSERT_NE(decoder.getVideoFrame(picture_at(random_time(&random, 40, 10))), nullptr);
        }
    };
    ask(20);
    const double before = bytes_in_use();
    ask(60);
    // Which frames the decoder's threads hold at the moment of the measure differs by a few.
    EXPECT_LE(bytes_in_use() - before, 4 * kFullHdFrame);
}

TEST_F(MemoryTest, DoesNotGrowWithTenThousandRandomRequests) {
    if (kSanitized) {
        GTEST_SKIP() << kSanitizerReason;
    }
    // Nearly nothing to decode, so that it is the number of requests that counts.
    ASSERT_TRUE(decoder.open(stream_of(
        fw_test::make_clip("tiny.mp4",
                           "-f lavfi -i testsrc2=size=64x48:rate=30:duration=2,format=yuv420p "
                           "-c:v libx264 -preset veryfast -threads 1 -bf 0 -g 3"))));
    std::mt19937 random(7);
    const auto ask = [&](int requests) {
        for (int i = 0; i < requests; ++i) {
            const PixelFormat format = i % 2 == 0 ? PixelFormat::Rgba : PixelFormat::Yuv420p;
            const auto picture =
                decoder.getVideoFrame(picture_at(random_time(&random, 60, 30), format, 1 + i % 3));
            ASSERT_NE(picture, nullptr);
        }
    };
    ask(1000);
    const double in_use = bytes_in_use();
    const double resident = resident_bytes();
    ask(10000);
    // A leak of one small record per request would be 1.5 million bytes, one of a picture 46.
    EXPECT_LE(bytes_in_use() - in_use, 1e6);
    EXPECT_LE(resident_bytes() - resident, 16e6);
}

TEST_F(MemoryTest, DoesNotGrowWithDecodersThatComeAndGo) {
    if (kSanitized) {
        GTEST_SKIP() << kSanitizerReason;
    }
    const ff::StreamCtx* const stream = stream_of(fw_test::clip_small());
    const auto come_and_go = [stream](int times) {
        for (int i = 0; i < times; ++i) {
            ff::FFDecoder temporary;
            ASSERT_TRUE(temporary.open(stream));
            ASSERT_NE(temporary.getVideoFrame(picture_at({i % 60, 30})), nullptr);
            if (i % 2 == 0) {
                temporary.close();
                ASSERT_TRUE(temporary.reopen());
            }
        }
    };
    come_and_go(30);
    const double before = bytes_in_use();
    come_and_go(150);
    EXPECT_LE(bytes_in_use() - before, 1e6);
}

TEST_F(MemoryTest, GivesEverythingBackWhenItCloses) {
    if (kSanitized) {
        GTEST_SKIP() << kSanitizerReason;
    }
    const ff::StreamCtx* const stream = stream_of(clip_full_hd());
    const auto use_once = [&] {
        EXPECT_TRUE(decoder.open(stream));
        EXPECT_NE(decoder.getVideoFrame(picture_at({3, 1}, PixelFormat::Rgba)), nullptr);
        decoder.close();
        (void)ff::mem_collection(0);
    };
    use_once();
    const double before = bytes_in_use();
    use_once();
    EXPECT_LE(bytes_in_use() - before, 0.5 * kFullHdFrame);
}
