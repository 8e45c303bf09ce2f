#include "tests/examples/program.h"
#include "tests/support/decoders.h"

#include <framewell/framewell.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

using fw_test::lines_in;
using fw_test::read_file;
using fw_test::run_program;
using fw_test::samples_of;

/// 250 pictures of 1/25 s and a tone.
std::string clip() {
    return fw_test::make_clip("getting_started.mp4",
                              "-f lavfi -i testsrc2=size=320x180:rate=25:duration=10 "
                              "-f lavfi -i sine=frequency=440:sample_rate=48000:duration=10 "
                              "-c:v mpeg4 -threads 1 -pix_fmt yuv420p -c:a aac");
}

/// 6 s of 16-bit stereo at 48000 Hz; loud enough that two of them reach the ends of the range.
std::string clip_loud(const std::string& frequency) {
    return fw_test::make_clip("loud-" + frequency + ".wav", "-f lavfi -i \"aevalsrc=0.9*sin(2*PI*" +
                                                                frequency + "*t)|0.8*sin(2*PI*3*" +
                                                                frequency +
                                                                "*t):s=48000:d=6\" -c:a pcm_s16le");
}

class GettingStartedTest : public ::testing::Test {
protected:
    fw_test::ProgramResult run(const std::string& step, const std::vector<std::string>& arguments) {
        return run_program("getting_started/" + step, arguments, folder);
    }

    fw_test::TemporaryFolder folder;
};

}  // namespace

TEST_F(GettingStartedTest, ProbePrintsLengthAndStreams) {
    const auto result = run("probe", {clip()});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.out, "10.0 seconds\npictures of 320x180 pixels\nsound of 48000 Hz\n");
}

TEST_F(GettingStartedTest, PictureWritesThePictureThatCoversTheTime) {
    const auto result = run("picture", {clip()});
    EXPECT_EQ(result.status, 0) << result.errors;
    // Pictures change every 0.04 s: the one of 2.48 s is shown at 2.5 s.
    EXPECT_EQ(result.out, "320x180 pixels, shown from 2.48 s on\n");

    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(fw_test::stream_of(clip())));
    const auto picture =
        decoder.getVideoFrame(fw_test::picture_at({62, 25}, ff::PixelFormat::Rgba));
    ASSERT_NE(picture, nullptr);
    const std::string rgba = fw_test::image_of(*picture).pixels;
    std::string expected = "P6 320 180 255\n";
    for (std::size_t i = 0; i < rgba.size(); ++i) {
        if (i % 4 != 3) {
            expected += rgba[i];
        }
    }
    EXPECT_TRUE(read_file(folder.path("picture.ppm")) == expected);
}

TEST_F(GettingStartedTest, PictureHasTheColourOfTheMovie) {
    // Y 126 without chroma is (126 - 16) * 255 / 219 = 128.08 of red, green and blue.
    const std::string gray = fw_test::clip_flat({126, 128, 128}, "64x48");
    ASSERT_EQ(run("picture", {gray}).status, 0);
    const std::string file = read_file(folder.path("picture.ppm"));
    EXPECT_EQ(file.substr(0, 13), "P6 64 48 255\n");
    ASSERT_EQ(file.size(), 13 + std::size_t{64} * 48 * 3);
    for (std::size_t i = 13; i < file.size(); ++i) {
        // The scaler computes in fixed point, and other processors round at other places.
        ASSERT_NEAR(static_cast<unsigned char>(file[i]), 128, 2) << i;
    }
}

TEST_F(GettingStartedTest, SoundWritesTheSamplesOfTwoSeconds) {
    // Sound that is as it was written: what comes out is known without decoding.
    const std::string source = clip_loud("300");
    const auto result = run("sound", {source});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.out, "96000 samples of each channel\n");

    const std::string wave = read_file(folder.path("sound.wav"));
    EXPECT_EQ(wave.size(), 44U + 96000 * 4);
    EXPECT_EQ(wave.substr(0, 4) + wave.substr(8, 8), "RIFFWAVEfmt ");
    const std::string all = fw_test::wave_data(read_file(source));
    EXPECT_TRUE(fw_test::wave_data(wave) == all.substr(96000 * 4, 96000 * 4));
}

TEST_F(GettingStartedTest, SoundIsAWaveFileThatOthersRead) {
    ASSERT_EQ(run("sound", {clip()}).status, 0);
    const ff::MovieCtx* const movie = ff::getMovieInfo(folder.path("sound.wav").c_str());
    ASSERT_NE(movie, nullptr);
    EXPECT_EQ(movie->duration, 2000000);
    EXPECT_EQ(movie->streams[0]->sample_rate, 48000);
    EXPECT_EQ(movie->streams[0]->channels, 2);
}

TEST_F(GettingStartedTest, ScrubEndsAtThePictureWherePlayheadStops) {
    const auto result = run("scrub", {clip()});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.out, "stopped at the picture of 5.00 s\n");
    const std::vector<std::string> errors = fw_test::lines_in(result.errors);
    ASSERT_FALSE(errors.empty());  // FFmpeg's remarks on the scaler may come first
    int answered = 0;
    ASSERT_EQ(std::sscanf(errors.back().c_str(), "%d of 500 requests", &answered), 1);
    EXPECT_GE(answered, 1);
    EXPECT_LE(answered, 500);
}

TEST_F(GettingStartedTest, ReversePrintsPicturesFromTheEndOn) {
    const auto result = run("reverse", {clip()});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.out,
              "at 0.1 s the picture of 9.88 s\n"
              "at 0.2 s the picture of 9.80 s\n"
              "at 0.3 s the picture of 9.68 s\n"
              "at 0.4 s the picture of 9.60 s\n"
              "at 0.5 s the picture of 9.48 s\n");
}

TEST_F(GettingStartedTest, MixAddsTheSecondFileAtHalfTheVolume) {
    const auto result = run("mix", {clip_loud("300"), clip_loud("410")});
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.out, "240000 samples of each channel\n");

    const auto voice = samples_of(fw_test::wave_data(read_file(clip_loud("300"))));
    const auto music = samples_of(fw_test::wave_data(read_file(clip_loud("410"))));
    std::vector<std::int16_t> expected(480000);
    for (std::size_t i = 0; i < expected.size(); ++i) {
        expected[i] =
            static_cast<std::int16_t>(std::clamp(voice[i] + music[i] * 64 / 128, -32768, 32767));
    }
    EXPECT_TRUE(samples_of(read_file(folder.path("mix.raw"))) == expected);
}
