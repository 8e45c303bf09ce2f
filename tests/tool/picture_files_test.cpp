// The .png and .jpg files that the tool writes, read back with the ffmpeg program.

#include "tests/support/media.h"
#include "tests/support/turned_clip.h"
#include "tests/tool/tool_run.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

using fw_test::make_clip;
using fw_test::read_file;
using fw_test::run_tool;
using fw_test::TemporaryFolder;
using fw_test::ToolResult;

// The pixels of the picture file `name` in `format`.
std::string pixels_of(const TemporaryFolder& folder, const std::string& name,
                      const std::string& format) {
    const std::string raw = folder.path(name + ".pixels");
    const std::string command = "ffmpeg -v error -nostdin -i '" + folder.path(name) +
                                "' -f rawvideo -pix_fmt " + format + " -y '" + raw + "'";
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("failed: " + command);
    }
    return read_file(raw);
}

// Has the tool write the first picture of `clip` to the file `name`.
void write_picture(const TemporaryFolder& folder, const std::string& clip, const std::string& name,
                   const std::string& format = "rgba") {
    const ToolResult result =
        run_tool({"frame", clip, "--at", "0", "--format", format, "-o", folder.path(name)});
    ASSERT_EQ(result.status, 0) << result.errors;
}

std::string still_clip(const std::string& name, const std::string& format) {
    return make_clip(name,
                     "-f lavfi -i testsrc2=size=96x64:duration=1 -frames:v 1 -pix_fmt " + format);
}

TEST(PictureFilesTest, PngHoldsExactlyThePixelsOfThePicture) {
    const TemporaryFolder folder;
    const std::string clip = still_clip("opaque.png", "rgb24");
    write_picture(folder, clip, "a.png");
    write_picture(folder, clip, "a.raw");
    EXPECT_TRUE(pixels_of(folder, "a.png", "rgba") == read_file(folder.path("a.raw")));
    // Without the alpha channel, which says nothing here: colour type 2 at its place in the file.
    EXPECT_EQ(read_file(folder.path("a.png"))[25], 2);
}

TEST(PictureFilesTest, PngKeepsTransparency) {
    const TemporaryFolder folder;
    const std::string clip =
        make_clip("glass.png",
                  "-f lavfi -i testsrc2=size=96x64:duration=1,format=rgba,colorchannelmixer=aa=0.5 "
                  "-frames:v 1");
    write_picture(folder, clip, "a.png");
    write_picture(folder, clip, "a.raw");
    EXPECT_EQ(read_file(folder.path("a.png"))[25], 6);
    EXPECT_TRUE(pixels_of(folder, "a.png", "rgba") == read_file(folder.path("a.raw")));
}

TEST(PictureFilesTest, PngHasSixteenBitsForFormatsThatHaveThem) {
    const TemporaryFolder folder;
    const std::string clip = still_clip("deep.png", "rgb48be");
    write_picture(folder, clip, "le.png", "bgra64le");
    write_picture(folder, clip, "be.png", "bgra64be");
    EXPECT_EQ(read_file(folder.path("le.png"))[24], 16);
    EXPECT_TRUE(pixels_of(folder, "le.png", "rgb48le") == pixels_of(folder, "be.png", "rgb48le"));
    write_picture(folder, clip, "le.raw", "bgra64le");
    const std::string raw = read_file(folder.path("le.raw"));
    const std::string pixels = pixels_of(folder, "le.png", "rgb48le");
    ASSERT_EQ(raw.size() / 8, pixels.size() / 6);
    for (std::size_t i = 0; i < raw.size() / 8; ++i) {
        for (std::size_t channel = 0; channel < 3; ++channel) {
            // B, G, R, A in the raw bytes; R, G, B in the file.
            ASSERT_EQ(raw.substr(8 * i + 2 * (2 - channel), 2),
                      pixels.substr(6 * i + 2 * channel, 2));
        }
    }
}

TEST(PictureFilesTest, JpegIsCloseToThePicture) {
    const TemporaryFolder folder;
    const std::string clip =
        make_clip("soft.png", "-f lavfi -i gradients=size=96x64:seed=3 -frames:v 1 -pix_fmt rgb24");
    for (const char* const format : {"rgba", "yuv420p", "nv12", "bgra64le"}) {
        write_picture(folder, clip, "a.JPG", format);
        const std::string jpeg = pixels_of(folder, "a.JPG", "rgb24");
        write_picture(folder, clip, "a.png");
        const std::string exact = pixels_of(folder, "a.png", "rgb24");
        ASSERT_EQ(jpeg.size(), exact.size());
        double sum = 0;
        for (std::size_t i = 0; i < jpeg.size(); ++i) {
            sum += std::abs(static_cast<unsigned char>(jpeg[i]) -
                            static_cast<unsigned char>(exact[i]));
        }
        // Black and white would be 16 off in a picture of the wrong range.
        EXPECT_LT(sum / static_cast<double>(jpeg.size()), 3) << format;
    }
}

// Turns pixels of 4 bytes clockwise by a quarter, in the plainest way.
std::string turned_once(const std::string& pixels, std::size_t width, std::size_t height) {
    std::string result(pixels.size(), '\0');
    for (std::size_t y = 0; y < height; ++y) {
        for (std::size_t x = 0; x < width; ++x) {
            const std::size_t to = x * height + (height - 1 - y);
            result.replace(4 * to, 4, pixels, 4 * (y * width + x), 4);
        }
    }
    return result;
}

class RotationTest : public testing::TestWithParam<int> {};

TEST_P(RotationTest, TurnsPicturesOfPngFilesAndNoRawBytes) {
    const TemporaryFolder folder;
    const std::string upright = make_clip(
        "upright.mp4",
        "-f lavfi -i testsrc2=size=96x64:rate=10:duration=1 -c:v libx264 -pix_fmt yuv420p");
    const int degrees = GetParam();
    const std::string clip = fw_test::turned_clip(upright, degrees / 90);
    write_picture(folder, clip, "a.png");
    write_picture(folder, clip, "a.raw");
    write_picture(folder, upright, "upright.raw");
    const std::string raw = read_file(folder.path("a.raw"));
    EXPECT_TRUE(raw == read_file(folder.path("upright.raw")));

    std::string expected = raw;
    std::size_t width = 96;
    std::size_t height = 64;
    for (int i = 0; i < degrees / 90; ++i) {
        expected = turned_once(expected, width, height);
        std::swap(width, height);
    }
    EXPECT_TRUE(pixels_of(folder, "a.png", "rgba") == expected);
    const ToolResult result = run_tool({"frame", clip, "--at", "0", "-o", folder.path("b.jpg")});
    const bool says_so =
        result.out.find("turned by " + std::to_string(degrees) + " degrees") != std::string::npos;
    EXPECT_EQ(says_so, degrees != 0) << result.out;
}

INSTANTIATE_TEST_SUITE_P(PictureFilesTest, RotationTest, testing::Values(0, 90, 180, 270));

}  // namespace
