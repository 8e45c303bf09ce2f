#include "tests/support/media.h"
#include "tests/tool/tool_run.h"

#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using fw_test::lines_of;
using fw_test::run_tool;
using fw_test::ToolProcess;
using fw_test::ToolResult;

TEST(ToolTest, PrintsItsVersion) {
    const ToolResult result = run_tool({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out.rfind("framewell ", 0), 0U) << result.out;
    EXPECT_EQ(result.errors, "");
}

TEST(ToolTest, PrintsTheHelpOfEveryVerb) {
    for (const char* const verb :
         {"probe", "frame", "audio", "play", "verify", "cover", "sheet", "wave", "devices"}) {
        const ToolResult result = run_tool({verb, "--help"});
        EXPECT_EQ(result.status, 0);
        EXPECT_NE(result.out.find(std::string("framewell ") + verb), std::string::npos);
        EXPECT_EQ(result.errors, "");
    }
    EXPECT_NE(run_tool({"--help"}).out.find("Exit status"), std::string::npos);
}

struct WrongUsage {
    std::vector<std::string> arguments;
    std::string part;  // of the error line
};

void PrintTo(const WrongUsage& row, std::ostream* out) {
    for (const std::string& argument : row.arguments) {
        *out << argument << ' ';
    }
}

class WrongUsageTest : public testing::TestWithParam<WrongUsage> {};

TEST_P(WrongUsageTest, IsOneErrorLineAndStatusTwo) {
    const ToolResult result = run_tool(GetParam().arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    EXPECT_NE(result.errors.find(GetParam().part), std::string::npos) << result.errors;
}

INSTANTIATE_TEST_SUITE_P(
    ToolTest, WrongUsageTest,
    testing::Values(
        WrongUsage{{}, "probe, frame, audio, mix, play, verify, cover, sheet, wave or devices"},
        WrongUsage{{"-v"}, "probe, frame, audio, mix, play, verify, cover, sheet, wave or devices"},
        WrongUsage{{"show"}, "\"show\""}, WrongUsage{{"--loud"}, "\"--loud\""},
        WrongUsage{{"-v", "--quiet", "devices"}, "--quiet"}, WrongUsage{{"probe"}, "FILE"},
        WrongUsage{{"--completion", "abacus"}, "abacus"},
        WrongUsage{{"probe", "a", "--at", "1"}, "--at"}, WrongUsage{{"frame"}, "FILE"},
        WrongUsage{{"frame", "a"}, "--at"}, WrongUsage{{"frame", "a", "--at"}, "--at"},
        WrongUsage{{"frame", "a", "b", "--at", "1"}, "\"b\""},
        WrongUsage{{"frame", "a", "--at", "soon"}, "soon"},
        WrongUsage{{"frame", "a", "--at", "1/0"}, "denominator"},
        WrongUsage{{"frame", "a", "--at", "0.12345678901234567890"}, "64 bits"},
        WrongUsage{{"frame", "a", "--at", "1", "--at", "[2]"}, "[2]"},
        WrongUsage{{"frame", "a", "--at", "-", "--at", "-"}, "only once"},
        WrongUsage{{"frame", "a", "--at", "1", "--format", "rgb"}, "rgb"},
        WrongUsage{{"frame", "a", "--at", "1", "--divider", "0"}, "--divider"},
        WrongUsage{{"frame", "a", "--at", "1", "--divider", "-2"}, "--divider"},
        WrongUsage{{"frame", "a", "--at", "1", "--divider", "2x"}, "--divider"},
        WrongUsage{{"frame", "a", "--at", "1", "--divider", "2147483648"}, "--divider"},
        WrongUsage{{"frame", "a", "--at", "1", "--memory-mode", "small"}, "small"},
        WrongUsage{{"frame", "a", "--at", "1", "--memory-mode", "full", "--divider", "2"},
                   "--divider"},
        WrongUsage{{"frame", "a", "--at", "1", "--stream", "-1"}, "--stream"},
        WrongUsage{{"frame", "a", "--at", "1", "--stream", "first"}, "--stream"},
        WrongUsage{{"frame", "a", "--at", "1", "-o", "a.gif"}, ".png"},
        WrongUsage{{"frame", "a", "--at", "1", "-o", "png"}, ".png"},
        WrongUsage{{"frame", "a", "--at", "1", "--at", "2", "-o", "a.png"}, "%d"},
        WrongUsage{{"frame", "a", "--at", "-", "-o", "a%x.png"}, "%d"},
        WrongUsage{{"frame", "a", "--at", "1", "-o", "-", "--json"}, "--json"},
        WrongUsage{{"frame", "a", "--at", "1", "--hw", "abacus"}, "framewell devices"},
        WrongUsage{{"frame", "a", "--at", "1", "--speed", "0.4"}, "--speed"},
        WrongUsage{{"frame", "a", "--at", "1", "--speed", "nan"}, "--speed"},
        WrongUsage{{"audio"}, "FILE"}, WrongUsage{{"audio", "a"}, "--from"},
        WrongUsage{{"audio", "a", "--from", "1"}, "--to"},
        WrongUsage{{"audio", "a", "--from", "x", "--to", "1"}, "no time"},
        WrongUsage{{"audio", "a", "--from", "2", "--to", "1"}, "before"},
        WrongUsage{{"audio", "a", "--from", "0", "--to", "1", "--step", "0"}, "--step"},
        WrongUsage{{"audio", "a", "--from", "0", "--to", "1", "--step", "-1"}, "--step"},
        WrongUsage{{"audio", "a", "--from", "0", "--to", "1", "--at", "-"}, "--at"},
        WrongUsage{{"audio", "a", "--at", "-", "--at", "-"}, "only once"},
        WrongUsage{{"audio", "a", "--at", "1"}, "two times"},
        WrongUsage{{"audio", "a", "--at", "-", "--rate", "0"}, "--rate"},
        WrongUsage{{"audio", "a", "--at", "-", "--channels", "0"}, "--channels"},
        WrongUsage{{"audio", "a", "--at", "-", "--format", "s24"}, "s24"},
        WrongUsage{{"audio", "a", "--at", "-", "--speed", "3.1"}, "--speed"},
        WrongUsage{{"audio", "a", "--at", "-", "-o", "a.mp3"}, ".wav"},
        WrongUsage{{"audio", "a", "--at", "-", "-o", "-", "--json"}, "--json"},
        WrongUsage{{"play"}, "FILE"}, WrongUsage{{"play", "a", "--from", "x"}, "--from"},
        WrongUsage{{"play", "a", "--from", "2", "--to", "1"}, "before"},
        WrongUsage{{"play", "a", "--rate", "0"}, "--rate"}, WrongUsage{{"verify"}, "FILE"},
        WrongUsage{{"verify", "a", "--requests", "0"}, "--requests"},
        WrongUsage{{"verify", "a", "--seed", "-1"}, "--seed"},
        WrongUsage{{"probe", "a", "--hw", "abacus"}, "framewell devices"}));

TEST(ToolTest, ListsEveryDeviceTypeOnce) {
    const ToolResult text = run_tool({"devices"});
    const ToolResult json = run_tool({"devices", "--json"});
    EXPECT_EQ(text.status, 0);
    EXPECT_EQ(json.status, 0);
    EXPECT_EQ(text.errors, "");
    for (const nlohmann::json& device : json.json()) {
        const std::string name = device.at("name");
        EXPECT_EQ(device.contains("error"), !device.at("available").get<bool>());
        int rows = 0;
        for (const std::string& line : lines_of(text.out)) {
            rows += line.rfind(name + " ", 0) == 0 ? 1 : 0;
        }
        EXPECT_EQ(rows, 1) << name;
    }
}

TEST(ToolTest, ReportsThatStandardOutputIsFull) {
    const ToolResult result = ToolProcess({"--version"}, "/dev/full").finish();
    EXPECT_EQ(result.status, 1);
    EXPECT_TRUE(result.has_one_error_line()) << result.errors;
}

TEST(ToolTest, WritesNoMessagesIntoFilesWhereStandardStreamsAreClosed) {
    const fw_test::TemporaryFolder folder;
    const auto write_sound = [&folder](const std::string& name, const std::string& streams) {
        const std::string command = fw_test::tool_command() + " audio '" + fw_test::clip_pcm() +
                                    "' --from 0 --to 2 -v -o '" + folder.path(name) + "' " +
                                    streams;
        return WEXITSTATUS(std::system(command.c_str()));
    };
    ASSERT_EQ(write_sound("expected.raw", "> /dev/null 2>&1"), 0);
    const std::string expected = fw_test::read_file(folder.path("expected.raw"));
    ASSERT_EQ(write_sound("no_errors.raw", "> /dev/null 2>&-"), 0);
    EXPECT_TRUE(fw_test::read_file(folder.path("no_errors.raw")) == expected);
    // What cannot be reported counts as not done, and then there is no file.
    EXPECT_EQ(write_sound("nothing.raw", "<&- >&- 2>&-"), 1);
    EXPECT_FALSE(std::filesystem::exists(folder.path("nothing.raw")));
}

}  // namespace
