#include "ffdec_probe.h"

#include "tests/hw/libav_hooks.h"
#include "tests/support/engine.h"
#include "tests/support/temp_file.h"
#include "tests/support/turned_clip.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <future>
#include <set>
#include <string>
#include <vector>

namespace {

using ff::getMovieInfo;
using ff::MovieCtx;
using ff::StreamCtx;
using ff::StreamType;
using fw_test::LogCapture;
using fw_test::make_clip;
using fw_test::make_file;
using fw_test::probe;
using fw_test::read_file;
using fw_test::small_audio;
using fw_test::small_mp4;
using fw_test::small_video;
using fw_test::TempFile;
using Texts = std::vector<std::string>;

/// What the file itself says, without the probe.
ff::FormatContextPtr open_format(const std::string& path) {
    AVFormatContext* format = nullptr;
    EXPECT_GE(avformat_open_input(&format, path.c_str(), nullptr, nullptr), 0);
    EXPECT_GE(avformat_find_stream_info(format, nullptr), 0);
    return ff::FormatContextPtr(format);
}

std::int64_t in_microseconds(const StreamCtx& stream, std::int64_t ticks) {
    return av_rescale_q(ticks, ff::rational_convert(stream.time_base), {1, 1000000});
}

// The cache

TEST(ProbeTest, ASecondProbeOfAPathGivesTheSameRecord) {
    const TempFile file("twice.mp4", read_file(small_mp4()));
    const LogCapture log;
    const MovieCtx* const first = getMovieInfo(file.path().c_str(), nullptr);
    ASSERT_NE(first, nullptr);
    EXPECT_FALSE(log.contains("from cache"));
    EXPECT_EQ(getMovieInfo(file.path().c_str(), nullptr), first);
    const auto line = log.find("from cache");
    ASSERT_TRUE(line.has_value());
    EXPECT_EQ(line->text(), "mvCtx from cache: " + file.path());
    EXPECT_EQ(line->level, 5);
    EXPECT_EQ(line->tag, "bg");
    EXPECT_EQ(line->file, "src/ffdec_probe");
    EXPECT_EQ(log.count("from cache"), 1U);
}

TEST(ProbeTest, TheSamePathWrittenOtherwiseIsAnotherRecord) {
    const TempFile file("spelled.mp4", read_file(small_mp4()));
    const std::filesystem::path path(file.path());
    const std::string other = (path.parent_path() / "." / path.filename()).string();
    EXPECT_NE(probe(file.path()), probe(other));
}

TEST(ProbeTest, AFileThatChangedKeepsItsRecord) {
    const TempFile file("changed.bin", read_file(small_mp4()));
    const MovieCtx* const movie = probe(file.path());
    file.write(read_file(fw_test::clip_pcm()));
    EXPECT_EQ(probe(file.path()), movie);
    file.remove();
    EXPECT_EQ(probe(file.path()), movie);
    EXPECT_EQ(movie->nb_video, 1);
}

TEST(ProbeTest, AFailedProbeIsTriedAgain) {
    const TempFile file("late.mp4");
    const LogCapture log;
    EXPECT_EQ(getMovieInfo(file.path().c_str(), nullptr), nullptr);
    file.write(read_file(small_mp4()));
    EXPECT_NE(getMovieInfo(file.path().c_str(), nullptr), nullptr);
}

TEST(ProbeTest, ProbesOfOnePathAtOnceAllGiveWholeRecords) {
    const TempFile file("raced.mp4", read_file(fw_test::clip_two_video_two_audio()));
    const LogCapture log;
    std::vector<std::future<MovieCtx*>> probes;
    for (int i = 0; i < 4; i++) {
        probes.push_back(std::async(std::launch::async,
                                    [&] { return getMovieInfo(file.path().c_str(), nullptr); }));
    }
    std::set<MovieCtx*> movies;
    for (auto& one : probes) {
        movies.insert(one.get());
    }
    for (const MovieCtx* const movie : movies) {
        ASSERT_NE(movie, nullptr);
        EXPECT_EQ(movie->nb_streams, 4);
        EXPECT_EQ(movie->path, file.path());
    }
    EXPECT_EQ(movies.count(getMovieInfo(file.path().c_str(), nullptr)), 1U);
}

// What cannot be opened

TEST(ProbeTest, WhatCannotBeOpenedGivesNull) {
    const fw_test::QuietFfmpeg quiet;
    const std::string folder = std::filesystem::temp_directory_path().string();
    for (const std::string& path :
         {fw_test::no_file(), folder, std::string(), make_file("empty.mp4", ""),
          make_file("words.mp4", "no media"), make_file("zeros.mkv", std::string(4096, '\0'))}) {
        const LogCapture log;
        EXPECT_EQ(getMovieInfo(path.c_str(), nullptr), nullptr) << path;
        EXPECT_EQ(log.texts(), Texts{"can't open input file: " + path});
        EXPECT_EQ(log.lines()[0].level, 2);
        EXPECT_EQ(log.lines()[0].tag, "bg");
    }
}

TEST(ProbeTest, ANullPathGivesNull) {
    const LogCapture log;
    EXPECT_EQ(getMovieInfo(nullptr, nullptr), nullptr);
    EXPECT_EQ(log.texts(2), Texts{"can't open input file: "});
}

// Records

TEST(ProbeTest, TheRecordOfAMovieSaysWhatTheFileSays) {
    const std::string path = fw_test::clip_two_video_two_audio();
    const MovieCtx* const movie = probe(path);
    const ff::FormatContextPtr format = open_format(path);
    EXPECT_EQ(movie->path, path);
    EXPECT_EQ(movie->start_time, format->start_time);
    EXPECT_EQ(movie->duration, format->duration);
    EXPECT_EQ(movie->bit_rate, format->bit_rate);
    ASSERT_EQ(movie->nb_streams, 4);
    EXPECT_EQ(movie->nb_video, 2);
    EXPECT_EQ(movie->nb_audio, 2);
    EXPECT_EQ(movie->nb_subtitle, 0);
    for (int i = 0; i < 4; i++) {
        const StreamCtx& stream = *movie->streams[i];
        const AVStream& source = *format->streams[i];
        EXPECT_EQ(stream.index, i);
        EXPECT_EQ(stream.type, i < 2 ? StreamType::Video : StreamType::Audio);
        EXPECT_EQ(stream.time_base.num, source.time_base.num);
        EXPECT_EQ(stream.time_base.den, source.time_base.den);
        EXPECT_EQ(stream.duration, source.duration);
        EXPECT_EQ(stream.start_time, source.start_time);
        EXPECT_EQ(stream.movie, movie);
    }
    EXPECT_EQ(movie->video_index[0], 0);
    EXPECT_EQ(movie->video_index[1], 1);
    EXPECT_EQ(movie->audio_index[0], 2);
    EXPECT_EQ(movie->audio_index[1], 3);
}

TEST(ProbeTest, TheRecordOfAVideoStreamIsMeasured) {
    const std::string path =
        make_clip("wide.mp4", small_video() + "-vf setsar=4/3 " + fw_test::kSmallH264);
    const MovieCtx* const movie = probe(path);
    ASSERT_EQ(movie->nb_streams, 1);
    const StreamCtx& video = *movie->streams[0];
    EXPECT_EQ(video.width, 160);
    EXPECT_EQ(video.height, 120);
    EXPECT_EQ(video.codec_pix_fmt, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(video.hw_pix_fmt, -1);
    EXPECT_EQ(video.pix_fmt, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(video.rotation, 0);
    EXPECT_FALSE(video.single_frame);
    EXPECT_EQ(video.sample_aspect_ratio.num, 4);
    EXPECT_EQ(video.sample_aspect_ratio.den, 3);
    EXPECT_EQ(video.frame_rate.num, 25);
    EXPECT_EQ(video.frame_rate.den, 1);
}

TEST(ProbeTest, TheRecordOfAnAudioStreamSaysWhatTheCodecParametersSay) {
    const StreamCtx& stereo = *probe(fw_test::clip_pcm())->streams[0];
    EXPECT_EQ(stereo.channels, 2);
    EXPECT_EQ(stereo.channel_layout, ff::compat::default_channel_mask(2));
    EXPECT_EQ(stereo.sample_rate, 44100);
    EXPECT_EQ(stereo.sample_fmt, AV_SAMPLE_FMT_S16);
    const StreamCtx& planar = *probe(fw_test::clip_aac())->streams[0];
    EXPECT_EQ(planar.sample_fmt, AV_SAMPLE_FMT_FLTP);
}

TEST(ProbeTest, APictureInAnotherFormatThanTheFileAnnouncesIsTheHardwares) {
    const TempFile file("hardware.mp4", read_file(small_mp4()));
    fw_test::g_hooks.receive_frame = [](AVCodecContext* ctx, AVFrame* frame) {
        static auto* const s_real = reinterpret_cast<int (*)(AVCodecContext*, AVFrame*)>(
            dlsym(RTLD_NEXT, "avcodec_receive_frame"));
        const int result = s_real(ctx, frame);
        frame->format = AV_PIX_FMT_NV12;
        return result;
    };
    const LogCapture log;
    const MovieCtx* const movie = getMovieInfo(file.path().c_str(), nullptr);
    fw_test::g_hooks = fw_test::Hooks();
    ASSERT_NE(movie, nullptr);
    EXPECT_EQ(movie->streams[0]->codec_pix_fmt, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(movie->streams[0]->hw_pix_fmt, AV_PIX_FMT_NV12);
    EXPECT_EQ(movie->streams[0]->pix_fmt, AV_PIX_FMT_NV12);
    EXPECT_EQ(log.texts(2),
              Texts{"[hw enabled] pix_fmt convert: " + std::to_string(AV_PIX_FMT_YUV420P) +
                    " --> " + std::to_string(AV_PIX_FMT_NV12)});
}

// Streams that cannot be used

TEST(ProbeTest, StreamsWithoutADecoderAreLeftOut) {
    const fw_test::QuietFfmpeg quiet;
    const std::string bytes = read_file(
        make_clip("av.mkv", small_video() + small_audio() + fw_test::kSmallH264 + "-c:a flac"));
    const MovieCtx* const movie = probe(make_file(
        "noname.mkv", fw_test::with_replaced(bytes, "V_MPEG4/ISO/AVC", "V_UNKNOWN/NOTHI")));
    EXPECT_EQ(movie->nb_video, 0);
    EXPECT_EQ(movie->nb_audio, 1);
    ASSERT_EQ(movie->nb_streams, 1);
    EXPECT_EQ(movie->streams[0]->index, 1);
    EXPECT_EQ(movie->audio_index[0], 1);
    EXPECT_EQ(stream_by_index(movie, 0), nullptr);
}

TEST(ProbeTest, AVideoStreamThatCannotBeDecodedSaysSo) {
    const fw_test::QuietFfmpeg quiet;
    std::string bytes = read_file(small_mp4());
    const std::size_t media = bytes.find("mdat");
    ASSERT_NE(media, std::string::npos);
    const std::size_t end = std::max(bytes.find("moov"), media + 4);
    for (std::size_t i = media + 4; i + 4 < end; i++) {
        bytes[i] = static_cast<char>(0xff);
    }
    const MovieCtx* const movie = probe(make_file("garbage.mp4", bytes));
    ASSERT_EQ(movie->nb_streams, 1);
    const StreamCtx& video = *movie->streams[0];
    EXPECT_EQ(video.frame_rate.num, 0);
    EXPECT_EQ(video.frame_rate.den, 0);
    EXPECT_EQ(video.codec_pix_fmt, -1);
    EXPECT_EQ(video.hw_pix_fmt, -1);
    EXPECT_EQ(video.pix_fmt, -1);
    EXPECT_FALSE(video.single_frame);
    EXPECT_EQ(video.width, 160);
    EXPECT_EQ(in_microseconds(video, video.duration), 2000000);
    EXPECT_EQ(movie->duration, 2000000);
    EXPECT_EQ(movie->nb_video, 1);
}

TEST(ProbeTest, AMovieListsEightStreamsOfAKind) {
    const MovieCtx* const movie = probe(make_clip(
        "ten.mka", "-f lavfi -i sine=d=0.2 " + [] {
            std::string maps;
            for (int i = 0; i < 10; i++) {
                maps += "-map 0 ";
            }
            return maps;
        }() + "-c:a pcm_s16le"));
    EXPECT_EQ(movie->nb_audio, 8);
    EXPECT_EQ(movie->nb_streams, 10);
    for (int i = 0; i < 10; i++) {
        EXPECT_EQ(movie->streams[i]->index, i);
        if (i < 8) {
            EXPECT_EQ(movie->audio_index[i], i);
        }
    }
    EXPECT_EQ(movie->nb_video, 0);
    EXPECT_EQ(movie->nb_subtitle, 0);
}

TEST(ProbeTest, AMovieKeepsThirtyTwoRecords) {
    std::string maps;
    for (int i = 0; i < 40; i++) {
        maps += "-map 0 ";
    }
    const MovieCtx* const movie =
        probe(make_clip("forty.mka", "-f lavfi -i sine=d=0.2 " + maps + "-c:a pcm_s16le"));
    EXPECT_EQ(movie->nb_streams, 32);
    EXPECT_EQ(movie->nb_audio, 8);
    EXPECT_EQ(movie->streams[31]->index, 31);
    EXPECT_EQ(movie->start_time, 0) << "what lies behind the records is whole";
}

TEST(ProbeTest, AFullMovieTakesNoFurtherRecord) {
    const std::string path = small_mp4();
    const ff::FormatContextPtr format = open_format(path);
    std::string text = path;
    MovieCtx movie;
    movie.path = text.data();
    movie.nb_streams = MovieCtx::kMaxStreams;
    EXPECT_EQ(ff::probe_video_stream(&movie, format->streams[0], 0, false, nullptr), nullptr);
    EXPECT_EQ(movie.nb_streams, MovieCtx::kMaxStreams);
}

// Subtitles

TEST(ProbeTest, TheEventsOfSubRipAreInTheRecord) {
    const MovieCtx* const movie = probe(fw_test::clip_subrip());
    EXPECT_EQ(movie->nb_subtitle, 1);
    EXPECT_EQ(movie->subtitle_index[0], 1);
    ASSERT_EQ(movie->nb_streams, 2);
    const StreamCtx& stream = *movie->streams[1];
    EXPECT_EQ(stream.type, StreamType::Subtitle);
    EXPECT_EQ(static_cast<int>(stream.type), 2);
    ASSERT_EQ(stream.subtitles.size(), 3U);
    const std::int64_t starts[] = {500000, 1250000, 2000000};
    const char* const texts[] = {"First line", "Second\nin two", "<i>Third</i>"};
    for (std::size_t i = 0; i < 3; i++) {
        EXPECT_EQ(stream.subtitles[i].start, starts[i]);
        EXPECT_EQ(stream.subtitles[i].end, starts[i]);
        // Containers keep the line ends as the text's reader wrote them.
        std::string text = fw_test::with_replaced(stream.subtitles[i].text, "\r\n", " \n");
        EXPECT_EQ(text.substr(0, 5), std::string(texts[i]).substr(0, 5));
    }
    EXPECT_EQ(stream.subtitles[2].text, texts[2]);
}

TEST(ProbeTest, OtherSubtitlesAreListedWithoutARecord) {
    const MovieCtx* const movie =
        probe(make_clip("styled.mkv", "-i '" + fw_test::clip_subrip() +
                                          "' -map 0:0 -map 0:1 -map 0:1 -c:v copy -c:s:0 ass "
                                          "-c:s:1 srt"));
    EXPECT_EQ(movie->nb_subtitle, 2);
    EXPECT_EQ(movie->subtitle_index[0], 1);
    EXPECT_EQ(movie->subtitle_index[1], 2);
    EXPECT_EQ(movie->nb_streams, 2);
    EXPECT_EQ(stream_by_index(movie, 1), nullptr);
    ASSERT_NE(stream_by_index(movie, 2), nullptr);
    EXPECT_EQ(stream_by_index(movie, 2)->subtitles.size(), 3U);
}

TEST(ProbeTest, ASubtitleStreamInAnotherCodecGivesNoRecord) {
    const std::string path = small_mp4();
    const ff::FormatContextPtr format = open_format(path);
    MovieCtx movie;
    EXPECT_EQ(ff::probe_subtitle_stream(&movie, format->streams[0]), nullptr);
    EXPECT_EQ(movie.nb_streams, 0);
}

// Rotation

/// A clip whose display matrix turns its pictures by a quarter clockwise.
std::string turned_mp4() {
    return fw_test::turned_clip(small_mp4(), 1);
}

struct RotationCase {
    const char* name;
    const char* tag;  // null: none
    double plain;     // without a display matrix
    double turned;    // with one of a quarter clockwise
};

class RotationTest : public testing::TestWithParam<RotationCase> {};

double rotation_with(const std::string& path, const char* tag) {
    const ff::FormatContextPtr format = open_format(path);
    AVStream* const stream = format->streams[0];
    EXPECT_GE(av_dict_set(&stream->metadata, "rotate", tag, 0), 0);
    return ff::get_rotation(stream);
}

TEST_P(RotationTest, TheTagCountsBeforeTheMatrix) {
    EXPECT_DOUBLE_EQ(rotation_with(small_mp4(), GetParam().tag), GetParam().plain);
    EXPECT_DOUBLE_EQ(rotation_with(turned_mp4(), GetParam().tag), GetParam().turned);
}

INSTANTIATE_TEST_SUITE_P(
    Tags, RotationTest,
    testing::Values(RotationCase{"None", nullptr, 0, 90}, RotationCase{"Empty", "", 0, 90},
                    RotationCase{"Zero", "0", 0, 90}, RotationCase{"Quarter", "90", 90, 90},
                    RotationCase{"Half", "180", 180, 180},
                    RotationCase{"Negative", "-90", 270, 270}, RotationCase{"Whole", "360", 0, 0},
                    RotationCase{"Twice", "450", 90, 90}, RotationCase{"Word", "abc", 0, 90},
                    RotationCase{"Rest", "90 degrees", 0, 90},
                    RotationCase{"Thousand", "1k", 280, 280},
                    RotationCase{"Fraction", "0.5", 0.5, 0.5},
                    RotationCase{"NearWhole", "359.5", -0.5, -0.5},
                    RotationCase{"NotSoNearWhole", "359", 359, 359},
                    RotationCase{"NegativeZero", "0.0", 0, 90}),
    [](const auto& row) { return row.param.name; });

TEST(RotationTest, WhatIsNotFiniteIsNoRotation) {
    for (const char* const tag : {"inf", "-inf", "nan", "1e999"}) {
        EXPECT_EQ(rotation_with(small_mp4(), tag), 0) << tag;
    }
}

TEST(RotationTest, AMatrixThatShrinksEverythingToAPointIsNoRotation) {
    std::string bytes = read_file(small_mp4());
    bytes.replace(bytes.find("tkhd") + 44, 36, std::string(36, '\0'));
    EXPECT_EQ(rotation_with(make_file("point.mp4", bytes), nullptr), 0);
}

TEST(RotationTest, TheProbeReadsItFromTheFile) {
    // Capital letters, because ffmpeg keeps the other spelling to itself.
    EXPECT_EQ(
        probe(make_clip("tagged.mkv", "-i '" + small_mp4() + "' -c copy -metadata:s:v ROTATE=90"))
            ->streams[0]
            ->rotation,
        90);
    EXPECT_EQ(probe(turned_mp4())->streams[0]->rotation, 90);
}

}  // namespace
