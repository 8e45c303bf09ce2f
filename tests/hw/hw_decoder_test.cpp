// The choice of a device, and the contexts that are set up for it.

#include "hw/hw_decoder.h"

#include "tests/hw/libav_hooks.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

fw_test::Hooks fw_test::g_hooks;

using fw_test::g_hooks;

namespace {

template <class Function>
Function* real(const char* name) {
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

AVCodecContext* avcodec_alloc_context3(const AVCodec* codec) {
    static auto* const s_real = real<AVCodecContext*(const AVCodec*)>("avcodec_alloc_context3");
    return g_hooks.alloc_context ? g_hooks.alloc_context(codec) : s_real(codec);
}

const AVCodecHWConfig* avcodec_get_hw_config(const AVCodec* codec, int index) {
    static auto* const s_real =
        real<const AVCodecHWConfig*(const AVCodec*, int)>("avcodec_get_hw_config");
    return g_hooks.get_hw_config ? g_hooks.get_hw_config(codec, index) : s_real(codec, index);
}

int avcodec_receive_frame(AVCodecContext* ctx, AVFrame* frame) {
    static auto* const s_real = real<int(AVCodecContext*, AVFrame*)>("avcodec_receive_frame");
    return g_hooks.receive_frame ? g_hooks.receive_frame(ctx, frame) : s_real(ctx, frame);
}

int av_hwdevice_ctx_create(AVBufferRef** device, AVHWDeviceType type, const char* name,
                           AVDictionary* options, int flags) {
    static auto* const s_real =
        real<int(AVBufferRef**, AVHWDeviceType, const char*, AVDictionary*, int)>(
            "av_hwdevice_ctx_create");
    return g_hooks.create_device ? g_hooks.create_device(device, type)
                                 : s_real(device, type, name, options, flags);
}

AVHWDeviceType av_hwdevice_iterate_types(AVHWDeviceType previous) {
    static auto* const s_real = real<AVHWDeviceType(AVHWDeviceType)>("av_hwdevice_iterate_types");
    return g_hooks.iterate_types ? g_hooks.iterate_types(previous) : s_real(previous);
}

int av_hwframe_transfer_data(AVFrame* to, const AVFrame* from, int flags) {
    static auto* const s_real =
        real<int(AVFrame*, const AVFrame*, int)>("av_hwframe_transfer_data");
    return g_hooks.transfer ? g_hooks.transfer(to, from) : s_real(to, from, flags);
}

}  // extern "C"

namespace {

using ff::HWDecoder;
using ff::HwFormatState;
using fw_test::alloc_context;
using fw_test::HwCodecContextPtr;
using fw_test::HWDecoderTest;
using fw_test::LogCapture;
using Texts = std::vector<std::string>;

std::string device_list() {
    std::string list;
    AVHWDeviceType type = AV_HWDEVICE_TYPE_NONE;
    while ((type = av_hwdevice_iterate_types(type)) != AV_HWDEVICE_TYPE_NONE) {
        list += std::string(av_hwdevice_get_type_name(type)) + ",";
    }
    return list;
}

void expect_plain(const AVCodecContext* ctx) {
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(ctx->get_format, &avcodec_default_get_format);
    EXPECT_EQ(ctx->opaque, nullptr);
    EXPECT_EQ(ctx->hw_device_ctx, nullptr);
    EXPECT_EQ(ff::hw_format_state(ctx), nullptr);
}

TEST_F(HWDecoderTest, HasOneInstance) {
    EXPECT_NE(HWDecoder::instance(), nullptr);
    EXPECT_EQ(HWDecoder::instance(), HWDecoder::instance());
}

TEST_F(HWDecoderTest, ListsTheDeviceTypesInTheOrderOfFfmpeg) {
    const LogCapture log;
    std::string list;
    for (const char* const name : ff::hw_enum_devices()) {
        list += std::string(name) + ",";
    }
    EXPECT_EQ(list, device_list());
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].text(), "[hw]# available device types: " + list);
    EXPECT_EQ(log.lines()[0].level, 2);
    EXPECT_EQ(log.lines()[0].tag, "hw");
    EXPECT_EQ(log.lines()[0].file, "src/hw/hw_decoder");
}

TEST_F(HWDecoderTest, KnownNamesAreAccepted) {
    ASSERT_NE(av_hwdevice_find_type_by_name("vaapi"), AV_HWDEVICE_TYPE_NONE);
    const LogCapture log;
    EXPECT_TRUE(ff::hw_enable_device("vaapi"));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(HWDecoderTest, AnUnknownNameKeepsTheChoiceAndListsTheKnownOnes) {
    ASSERT_TRUE(ff::hw_enable_device("vaapi"));
    const LogCapture log;
    EXPECT_FALSE(ff::hw_enable_device("no such device"));
    EXPECT_EQ(log.texts(2), (Texts{"Device type 'no such device' is not supported.",
                                   "[hw]# available device types: " + device_list()}));
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_GIF);
    EXPECT_EQ(log.texts(2).back(), "Decoder 'gif' does not support device type 'vaapi'");
}

TEST_F(HWDecoderTest, AnEmptyNameTakesTheFirstType) {
    const std::vector<const char*> names = ff::hw_enum_devices();
    if (names.empty()) {
        GTEST_SKIP() << "this FFmpeg has no device types";
    }
    const std::string first = names.front();
    for (const char* const name : {static_cast<const char*>(nullptr), ""}) {
        const LogCapture log;
        EXPECT_TRUE(ff::hw_enable_device(name));
        const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_GIF);
        EXPECT_EQ(log.texts(),
                  (Texts{"[hw]# available device types: " + device_list(),
                         "[hw]# Use default HWDevice: '" + first + "'",
                         "Decoder 'gif' does not support device type '" + first + "'"}));
    }
}

TEST_F(HWDecoderTest, AnEmptyNameIsRefusedWhereThereAreNoTypes) {
    g_hooks.iterate_types = [](AVHWDeviceType) { return AV_HWDEVICE_TYPE_NONE; };
    const LogCapture log;
    EXPECT_FALSE(ff::hw_enable_device(""));
    EXPECT_EQ(log.texts(2),
              (Texts{"[hw]# available device types: ", "Device type '' is not supported.",
                     "[hw]# available device types: "}));
    EXPECT_TRUE(ff::hw_enum_devices().empty());
}

TEST_F(HWDecoderTest, GivesPlainContextsAfterDisabling) {
    ASSERT_TRUE(ff::hw_enable_device("vaapi"));
    const LogCapture log;
    ff::hw_disable();
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    expect_plain(ctx.get());
    EXPECT_EQ(log.texts(2), Texts{"disable HWdevice, 用户选择禁用硬件解码器"});
    EXPECT_EQ(log.texts(5), Texts{"type==none, 用户未启用硬件解码"});
}

TEST_F(HWDecoderTest, GivesPlainContextsForSound) {
    enable_pretended_device();
    const LogCapture log;
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_AAC);
    expect_plain(ctx.get());
    EXPECT_EQ(m_nb_created, 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(HWDecoderTest, GivesAPlainContextWithoutACodec) {
    enable_pretended_device();
    const HwCodecContextPtr ctx(HWDecoder::instance()->hw_codec_alloc_context3(nullptr));
    expect_plain(ctx.get());
}

TEST_F(HWDecoderTest, GivesNullWithoutMemory) {
    enable_pretended_device();
    g_hooks.alloc_context = [](const AVCodec*) { return static_cast<AVCodecContext*>(nullptr); };
    EXPECT_EQ(alloc_context(AV_CODEC_ID_H264), nullptr);
    EXPECT_EQ(m_nb_created, 0);
}

TEST_F(HWDecoderTest, GivesPlainContextsForCodecsThatTheDeviceCannotDecode) {
    enable_pretended_device();
    // The right device with another method, and the right method with another device.
    static const AVCodecHWConfig s_configs[] = {
        {AV_PIX_FMT_VAAPI, AV_CODEC_HW_CONFIG_METHOD_AD_HOC, AV_HWDEVICE_TYPE_VAAPI},
        {AV_PIX_FMT_CUDA, AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX, AV_HWDEVICE_TYPE_CUDA}};
    g_hooks.get_hw_config = [](const AVCodec*, int index) {
        return index < 2 ? &s_configs[index] : nullptr;
    };
    const LogCapture log;
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    expect_plain(ctx.get());
    EXPECT_EQ(m_nb_created, 0);
    EXPECT_EQ(log.texts(2), Texts{"Decoder 'h264' does not support device type 'vaapi'"});
}

TEST_F(HWDecoderTest, LeavesContextsAloneWhoseConfigurationHasNoFormat) {
    enable_pretended_device();
    static const AVCodecHWConfig s_config = {
        AV_PIX_FMT_NONE, AV_CODEC_HW_CONFIG_METHOD_HW_DEVICE_CTX, AV_HWDEVICE_TYPE_VAAPI};
    g_hooks.get_hw_config = [](const AVCodec*, int index) {
        return index == 0 ? &s_config : nullptr;
    };
    const LogCapture log;
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    expect_plain(ctx.get());
    EXPECT_EQ(m_nb_created, 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(HWDecoderTest, FallsBackToSoftwareWhenTheDeviceCannotBeCreated) {
    enable_pretended_device();
    g_hooks.create_device = [](AVBufferRef**, AVHWDeviceType) { return AVERROR(ENODEV); };
    const LogCapture log;
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    expect_plain(ctx.get());
    EXPECT_EQ(log.texts(), Texts{"Failed to create specified HW device. ==> vaapi"});
}

TEST_F(HWDecoderTest, SetsContextsUpForTheDevice) {
    enable_pretended_device();
    const LogCapture log;
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(ctx->get_format, &ff::get_hw_format);
    ASSERT_NE(ctx->hw_device_ctx, nullptr);
    const HwFormatState* const state = ff::hw_format_state(ctx.get());
    ASSERT_NE(state, nullptr);
    EXPECT_EQ(ctx->opaque, state);
    EXPECT_EQ(state->state, 1);
    EXPECT_EQ(state->hw_pix_fmt, AV_PIX_FMT_VAAPI);
    EXPECT_EQ(state->previous_opaque, nullptr);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(HWDecoderTest, KeepsTheDevicesOfOpenContextsWhenItMakesAnother) {
    enable_pretended_device();
    const HwCodecContextPtr first = alloc_context(AV_CODEC_ID_H264);
    EXPECT_EQ(av_buffer_get_ref_count(first->hw_device_ctx), 2);
    const HwCodecContextPtr second = alloc_context(AV_CODEC_ID_H264);
    EXPECT_EQ(m_nb_created, 2);
    EXPECT_NE(first->hw_device_ctx->data, second->hw_device_ctx->data);
    EXPECT_EQ(av_buffer_get_ref_count(first->hw_device_ctx), 1);  // its own, and no other
    EXPECT_EQ(av_buffer_get_ref_count(second->hw_device_ctx), 2);
}

TEST_F(HWDecoderTest, ReleasesItsStateAndRestoresTheContext) {
    enable_pretended_device();
    int host_data = 0;
    auto* const s_real = real<AVCodecContext*(const AVCodec*)>("avcodec_alloc_context3");
    g_hooks.alloc_context = [&](const AVCodec* codec) {
        AVCodecContext* const ctx = s_real(codec);
        ctx->opaque = &host_data;
        return ctx;
    };
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    ASSERT_NE(ff::hw_format_state(ctx.get()), nullptr);
    EXPECT_NE(ctx->opaque, &host_data);
    for (int i = 0; i < 2; ++i) {  // the second time finds nothing to do
        ff::hw_codec_release(ctx.get());
        EXPECT_EQ(ctx->opaque, &host_data);
        EXPECT_EQ(ctx->get_format, &avcodec_default_get_format);
        EXPECT_EQ(ff::hw_format_state(ctx.get()), nullptr);
    }
    ff::hw_codec_release(nullptr);
}

TEST_F(HWDecoderTest, ReplacesTheDeviceOfAContextThatIsInitialisedByHand) {
    enable_pretended_device();
    const HwCodecContextPtr ctx(avcodec_alloc_context3(nullptr));
    ff::HWDecoderPrivate priv;
    priv.type = AV_HWDEVICE_TYPE_VAAPI;
    (void)std::snprintf(priv.name, sizeof priv.name, "vaapi");
    EXPECT_EQ(ff::hw_decoder_init(ctx.get(), &priv), 0);
    EXPECT_EQ(ff::hw_decoder_init(ctx.get(), &priv), 0);  // the first device is let go
    ASSERT_NE(ctx->hw_device_ctx, nullptr);
    EXPECT_EQ(ctx->hw_device_ctx->data, priv.device_ref->data);

    g_hooks.create_device = [](AVBufferRef**, AVHWDeviceType) { return AVERROR(ENODEV); };
    const LogCapture log;
    EXPECT_EQ(ff::hw_decoder_init(ctx.get(), &priv), AVERROR(ENODEV));
    EXPECT_EQ(ctx->hw_device_ctx->data, priv.device_ref->data);
    EXPECT_EQ(log.texts(2), Texts{"Failed to create specified HW device. ==> vaapi"});
    EXPECT_EQ(ff::hw_decoder_init(nullptr, &priv), AVERROR(EINVAL));
    EXPECT_EQ(ff::hw_decoder_init(ctx.get(), nullptr), AVERROR(EINVAL));
}

TEST_F(HWDecoderTest, OfAnyFormatsPicksTheFirstWithoutADevice) {
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    const AVPixelFormat formats[] = {AV_PIX_FMT_YUV444P, AV_PIX_FMT_VAAPI, AV_PIX_FMT_NONE};
    EXPECT_EQ(ff::get_hw_format(ctx.get(), formats), AV_PIX_FMT_YUV444P);
    EXPECT_EQ(ff::get_hw_format(ctx.get(), nullptr), AV_PIX_FMT_NONE);
    EXPECT_EQ(ff::get_hw_format(nullptr, formats), AV_PIX_FMT_YUV444P);
}

TEST_F(HWDecoderTest, PicksTheFormatOfTheDeviceWhereItIsOffered) {
    enable_pretended_device();
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    const AVPixelFormat formats[] = {AV_PIX_FMT_CUDA, AV_PIX_FMT_VAAPI, AV_PIX_FMT_YUV420P,
                                     AV_PIX_FMT_NONE};
    const LogCapture log;
    EXPECT_EQ(ff::get_hw_format(ctx.get(), formats), AV_PIX_FMT_VAAPI);
    EXPECT_EQ(ff::hw_format_state(ctx.get())->state, 1);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(HWDecoderTest, PicksTheFirstFormatWhereTheDevicesIsNotOffered) {
    enable_pretended_device();
    const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
    const AVPixelFormat formats[] = {AV_PIX_FMT_YUV444P, AV_PIX_FMT_YUV420P, AV_PIX_FMT_NONE};
    const LogCapture log;
    EXPECT_EQ(ff::get_hw_format(ctx.get(), formats), AV_PIX_FMT_YUV444P);
    EXPECT_EQ(ff::hw_format_state(ctx.get())->state, 0);
    EXPECT_EQ(log.texts(2), Texts{"Failed to get HW surface format. 当前硬解码不支持该像素格式"});
    const AVPixelFormat no_formats[] = {AV_PIX_FMT_NONE};
    EXPECT_EQ(ff::get_hw_format(ctx.get(), no_formats), AV_PIX_FMT_NONE);
    EXPECT_EQ(ff::get_hw_format(ctx.get(), nullptr), AV_PIX_FMT_NONE);
}

TEST_F(HWDecoderTest, CanBeUsedFromManyThreads) {
    enable_pretended_device();
    const LogCapture log;
    std::atomic<int> nb_contexts{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i) {
        threads.emplace_back([&nb_contexts, i] {
            for (int round = 0; round < 50; ++round) {
                if (i == 0) {
                    (void)ff::hw_enable_device(round % 2 == 0 ? "cuda" : "vaapi");
                    ff::hw_disable();
                    (void)ff::hw_enable_device("vaapi");
                }
                const HwCodecContextPtr ctx = alloc_context(AV_CODEC_ID_H264);
                nb_contexts += ctx ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(nb_contexts, 400);
}

}  // namespace
