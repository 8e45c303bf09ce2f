#include "tests/support/media.h"
#include "tests/tool/tool_run.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

namespace {

using fw_test::clip_h264;
using fw_test::lines_of;
using fw_test::read_file;
using fw_test::ReferenceFrame;
using fw_test::run_tool;
using fw_test::TemporaryFolder;
using fw_test::ToolProcess;
using fw_test::ToolResult;
using nlohmann::json;

std::string md5_of(const std::string& bytes) {
    return fw_test::md5_hex(bytes.data(), bytes.size());
}

TEST(CmdFrameTest, GivesThePictureThatTheReferenceDecodes) {
    const std::vector<ReferenceFrame> reference = fw_test::reference_frames(clip_h264(), 0);
    ASSERT_EQ(reference.size(), 120U);
    const ToolResult result =
        run_tool({"frame", clip_h264(), "--format", "yuv420p", "--json", "--at", "0", "--at", "2.5",
                  "--at", "1001/30000", "--at", "0:03.9", "--at", "1/30"});
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    const std::vector<json> answers = result.json();
    const std::vector<std::size_t> numbers{0, 75, 1, 117, 1};
    ASSERT_EQ(answers.size(), numbers.size());
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        EXPECT_EQ(answers[i].at("md5"), reference[numbers[i]].md5) << answers[i];
    }
    EXPECT_EQ(answers[1].at("at"), "2.5");
    EXPECT_EQ(answers[1].at("found"), true);
    EXPECT_EQ(answers[1].at("pts_us"), 2500000);
    EXPECT_EQ(answers[1].at("width"), 320);
    EXPECT_EQ(answers[1].at("height"), 240);
    EXPECT_EQ(answers[1].at("format"), "yuv420p");
    EXPECT_EQ(answers[1].at("divider"), 1);
    EXPECT_EQ(answers[1].at("src_width"), 320);
    EXPECT_EQ(answers[1].at("src_height"), 240);
}

struct Format {
    const char* name;
    std::size_t bytes;  // of a picture of 161x121
};

class FormatTest : public testing::TestWithParam<Format> {};

void PrintTo(const Format& row, std::ostream* out) {
    *out << row.name;
}

TEST_P(FormatTest, DigestsTheVisibleBytesThatRawFilesHold) {
    const std::string clip = fw_test::make_clip(
        "odd.png",
        "-f lavfi -i testsrc2=size=200x150:duration=1,format=rgb24,crop=161:121 -frames:v 1");
    const TemporaryFolder folder;
    const std::vector<std::string> common{"frame", clip, "--at", "0", "--format", GetParam().name};
    std::vector<std::string> arguments = common;
    arguments.insert(arguments.end(), {"--json", "-o", folder.path("a.raw")});
    const ToolResult result = run_tool(arguments);
    ASSERT_EQ(result.status, 0) << result.errors;
    const std::string raw = read_file(folder.path("a.raw"));
    EXPECT_EQ(raw.size(), GetParam().bytes);
    EXPECT_EQ(result.json().front().at("format"), GetParam().name);
    EXPECT_EQ(result.json().front().at("md5"), md5_of(raw));

    arguments = common;
    arguments.insert(arguments.end(), {"-o", "-"});
    EXPECT_TRUE(run_tool(arguments).out == raw);
}

INSTANTIATE_TEST_SUITE_P(CmdFrameTest, FormatTest,
                         testing::Values(Format{"rgba", 161 * 121 * 4},
                                         Format{"yuv420p", 161 * 121 + 2 * 81 * 61},
                                         Format{"nv12", 161 * 121 + 2 * 81 * 61},
                                         Format{"bgra64be", 161 * 121 * 8},
                                         Format{"bgra64le", 161 * 121 * 8}));

TEST(CmdFrameTest, DividesPictures) {
    const json half =
        run_tool({"frame", clip_h264(), "--at", "1", "--divider", "2", "--json"}).json().front();
    EXPECT_EQ(half.at("width"), 160);
    EXPECT_EQ(half.at("height"), 120);
    EXPECT_EQ(half.at("divider"), 2);
    EXPECT_EQ(half.at("src_width"), 320);

    const std::string large = fw_test::make_clip(
        "large.png", "-f lavfi -i testsrc2=size=1920x1080:duration=1 -frames:v 1");
    const auto divider_of = [&](const char* mode) {
        return run_tool({"frame", large, "--at", "0", "--memory-mode", mode, "--json"})
            .json()
            .front()
            .at("divider");
    };
    EXPECT_EQ(divider_of("full"), 1);
    EXPECT_EQ(divider_of("resolution"), 2);
}

TEST(CmdFrameTest, TakesTheStreamByItsNumberInTheFile) {
    const std::string clip = fw_test::clip_two_video_two_audio();
    const auto width_of = [&](const char* number) {
        return run_tool({"frame", clip, "--at", "1", "--stream", number, "--json"})
            .json()
            .front()
            .at("width");
    };
    EXPECT_EQ(width_of("0"), 320);
    EXPECT_EQ(width_of("1"), 160);
}

TEST(CmdFrameTest, FailsForAStreamThatIsNoVideo) {
    const std::string clip = fw_test::clip_two_video_two_audio();
    for (const char* const number : {"2", "4", "2147483647"}) {
        const ToolResult result = run_tool({"frame", clip, "--at", "1", "--stream", number});
        EXPECT_EQ(result.status, 1) << number;
        EXPECT_EQ(result.out, "");
        EXPECT_TRUE(result.has_one_error_line()) << result.errors;
        EXPECT_NE(result.errors.find("video streams: 0, 1"), std::string::npos) << result.errors;
    }
    EXPECT_EQ(run_tool({"frame", fw_test::clip_pcm(), "--at", "0"}).status, 1);
}

TEST(CmdFrameTest, FailsForAFileThatCannotBeRead) {
    const ToolResult result = run_tool({"frame", "no-such-file", "--at", "0", "--json"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(result.has_one_error_line()) << result.errors;
}

TEST(CmdFrameTest, SaysWhichTimeHasNoPictureAndWhy) {
    const ToolResult result =
        run_tool({"frame", clip_h264(), "--at", "1", "--divider", "500", "--json"});
    EXPECT_EQ(result.status, 1);
    ASSERT_EQ(result.json().size(), 1U);
    EXPECT_EQ(result.json().front().at("at"), "1");
    EXPECT_EQ(result.json().front().at("found"), false);
    EXPECT_EQ(result.json().front().count("md5"), 0U);
    EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    EXPECT_NE(result.errors.find("divider 500"), std::string::npos) << result.errors;
}

TEST(CmdFrameTest, AnswersEachLineBeforeTheNextIsWritten) {
    ToolProcess tool({"frame", clip_h264(), "--at", "-", "--json"});
    for (int number = 119; number >= 0; number -= 17) {
        const std::string time = std::to_string(number) + "/30";
        tool.write(time + "\n");
        const json answer = json::parse(tool.read_line());
        EXPECT_EQ(answer.at("at"), time);
        EXPECT_EQ(answer.at("pts_us"), (number * 1000000 + 15) / 30) << time;
    }
    const ToolResult result = tool.finish();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
}

TEST(CmdFrameTest, AnswersEveryLineOnceWhateverItHolds) {
    const ToolResult result =
        run_tool({"frame", clip_h264(), "--at", "3", "--at", "-", "--at", "2", "--json"},
                 "1\r\n\nnonsense\n1/0\n\xff\n-5\n0:01");
    EXPECT_EQ(result.status, 1);
    std::vector<std::string> found;
    for (const json& answer : result.json()) {
        found.push_back(answer.at("at").get<std::string>() +
                        (answer.at("found").get<bool>() ? " yes" : " no"));
    }
    EXPECT_EQ(found, (std::vector<std::string>{"3 yes", "1 yes", " no", "nonsense no", "1/0 no",
                                               "\xef\xbf\xbd no", "-5 yes", "0:01 yes", "2 yes"}));
}

TEST(CmdFrameTest, GivesNothingForNoLines) {
    const ToolResult result = run_tool({"frame", clip_h264(), "--at", "-"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "");
}

TEST(CmdFrameTest, TellsPeopleTheTimeCountedFromTheStart) {
    // This file starts at 1.4 s.
    const ToolResult result = run_tool({"frame", fw_test::clip_mpeg2_ts(), "--at", "2"});
    ASSERT_EQ(result.status, 0) << result.errors;
    ASSERT_EQ(lines_of(result.out).size(), 1U);
    EXPECT_EQ(result.out.rfind("at 2: picture at 2.", 0), 0U) << result.out;
}

TEST(CmdFrameTest, NumbersTheFilesOfSeveralTimes) {
    const TemporaryFolder folder;
    const ToolResult result = run_tool(
        {"frame", clip_h264(), "--at", "1", "--at", "2", "-o", folder.path("100% %03d-%d.raw")});
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_TRUE(std::filesystem::exists(folder.path("100% 001-%d.raw")));
    EXPECT_TRUE(std::filesystem::exists(folder.path("100% 002-%d.raw")));
    EXPECT_NE(result.out.find("-> " + folder.path("100% 002-%d.raw")), std::string::npos);
}

TEST(CmdFrameTest, NumbersFilesByTheTimeAlsoAfterOneWithoutAPicture) {
    const TemporaryFolder folder;
    const ToolResult result = run_tool(
        {"frame", clip_h264(), "--at", "-", "-o", folder.path("%d.raw"), "--json"}, "1\nx\n2\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(std::filesystem::exists(folder.path("1.raw")));
    EXPECT_FALSE(std::filesystem::exists(folder.path("2.raw")));
    EXPECT_EQ(md5_of(read_file(folder.path("3.raw"))), result.json().back().at("md5"));
}

TEST(CmdFrameTest, GivesAStillPictureInTheFormatOfItsRecord) {
    const ToolResult result =
        run_tool({"frame", fw_test::clip_png(), "--at", "0", "--at", "100", "--json"});
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_EQ(result.json()[0].at("md5"), result.json()[1].at("md5"));
    EXPECT_EQ(result.json()[1].at("format"), "rgba");
}

TEST(CmdFrameTest, ReportsAReaderThatHasGoneAway) {
    ToolProcess tool({"frame", clip_h264(), "--at", "-", "--json"});
    tool.write("1\n");
    EXPECT_NE(tool.read_line(), "");
    tool.stop_reading();
    const ToolResult result = tool.finish("2\n3\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    EXPECT_NE(result.errors.find("standard output"), std::string::npos) << result.errors;
}

TEST(CmdFrameTest, ReportsAFullDisk) {
    for (const std::vector<std::string>& more :
         {std::vector<std::string>{"--json"}, std::vector<std::string>{"-o", "-"},
          std::vector<std::string>{}}) {
        std::vector<std::string> arguments{"frame", clip_h264(), "--at", "1"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        const ToolResult result = ToolProcess(arguments, "/dev/full").finish();
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    }
    const TemporaryFolder folder;
    std::filesystem::create_symlink("/dev/full", folder.path("full.png"));
    const ToolResult result =
        run_tool({"frame", clip_h264(), "--at", "1", "-o", folder.path("full.png")});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    EXPECT_TRUE(std::filesystem::is_symlink(folder.path("full.png")));
}

TEST(CmdFrameTest, ReportsAFolderThatDoesNotExist) {
    const TemporaryFolder folder;
    const ToolResult result =
        run_tool({"frame", clip_h264(), "--at", "1", "-o", folder.path("no/a.png")});
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.has_one_error_line()) << result.errors;
}

TEST(CmdFrameTest, CountsTimesOfTheOutputWithSpeedAndReverse) {
    const auto pts_of = [](const std::vector<std::string>& effects) {
        std::vector<std::string> arguments{"frame", clip_h264(), "--at", "1", "--json"};
        arguments.insert(arguments.end(), effects.begin(), effects.end());
        const ToolResult result = run_tool(arguments);
        EXPECT_EQ(result.errors, "");
        return result.json().front().at("pts_us");
    };
    EXPECT_EQ(pts_of({"--speed", "2"}), 2000000);
    EXPECT_EQ(pts_of({"--speed", "0.5"}), 500000);
    EXPECT_EQ(pts_of({"--reverse"}), 3000000);
    EXPECT_EQ(pts_of({"--reverse", "--speed", "3"}), 1000000);
}

TEST(CmdFrameTest, RunsTheFilterOfTheUser) {
    const auto md5_with = [](const std::string& filter) {
        return run_tool({"frame", clip_h264(), "--at", "1", "--json", "--filter", filter})
            .json()
            .front()
            .at("md5");
    };
    const json plain = run_tool({"frame", clip_h264(), "--at", "1", "--json"}).json().front();
    EXPECT_NE(md5_with("hflip"), plain.at("md5"));
    EXPECT_EQ(md5_with("hflip,hflip"), plain.at("md5"));
    const ToolResult refused =
        run_tool({"frame", clip_h264(), "--at", "1", "--filter", "no_such_filter"});
    EXPECT_EQ(refused.status, 1);
    EXPECT_TRUE(refused.has_one_error_line()) << refused.errors;
}

TEST(CmdFrameTest, DecodesInSoftwareWithoutADevice) {
    // Whatever devices this machine has: there is a picture, and at most one line that says that
    // none could be opened.
    const ToolResult result =
        run_tool({"frame", clip_h264(), "--at", "1", "--json", "--hw", "auto"});
    EXPECT_EQ(result.status, 0);
    ASSERT_EQ(result.json().size(), 1U);
    EXPECT_EQ(result.json().front().at("pts_us"), 1000000);
    EXPECT_TRUE(result.errors.empty() || result.has_one_error_line()) << result.errors;
}

}  // namespace
