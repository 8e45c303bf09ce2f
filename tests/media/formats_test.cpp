#include "media/ff_compat.h"

#include <framewell/media/formats.h>

#include <gtest/gtest.h>

#include <string>

namespace {

using ff::PixelFormat;
using ff::SampleFormat;

struct PixelRow {
    int own;
    AVPixelFormat ffmpeg;
};

class PixelFormatTest : public testing::TestWithParam<PixelRow> {};

TEST_P(PixelFormatTest, MapsBothWays) {
    const auto own = static_cast<PixelFormat>(GetParam().own);
    EXPECT_EQ(ff::pixfmt_to_avpixfmt(own), GetParam().ffmpeg);
    EXPECT_EQ(ff::avpixfmt_to_pixfmt(GetParam().ffmpeg), own);
}

INSTANTIATE_TEST_SUITE_P(Table, PixelFormatTest,
                         testing::Values(PixelRow{1, AV_PIX_FMT_RGBA},
                                         PixelRow{2, AV_PIX_FMT_YUV420P},
                                         PixelRow{3, AV_PIX_FMT_NV12},
                                         PixelRow{4, AV_PIX_FMT_BGRA64BE},
                                         PixelRow{5, AV_PIX_FMT_BGRA64LE}),
                         [](const testing::TestParamInfo<PixelRow>& row) {
                             return std::string(av_get_pix_fmt_name(row.param.ffmpeg));
                         });

TEST(FormatsTest, OtherPixelFormatsHaveNoCounterpart) {
    for (const int value : {0, 6, -1, 999111, 2147483647}) {
        EXPECT_EQ(ff::pixfmt_to_avpixfmt(static_cast<PixelFormat>(value)), AV_PIX_FMT_NONE);
    }
    for (const int value : {-1, static_cast<int>(AV_PIX_FMT_BGRA), 1000000, -2147483647 - 1}) {
        EXPECT_EQ(ff::avpixfmt_to_pixfmt(value), PixelFormat::None);
    }
}

TEST(FormatsTest, SampleFormatsAreOneAboveThoseOfFfmpeg) {
    EXPECT_EQ(ff::samplefmt_to_avsamplefmt(SampleFormat::U8), AV_SAMPLE_FMT_U8);
    EXPECT_EQ(ff::samplefmt_to_avsamplefmt(SampleFormat::Flt), AV_SAMPLE_FMT_FLT);
    for (int value = 1; value <= 4; ++value) {
        EXPECT_EQ(ff::samplefmt_to_avsamplefmt(static_cast<SampleFormat>(value)), value - 1);
        EXPECT_EQ(ff::avsamplefmt_to_samplefmt(value - 1), static_cast<SampleFormat>(value));
    }
}

TEST(FormatsTest, OtherSampleFormatsHaveNoCounterpart) {
    for (const int value : {0, 5, -1, 999111}) {
        EXPECT_EQ(ff::samplefmt_to_avsamplefmt(static_cast<SampleFormat>(value)),
                  AV_SAMPLE_FMT_NONE);
    }
    for (const int value :
         {-1, static_cast<int>(AV_SAMPLE_FMT_DBL), static_cast<int>(AV_SAMPLE_FMT_U8P),
          static_cast<int>(AV_SAMPLE_FMT_S16P), 1000}) {
        EXPECT_EQ(ff::avsamplefmt_to_samplefmt(value), SampleFormat::None);
    }
}

TEST(FormatsTest, SubtitleStreamsAreNumberTwo) {
    EXPECT_EQ(static_cast<int>(ff::StreamType::Video), 0);
    EXPECT_EQ(static_cast<int>(ff::StreamType::Audio), 1);
    EXPECT_EQ(static_cast<int>(ff::StreamType::Subtitle), 2);
    EXPECT_EQ(static_cast<int>(PixelFormat::SeekOnly), 999111);
    EXPECT_EQ(static_cast<int>(SampleFormat::SeekOnly), ff::SEEK_ONLY_FORMAT);
}

}  // namespace
