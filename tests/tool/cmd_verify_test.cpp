#include "tests/support/media.h"
#include "tests/tool/tool_run.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using fw_test::lines_of;
using fw_test::run_tool;
using fw_test::ToolProcess;
using fw_test::ToolResult;
using nlohmann::json;

std::vector<json> verify(const std::string& clip) {
    const ToolResult result = run_tool({"verify", clip, "--json", "--requests", "20"});
    EXPECT_EQ(result.status, 0) << result.out << result.errors;
    EXPECT_EQ(result.errors, "");
    return result.json();
}

void expect_no_difference(const json& stream) {
    EXPECT_EQ(stream.at("compared"), 60) << stream;  // at random, backwards, from threads
    EXPECT_EQ(stream.at("differ"), 0) << stream;
    EXPECT_TRUE(stream.at("first").is_null()) << stream;
    EXPECT_EQ(stream.at("complete"), true) << stream;
}

TEST(CmdVerifyTest, FindsEveryPictureOfGoodClips) {
    struct Clip {
        std::string path;
        int pictures;
    };

    for (const Clip& clip : {Clip{fw_test::clip_h264(), 120}, Clip{fw_test::clip_mpeg2_ts(), 120},
                             Clip{fw_test::clip_mpeg4_avi(), 100}, Clip{fw_test::clip_vp9(), 120},
                             Clip{fw_test::clip_png(), 1}}) {
        const std::vector<json> streams = verify(clip.path);
        ASSERT_EQ(streams.size(), 1U);
        EXPECT_EQ(streams[0].at("path"), clip.path);
        EXPECT_EQ(streams[0].at("type"), "video");
        EXPECT_EQ(streams[0].at("pictures"), clip.pictures) << clip.path;
        expect_no_difference(streams[0]);
    }
}

TEST(CmdVerifyTest, FindsPicturesAtIrregularTimes) {
    const std::string clip = fw_test::clip_variable_rate();
    const std::vector<json> streams = verify(clip);
    EXPECT_EQ(streams[0].at("pictures"), fw_test::reference_frames(clip, 0).size());
    expect_no_difference(streams[0]);
}

TEST(CmdVerifyTest, FindsPicturesWhereTicksAreFinerThanMicroseconds) {
    const std::string clip = fw_test::make_clip(
        "fine_ticks.264",
        "-f lavfi -i testsrc2=size=160x120:rate=30:duration=3 -c:v libx264 -bf 0 -g 30");
    const std::vector<json> streams = verify(clip);
    EXPECT_EQ(streams[0].at("pictures"), 90);
    expect_no_difference(streams[0]);
}

TEST(CmdVerifyTest, ComparesSoundToTheSample) {
    for (const std::string& clip : {fw_test::clip_pcm(), fw_test::clip_flac()}) {
        const std::vector<json> streams = verify(clip);
        ASSERT_EQ(streams.size(), 1U);
        EXPECT_EQ(streams[0].at("type"), "audio");
        EXPECT_EQ(streams[0].at("samples"), 3 * 44100);
        EXPECT_EQ(streams[0].at("shifted"), 0);
        EXPECT_EQ(streams[0].at("moved"), 0);
        EXPECT_EQ(streams[0].at("close"), 0);
        expect_no_difference(streams[0]);
    }
    for (const std::string& clip : {fw_test::clip_mp3(), fw_test::clip_opus()}) {
        const std::vector<json> streams = verify(clip);
        EXPECT_EQ(streams.at(0).at("shifted"), 0) << clip;
        expect_no_difference(streams[0]);
    }
}

TEST(CmdVerifyTest, SaysApartWhatADecoderCannotRepeat) {
    const std::string clip = fw_test::make_clip(
        "dithered.ac3", "-f lavfi -i sine=frequency=300:duration=20 -c:a ac3 -b:a 64k");
    const json stream = verify(clip).at(0);
    expect_no_difference(stream);
    EXPECT_LT(stream.at("max_deviation").get<double>(), 0.1);
}

TEST(CmdVerifyTest, SaysApartWhatTheFilesTicksShift) {
    const std::string clip =
        fw_test::make_clip("coarse_ticks.mkv",
                           "-f lavfi -i \"aevalsrc=0.3*sin(2*PI*(200+40*t)*t):s=44100:d=5\" "
                           "-c:a flac");
    const json stream = verify(clip).at(0);
    expect_no_difference(stream);
    EXPECT_GT(stream.at("shifted").get<int>(), 0);
    EXPECT_LE(stream.at("max_shift").get<int>(), 67);  // a tick and a half of 1 ms
}

TEST(CmdVerifyTest, ChecksEveryStreamOfEveryFile) {
    const ToolResult result = run_tool({"verify", fw_test::clip_two_video_two_audio(),
                                        "no-such-file", fw_test::clip_pcm(), "--requests", "4"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(lines_of(result.out).size(), 5U) << result.out;
    EXPECT_TRUE(result.has_one_error_line()) << result.errors;
}

TEST(CmdVerifyTest, ShowsProgressIfAsked) {
    const ToolResult result =
        run_tool({"verify", fw_test::clip_h264_long_gop(), "--requests", "4", "--progress"});
    EXPECT_EQ(result.status, 0);
    EXPECT_NE(result.errors.find("stream 0"), std::string::npos) << result.errors;
}

TEST(CmdVerifyTest, EndsCleanlyWhenItIsInterrupted) {
    ToolProcess tool(
        {"verify", fw_test::clip_h264_long_gop(), "--json", "--requests", "100000", "--progress"});
    tool.wait_for_errors();  // the first line of progress: it has begun
    tool.interrupt();
    const ToolResult result = tool.finish();
    EXPECT_EQ(result.status, 130);
    EXPECT_NE(result.errors.find("framewell: interrupted"), std::string::npos) << result.errors;
    for (const json& stream : result.json()) {
        EXPECT_EQ(stream.at("complete"), false);
        EXPECT_EQ(stream.at("differ"), 0);
    }
}

}  // namespace
