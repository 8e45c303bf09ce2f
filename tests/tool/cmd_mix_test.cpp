#include "tests/support/media.h"
#include "tests/tool/tool_run.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using fw_test::clip_flac;
using fw_test::clip_pcm;
using fw_test::read_file;
using fw_test::run_tool;
using fw_test::TemporaryFolder;
using fw_test::ToolResult;
using nlohmann::json;
using Samples = std::vector<std::int16_t>;

constexpr int kRate = 44100;  // of the clips, which last 3 s

Samples samples_of(const std::string& bytes) {
    Samples samples(bytes.size() / sizeof(std::int16_t));
    std::memcpy(samples.data(), bytes.data(), samples.size() * sizeof(std::int16_t));
    return samples;
}

struct MixTest : testing::Test {
    Samples sound_of(const std::string& clip) const {
        const ToolResult result =
            run_tool({"audio", clip, "--from", "0", "--to", "3", "-o", folder.path("one.raw")});
        EXPECT_EQ(result.status, 0) << result.errors;
        return samples_of(read_file(folder.path("one.raw")));
    }

    ToolResult mix(const std::vector<std::string>& arguments) const {
        std::vector<std::string> all{"mix", "--rate", std::to_string(kRate), "-o", out, "--json"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        return run_tool(all);
    }

    Samples mixed() const { return samples_of(read_file(out)); }

    TemporaryFolder folder;
    std::string out = folder.path("mix.raw");
};

// Adds `sound` from the stereo sample `at` on.
void add(Samples* to, const Samples& sound, std::size_t at, int volume) {
    to->resize(std::max(to->size(), 2 * at + sound.size()));
    for (std::size_t i = 0; i < sound.size(); ++i) {
        const int sum = (*to)[2 * at + i] + sound[i] * volume / 128;
        (*to)[2 * at + i] = static_cast<std::int16_t>(std::clamp(sum, -32768, 32767));
    }
}

TEST_F(MixTest, SumsFilesAtTheirVolumes) {
    const ToolResult result = mix({clip_pcm() + ":100", clip_flac() + "@0:33"});
    ASSERT_EQ(result.status, 0) << result.errors;
    Samples expected;
    add(&expected, sound_of(clip_pcm()), 0, 100);
    add(&expected, sound_of(clip_flac()), 0, 33);
    EXPECT_TRUE(mixed() == expected);
    const json answer = result.json().front();
    EXPECT_EQ(answer.at("nb_samples"), 3 * kRate);
    EXPECT_EQ(answer.at("seconds"), 3.0);
    int peak = 0;
    for (const std::int16_t sample : expected) {
        peak = std::max(peak, std::abs(int{sample}));
    }
    EXPECT_EQ(answer.at("peak"), peak / 32768.0);
}

// An offset within a range of 1/30 s, and between two samples: the nearest one is meant.
TEST_F(MixTest, AFileStartsAtItsOffset) {
    const ToolResult result = mix({clip_pcm() + ":64", clip_flac() + "@1.00001:64"});
    ASSERT_EQ(result.status, 0) << result.errors;
    Samples expected;
    add(&expected, sound_of(clip_pcm()), 0, 64);
    add(&expected, sound_of(clip_flac()), kRate, 64);
    EXPECT_TRUE(mixed() == expected);
    ASSERT_EQ(mix({clip_pcm() + ":64", clip_flac() + "@1001/2000"}).status, 0);
    expected.clear();
    add(&expected, sound_of(clip_pcm()), 0, 64);
    add(&expected, sound_of(clip_flac()), 22072, 128);
    EXPECT_TRUE(mixed() == expected);
}

TEST_F(MixTest, GivesAPartOfTheTimeLine) {
    ASSERT_EQ(mix({clip_pcm(), clip_flac() + "@0.75:0", "--from", "0.5", "--to", "2.01"}).status,
              0);
    const Samples whole = sound_of(clip_pcm());
    const Samples part = mixed();
    ASSERT_EQ(part.size(), 2U * 66591U);
    EXPECT_TRUE(std::equal(part.begin(), part.end(), whole.begin() + 2 * 22050));
}

TEST_F(MixTest, CountsClippedSamples) {
    const ToolResult result = mix({clip_pcm(), clip_pcm(), clip_pcm(), clip_pcm(), clip_pcm(),
                                   clip_pcm(), clip_pcm(), clip_pcm()});
    ASSERT_EQ(result.status, 0) << result.errors;
    const Samples samples = mixed();
    const auto clipped = std::count_if(samples.begin(), samples.end(),
                                       [](int s) { return s == 32767 || s == -32768; });
    EXPECT_EQ(result.json().front().at("clipped"), clipped);
    // Floats are not clipped, but told when they are beyond full scale.
    const ToolResult floats = mix({clip_pcm(), clip_pcm(), clip_pcm(), clip_pcm(), clip_pcm(),
                                   clip_pcm(), clip_pcm(), clip_pcm(), "--format", "flt"});
    ASSERT_EQ(floats.status, 0) << floats.errors;
    EXPECT_EQ(floats.json().front().at("peak").get<double>() > 1.0,
              floats.json().front().at("clipped").get<std::int64_t>() > 0);
}

TEST_F(MixTest, ANameWithTheSignsOfAnInputIsAFile) {
    const std::string odd = folder.path("a@1:64");
    std::filesystem::copy_file(clip_pcm(), odd);
    ASSERT_EQ(mix({odd}).status, 0);
    EXPECT_TRUE(mixed() == sound_of(clip_pcm()));
    ASSERT_EQ(mix({odd + ":64"}).status, 0);
    Samples expected;
    add(&expected, sound_of(clip_pcm()), 0, 64);
    EXPECT_TRUE(mixed() == expected);
}

TEST_F(MixTest, WrongUsageTouchesNothing) {
    for (const std::vector<std::string>& arguments : {std::vector<std::string>{clip_pcm() + ":129"},
                                                      {clip_pcm() + ":1000000"},
                                                      {clip_pcm(), "--from", "now"},
                                                      {clip_pcm(), "--to", "1/0"},
                                                      {clip_pcm(), "--from", "2", "--to", "1"},
                                                      {clip_pcm(), "--from", "3"},
                                                      {clip_pcm(), "--format", "u8"},
                                                      {clip_pcm(), "--channels", "0"}}) {
        const ToolResult result = mix(arguments);
        EXPECT_EQ(result.status, 2) << arguments.back();
        EXPECT_TRUE(result.has_one_error_line()) << result.errors;
        EXPECT_FALSE(std::filesystem::exists(out));
    }
    EXPECT_EQ(run_tool({"mix", clip_pcm()}).status, 2);
    EXPECT_EQ(run_tool({"mix", "-o", out}).status, 2);
}

TEST_F(MixTest, FilesThatCannotBeUsedAreToldByName) {
    for (const std::string& file : {folder.path("missing.wav"), fw_test::clip_png()}) {
        const ToolResult result = mix({clip_pcm(), file});
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(result.has_one_error_line()) << result.errors;
        EXPECT_NE(result.errors.find(file), std::string::npos) << result.errors;
        EXPECT_FALSE(std::filesystem::exists(out));
    }
}

TEST_F(MixTest, ShowsItsProgressWhereItIsAskedTo) {
    const ToolResult result = mix({clip_pcm(), "--progress"});
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_NE(result.errors.find("mixing"), std::string::npos) << result.errors;
    EXPECT_EQ(mix({clip_pcm()}).errors, "");
}

}  // namespace
