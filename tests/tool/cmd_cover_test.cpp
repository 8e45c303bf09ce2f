#include "tests/support/media.h"
#include "tests/support/temp_file.h"
#include "tests/tool/tool_run.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using fw_test::clip_h264;
using fw_test::lines_of;
using fw_test::read_file;
using fw_test::run_tool;
using fw_test::TemporaryFolder;
using fw_test::ToolProcess;
using fw_test::ToolResult;
using nlohmann::json;

TEST(CmdCoverTest, IsThePictureThatFrameGives) {
    const TemporaryFolder folder;
    const ToolResult cover = run_tool({"cover", clip_h264(), "--at", "2.5", "--box", "100x0", "-o",
                                       folder.path("c.raw"), "--json"});
    ASSERT_EQ(cover.status, 0) << cover.errors;
    const json frame =
        run_tool({"frame", clip_h264(), "--at", "2.5", "--divider", "4", "--json"}).json().front();
    const json object = cover.json().front();
    for (const char* const key :
         {"md5", "pts_us", "width", "height", "divider", "src_width", "src_height"}) {
        EXPECT_EQ(object.at(key), frame.at(key)) << key;
    }
    EXPECT_EQ(object.at("path"), clip_h264());
    EXPECT_EQ(object.at("duration_us"), 4000000);
    EXPECT_EQ(object.at("found"), true);
    EXPECT_EQ(object.at("file"), folder.path("c.raw"));
    EXPECT_EQ(object.at("turned_by"), 0);
    const std::string bytes = read_file(folder.path("c.raw"));
    EXPECT_EQ(fw_test::md5_hex(bytes.data(), bytes.size()), object.at("md5"));
}

TEST(CmdCoverTest, TakesItsPlaceFromTheRatio) {
    const TemporaryFolder folder;
    const auto pts_of = [&](const std::vector<std::string>& more) {
        std::vector<std::string> words{"cover", clip_h264(), "-o", folder.path("c.png"), "--json"};
        words.insert(words.end(), more.begin(), more.end());
        return run_tool(words).json().front().at("pts_us");
    };
    EXPECT_EQ(pts_of({}), 400000);  // a tenth
    EXPECT_EQ(pts_of({"--ratio", "0.5"}), 2000000);
    EXPECT_EQ(pts_of({"--ratio", "0"}), 0);
    EXPECT_EQ(pts_of({"--ratio", "1"}), 3966667);
}

TEST(CmdCoverTest, GoesOnAfterFilesWithoutACover) {
    const TemporaryFolder folder;
    const fw_test::TempFile text("text.mp4", "only words\n");
    const ToolResult result =
        run_tool({"cover", clip_h264(), folder.path("missing.mp4"), fw_test::clip_flac(),
                  text.path(), fw_test::clip_png(), "-o", folder.path("c-%02d.png"), "--json"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(lines_of(result.errors).size(), 3U) << result.errors;
    std::vector<bool> found;
    for (const json& object : result.json()) {
        found.push_back(object.at("found").get<bool>());
        EXPECT_EQ(object.contains("error"), !found.back());
    }
    EXPECT_EQ(found, (std::vector<bool>{true, false, false, false, true}));
    EXPECT_EQ(result.json()[2].at("duration_us"), 3000000);
    EXPECT_EQ(result.json()[1].at("duration_us"), nullptr);
    EXPECT_TRUE(std::filesystem::exists(folder.path("c-01.png")));
    EXPECT_FALSE(std::filesystem::exists(folder.path("c-02.png")));
    EXPECT_TRUE(std::filesystem::exists(folder.path("c-05.png")));
}

TEST(CmdCoverTest, GoesOnAfterAFileThatCannotBeWritten) {
    const TemporaryFolder folder;
    std::filesystem::create_directory(folder.path("c1.png"));
    const ToolResult result =
        run_tool({"cover", clip_h264(), clip_h264(), "-o", folder.path("c%d.png")});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    EXPECT_TRUE(std::filesystem::is_regular_file(folder.path("c2.png")));
    EXPECT_EQ(lines_of(result.out).size(), 1U);
}

TEST(CmdCoverTest, TellsPeopleTheDurationAndTheSize) {
    const TemporaryFolder folder;
    const ToolResult result =
        run_tool({"cover", clip_h264(), "--box", "160x120", "-o", folder.path("c.png")});
    EXPECT_EQ(result.out,
              clip_h264() + ": 4.000000 s, picture of 160x120 -> " + folder.path("c.png") + "\n");
}

TEST(CmdCoverTest, WritesRawBytesOfOneFileToStandardOutput) {
    const ToolResult result = run_tool({"cover", clip_h264(), "--box", "160x120", "-o", "-"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.size(), 160U * 120 * 4);
    EXPECT_EQ(ToolProcess({"cover", clip_h264(), "-o", "-"}, "/dev/full").finish().status, 1);
}

TEST(CmdCoverTest, TurnsPicturesAsTheirStreamAsks) {
    const std::string path = fw_test::shared_media("rotation-270-vfr.mp4");
    if (path.empty()) {
        GTEST_SKIP() << "rotation-270-vfr.mp4 is missing";
    }
    const TemporaryFolder folder;
    const ToolResult result = run_tool({"cover", path, "-o", folder.path("c.png"), "--json"});
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.json().front().at("turned_by"), 270);
    const json still = run_tool({"probe", folder.path("c.png"), "--json"}).json().front();
    EXPECT_EQ(still.at("streams").front().at("width"), result.json().front().at("height"));
}

TEST(CmdCoverTest, RefusesWhatIsNoUsage) {
    const std::string clip = clip_h264();
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"cover", "-o", "c.png"},
             {"cover", clip},
             {"cover", clip, clip, "-o", "c.png"},
             {"cover", clip, clip, "-o", "-"},
             {"cover", clip, "-o", "-", "--json"},
             {"cover", clip, "-o", "c.txt"},
             {"cover", clip, "-o", "c.png", "--box", "320"},
             {"cover", clip, "-o", "c.png", "--box", "320x"},
             {"cover", clip, "-o", "c.png", "--box", "x240"},
             {"cover", clip, "-o", "c.png", "--box", "-1x240"},
             {"cover", clip, "-o", "c.png", "--box", "320x240 "},
             {"cover", clip, "-o", "c.png", "--box", "99999999999x1"},
             {"cover", clip, "-o", "c.png", "--at", "soon"},
             {"cover", clip, "-o", "c.png", "--ratio", "1.1"},
             {"cover", clip, "-o", "c.png", "--ratio", "nan"},
             {"cover", clip, "-o", "c.png", "--ratio", "0.5", "--at", "1"}}) {
        const ToolResult result = run_tool(words);
        EXPECT_EQ(result.status, 2) << words.back();
        EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    }
}

}  // namespace
