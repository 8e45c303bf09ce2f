// Durations: what the probe keeps, takes from elsewhere, or measures by decoding.

#include "ffdec_probe.h"
#include "tests/support/demux_hooks.h"
#include "tests/support/engine.h"
#include "tests/support/temp_file.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace {

using ff::getMovieInfo;
using ff::MovieCtx;
using ff::StreamCtx;
using fw_test::LogCapture;
using fw_test::make_clip;
using fw_test::probe;
using fw_test::read_file;
using fw_test::Reader;
using fw_test::small_audio;
using fw_test::small_video;
using fw_test::TempFile;
using Texts = std::vector<std::string>;

constexpr std::int64_t kNone = AV_NOPTS_VALUE;

std::int64_t last_time(const std::string& path, int stream) {
    const LogCapture quiet;
    Reader reader(path, stream);
    std::int64_t last = kNone;
    while (reader.next() >= 0) {
        last = reader.frame->best_effort_timestamp;
    }
    return last;
}

std::int64_t in_microseconds(const StreamCtx& stream, std::int64_t ticks) {
    return av_rescale_q(ticks, ff::rational_convert(stream.time_base), {1, 1000000});
}

/// A path that nobody has probed, so that everything is logged.
struct FirstProbe {
    explicit FirstProbe(const std::string& path, std::atomic<bool>* cancel = nullptr)
        : file("probed" + path.substr(path.rfind('.')), read_file(path)),
          movie(getMovieInfo(file.path().c_str(), cancel)) {}

    LogCapture log;
    TempFile file;
    const MovieCtx* movie;
};

std::string correction(std::int64_t seconds) {
    return "** correct movie duration: " + std::to_string(seconds) + "(sec)";
}

std::string headerless_mp3() {
    return make_clip("plain.mp3",
                     small_audio("3") + "-c:a libmp3lame -write_xing 0 -id3v2_version 0");
}

std::string live_mkv() {
    return make_clip("live.mkv", small_video("3") + fw_test::kSmallH264 + "-live 1");
}

TEST(ProbeDurationTest, AReliableDurationIsKept) {
    const FirstProbe first(fw_test::small_mp4());
    EXPECT_EQ(first.movie->duration, 2000000);
    EXPECT_EQ(first.log.texts(2), Texts());
    EXPECT_EQ(first.log.texts(3), Texts());
}

TEST(ProbeDurationTest, AStillPictureIsShownForAFortiethOfASecond) {
    for (const std::string& path : {fw_test::clip_png(), fw_test::clip_jpeg()}) {
        const FirstProbe first(path);
        ASSERT_NE(first.movie, nullptr);
        ASSERT_EQ(first.movie->nb_streams, 1);
        EXPECT_TRUE(first.movie->streams[0]->single_frame);
        EXPECT_EQ(first.movie->nb_audio, 0);
        EXPECT_EQ(first.movie->duration, 40000);
        EXPECT_EQ(first.log.count("correct movie duration"), 0U);
    }
}

TEST(ProbeDurationTest, AGuessFromTheBitRateIsMeasuredInstead) {
    for (const std::string& path :
         {headerless_mp3(), make_clip("sound.aac", small_audio("3") + "-c:a aac -f adts"),
          make_clip("video.m2v", small_video("3") + "-c:v mpeg2video -threads 1 -bf 0 -g 12")}) {
        const FirstProbe first(path);
        ASSERT_NE(first.movie, nullptr);
        ASSERT_EQ(first.movie->nb_streams, 1);
        const StreamCtx& stream = *first.movie->streams[0];
        EXPECT_EQ(stream.duration, last_time(path, 0)) << path;
        EXPECT_EQ(first.movie->duration, in_microseconds(stream, stream.duration));
        EXPECT_EQ(first.log.texts(3), Texts{"unreliable duration detected ..."});
        EXPECT_EQ(first.log.count_exactly(correction(first.movie->duration / 1000000)), 1U);
        EXPECT_EQ(first.log.find("correct movie duration")->level, 2);
        EXPECT_EQ(first.log.find("correct movie duration")->tag, "bg");
        EXPECT_EQ(first.log.find("unreliable")->file, "src/ffdec_probe");
        EXPECT_GT(first.movie->duration, 2800000);
        EXPECT_LT(first.movie->duration, 3100000);
    }
}

TEST(ProbeDurationTest, AnUnknownDurationIsMeasured) {
    for (const std::string& path : {fw_test::small_raw_h264(), live_mkv()}) {
        const FirstProbe first(path);
        ASSERT_NE(first.movie, nullptr);
        ASSERT_EQ(first.movie->nb_streams, 1);
        const StreamCtx& stream = *first.movie->streams[0];
        // The start of the last picture, not its end.
        EXPECT_EQ(stream.duration, last_time(path, 0)) << path;
        EXPECT_EQ(first.movie->duration, in_microseconds(stream, stream.duration));
        EXPECT_EQ(first.log.count_exactly(correction(first.movie->duration / 1000000)), 1U);
    }
}

TEST(ProbeDurationTest, TheFirstVideoStreamStandsForTheMovie) {
    const std::string path =
        make_clip("live_av.mkv", small_video("3") + small_audio("4") + "-map 1 -map 0 " +
                                     fw_test::kSmallH264 + "-c:a flac -live 1");
    const FirstProbe first(path);
    ASSERT_EQ(first.movie->nb_streams, 2);
    EXPECT_EQ(first.movie->streams[0]->type, ff::StreamType::Audio);
    EXPECT_EQ(first.movie->streams[0]->duration, last_time(path, 0));
    EXPECT_EQ(first.movie->streams[1]->duration, last_time(path, 1));
    EXPECT_EQ(first.movie->duration,
              in_microseconds(*first.movie->streams[1], first.movie->streams[1]->duration));
}

TEST(ProbeDurationTest, SoundWithAStillPictureLastsAsLongAsItsFirstStream) {
    const std::string path =
        make_clip("live_cover.mkv", small_audio("3") + "-i '" + fw_test::clip_jpeg() +
                                        "' -map 0 -map 1 -c:a flac -c:v copy -live 1");
    const FirstProbe first(path);
    ASSERT_EQ(first.movie->nb_streams, 2);
    EXPECT_TRUE(first.movie->streams[1]->single_frame);
    EXPECT_EQ(first.movie->duration,
              in_microseconds(*first.movie->streams[0], first.movie->streams[0]->duration));
    EXPECT_GT(first.movie->duration, 2500000);
}

TEST(ProbeDurationTest, AnAttachedPictureDoesNotShortenTheSound) {
    const MovieCtx* const movie = probe(fw_test::cover_mp3());
    EXPECT_EQ(movie->nb_audio, 1);
    EXPECT_EQ(movie->nb_video, 1);
    ASSERT_EQ(movie->nb_streams, 2);
    EXPECT_TRUE(movie->streams[1]->single_frame);
    EXPECT_EQ(movie->streams[1]->width, 320);
    EXPECT_GT(movie->duration, 1900000);
}

TEST(ProbeDurationTest, AStreamWithoutADurationTakesTheMovies) {
    const std::string path =
        make_clip("av.mkv", small_video() + small_audio() + fw_test::kSmallH264 + "-c:a flac");
    const MovieCtx* const movie = probe(path);
    ASSERT_EQ(movie->nb_streams, 2);
    for (int i = 0; i < 2; i++) {
        const StreamCtx& stream = *movie->streams[i];
        EXPECT_EQ(stream.duration, av_rescale_q(movie->duration, {1, 1000000},
                                                ff::rational_convert(stream.time_base)));
    }
    EXPECT_GE(movie->duration, 2000000);
}

TEST(ProbeDurationTest, ACancelledProbeKeepsWhatItReached) {
    std::atomic<bool> cancel{true};
    const FirstProbe first(fw_test::small_raw_h264(), &cancel);
    ASSERT_NE(first.movie, nullptr);
    ASSERT_EQ(first.movie->nb_streams, 1);
    const StreamCtx& stream = *first.movie->streams[0];
    // The second picture has been decoded then.
    EXPECT_EQ(stream.duration, av_rescale_q(1, {1, 25}, ff::rational_convert(stream.time_base)));
    EXPECT_EQ(getMovieInfo(first.file.path().c_str(), nullptr), first.movie)
        << "the record is kept as it is";
}

TEST(ProbeDurationTest, CancellingEndsTheCountingOfSoundBeforeItsFirstFrame) {
    std::atomic<bool> cancel{true};
    const FirstProbe first(headerless_mp3(), &cancel);
    ASSERT_NE(first.movie, nullptr);
    EXPECT_EQ(first.movie->streams[0]->duration, kNone);
    EXPECT_EQ(first.movie->duration, kNone);
    EXPECT_EQ(first.log.count_exactly(correction(kNone / 1000000)), 1U);
}

TEST(ProbeDurationTest, AFlagThatIsNotSetChangesNothing) {
    std::atomic<bool> cancel{false};
    const FirstProbe first(fw_test::small_raw_h264(), &cancel);
    EXPECT_EQ(first.movie->streams[0]->duration, last_time(fw_test::small_raw_h264(), 0));
}

TEST(ProbeDurationTest, ADamagedPacketDoesNotEndTheCounting) {
    const std::string path = live_mkv();
    const std::int64_t whole = last_time(path, 0);
    const fw_test::HookScope scope;
    int packets = 0;
    fw_test::g_demux_hooks.send_packet = [&](const AVPacket*) {
        return ++packets % 10 == 0 ? std::optional<int>(AVERROR_INVALIDDATA) : std::nullopt;
    };
    const FirstProbe first(path);
    ASSERT_EQ(first.movie->nb_streams, 1);
    EXPECT_GT(first.movie->streams[0]->duration, whole / 2);
}

TEST(ProbeDurationTest, ADecoderThatAlwaysFailsEndsTheCounting) {
    const fw_test::HookScope scope;
    fw_test::g_demux_hooks.send_packet = [](const AVPacket*) { return AVERROR_INVALIDDATA; };
    const FirstProbe first(fw_test::small_raw_h264());
    ASSERT_NE(first.movie, nullptr);
    for (int i = 0; i < first.movie->nb_streams; i++) {
        EXPECT_EQ(first.movie->streams[i]->pix_fmt, -1);
        EXPECT_FALSE(first.movie->streams[i]->single_frame);
    }
}

TEST(ProbeDurationTest, DamagedFilesAreProbedToAnEnd) {
    const fw_test::QuietFfmpeg quiet;
    for (const std::string& path : {fw_test::small_mp4(), fw_test::small_mpeg2("m2.ts"), live_mkv(),
                                    headerless_mp3(), fw_test::cover_mp3(), fw_test::clip_png()}) {
        const std::string bytes = read_file(path);
        for (const std::size_t step : {101U, 1009U}) {
            const LogCapture log;
            const TempFile flipped("flipped", fw_test::with_flipped_bits(bytes, 0, step));
            const TempFile later("later", fw_test::with_flipped_bits(bytes, 1500, step));
            const TempFile cut("cut", bytes.substr(0, bytes.size() * step / 2000));
            for (const TempFile* const file : {&flipped, &later, &cut}) {
                const MovieCtx* const movie = getMovieInfo(file->path().c_str(), nullptr);
                if (movie == nullptr) {
                    EXPECT_TRUE(log.contains("can't open input file: " + file->path()));
                }
            }
        }
    }
}

}  // namespace
