// Opening, the cache, and the ways to a frame.

#include "ffdec_task.h"

#include "tests/support/task_fixture.h"

#include <framewell/base/data.h>
#include <framewell/base/value.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <future>
#include <limits>
#include <mutex>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using ff::FFDec_Task;
using fw_test::Decoded;
using fw_test::kNothing;
using fw_test::LogCapture;
using fw_test::make_clip;
using fw_test::SeekLog;
using fw_test::small_mp4;
using Texts = std::vector<std::string>;

constexpr long long kMax = std::numeric_limits<long long>::max();
constexpr long long kMin = std::numeric_limits<long long>::min();

class TaskTest : public fw_test::TaskFixture {};

// Opening

TEST_F(TaskTest, ANewWorkerHasANumberAndANameOfItsOwn) {
    const FFDec_Task other;
    EXPECT_EQ(other.m_id, task.m_id + 1);
    EXPECT_EQ(FFDec_Task::s_count, other.m_id);
    EXPECT_EQ(task.m_name, "work_" + std::to_string(task.m_id));
    EXPECT_FALSE(task.is_opened());
    EXPECT_FALSE(task.m_busy);
    EXPECT_EQ(task.m_tag, 0);
    EXPECT_EQ(task.m_last_used, 0);
    EXPECT_TRUE(task.is_empty());
    EXPECT_EQ(task.cached_first_ts(), -1);
}

TEST_F(TaskTest, AnOpenWorkerIsNamedByItsKindOfStream) {
    open(small_mp4());
    EXPECT_TRUE(task.is_opened());
    EXPECT_EQ(task.m_name, "video-" + std::to_string(task.m_id));
    FFDec_Task sound;
    ASSERT_TRUE(sound.open(fw_test::probe(fw_test::clip_pcm())->streams[0]));
    EXPECT_EQ(sound.m_name, "audio-" + std::to_string(sound.m_id));
}

TEST_F(TaskTest, WithoutAStreamItCannotBeOpened) {
    EXPECT_FALSE(task.open(nullptr));
    const ff::StreamCtx orphan;
    EXPECT_FALSE(task.open(&orphan));
    EXPECT_FALSE(task.is_opened());
    EXPECT_EQ(at(0), kNothing);
    EXPECT_EQ(next(true), kNothing);
    EXPECT_FALSE(task.is_contain(0, false));
    EXPECT_FALSE(task.will_contain(0));
    EXPECT_EQ(task.get_exist_resource(0, false), nullptr);
    task.clear_cache_frames();
    task.close();
}

TEST_F(TaskTest, AWorkerThatCouldNotBeOpenedCanBeOpenedLater) {
    const LogCapture log;
    const std::string missing = fw_test::no_file();
    std::string path = missing;
    ff::MovieCtx movie;
    movie.path = path.data();
    ff::StreamCtx gone;
    gone.index = 0;
    gone.type = ff::StreamType::Video;
    gone.time_base = ff::Rational{1, 1000};
    gone.movie = &movie;
    EXPECT_FALSE(task.open(&gone));
    EXPECT_FALSE(task.is_opened());
    EXPECT_TRUE(log.contains("failed to open: " + missing));
    EXPECT_EQ(at(0), kNothing);
    open(small_mp4());
    EXPECT_EQ(at(0), all[0]);
}

TEST_F(TaskTest, OpeningAgainChangesNothing) {
    open(small_mp4());
    ASSERT_EQ(at(pts(3)), all[3]);
    const SeekLog seeks;
    EXPECT_TRUE(task.open(fw_test::probe(fw_test::clip_h264())->streams[0]));
    EXPECT_EQ(at(pts(4)), all[4]);
    EXPECT_EQ(task.cached_first_ts(), 0);
    EXPECT_TRUE(seeks.empty());
}

TEST_F(TaskTest, AClosedWorkerHasNothingUntilItIsOpenedAgain) {
    open(small_mp4());
    ASSERT_EQ(at(pts(30)), all[30]);
    task.close();
    EXPECT_FALSE(task.is_opened());
    EXPECT_TRUE(task.is_empty());
    EXPECT_EQ(at(0), kNothing);
    task.close();
    ASSERT_TRUE(task.open(stream));
    EXPECT_TRUE(task.is_opened());
    EXPECT_TRUE(task.is_empty());
    EXPECT_EQ(at(pts(10)), all[10]);
}

// The right frame

class TaskTimesTest : public fw_test::TaskFixture, public testing::WithParamInterface<std::string> {
protected:
    static std::string clip() { return fw_test::small_clip_of(GetParam()); }
};

TEST_P(TaskTimesTest, RandomTimesGiveTheFrameThatCoversThem) {
    const LogCapture quiet;
    open(clip());
    std::vector<long long> times;
    for (std::size_t i = 0; i < all.size(); i += 1 + all.size() / 40) {
        times.push_back(all[i].pts);
        if (i + 1 < all.size()) {
            times.push_back((all[i].pts + all[i + 1].pts) / 2);
            times.push_back(all[i + 1].pts - 1);
        }
    }
    times.push_back(all.back().pts + 1);
    times.push_back(0);
    std::shuffle(times.begin(), times.end(), std::mt19937(1));
    for (const long long ts : times) {
        EXPECT_EQ(at(ts), covering(ts)) << "at " << ts;
    }
}

TEST_P(TaskTimesTest, BeforeTheFirstFrameIsTheFirstFrame) {
    const LogCapture quiet;
    open(clip());
    for (const long long ts : {kMin, -1LL, 0LL}) {
        EXPECT_EQ(at(ts), all[0]) << ts;
    }
    ASSERT_NE(at(all.back().pts), kNothing);
    for (const long long ts : {0LL, -1000000LL, kMin}) {
        EXPECT_EQ(at(ts), all[0]) << ts;
    }
}

TEST_P(TaskTimesTest, AfterTheLastFrameIsTheLastFrame) {
    const LogCapture quiet;
    open(clip());
    const long long second = std::max<long long>(
        1, static_cast<long long>(stream->time_base.den / stream->time_base.num));
    for (const long long ts : {all.back().pts + 11 * second, second * 1000000000LL, kMax}) {
        if (!stream->single_frame) {  // a still picture is decoded once
            task.clear_cache_frames();
        }
        const SeekLog seeks;
        EXPECT_EQ(at(ts), all.back()) << ts;
        EXPECT_LE(seeks.targets().size(), 12U) << ts;
    }
    EXPECT_EQ(at(pts(all.size() / 2)), all[all.size() / 2]);
}

INSTANTIATE_TEST_SUITE_P(Containers, TaskTimesTest,
                         testing::Values("mp4", "opengop", "opengopts", "h264ts", "ts", "mpg",
                                         "mkv", "slow", "editlist", "vfr", "raw", "png", "flac"),
                         [](const auto& row) { return row.param; });

TEST_F(TaskTest, AFrameOnTheTimeIsNotTheNextOne) {
    open(small_mp4());
    EXPECT_EQ(after(pts(5)), all[6]);
    EXPECT_EQ(after(pts(5) + 1), all[6]);
    EXPECT_EQ(after(pts(5) - 1), all[5]);
    EXPECT_EQ(after(pts(30)), all[31]);
    EXPECT_EQ(at(pts(30)), all[30]);
    EXPECT_EQ(decoded(task.do_job(pts(30), false, nullptr, true)), all[31]);
    EXPECT_EQ(decoded(task.do_job(pts(30), false, nullptr, false)), all[30]);
}

TEST_F(TaskTest, NothingFollowsTheLastFrameSoItAnswersItself) {
    open(small_mp4());
    EXPECT_EQ(after(all.back().pts), all.back());
    EXPECT_EQ(after(all.back().pts), all.back());
    EXPECT_EQ(after(all[48].pts), all.back());
}

// The ways to a frame

TEST_F(TaskTest, TheFirstRequestAtTheStartSeeksToTheStart) {
    open(small_mp4());
    const SeekLog seeks;
    EXPECT_EQ(at(0), all[0]);
    EXPECT_EQ(seeks.targets().size(), 1U);
    EXPECT_EQ(at(-5), all[0]);
    EXPECT_EQ(seeks.targets().size(), 1U) << "the cache begins at the head";
}

TEST_F(TaskTest, TheFrameAfterTheCacheIsDecodedWithoutASeek) {
    open(small_mp4());
    ASSERT_EQ(at(0), all[0]);
    const SeekLog seeks;
    for (std::size_t i = 1; i < all.size(); i++) {
        EXPECT_EQ(at(pts(i)), all[i]);
    }
    EXPECT_TRUE(seeks.empty());
}

TEST_F(TaskTest, TwoSecondsAheadAreDecodedAndMoreIsSought) {
    open(fw_test::clip_h264_long_gop());
    const long long second = stream->time_base.den / stream->time_base.num;
    const SeekLog seeks;
    for (const long long extra : {0, 1}) {
        task.clear_cache_frames();
        ASSERT_EQ(at(0), all[0]);
        const std::size_t before = seeks.targets().size();
        EXPECT_EQ(at(2 * second + extra), covering(2 * second + extra));
        EXPECT_EQ(seeks.targets().size() - before, extra == 0 ? 0U : 1U);
    }
}

TEST_F(TaskTest, SoundIsDecodedEightSecondsAhead) {
    open(make_clip("long.flac", fw_test::small_audio("12") + "-c:a flac"));
    const long long second = 44100;
    const SeekLog seeks;
    for (const long long extra : {0, 1}) {
        task.clear_cache_frames();
        ASSERT_EQ(at(0).pts, 0);
        const std::size_t before = seeks.targets().size();
        EXPECT_EQ(at(8 * second + extra), covering(8 * second + extra));
        EXPECT_EQ(seeks.targets().size() - before, extra == 0 ? 0U : 1U);
    }
}

TEST_F(TaskTest, ATimeBeforeTheCacheIsSought) {
    open(fw_test::clip_h264());
    ASSERT_EQ(at(pts(100)), all[100]);
    const SeekLog seeks;
    EXPECT_EQ(at(pts(40)), all[40]);
    ASSERT_EQ(seeks.targets().size(), 1U);
    EXPECT_EQ(seeks.targets()[0], pts(40));
    EXPECT_EQ(at(pts(38)), all[38]) << "still in the cache";
    EXPECT_EQ(seeks.targets().size(), 1U);
}

TEST_F(TaskTest, BeforeACacheThatBeginsAtTheHeadIsItsFirstFrame) {
    open(fw_test::small_mpeg2("m2.ts"));
    ASSERT_EQ(at(0), all[0]);
    ASSERT_GT(pts(0), 100);
    const SeekLog seeks;
    EXPECT_EQ(at(100), all[0]);
    EXPECT_EQ(decoded(task.get_exist_resource(100, false)), all[0]);
    EXPECT_TRUE(task.is_contain(100, false));
    EXPECT_TRUE(seeks.empty());
}

TEST_F(TaskTest, ACacheThatLostItsFirstFrameDoesNotBeginAtTheHead) {
    open(small_mp4());
    for (std::size_t i = 0; i < 10; i++) {
        ASSERT_EQ(at(pts(i)), all[i]);
    }
    EXPECT_EQ(task.cached_first_ts(), pts(1));
    EXPECT_FALSE(task.is_contain(pts(1) - 1, false));
    EXPECT_EQ(task.get_exist_resource(0, false), nullptr);
    const SeekLog seeks;
    EXPECT_EQ(at(0), all[0]);
    EXPECT_EQ(seeks.targets().size(), 1U);
}

TEST_F(TaskTest, AfterTheEndEveryLaterTimeIsAnsweredFromTheCache) {
    open(small_mp4());
    ASSERT_EQ(at(all.back().pts + 1), all.back());
    const SeekLog seeks;
    const LogCapture log;
    EXPECT_EQ(at(all.back().pts + 10), all.back());
    EXPECT_EQ(at(kMax), all.back());
    EXPECT_TRUE(task.is_contain(kMax, false));
    EXPECT_TRUE(task.is_contain(kMax, true));
    EXPECT_EQ(decoded(task.get_exist_resource(kMax, false)), all.back());
    EXPECT_TRUE(seeks.empty());
    EXPECT_EQ(log.texts(), Texts());
}

TEST_F(TaskTest, AStillPictureAnswersEveryTimeWithoutASeek) {
    open(fw_test::clip_png());
    const SeekLog seeks;
    ASSERT_EQ(all.size(), 1U);
    for (const long long ts : {5000LL, 0LL, -1LL, kMin, kMax}) {
        EXPECT_EQ(at(ts), all[0]) << ts;
        EXPECT_EQ(after(ts), all[0]) << ts;
    }
    EXPECT_TRUE(seeks.empty());
}

// The cache

TEST_F(TaskTest, TheCacheHoldsNinePictures) {
    open(small_mp4());
    for (std::size_t i = 0; i < 9; i++) {
        ASSERT_EQ(at(pts(i)), all[i]);
        EXPECT_EQ(task.cached_first_ts(), 0);
    }
    ASSERT_EQ(at(pts(9)), all[9]);
    EXPECT_EQ(task.cached_first_ts(), pts(1));
    ASSERT_EQ(at(pts(10)), all[10]);
    EXPECT_EQ(task.cached_first_ts(), pts(2));
}

TEST_F(TaskTest, TheCacheHoldsFiveHundredAndOneFramesOfSound) {
    // 1024 samples to a frame, and 4096 from FFmpeg 7.0 on.
    open(make_clip("long.wav", fw_test::small_audio("60")));
    ASSERT_GT(all.size(), 503U);
    for (std::size_t i = 0; i < 501; i++) {
        ASSERT_EQ(at(pts(i)).pts, pts(i));
        ASSERT_EQ(task.cached_first_ts(), 0);
    }
    ASSERT_EQ(at(pts(501)).pts, pts(501));
    EXPECT_EQ(task.cached_first_ts(), pts(1));
}

struct LimitCase {
    const char* name;
    mox::Value (*make)();
    std::size_t held;  // of the 50 pictures
};

class TaskLimitTest : public fw_test::TaskFixture, public testing::WithParamInterface<LimitCase> {
protected:
    TaskLimitTest() { mox::Data::instance()->set("dec.max_vf", GetParam().make()); }

    ~TaskLimitTest() override { mox::Data::instance()->remove("dec.max_vf"); }
};

TEST_P(TaskLimitTest, TheCacheHoldsOneFrameMoreThanTheSetting) {
    open(small_mp4());
    for (std::size_t i = 0; i < all.size(); i++) {
        ASSERT_EQ(at(pts(i)), all[i]);
        const std::size_t held = std::min(i + 1, GetParam().held);
        ASSERT_EQ(task.cached_first_ts(), pts(i + 1 - held)) << i;
    }
    EXPECT_EQ(at(pts(3)), all[3]);
    EXPECT_EQ(at(pts(40)), all[40]);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, TaskLimitTest,
    testing::Values(LimitCase{"Zero", [] { return mox::Value::integer(0); }, 1},
                    LimitCase{"One", [] { return mox::Value::integer(1); }, 2},
                    LimitCase{"Negative", [] { return mox::Value::integer(-5); }, 1},
                    LimitCase{"Smallest", [] { return mox::Value::integer(kMin); }, 1},
                    LimitCase{"Twenty", [] { return mox::Value::integer(20); }, 21},
                    LimitCase{"Huge", [] { return mox::Value::integer(1LL << 40); }, 50},
                    LimitCase{"Double", [] { return mox::Value::number(2.9); }, 3},
                    LimitCase{"NegativeDouble", [] { return mox::Value::number(-2.9); }, 1},
                    LimitCase{"True", [] { return mox::Value::boolean(true); }, 2},
                    LimitCase{"False", [] { return mox::Value::boolean(false); }, 1},
                    LimitCase{"Text", [] { return mox::Value::string("3"); }, 4},
                    LimitCase{"TextOfSomethingElse", [] { return mox::Value::string("many"); }, 9},
                    LimitCase{"Pair", [] { return mox::Value::int2(1, 2); }, 9},
                    LimitCase{"Invalid", [] { return mox::Value(); }, 9}),
    [](const auto& row) { return row.param.name; });

TEST_F(TaskTest, SoundHasALimitOfItsOwn) {
    mox::Data::instance()->set("dec.max_af", mox::Value::integer(2));
    open(fw_test::clip_pcm());
    mox::Data::instance()->remove("dec.max_af");
    for (std::size_t i = 0; i < 4; i++) {
        ASSERT_EQ(at(pts(i)).pts, pts(i));
    }
    EXPECT_EQ(task.cached_first_ts(), pts(1));
}

TEST_F(TaskTest, WithoutRoomForThePictureBeforeItTheNewPictureAnswers) {
    mox::Data::instance()->set("dec.max_vf", mox::Value::integer(0));
    open(small_mp4());
    mox::Data::instance()->remove("dec.max_vf");
    EXPECT_EQ(at(pts(3) + 1), all[4]);
}

TEST_F(TaskTest, TheSettingsAreOnlyRead) {
    open(small_mp4());
    EXPECT_EQ(mox::Data::instance()->integer("dec.max_vf", -77), -77);
}

TEST_F(TaskTest, TheCacheSaysWhatItHolds) {
    open(fw_test::clip_h264());
    ASSERT_EQ(at(pts(60)), all[60]);
    EXPECT_FALSE(task.is_empty());
    const long long first = task.cached_first_ts();
    EXPECT_GT(first, 0);
    EXPECT_FALSE(task.is_contain(first - 1, false));
    EXPECT_TRUE(task.is_contain(first, false));
    EXPECT_TRUE(task.is_contain(first, true));
    EXPECT_TRUE(task.is_contain(pts(60) - 1, true));
    EXPECT_TRUE(task.is_contain(pts(60), false));
    EXPECT_FALSE(task.is_contain(pts(60), true));
    EXPECT_FALSE(task.is_contain(pts(60) + 1, false));
    EXPECT_EQ(task.get_exist_resource(first - 1, false), nullptr);
    EXPECT_EQ(decoded(task.get_exist_resource(pts(59) + 1, false)), all[59]);
    EXPECT_EQ(decoded(task.get_exist_resource(pts(59), false)), all[59]);
    EXPECT_EQ(decoded(task.get_exist_resource(pts(59), true)), all[60]);
    EXPECT_EQ(decoded(task.get_exist_resource(pts(60), false)), all[60]);
    EXPECT_EQ(task.get_exist_resource(pts(60), true), nullptr);
    EXPECT_EQ(task.get_exist_resource(pts(60) + 1, false), nullptr);
}

TEST_F(TaskTest, WhatWillBeReachedIsCountedFromTheFrameHandedOutLast) {
    open(fw_test::clip_h264_long_gop());
    const long long second = stream->time_base.den / stream->time_base.num;
    EXPECT_FALSE(task.will_contain(0));
    ASSERT_EQ(at(pts(60)), all[60]);
    EXPECT_FALSE(task.will_contain(task.cached_first_ts() - 1));
    EXPECT_TRUE(task.will_contain(task.cached_first_ts()));
    EXPECT_TRUE(task.will_contain(pts(60) + 2 * second));
    EXPECT_FALSE(task.will_contain(pts(60) + 2 * second + 1));
    EXPECT_FALSE(task.will_contain(kMax));
    // What others take out of the cache moves nothing.
    ASSERT_NE(task.get_exist_resource(pts(58), false), nullptr);
    EXPECT_TRUE(task.will_contain(pts(60) + 2 * second));
    // A request moves it, also one that the cache answers.
    ASSERT_EQ(at(pts(58)), all[58]);
    EXPECT_TRUE(task.will_contain(pts(58) + 2 * second));
    EXPECT_FALSE(task.will_contain(pts(58) + 2 * second + 1));
}

TEST_F(TaskTest, AClearedCacheForgetsHeadAndEnd) {
    open(fw_test::small_mpeg2("m2.ts"));
    ASSERT_EQ(at(0), all[0]);
    task.clear_cache_frames();
    EXPECT_TRUE(task.is_empty());
    EXPECT_EQ(task.cached_first_ts(), -1);
    EXPECT_FALSE(task.is_contain(0, false));
    ASSERT_EQ(at(kMax), all.back());
    ASSERT_TRUE(task.is_contain(kMax, false));
    task.clear_cache_frames();
    EXPECT_FALSE(task.is_contain(kMax, false));
    ASSERT_EQ(at(pts(50)), all[50]);
    EXPECT_FALSE(task.is_contain(kMax, false));
    EXPECT_FALSE(task.is_contain(0, false));
}

TEST_F(TaskTest, FramesHandedOutOutliveTheWorker) {
    std::shared_ptr<AVFrame> frame;
    std::string expected;
    {
        FFDec_Task worker;
        open(small_mp4());
        ASSERT_TRUE(worker.open(stream));
        frame = worker.get_frame(pts(7), false, nullptr, FFDec_Task::Ts_FLOOR);
    }
    EXPECT_EQ(decoded(frame), all[7]);
}

// The next frame

TEST_F(TaskTest, TheNextFramesAreAllOfThem) {
    open(small_mp4());
    ASSERT_EQ(at(0), all[0]);
    for (std::size_t i = 1; i < all.size(); i++) {
        ASSERT_EQ(next(), all[i]) << i;
    }
    EXPECT_EQ(next(), kNothing);
    EXPECT_EQ(next(true), all.back());
    EXPECT_EQ(next(false), kNothing);
    EXPECT_TRUE(task.is_contain(kMax, false)) << "the end has been seen";
}

TEST_F(TaskTest, TheNextFrameComesFromTheCacheWhereItIsThere) {
    open(small_mp4());
    ASSERT_EQ(at(pts(20)), all[20]);
    ASSERT_EQ(at(pts(16)), all[16]);
    const fw_test::HookScope scope;
    fw_test::g_demux_hooks.read_packet = [](AVPacket*) { return AVERROR(EIO); };
    for (std::size_t i = 17; i <= 20; i++) {
        EXPECT_EQ(next(), all[i]);
    }
}

TEST_F(TaskTest, TheLastFrameMayBeAskedForOnlyIfAllowed) {
    open(small_mp4());
    ASSERT_EQ(at(pts(48)), all[48]);
    EXPECT_EQ(next(true), all[49]);
    EXPECT_EQ(next(true), all[49]) << "found by meeting the end";
    EXPECT_EQ(next(true), all[49]) << "found in the cache";
    EXPECT_EQ(next(false), kNothing);
}

TEST_F(TaskTest, TheNextFrameMovesThePosition) {
    open(fw_test::clip_h264_long_gop());
    const long long second = stream->time_base.den / stream->time_base.num;
    ASSERT_EQ(at(0), all[0]);
    ASSERT_EQ(next(), all[1]);
    EXPECT_TRUE(task.will_contain(pts(1) + 2 * second));
    EXPECT_FALSE(task.will_contain(pts(1) + 2 * second + 1));
}

// Jobs

TEST_F(TaskTest, AJobTakesTheMutexAndReleasesIt) {
    open(small_mp4());
    task.m_busy = true;
    const std::time_t before = std::time(nullptr);
    ASSERT_NE(task.do_job(0, false, nullptr, false), nullptr);
    EXPECT_FALSE(task.m_busy);
    EXPECT_GE(task.m_last_used, before);
    std::unique_lock<std::mutex> lock(task.m_mutex, std::try_to_lock);
    EXPECT_TRUE(lock.owns_lock());
}

TEST_F(TaskTest, AJobReleasesTheMutexThatItWasHanded) {
    open(small_mp4());
    for (const bool opened : {true, false}) {
        task.m_mutex.lock();
        task.m_busy = true;
        EXPECT_EQ(task.do_job(0, true, nullptr, false) != nullptr, opened);
        EXPECT_FALSE(task.m_busy);
        std::unique_lock<std::mutex> lock(task.m_mutex, std::try_to_lock);
        EXPECT_TRUE(lock.owns_lock());
        lock.unlock();
        task.close();
    }
}

TEST_F(TaskTest, TheEndOfAJobIsToldToWaiters) {
    open(small_mp4());
    std::unique_lock<std::mutex> lock(task.m_mutex);
    task.m_busy = true;
    auto job = std::async(std::launch::async, [&] { return at(pts(5)); });
    task.m_cond.wait(lock, [&] { return !task.m_busy; });
    lock.unlock();
    EXPECT_EQ(job.get(), all[5]);
}

}  // namespace
