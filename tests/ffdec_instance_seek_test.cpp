// Seeking, and what is left of damaged files.

#include "ffdec_instance.h"
#include "tests/hw/libav_hooks.h"
#include "tests/support/demux_hooks.h"
#include "tests/support/engine.h"
#include "tests/support/temp_file.h"

#include <framewell/base/tracer.h>
#include <framewell/media/ffmpeg_error.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <vector>

namespace {

using fw_test::as_decoded;
using fw_test::Decoded;
using fw_test::g_demux_hooks;
using fw_test::HookScope;
using fw_test::LogCapture;
using fw_test::make_clip;
using fw_test::make_file;
using fw_test::Reader;
using fw_test::reference_frames;
using fw_test::SeekLog;
using fw_test::small_clip_of;
using fw_test::small_mp4;
using Texts = std::vector<std::string>;

class InstanceSeekTest : public testing::TestWithParam<std::string> {};

TEST_P(InstanceSeekTest, TheStartGivesTheFirstPicture) {
    const LogCapture quiet;
    const std::string path = small_clip_of(GetParam());
    Reader reader(path, 0);
    const auto all = reader.decode_all();
    ASSERT_FALSE(all.empty());
    const std::int64_t start = std::max<std::int64_t>(reader.instance.avstream()->start_time, 0);
    for (const std::int64_t target : {start, std::int64_t{0}}) {
        ASSERT_TRUE(reader.instance.seek(target, true)) << target;
        EXPECT_EQ(reader.decode(), all[0]);
        ASSERT_TRUE(reader.instance.seek(target, true)) << target;
        EXPECT_EQ(reader.decode_all(), all);
    }
}

TEST_P(InstanceSeekTest, ATimeBeforeTheStartMeansTheStart) {
    const LogCapture quiet;
    Reader reader(small_clip_of(GetParam()), 0);
    const auto all = reader.decode_all();
    for (const std::int64_t target :
         {std::int64_t{-1}, std::int64_t{-1000000}, std::numeric_limits<std::int64_t>::min() + 1}) {
        ASSERT_TRUE(reader.instance.seek(target, true)) << target;
        EXPECT_EQ(reader.decode(), all[0]);
    }
}

TEST_P(InstanceSeekTest, EverythingAfterASeekIsWhatADecodeFromTheStartShows) {
    const LogCapture quiet;
    const std::string path = small_clip_of(GetParam());
    Reader reader(path, 0);
    const auto all = reader.decode_all();
    if (reader.instance.avstream()->start_time == AV_NOPTS_VALUE) {
        GTEST_SKIP() << "a stream without times";
    }
    for (std::size_t i = 0; i < all.size(); i += 7) {
        if (!reader.instance.seek(all[i].pts, true)) {
            continue;
        }
        const auto tail = reader.decode_all();
        ASSERT_LE(tail.size(), all.size());
        EXPECT_EQ(tail, std::vector<Decoded>(all.end() - static_cast<std::ptrdiff_t>(tail.size()),
                                             all.end()))
            << "after a seek to picture " << i;
    }
}

TEST_P(InstanceSeekTest, ToLookWhereItEndedChangesNothing) {
    const LogCapture quiet;
    Reader reader(small_clip_of(GetParam()), 0);
    const auto all = reader.decode_all();
    for (std::size_t i = 0; i < all.size(); i += 11) {
        const bool sought = reader.instance.seek(all[i].pts, true);
        const auto tail = reader.decode_all();
        EXPECT_EQ(reader.instance.seek(all[i].pts, true), sought);
        (void)reader.instance.landed_where_it_did_before();
        EXPECT_EQ(reader.decode_all(), tail) << "after a seek to picture " << i;
    }
}

TEST_P(InstanceSeekTest, FarBeyondTheEndIsNotTheEndOfTheInstance) {
    const LogCapture quiet;
    Reader reader(small_clip_of(GetParam()), 0);
    const Decoded first = reader.decode();
    for (const std::int64_t target :
         {std::int64_t{1} << 40, std::numeric_limits<std::int64_t>::max()}) {
        (void)reader.instance.seek(target, true);
        for (int i = 0; i < 500 && reader.next() >= 0; i++) {
        }
        ASSERT_TRUE(reader.instance.seek(
            std::max<std::int64_t>(reader.instance.avstream()->start_time, 0), true));
        EXPECT_EQ(reader.decode(), first);
    }
}

INSTANTIATE_TEST_SUITE_P(Containers, InstanceSeekTest,
                         testing::Values("mp4", "opengop", "opengopts", "h264ts", "ts", "mpg",
                                         "mkv", "avi", "slow", "editlist", "hevc", "vp9", "vfr",
                                         "raw", "png"),
                         [](const auto& row) { return row.param; });

TEST(InstanceSeekingTest, ASeekIntoTheMiddleStandsAtTheKeyPictureBefore) {
    Reader reader(small_mp4(), 0);
    const auto all = as_decoded(reference_frames(small_mp4(), 0));
    ASSERT_TRUE(reader.instance.seek(all[40].pts, true));
    EXPECT_EQ(reader.decode(), all[25]);
    ASSERT_TRUE(reader.instance.seek(all[25].pts, true));
    EXPECT_EQ(reader.decode(), all[25]);
    ASSERT_TRUE(reader.instance.seek(all[24].pts, true));
    EXPECT_EQ(reader.decode(), all[0]);
}

TEST(InstanceSeekingTest, SeeksToOneKeyPictureAreToldFromOthers) {
    Reader reader(small_mp4(), 0);
    const auto all = as_decoded(reference_frames(small_mp4(), 0));
    const auto lands_again = [&](std::size_t picture) {
        EXPECT_TRUE(reader.instance.seek(all[picture].pts, true));
        return reader.instance.landed_where_it_did_before();
    };
    EXPECT_FALSE(lands_again(40));
    EXPECT_TRUE(lands_again(30));
    EXPECT_EQ(reader.decode(), all[25]) << "the packet that was looked at is not lost";
    EXPECT_TRUE(lands_again(25)) << "wherever it was read to";
    EXPECT_TRUE(lands_again(26)) << "also where the packet was looked at only";
    EXPECT_FALSE(lands_again(24));
    EXPECT_TRUE(lands_again(1));
    EXPECT_EQ(reader.decode_all(), all);
    EXPECT_FALSE(lands_again(0)) << "the start stands for itself";
    EXPECT_EQ(reader.decode_all(), all);
}

TEST(InstanceSeekingTest, ForSoundEverySeekIsAnother) {
    Reader reader(fw_test::clip_aac(), 0);
    for (int i = 0; i < 2; i++) {
        ASSERT_TRUE(reader.instance.seek(44100, true));
        EXPECT_FALSE(reader.instance.landed_where_it_did_before());
    }
}

TEST(InstanceSeekingTest, PicturesThatReferToWhatLiesBeforeTheKeyPictureAreSkipped) {
    const std::string path = fw_test::small_open_gop();
    Reader reader(path, 0);
    const auto all = as_decoded(reference_frames(path, 0));
    ASSERT_TRUE(reader.instance.seek(all[60].pts, true));
    const Decoded first = reader.decode();
    const auto found = std::find(all.begin(), all.end(), first);
    ASSERT_NE(found, all.end());
    EXPECT_LE(first.pts, all[60].pts);
    EXPECT_NE(first.pts, all[0].pts) << "the test needs a key picture before the time";
}

TEST(InstanceSeekingTest, WithoutAFlushTheDecoderKeepsWhatItHolds) {
    Reader reader(small_mp4(), 0);
    const auto all = as_decoded(reference_frames(small_mp4(), 0));
    ASSERT_EQ(reader.decode(), all[0]);
    ASSERT_TRUE(reader.instance.seek(0, false));
    const auto rest = reader.decode_all();
    EXPECT_GT(rest.size(), all.size()) << "what was read before the seek comes out too";
    EXPECT_EQ(rest.back(), all.back());
}

TEST(InstanceSeekingTest, HeldFramesAreDroppedBySeeking) {
    const HookScope scope;
    const LogCapture quiet;
    Reader reader(small_mp4(), 0);
    const auto all = as_decoded(reference_frames(small_mp4(), 0));
    fw_test::g_hooks.receive_frame = [](AVCodecContext* ctx, AVFrame* frame) {
        static auto* const s_real = reinterpret_cast<int (*)(AVCodecContext*, AVFrame*)>(
            dlsym(RTLD_NEXT, "avcodec_receive_frame"));
        const int result = s_real(ctx, frame);
        frame->pts = frame->best_effort_timestamp = AV_NOPTS_VALUE;
        return result;
    };
    int reads = 0;
    g_demux_hooks.read_packet = [&](AVPacket*) {
        return ++reads > 20 ? std::optional<int>(AVERROR(EIO)) : std::nullopt;
    };
    ASSERT_EQ(reader.next(), AVERROR(EIO));
    fw_test::g_hooks = fw_test::Hooks();
    g_demux_hooks.read_packet = nullptr;
    ASSERT_TRUE(reader.instance.seek(all[30].pts, true));
    EXPECT_EQ(reader.decode_all(), std::vector<Decoded>(all.begin() + 25, all.end()));
}

TEST(InstanceSeekingTest, FramesThatWaitForTheirTurnAreDroppedBySeeking) {
    Reader reader(small_mp4(), 0);
    const auto all = as_decoded(reference_frames(small_mp4(), 0));
    int calls = 0;
    fw_test::g_hooks.receive_frame = [&](AVCodecContext* ctx, AVFrame* frame) {
        static auto* const s_real = reinterpret_cast<int (*)(AVCodecContext*, AVFrame*)>(
            dlsym(RTLD_NEXT, "avcodec_receive_frame"));
        const int result = s_real(ctx, frame);
        if (result >= 0 && ++calls <= 3) {
            frame->pts = frame->best_effort_timestamp = AV_NOPTS_VALUE;
        }
        return result;
    };
    EXPECT_EQ(reader.decode(), all[0]);
    EXPECT_EQ(calls, 4);
    ASSERT_TRUE(reader.instance.seek(0, true));
    EXPECT_EQ(reader.decode_all(), all);
    fw_test::g_hooks = fw_test::Hooks();
}

TEST(InstanceSeekingTest, SeekingIsTraced) {
    fw_test::TempFile drawing("trace.txt");
    std::FILE* const stream = std::fopen(drawing.path().c_str(), "w");
    ASSERT_NE(stream, nullptr);
    {
        mox::Func_Tracer tracer;
        mox::Func_Tracer* const former = mox::Func_Tracer::instance();
        (void)mox::Func_Tracer::instance(&tracer);
        tracer.setStream(stream);
        tracer.setEnabled(true);
        Reader reader(small_mp4(), 0);
        EXPECT_TRUE(reader.instance.seek(0, true));
        (void)mox::Func_Tracer::instance(former);
    }
    ASSERT_EQ(std::fclose(stream), 0);
    EXPECT_NE(fw_test::read_file(drawing.path()).find("]seek src/ffdec_instance"),
              std::string::npos);
}

// Seeks that fail

TEST(InstanceSeekingTest, AFailedSeekToTheStartOpensTheFileAgain) {
    const HookScope scope;
    const std::string path = fw_test::small_mpeg2("m2.ts");
    Reader reader(path, 0);
    const auto all = reader.decode_all();
    const AVFormatContext* const former = reader.instance.format_contex();
    const std::int64_t start = reader.instance.avstream()->start_time;
    int seeks = 0;
    g_demux_hooks.seek = [&](int, std::int64_t, int flags) {
        seeks += (flags & AVSEEK_FLAG_BYTE) == 0 ? 1 : 0;
        return AVERROR(EPERM);
    };
    const LogCapture log;
    EXPECT_TRUE(reader.instance.seek(0, true));
    EXPECT_EQ(log.texts(2),
              (Texts{"---> seek 'Video' failed (" + std::to_string(AVERROR(EPERM)) +
                         "): " + ff::ffmpeg_error(AVERROR(EPERM)),
                     "seek 'Video' start_time=" + std::to_string(start) + ", seek again ..."}));
    EXPECT_EQ(log.count_exactly("Seek Start failed, Reopen Success !!"), 1U);
    EXPECT_EQ(log.find("Reopen Success")->level, 5);
    EXPECT_EQ(log.find("Reopen Success")->tag, "bg");
    EXPECT_EQ(log.find("Reopen Success")->file, "src/ffdec_instance");
    EXPECT_EQ(seeks, 1) << "the reopen is the retry";
    EXPECT_NE(reader.instance.format_contex(), former);
    EXPECT_EQ(reader.decode_all(), all);
}

TEST(InstanceSeekingTest, ARawStreamIsOpenedAgainForEverySeekToItsStart) {
    const LogCapture log;
    Reader reader(fw_test::small_raw_h264(), 0);
    const auto all = reader.decode_all();
    for (int i = 0; i < 3; i++) {
        ASSERT_TRUE(reader.instance.seek(0, true));
        EXPECT_EQ(reader.decode_all(), all);
    }
    const std::size_t reopened = log.count_exactly("Seek Start failed, Reopen Success !!");
    EXPECT_EQ(log.count_exactly("seek 'Video' start_time=0, seek again ..."), reopened);
    EXPECT_EQ(log.count("---> seek 'Video' failed"), reopened);
}

TEST(InstanceSeekingTest, AReopenThatFailsIsAFailedSeek) {
    const HookScope scope;
    fw_test::TempFile file("gone.wav", fw_test::read_file(fw_test::clip_pcm()));
    Reader reader(file.path(), 0);
    ASSERT_EQ(reader.next(), 0);
    g_demux_hooks.seek = [](int, std::int64_t, int) { return -1; };
    file.remove();
    const LogCapture log;
    EXPECT_FALSE(reader.instance.seek(0, true));
    const Texts texts = log.texts(2);
    ASSERT_EQ(texts.size(), 4U);
    EXPECT_EQ(texts[0], std::string("---> seek 'Audio' failed (-1): ") + ff::ffmpeg_error(-1));
    EXPECT_EQ(texts[1], "seek 'Audio' start_time=0, seek again ...");
    EXPECT_EQ(texts[2],
              "failed to open: " + file.path() + ", " + ff::ffmpeg_error(AVERROR(ENOENT)));
    EXPECT_EQ(texts[3], "Seek Start failed, Reopen failed: " + file.path());
    EXPECT_TRUE(reader.instance.is_open()) << "the instance keeps what it had";
}

TEST(InstanceSeekingTest, AFailedSeekElsewhereIsNotRetried) {
    const HookScope scope;
    Reader reader(small_mp4(), 0);
    ASSERT_EQ(reader.next(), 0);
    const AVFormatContext* const former = reader.instance.format_contex();
    int seeks = 0;
    g_demux_hooks.seek = [&](int stream, std::int64_t ts, int flags) {
        seeks++;
        EXPECT_EQ(stream, 0);
        EXPECT_EQ(ts, 4321);
        EXPECT_EQ(flags, AVSEEK_FLAG_BACKWARD);
        return -1;
    };
    const LogCapture log;
    EXPECT_FALSE(reader.instance.seek(4321, true));
    EXPECT_EQ(log.texts(),
              Texts{std::string("---> seek 'Video' failed (-1): ") + ff::ffmpeg_error(-1)});
    EXPECT_EQ(seeks, 1);
    EXPECT_EQ(reader.instance.format_contex(), former);
    EXPECT_EQ(reader.next(), 0) << "reading goes on";
}

TEST(InstanceSeekingTest, AnAttachedPictureCanBeReadAgain) {
    const std::string path = fw_test::cover_mp3();
    const LogCapture quiet;
    Reader reader(path, 1);
    const Decoded picture = reader.decode();
    EXPECT_NE(picture.md5, "");
    EXPECT_EQ(reader.next(), AVERROR_EOF);
    ASSERT_TRUE(reader.instance.seek(0, true));
    EXPECT_EQ(reader.decode().md5, picture.md5);
}

// Damage

class InstanceDamageTest : public testing::TestWithParam<std::string> {
    const fw_test::QuietFfmpeg m_quiet;
};

/// Reads, decodes and seeks; the number of frames is bounded by what a whole file has.
void use_up(const std::string& path) {
    const LogCapture quiet;
    Reader reader;
    if (!reader.instance.open(path.c_str(), 0)) {
        return;
    }
    for (const std::int64_t target :
         {std::int64_t{-1}, std::int64_t{0}, std::int64_t{12000}, std::int64_t{1} << 33}) {
        int result = 0;
        int calls = 0;
        while (result != AVERROR_EOF && calls < 2000) {
            result = reader.next();
            calls++;
        }
        EXPECT_LT(calls, 2000) << path << ": does not end";
        (void)reader.instance.seek(target, true);
    }
}

TEST_P(InstanceDamageTest, FlippedBitsEndInAnErrorOrTheEnd) {
    const std::string bytes = fw_test::read_file(small_clip_of(GetParam()));
    for (const std::size_t step : {37U, 211U, 997U, 5003U}) {
        for (const std::size_t from : {std::size_t{0}, std::size_t{2000}}) {
            const fw_test::TempFile file("flipped", fw_test::with_flipped_bits(bytes, from, step));
            use_up(file.path());
        }
    }
}

TEST_P(InstanceDamageTest, ACutFileEndsEarly) {
    const std::string bytes = fw_test::read_file(small_clip_of(GetParam()));
    for (const std::size_t percent : {1U, 20U, 50U, 99U}) {
        const fw_test::TempFile file("cut", bytes.substr(0, bytes.size() * percent / 100));
        use_up(file.path());
    }
}

INSTANTIATE_TEST_SUITE_P(Containers, InstanceDamageTest,
                         testing::Values("mp4", "opengop", "ts", "mpg", "avi", "raw", "png"),
                         [](const auto& row) { return row.param; });

}  // namespace
