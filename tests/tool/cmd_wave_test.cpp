#include "tests/support/media.h"
#include "tests/tool/drawn_pictures.h"
#include "tests/tool/tool_run.h"
#include "tools/framewell/sound_levels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

namespace {

using tool::Level;
using tool::SoundLevels;

std::vector<float> ramp(std::size_t count) {
    std::vector<float> samples;
    for (std::size_t i = 0; i < count; ++i) {
        samples.push_back(static_cast<float>(i) / static_cast<float>(count));
    }
    return samples;
}

TEST(SoundLevelsTest, GivesTheExtremesOfEachColumn) {
    SoundLevels levels(2, 64);
    // Left rises, right falls.
    std::vector<float> samples;
    for (const float value : ramp(32)) {
        samples.push_back(value);
        samples.push_back(-value);
    }
    levels.add(samples.data(), 32);
    const std::vector<Level> left = levels.columns(0, 4);
    const std::vector<Level> right = levels.columns(1, 4);
    ASSERT_EQ(left.size(), 4U);
    for (std::size_t i = 0; i < 4; ++i) {
        EXPECT_EQ(left[i].low, static_cast<float>(8 * i) / 32);
        EXPECT_EQ(left[i].high, static_cast<float>(8 * i + 7) / 32);
        EXPECT_EQ(right[i].high, -left[i].low);
        EXPECT_EQ(right[i].low, -left[i].high);
    }
}

TEST(SoundLevelsTest, GivesTheRootOfTheMeanSquare) {
    SoundLevels levels(1, 64);
    const std::vector<float> samples{0.5F, -0.5F, 0.5F, -0.5F, 0, 0, 1, 0};
    levels.add(samples.data(), 8);
    EXPECT_EQ(levels.columns(0, 2)[0].rms, 0.5F);
    EXPECT_EQ(levels.columns(0, 2)[1].rms, 0.5F);
    EXPECT_EQ(levels.columns(0, 1)[0].rms, 0.5F);
}

TEST(SoundLevelsTest, KeepsExtremesInLittleMemoryHoweverLongTheSoundIs) {
    for (const std::size_t count : {63U, 64U, 65U, 128U, 1000U, 100000U}) {
        SoundLevels pieces(1, 64);
        SoundLevels whole(1, 64);
        const std::vector<float> samples = ramp(count);
        whole.add(samples.data(), count);
        for (std::size_t i = 0; i < count; i += 7) {
            pieces.add(samples.data() + i, std::min<std::size_t>(7, count - i));
        }
        EXPECT_EQ(whole.samples(), static_cast<std::int64_t>(count));
        const std::vector<Level> a = whole.columns(0, 4);
        const std::vector<Level> b = pieces.columns(0, 4);
        for (std::size_t i = 0; i < 4; ++i) {
            EXPECT_EQ(a[i].low, b[i].low);
            EXPECT_EQ(a[i].high, b[i].high);
            // A bucket is at most a 32th of the sound.
            EXPECT_NEAR(a[i].low, static_cast<double>(i) / 4, 1.0 / 32 + 1.0 / 63) << count;
            EXPECT_NEAR(a[i].high, static_cast<double>(i + 1) / 4, 1.0 / 32 + 1.0 / 63) << count;
        }
        EXPECT_EQ(a[0].low, 0);
        EXPECT_EQ(a[3].high, samples.back());
    }
}

TEST(SoundLevelsTest, ShowsASampleInSeveralColumnsIfThereAreMoreOfThem) {
    SoundLevels levels(1, 64);
    const std::vector<float> samples{0.25F, -0.5F};
    levels.add(samples.data(), 2);
    const std::vector<Level> columns = levels.columns(0, 6);
    for (std::size_t i = 0; i < 6; ++i) {
        EXPECT_NE(columns[i].rms, 0) << i;
    }
    EXPECT_EQ(columns[0].high, 0.25F);
    EXPECT_EQ(columns[5].low, -0.5F);
}

TEST(SoundLevelsTest, TakesNoNumbersForSilence) {
    SoundLevels levels(1, 64);
    const std::vector<float> samples{std::numeric_limits<float>::quiet_NaN(),
                                     std::numeric_limits<float>::infinity(), 0.5F};
    levels.add(samples.data(), 3);
    const Level level = levels.columns(0, 1)[0];
    EXPECT_EQ(level.low, 0);
    EXPECT_EQ(level.high, 0.5F);
    EXPECT_TRUE(std::isfinite(level.rms));
}

TEST(SoundLevelsTest, OfNoSoundAreNothing) {
    const SoundLevels levels(1, 64);
    const std::vector<Level> columns = levels.columns(0, 3);
    ASSERT_EQ(columns.size(), 3U);
    EXPECT_EQ(columns[1].high, 0);
}

using fw_test::Drawn;
using fw_test::make_clip;
using fw_test::read_drawn;
using fw_test::run_tool;
using fw_test::TemporaryFolder;
using fw_test::ToolResult;

/// Left: a second of silence, then one of a tone at half scale. Right: silence.
std::string clip_late_tone() {
    return make_clip("late-tone.wav",
                     "-f lavfi -i aevalsrc='0.5*sin(2*PI*1000*t)*floor(t)|0':s=44100:d=2");
}

/// How many pixels of a column from row `top` to `bottom` are of the wave, which is blue.
std::size_t wave_pixels(const Drawn& wave, std::size_t x, std::size_t top, std::size_t bottom) {
    std::size_t count = 0;
    for (std::size_t y = top; y < bottom; ++y) {
        count += wave.at(x, y)[2] > 150 ? 1U : 0U;
    }
    return count;
}

TEST(CmdWaveTest, DrawsEachChannelOverItsTime) {
    const TemporaryFolder folder;
    // Too low for times below, so lanes are 49 high.
    const ToolResult result = run_tool({"wave", clip_late_tone(), "--width", "200", "--height",
                                        "100", "-o", folder.path("w.png")});
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.out.find("2.000000 s, channels: 2 -> "), std::string::npos) << result.out;
    const Drawn wave = read_drawn(folder.path("w.png"));
    EXPECT_EQ(wave.width, 200U);
    EXPECT_EQ(wave.height, 100U);
    for (const std::size_t x : {5U, 50U, 95U}) {
        EXPECT_EQ(wave_pixels(wave, x, 0, 49), 0U) << x;
    }
    for (const std::size_t x : {105U, 150U, 195U}) {
        // Half of the lane: 0.5 up and 0.5 down of (49 / 2 - 1) each.
        EXPECT_NEAR(static_cast<double>(wave_pixels(wave, x, 0, 49)), 24, 2) << x;
        EXPECT_EQ(wave_pixels(wave, x, 51, 100), 0U) << x;
    }
    // The inner band of a sine is lighter, and 1 / sqrt(2) of its height.
    std::size_t light = 0;
    for (std::size_t y = 0; y < 49; ++y) {
        light += wave.at(150, y)[0] > 120 ? 1U : 0U;
    }
    EXPECT_NEAR(static_cast<double>(light), 24 / std::sqrt(2.0), 2);
}

TEST(CmdWaveTest, HasTimesBelowIfThereIsRoom) {
    const TemporaryFolder folder;
    const ToolResult result = run_tool({"wave", clip_late_tone(), "--width", "600", "--height",
                                        "200", "-o", folder.path("w.png")});
    ASSERT_EQ(result.status, 0) << result.errors;
    const Drawn wave = read_drawn(folder.path("w.png"));
    int bright = 0;
    for (std::size_t y = 185; y < 200; ++y) {
        for (std::size_t x = 0; x < 600; ++x) {
            bright += wave.at(x, y)[0] > 100 ? 1 : 0;
        }
    }
    EXPECT_GT(bright, 50);
}

TEST(CmdWaveTest, DrawsAsManyChannelsAsFit) {
    const std::string six =
        make_clip("six.wav", "-f lavfi -i aevalsrc='0.9*sin(800*t)|0|0|0|0|0':c=5.1:s=8000:d=1");
    const TemporaryFolder folder;
    for (const char* const height : {"300", "32"}) {
        const ToolResult result =
            run_tool({"wave", six, "--height", height, "-o", folder.path("w.png")});
        EXPECT_EQ(result.status, 0) << result.errors;
        const Drawn wave = read_drawn(folder.path("w.png"));
        EXPECT_EQ(std::to_string(wave.height), height);
        EXPECT_GT(wave_pixels(wave, 600, 0, 32), 3U) << height;
    }
}

TEST(CmdWaveTest, RefusesWhatItCannotDraw) {
    const TemporaryFolder folder;
    const std::string out = folder.path("w.png");
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"wave", clip_late_tone()},
             {"wave", clip_late_tone(), "-o", folder.path("w.wav")},
             {"wave", clip_late_tone(), "-o", out, "--width", "0"},
             {"wave", clip_late_tone(), "-o", out, "--height", "15"},
             {"wave", clip_late_tone(), "-o", out, "--height", "high"}}) {
        const ToolResult result = run_tool(words);
        EXPECT_EQ(result.status, 2) << words.back();
        EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    }
    for (const std::string& file : {fw_test::clip_png(), folder.path("missing.wav")}) {
        const ToolResult result = run_tool({"wave", file, "-o", out});
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    }
    EXPECT_FALSE(std::filesystem::exists(out));
}

}  // namespace
