// Pictures are exact on every video stream of the shared collection: what comes in random order,
// from one decoder or from four threads, is what a plain decode from the beginning shows.

#include "tests/public/exactness_check.h"

#include <framewell/movie_info.h>

#include <gtest/gtest.h>

#include <cctype>
#include <optional>

namespace {

using fw_test::Askers;
using fw_test::Timeline;
using fw_test::TruthFrame;
using fw_test::TruthStream;

struct Row {
    const char* file;
    int stream;
};

// A table rather than a look into the folder: a file that is missing is then skipped by name.
constexpr Row kRows[] = {
    {"animated.apng", 0},
    {"animated.gif", 0},
    {"ass-subtitles.mkv", 0},
    {"broken-truncated.mp4", 0},
    {"edit-list-aac-priming.mp4", 0},
    {"edit-list-cuts-first-half-second.mp4", 0},
    {"edit-list-ends-on-b-frame.mov", 0},
    {"edit-list-preroll-keyframe.mp4", 0},
    {"edit-list-video-starts-1s.mp4", 0},
    {"fragmented-wrong-duration.mp4", 0},
    {"h263-vfr-video-starts-late.3gp", 0},
    {"h264-10bit.mp4", 0},
    {"h264-30s-four-keyframes.mov", 0},
    {"h264-60fps-few-keyframes.mp4", 0},
    {"h264-aac.flv", 0},
    {"h264-b-pyramid.mp4", 0},
    {"h264-in-avi-no-pts.avi", 0},
    {"h264-interlaced-1080i-ac3.mts", 0},
    {"h264-start-10s.mp4", 0},
    {"hevc-10bit.mp4", 0},
    {"hevc-aac-5.1.ts", 0},
    {"live-truncated-no-duration.webm", 1},
    {"long-6min-1080p-h264-no-audio.mp4", 0},
    {"long-6min-av1-aac.mp4", 0},
    {"long-gop-start-10s.ts", 0},
    {"mjpeg-pcm-u8.mov", 0},
    {"mp3-cover-art.mp3", 1},
    {"mpeg1-elementary-few-pts.mpg", 0},
    {"mpeg2-interlaced-mp3.ts", 0},
    {"mpeg2-mp2-tiny.mpg", 1},
    {"mpeg4-mp3-dropped-frames.avi", 0},
    {"mpeg4-packed-b-frames.avi", 0},
    {"msmpeg4-wma-vfr.asf", 1},
    {"multi-video-multi-audio.mp4", 0},
    {"multi-video-multi-audio.mp4", 3},
    {"no-initial-keyframe.ts", 0},
    {"prores-proxy-10bit-interlaced.mov", 0},
    {"raw-h264-b-frames.264", 0},
    {"raw-hevc.265", 0},
    {"rotation-180.mp4", 0},
    {"rotation-270-vfr.mp4", 0},
    {"rotation-90-video-starts-late.mp4", 0},
    {"sample-aspect-2x1.mp4", 0},
    {"still-exif-orientation-6.jpg", 0},
    {"still.png", 0},
    {"still.webp", 0},
    {"subrip-one-line.mkv", 0},
    {"theora-vorbis.ogv", 0},
    {"two-hevc-tracks-rotated.mp4", 0},
    {"two-hevc-tracks-rotated.mp4", 1},
    {"vfr-extreme.mp4", 0},
    {"vfr-h264-mkv.mkv", 0},
    {"vp8-vorbis-start-3ms.webm", 0},
    {"vp9-10bit-hidden-frames.webm", 0},
    {"vp9-60fps-vorbis-5.1.webm", 0},
    {"vp9-alpha.webm", 0},
    {"vp9-odd-161x121.webm", 0},
};

std::string row_name(const testing::TestParamInfo<Row>& info) {
    std::string name = info.param.file;
    for (char& c : name) {
        c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
    }
    return name + "_stream" + std::to_string(info.param.stream);
}

std::optional<TruthStream> truth_of(const Row& row) {
    const auto truth = fw_test::shared_truth(row.file);
    for (std::size_t i = 0; truth && i < truth->streams.size(); i++) {
        if (truth->streams[i].index == row.stream) {
            return truth->streams[i];
        }
    }
    return std::nullopt;
}

/// Gives pictures without a time the one that is counted on from the picture before, or from the
/// stream's start.
std::vector<fw_test::ListedPicture> timed(const std::vector<TruthFrame>& frames,
                                          const ff::StreamCtx& stream) {
    const std::int64_t step =
        stream.frame_rate.num > 0
            ? ff::rescale_q(1, {stream.frame_rate.den, stream.frame_rate.num}, stream.time_base)
            : 0;
    std::int64_t next = stream.start_time == INT64_MIN ? 0 : stream.start_time;
    std::vector<fw_test::ListedPicture> pictures;
    for (const TruthFrame& frame : frames) {
        const std::int64_t time = frame.timestamp.value_or(next);
        pictures.push_back({frame.number, time, frame.md5});
        next = time + step;
    }
    return pictures;
}

Timeline timeline_of(const TruthStream& truth, const ff::StreamCtx& stream) {
    std::vector<TruthFrame> frames = truth.frames;
    frames.insert(frames.end(), truth.sampled.begin(), truth.sampled.end());
    const auto keys = std::count_if(truth.frames.begin(), truth.frames.end(),
                                    [](const auto& f) { return f.key; });
    Timeline timeline;
    timeline.shown = fw_test::in_order_of_time(timed(frames, stream));
    timeline.pix_fmt = truth.pix_fmt;
    timeline.width = truth.width;
    timeline.height = truth.height;
    timeline.pictures_per_key = static_cast<double>(truth.frames.size()) /
                                static_cast<double>(std::max<std::ptrdiff_t>(keys, 1));
    fw_test::expect_what_comes_in_order(&timeline, stream);
    return timeline;
}

class ExactnessTest : public testing::TestWithParam<Row> {
protected:
    void compare(Askers askers) {
        const Row row = GetParam();
        const std::string path = fw_test::shared_media(row.file);
        const auto truth = truth_of(row);
        if (path.empty() || !truth) {
            GTEST_SKIP() << "needs the shared media file " << row.file << " and its ground truth";
        }
        const ff::StreamCtx* const stream =
            ff::stream_by_index(ff::getMovieInfo(path.c_str()), row.stream);
        ASSERT_NE(stream, nullptr) << row.file;
        if (stream->codec_pix_fmt < 0 && truth->codec == "av1") {
            GTEST_SKIP() << "needs an AV1 decoder in FFmpeg";
        }
        const Timeline timeline = timeline_of(*truth, *stream);
        const auto lines = differences(timeline, *stream, askers);
        EXPECT_TRUE(lines.empty()) << row.file << ": " << fw_test::first_of(lines);
    }
};

TEST_P(ExactnessTest, OneDecoderGivesThePictureOfEachTimeInRandomOrder) {
    compare(Askers::OneDecoder);
}

TEST_P(ExactnessTest, FourThreadsWithDecodersOfTheirOwnGetThePictureOfEachTime) {
    compare(Askers::FourDecoders);
}

TEST_P(ExactnessTest, FourThreadsWithOneDecoderGetThePictureOfEachTime) {
    compare(Askers::FourThreadsOfOneDecoder);
}

INSTANTIATE_TEST_SUITE_P(SharedMedia, ExactnessTest, testing::ValuesIn(kRows), row_name);

TEST(ExactnessTableTest, HoldsEveryDecodableVideoStreamOfTheSharedMedia) {
    const auto names = fw_test::shared_media_names();
    if (names.empty()) {
        GTEST_SKIP() << "no shared media: set FRAMEWELL_SHARED_MEDIA";
    }
    for (const std::string& name : names) {
        const auto truth = fw_test::shared_truth(name);
        for (std::size_t i = 0; truth && i < truth->streams.size(); i++) {
            const TruthStream& stream = truth->streams[i];
            const bool is_listed = std::any_of(
                std::begin(kRows), std::end(kRows),
                [&](const Row& row) { return row.file == name && row.stream == stream.index; });
            EXPECT_EQ(is_listed, stream.type == "video" && stream.frames_total > 0)
                << name << ", stream " << stream.index;
        }
    }
}

}  // namespace
