// Hardware decoding as a host meets it: probe, decoder and filters, with the driver that stands in
// for a real one.

#include "tests/hw/stand_in_driver/stand_in.h"
#include "tests/support/decoders.h"
#include "tests/support/log_capture.h"
#include "tests/support/media.h"
#include "tests/support/temp_file.h"

#include <framewell/ff_tools.h>
#include <framewell/ffdecoder.h>
#include <framewell/ffdecoder2.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using ff::PixelFormat;
using fw_test::clip_h264;
using fw_test::kStandInChroma;
using fw_test::kStandInLuma;
using fw_test::LogCapture;
using fw_test::luma_of;
using fw_test::picture_at;
using fw_test::plane_byte;
using fw_test::stream_of;

void expect_flat(const ff::VFrameCtx* picture) {
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->format, AV_PIX_FMT_YUV420P);
    for (const int x : {0, picture->width / 2 - 1}) {
        for (const int y : {0, picture->height / 2 - 1}) {
            EXPECT_EQ(plane_byte(*picture, 0, 2 * x, 2 * y), kStandInLuma);
            EXPECT_EQ(plane_byte(*picture, 1, x, y), kStandInChroma);
            EXPECT_EQ(plane_byte(*picture, 2, x, y), kStandInChroma);
        }
    }
}

class StandInDecoderTest : public fw_test::StandInFixture {
protected:
    /// A path of its own for the clip, since a path is probed once.
    const fw_test::TempFile file{"device.mp4", fw_test::read_file(clip_h264())};

    /// The picture as software decodes it, and turned over if `mirrored`. Of a file of its own:
    /// decoders on one stream share their workers, those that decode on the device as well.
    static std::string software_luma(const ff::Rational& time, bool mirrored = false) {
        static const fw_test::TempFile s_file("software.mp4", fw_test::read_file(clip_h264()));
        const LogCapture quiet;
        ff::hw_disable();
        ff::FFDecoder2 decoder;
        EXPECT_TRUE(decoder.open(stream_of(s_file.path())));
        EXPECT_TRUE(decoder.setFilters(mirrored ? "hflip" : ""));
        const auto picture = decoder.getVideoFrame(picture_at(time));
        EXPECT_TRUE(ff::hw_enable_device("cuda"));
        return picture != nullptr ? luma_of(*picture) : "";
    }
};

TEST_F(StandInDecoderTest, TheProbeTellsWhatPicturesOfTheDeviceAre) {
    const LogCapture log;
    const ff::StreamCtx* const stream = stream_of(file.path());
    EXPECT_EQ(stream->codec_pix_fmt, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(stream->hw_pix_fmt, AV_PIX_FMT_NV12);
    EXPECT_EQ(stream->pix_fmt, AV_PIX_FMT_NV12);
    EXPECT_EQ(log.count_exactly("[hw enabled] pix_fmt convert: 0 --> 23"), 1U);
}

TEST_F(StandInDecoderTest, PicturesComeInTheFormatThatIsAskedFor) {
    ff::FFDecoder decoder;
    const LogCapture quiet;
    ASSERT_TRUE(decoder.open(stream_of(file.path())));
    for (const int second : {3, 1, 0, 2}) {
        const auto picture = decoder.getVideoFrame(picture_at({second, 1}));
        expect_flat(picture.get());
        EXPECT_EQ(picture->pts, second * 1000000);
    }
    const auto small = decoder.getVideoFrame(picture_at({1, 1}, PixelFormat::Rgba, 2));
    ASSERT_NE(small, nullptr);
    EXPECT_EQ(small->width, 160);
}

TEST_F(StandInDecoderTest, ARecordOfSoftwareServesTheDevice) {
    const LogCapture quiet;
    ff::hw_disable();
    const ff::StreamCtx* const stream = stream_of(file.path());
    EXPECT_EQ(stream->pix_fmt, AV_PIX_FMT_YUV420P);
    ASSERT_TRUE(ff::hw_enable_device("cuda"));
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream));
    expect_flat(decoder.getVideoFrame(picture_at({1, 1})).get());
}

TEST_F(StandInDecoderTest, ARecordOfTheDeviceServesSoftware) {
    const LogCapture quiet;
    const ff::StreamCtx* const stream = stream_of(file.path());
    ff::hw_disable();
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream));
    const auto picture = decoder.getVideoFrame(picture_at({1, 1}));
    ASSERT_NE(picture, nullptr);
    EXPECT_TRUE(luma_of(*picture) == software_luma({1, 1}));
}

TEST_F(StandInDecoderTest, FiltersTakePicturesOfEitherKind) {
    const LogCapture quiet;
    const ff::StreamCtx* const of_device = stream_of(file.path());
    ff::hw_disable();
    const fw_test::TempFile other_file("software.mp4", fw_test::read_file(clip_h264()));
    const ff::StreamCtx* const of_software = stream_of(other_file.path());
    ASSERT_TRUE(ff::hw_enable_device("cuda"));
    ff::FFDecoder2 decoder;
    ASSERT_TRUE(decoder.open(of_software));
    ASSERT_TRUE(decoder.setFilters("hflip"));
    expect_flat(decoder.getVideoFrame(picture_at({1, 1})).get());

    ff::hw_disable();
    ff::FFDecoder2 other;
    ASSERT_TRUE(other.open(of_device));
    ASSERT_TRUE(other.setFilters("hflip"));
    const auto picture = other.getVideoFrame(picture_at({1, 1}));
    ASSERT_NE(picture, nullptr);
    EXPECT_TRUE(luma_of(*picture) == software_luma({1, 1}, true));
}

TEST_F(StandInDecoderTest, SoftwareGivesItsExactPicturesWhereTheDeviceCannot) {
    for (const char* const step : {"init", "create"}) {
        fail_at(step);
        const LogCapture quiet;
        ff::FFDecoder decoder;
        ASSERT_TRUE(decoder.open(stream_of(file.path()))) << step;
        const auto picture = decoder.getVideoFrame(picture_at({2, 1}));
        ASSERT_NE(picture, nullptr) << step;
        EXPECT_TRUE(luma_of(*picture) == software_luma({2, 1})) << step;
    }
}

TEST_F(StandInDecoderTest, PicturesThatCannotBeCopiedAreNoneUntilTheDecoderIsOpenedAnew) {
    ff::FFDecoder decoder;
    const LogCapture quiet;
    ASSERT_TRUE(decoder.open(stream_of(file.path())));
    fw_test::g_fail_transfer = true;
    {
        // Decoding goes on behind a lost picture, and here every one is lost.
        const LogCapture log;
        EXPECT_EQ(decoder.getVideoFrame(picture_at({1, 1})), nullptr);
        EXPECT_GT(log.count("[hwdec] error transferring the data to system memory"), 0U);
        EXPECT_EQ(log.count_exactly("bad movie: unexpected eof"), 1U);
    }
    fw_test::g_fail_transfer = false;
    decoder.close();
    ASSERT_TRUE(decoder.reopen());
    const auto picture = decoder.getVideoFrame(picture_at({1, 1}));
    expect_flat(picture.get());
}

TEST_F(StandInDecoderTest, ADeviceThatIsLostIsLeftByOpeningAnew) {
    for (const char* const step : {"decode", "map"}) {
        ff::FFDecoder decoder;
        const LogCapture quiet;
        fail_at("");
        ASSERT_TRUE(decoder.open(stream_of(file.path())));
        expect_flat(decoder.getVideoFrame(picture_at({1, 1})).get());
        fail_at(step);
        EXPECT_EQ(decoder.getVideoFrame(picture_at({3, 1})), nullptr) << step;
        ff::hw_disable();
        decoder.close();
        ASSERT_TRUE(decoder.reopen());
        const auto picture = decoder.getVideoFrame(picture_at({3, 1}));
        ASSERT_NE(picture, nullptr) << step;
        EXPECT_TRUE(luma_of(*picture) == software_luma({3, 1})) << step;
    }
}

TEST_F(StandInDecoderTest, ACoverComesFromTheDevice) {
    const LogCapture quiet;
    ff::RequireMvImage request;
    request.time = {1, 1};
    request.format = PixelFormat::Yuv420p;
    expect_flat(ff::getMovieImage(file.path().c_str(), request, nullptr).get());
}

}  // namespace
