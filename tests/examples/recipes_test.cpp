#include "tests/examples/program.h"
#include "tests/support/decoders.h"
#include "tests/support/sanitized.h"

#include <framewell/framewell.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
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

class RecipesTest : public ::testing::Test {
protected:
    /// A copy of `clip` under a name that nobody else has.
    std::string copy_of(const std::string& clip, const std::string& name) const {
        std::filesystem::copy_file(clip, folder.path(name),
                                   std::filesystem::copy_options::overwrite_existing);
        return folder.path(name);
    }

    fw_test::TemporaryFolder folder;
};

/// 75 pictures of 160x120 and their sound, both kept without a loss of the sound.
std::string clip_to_export() {
    return fw_test::make_clip("export.mkv",
                              "-f lavfi -i testsrc2=size=160x120:rate=25:duration=3 "
                              "-f lavfi -i \"aevalsrc=0.3*sin(2*PI*(200+300*t)*t)|"
                              "0.3*sin(2*PI*500*t):s=48000:d=3\" "
                              "-c:v libx264 -threads 1 -pix_fmt yuv420p -g 12 "
                              "-c:a flac -sample_fmt s16");
}

/// One second with tones of a half and a quarter of full scale, then one of silence.
std::string clip_of_levels() {
    return fw_test::make_clip("levels.wav",
                              "-f lavfi -i \"aevalsrc=0.5*sin(2*PI*1000*t)*lt(t\\,1)|"
                              "0.25*sin(2*PI*1000*t)*lt(t\\,1):s=48000:d=2\" -c:a pcm_s16le");
}

/// Sound that needs no conversion on its way to the drawing.
std::string clip_to_draw(const std::string& seconds) {
    return fw_test::make_clip(
        "draw-" + seconds + ".wav",
        "-f lavfi -i \"aevalsrc=0.2*t*sin(2*PI*70*t):s=8000:d=" + seconds + "\" -c:a pcm_s16le");
}

/// What a waveform of `columns` columns shows of bare 16-bit samples.
std::string drawing_of(const std::string& wave_path, int columns) {
    const auto samples = fw_test::samples_of(fw_test::wave_data(read_file(wave_path)));
    const auto all = static_cast<long long>(samples.size());
    std::string text;
    for (int column = 0; column < columns; ++column) {
        int low = 0;
        int high = 0;
        for (long long i = all * column / columns; i < all * (column + 1) / columns; ++i) {
            low = std::min<int>(low, samples[static_cast<std::size_t>(i)]);
            high = std::max<int>(high, samples[static_cast<std::size_t>(i)]);
        }
        text += std::to_string(low) + " " + std::to_string(high) + "\n";
    }
    return text;
}

}  // namespace

// gallery

TEST_F(RecipesTest, GalleryWritesTheCoverOfEachFile) {
    const std::vector<std::string> clips{fw_test::clip_small(), fw_test::clip_h264(),
                                         fw_test::clip_vp9(), fw_test::clip_jpeg()};
    std::string list;
    for (const std::string& clip : clips) {
        list += clip + "\n";
    }
    const auto result = run_program("gallery", {".", "3"}, folder, list);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.out, "4 files, 0 without a picture\n");

    ff::RequireMvImage request;
    request.ratio = 0.1;
    request.max_width = 160;
    request.max_height = 120;
    for (std::size_t i = 0; i < clips.size(); ++i) {
        const auto cover = ff::getMovieImage(clips[i].c_str(), request, nullptr);
        ASSERT_NE(cover, nullptr) << clips[i];
        const auto images = pam_images(read_file(folder.path(std::to_string(i + 1) + ".pam")));
        ASSERT_EQ(images.size(), 1U);
        EXPECT_TRUE(images[0] == image_of(*cover)) << clips[i];
    }
}

TEST_F(RecipesTest, GalleryGoesOnBehindAFileWithoutPicture) {
    const std::string list = fw_test::clip_aac() + "\nmissing.mp4\n" + fw_test::clip_small() + "\n";
    const auto result = run_program("gallery", {".", "1"}, folder, list);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "3 files, 2 without a picture\n");
    EXPECT_FALSE(std::filesystem::exists(folder.path("1.pam")));
    EXPECT_EQ(pam_images(read_file(folder.path("3.pam"))).size(), 1U);
}

TEST_F(RecipesTest, GalleryTakesNoMoreMemoryForTenTimesAsManyFiles) {
    if (fw_test::kSanitized) {
        GTEST_SKIP() << "a sanitizer keeps what is freed";
    }
    if (fw_test::kEmulated) {
        GTEST_SKIP() << "the emulator takes memory of its own";
    }
    std::string list;
    std::string short_list;
    for (int i = 0; i < 200; ++i) {  // each under a name of its own, so each is probed
        list += copy_of(fw_test::clip_small(), std::to_string(i) + ".mp4") + "\n";
        if (i == 19) {
            short_list = list;
        }
    }
    const auto few = run_program("gallery", {".", "2"}, folder, short_list);
    const auto many = run_program("gallery", {".", "2"}, folder, list);
    EXPECT_EQ(many.out, "200 files, 0 without a picture\n");
    // A probe record is about a kilobyte. Were pictures kept, of 75 KiB each, or decoders, of about
    // a thousand, this would show: 180 pictures are 13 MiB.
    EXPECT_LT(many.peak_memory, few.peak_memory + 12 * 1024) << few.peak_memory;
}

// filmstrip

TEST_F(RecipesTest, FilmstripShowsTheMiddleOfEachPart) {
    const std::string clip = fw_test::clip_h264();  // 4 s of 320x240
    const auto result = run_program("filmstrip", {clip, "5"}, folder);
    ASSERT_EQ(result.status, 0) << result.errors;
    const auto images = pam_images(result.out);
    ASSERT_EQ(images.size(), 1U);

    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(fw_test::stream_of(clip)));
    Image expected;
    std::vector<Image> tiles;
    for (const int tenths : {4, 12, 20, 28, 36}) {
        const auto tile =
            decoder.getVideoFrame(fw_test::picture_at({tenths, 10}, ff::PixelFormat::Rgba, 2));
        ASSERT_NE(tile, nullptr);
        tiles.push_back(image_of(*tile));
        expected.width += tile->width;
        expected.height = tile->height;
    }
    for (int y = 0; y < expected.height; ++y) {
        for (const Image& tile : tiles) {
            const auto row = std::size_t{4} * static_cast<std::size_t>(tile.width);
            expected.pixels += tile.pixels.substr(static_cast<std::size_t>(y) * row, row);
        }
    }
    EXPECT_EQ(images[0].width, expected.width);
    EXPECT_EQ(images[0].height, 120);
    EXPECT_TRUE(images[0] == expected);
}

TEST_F(RecipesTest, FilmstripOfAStillRepeatsIt) {
    const auto result = run_program("filmstrip", {fw_test::clip_png(), "2"}, folder);
    ASSERT_EQ(result.status, 0) << result.errors;
    const auto images = pam_images(result.out);
    ASSERT_EQ(images.size(), 1U);
    EXPECT_EQ(images[0].width, 320);
}

// export_loop

TEST_F(RecipesTest, ExportLoopWritesEveryPictureInOrder) {
    const auto result = run_program("export_loop", {clip_to_export(), "out.raw"}, folder);
    ASSERT_EQ(result.status, 0) << result.errors;
    const std::string header = "YUV4MPEG2 W160 H120 F25:1 Ip C420jpeg\n";
    ASSERT_EQ(result.out.substr(0, header.size()), header);

    const auto reference = fw_test::reference_frames(clip_to_export(), 0);
    ASSERT_EQ(reference.size(), 75U);
    const std::string mark = "FRAME\n";
    const std::size_t size = std::size_t{160} * 120 * 3 / 2;
    ASSERT_EQ(result.out.size(), header.size() + 75 * (mark.size() + size));
    std::size_t at = header.size();
    for (const auto& frame : reference) {
        EXPECT_EQ(result.out.substr(at, mark.size()), mark);
        EXPECT_EQ(fw_test::md5_hex(result.out.data() + at + mark.size(), size), frame.md5);
        at += mark.size() + size;
    }
}

TEST_F(RecipesTest, ExportLoopWritesAllSamples) {
    ASSERT_EQ(run_program("export_loop", {clip_to_export(), "out.raw"}, folder).status, 0);
    const std::string reference =
        fw_test::make_clip("export.raw", "-i '" + clip_to_export() + "' -map 0:a -f s16le");
    EXPECT_TRUE(read_file(folder.path("out.raw")) == read_file(reference));
}

TEST_F(RecipesTest, ExportLoopGoesWithoutSound) {
    const auto result = run_program("export_loop", {fw_test::clip_small(), "out.raw"}, folder);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(read_file(folder.path("out.raw")), "");
}

// level_meter

TEST_F(RecipesTest, LevelMeterReadsPeakAndRootMeanSquare) {
    const auto result = run_program("level_meter", {clip_of_levels()}, folder);
    EXPECT_EQ(result.status, 0) << result.errors;
    const auto lines = lines_in(result.out);
    ASSERT_EQ(lines.size(), 40U);  // 20 readings of two channels
    // A sine's root mean square is its amplitude through the root of two: 3.01 dB less.
    EXPECT_EQ(lines[0],
              "   0.0 s  channel 0  peak  -6.0 dB  rms  -9.0 dB  "
              "=========================================");
    EXPECT_EQ(lines[19],
              "   0.9 s  channel 1  peak -12.0 dB  rms -15.1 dB  "
              "======================================");
    EXPECT_EQ(lines[20], "   1.0 s  channel 0  peak -90.0 dB  rms -90.0 dB  ");
    EXPECT_EQ(lines[39], "   1.9 s  channel 1  peak -90.0 dB  rms -90.0 dB  ");
}

// waveform_cache

TEST_F(RecipesTest, WaveformCacheDrawsTheSamplesOfTheFile) {
    const std::string clip = copy_of(clip_to_draw("5"), "sound.wav");
    const auto result = run_program("waveform_cache", {clip, ".", "37"}, folder);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.out, drawing_of(clip, 37));
    EXPECT_EQ(result.errors, "decoding ...\n");
}

TEST_F(RecipesTest, WaveformCacheDecodesOnlyOnce) {
    const std::string clip = copy_of(clip_to_draw("5"), "sound.wav");
    ASSERT_EQ(run_program("waveform_cache", {clip, ".", "10"}, folder).status, 0);
    const auto result = run_program("waveform_cache", {clip, ".", "300"}, folder);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.out, drawing_of(clip, 300));
}

TEST_F(RecipesTest, WaveformCacheDecodesAFileThatHasChangedAnew) {
    const std::string clip = copy_of(clip_to_draw("5"), "sound.wav");
    ASSERT_EQ(run_program("waveform_cache", {clip, ".", "10"}, folder).status, 0);
    (void)copy_of(clip_to_draw("3"), "sound.wav");
    const auto result = run_program("waveform_cache", {clip, ".", "10"}, folder);
    EXPECT_EQ(result.errors, "decoding ...\n");
    EXPECT_EQ(result.out, drawing_of(clip, 10));
}

TEST_F(RecipesTest, WaveformCacheLeavesNothingCompleteThatIsNot) {
    const auto result =
        run_program("waveform_cache", {fw_test::clip_small(), ".", "10"}, folder);  // no sound
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(std::filesystem::is_empty(folder.path("")));
}
