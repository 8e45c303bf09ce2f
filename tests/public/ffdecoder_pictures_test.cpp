#include "tests/support/decoders.h"
#include "tests/support/log_capture.h"
#include "tests/support/processor.h"

#include <framewell/ffdecoder.h>

extern "C" {
#include <libavutil/pixfmt.h>
}

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using ff::PixelFormat;
using fw_test::fast_bilinear_chroma;
using fw_test::LogCapture;
using fw_test::picture_at;
using fw_test::stream_of;
using fw_test::Yuv;

/// What is in the first picture of a file, converted; empty if nothing came.
std::shared_ptr<ff::VFrameCtx> first_picture(const std::string& path, PixelFormat format,
                                             int divider = 1) {
    ff::FFDecoder decoder;
    if (!decoder.open(stream_of(path))) {
        throw std::runtime_error("cannot open " + path);
    }
    return decoder.getVideoFrame(picture_at({0, 1}, format, divider));
}

/// Red, green and blue, 0 to 255, of a colour of ITU-R BT.601, which is what swscale assumes of a
/// file that does not say.
std::array<double, 3> to_rgb(const Yuv& colour, bool full_range) {
    const double y = full_range ? colour.y : (colour.y - 16) * 255.0 / 219;
    const double chroma = full_range ? 1 : 255.0 / 224;
    const double u = (colour.u - 128) * chroma;
    const double v = (colour.v - 128) * chroma;
    const std::array<double, 3> exact{y + 1.402 * v, y - 0.344136 * u - 0.714136 * v,
                                      y + 1.772 * u};
    std::array<double, 3> rgb{};
    std::transform(exact.begin(), exact.end(), rgb.begin(),
                   [](double value) { return std::clamp(value, 0.0, 255.0); });
    return rgb;
}

// swscale adds each of the two parts of chroma as a whole number of luma steps, which it cuts: up
// to 255 / 219 each, and half a step more where the result is rounded.
constexpr double kRgbTolerance = 3 + fw_test::kFastBilinearRgbLoss;

/// Expects four components, each of `bytes` bytes, everywhere in the picture.
/// @param order  where red, green, blue and alpha stand in a pixel
void expect_packed(const ff::VFrameCtx& picture, const std::array<double, 3>& rgb,
                   const std::array<int, 4>& order, int bytes, bool big_endian) {
    const double scale = bytes == 2 ? 257 : 1;
    for (const int y : {0, picture.height / 2, picture.height - 1}) {
        for (const int x : {0, picture.width / 2, picture.width - 1}) {
            const std::vector<int> pixel = fw_test::packed_pixel(picture, x, y, 4 * bytes);
            for (std::size_t i = 0; i < 4; ++i) {
                const auto at = static_cast<std::size_t>(order[i] * bytes);
                int value = pixel[at];
                if (bytes == 2) {
                    value = big_endian ? pixel[at] * 256 + pixel[at + 1]
                                       : pixel[at] + pixel[at + 1] * 256;
                }
                const double expected = i == 3 ? 255 : rgb[i];
                EXPECT_NEAR(value / scale, expected, kRgbTolerance)
                    << "component " << i << " at " << x << ", " << y;
            }
        }
    }
}

void expect_plane(const ff::VFrameCtx& picture, int plane, int x, int height, int width,
                  int value) {
    for (const int row : {0, height - 1}) {
        for (const int column : {x, width - 1}) {
            EXPECT_EQ(fw_test::plane_byte(picture, plane, column, row), value)
                << "plane " << plane << " at " << column << ", " << row;
        }
    }
}

struct Colour {
    const char* name;
    Yuv yuv;
};

class FFDecoderColourTest : public ::testing::TestWithParam<Colour> {
protected:
    std::shared_ptr<ff::VFrameCtx> picture_in(PixelFormat format,
                                              const std::string& pix_fmt = "yuv420p") const {
        return first_picture(fw_test::clip_flat(GetParam().yuv, "64x48", pix_fmt), format);
    }
};

}  // namespace

TEST_P(FFDecoderColourTest, ComesAsRgba) {
    const auto picture = picture_in(PixelFormat::Rgba);
    ASSERT_NE(picture, nullptr);
    expect_packed(*picture, to_rgb(GetParam().yuv, false), {0, 1, 2, 3}, 1, false);
}

TEST_P(FFDecoderColourTest, ComesAsBgra64InBothByteOrders) {
    const auto big = picture_in(PixelFormat::Bgra64be);
    ASSERT_NE(big, nullptr);
    expect_packed(*big, to_rgb(GetParam().yuv, false), {2, 1, 0, 3}, 2, true);
    const auto little = picture_in(PixelFormat::Bgra64le);
    ASSERT_NE(little, nullptr);
    expect_packed(*little, to_rgb(GetParam().yuv, false), {2, 1, 0, 3}, 2, false);
}

TEST_P(FFDecoderColourTest, ComesUnchangedAsYuv420p) {
    const auto picture = picture_in(PixelFormat::Yuv420p);
    ASSERT_NE(picture, nullptr);
    expect_plane(*picture, 0, 0, 48, 64, GetParam().yuv.y);
    expect_plane(*picture, 1, 0, 24, 32, GetParam().yuv.u);
    expect_plane(*picture, 2, 0, 24, 32, GetParam().yuv.v);
}

TEST_P(FFDecoderColourTest, ComesUnchangedAsNv12) {
    const auto picture = picture_in(PixelFormat::Nv12);
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->data[2], nullptr);
    expect_plane(*picture, 0, 0, 48, 64, GetParam().yuv.y);
    for (const int column : {0, 31}) {
        EXPECT_EQ(fw_test::plane_byte(*picture, 1, 2 * column, 23), GetParam().yuv.u);
        EXPECT_EQ(fw_test::plane_byte(*picture, 1, 2 * column + 1, 23), GetParam().yuv.v);
    }
}

TEST_P(FFDecoderColourTest, ComesFromOtherLayoutsAndDepths) {
    for (const char* const pix_fmt : {"yuv422p", "yuv444p", "yuv420p10le", "yuv444p10le"}) {
        SCOPED_TRACE(pix_fmt);
        const auto picture = picture_in(PixelFormat::Rgba, pix_fmt);
        ASSERT_NE(picture, nullptr);
        expect_packed(*picture, to_rgb(GetParam().yuv, false), {0, 1, 2, 3}, 1, false);
    }
}

TEST_P(FFDecoderColourTest, ComesFromFullRange) {
    const Yuv& yuv = GetParam().yuv;
    const std::string path = fw_test::make_clip(
        "full_range.mp4",
        "-f lavfi -i color=s=64x48:r=10:d=1,format=yuv420p,geq=lum=" + std::to_string(yuv.y) +
            ":cb=" + std::to_string(yuv.u) + ":cr=" + std::to_string(yuv.v) +
            ",setparams=range=full -c:v libx264 -color_range pc -qp 0 -threads 1");
    ASSERT_EQ(stream_of(path)->pix_fmt, static_cast<int>(AV_PIX_FMT_YUVJ420P));
    const auto picture = first_picture(path, PixelFormat::Rgba);
    ASSERT_NE(picture, nullptr);
    expect_packed(*picture, to_rgb(yuv, true), {0, 1, 2, 3}, 1, false);
}

INSTANTIATE_TEST_SUITE_P(Colours, FFDecoderColourTest,
                         ::testing::Values(Colour{"Red", {81, 90, 240}},
                                           Colour{"Blue", {41, 240, 110}},
                                           Colour{"Sand", {120, 100, 150}},
                                           Colour{"Grey", {128, 128, 128}}),
                         [](const auto& row) { return std::string(row.param.name); });

// Sizes

namespace {

struct Division {
    const char* name;
    const char* source;  // size of the stream's pictures
    int divider;
    int width, height;  // of the result
};

class FFDecoderSizeTest : public ::testing::TestWithParam<Division> {};

}  // namespace

TEST_P(FFDecoderSizeTest, FollowsTheDivider) {
    const Division& row = GetParam();
    const std::string path = fw_test::clip_flat({81, 90, 240}, row.source);
    const ff::StreamCtx& stream = *stream_of(path);
    for (const PixelFormat format : {PixelFormat::Rgba, PixelFormat::Yuv420p, PixelFormat::Nv12,
                                     PixelFormat::Bgra64be, PixelFormat::Bgra64le}) {
        SCOPED_TRACE(static_cast<int>(format));
        const auto picture = first_picture(path, format, row.divider);
        ASSERT_NE(picture, nullptr);
        EXPECT_EQ(picture->width, row.width);
        EXPECT_EQ(picture->height, row.height);
        EXPECT_EQ(picture->src_width, stream.width);
        EXPECT_EQ(picture->src_height, stream.height);
        EXPECT_EQ(picture->divider, row.divider);
        EXPECT_EQ(picture->format, ff::pixfmt_to_avpixfmt(format));
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(picture->buffer) % 16, 0U);
        EXPECT_EQ(picture->data[0], picture->buffer);
        EXPECT_EQ(picture->linesize[0] % 32, 0);
        EXPECT_GE(picture->size, picture->linesize[0] * picture->height);
        const bool is_packed = format != PixelFormat::Yuv420p && format != PixelFormat::Nv12;
        const int x = picture->width - 1;
        const int y = picture->height - 1;
        if (is_packed) {
            const int bytes = format == PixelFormat::Rgba ? 4 : 8;
            EXPECT_GE(picture->linesize[0], picture->width * bytes);
            const std::vector<int> pixel = fw_test::packed_pixel(*picture, x, y, bytes);
            EXPECT_EQ(pixel.back(), 255) << "the last row is filled";
        } else {
            // Both directions are scaled, but one colour stays one colour.
            const bool is_scaled = picture->width != stream.width;
            EXPECT_EQ(fw_test::plane_byte(*picture, 0, x, y), 81);
            EXPECT_EQ(fw_test::plane_byte(*picture, 1,
                                          x / 2 * (format == PixelFormat::Nv12 ? 2 : 1), y / 2),
                      is_scaled ? fast_bilinear_chroma(90) : 90);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Sizes, FFDecoderSizeTest,
    ::testing::Values(
        Division{"Zero", "64x48", 0, 64, 48}, Division{"Negative", "64x48", -3, 64, 48},
        Division{"Minimum", "64x48", std::numeric_limits<int>::min(), 64, 48},
        Division{"One", "64x48", 1, 64, 48}, Division{"Two", "64x48", 2, 32, 24},
        Division{"Third", "1920x1080", 3, 640, 360}, Division{"Seventh", "1920x1080", 7, 288, 154},
        Division{"AllOfTheHeight", "64x48", 48, 16, 2}, Division{"Odd", "161x121", 1, 161, 121},
        Division{"HalfOfOdd", "161x121", 2, 80, 60}, Division{"ThirdOfOdd", "161x121", 3, 64, 40},
        Division{"Tiny", "18x18", 1, 18, 18}, Division{"NinthOfTiny", "18x18", 9, 16, 2}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(FFDecoderPictureTest, GivesNothingWhenTheDividerLeavesNothing) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_flat({81, 90, 240}, "64x48"))));

    for (const int divider : {49, 64, 65, std::numeric_limits<int>::max()}) {
        LogCapture log;
        EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1}, PixelFormat::Rgba, divider)), nullptr);
        EXPECT_EQ(log.texts(2), std::vector<std::string>{"divider " + std::to_string(divider) +
                                                         " leaves nothing of 64x48"});
        EXPECT_EQ(log.find("divider")->file, "src/ffdecoder_private");
        EXPECT_EQ(log.find("divider")->tag.rfind("dec_", 0), 0U);
    }
    EXPECT_NE(decoder.getVideoFrame(picture_at({0, 1}, PixelFormat::Rgba, 48)), nullptr);
}

TEST(FFDecoderPictureTest, GivesNothingInAFormatThatItDoesNotKnow) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_flat({81, 90, 240}, "64x48"))));
    for (const int format : {0, -1, 6, 999110, 999112, std::numeric_limits<int>::max(),
                             std::numeric_limits<int>::min()}) {
        LogCapture log;
        EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1}, static_cast<PixelFormat>(format))),
                  nullptr);
        EXPECT_EQ(log.texts(2),
                  std::vector<std::string>{
                      "no memory or no such format for a picture of 64x48, pixel format " +
                      std::to_string(format)});
        EXPECT_EQ(log.find("no such format")->file, "src/ffdecoder_private");
        EXPECT_EQ(log.find("no such format")->tag.rfind("dec_", 0), 0U);
    }
    EXPECT_NE(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
}

TEST(FFDecoderPictureTest, ChangesFormatAndSizeFromRequestToRequest) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_flat({81, 90, 240}, "64x48"))));
    for (int round = 0; round < 3; ++round) {
        const auto rgba = decoder.getVideoFrame(picture_at({0, 1}, PixelFormat::Rgba));
        const auto half = decoder.getVideoFrame(picture_at({1, 1}, PixelFormat::Yuv420p, 2));
        const auto nv12 = decoder.getVideoFrame(picture_at({0, 1}, PixelFormat::Nv12));
        ASSERT_TRUE(rgba && half && nv12);
        expect_packed(*rgba, to_rgb({81, 90, 240}, false), {0, 1, 2, 3}, 1, false);
        expect_plane(*half, 0, 0, 24, 32, 81);
        expect_plane(*half, 2, 0, 12, 16, fast_bilinear_chroma(240));
        expect_plane(*nv12, 0, 0, 48, 64, 81);
        EXPECT_EQ(rgba->pts, 0);
        EXPECT_EQ(half->pts, 1000000);
    }
}

TEST(FFDecoderPictureTest, LaysThePlanesIntoTheBufferOneAfterTheOther) {
    const auto picture =
        first_picture(fw_test::clip_flat({81, 90, 240}, "161x121"), PixelFormat::Yuv420p);
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->linesize[0], 192);
    EXPECT_EQ(picture->linesize[1], 96);
    EXPECT_EQ(picture->linesize[2], 96);
    EXPECT_EQ(picture->data[1], picture->buffer + 192 * 121);
    EXPECT_EQ(picture->data[2], picture->data[1] + 96 * 61);
    EXPECT_EQ(picture->size, 192 * 121 + 2 * 96 * 61);
    for (std::size_t plane = 3; plane < 8; ++plane) {
        EXPECT_EQ(picture->data[plane], nullptr);
        EXPECT_EQ(picture->linesize[plane], 0);
    }
}
