// Receiving pictures through the hardware decoder.

#include "hw/hw_decoder.h"
#include "tests/hw/libav_hooks.h"
#include "tests/support/log_capture.h"
#include "tests/support/media.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace {

using ff::FramePtr;
using ff::HWDecoder;
using fw_test::alloc_context;
using fw_test::DecodeRun;
using fw_test::g_hooks;
using fw_test::HwCodecContextPtr;
using fw_test::HWDecoderTest;
using fw_test::LogCapture;
using Texts = std::vector<std::string>;

constexpr int kDone = AVERROR_EOF;

FramePtr picture(int format, std::int64_t pts) {
    FramePtr frame(av_frame_alloc());
    frame->format = format;
    frame->width = 64;
    frame->height = 48;
    frame->pts = pts;
    frame->buf[0] = av_buffer_alloc(16);  // a frame without one is an empty frame
    frame->data[0] = frame->buf[0]->data;
    return frame;
}

TEST_F(HWDecoderTest, RefusesToReceiveWithoutAContextOrAFrame) {
    const FramePtr frame(av_frame_alloc());
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    const LogCapture log;
    EXPECT_LT(HWDecoder::instance()->hw_codec_receive_frame(nullptr, frame.get()), 0);
    EXPECT_LT(HWDecoder::instance()->hw_codec_receive_frame(ctx.get(), nullptr), 0);
    EXPECT_EQ(log.texts(2).size(), 2U);
    EXPECT_LT(HWDecoder::instance()->hw_codec_receive_frame(ctx.get(), frame.get()), 0);  // closed
}

TEST_F(HWDecoderTest, CopiesDevicePicturesToSystemMemoryWithWhatDescribesThem) {
    enable_pretended_device();
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    FramePtr source = picture(AV_PIX_FMT_VAAPI, 512);
    source->pkt_dts = 256;
    source->best_effort_timestamp = 511;
    ff::compat::set_frame_duration(source.get(), 40);
    source->flags = AV_FRAME_FLAG_CORRUPT;
    source->decode_error_flags = FF_DECODE_ERROR_MISSING_REFERENCE;
    source->sample_aspect_ratio = {4, 3};
    source->color_range = AVCOL_RANGE_JPEG;
    source->color_primaries = AVCOL_PRI_BT709;
    source->color_trc = AVCOL_TRC_BT709;
    source->colorspace = AVCOL_SPC_BT709;
    source->chroma_location = AVCHROMA_LOC_TOPLEFT;
    std::vector<FramePtr> pictures;
    pictures.push_back(std::move(source));
    decode_into(&pictures);
    transfer_as_nv12();
    const FramePtr frame(av_frame_alloc());
    ASSERT_EQ(HWDecoder::instance()->hw_codec_receive_frame(ctx.get(), frame.get()), 0);
    EXPECT_EQ(frame->format, AV_PIX_FMT_NV12);
    EXPECT_EQ(frame->width, 64);
    EXPECT_EQ(frame->pts, 512);
    EXPECT_EQ(frame->pkt_dts, 256);
    EXPECT_EQ(frame->best_effort_timestamp, 511);
    EXPECT_EQ(ff::compat::frame_duration(*frame), 40);
    EXPECT_EQ(frame->flags, AV_FRAME_FLAG_CORRUPT);
    EXPECT_EQ(frame->decode_error_flags, FF_DECODE_ERROR_MISSING_REFERENCE);
    EXPECT_EQ(av_cmp_q(frame->sample_aspect_ratio, AVRational{4, 3}), 0);
    EXPECT_EQ(frame->color_range, AVCOL_RANGE_JPEG);
    EXPECT_EQ(frame->color_primaries, AVCOL_PRI_BT709);
    EXPECT_EQ(frame->color_trc, AVCOL_TRC_BT709);
    EXPECT_EQ(frame->colorspace, AVCOL_SPC_BT709);
    EXPECT_EQ(frame->chroma_location, AVCHROMA_LOC_TOPLEFT);
    EXPECT_EQ(m_nb_transfers, 1);
}

TEST_F(HWDecoderTest, ReportsTheFirstDevicePictureOfEachContextOnce) {
    enable_pretended_device();
    transfer_as_nv12();
    const LogCapture log;
    const FramePtr frame(av_frame_alloc());
    for (int i = 1; i <= 2; ++i) {
        const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
        std::vector<FramePtr> pictures;
        pictures.push_back(picture(AV_PIX_FMT_VAAPI, 0));
        pictures.push_back(picture(AV_PIX_FMT_VAAPI, 1));
        decode_into(&pictures);
        HWDecoder* const decoder = HWDecoder::instance();
        EXPECT_EQ(decoder->hw_codec_receive_frame(ctx.get(), frame.get()), 0);
        EXPECT_EQ(ff::hw_format_state(ctx.get())->state, 2);
        EXPECT_EQ(decoder->hw_codec_receive_frame(ctx.get(), frame.get()), 0);
        EXPECT_EQ(decoder->hw_codec_receive_frame(ctx.get(), frame.get()), kDone);
        EXPECT_EQ(log.texts(2),
                  Texts(static_cast<std::size_t>(i), "[hwdec] device 'vaapi' is OK for 'h264'"));
    }
    EXPECT_EQ(m_nb_transfers, 4);
}

TEST_F(HWDecoderTest, LosesOnlyThePictureThatCannotBeCopied) {
    enable_pretended_device();
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    std::vector<FramePtr> pictures;
    pictures.push_back(picture(AV_PIX_FMT_VAAPI, 0));
    pictures.push_back(picture(AV_PIX_FMT_VAAPI, 1));
    decode_into(&pictures);
    const LogCapture log;
    const FramePtr frame(av_frame_alloc());
    g_hooks.transfer = [](AVFrame*, const AVFrame*) { return AVERROR(EIO); };
    HWDecoder* const decoder = HWDecoder::instance();
    EXPECT_EQ(decoder->hw_codec_receive_frame(ctx.get(), frame.get()), AVERROR(EIO));
    EXPECT_EQ(frame->buf[0], nullptr);
    EXPECT_EQ(frame->width, 0);
    EXPECT_EQ(log.texts(2), (Texts{"[hwdec] device 'vaapi' is OK for 'h264'",
                                   "[hwdec] error transferring the data to system memory"}));
    transfer_as_nv12();
    EXPECT_EQ(decoder->hw_codec_receive_frame(ctx.get(), frame.get()), 0);
    EXPECT_EQ(frame->pts, 1);
}

TEST_F(HWDecoderTest, HandsOnSoftwarePicturesAsTheyAre) {
    enable_pretended_device();
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    std::vector<FramePtr> pictures;
    pictures.push_back(picture(AV_PIX_FMT_YUV420P, 3));
    const std::uint8_t* const data = pictures.front()->data[0];
    decode_into(&pictures);
    transfer_as_nv12();
    const LogCapture log;
    const FramePtr frame(av_frame_alloc());
    EXPECT_EQ(HWDecoder::instance()->hw_codec_receive_frame(ctx.get(), frame.get()), 0);
    EXPECT_EQ(frame->data[0], data);
    EXPECT_EQ(frame->format, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(m_nb_transfers, 0);
    EXPECT_EQ(ff::hw_format_state(ctx.get())->state, 1);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(HWDecoderTest, CopiesPicturesOfOpenContextsAfterTheHostChoseOtherwise) {
    enable_pretended_device();
    transfer_as_nv12();
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    std::vector<FramePtr> pictures;
    pictures.push_back(picture(AV_PIX_FMT_VAAPI, 0));
    pictures.push_back(picture(AV_PIX_FMT_VAAPI, 1));
    decode_into(&pictures);
    ff::hw_disable();
    const FramePtr frame(av_frame_alloc());
    EXPECT_EQ(HWDecoder::instance()->hw_codec_receive_frame(ctx.get(), frame.get()), 0);
    EXPECT_EQ(frame->format, AV_PIX_FMT_NV12);
    // A change of format within the stream was refused while this picture waited its turn.
    ff::hw_format_state(ctx.get())->state = 0;
    EXPECT_EQ(HWDecoder::instance()->hw_codec_receive_frame(ctx.get(), frame.get()), 0);
    EXPECT_EQ(frame->format, AV_PIX_FMT_NV12);
}

TEST_F(HWDecoderTest, DecodesInSoftwareWhereTheDeviceIsMissing) {
    const AVCodec* const codec = avcodec_find_decoder(AV_CODEC_ID_H264);
    std::string missing;
    for (int i = 0; const AVCodecHWConfig* const config = avcodec_get_hw_config(codec, i); ++i) {
        AVBufferRef* created = nullptr;
        if ((config->methods & AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX) != 0 &&
            av_hwdevice_ctx_create(&created, config->device_type, nullptr, nullptr, 0) < 0) {
            missing = av_hwdevice_get_type_name(config->device_type);
        }
        av_buffer_unref(&created);
    }
    if (missing.empty()) {
        GTEST_SKIP() << "this machine has every device that H.264 can use";
    }
    const DecodeRun plain = fw_test::decode_clip(fw_test::clip_h264());
    ASSERT_TRUE(ff::hw_enable_device(missing.c_str()));
    const LogCapture log;
    const DecodeRun run = fw_test::decode_clip(fw_test::clip_h264());
    EXPECT_FALSE(run.had_device);
    ASSERT_EQ(run.pictures.size(), plain.pictures.size());
    EXPECT_EQ(run.pictures.front().format, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(log.texts(2), Texts{"Failed to create specified HW device. ==> " + missing});
}

TEST_F(HWDecoderTest, DecodesInSoftwareWhereTheDecoderDoesNotOfferTheFormat) {
    enable_pretended_device();
    // A device that no H.264 decoder knows, so that the decoder offers everything but its format.
    static const AVCodecHWConfig s_config = {
        AV_PIX_FMT_OPENCL, AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX, AV_HWDEVICE_TYPE_VAAPI};
    g_hooks.get_hw_config = [](const AVCodec*, int index) {
        return index == 0 ? &s_config : nullptr;
    };
    const auto create = g_hooks.create_device;
    g_hooks.create_device = [create](AVBufferRef** device, AVHWDeviceType type) {
        const int r = create(device, type);
        reinterpret_cast<AVHWDeviceContext*>((*device)->data)->type = AV_HWDEVICE_TYPE_OPENCL;
        return r;
    };
    transfer_as_nv12();
    const LogCapture log;
    const DecodeRun run = fw_test::decode_clip(fw_test::clip_h264());
    EXPECT_TRUE(run.had_device);
    EXPECT_EQ(run.final_state, 0);
    EXPECT_EQ(run.pictures.size(), 120U);
    EXPECT_TRUE(run.receive_errors.empty());
    for (const fw_test::DecodedPicture& decoded : run.pictures) {
        ASSERT_EQ(decoded.format, AV_PIX_FMT_YUV420P);
    }
    EXPECT_EQ(m_nb_transfers, 0);
    // One line for each device that the decoder offers before it comes to software.
    EXPECT_GE(log.count_exactly("Failed to get HW surface format. 当前硬解码不支持该像素格式"), 1U);
}

}  // namespace
