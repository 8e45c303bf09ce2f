#include "ffdec_instance_jitter.h"

#include "tests/support/engine.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace {

using ff::FrameJitter;
using ff::FramePtr;
using fw_test::LogCapture;
using Texts = std::vector<std::string>;
using Times = std::vector<std::int64_t>;

constexpr std::int64_t kNone = AV_NOPTS_VALUE;
constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();

/// A frame that says it holds `bytes`, without holding them. `number` tells frames apart.
FramePtr make_frame(int number, std::int64_t pts, std::int64_t best_effort, std::int64_t duration,
                    std::size_t bytes = 16) {
    static std::uint8_t s_data[16];
    FramePtr frame(av_frame_alloc());
    frame->buf[0] = av_buffer_create(
        s_data, sizeof s_data, [](void*, std::uint8_t*) {}, nullptr, 0);
    // An int before FFmpeg 5.0.
    frame->buf[0]->size = static_cast<decltype(AVBufferRef::size)>(bytes);
    frame->width = number;
    frame->pts = pts;
    frame->best_effort_timestamp = best_effort;
    ff::compat::set_frame_duration(frame.get(), duration);
    return frame;
}

class FrameJitterTest : public testing::Test {
protected:
    /// Puts a frame and notes what comes out, and what follows from the list.
    void put(FramePtr frame) {
        if (jitter.put(frame.get()) == nullptr) {
            EXPECT_EQ(frame->buf[0], nullptr) << "the caller's frame must be empty";
            return;
        }
        note(*frame);
        take_all();
    }

    void take_all() {
        const FramePtr frame(av_frame_alloc());
        while (jitter.take_ready(frame.get())) {
            note(*frame);
            av_frame_unref(frame.get());
        }
    }

    void note(const AVFrame& frame) {
        EXPECT_NE(frame.buf[0], nullptr);
        EXPECT_EQ(frame.best_effort_timestamp, frame.pts);
        times.push_back(frame.pts);
        numbers.push_back(frame.width);
    }

    FrameJitter jitter;
    Times times;
    std::vector<int> numbers;
};

TEST_F(FrameJitterTest, FramesWithATimeGoStraightThrough) {
    for (int i = 0; i < 3; i++) {
        const FramePtr frame = make_frame(i, 100 * i, 100 * i, 100);
        EXPECT_EQ(jitter.put(frame.get()), frame.get());
        EXPECT_EQ(frame->pts, 100 * i);
        EXPECT_EQ(frame->width, i);
        EXPECT_EQ(jitter.size(), 0U);
    }
}

TEST_F(FrameJitterTest, TheTimeOfAFrameStaysAsItIsEvenIfTheBestEffortDiffers) {
    const FramePtr frame = make_frame(1, 70, 71, 10);
    EXPECT_EQ(jitter.put(frame.get()), frame.get());
    EXPECT_EQ(frame->pts, 70);
    EXPECT_EQ(frame->best_effort_timestamp, 71);
}

TEST_F(FrameJitterTest, ABestEffortTimeStandsInForALostOne) {
    const FramePtr frame = make_frame(1, kNone, 250, 10);
    EXPECT_EQ(jitter.put(frame.get()), frame.get());
    EXPECT_EQ(frame->pts, 250);
    EXPECT_EQ(frame->best_effort_timestamp, 250);
    EXPECT_EQ(jitter.size(), 0U);
}

TEST_F(FrameJitterTest, CountsBackFromTheFirstFrameWithATime) {
    put(make_frame(1, kNone, kNone, 0));
    put(make_frame(2, kNone, kNone, 0));
    put(make_frame(3, kNone, kNone, 0));
    EXPECT_EQ(times, Times());
    EXPECT_EQ(jitter.size(), 3U);
    put(make_frame(4, 400, 400, 100));
    EXPECT_EQ(times, (Times{100, 200, 300, 400}));
    EXPECT_EQ(numbers, (std::vector<int>{1, 2, 3, 4}));
    EXPECT_EQ(jitter.size(), 0U);
}

TEST_F(FrameJitterTest, HandsOutOneFramePerCall) {
    put(make_frame(1, kNone, kNone, 0));
    put(make_frame(2, kNone, kNone, 0));
    const FramePtr last = make_frame(3, 300, 300, 100);
    ASSERT_EQ(jitter.put(last.get()), last.get());
    EXPECT_EQ(last->pts, 100);
    EXPECT_EQ(last->width, 1);
    const FramePtr next(av_frame_alloc());
    ASSERT_TRUE(jitter.take_ready(next.get()));
    EXPECT_EQ(next->pts, 200);
    av_frame_unref(next.get());
    ASSERT_TRUE(jitter.take_ready(next.get()));
    EXPECT_EQ(next->pts, 300);
    EXPECT_EQ(next->width, 3);
    av_frame_unref(next.get());
    EXPECT_FALSE(jitter.take_ready(next.get()));
}

TEST_F(FrameJitterTest, ABestEffortTimeEndsTheWaitToo) {
    put(make_frame(1, kNone, kNone, 0));
    put(make_frame(2, kNone, 50, 20));
    EXPECT_EQ(times, (Times{30, 50}));
}

TEST_F(FrameJitterTest, WithoutADurationAllHeldFramesGetTheSameTime) {
    put(make_frame(1, kNone, kNone, 33));
    put(make_frame(2, kNone, kNone, 33));
    put(make_frame(3, 400, 400, 0));
    EXPECT_EQ(times, (Times{400, 400, 400}));
    EXPECT_EQ(numbers, (std::vector<int>{1, 2, 3}));
}

TEST_F(FrameJitterTest, CountingBackMayPassZero) {
    put(make_frame(1, kNone, kNone, 0));
    put(make_frame(2, kNone, kNone, 0));
    put(make_frame(3, 10, 10, 100));
    EXPECT_EQ(times, (Times{-190, -90, 10}));
}

TEST_F(FrameJitterTest, CountingBackWraps) {
    put(make_frame(1, kNone, kNone, 0));
    put(make_frame(2, kNone, kNone, 0));
    put(make_frame(3, 0, 0, kMax));
    // 0 - 2 (2^63 - 1) is 2 modulo 2^64, and one step on is that minus 2^63 less 1.
    EXPECT_EQ(times, (Times{2, -kMax, 0}));
}

TEST_F(FrameJitterTest, ReplacingIntoAnEmptyListChangesNothing) {
    std::list<std::shared_ptr<AVFrame>> frames;
    const FramePtr frame = make_frame(1, 10, 11, 5);
    FrameJitter::caculate_pts_and_replace(frame.get(), frames);
    EXPECT_EQ(frame->pts, 10);
    EXPECT_EQ(frame->best_effort_timestamp, 11);
    EXPECT_TRUE(frames.empty());
}

TEST_F(FrameJitterTest, ReplacingExchangesTheFrameWithTheOldest) {
    std::list<std::shared_ptr<AVFrame>> frames;
    frames.push_back(ff::create_avframe_ptr(make_frame(1, kNone, kNone, 0).release()));
    frames.push_back(ff::create_avframe_ptr(make_frame(2, kNone, kNone, 0).release()));
    const FramePtr frame = make_frame(3, 10, 10, 5);
    FrameJitter::caculate_pts_and_replace(frame.get(), frames);
    EXPECT_EQ(frame->width, 1);
    EXPECT_EQ(frame->pts, 0);
    ASSERT_EQ(frames.size(), 2U);
    EXPECT_EQ(frames.front()->width, 2);
    EXPECT_EQ(frames.front()->pts, 5);
    EXPECT_EQ(frames.back()->width, 3);
    EXPECT_EQ(frames.back()->pts, 10);
}

TEST_F(FrameJitterTest, AFrameWithoutDataIsNotListed) {
    const FramePtr empty(av_frame_alloc());
    EXPECT_EQ(jitter.put(empty.get()), nullptr);
    EXPECT_EQ(jitter.size(), 0U);
    put(make_frame(1, kNone, kNone, 0));
    EXPECT_EQ(jitter.put(empty.get()), nullptr);
    EXPECT_EQ(jitter.size(), 1U);
    put(make_frame(2, 200, 200, 100));
    EXPECT_EQ(times, (Times{100, 200}));
}

TEST_F(FrameJitterTest, ReportsEveryHeldFrameFromTheTenthOn) {
    const LogCapture log;
    jitter.set_name("h264");
    for (int i = 1; i <= 9; i++) {
        put(make_frame(i, kNone, kNone, 0));
    }
    EXPECT_EQ(log.texts(), Texts());
    for (int i = 10; i <= 12; i++) {
        put(make_frame(i, kNone, kNone, 0));
    }
    EXPECT_EQ(log.texts(2), (Texts{"Pts lost... Jitter['h264'] cached more frames, n=10",
                                   "Pts lost... Jitter['h264'] cached more frames, n=11",
                                   "Pts lost... Jitter['h264'] cached more frames, n=12"}));
    ASSERT_EQ(log.lines().size(), 3U);
    EXPECT_EQ(log.lines()[0].tag, "bg");
    EXPECT_EQ(log.lines()[0].file, "src/ffdec_instance");
}

TEST_F(FrameJitterTest, ManyHeldFramesKeepTheirOrder) {
    const LogCapture quiet;
    Times expected;
    for (int i = 0; i < 1000; i++) {
        put(make_frame(i, kNone, kNone, 0));
        expected.push_back(10 * i);
    }
    expected.push_back(10000);
    put(make_frame(1000, 10000, 10000, 10));
    EXPECT_EQ(times, expected);
}

TEST_F(FrameJitterTest, HeldFramesWithoutATimeAreNotHandedOut) {
    put(make_frame(1, kNone, kNone, 0));
    const FramePtr frame(av_frame_alloc());
    EXPECT_FALSE(jitter.take_ready(frame.get()));
    EXPECT_EQ(jitter.size(), 1U);
}

TEST_F(FrameJitterTest, ResetDropsHeldAndReadyFrames) {
    put(make_frame(1, kNone, kNone, 0));
    put(make_frame(2, kNone, kNone, 0));
    const FramePtr frame = make_frame(3, 300, 300, 100);
    ASSERT_NE(jitter.put(frame.get()), nullptr);
    EXPECT_EQ(jitter.size(), 2U);
    jitter.reset(kNone);
    EXPECT_EQ(jitter.size(), 0U);
    take_all();
    EXPECT_EQ(times, Times());
    put(make_frame(4, 900, 900, 100));
    EXPECT_EQ(times, Times{900});
}

TEST_F(FrameJitterTest, TheEndOfTheStreamCountsOnFromTheLastKnownTime) {
    put(make_frame(1, 100, 100, 40));
    put(make_frame(2, kNone, kNone, 0));
    put(make_frame(3, kNone, kNone, 50));
    put(make_frame(4, kNone, kNone, 0));
    jitter.set_frame_step(7);
    jitter.finish();
    take_all();
    // A frame's own duration counts, and the nominal one where it has none.
    EXPECT_EQ(times, (Times{100, 140, 147, 197}));
    EXPECT_EQ(jitter.size(), 0U);
}

TEST_F(FrameJitterTest, AStreamWithoutAnyTimeIsCountedFromItsBeginning) {
    jitter.reset(1000);
    jitter.set_frame_step(40);
    put(make_frame(1, kNone, kNone, 0));
    put(make_frame(2, kNone, kNone, 0));
    put(make_frame(3, kNone, kNone, 0));
    jitter.finish();
    take_all();
    EXPECT_EQ(times, (Times{1000, 1040, 1080}));
}

TEST_F(FrameJitterTest, WithoutAKnownTimeTheEndDropsWhatIsHeld) {
    jitter.reset(kNone);
    put(make_frame(1, kNone, kNone, 0));
    jitter.finish();
    take_all();
    EXPECT_EQ(times, Times());
    EXPECT_EQ(jitter.size(), 0U);
}

TEST_F(FrameJitterTest, ASecondEndAddsNothing) {
    jitter.reset(0);
    put(make_frame(1, kNone, kNone, 10));
    jitter.finish();
    take_all();
    jitter.finish();
    take_all();
    EXPECT_EQ(times, Times{0});
}

TEST_F(FrameJitterTest, TheEndWrapsTimesBeyondTheLargest) {
    put(make_frame(1, kMax, kMax, 2));
    put(make_frame(2, kNone, kNone, 0));
    jitter.finish();
    take_all();
    EXPECT_EQ(times, (Times{kMax, -kMax}));
}

// The frames say that they hold a quarter of the limit; so a fifth one is too many.

TEST_F(FrameJitterTest, BeyondTheByteLimitTheOldestFrameGetsACountedTime) {
    const std::size_t quarter = FrameJitter::kMaxHeldBytes / 4;
    jitter.reset(500);
    jitter.set_frame_step(20);
    for (int i = 1; i <= 4; i++) {
        put(make_frame(i, kNone, kNone, 0, quarter));
    }
    EXPECT_EQ(times, Times());
    put(make_frame(5, kNone, kNone, 0, quarter));
    put(make_frame(6, kNone, kNone, 0, quarter));
    EXPECT_EQ(times, (Times{500, 520}));
    EXPECT_EQ(numbers, (std::vector<int>{1, 2}));
    EXPECT_EQ(jitter.size(), 4U);
    put(make_frame(7, 700, 700, 10));
    EXPECT_EQ(times, (Times{500, 520, 660, 670, 680, 690, 700}));
}

TEST_F(FrameJitterTest, BeyondTheByteLimitFramesAreDroppedWhereNoTimeIsKnown) {
    const std::size_t quarter = FrameJitter::kMaxHeldBytes / 4;
    jitter.reset(kNone);
    for (int i = 1; i <= 9; i++) {
        put(make_frame(i, kNone, kNone, 0, quarter));
        EXPECT_LE(jitter.size(), 4U);
    }
    EXPECT_EQ(times, Times());
    put(make_frame(10, 100, 100, 10, quarter));
    EXPECT_EQ(times, (Times{60, 70, 80, 90, 100}));
    EXPECT_EQ(numbers, (std::vector<int>{6, 7, 8, 9, 10}));
}

TEST_F(FrameJitterTest, TheByteLimitCountsAnewAfterAResetAndAfterAKnownTime) {
    const std::size_t quarter = FrameJitter::kMaxHeldBytes / 4;
    for (int round = 0; round < 3; round++) {
        jitter.reset(0);
        for (int i = 1; i <= 4; i++) {
            put(make_frame(i, kNone, kNone, 0, quarter));
        }
        EXPECT_EQ(jitter.size(), 4U);
        EXPECT_EQ(times, Times());
    }
    put(make_frame(5, 50, 50, 10, quarter));
    EXPECT_EQ(times.size(), 5U);
    for (int i = 1; i <= 4; i++) {
        put(make_frame(i, kNone, kNone, 0, quarter));
    }
    EXPECT_EQ(jitter.size(), 4U);
    EXPECT_EQ(times.size(), 5U);
}

TEST_F(FrameJitterTest, SwapExchangesFramesNameStepAndExpectedTime) {
    const LogCapture log;
    jitter.set_name("one");
    jitter.set_frame_step(3);
    jitter.reset(30);
    for (int i = 0; i < 9; i++) {
        put(make_frame(i, kNone, kNone, 0));
    }
    FrameJitter other;
    other.set_name("two");
    jitter.swap(other);
    EXPECT_EQ(jitter.size(), 0U);
    EXPECT_EQ(other.size(), 9U);
    const FramePtr tenth = make_frame(9, kNone, kNone, 0);
    EXPECT_EQ(other.put(tenth.get()), nullptr);
    EXPECT_EQ(log.texts(), Texts{"Pts lost... Jitter['one'] cached more frames, n=10"});
    other.finish();
    const FramePtr frame(av_frame_alloc());
    ASSERT_TRUE(other.take_ready(frame.get()));
    EXPECT_EQ(frame->pts, 30);
    av_frame_unref(frame.get());
    ASSERT_TRUE(other.take_ready(frame.get()));
    EXPECT_EQ(frame->pts, 33);
}

}  // namespace
