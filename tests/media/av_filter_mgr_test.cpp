#include "media/av_filter_mgr.h"

#include "tests/support/av_log_capture.h"
#include "tests/support/processor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace {

using ff::AVFilterMgr;
using ff::CodecContext;
using ff::FramePtr;
using fw_test::AvLogCapture;

std::string error_text(int error) {
    char text[64] = "";
    (void)av_strerror(error, text, sizeof text);
    return text;
}

CodecContext video_context() {
    CodecContext context{};
    context.type = 0;
    context.time_base_num = 1;
    context.time_base_den = 25;
    context.pix_fmt = AV_PIX_FMT_YUV420P;
    context.width = 64;
    context.height = 48;
    context.sar_num = 4;
    context.sar_den = 3;
    return context;
}

CodecContext audio_context(int channels, std::uint64_t layout) {
    CodecContext context{};
    context.type = 1;
    context.time_base_num = 1;
    context.time_base_den = 48000;
    context.sample_fmt = AV_SAMPLE_FMT_S16;
    context.channel_layout = layout;
    context.channels = channels;
    context.sample_rate = 48000;
    return context;
}

FramePtr picture(const CodecContext& context, std::int64_t pts) {
    FramePtr frame(av_frame_alloc());
    frame->format = context.pix_fmt;
    frame->width = context.width;
    frame->height = context.height;
    frame->pts = pts;
    frame->sample_aspect_ratio = {context.sar_num, context.sar_den};
    EXPECT_GE(av_frame_get_buffer(frame.get(), 0), 0);
    for (int plane = 0; plane < 3; ++plane) {
        const int rows = plane == 0 ? context.height : context.height / 2;
        for (int row = 0; row < rows; ++row) {
            std::memset(frame->data[plane] + row * frame->linesize[plane], plane * 50 + row + 1,
                        static_cast<std::size_t>(plane == 0 ? context.width : context.width / 2));
        }
    }
    return frame;
}

FramePtr sound(const CodecContext& context, std::uint64_t mask, int nb_samples, std::int64_t pts) {
    FramePtr frame(av_frame_alloc());
    frame->format = context.sample_fmt;
    frame->sample_rate = context.sample_rate;
    frame->nb_samples = nb_samples;
    frame->pts = pts;
    ff::compat::set_channels(frame.get(), mask, context.channels);
    EXPECT_GE(av_frame_get_buffer(frame.get(), 0), 0);
    auto* const samples = reinterpret_cast<std::int16_t*>(frame->data[0]);
    for (int i = 0; i < nb_samples * context.channels; ++i) {
        samples[i] = static_cast<std::int16_t>((i * 37 + 11) % 20000 - 10000);
    }
    return frame;
}

int nb_sound_bytes(const AVFrame& frame) {
    return frame.nb_samples * ff::compat::channel_count(frame) *
           av_get_bytes_per_sample(static_cast<AVSampleFormat>(frame.format));
}

FramePtr pass_one(AVFilterMgr* filter, AVFrame* in) {
    EXPECT_EQ(filter->buffersrc_add_frame_flags(in, AV_BUFFERSRC_FLAG_KEEP_REF), 0);
    FramePtr out(av_frame_alloc());
    EXPECT_EQ(filter->buffersink_get_frame(out.get()), 0);
    return out;
}

void expect_empty(const AVFilterMgr& filter) {
    EXPECT_EQ(filter.filter_graph, nullptr);
    EXPECT_EQ(filter.buffersrc_ctx, nullptr);
    EXPECT_EQ(filter.buffersink_ctx, nullptr);
}

TEST(AVFilterMgrTest, IsEmptyAtFirst) {
    const AVFilterMgr filter;
    expect_empty(filter);
}

TEST(AVFilterMgrTest, PassesPicturesThroughNullUnchanged) {
    AVFilterMgr filter;
    const CodecContext context = video_context();
    ASSERT_GE(filter.init_filters(&context, "null"), 0);
    const FramePtr in = picture(context, 7);
    const FramePtr out = pass_one(&filter, in.get());
    EXPECT_EQ(out->pts, 7);
    EXPECT_EQ(out->format, AV_PIX_FMT_YUV420P);
    EXPECT_EQ(out->width, 64);
    EXPECT_EQ(out->height, 48);
    EXPECT_EQ(out->data[0], in->data[0]);  // the very same picture: not even a copy
}

TEST(AVFilterMgrTest, AppliesTheDescriptionToPictures) {
    AVFilterMgr filter;
    const CodecContext context = video_context();
    ASSERT_GE(filter.init_filters(&context, "vflip,crop=32:24:0:0"), 0);
    const FramePtr in = picture(context, 0);
    const FramePtr out = pass_one(&filter, in.get());
    EXPECT_EQ(out->width, 32);
    EXPECT_EQ(out->height, 24);
    EXPECT_EQ(out->data[0][0], 48);  // the last row of the picture comes first
    EXPECT_EQ(out->data[0][23 * out->linesize[0]], 25);
}

TEST(AVFilterMgrTest, DescribesThePicturesToTheSource) {
    AVFilterMgr filter;
    const CodecContext context = video_context();
    ASSERT_GE(filter.init_filters(&context, "null"), 0);
    EXPECT_STREQ(filter.buffersrc_ctx->name, "in");
    EXPECT_STREQ(filter.buffersink_ctx->name, "out");
    AVFilterContext* const sink = filter.buffersink_ctx;
    EXPECT_EQ(av_buffersink_get_w(sink), 64);
    EXPECT_EQ(av_buffersink_get_h(sink), 48);
    EXPECT_EQ(av_buffersink_get_format(sink), AV_PIX_FMT_YUV420P);
    EXPECT_EQ(av_cmp_q(av_buffersink_get_time_base(sink), AVRational{1, 25}), 0);
    EXPECT_EQ(av_cmp_q(av_buffersink_get_sample_aspect_ratio(sink), AVRational{4, 3}), 0);
}

TEST(AVFilterMgrTest, TakesPicturesOfUnknownAspectRatio) {
    AVFilterMgr filter;
    CodecContext context = video_context();
    context.sar_num = 0;
    context.sar_den = 0;
    ASSERT_GE(filter.init_filters(&context, "null"), 0);
    EXPECT_EQ(av_buffersink_get_sample_aspect_ratio(filter.buffersink_ctx).num, 0);
}

TEST(AVFilterMgrTest, PassesSoundThroughAnullUnchanged) {
    AVFilterMgr filter;
    const CodecContext context = audio_context(2, AV_CH_LAYOUT_STEREO);
    ASSERT_GE(filter.init_filters(&context, "anull"), 0);
    const FramePtr in = sound(context, AV_CH_LAYOUT_STEREO, 1024, 4800);
    const FramePtr out = pass_one(&filter, in.get());
    EXPECT_EQ(out->pts, 4800);
    ASSERT_EQ(out->nb_samples, 1024);
    ASSERT_EQ(nb_sound_bytes(*out), 4096);
    EXPECT_EQ(std::memcmp(out->data[0], in->data[0], 4096), 0);
}

/// Puts in a second of sound in 48 blocks. How many samples come out in all; -1 for a failure.
int nb_passed_of_a_second(AVFilterMgr* filter, const CodecContext& context) {
    constexpr int kBlocks = 48;
    const int block = context.sample_rate / kBlocks;
    const FramePtr out(av_frame_alloc());
    int nb_samples = 0;
    for (int i = 0; i <= kBlocks; ++i) {
        const FramePtr in = sound(context, AV_CH_LAYOUT_STEREO, block, std::int64_t{i} * block);
        if (filter->buffersrc_add_frame_flags(i < kBlocks ? in.get() : nullptr,
                                              AV_BUFFERSRC_FLAG_KEEP_REF) != 0) {
            return -1;
        }
        while (filter->buffersink_get_frame(out.get()) >= 0) {
            nb_samples += out->nb_samples;
            av_frame_unref(out.get());
        }
    }
    return filter->buffersink_get_frame(out.get()) == AVERROR_EOF ? nb_samples : -1;
}

TEST(AVFilterMgrTest, HalvesTheSamplesAtDoubleTempo) {
    AVFilterMgr filter;
    const CodecContext context = audio_context(2, AV_CH_LAYOUT_STEREO);
    ASSERT_GE(filter.init_filters(&context, "atempo=2.0"), 0);
    // atempo works in windows of a 24th of a second and may be one short or one over at the end.
    EXPECT_NEAR(nb_passed_of_a_second(&filter, context), 48000 / 2, 48000 / 24);
}

TEST(AVFilterMgrTest, ChangesTheTempoOfTheFastestSoundThatIsTaken) {
    AVFilterMgr filter;
    CodecContext context = audio_context(2, AV_CH_LAYOUT_STEREO);
    context.sample_rate = 24 << 17;  // at more a second of it takes FFmpeg 5.1 hours
    const AvLogCapture quiet;
    if (filter.init_filters(&context, "atempo=2.0") < 0) {
        GTEST_SKIP() << "this FFmpeg has no transform of that length";
    }
    EXPECT_NEAR(nb_passed_of_a_second(&filter, context), context.sample_rate / 2,
                context.sample_rate / 24);
}

TEST(AVFilterMgrTest, HasNoFrameBeforeOneIsPutIn) {
    AVFilterMgr filter;
    const CodecContext context = audio_context(2, AV_CH_LAYOUT_STEREO);
    ASSERT_GE(filter.init_filters(&context, "anull"), 0);
    const FramePtr out(av_frame_alloc());
    EXPECT_EQ(filter.buffersink_get_frame(out.get()), AVERROR(EAGAIN));
}

TEST(AVFilterMgrTest, TakesTheUsualLayoutWhereNoneIsKnown) {
    AVFilterMgr filter;
    const CodecContext context = audio_context(2, 0);
    AvLogCapture log;
    ASSERT_GE(filter.init_filters(&context, "anull"), 0);
    EXPECT_EQ(log.texts(AV_LOG_INFO),
              std::vector<std::string>{"Output: srate:48000Hz fmt:s16 chlayout:stereo\n"});
}

TEST(AVFilterMgrTest, LogsWhatComesOutOfAnAudioGraph) {
    AVFilterMgr filter;
    const CodecContext context = audio_context(2, AV_CH_LAYOUT_STEREO);
    AvLogCapture log;
    ASSERT_GE(filter.init_filters(
                  &context, "aformat=sample_fmts=fltp:sample_rates=44100:channel_layouts=mono"),
              0);
    EXPECT_EQ(log.texts(AV_LOG_INFO),
              std::vector<std::string>{"Output: srate:44100Hz fmt:fltp chlayout:mono\n"});
}

TEST(AVFilterMgrTest, PassesNineChannelsWhichHaveNoUsualLayout) {
    AVFilterMgr filter;
    const CodecContext context = audio_context(9, 0);
    ASSERT_EQ(ff::compat::default_channel_mask(9), 0U);
    ASSERT_GE(filter.init_filters(&context, "anull"), 0);
    const FramePtr in = sound(context, 0, 100, 0);
    const FramePtr out = pass_one(&filter, in.get());
    EXPECT_EQ(ff::compat::channel_count(*out), 9);
    ASSERT_EQ(out->nb_samples, 100);
    EXPECT_EQ(std::memcmp(out->data[0], in->data[0], 1800), 0);
}

TEST(AVFilterMgrTest, LogsAVideoDescriptionThatDoesNotParse) {
    AVFilterMgr filter;
    const CodecContext context = video_context();
    AvLogCapture log;
    const int r = filter.init_filters(&context, "no_such_filter=1");
    EXPECT_LT(r, 0);
    ASSERT_FALSE(log.texts(AV_LOG_ERROR).empty());
    EXPECT_EQ(log.texts(AV_LOG_ERROR).back(), "filter parse failed: " + error_text(r) + "\n");
}

TEST(AVFilterMgrTest, RefusesMoreSamplesPerSecondThanSoundHas) {
    AVFilterMgr filter;
    CodecContext context = audio_context(2, AV_CH_LAYOUT_STEREO);
    for (const int rate : {(24 << 17) + 1, 2130750532, std::numeric_limits<int>::max()}) {
        context.sample_rate = 24 << 17;
        ASSERT_GE(filter.init_filters(&context, "volume=2"), 0);
        context.sample_rate = rate;
        const AvLogCapture log;
        EXPECT_EQ(filter.init_filters(&context, "atempo=2"), AVERROR(EINVAL));
        EXPECT_EQ(log.texts(AV_LOG_ERROR),
                  std::vector<std::string>{"no filters for " + std::to_string(rate) +
                                           " samples per second\n"});
        EXPECT_EQ(filter.filter_graph, nullptr) << "the graph before it is gone";
    }
}

TEST(AVFilterMgrTest, LogsAVideoGraphThatCannotBeConfigured) {
    AVFilterMgr filter;
    const CodecContext context = video_context();
    AvLogCapture log;
    const int r = filter.init_filters(&context, "crop=1000:1000");  // more than there is
    EXPECT_LT(r, 0);
    EXPECT_EQ(log.texts(AV_LOG_ERROR),
              std::vector<std::string>{"filter config failed: " + error_text(r) + "\n"});
}

TEST(AVFilterMgrTest, SaysNothingOfAnAudioDescriptionThatFails) {
    AVFilterMgr filter;
    const CodecContext context = audio_context(2, 0);
    AvLogCapture log;
    EXPECT_LT(filter.init_filters(&context, "no_such_filter=1"), 0);          // does not parse
    EXPECT_LT(filter.init_filters(&context, "channelsplit[a];[a]anull"), 0);  // an end hangs loose
    for (const std::string& text : log.texts(AV_LOG_ERROR)) {
        EXPECT_NE(text.rfind("filter ", 0), 0U) << text;
    }
    EXPECT_TRUE(log.texts(AV_LOG_INFO).empty());
}

TEST(AVFilterMgrTest, LogsASourceThatCannotBeMade) {
    AVFilterMgr filter;
    AvLogCapture log;
    CodecContext video = video_context();
    video.pix_fmt = AV_PIX_FMT_NONE;
    EXPECT_LT(filter.init_filters(&video, "null"), 0);
    CodecContext audio = audio_context(2, 0);
    audio.sample_fmt = AV_SAMPLE_FMT_NONE;
    EXPECT_LT(filter.init_filters(&audio, "anull"), 0);
    EXPECT_EQ(log.texts(AV_LOG_ERROR),
              (std::vector<std::string>{"Cannot create buffer source\n",
                                        "Cannot create audio buffer source\n"}));
}

TEST(AVFilterMgrTest, RefusesStreamsThatAreNeitherVideoNorAudio) {
    AVFilterMgr filter;
    CodecContext context = video_context();
    for (const int type : {2, 3, -1}) {
        context.type = type;
        EXPECT_EQ(filter.init_filters(&context, "null"), -1) << type;
        expect_empty(filter);
    }
}

TEST(AVFilterMgrTest, AnUnusableRequestStillFreesTheGraphBefore) {
    AVFilterMgr filter;
    CodecContext context = video_context();
    ASSERT_GE(filter.init_filters(&context, "null"), 0);
    context.type = 2;
    EXPECT_EQ(filter.init_filters(&context, "null"), -1);
    expect_empty(filter);
}

TEST(AVFilterMgrTest, RefusesNullArguments) {
    AVFilterMgr filter;
    const CodecContext video = video_context();
    const CodecContext audio = audio_context(2, 0);
    AvLogCapture log;
    EXPECT_LT(filter.init_filters(nullptr, "null"), 0);
    EXPECT_LT(filter.init_filters(&video, nullptr), 0);
    EXPECT_LT(filter.init_video_filters(nullptr, "null"), 0);
    EXPECT_LT(filter.init_video_filters(&video, nullptr), 0);
    EXPECT_LT(filter.init_audio_filters(nullptr, "anull"), 0);
    EXPECT_LT(filter.init_audio_filters(&audio, nullptr), 0);
    EXPECT_EQ(log.texts(AV_LOG_ERROR).size(), 6U);
    expect_empty(filter);
}

TEST(AVFilterMgrTest, RefusesFramesWithoutAGraph) {
    AVFilterMgr filter;
    const FramePtr frame(av_frame_alloc());
    EXPECT_EQ(filter.buffersrc_add_frame_flags(frame.get(), 0), AVERROR(EINVAL));
    EXPECT_EQ(filter.buffersrc_add_frame_flags(nullptr, 0), AVERROR(EINVAL));
    EXPECT_EQ(filter.buffersink_get_frame(frame.get()), AVERROR(EINVAL));
}

TEST(AVFilterMgrTest, KeepsAFailedGraphButTakesNoFrames) {
    AVFilterMgr filter;
    const CodecContext context = video_context();
    AvLogCapture log;
    ASSERT_LT(filter.init_filters(&context, "no_such_filter"), 0);
    EXPECT_NE(filter.filter_graph, nullptr);
    // libavfilter has freed both ends already; nothing may go near them.
    const FramePtr frame = picture(context, 0);
    EXPECT_EQ(filter.buffersrc_add_frame_flags(frame.get(), 0), AVERROR(EINVAL));
    EXPECT_EQ(filter.buffersink_get_frame(frame.get()), AVERROR(EINVAL));
    ASSERT_GE(filter.init_filters(&context, "null"), 0);
    EXPECT_EQ(pass_one(&filter, frame.get())->data[0], frame->data[0]);
}

TEST(AVFilterMgrTest, RefusesANullFrameToReceiveInto) {
    AVFilterMgr filter;
    const CodecContext context = video_context();
    ASSERT_GE(filter.init_filters(&context, "null"), 0);
    EXPECT_EQ(filter.buffersink_get_frame(nullptr), AVERROR(EINVAL));
}

TEST(AVFilterMgrTest, HasOneGraphAfterTwoInitialisations) {
    AVFilterMgr filter;
    const CodecContext video = video_context();
    const CodecContext audio = audio_context(2, 0);
    ASSERT_GE(filter.init_filters(&video, "null"), 0);
    ASSERT_GE(filter.init_filters(&audio, "anull"), 0);
    EXPECT_EQ(filter.buffersrc_ctx->graph, filter.filter_graph.get());
    EXPECT_EQ(filter.buffersink_ctx->graph, filter.filter_graph.get());
    EXPECT_STREQ(filter.buffersrc_ctx->filter->name, "abuffer");
    EXPECT_EQ(filter.filter_graph->nb_filters, 3U);  // the two ends and "anull"
    const FramePtr in = sound(audio, AV_CH_LAYOUT_STEREO, 10, 0);
    EXPECT_EQ(pass_one(&filter, in.get())->nb_samples, 10);
}

TEST(AVFilterMgrTest, TakesPicturesThatAreNotAsTheyWereAnnounced) {
    struct Shape {
        int width, height;
        AVPixelFormat format;
    };

    const CodecContext announced = video_context();
    AVFilterMgr filter;
    ASSERT_GE(filter.init_filters(&announced, "hflip"), 0);
    std::int64_t pts = 0;
    for (const Shape& shape :
         {Shape{16, 16, AV_PIX_FMT_YUV420P}, Shape{64, 48, AV_PIX_FMT_NV12},
          Shape{128, 96, AV_PIX_FMT_YUV444P}, Shape{64, 48, AV_PIX_FMT_YUV420P}}) {
        const FramePtr in(av_frame_alloc());
        in->width = shape.width;
        in->height = shape.height;
        in->format = shape.format;
        in->pts = ++pts;
        ASSERT_GE(av_frame_get_buffer(in.get(), 0), 0);
        for (int plane = 0; plane < 3 && in->buf[plane] != nullptr; ++plane) {
            std::memset(in->buf[plane]->data, 100, static_cast<std::size_t>(in->buf[plane]->size));
        }
        const FramePtr out = pass_one(&filter, in.get());
        EXPECT_EQ(out->width, announced.width);
        EXPECT_EQ(out->height, announced.height);
        EXPECT_EQ(out->format, announced.pix_fmt);
        EXPECT_EQ(out->pts, pts);
        EXPECT_EQ(out->data[0][0], 100);
        const bool is_scaled = shape.width != announced.width;
        EXPECT_EQ(out->data[2][out->linesize[2] * 23 + 31],
                  is_scaled ? fw_test::fast_bilinear_chroma(100) : 100);
    }
}

TEST(AVFilterMgrTest, RefusesPicturesThatCannotBeConverted) {
    const CodecContext announced = video_context();
    AVFilterMgr filter;
    ASSERT_GE(filter.init_filters(&announced, "hflip"), 0);
    const FramePtr frame = picture(announced, 1);
    frame->format = AV_PIX_FMT_VAAPI;
    EXPECT_EQ(filter.buffersrc_add_frame_flags(frame.get(), AV_BUFFERSRC_FLAG_KEEP_REF),
              AVERROR(EINVAL));
    const FramePtr empty(av_frame_alloc());
    EXPECT_EQ(filter.buffersrc_add_frame_flags(empty.get(), AV_BUFFERSRC_FLAG_KEEP_REF),
              AVERROR(EINVAL));
}

TEST(AVFilterMgrTest, CanBeUninitialisedTwice) {
    AVFilterMgr filter;
    const CodecContext context = video_context();
    ASSERT_GE(filter.init_filters(&context, "null"), 0);
    filter.uninit();
    expect_empty(filter);
    filter.uninit();
    expect_empty(filter);
    const FramePtr frame(av_frame_alloc());
    EXPECT_EQ(filter.buffersink_get_frame(frame.get()), AVERROR(EINVAL));
}

}  // namespace
