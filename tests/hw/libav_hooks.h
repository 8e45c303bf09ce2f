#pragma once

/// @file
/// The hardware decoder without hardware: the test program defines some of libav's functions itself
/// (in hw_decoder_test.cpp). Its definitions come before those of the shared libraries, and call
/// them unless a test has put something else in their place.

#include "hw/hw_decoder.h"
#include "tests/hw/hw_decode.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <vector>

namespace fw_test {

/// What stands in for libav's functions; empty: the function itself.
struct Hooks {
    std::function<AVCodecContext*(const AVCodec*)> alloc_context;
    std::function<const AVCodecHWConfig*(const AVCodec*, int)> get_hw_config;
    std::function<int(AVCodecContext*, AVFrame*)> receive_frame;
    std::function<int(AVBufferRef**, AVHWDeviceType)> create_device;
    std::function<AVHWDeviceType(AVHWDeviceType)> iterate_types;
    std::function<int(AVFrame*, const AVFrame*)> transfer;
};

extern Hooks g_hooks;

inline const AVCodecHWConfig kVaapiConfig = {
    AV_PIX_FMT_VAAPI, AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX, AV_HWDEVICE_TYPE_VAAPI};

inline HwCodecContextPtr alloc_context(AVCodecID id) {
    return HwCodecContextPtr(
        ff::HWDecoder::instance()->hw_codec_alloc_context3(avcodec_find_decoder(id)));
}

/// Every test starts and ends with hardware decoding off and libav as it is.
class HWDecoderTest : public testing::Test {
protected:
    void SetUp() override { reset(); }

    void TearDown() override { reset(); }

    /// Makes "vaapi" the device, whose creation succeeds and which every video codec can use.
    void enable_pretended_device() {
        g_hooks.get_hw_config = [](const AVCodec*, int index) {
            return index == 0 ? &kVaapiConfig : nullptr;
        };
        g_hooks.create_device = [this](AVBufferRef** device, AVHWDeviceType) {
            ++m_nb_created;
            // Like a device that is in use, without the driver behind it.
            *device = av_buffer_alloc(sizeof(AVHWDeviceContext));
            auto* const context = reinterpret_cast<AVHWDeviceContext*>((*device)->data);
            *context = AVHWDeviceContext{};
            context->type = AV_HWDEVICE_TYPE_VAAPI;
            return 0;
        };
        ASSERT_TRUE(ff::hw_enable_device("vaapi"));
    }

    /// Lets the decoder put out these pictures, one per call, then its end.
    void decode_into(std::vector<ff::FramePtr>* pictures) {
        g_hooks.receive_frame = [pictures](AVCodecContext*, AVFrame* frame) {
            av_frame_unref(frame);
            if (pictures->empty()) {
                return AVERROR_EOF;
            }
            av_frame_move_ref(frame, pictures->front().get());
            pictures->erase(pictures->begin());
            return 0;
        };
    }

    /// Lets the transfer give an NV12 picture of the size of the source.
    void transfer_as_nv12() {
        g_hooks.transfer = [this](AVFrame* to, const AVFrame* from) {
            ++m_nb_transfers;
            to->format = AV_PIX_FMT_NV12;
            to->width = from->width;
            to->height = from->height;
            return av_frame_get_buffer(to, 0);
        };
    }

    std::atomic<int> m_nb_created{0};
    int m_nb_transfers = 0;

private:
    static void reset() {
        g_hooks = Hooks();
        const LogCapture quiet;
        ff::hw_disable();
    }
};

}  // namespace fw_test
