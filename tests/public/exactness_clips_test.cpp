// Pictures are exact in clips that are made here: each codec in the containers that carry it, and
// the ways in which streams arrange their pictures. The reference is a plain decode of the clip
// from the beginning, with one thread.

#include "media/ff_handles.h"
#include "tests/public/exactness_check.h"

#include <framewell/movie_info.h>

#include <gtest/gtest.h>

namespace {

using fw_test::Askers;
using fw_test::make_clip;
using fw_test::Timeline;

struct Row {
    const char* name;
    const char* encoder;  // the clip is skipped where FFmpeg has none
    const char* pix_fmt;  // of the decoded pictures
    std::string (*make)();
    // Where the clip does not tell the times of its pictures: ticks of the first one, and from one
    // to the next.
    std::int64_t first = 0;
    std::int64_t step = 0;
};

// Pictures that all differ from their neighbours. One thread and no date, so that every machine
// makes the same file.
std::string source(const std::string& rate = "25", const std::string& seconds = "4",
                   const std::string& size = "192x128", const std::string& pix_fmt = "yuv420p") {
    return "-f lavfi -i testsrc2=size=" + size + ":rate=" + rate + ":duration=" + seconds +
           ",noise=alls=8:allf=t:all_seed=7,format=" + pix_fmt + " ";
}

std::string x264(const std::string& params) {
    return "-c:v libx264 -preset veryfast -threads 1 -x264-params " + params + " ";
}

std::string x265(const std::string& params) {
    return "-c:v libx265 -preset ultrafast -x265-params log-level=error:pools=1:frame-threads=1:" +
           params + " ";
}

const std::string kClosed = "open-gop=0:keyint=24:min-keyint=24:scenecut=0:bframes=3:b-pyramid=2";
const std::string kOpen = "open-gop=1:keyint=24:min-keyint=24:scenecut=0:bframes=3:b-pyramid=2";
const std::string kRefresh = "intra-refresh=1:keyint=30:bframes=2";

std::string closed_h264(const std::string& name, const std::string& options = "") {
    return make_clip(name, source() + x264(kClosed) + options);
}

std::string open_h264(const std::string& name, const std::string& options = "") {
    return make_clip(name, source() + x264(kOpen) + options);
}

std::string mpeg2(const std::string& name, const std::string& options = "") {
    return make_clip(name, source() + "-c:v mpeg2video -threads 1 -g 15 -bf 2 -q:v 4 " + options);
}

std::string vp9(const std::string& name, const std::string& options) {
    return make_clip(name,
                     source("25", "4") + "-c:v libvpx-vp9 -threads 1 -g 30 -b:v 300k " + options);
}

/// A clip cut out of another without decoding: it begins with the key picture before the cut, and
/// says, where the container can, that what lies before the cut is not to be shown.
std::string cut_without_decoding(const std::string& name, const std::string& options) {
    return make_clip(name, "-ss 1.24 -i '" + closed_h264("uncut.mp4") + "' -c copy " + options);
}

const Row kRows[] = {
    {"H264ClosedGopMp4", "libx264", "yuv420p", [] { return closed_h264("closed.mp4"); }},
    {"H264ClosedGopMkv", "libx264", "yuv420p", [] { return closed_h264("closed.mkv"); }},
    {"H264ClosedGopTs", "libx264", "yuv420p", [] { return closed_h264("closed.ts"); }},
    {"H264ClosedGopFlv", "libx264", "yuv420p", [] { return closed_h264("closed.flv"); }},
    {"H264ClosedGopAvi", "libx264", "yuv420p", [] { return closed_h264("closed.avi"); }},
    {"H264ClosedGopMov", "libx264", "yuv420p", [] { return closed_h264("closed.mov"); }},
    {"H264OpenGopMp4", "libx264", "yuv420p", [] { return open_h264("open.mp4"); }},
    {"H264OpenGopMkv", "libx264", "yuv420p", [] { return open_h264("open.mkv"); }},
    {"H264OpenGopTs", "libx264", "yuv420p", [] { return open_h264("open.ts"); }},
    {"H264IntraRefreshMp4", "libx264", "yuv420p",
     [] { return make_clip("refresh.mp4", source() + x264(kRefresh)); }},
    {"H264IntraRefreshTs", "libx264", "yuv420p",
     [] { return make_clip("refresh.ts", source() + x264(kRefresh)); }},
    {"H264InterlacedTs", "libx264", "yuv420p",
     [] { return make_clip("tff.ts", source() + x264(kClosed + ":tff=1")); }},
    {"H264InterlacedOpenGopTs", "libx264", "yuv420p",
     [] { return make_clip("tff_open.ts", source() + x264(kOpen + ":tff=1")); }},
    {"H264OneKeyPictureTs", "libx264", "yuv420p",
     [] { return make_clip("one_key.ts", source() + x264("keyint=infinite:bframes=3")); }},
    {"H264LossyEightSlicesMkv", "libx264", "yuv420p",
     [] { return make_clip("slices.mkv", source() + x264(kClosed + ":slices=8")); }},
    {"H264FullRange", "libx264", "yuvj420p",
     [] {
         return make_clip("full_range.mp4",
                          source("25", "4", "192x128", "yuvj420p") + x264(kClosed));
     }},
    {"H264Planar444", "libx264", "yuv444p",
     [] {
         return make_clip("planar444.mp4", source("25", "4", "192x128", "yuv444p") + x264(kOpen));
     }},
    {"HevcClosedGopMp4", "libx265", "yuv420p",
     [] { return make_clip("hevc.mp4", source() + x265("keyint=24:open-gop=0:bframes=3")); }},
    {"HevcClosedGopMkv", "libx265", "yuv420p",
     [] { return make_clip("hevc.mkv", source() + x265("keyint=24:open-gop=0:bframes=3")); }},
    {"HevcClosedGopTs", "libx265", "yuv420p",
     [] { return make_clip("hevc.ts", source() + x265("keyint=24:open-gop=0:bframes=3")); }},
    {"HevcOpenGopMp4", "libx265", "yuv420p",
     [] { return make_clip("hevc_open.mp4", source() + x265("keyint=24:open-gop=1:bframes=3")); }},
    {"HevcOpenGopMkv", "libx265", "yuv420p",
     [] { return make_clip("hevc_open.mkv", source() + x265("keyint=24:open-gop=1:bframes=3")); }},
    {"HevcOpenGopTs", "libx265", "yuv420p",
     [] { return make_clip("hevc_open.ts", source() + x265("keyint=24:open-gop=1:bframes=3")); }},
    {"Mpeg2Ts", "mpeg2video", "yuv420p", [] { return mpeg2("mpeg2.ts"); }},
    {"Mpeg2Mpg", "mpeg2video", "yuv420p", [] { return mpeg2("mpeg2.mpg"); }},
    {"Mpeg2Vob", "mpeg2video", "yuv420p", [] { return mpeg2("mpeg2.vob"); }},
    {"Mpeg2Mkv", "mpeg2video", "yuv420p", [] { return mpeg2("mpeg2.mkv"); }},
    {"Mpeg2ClosedGopTs", "mpeg2video", "yuv420p",
     [] { return mpeg2("mpeg2_closed.ts", "-flags +cgop -sc_threshold 1000000000"); }},
    // The ffmpeg program lists it from 0 on in 7.1, from one picture later before.
    {"Mpeg2Elementary", "mpeg2video", "yuv420p", [] { return mpeg2("mpeg2.m2v"); }, 48000, 48000},
    {"Mpeg1Mpg", "mpeg1video", "yuv420p",
     [] { return make_clip("mpeg1.mpg", source() + "-c:v mpeg1video -threads 1 -g 15 -bf 2"); }},
    {"Mpeg4Avi", "mpeg4", "yuv420p",
     [] { return make_clip("mpeg4.avi", source() + "-c:v mpeg4 -threads 1 -g 25 -bf 2 -q:v 4"); }},
    {"Mpeg4Mp4", "mpeg4", "yuv420p",
     [] { return make_clip("mpeg4.mp4", source() + "-c:v mpeg4 -threads 1 -g 25 -bf 2 -q:v 4"); }},
    {"Mpeg4Mkv", "mpeg4", "yuv420p",
     [] { return make_clip("mpeg4.mkv", source() + "-c:v mpeg4 -threads 1 -g 25 -bf 2 -q:v 4"); }},
    {"Vp8", "libvpx", "yuv420p",
     [] {
         return make_clip("vp8.webm", source() +
                                          "-c:v libvpx -threads 1 -g 30 -b:v 300k "
                                          "-deadline realtime -cpu-used 8");
     }},
    {"Vp8HiddenPictures", "libvpx", "yuv420p",
     [] {
         return make_clip("vp8_hidden.webm",
                          source() +
                              "-c:v libvpx -threads 1 -g 30 -b:v 300k -deadline good "
                              "-cpu-used 5 -auto-alt-ref 1 -lag-in-frames 16");
     }},
    {"Vp9", "libvpx-vp9", "yuv420p",
     [] { return vp9("vp9.webm", "-deadline realtime -cpu-used 8"); }},
    {"Vp9HiddenPictures", "libvpx-vp9", "yuv420p",
     [] {
         return vp9("vp9_hidden.webm",
                    "-deadline good -cpu-used 8 -auto-alt-ref 1 -lag-in-frames 16");
     }},
    {"Vp9HiddenPicturesMp4", "libvpx-vp9", "yuv420p",
     [] {
         return vp9("vp9_hidden.mp4",
                    "-deadline good -cpu-used 8 -auto-alt-ref 1 -lag-in-frames 16");
     }},
    {"Av1Webm", "libaom-av1", "yuv420p",
     [] {
         return make_clip("av1.webm",
                          source("25", "2") +
                              "-c:v libaom-av1 -strict experimental -cpu-used 8 -threads 1 "
                              "-g 20 -b:v 200k");
     }},
    {"Av1Mp4", "libaom-av1", "yuv420p",
     [] {
         return make_clip("av1.mp4",
                          source("25", "2") +
                              "-c:v libaom-av1 -strict experimental -cpu-used 8 -threads 1 "
                              "-g 20 -b:v 200k");
     }},
    {"MotionJpegAvi", "mjpeg", "yuvj420p",
     [] {
         return make_clip("mjpeg.avi",
                          source("25", "2", "192x128", "yuvj420p") + "-c:v mjpeg -threads 1");
     }},
    {"ProRes", "prores_ks", "yuv422p10le",
     [] {
         return make_clip("prores.mov", source("25", "2", "192x128", "yuv422p10le") +
                                            "-c:v prores_ks -threads 1");
     }},
    {"Ffv1", "ffv1", "yuv420p",
     [] { return make_clip("ffv1.mkv", source("25", "2") + "-c:v ffv1 -threads 1 -g 10"); }},
    {"Theora", "libtheora", "yuv420p",
     [] { return make_clip("theora.ogv", source() + "-c:v libtheora -g 30 -q:v 6"); }},
    {"Wmv", "wmv2", "yuv420p",
     [] { return make_clip("wmv2.asf", source() + "-c:v wmv2 -threads 1 -g 25 -q:v 4"); }},
    {"H263", "h263", "yuv420p",
     [] {
         return make_clip("h263.3gp", source("25", "4", "176x144") + "-c:v h263 -threads 1 -g 25");
     }},
    {"Huffyuv", "huffyuv", "yuv422p",
     [] {
         return make_clip("huffyuv.avi",
                          source("25", "2", "192x128", "yuv422p") + "-c:v huffyuv -threads 1");
     }},
    {"RawVideo", "rawvideo", "yuv420p",
     [] { return make_clip("raw.nut", source("25", "2") + "-c:v rawvideo"); }},
    {"Gif", "gif", "bgra",
     [] { return make_clip("pictures.gif", source("25", "2", "96x64", "rgb8") + "-c:v gif"); }},
    {"Apng", "apng", "rgb24",
     [] {
         return make_clip("pictures.apng",
                          source("25", "2", "96x64", "rgb24") + "-c:v apng -threads 1 -f apng");
     }},
    {"H264VariableRateMkv", "libx264", "yuv420p",
     [] {
         return make_clip("variable.mkv",
                          source() +
                              "-vf select='not(mod(n\\,7))+eq(mod(n\\,7)\\,1)+eq(mod(n\\,"
                              "11)\\,5)' -vsync vfr " +
                              x264(kOpen));
     }},
    {"H264VariableRateMp4", "libx264", "yuv420p",
     [] {
         return make_clip("variable.mp4",
                          source() +
                              "-vf select='not(mod(n\\,7))+eq(mod(n\\,7)\\,1)+eq(mod(n\\,"
                              "11)\\,5)' -vsync vfr " +
                              x264(kClosed));
     }},
    {"H264SparsePicturesMp4", "libx264", "yuv420p",
     [] { return make_clip("sparse.mp4", source("1/7", "140") + x264(kClosed)); }},
    {"H264StartsAt100SecondsTs", "libx264", "yuv420p",
     [] { return closed_h264("starts_at_100.ts", "-output_ts_offset 100"); }},
    {"H264StartsAt100SecondsMkv", "libx264", "yuv420p",
     [] { return closed_h264("starts_at_100.mkv", "-output_ts_offset 100"); }},
    {"H264StartsAt3SecondsMp4", "libx264", "yuv420p",
     [] { return closed_h264("starts_at_3.mp4", "-output_ts_offset 3"); }},
    // Matroska cannot say that a picture comes before 0: the first 25 have no time in the file.
    {"H264StartsBeforeZeroMkv", "libx264", "yuv420p",
     [] {
         return closed_h264("starts_before_zero.mkv",
                            "-output_ts_offset -1 -avoid_negative_ts disabled");
     },
     -1000, 40},
    {"H264Elementary", "libx264", "yuv420p", [] { return closed_h264("closed.h264"); }, 0, 48000},
    {"H264OpenGopElementary", "libx264", "yuv420p", [] { return open_h264("open.h264"); }, 0,
     48000},
    {"HevcElementary", "libx265", "yuv420p",
     [] { return make_clip("elementary.hevc", source() + x265("keyint=24:open-gop=0:bframes=3")); },
     0, 48000},
    {"H264NegativeOffsetsMp4", "libx264", "yuv420p",
     [] { return closed_h264("negative_cts.mp4", "-movflags negative_cts_offsets"); }},
    {"H264CutByEditListMp4", "libx264", "yuv420p",
     [] { return cut_without_decoding("cut.mp4", ""); }},
    {"H264CutMkv", "libx264", "yuv420p", [] { return cut_without_decoding("cut.mkv", ""); }},
    {"H264CutTs", "libx264", "yuv420p", [] { return cut_without_decoding("cut.ts", ""); }},
    {"H264FragmentedMp4", "libx264", "yuv420p",
     [] { return closed_h264("fragments.mp4", "-movflags frag_keyframe+empty_moov"); }},
    {"H264FragmentedOpenGopMp4", "libx264", "yuv420p",
     [] {
         return open_h264("fragments_open.mp4",
                          "-movflags frag_keyframe+empty_moov+default_base_moof");
     }},
    {"H264FragmentedByTimeMp4", "libx264", "yuv420p",
     [] {
         return closed_h264("fragments_time.mp4", "-movflags empty_moov -frag_duration 500000");
     }},
    {"H264Rate23976Mkv", "libx264", "yuv420p",
     [] { return make_clip("r23.mkv", source("24000/1001") + x264(kClosed)); }},
    {"H264Rate50Mp4", "libx264", "yuv420p",
     [] { return make_clip("r50.mp4", source("50", "3") + x264(kOpen)); }},
    {"H264Rate5994Ts", "libx264", "yuv420p",
     [] { return make_clip("r59.ts", source("60000/1001", "3") + x264(kClosed)); }},
    {"H264Rate5994Flv", "libx264", "yuv420p",
     [] { return make_clip("r59.flv", source("60000/1001", "3") + x264(kClosed)); }},
    {"Mpeg4Rate2997Avi", "mpeg4", "yuv420p",
     [] {
         return make_clip("r29.avi",
                          source("30000/1001") + "-c:v mpeg4 -threads 1 -g 25 -bf 2 -q:v 4");
     }},
    {"Vp8OddSize", "libvpx", "yuv420p",
     [] {
         return make_clip("odd.webm", source("25", "2", "161x121") +
                                          "-c:v libvpx -threads 1 -g 20 -b:v 300k "
                                          "-deadline realtime -cpu-used 8");
     }},
    {"Ffv1OddSize", "ffv1", "yuv420p",
     [] {
         return make_clip("odd.mkv", source("25", "2", "33x17") + "-c:v ffv1 -threads 1 -g 10");
     }},
    {"H264CroppedSize", "libx264", "yuv420p",
     [] { return make_clip("cropped.mp4", source("25", "2", "178x98") + x264(kOpen)); }},
    {"OnePicturePng", "png", "rgb24",
     [] { return make_clip("one.png", source("1", "1", "97x65", "rgb24") + "-frames:v 1"); }},
    {"OnePictureJpeg", "mjpeg", "yuvj420p",
     [] { return make_clip("one.jpg", source("1", "1", "97x65", "yuvj420p") + "-frames:v 1"); }},
    {"OnePictureWebp", "libwebp", "yuv420p",
     [] { return make_clip("one.webp", source("1", "1", "97x65") + "-c:v libwebp -frames:v 1"); }},
    {"OnePictureMp4", "libx264", "yuv420p",
     [] { return make_clip("one.mp4", source() + "-frames:v 1 " + x264(kClosed)); }},
    {"TwoPicturesMp4", "libx264", "yuv420p",
     [] { return make_clip("two.mp4", source() + "-frames:v 2 " + x264(kClosed)); }},
};

std::string row_name(const testing::TestParamInfo<Row>& info) {
    return info.param.name;
}

Timeline timeline_of(const Row& row, const std::string& path, const ff::StreamCtx& stream) {
    std::vector<fw_test::ListedPicture> pictures;
    for (const auto& frame : fw_test::reference_frames(path, stream.index)) {
        const auto number = static_cast<std::int64_t>(pictures.size());
        const std::int64_t time = row.step == 0 ? frame.pts : row.first + number * row.step;
        pictures.push_back({number, time, frame.md5});
    }
    Timeline timeline;
    timeline.shown = fw_test::in_order_of_time(std::move(pictures));
    timeline.pix_fmt = row.pix_fmt;
    timeline.width = stream.width;
    timeline.height = stream.height;
    fw_test::expect_what_comes_in_order(&timeline, stream);
    return timeline;
}

class ClipExactnessTest : public testing::TestWithParam<Row> {
protected:
    void compare(Askers askers) {
        const Row& row = GetParam();
        if (avcodec_find_encoder_by_name(row.encoder) == nullptr) {
            GTEST_SKIP() << "needs the encoder " << row.encoder << " in FFmpeg";
        }
        const std::string path = row.make();
        const ff::StreamCtx* const stream =
            ff::first_stream(ff::getMovieInfo(path.c_str()), ff::StreamType::Video);
        ASSERT_NE(stream, nullptr) << path;
        const Timeline timeline = timeline_of(row, path, *stream);
        const auto lines = differences(timeline, *stream, askers);
        EXPECT_TRUE(lines.empty()) << path << ": " << fw_test::first_of(lines);
    }
};

TEST_P(ClipExactnessTest, OneDecoderGivesThePictureOfEachTimeInRandomOrder) {
    compare(Askers::OneDecoder);
}

TEST_P(ClipExactnessTest, FourThreadsWithDecodersOfTheirOwnGetThePictureOfEachTime) {
    compare(Askers::FourDecoders);
}

TEST_P(ClipExactnessTest, FourThreadsWithOneDecoderGetThePictureOfEachTime) {
    compare(Askers::FourThreadsOfOneDecoder);
}

INSTANTIATE_TEST_SUITE_P(Clips, ClipExactnessTest, testing::ValuesIn(kRows), row_name);

}  // namespace
