#include "tests/support/media.h"
#include "tests/tool/tool_run.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using fw_test::lines_of;
using fw_test::run_tool;
using fw_test::TemporaryFolder;
using fw_test::ToolResult;
using nlohmann::json;

TEST(CmdProbeTest, DescribesPicturesAndSoundAsJson) {
    const std::string path = fw_test::clip_two_video_two_audio();
    const ToolResult result = run_tool({"probe", "--json", path});
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    ASSERT_EQ(result.json().size(), 1U);
    const json movie = result.json().front();
    EXPECT_EQ(movie.at("path"), path);
    EXPECT_EQ(movie.at("start_time_us"), 0);
    EXPECT_GE(movie.at("duration_us").get<std::int64_t>(), 3000000);
    EXPECT_GT(movie.at("bit_rate").get<std::int64_t>(), 0);
    EXPECT_EQ(movie.at("video_index"), json({0, 1}));
    EXPECT_EQ(movie.at("audio_index"), json({2, 3}));
    EXPECT_EQ(movie.at("subtitle_index"), json::array());
    ASSERT_EQ(movie.at("streams").size(), 4U);

    const json& video = movie.at("streams").at(1);
    EXPECT_EQ(video.at("index"), 1);
    EXPECT_EQ(video.at("type"), "video");
    EXPECT_EQ(video.at("start_time"), 0);
    EXPECT_EQ(video.at("width"), 160);
    EXPECT_EQ(video.at("height"), 120);
    EXPECT_EQ(video.at("codec_pix_fmt"), "yuv420p");
    EXPECT_EQ(video.at("hw_pix_fmt"), nullptr);
    EXPECT_EQ(video.at("pix_fmt"), "yuv420p");
    EXPECT_EQ(video.at("rotation"), 0);
    EXPECT_EQ(video.at("single_frame"), false);
    EXPECT_EQ(video.at("sample_aspect_ratio"), "1/1");
    EXPECT_EQ(video.at("frame_rate"), "25/1");
    EXPECT_EQ(video.count("channels"), 0U);

    const json& audio = movie.at("streams").at(3);
    EXPECT_EQ(audio.at("type"), "audio");
    EXPECT_EQ(audio.at("time_base"), "1/48000");
    EXPECT_EQ(audio.at("channels"), 1);
    EXPECT_EQ(audio.at("sample_rate"), 48000);
    EXPECT_EQ(audio.at("sample_fmt"), "fltp");
    EXPECT_EQ(audio.at("channel_layout"), 4);
    EXPECT_EQ(audio.count("width"), 0U);
}

TEST(CmdProbeTest, GivesTheTextsOfSubtitles) {
    const ToolResult result = run_tool({"probe", "--json", fw_test::clip_subrip()});
    ASSERT_EQ(result.status, 0) << result.errors;
    const json movie = result.json().front();
    ASSERT_EQ(movie.at("subtitle_index").size(), 1U);
    const json& stream = movie.at("streams").back();
    EXPECT_EQ(stream.at("type"), "subtitle");
    ASSERT_EQ(stream.at("subtitles").size(), 3U);
    for (const json& event : stream.at("subtitles")) {
        EXPECT_EQ(event.at("start_us"), event.at("end_us"));
        EXPECT_NE(event.at("text"), "");
    }
}

TEST(CmdProbeTest, ShowsWhatIsUnknownAsNull) {
    const json movie = run_tool({"probe", "--json", fw_test::clip_png()}).json().front();
    EXPECT_EQ(movie.at("start_time_us"), nullptr);
    EXPECT_EQ(movie.at("bit_rate"), nullptr);
    EXPECT_EQ(movie.at("streams").at(0).at("start_time"), nullptr);
    EXPECT_EQ(movie.at("streams").at(0).at("duration"), nullptr);
    EXPECT_EQ(movie.at("streams").at(0).at("single_frame"), true);
}

TEST(CmdProbeTest, TriesAllFilesAndFailsIfOneCannotBeProbed) {
    const std::string text = fw_test::make_file("text.mp4", "this is no movie");
    const ToolResult result =
        run_tool({"probe", "--json", text, fw_test::clip_png(), "no-such-file"});
    EXPECT_EQ(result.status, 1);
    ASSERT_EQ(result.json().size(), 3U);
    EXPECT_EQ(result.json()[0].at("path"), text);
    EXPECT_NE(result.json()[0].at("error"), "");
    EXPECT_EQ(result.json()[0].count("streams"), 0U);
    EXPECT_EQ(result.json()[1].count("error"), 0U);
    EXPECT_EQ(result.json()[2].at("path"), "no-such-file");
    EXPECT_EQ(lines_of(result.errors).size(), 2U) << result.errors;
}

TEST(CmdProbeTest, SaysWhatIsWrongWithAPath) {
    const TemporaryFolder folder;
    EXPECT_NE(run_tool({"probe", folder.path("nothing")}).errors.find("check the path"),
              std::string::npos);
    EXPECT_NE(run_tool({"probe", folder.path("")}).errors.find("directory"), std::string::npos);
    EXPECT_NE(run_tool({"probe", fw_test::make_file("empty.mp4", "")}).errors.find("empty"),
              std::string::npos);
    EXPECT_NE(run_tool({"probe", "/dev/null"}).errors.find("no regular file"), std::string::npos);
    EXPECT_TRUE(run_tool({"probe", ""}).has_one_error_line());
}

TEST(CmdProbeTest, StandsAPathThatIsNotUtf8AndHasNewlines) {
    const ToolResult result = run_tool({"probe", "--json", "a\nb\xff\x1b[31m"});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    ASSERT_EQ(result.json().size(), 1U);
    EXPECT_EQ(result.json().front().at("path"), "a\nb\xef\xbf\xbd\x1b[31m");
}

TEST(CmdProbeTest, PrintsARowPerStreamForPeople) {
    const ToolResult result = run_tool({"probe", fw_test::clip_two_video_two_audio()});
    ASSERT_EQ(result.status, 0);
    ASSERT_EQ(lines_of(result.out).size(), 6U) << result.out;
    EXPECT_NE(lines_of(result.out)[3].find("160x120 yuv420p, 25 fps"), std::string::npos);
    EXPECT_NE(lines_of(result.out)[5].find("48000 Hz, 1 channel, fltp"), std::string::npos);
}

TEST(CmdProbeTest, ShowsTheLogOnlyWhenAskedAndNeverAmongTheResults) {
    const std::string path = fw_test::clip_raw_h264();  // its duration has to be counted
    const ToolResult plain = run_tool({"probe", "--json", path});
    const ToolResult verbose = run_tool({"probe", "--json", "-v", path});
    const ToolResult quiet = run_tool({"probe", "--json", "--quiet", path});
    EXPECT_EQ(plain.errors, "");
    EXPECT_EQ(quiet.errors, "");
    EXPECT_NE(verbose.errors.find("correct movie duration"), std::string::npos);
    EXPECT_EQ(verbose.out, plain.out);
    EXPECT_EQ(quiet.out, plain.out);
}

}  // namespace
