#include "tests/examples/program.h"
#include "tests/support/decoders.h"

#include <framewell/framewell.h>

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using fw_test::Image;
using fw_test::image_of;
using fw_test::lines_in;
using fw_test::pam_images;
using fw_test::read_file;
using fw_test::run_program;

class ExamplesTest : public ::testing::Test {
protected:
    fw_test::TemporaryFolder folder;
};

/// What the library answers for the first video stream of a file.
Image answer(const std::string& clip, const ff::Rational& time, int divider = 1) {
    ff::FFDecoder decoder;
    if (!decoder.open(fw_test::stream_of(clip))) {
        return {};
    }
    const auto picture =
        decoder.getVideoFrame(fw_test::picture_at(time, ff::PixelFormat::Rgba, divider));
    return picture ? image_of(*picture) : Image();
}

}  // namespace

TEST_F(ExamplesTest, ProbePrintsEveryStream) {
    const std::string clip = fw_test::clip_video_audio();
    const auto result = run_program("probe", {clip}, folder);
    EXPECT_EQ(result.status, 0) << result.errors;
    const auto lines = lines_in(result.out);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].rfind(clip + ": 4", 0), 0U) << lines[0];
    EXPECT_EQ(lines[1], "  stream 0: video, 320x240, 30/1 pictures per second, tick of 1/15360 s");
    EXPECT_EQ(lines[2], "  stream 1: audio, 44100 Hz, 2 channels, tick of 1/44100 s");
}

TEST_F(ExamplesTest, ProbeTellsStillsAndSubtitles) {
    const auto result = run_program("probe", {fw_test::clip_png(), fw_test::clip_subrip()}, folder);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.out.find("video, 320x240, a still"), std::string::npos) << result.out;
    EXPECT_NE(result.out.find("stream 1: subtitles, 3 events"), std::string::npos) << result.out;
}

TEST_F(ExamplesTest, FrameAtWritesThePictureAtTheTime) {
    const std::string clip = fw_test::clip_h264();
    const auto result = run_program("frame_at", {clip, "1234"}, folder);
    EXPECT_EQ(result.status, 0) << result.errors;
    const auto images = pam_images(result.out);
    ASSERT_EQ(images.size(), 1U);
    EXPECT_TRUE(images[0] == answer(clip, {37, 30}));  // 37/30 s is 1.2333, 38/30 s is 1.2667
}

TEST_F(ExamplesTest, ThumbnailsAreSpreadOverTheFile) {
    const std::string clip = fw_test::clip_h264();
    const auto result = run_program("thumbnails", {clip, "4"}, folder);
    EXPECT_EQ(result.status, 0) << result.errors;
    const auto images = pam_images(result.out);
    ASSERT_EQ(images.size(), 4U);
    for (int i = 0; i < 4; ++i) {
        EXPECT_TRUE(images[static_cast<std::size_t>(i)] == answer(clip, {i, 1}, 2)) << i;
    }
}

TEST_F(ExamplesTest, CoverWritesAPictureBesideTheFile) {
    const std::string clip = folder.path("clip.mp4");
    std::filesystem::copy_file(fw_test::clip_h264(), clip);
    const auto result = run_program("cover", {clip}, folder);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.out, clip + ": 4.000 s\n");
    const auto images = pam_images(read_file(clip + ".pam"));
    ASSERT_EQ(images.size(), 1U);
    EXPECT_TRUE(images[0] == answer(clip, {4, 10}));  // 320x240 fits the box as it is
}

TEST_F(ExamplesTest, CoverTellsWhichFileHasNone) {
    const std::string clip = folder.path("sound.wav");
    std::filesystem::copy_file(fw_test::clip_pcm(), clip);
    const auto result = run_program("cover", {clip}, folder);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, clip + ": 3.000 s\n");
    EXPECT_NE(result.errors.find(clip + ": no cover\n"), std::string::npos) << result.errors;
}

TEST_F(ExamplesTest, ScrubEndsAtTheLastPlace) {
    const auto result = run_program("scrub", {fw_test::clip_h264()}, folder);
    EXPECT_EQ(result.status, 0) << result.errors;
    const auto lines = lines_in(result.out);
    ASSERT_GE(lines.size(), 2U);
    // The place of step 499 of 500 is 3.992 s, and the picture of 119/30 s is shown there.
    EXPECT_EQ(lines[lines.size() - 2], "at step 499 the picture of 3.967 s");
    EXPECT_EQ(lines.back(), std::to_string(lines.size() - 1) + " of 500 requests were answered");
}

TEST_F(ExamplesTest, EffectsPlaysBackwardsAndFaster) {
    const auto result = run_program("effects", {fw_test::clip_video_audio()}, folder);
    EXPECT_EQ(result.status, 0) << result.errors;
    const auto lines = lines_in(result.out);
    ASSERT_EQ(lines.size(), 21U);
    for (int i = 1; i < 20; ++i) {  // 3 pictures per step; at 0 nothing is left behind the end
        char expected[80];
        (void)std::snprintf(expected, sizeof expected, "at %.1f s the picture of %.3f s", i / 10.0,
                            4.0 - i / 10.0);
        EXPECT_EQ(lines[static_cast<std::size_t>(i)], expected);
    }
    EXPECT_EQ(lines[0], "at 0.0 s the picture of 3.967 s");
    int samples = 0;
    int rate = 0;
    ASSERT_EQ(std::sscanf(lines[20].c_str(), "%d samples for 2 seconds of %d Hz", &samples, &rate),
              2);
    EXPECT_EQ(rate, 44100);
    EXPECT_LE(samples, 2 * 44100);
    EXPECT_GT(samples, 44100);  // the filter keeps some sound back, a fraction of a second
}

TEST_F(ExamplesTest, MixdownAddsTheOthersAtHalfTheVolume) {
    const std::string first = fw_test::make_clip(
        "mixdown-1.wav",
        "-f lavfi -i \"aevalsrc=0.6*sin(2*PI*90*t)|0.5*sin(2*PI*130*t):s=48000:d=4\" "
        "-c:a pcm_s16le");
    const std::string second = fw_test::make_clip(
        "mixdown-2.wav",
        "-f lavfi -i \"aevalsrc=0.9*sin(2*PI*50*t)|0.9*sin(2*PI*70*t):s=48000:d=2\" "
        "-c:a pcm_s16le");
    const auto result = run_program("mixdown", {"out.raw", first, second}, folder);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(lines_in(result.out).size(), 20U);  // two readings per second

    const auto loud = fw_test::samples_of(fw_test::wave_data(read_file(first)));
    const auto soft = fw_test::samples_of(fw_test::wave_data(read_file(second)));
    ASSERT_EQ(loud.size(), 384000U);
    ASSERT_EQ(soft.size(), 192000U);
    std::vector<std::int16_t> expected(960000);  // ten seconds; behind the files there is silence
    for (std::size_t i = 0; i < loud.size(); ++i) {
        const int other = i < soft.size() ? soft[i] * 64 / 128 : 0;
        const int sum = loud[i] + other;
        expected[i] = static_cast<std::int16_t>(sum > 32767 ? 32767 : sum < -32768 ? -32768 : sum);
    }
    EXPECT_TRUE(fw_test::samples_of(read_file(folder.path("out.raw"))) == expected);
}
