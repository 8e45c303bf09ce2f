#include "media/av_filter_mgr.h"

#include <framewell/media/formats.h>

#include <cstdio>
#include <string>

namespace ff {

/// The filters at the two ends of a graph, and what is logged when one cannot be made.
struct AVFilterMgr::EndKinds {
    const char* source;
    const char* sink;
    const char* sink_args;  // null: none
    const char* source_failure;
    const char* sink_failure;
};

/// The pads that a description is joined to: its inputs are fed by what the source puts out.
struct AVFilterMgr::OpenPads {
    FilterInOutPtr outputs{avfilter_inout_alloc()};
    FilterInOutPtr inputs{avfilter_inout_alloc()};
};

namespace {

constexpr int kSourceArgsSize = 512;

// Filters take memory for a part of a second of sound: at what a damaged header may say, of
// gigabytes. And "atempo" transforms a 24th of a second at a time, for which libavutil (5.1) has
// fast transforms of up to 2^17 samples: one of more takes hours. The most that sound comes with is
// an eighth of 22.6 MHz.
constexpr int kMaxSampleRate = 24 << 17;

bool are_given(const CodecContext* ctx, const char* desc) {
    if (ctx != nullptr && desc != nullptr) {
        return true;
    }
    av_log(nullptr, AV_LOG_ERROR, "Cannot create a filter graph without a stream and a text\n");
    return false;
}

bool set_pad(AVFilterInOut* pad, const char* name, AVFilterContext* filter) {
    pad->name = av_strdup(name);
    pad->filter_ctx = filter;
    pad->pad_idx = 0;
    pad->next = nullptr;
    return pad->name != nullptr;
}

std::string error_text(int error) {
    char text[64] = "";
    (void)av_strerror(error, text, sizeof text);  // an unknown code gets a text as well
    return text;
}

}  // namespace

void AVFilterMgr::uninit() {
    buffersrc_ctx = nullptr;
    buffersink_ctx = nullptr;
    filter_graph.reset();
    m_scaler.reset();
    m_complete = false;
}

int AVFilterMgr::init_filters(const CodecContext* ctx, const char* desc) {
    uninit();
    if (!are_given(ctx, desc)) {
        return AVERROR(EINVAL);
    }
    switch (static_cast<StreamType>(ctx->type)) {
        case StreamType::Video:
            return init_video_filters(ctx, desc);
        case StreamType::Audio:
            return init_audio_filters(ctx, desc);
        default:
            return -1;
    }
}

int AVFilterMgr::init_video_filters(const CodecContext* ctx, const char* desc) {
    if (!are_given(ctx, desc)) {
        return AVERROR(EINVAL);
    }
    // libavfilter refuses 0/0, which a stream without a known aspect ratio may have; 0/1 is its own
    // way to say "unknown".
    const bool is_sar_known = ctx->sar_den != 0;
    char args[kSourceArgsSize];
    (void)std::snprintf(
        args, sizeof args, "video_size=%dx%d:pix_fmt=%d:time_base=%d/%d:pixel_aspect=%d/%d",
        ctx->width, ctx->height, ctx->pix_fmt, ctx->time_base_num, ctx->time_base_den,
        is_sar_known ? ctx->sar_num : 0, is_sar_known ? ctx->sar_den : 1);
    const EndKinds kinds = {"buffer", "buffersink", nullptr, "Cannot create buffer source\n",
                            "Cannot create buffer sink\n"};
    OpenPads pads;
    int r = create_ends(kinds, args, &pads);
    if (r < 0) {
        return r;
    }
    r = parse(desc, &pads);
    if (r < 0) {
        av_log(nullptr, AV_LOG_ERROR, "filter parse failed: %s\n", error_text(r).c_str());
        return r;
    }
    r = configure();
    if (r < 0) {
        av_log(nullptr, AV_LOG_ERROR, "filter config failed: %s\n", error_text(r).c_str());
    }
    m_source = *ctx;
    return r;
}

int AVFilterMgr::init_audio_filters(const CodecContext* ctx, const char* desc) {
    if (!are_given(ctx, desc)) {
        return AVERROR(EINVAL);
    }
    if (ctx->sample_rate > kMaxSampleRate) {
        av_log(nullptr, AV_LOG_ERROR, "no filters for %d samples per second\n", ctx->sample_rate);
        return AVERROR(EINVAL);
    }
    const std::uint64_t mask = ctx->channel_layout != 0
                                   ? ctx->channel_layout
                                   : compat::default_channel_mask(ctx->channels);
    char layout[48];
    if (mask != 0) {
        (void)std::snprintf(layout, sizeof layout, "channel_layout=0x%llx",
                            static_cast<unsigned long long>(mask));
    } else {
        // Above 8 channels there may be no usual layout, and a mask of 0 is refused even beside a
        // count: the count alone says "so many channels, in no known places". The sink takes such
        // sound only if it is told to.
        (void)std::snprintf(layout, sizeof layout, "channels=%d", ctx->channels);
    }
    const char* const format = av_get_sample_fmt_name(static_cast<AVSampleFormat>(ctx->sample_fmt));
    char args[kSourceArgsSize];
    (void)std::snprintf(args, sizeof args, "time_base=%d/%d:sample_rate=%d:sample_fmt=%s:%s",
                        ctx->time_base_num, ctx->time_base_den, ctx->sample_rate,
                        format != nullptr ? format : "none", layout);
    const EndKinds kinds = {"abuffer", "abuffersink", mask != 0 ? nullptr : "all_channel_counts=1",
                            "Cannot create audio buffer source\n",
                            "Cannot create audio buffer sink\n"};
    OpenPads pads;
    int r = create_ends(kinds, args, &pads);
    if (r >= 0) {
        r = parse(desc, &pads);
    }
    if (r >= 0) {
        r = configure();
    }
    m_source = *ctx;
    if (r < 0) {
        return r;
    }
    const char* const out_format = av_get_sample_fmt_name(
        static_cast<AVSampleFormat>(av_buffersink_get_format(buffersink_ctx)));
    av_log(nullptr, AV_LOG_INFO, "Output: srate:%dHz fmt:%s chlayout:%s\n",
           av_buffersink_get_sample_rate(buffersink_ctx), out_format != nullptr ? out_format : "?",
           compat::sink_layout_text(buffersink_ctx).c_str());
    return r;
}

int AVFilterMgr::create_ends(const EndKinds& kinds, const char* source_args, OpenPads* pads) {
    uninit();
    filter_graph.reset(avfilter_graph_alloc());
    if (!filter_graph || !pads->outputs || !pads->inputs) {
        return AVERROR(ENOMEM);
    }
    int r = avfilter_graph_create_filter(&buffersrc_ctx, avfilter_get_by_name(kinds.source), "in",
                                         source_args, nullptr, filter_graph.get());
    if (r < 0) {
        av_log(nullptr, AV_LOG_ERROR, "%s", kinds.source_failure);
        return r;
    }
    r = avfilter_graph_create_filter(&buffersink_ctx, avfilter_get_by_name(kinds.sink), "out",
                                     kinds.sink_args, nullptr, filter_graph.get());
    if (r < 0) {
        av_log(nullptr, AV_LOG_ERROR, "%s", kinds.sink_failure);
        return r;
    }
    if (!set_pad(pads->outputs.get(), "in", buffersrc_ctx) ||
        !set_pad(pads->inputs.get(), "out", buffersink_ctx)) {
        return AVERROR(ENOMEM);
    }
    return r;
}

int AVFilterMgr::parse(const char* desc, OpenPads* pads) {
    // The call takes the lists and gives back what it did not join, so they leave their handles.
    AVFilterInOut* outputs = pads->outputs.release();
    AVFilterInOut* inputs = pads->inputs.release();
    const int r = avfilter_graph_parse_ptr(filter_graph.get(), desc, &inputs, &outputs, nullptr);
    pads->outputs.reset(outputs);
    pads->inputs.reset(inputs);
    return r;
}

int AVFilterMgr::configure() {
    const int r = avfilter_graph_config(filter_graph.get(), nullptr);
    m_complete = r >= 0;
    return r;
}

int AVFilterMgr::buffersrc_add_frame_flags(AVFrame* frame, int flags) {
    if (!m_complete) {
        return AVERROR(EINVAL);
    }
    if (frame == nullptr || fits(*frame)) {
        return av_buffersrc_add_frame_flags(buffersrc_ctx, frame, flags);
    }
    const FramePtr fitting = refitted(*frame);
    return fitting ? av_buffersrc_add_frame_flags(buffersrc_ctx, fitting.get(), flags)
                   : AVERROR(EINVAL);
}

/// Sound is no matter here: its filters negotiate what they get.
bool AVFilterMgr::fits(const AVFrame& frame) const {
    return static_cast<StreamType>(m_source.type) != StreamType::Video ||
           (frame.width == m_source.width && frame.height == m_source.height &&
            frame.format == m_source.pix_fmt);
}

/// The picture as the graph was told that pictures are; null if that is not possible. A stream may
/// change its size on the way, and a device gives other pictures than the software that follows it.
FramePtr AVFilterMgr::refitted(const AVFrame& frame) {
    const auto from = static_cast<AVPixelFormat>(frame.format);
    const auto to = static_cast<AVPixelFormat>(m_source.pix_fmt);
    // swscale stops the process for a format that does not exist.
    if (frame.width <= 0 || frame.height <= 0 || av_pix_fmt_desc_get(from) == nullptr ||
        av_pix_fmt_desc_get(to) == nullptr || sws_isSupportedInput(from) == 0 ||
        sws_isSupportedOutput(to) == 0) {
        return nullptr;
    }
    m_scaler.reset(sws_getCachedContext(m_scaler.release(), frame.width, frame.height, from,
                                        m_source.width, m_source.height, to, SWS_FAST_BILINEAR,
                                        nullptr, nullptr, nullptr));
    FramePtr fitting(av_frame_alloc());
    if (!m_scaler || !fitting || av_frame_copy_props(fitting.get(), &frame) < 0) {
        return nullptr;
    }
    fitting->width = m_source.width;
    fitting->height = m_source.height;
    fitting->format = m_source.pix_fmt;
    if (av_frame_get_buffer(fitting.get(), 0) < 0 ||
        sws_scale(m_scaler.get(), frame.data, frame.linesize, 0, frame.height, fitting->data,
                  fitting->linesize) < 0) {
        return nullptr;
    }
    return fitting;
}

int AVFilterMgr::buffersink_get_frame(AVFrame* frame) {
    return m_complete && frame != nullptr ? av_buffersink_get_frame(buffersink_ctx, frame)
                                          : AVERROR(EINVAL);
}

}  // namespace ff
