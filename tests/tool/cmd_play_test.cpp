#include "tests/support/media.h"
#include "tests/tool/tool_run.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using fw_test::lines_of;
using fw_test::run_tool;
using fw_test::ToolResult;
using nlohmann::json;

// 10 s at 25 pictures per second, every picture another one, and 48000 samples per second.
std::string ten_seconds() {
    return fw_test::make_clip("ten_seconds.mkv",
                              "-f lavfi -i testsrc2=size=160x120:rate=25:duration=10 "
                              "-f lavfi -i sine=frequency=440:sample_rate=48000:duration=10 "
                              "-c:v libx264 -pix_fmt yuv420p -g 50 -c:a flac");
}

json play(const std::vector<std::string>& more) {
    std::vector<std::string> arguments{"play", ten_seconds(), "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const ToolResult result = run_tool(arguments);
    EXPECT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    return result.json().front();
}

TEST(CmdPlayTest, CountsWhatAPlayerGets) {
    const json score = play({});
    EXPECT_EQ(score.at("pictures_asked"), 250);
    EXPECT_EQ(score.at("pictures_delivered"), 250);
    EXPECT_EQ(score.at("pictures_different"), 250);
    EXPECT_EQ(score.at("samples_asked"), 480000);
    EXPECT_EQ(score.at("samples_delivered"), 480000);
    EXPECT_EQ(score.at("interrupted"), false);
    EXPECT_GT(score.at("wall_s").get<double>(), 0);
    EXPECT_GT(score.at("pictures_per_second").get<double>(), 0);
    EXPECT_GT(score.at("slowest_picture_ms").get<double>(), 0);
    EXPECT_GT(score.at("memory_bytes").get<double>(), 0);
}

TEST(CmdPlayTest, WalksAPartAtAnotherRate) {
    const json score = play({"--from", "2", "--to", "4.5", "--rate", "50"});
    EXPECT_EQ(score.at("pictures_asked"), 125);
    EXPECT_EQ(score.at("pictures_delivered"), 125);
    EXPECT_EQ(score.at("pictures_different"), 63);  // each is shown twice, the last once
    EXPECT_EQ(score.at("samples_delivered"), 120000);
}

TEST(CmdPlayTest, PlaysFasterInTheTimeOfTheOutput) {
    const json score = play({"--speed", "2"});
    EXPECT_EQ(score.at("pictures_asked"), 125);
    EXPECT_EQ(score.at("pictures_different"), 125);
    EXPECT_EQ(score.at("samples_asked"), 240000);
}

TEST(CmdPlayTest, PlaysPicturesBackwardsWithoutSound) {
    const json score = play({"--reverse"});
    EXPECT_EQ(score.at("pictures_delivered"), 250);
    // Time 0 means the very end, where the last picture is still shown: it comes twice.
    EXPECT_EQ(score.at("pictures_different"), 249);
    EXPECT_EQ(score.at("samples_asked"), 0);
}

TEST(CmdPlayTest, PlaysFilesWithSoundOnlyAndStills) {
    const json sound = run_tool({"play", fw_test::clip_pcm(), "--json"}).json().front();
    EXPECT_EQ(sound.at("pictures_asked"), 0);
    EXPECT_EQ(sound.at("samples_delivered"), 3 * 44100);
    const json still =
        run_tool({"play", fw_test::clip_png(), "--json", "--to", "1"}).json().front();
    EXPECT_EQ(still.at("pictures_delivered"), 25);
    EXPECT_EQ(still.at("pictures_different"), 1);
}

TEST(CmdPlayTest, TellsPeopleInOneLineAndShowsProgressIfAsked) {
    const ToolResult silent = run_tool({"play", ten_seconds()});
    EXPECT_EQ(lines_of(silent.out).size(), 1U);
    EXPECT_NE(silent.out.find("250 of 250"), std::string::npos) << silent.out;
    EXPECT_EQ(silent.errors, "");
    const ToolResult asked = run_tool({"play", ten_seconds(), "--progress"});
    EXPECT_EQ(asked.status, 0);
    EXPECT_NE(asked.errors.find("of 10.0 s"), std::string::npos) << asked.errors;
    EXPECT_EQ(run_tool({"play", ten_seconds(), "--progress", "--quiet"}).errors, "");
}

TEST(CmdPlayTest, FailsForAFileThatHasNothingToPlay) {
    const ToolResult result = run_tool({"play", "no-such-file"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    const ToolResult backwards = run_tool({"play", fw_test::clip_pcm(), "--reverse"});
    EXPECT_EQ(backwards.status, 1);
    EXPECT_TRUE(backwards.has_one_error_line()) << backwards.errors;
}

}  // namespace
