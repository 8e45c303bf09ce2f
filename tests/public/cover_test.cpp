// Covers through the public functions, on clips that are made here and on the shared collection.

#include "tests/support/decoders.h"
#include "tests/support/log_capture.h"
#include "tests/support/media.h"
#include "tests/support/temp_file.h"

#include <framewell/framewell.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using ff::getMovieImage;
using ff::Rational;
using ff::RequireMvImage;
using fw_test::LogCapture;
using fw_test::make_clip;

constexpr std::int64_t kUnknown = std::numeric_limits<std::int64_t>::min();
const Rational kUntouched{-7, -9};

/// The visible pixels of an RGBA picture: what lies between its rows is left over from others.
std::string pixels_of(const ff::VFrameCtx& picture) {
    std::string bytes;
    for (int y = 0; y < picture.height; ++y) {
        bytes.append(reinterpret_cast<const char*>(picture.data[0]) +
                         static_cast<std::ptrdiff_t>(y) * picture.linesize[0],
                     static_cast<std::size_t>(picture.width) * 4);
    }
    return bytes;
}

RequireMvImage cover_at(const Rational& time, int max_width = 0, int max_height = 0) {
    RequireMvImage request;
    request.time = time;
    request.max_width = max_width;
    request.max_height = max_height;
    return request;
}

RequireMvImage cover_at_ratio(double ratio) {
    RequireMvImage request;
    request.ratio = ratio;
    return request;
}

/// What a decoder of its own gives for that stream.
std::shared_ptr<ff::VFrameCtx> decoded(const ff::StreamCtx* stream, const Rational& time,
                                       int divider) {
    ff::FFDecoder decoder;
    EXPECT_TRUE(decoder.open(stream));
    return decoder.getVideoFrame(fw_test::picture_at(time, ff::PixelFormat::Rgba, divider));
}

void expect_same(const std::shared_ptr<ff::VFrameCtx>& cover,
                 const std::shared_ptr<ff::VFrameCtx>& picture, const std::string& name) {
    ASSERT_NE(cover, nullptr) << name;
    ASSERT_NE(picture, nullptr) << name;
    EXPECT_EQ(cover->width, picture->width) << name;
    EXPECT_EQ(cover->height, picture->height) << name;
    EXPECT_EQ(cover->pts, picture->pts) << name;
    EXPECT_EQ(cover->divider, picture->divider) << name;
    EXPECT_TRUE(pixels_of(*cover) == pixels_of(*picture)) << name;
}

TEST(CoverTest, IsThePictureThatADecoderGivesForThatTimeAndDivider) {
    const std::string path = fw_test::clip_h264();
    const ff::StreamCtx* const stream = fw_test::stream_of(path);
    for (const Rational time : {Rational{0, 1}, Rational{5, 4}, Rational{1001, 30000},
                                Rational{-3, 1}, Rational{100, 1}}) {
        for (const auto& [width, divider] : {std::pair{0, 1}, {160, 2}, {100, 4}}) {
            Rational duration = kUntouched;
            expect_same(getMovieImage(path.c_str(), cover_at(time, width), &duration),
                        decoded(stream, time, divider), path);
            EXPECT_EQ(duration.num, 4000000);
            EXPECT_EQ(duration.den, 1000000);
        }
    }
}

TEST(CoverTest, ComesInTheFormatThatIsAskedFor) {
    RequireMvImage request = cover_at({1, 1});
    request.format = ff::PixelFormat::Yuv420p;
    const std::string path = fw_test::clip_h264();
    const auto cover = getMovieImage(path.c_str(), request, nullptr);
    ASSERT_NE(cover, nullptr);
    EXPECT_EQ(cover->format, ff::pixfmt_to_avpixfmt(ff::PixelFormat::Yuv420p));
    request.format = ff::PixelFormat::None;
    EXPECT_EQ(getMovieImage(path.c_str(), request, nullptr), nullptr);
    request.format = ff::PixelFormat::SeekOnly;
    EXPECT_EQ(getMovieImage(path.c_str(), request, nullptr), nullptr);
}

TEST(CoverTest, FitsTheBox) {
    const std::string path = fw_test::clip_flat({100, 120, 140}, "1920x1080");
    const auto cover = getMovieImage(path.c_str(), cover_at({0, 1}, 320, 240), nullptr);
    ASSERT_NE(cover, nullptr);
    EXPECT_EQ(cover->divider, 6);
    EXPECT_EQ(cover->width, 320);
    EXPECT_EQ(cover->height, 180);
    EXPECT_EQ(cover->src_width, 1920);
    EXPECT_EQ(cover->src_height, 1080);
}

TEST(CoverTest, TakesNegativeBoxesForNoLimitAndRefusesThoseThatLeaveNothing) {
    const std::string path = fw_test::clip_small();
    const auto cover = getMovieImage(path.c_str(), cover_at({0, 1}, -1, -100), nullptr);
    ASSERT_NE(cover, nullptr);
    EXPECT_EQ(cover->width, 160);
    const auto tiny = getMovieImage(path.c_str(), cover_at({0, 1}, 1, 1), nullptr);
    ASSERT_NE(tiny, nullptr);  // 160 / 81 and 120 / 81, rounded up to what pictures are made in
    EXPECT_EQ(tiny->width, 16);
    EXPECT_EQ(tiny->height, 2);
}

TEST(CoverTest, AtHalfTheMovieIsThePictureAtHalfItsDuration) {
    const std::string path = fw_test::clip_h264();
    expect_same(getMovieImage(path.c_str(), cover_at_ratio(0.5), nullptr),
                decoded(fw_test::stream_of(path), {2, 1}, 1), path);
}

TEST(CoverTest, OfAMovieThatStartsLateCountsFromItsStart) {
    const std::string path = fw_test::clip_mpeg2_ts();
    const auto first = getMovieImage(path.c_str(), cover_at_ratio(0), nullptr);
    const auto middle = getMovieImage(path.c_str(), cover_at({2, 1}), nullptr);
    ASSERT_NE(first, nullptr);
    ASSERT_NE(middle, nullptr);
    EXPECT_GT(first->pts, 1400000);
    EXPECT_EQ(first->pts, ff::getMovieInfo(path.c_str())->start_time);
    EXPECT_EQ(middle->pts, first->pts + 2000000);
}

TEST(CoverTest, AnyRatioGivesAPicture) {
    const std::string path = fw_test::clip_small();
    for (const double ratio :
         {-1.0, 1.0, 7.0, 1e300, -1e300, std::numeric_limits<double>::infinity(),
          -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
        EXPECT_NE(getMovieImage(path.c_str(), cover_at_ratio(ratio), nullptr), nullptr) << ratio;
    }
}

TEST(CoverTest, OfAFileThatCannotBeProbedIsEmptyAndLogged) {
    const std::string missing = "/nowhere/clip.mp4";
    const LogCapture log;
    Rational duration = kUntouched;
    EXPECT_EQ(getMovieImage(missing.c_str(), {}, &duration), nullptr);
    EXPECT_EQ(duration.num, kUntouched.num);
    EXPECT_EQ(duration.den, kUntouched.den);
    const auto line = log.find("@@");
    ASSERT_TRUE(line.has_value());
    EXPECT_EQ(line->text(), "@@获取视频封面和信息失败：" + missing);
    EXPECT_EQ(line->level, 2);
    EXPECT_EQ(line->tag, "bg");
    EXPECT_EQ(line->file, "src/ff_tools");
}

TEST(CoverTest, OfNoPathIsEmpty) {
    const LogCapture log;
    EXPECT_EQ(getMovieImage(nullptr, {}, nullptr), nullptr);
    EXPECT_EQ(getMovieImage("", {}, nullptr), nullptr);
    EXPECT_EQ(log.count("@@获取视频封面和信息失败："), 2U);
}

TEST(CoverTest, OfSoundIsEmptyButTellsTheDuration) {
    Rational duration = kUntouched;
    EXPECT_EQ(getMovieImage(fw_test::clip_flac().c_str(), cover_at_ratio(0.5), &duration), nullptr);
    EXPECT_EQ(duration.num, 3000000);
    EXPECT_EQ(duration.den, 1000000);
}

TEST(CoverTest, OfAStillIsTheStill) {
    Rational duration = kUntouched;
    const std::string path = fw_test::clip_png();
    const auto cover = getMovieImage(path.c_str(), cover_at_ratio(0.9), &duration);
    expect_same(cover, decoded(fw_test::stream_of(path), {0, 1}, 1), path);
    EXPECT_EQ(duration.num, 40000);
}

TEST(CoverTest, OfMusicIsTheAttachedPicture) {
    const std::string music = make_clip(
        "attached-picture.mp3",
        "-f lavfi -i sine=duration=2 -f lavfi -i color=c=red:s=64x48:r=1:d=1 -map 0 -map 1 "
        "-c:a libmp3lame -c:v png -disposition:v attached_pic");
    Rational duration = kUntouched;
    const auto cover = getMovieImage(music.c_str(), cover_at_ratio(0.5), &duration);
    ASSERT_NE(cover, nullptr);
    EXPECT_EQ(cover->width, 64);
    EXPECT_EQ(cover->height, 48);
    EXPECT_GT(cover->data[0][0], 240);
    EXPECT_LT(cover->data[0][1], 16);
    EXPECT_NEAR(static_cast<double>(duration.num), 2e6, 1e5);
}

TEST(CoverTest, ComesFromTheLastVideoStream) {
    const std::string path = fw_test::clip_two_video_two_audio();
    const ff::StreamCtx* const last = ff::stream_by_index(ff::getMovieInfo(path.c_str()), 1);
    const auto cover = getMovieImage(path.c_str(), cover_at({1, 1}), nullptr);
    expect_same(cover, decoded(last, {1, 1}, 1), path);
    EXPECT_EQ(cover->width, 160);
}

/// A file with two video streams of which the second cannot be decoded: raw pictures of 7 bits per
/// pixel, which there are none of.
std::string clip_with_broken_last_stream() {
    std::string bytes = fw_test::read_file(
        make_clip("two-raw.avi",
                  "-f lavfi -i testsrc2=size=160x120:rate=10:duration=1 -f lavfi -i "
                  "testsrc2=size=64x48:rate=10:duration=1 -map 0 -map 1 -c:v rawvideo -pix_fmt "
                  "bgr24"));
    const std::size_t first = bytes.find("strf");
    const std::size_t second = bytes.find("strf", first + 4);
    constexpr std::size_t to_bits = 8 + 14;  // chunk header, then the bitmap's size and planes
    if (second == std::string::npos || bytes[second + to_bits] != 24) {
        throw std::runtime_error("the clip is not laid out as expected");
    }
    bytes[second + to_bits] = 7;
    return fw_test::make_file("broken-last.avi", bytes);
}

TEST(CoverTest, IsEmptyIfTheLastVideoStreamFailsEvenIfAnotherOneOpens) {
    const std::string path = clip_with_broken_last_stream();
    const LogCapture log;
    const ff::MovieCtx* const movie = ff::getMovieInfo(path.c_str());
    ASSERT_NE(movie, nullptr);
    ASSERT_EQ(movie->nb_video, 2);
    EXPECT_NE(decoded(movie->streams[0], {0, 1}, 1), nullptr);
    Rational duration = kUntouched;
    EXPECT_EQ(getMovieImage(path.c_str(), cover_at({0, 1}), &duration), nullptr);
    EXPECT_EQ(duration.num, 1000000);
}

TEST(CoverTest, IsEmptyWhereAStreamWithoutRecordShiftsThePositions) {
    // The subtitle stream, number 1, is not SubRip and has no record: position 2, the number of the
    // second video stream, is that of the sound.
    const std::string events = fw_test::make_file(
        "cover.ass",
        "[Script Info]\nScriptType: v4.00+\n\n[Events]\nFormat: Layer, Start, End, Style, Name, "
        "MarginL, MarginR, MarginV, Effect, Text\nDialogue: 0,0:00:00.50,0:00:01.00,Default,,0,0,0,"
        ",First\n");
    const std::string path =
        make_clip("shifted.mkv",
                  "-f lavfi -i testsrc2=size=160x120:rate=10:duration=2 -i '" + events +
                      "' -f lavfi -i testsrc2=size=64x48:rate=10:duration=2 -f lavfi -i "
                      "sine=duration=2 -map 0 -map 1 -map 2 -map 3 -c:v mpeg4 -c:s ass -c:a flac");
    const ff::MovieCtx* const movie = ff::getMovieInfo(path.c_str());
    ASSERT_NE(movie, nullptr);
    ASSERT_EQ(movie->nb_video, 2);
    ASSERT_EQ(movie->video_index[1], 2);
    ASSERT_EQ(movie->streams[2]->type, ff::StreamType::Audio);
    Rational duration = kUntouched;
    const LogCapture log;
    EXPECT_EQ(getMovieImage(path.c_str(), cover_at({1, 1}), &duration), nullptr);
    EXPECT_NE(duration.num, kUntouched.num);
    EXPECT_EQ(log.count("no cover"), 1U);
}

TEST(CoverTest, IsEmptyIfItIsCancelled) {
    std::atomic<bool> cancelled{true};
    RequireMvImage request = cover_at({1, 1});
    request.abort_flag = &cancelled;
    const std::string path = fw_test::clip_h264();
    EXPECT_EQ(getMovieImage(path.c_str(), request, nullptr), nullptr);
    cancelled = false;
    EXPECT_NE(getMovieImage(path.c_str(), request, nullptr), nullptr);
}

TEST(CoverTest, OfDamagedFilesIsEmpty) {
    const fw_test::TempFile empty("empty.mp4");
    const fw_test::TempFile text("text.mp4", "no media at all, only words\n");
    const LogCapture log;
    EXPECT_EQ(getMovieImage(empty.path().c_str(), {}, nullptr), nullptr);
    EXPECT_EQ(getMovieImage(text.path().c_str(), {}, nullptr), nullptr);
}

TEST(CoverTest, IsTheSameFromEveryThread) {
    const std::string path = fw_test::clip_two_video_two_audio();
    const auto expected = getMovieImage(path.c_str(), cover_at({2, 1}, 80, 60), nullptr);
    ASSERT_NE(expected, nullptr);
    std::vector<std::thread> threads;
    std::atomic<int> same{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int k = 0; k < 10; ++k) {
                const auto cover = getMovieImage(path.c_str(), cover_at({2, 1}, 80, 60), nullptr);
                same += cover != nullptr && pixels_of(*cover) == pixels_of(*expected) ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(same, 40);
}

TEST(CoverTest, OfEveryFileOfTheSharedCollectionIsThatOfItsStream) {
    const std::vector<std::string> names = fw_test::shared_media_names();
    if (names.empty()) {
        GTEST_SKIP() << "the shared collection is missing";
    }
    const LogCapture log;
    int covers = 0;
    for (const std::string& name : names) {
        if (name.rfind("long-", 0) == 0) {
            continue;  // many seconds of decoding under a sanitizer
        }
        const std::string path = fw_test::shared_media(name);
        const ff::MovieCtx* const movie = ff::getMovieInfo(path.c_str());
        Rational duration = kUntouched;
        RequireMvImage request = cover_at_ratio(0.5);
        request.max_width = 320;
        const auto cover = getMovieImage(path.c_str(), request, &duration);
        if (movie == nullptr) {
            EXPECT_EQ(cover, nullptr) << name;
            EXPECT_EQ(duration.num, kUntouched.num) << name;
            continue;
        }
        EXPECT_EQ(duration.num, movie->duration) << name;
        if (cover == nullptr) {
            continue;
        }
        ++covers;
        const int last = movie->video_index[movie->nb_video - 1];
        const ff::StreamCtx* const stream = movie->streams[last];
        const std::int64_t length = movie->duration == kUnknown ? 0 : movie->duration;
        expect_same(cover, decoded(stream, {length / 2, 1000000}, cover->divider), name);
    }
    EXPECT_GE(covers, 40);
}

}  // namespace
