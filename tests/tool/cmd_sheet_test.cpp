#include "tests/support/media.h"
#include "tests/support/processor.h"
#include "tests/tool/drawn_pictures.h"
#include "tests/tool/tool_run.h"
#include "tools/framewell/clock_text.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

namespace {

struct ClockRow {
    const char* name;
    std::int64_t microseconds;
    int digits;
    const char* text;
};

class ClockTextTest : public testing::TestWithParam<ClockRow> {};

TEST_P(ClockTextTest, ReadsAsAClock) {
    const ClockRow& row = GetParam();
    EXPECT_EQ(tool::clock_text(row.microseconds, row.digits), row.text);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ClockTextTest,
    testing::Values(
        ClockRow{"Zero", 0, 3, "0:00.000"}, ClockRow{"Cut", 1999999, 3, "0:01.999"},
        ClockRow{"CutToOneDigit", 1999999, 1, "0:01.9"}, ClockRow{"NoDigits", 59999999, 0, "0:59"},
        ClockRow{"Minutes", 3599999000, 3, "59:59.999"},
        ClockRow{"Hours", 3600000000, 3, "1:00:00.000"},
        ClockRow{"ManyDigitsAreThree", 1, 9, "0:00.000"},
        ClockRow{"Negative", -1500000, 3, "-0:01.500"},
        ClockRow{"NegativeThatIsCutToZero", -999, 3, "0:00.000"},
        ClockRow{"Largest", std::numeric_limits<std::int64_t>::max(), 3, "2562047788:00:54.775"},
        ClockRow{"Smallest", std::numeric_limits<std::int64_t>::min(), 3, "-2562047788:00:54.775"}),
    [](const testing::TestParamInfo<ClockRow>& row) { return row.param.name; });

using fw_test::Drawn;
using fw_test::make_clip;
using fw_test::read_drawn;
using fw_test::run_tool;
using fw_test::TemporaryFolder;
using fw_test::ToolResult;

/// Four seconds, each of another colour: red, green, blue, white.
std::string clip_colours() {
    const auto second = [](const std::string& colour) {
        return "-f lavfi -i color=c=" + colour + ":s=160x120:r=10:d=1 ";
    };
    return make_clip("colours.mkv", second("red") + second("lime") + second("blue") +
                                        second("white") +
                                        "-filter_complex concat=n=4 -c:v ffv1 -pix_fmt yuv444p");
}

void expect_colour(const Drawn& sheet, std::size_t x, std::size_t y, int red, int green, int blue) {
    const std::array<int, 3> pixel = sheet.at(x, y);
    constexpr double kTolerance = 4 + fw_test::kFastBilinearRgbLoss;
    EXPECT_NEAR(pixel[0], red, kTolerance) << x << "," << y;
    EXPECT_NEAR(pixel[1], green, kTolerance) << x << "," << y;
    EXPECT_NEAR(pixel[2], blue, kTolerance) << x << "," << y;
}

TEST(CmdSheetTest, ShowsThePicturesOfTheMiddlesInOrder) {
    const TemporaryFolder folder;
    const ToolResult result = run_tool({"sheet", clip_colours(), "--columns", "2", "--rows", "2",
                                        "--width", "400", "-o", folder.path("s.png")});
    ASSERT_EQ(result.status, 0) << result.errors;
    const Drawn sheet = read_drawn(folder.path("s.png"));
    EXPECT_EQ(sheet.width, 400U);
    // Tiles are 194 wide, 4 apart, and as high as their shape asks: 146, with a line below.
    const std::size_t second_row = (sheet.height - 4) / 2 + 4;
    expect_colour(sheet, 10, 10, 255, 0, 0);
    expect_colour(sheet, 390, 10, 0, 255, 0);
    expect_colour(sheet, 10, second_row + 6, 0, 0, 255);
    expect_colour(sheet, 390, second_row + 6, 255, 255, 255);
    EXPECT_NE(result.out.find("4 pictures, 400x" + std::to_string(sheet.height)),
              std::string::npos);
}

TEST(CmdSheetTest, WritesTheTimeBelowEachPicture) {
    const TemporaryFolder folder;
    const ToolResult result = run_tool({"sheet", clip_colours(), "--columns", "1", "--rows", "1",
                                        "--width", "400", "-o", folder.path("s.png")});
    ASSERT_EQ(result.status, 0) << result.errors;
    const Drawn sheet = read_drawn(folder.path("s.png"));
    // Below the picture, which is 392x294, bright digits in the middle on a dark ground.
    int bright = 0;
    int beside = 0;
    for (std::size_t y = 300; y < sheet.height; ++y) {
        for (std::size_t x = 0; x < sheet.width; ++x) {
            const bool is_bright = sheet.at(x, y)[1] > 150;
            bright += is_bright ? 1 : 0;
            beside += is_bright && (x < 120 || x > 280) ? 1 : 0;
        }
    }
    EXPECT_GT(bright, 100);
    EXPECT_EQ(beside, 0);
}

TEST(CmdSheetTest, ShowsAPictureOnlyOnce) {
    const TemporaryFolder folder;
    const ToolResult still =
        run_tool({"sheet", fw_test::clip_png(), "-o", folder.path("still.png")});
    EXPECT_EQ(still.status, 0) << still.errors;
    EXPECT_NE(still.out.find(": 1 picture, "), std::string::npos) << still.out;
    const std::string two = make_clip(
        "two-pictures.mkv", "-f lavfi -i testsrc2=size=64x48:rate=1:duration=2 -c:v ffv1");
    const ToolResult result = run_tool({"sheet", two, "-o", folder.path("two.png")});
    EXPECT_NE(result.out.find(": 2 pictures, "), std::string::npos) << result.out;
}

TEST(CmdSheetTest, StandsUprightPicturesUp) {
    const std::string path = fw_test::shared_media("rotation-90-video-starts-late.mp4");
    if (path.empty()) {
        GTEST_SKIP() << "rotation-90-video-starts-late.mp4 is missing";
    }
    const TemporaryFolder folder;
    const ToolResult result = run_tool({"sheet", path, "--columns", "1", "--rows", "1", "--width",
                                        "200", "-o", folder.path("s.png")});
    ASSERT_EQ(result.status, 0) << result.errors;
    EXPECT_GT(read_drawn(folder.path("s.png")).height, 340U);  // 192 * 16 / 9 and the line
}

TEST(CmdSheetTest, RefusesWhatItCannotDraw) {
    const TemporaryFolder folder;
    const std::string out = folder.path("s.png");
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {"sheet", clip_colours()},
             {"sheet", clip_colours(), "-o", folder.path("s.raw")},
             {"sheet", clip_colours(), "-o", "-"},
             {"sheet", clip_colours(), "-o", out, "--columns", "0"},
             {"sheet", clip_colours(), "-o", out, "--columns", "100"},
             {"sheet", clip_colours(), "-o", out, "--rows", "1000"},
             {"sheet", clip_colours(), "-o", out, "--width", "10"},
             {"sheet", clip_colours(), "-o", out, "--width", "100000"}}) {
        const ToolResult result = run_tool(words);
        EXPECT_EQ(result.status, 2) << words.back();
        EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    }
    for (const std::string& file : {fw_test::clip_flac(), folder.path("missing.mp4")}) {
        const ToolResult result = run_tool({"sheet", file, "-o", out});
        EXPECT_EQ(result.status, 1);
        EXPECT_TRUE(result.has_one_error_line()) << result.errors;
    }
    EXPECT_FALSE(std::filesystem::exists(out));
    const ToolResult nowhere = run_tool({"sheet", clip_colours(), "-o", folder.path("no/s.png")});
    EXPECT_EQ(nowhere.status, 1);
    EXPECT_TRUE(nowhere.has_one_error_line()) << nowhere.errors;
}

}  // namespace
