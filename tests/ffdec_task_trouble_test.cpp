// What goes wrong: cancelled requests, errors of demuxer and decoder, damaged files.

#include "ffdec_task.h"
#include "tests/support/task_fixture.h"
#include "tests/support/temp_file.h"

#include <framewell/media/ffmpeg_error.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace {

using ff::FFDec_Task;
using fw_test::Decoded;
using fw_test::g_demux_hooks;
using fw_test::g_hooks;
using fw_test::kNothing;
using fw_test::LogCapture;
using fw_test::read_file;
using fw_test::SeekLog;
using fw_test::small_mp4;
using fw_test::TempFile;
using Texts = std::vector<std::string>;

constexpr long long kMax = std::numeric_limits<long long>::max();

int real_receive_frame(AVCodecContext* ctx, AVFrame* frame) {
    static auto* const s_real = reinterpret_cast<int (*)(AVCodecContext*, AVFrame*)>(
        dlsym(RTLD_NEXT, "avcodec_receive_frame"));
    return s_real(ctx, frame);
}

/// 300 pictures, of which each hundredth is a key picture.
std::string ten_second_groups() {
    return fw_test::make_clip(
        "ten_second_groups.mp4",
        fw_test::small_video("30", "10") +
            "-c:v libx264 -preset veryfast -threads 1 -g 100 -sc_threshold 0");
}

class TaskTroubleTest : public fw_test::TaskFixture {
protected:
    /// Lets the decoder refuse the next `count` packets.
    static void refuse_packets(int count) {
        const auto left = std::make_shared<int>(count);
        g_demux_hooks.send_packet = [left](const AVPacket*) {
            return (*left)-- > 0 ? std::optional<int>(AVERROR_INVALIDDATA) : std::nullopt;
        };
    }

    /// Cancels when the decoder has given `count` frames.
    void cancel_after(int count) {
        cancel = false;
        const auto left = std::make_shared<int>(count);
        g_hooks.receive_frame = [this, left](AVCodecContext* ctx, AVFrame* frame) {
            const int result = real_receive_frame(ctx, frame);
            if (result >= 0 && --*left <= 0) {
                cancel = true;
            }
            return result;
        };
    }

    std::atomic<bool> cancel{true};
};

std::string failed_text() {
    return std::string("failed to dec frame: ") + ff::ffmpeg_error(AVERROR_INVALIDDATA);
}

// Cancelled requests

TEST_F(TaskTroubleTest, ACancelledRequestDecodesNothing) {
    open(small_mp4());
    int reads = 0;
    g_demux_hooks.read_packet = [&](AVPacket*) {
        reads++;
        return std::nullopt;
    };
    for (const std::size_t i : {0U, 30U}) {
        EXPECT_EQ(at(pts(i), &cancel), kNothing);
    }
    EXPECT_EQ(reads, 1);  // a first seek looks at the first packet, which nothing decodes
    EXPECT_TRUE(task.is_empty());
    EXPECT_FALSE(task.m_busy);
    EXPECT_EQ(at(pts(30)), all[30]);
}

TEST_F(TaskTroubleTest, TheCacheAnswersEvenACancelledRequest) {
    open(small_mp4());
    ASSERT_EQ(at(pts(5)), all[5]);
    EXPECT_EQ(at(pts(4), &cancel), all[4]);
    EXPECT_EQ(at(pts(6), &cancel), kNothing);
    EXPECT_EQ(at(pts(6)), all[6]);
}

TEST_F(TaskTroubleTest, ARequestThatIsCancelledOnTheWayCanBeRepeated) {
    open(small_mp4());
    for (const int frames : {1, 2, 5, 12}) {
        for (const std::size_t wanted : {20U, 45U}) {
            task.clear_cache_frames();
            cancel_after(frames);
            EXPECT_EQ(at(pts(wanted), &cancel), kNothing);
            g_hooks = fw_test::Hooks();
            for (const std::size_t i : {wanted, wanted - 7, std::size_t{0}}) {
                EXPECT_EQ(at(pts(i)), all[i]) << frames << " frames, then " << i;
            }
        }
    }
}

TEST_F(TaskTroubleTest, ACancelledRequestForTheStartLeavesNoClaimToTheHead) {
    open(fw_test::clip_h264());
    ASSERT_EQ(at(0, &cancel), kNothing);
    ASSERT_EQ(at(pts(60)), all[60]);
    const long long first = task.cached_first_ts();
    ASSERT_GT(first, 0);
    EXPECT_FALSE(task.is_contain(first - 1, false));
    EXPECT_EQ(task.get_exist_resource(0, false), nullptr);
    EXPECT_EQ(at(pts(10)), all[10]);
    EXPECT_EQ(at(0), all[0]);
}

TEST_F(TaskTroubleTest, ACancelledStepBackToTheStartLeavesNoClaimToTheHead) {
    open(fw_test::clip_h264());
    ASSERT_EQ(at(pts(100)), all[100]);
    // The search fails; the decoder, still behind the time, is cancelled at its next frame.
    g_demux_hooks.seek = [](int, std::int64_t ts, int) {
        return ts > 0 ? std::optional<int>(-1) : std::nullopt;
    };
    cancel_after(1);
    {
        const LogCapture log;
        EXPECT_EQ(at(pts(15), &cancel), kNothing);
        EXPECT_EQ(log.count("backward (1sec"), 1U);
    }
    g_hooks = fw_test::Hooks();
    g_demux_hooks.seek = nullptr;
    EXPECT_EQ(at(pts(75)), all[75]);
    EXPECT_FALSE(task.is_contain(task.cached_first_ts() - 1, false));
    EXPECT_EQ(at(pts(15)), all[15]);
}

TEST_F(TaskTroubleTest, ACancelledRequestAfterTheEndLeavesNoClaimToTheEnd) {
    open(small_mp4());
    ASSERT_EQ(at(kMax), all.back());
    ASSERT_EQ(at(pts(3), &cancel), kNothing);
    ASSERT_EQ(at(pts(10)), all[10]);
    EXPECT_FALSE(task.is_contain(pts(49), false));
    EXPECT_EQ(at(pts(45)), all[45]);
}

TEST_F(TaskTroubleTest, TheNextFrameCanBeCancelled) {
    open(small_mp4());
    ASSERT_EQ(at(0), all[0]);
    EXPECT_EQ(next(true, &cancel), kNothing);
    EXPECT_EQ(next(true), all[1]);
}

// Errors

TEST_F(TaskTroubleTest, ErrorsWhileDecodingForwardAreTriedAgainFourTimes) {
    open(small_mp4());
    ASSERT_EQ(at(0), all[0]);
    refuse_packets(1000);
    const SeekLog seeks;
    const LogCapture log;
    EXPECT_EQ(at(pts(49)), kNothing);
    EXPECT_EQ(log.texts(2), Texts(5, failed_text()));
    Texts tries;
    for (int i = 1; i <= 4; i++) {
        tries.push_back("ret<0, try again (try_count=" + std::to_string(i) + ")");
    }
    EXPECT_EQ(log.texts(5), tries);
    for (const auto& line : log.lines()) {
        EXPECT_EQ(line.tag, "bg");
        EXPECT_EQ(line.file, "src/ffdec_task");
    }
    EXPECT_TRUE(seeks.empty());
}

TEST_F(TaskTroubleTest, ErrorsAfterASeekAreTriedAgainFromItsTarget) {
    open(small_mp4());
    const SeekLog seeks;
    refuse_packets(1000);
    const LogCapture log;
    EXPECT_EQ(at(pts(40)), kNothing);
    Texts tries;
    for (int i = 1; i <= 5; i++) {
        tries.push_back("seek pre without flush, try=" + std::to_string(i));
    }
    for (int i = 1; i <= 4; i++) {
        tries.push_back("ret<0, try again (try_count=" + std::to_string(i) + ")");
    }
    EXPECT_EQ(log.texts(5), tries);
    EXPECT_EQ(log.texts(2), Texts(10, failed_text()));
    EXPECT_EQ(seeks.targets(), std::vector<std::int64_t>(6, pts(40)));
}

TEST_F(TaskTroubleTest, ErrorsThatPassAreSurvived) {
    open(small_mp4());
    for (const int errors : {1, 4, 5, 9}) {
        const LogCapture quiet;
        task.clear_cache_frames();
        refuse_packets(errors);
        EXPECT_EQ(at(pts(40)), all[40]) << errors;
        g_demux_hooks.send_packet = nullptr;
        EXPECT_EQ(at(pts(41)), all[41]) << errors;
    }
}

TEST_F(TaskTroubleTest, EveryFrameTakenGivesNewTries) {
    open(fw_test::clip_mpeg4_avi());
    ASSERT_EQ(at(0), all[0]);
    // Every second reading fails: far more errors in all than are allowed in a row.
    int reads = 0;
    g_demux_hooks.read_packet = [&](AVPacket*) {
        return ++reads % 2 == 0 ? std::optional<int>(AVERROR(EIO)) : std::nullopt;
    };
    const LogCapture log;
    EXPECT_EQ(at(pts(30)), all[30]);
    EXPECT_GT(log.count("failed to dec frame"), 9U);
    EXPECT_GT(log.count_exactly("ret<0, try again (try_count=1)"), 9U);
    EXPECT_EQ(log.count("try_count=4"), 0U);
}

TEST_F(TaskTroubleTest, ErrorsOfTheNextFrameAreTriedAgainFourTimes) {
    open(small_mp4());
    ASSERT_EQ(at(0), all[0]);
    g_demux_hooks.read_packet = [](AVPacket*) { return AVERROR(EIO); };
    // What the decoder holds comes first.
    Decoded last = all[0];
    {
        const LogCapture quiet;
        while (last != kNothing) {
            last = next();
        }
    }
    const LogCapture log;
    EXPECT_EQ(next(true), kNothing);
    EXPECT_EQ(log.count_exactly(std::string("(2) failed to dec frame: ") +
                                ff::ffmpeg_error(AVERROR(EIO))),
              5U);
    Texts tries;
    for (int i = 1; i <= 4; i++) {
        tries.push_back("ret<0, try again (try_count=" + std::to_string(i) + ")");
    }
    EXPECT_EQ(log.texts(5), tries);
    EXPECT_EQ(log.find("(2) failed")->level, 2);
    g_demux_hooks.read_packet = nullptr;
    EXPECT_NE(next(), kNothing);
}

TEST_F(TaskTroubleTest, AStreamThatEndsBeforeItsFirstFrameIsGivenUp) {
    open(small_mp4());
    g_demux_hooks.read_packet = [](AVPacket*) { return AVERROR_EOF; };
    {
        const LogCapture log;
        EXPECT_EQ(at(0), kNothing);
        ASSERT_EQ(log.texts(2), Texts{"bad movie: unexpected eof"});
        EXPECT_EQ(log.find("bad movie")->tag, "bg");
        EXPECT_EQ(log.find("bad movie")->file, "src/ffdec_task");
    }
    g_demux_hooks.read_packet = nullptr;
    const LogCapture log;
    EXPECT_EQ(at(0), kNothing) << "for good";
    EXPECT_EQ(at(pts(30)), kNothing);
    EXPECT_EQ(next(true), kNothing);
    task.close();
    EXPECT_EQ(at(0), kNothing);
    ASSERT_TRUE(task.open(stream));
    EXPECT_EQ(at(0), kNothing) << "also after a new open";
    EXPECT_EQ(log.count("is broken: every request that it gets is answered empty"), 1U)
        << "said once";
}

TEST_F(TaskTroubleTest, AnEndWithFramesInTheCacheIsTheEnd) {
    open(small_mp4());
    ASSERT_EQ(at(pts(10)), all[10]);
    g_demux_hooks.read_packet = [](AVPacket*) { return AVERROR_EOF; };
    const LogCapture log;
    const Decoded last = at(pts(40));
    EXPECT_LT(last.pts, pts(40));
    EXPECT_GE(last.pts, pts(10));
    EXPECT_EQ(log.texts(2), Texts());
    g_demux_hooks.read_packet = nullptr;
    EXPECT_EQ(at(0), all[0]);
    EXPECT_EQ(at(pts(40)), all[40]);
}

// Seeks that land behind the time

TEST_F(TaskTroubleTest, ASeekThatFailedIsFollowedByStepsBack) {
    open(fw_test::clip_h264());
    ASSERT_EQ(at(pts(100)), all[100]);
    const long long second = stream->time_base.den / stream->time_base.num;
    g_demux_hooks.seek = [&](int, std::int64_t ts, int) {
        return ts > second / 2 ? std::optional<int>(-1) : std::nullopt;
    };
    const LogCapture log;
    const long long wanted = second + second / 4;  // the second step finds something
    EXPECT_EQ(at(wanted), covering(wanted));
    const auto steps = log.texts(5);
    ASSERT_EQ(steps.size(), 1U);
    EXPECT_EQ(steps[0].substr(0, steps[0].find("cur_frame")),
              "[Video]---> seeking=(" + std::to_string(wanted) + "), ");
    EXPECT_NE(steps[0].find("), backward (1sec=" + std::to_string(second) + ")"),
              std::string::npos);
    // The frame that was found lies behind the one that was handed out before.
    EXPECT_NE(steps[0].find("cur_frame=(5"), std::string::npos) << steps[0];
    EXPECT_EQ(log.find("backward")->tag, "bg");
    EXPECT_EQ(log.find("backward")->file, "src/ffdec_task");
}

TEST_F(TaskTroubleTest, AStepBackFromTheEndNamesNoFrame) {
    open(fw_test::clip_pcm());
    const LogCapture log;
    const std::string second = std::to_string(44100);
    EXPECT_GE(at(1000000000).pts, all.back().pts);
    const auto steps = log.texts(5);
    ASSERT_FALSE(steps.empty());
    EXPECT_EQ(steps[0], "[Audio]---> seeking=(1000000000), cur_frame=(-111111), backward (1sec=" +
                            second + ")");
}

TEST_F(TaskTroubleTest, StepsBackThatReachTheStartTakeTheFirstFrameThere) {
    open(fw_test::clip_h264());
    ASSERT_EQ(at(pts(100)), all[100]);
    g_demux_hooks.seek = [](int, std::int64_t ts, int) {
        return ts > 0 ? std::optional<int>(-1) : std::nullopt;
    };
    const LogCapture log;
    EXPECT_EQ(at(pts(70)), all[70]);
    EXPECT_EQ(log.count("backward (1sec"), 3U);
    task.clear_cache_frames();
    ASSERT_EQ(at(pts(100)), all[100]);
    EXPECT_EQ(at(pts(3)), all[3]);
    EXPECT_TRUE(task.is_contain(-1000, false)) << "the cache begins at the head";
}

TEST_F(TaskTroubleTest, StepsBackGrowWhereManyOfOneSecondFoundNothing) {
    open(fw_test::make_clip(
        "long.avi", fw_test::small_video("100", "1/2") + "-c:v mpeg4 -threads 1 -g 5 -q:v 4"));
    ASSERT_EQ(at(pts(49)), all[49]);
    g_demux_hooks.seek = [](int, std::int64_t ts, int) {
        return ts > 0 ? std::optional<int>(-1) : std::nullopt;
    };
    const LogCapture log;
    EXPECT_EQ(at(pts(44)), all[44]) << "the start is found, and the picture from there";
    // A tick is as long as a picture, and no step is shorter: 16 steps of one tick,
    // then 2, 4, 8, 16.
    EXPECT_EQ(log.count("backward (1sec=1)"), 20U);
}

TEST_F(TaskTroubleTest, StepsBackToOneKeyPictureDecodeFromItOnce) {
    open(ten_second_groups());
    ASSERT_EQ(all.size(), 300U);
    int fed = 0;
    g_demux_hooks.send_packet = [&](const AVPacket* packet) {
        fed += packet != nullptr ? 1 : 0;
        const bool is_lost = packet != nullptr && packet->pts >= pts(100);
        return is_lost ? std::optional<int>(0) : std::nullopt;
    };
    const LogCapture log;
    EXPECT_EQ(at(pts(250)), all[99]) << "the last picture that can be decoded";
    EXPECT_EQ(log.count("backward (1sec"), 16U) << "from second 25 to before second 10";
    EXPECT_EQ(fed, 100 + 200 + 300) << "one pass for each key picture";
}

TEST_F(TaskTroubleTest, AStepBackThatIsCancelledIsTheLast) {
    open(ten_second_groups());
    g_demux_hooks.send_packet = [](const AVPacket* packet) {
        return packet != nullptr ? std::optional<int>(0) : std::nullopt;
    };
    std::atomic<bool> cancelled{false};
    int seeks = 0;
    g_demux_hooks.seek = [&](int, std::int64_t, int) {
        cancelled = ++seeks == 4;
        return std::nullopt;
    };
    const LogCapture log;
    EXPECT_EQ(at(pts(250), &cancelled), kNothing);
    EXPECT_EQ(seeks, 4);
}

TEST_F(TaskTroubleTest, AFileOfNothingThatTellsOfHoursIsGivenUpSoon) {
    // The header of FLAC tells the number of samples in 36 bits, here of 18 days.
    std::string bytes = read_file(fw_test::clip_flac());
    bytes.replace(22, 4, 4, '\xff');
    bytes[21] = static_cast<char>(bytes[21] | 0x0f);
    const TempFile told("told.flac", bytes);
    open(told.path());
    ASSERT_GT(stream->duration / stream->time_base.den, 1000000);
    g_demux_hooks.read_packet = [](AVPacket*) { return AVERROR_EOF; };
    const LogCapture log;
    EXPECT_EQ(at(stream->duration / 2), kNothing);
    EXPECT_EQ(log.count("bad movie: unexpected eof"), 1U);
    EXPECT_GE(log.count("backward (1sec"), 16U);
    EXPECT_LE(log.count("backward (1sec"), 16U + 21U);
}

TEST_F(TaskTroubleTest, AStreamThatCannotBeSoughtAtAllIsStillAnsweredExactly) {
    open(fw_test::clip_h264());
    const LogCapture quiet;
    g_demux_hooks.seek = [](int, std::int64_t, int) { return -1; };
    for (const std::size_t i : {100U, 20U, 110U, 0U, 60U}) {
        EXPECT_EQ(at(pts(i)), all[i]) << i;
    }
    EXPECT_EQ(at(kMax), all.back());
}

TEST_F(TaskTroubleTest, FramesWithoutATimeAreNotTheTimeThatWasSought) {
    // After a seek into the middle nothing tells where a stream without times stands.
    open(fw_test::small_raw_h264());
    const LogCapture quiet;
    for (const std::size_t i : {40U, 10U, 49U, 25U}) {
        EXPECT_EQ(at(pts(i)), all[i]) << i;
    }
}

// Damaged files

class TaskDamageTest : public fw_test::TaskFixture,
                       public testing::WithParamInterface<std::string> {
protected:
    /// Asks for times all over the stream, in no order. Whatever comes is a frame with a time.
    void use_up(const std::string& path) {
        const LogCapture quiet;
        const ff::MovieCtx* const movie = ff::getMovieInfo(path.c_str(), nullptr);
        for (int i = 0; movie != nullptr && i < movie->nb_streams; i++) {
            FFDec_Task worker;
            if (!worker.open(movie->streams[i])) {
                continue;
            }
            for (const long long ts : {0LL, 9000LL, 3000LL, 180000LL, -1LL, kMax, 20000LL}) {
                const auto frame = worker.get_frame(ts, false, nullptr, FFDec_Task::Ts_FLOOR);
                if (frame) {
                    EXPECT_NE(frame->pts, AV_NOPTS_VALUE);
                    EXPECT_NE(frame->buf[0], nullptr);
                }
                const std::lock_guard<std::mutex> lock(worker.m_mutex);
                (void)worker.get_next_frame(nullptr, true);
            }
        }
    }

private:
    const fw_test::QuietFfmpeg m_quiet;
};

TEST_P(TaskDamageTest, EveryRequestEnds) {
    const std::string path = GetParam() == "mp4"   ? small_mp4()
                             : GetParam() == "raw" ? fw_test::small_raw_h264()
                             : GetParam() == "avi" ? fw_test::slow_avi()
                             : GetParam() == "mp3" ? fw_test::cover_mp3()
                             : GetParam() == "png" ? fw_test::clip_png()
                                                   : fw_test::small_mpeg2("m2." + GetParam());
    const std::string bytes = read_file(path);
    for (const std::size_t step : {59U, 509U, 4001U}) {
        const TempFile flipped("flipped", fw_test::with_flipped_bits(bytes, 0, step));
        use_up(flipped.path());
        const TempFile later("later", fw_test::with_flipped_bits(bytes, 1500, step));
        use_up(later.path());
        const TempFile cut("cut", bytes.substr(0, bytes.size() * step / 4100));
        use_up(cut.path());
    }
}

INSTANTIATE_TEST_SUITE_P(Containers, TaskDamageTest,
                         testing::Values("mp4", "ts", "mpg", "mkv", "raw", "avi", "mp3", "png"),
                         [](const auto& row) { return row.param; });

TEST_F(TaskTroubleTest, PicturesThatAreWholeInADamagedFileAreExact) {
    const fw_test::QuietFfmpeg quiet_ffmpeg;
    const LogCapture quiet;
    // The middle of the file is lost; the second half begins with a key picture of its own.
    std::string bytes = read_file(fw_test::small_mpeg2("m2.ts"));
    const std::size_t packet = 188;
    const std::size_t from = bytes.size() / packet * 4 / 10 * packet;
    const std::size_t to = bytes.size() / packet * 5 / 10 * packet;
    bytes.erase(from, to - from);
    const TempFile file("hole.ts", bytes);
    open(fw_test::small_mpeg2("m2.ts"));
    const auto whole = all;
    ASSERT_TRUE(FFDec_Task().open(fw_test::probe(file.path())->streams[0]));
    FFDec_Task worker;
    ASSERT_TRUE(worker.open(fw_test::probe(file.path())->streams[0]));
    for (const std::size_t i : {99U, 5U, 90U, 20U, 80U}) {
        EXPECT_EQ(decoded(worker.get_frame(whole[i].pts, false, nullptr, FFDec_Task::Ts_FLOOR)),
                  whole[i])
            << i;
    }
}

}  // namespace
