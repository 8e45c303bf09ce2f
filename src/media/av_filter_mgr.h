#pragma once

#include "media/ff_handles.h"

#include <cstdint>

namespace ff {

/// The description of the frames that enter a filter graph.
struct CodecContext {
    std::int32_t type;           ///< 0: video, 1: audio, as StreamType
    std::int32_t time_base_num;  ///< time base of the frames' timestamps
    std::int32_t time_base_den;

    std::int32_t pix_fmt;  ///< video: AVPixelFormat
    std::int32_t width;    ///< video: pixels
    std::int32_t height;
    std::int32_t sar_num;  ///< video: pixel aspect ratio; a zero denominator counts as unknown
    std::int32_t sar_den;

    std::int32_t sample_fmt;       ///< audio: AVSampleFormat
    std::uint64_t channel_layout;  ///< audio: libavutil's mask; 0: the usual one for `channels`
    std::int32_t channels;
    std::int32_t sample_rate;  ///< audio: Hz
};

/// One libavfilter graph with one source and one sink, joined by a description in libavfilter's
/// text syntax ("atempo=2.0", "hflip,scale=320:-1").
///
///     AVFilterMgr filter;
///     if (filter.init_filters(&context, "atempo=2.0") >= 0) {
///         filter.buffersrc_add_frame_flags(in, AV_BUFFERSRC_FLAG_KEEP_REF);  // null: end of input
///         while (filter.buffersink_get_frame(out) >= 0) { ... }
///     }
///
/// Results are libav's: >= 0 success, else the negative error. What is logged goes through av_log,
/// like libavfilter's own messages about the same description.
///
/// Thread-safety: one thread at a time.
class AVFilterMgr {
public:
    AVFilterMgr() = default;
    AVFilterMgr(const AVFilterMgr&) = delete;
    AVFilterMgr& operator=(const AVFilterMgr&) = delete;
    ~AVFilterMgr() = default;

    /// Frees the graph, if there is one.
    void uninit();

    /// Replaces the graph by one for frames as `ctx` describes them. -1 for a type that is neither
    /// video nor audio, AVERROR(EINVAL) for null arguments and for sound of more than 24 * 2^17
    /// samples per second. After a failure the graph stays, as far as it was built, until the next
    /// init_filters() or uninit(), but takes and gives no frames.
    int init_filters(const CodecContext* ctx, const char* desc);

    int init_video_filters(const CodecContext* ctx, const char* desc);
    int init_audio_filters(const CodecContext* ctx, const char* desc);

    /// av_buffersrc_add_frame_flags on the source; null: the input ends. AVERROR(EINVAL) while
    /// there is no complete graph. Filters read as much of a picture as they were told that it has:
    /// one of another size or format than init_filters() was given is converted first.
    int buffersrc_add_frame_flags(AVFrame* frame, int flags);

    /// av_buffersink_get_frame on the sink. AVERROR(EINVAL) for a null frame and while there is no
    /// complete graph.
    int buffersink_get_frame(AVFrame* frame);

    // Null without a graph. After a failure they may point to what libavfilter has freed already.
    AVFilterContext* buffersrc_ctx = nullptr;   ///< named "in"; owned by the graph
    AVFilterContext* buffersink_ctx = nullptr;  ///< named "out"; owned by the graph
    FilterGraphPtr filter_graph;

private:
    struct EndKinds;
    struct OpenPads;

    int create_ends(const EndKinds& kinds, const char* source_args, OpenPads* pads);
    int parse(const char* desc, OpenPads* pads);
    int configure();
    bool fits(const AVFrame& frame) const;
    FramePtr refitted(const AVFrame& frame);

    bool m_complete = false;  // every step of building the graph succeeded
    CodecContext m_source{};  // what the graph was built for
    SwsPtr m_scaler;          // for pictures that are something else
};

}  // namespace ff
