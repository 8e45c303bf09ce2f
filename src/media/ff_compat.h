#pragma once

// The one place that knows that FFmpeg has versions (4.2 to 7.1), and the one that brings in its
// headers. Everything else calls the functions below, which are named for what is wanted; the
// release that changed a thing stands beside it. Channel masks are libavutil's 64-bit masks, and 0
// means "no mask known for this count".

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/avstring.h>
#include <libavutil/channel_layout.h>
#include <libavutil/display.h>
#include <libavutil/eval.h>
#include <libavutil/frame.h>
#include <libavutil/hwcontext.h>
#include <libavutil/imgutils.h>
#include <libavutil/mathematics.h>
#include <libavutil/opt.h>
#include <libavutil/pixdesc.h>
#include <libavutil/samplefmt.h>
#include <libswresample/swresample.h>
#include <libswscale/swscale.h>
}

#define FW_HAVE_CH_LAYOUT (LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 24, 100))       // 5.1
#define FW_HAVE_FRAME_DURATION (LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(57, 30, 100))  // 6.0
#define FW_HAVE_FRAME_FLAG_KEY (LIBAVUTIL_VERSION_INT >= AV_VERSION_INT(58, 7, 100))   // 6.1
#define FW_HAVE_PICTURE_NUMBER (LIBAVUTIL_VERSION_MAJOR < 59)                          // until 6.1
#define FW_HAVE_CODECPAR_SIDE_DATA (LIBAVCODEC_VERSION_INT >= AV_VERSION_INT(60, 30, 100))  // 6.1
#define FW_HAVE_REGISTER_ALL (LIBAVCODEC_VERSION_MAJOR < 59)            // until 4.4
#define FW_TIMED_SUBTITLE_TEXT (LIBAVCODEC_VERSION_MAJOR < 59)          // until 4.4
#define FW_HAVE_INDEX_GETTER (LIBAVFORMAT_VERSION_MAJOR >= 59)          // 5.0
#define FW_APNG_THREADS_LOSE_HEADER (LIBAVCODEC_VERSION_MAJOR >= 60)    // 7.1; 5.1 does not
#define FW_DAV1D_FLUSH_HANGS (LIBAVCODEC_VERSION_MAJOR < 59)            // until 4.4
#define FW_GUESSED_TIME_STAYS (LIBAVCODEC_VERSION_MAJOR < 59)           // until 4.4
#define FW_MPEG4_REPEATS_LAST_PICTURE (LIBAVCODEC_VERSION_MAJOR >= 60)  // 7.1; 5.1 does not
#define FW_SIDE_DATA_SIZE_IS_INT (LIBAVFORMAT_VERSION_MAJOR < 59)       // until 4.4

namespace ff::compat {

/// Registers all codecs. Nothing to do since 4.0; the call was removed in 5.0.
inline void register_all() {
#if FW_HAVE_REGISTER_ALL
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    avcodec_register_all();
#pragma GCC diagnostic pop
#endif
}

/// Subtitles decode to ASS events without times, which they have beside their text. Until 4.4 a
/// decoder had to be asked for that, or it put times in and ended each line with CR LF.
inline void decode_plain_events(AVCodecContext* codec) {
#if FW_TIMED_SUBTITLE_TEXT
    if (codec->codec_type == AVMEDIA_TYPE_SUBTITLE) {
        (void)av_opt_set(codec, "sub_text_format", "ass", 0);  // known to all of these
    }
#else
    (void)codec;
#endif
}

/// Lets a decoder have as many threads as are good for it. The frame threads of APNG (7.1) lose its
/// header when pictures are under way in them at a seek, and decode nothing from then on. With
/// those of dav1d 0.7, which 4.3 came with, a flush at such a time waits for ever.
inline int set_threads(const AVCodec& codec, AVDictionary** options) {
#if FW_DAV1D_FLUSH_HANGS
    if (std::strcmp(codec.name, "libdav1d") == 0 &&
        av_dict_set(options, "framethreads", "1", 0) < 0) {
        return AVERROR(ENOMEM);
    }
#endif
#if FW_APNG_THREADS_LOSE_HEADER
    if (codec.id == AV_CODEC_ID_APNG) {
        return av_dict_set(options, "threads", "1", 0);
    }
#endif
    (void)codec;
    return av_dict_set(options, "threads", "auto", 0);
}

/// Until 4.4 the guessed time of a frame of sound stayed where it was when samples were dropped
/// from the frame's beginning; its pts moved.
inline void correct_guessed_time(AVFrame* frame) {
#if FW_GUESSED_TIME_STAYS
    if (frame->nb_samples > 0 && frame->pts != AV_NOPTS_VALUE) {
        frame->best_effort_timestamp = frame->pts;
    }
#else
    (void)frame;
#endif
}

/// True for decoders that at the end of a stream give their last key picture a second time, with
/// the time of a picture before it that was lost to a seek.
inline bool repeats_last_picture(AVCodecID id) {
#if FW_MPEG4_REPEATS_LAST_PICTURE
    return id == AV_CODEC_ID_MPEG4;
#else
    (void)id;
    return false;
#endif
}

// Channel layouts: a mask and a count until 5.0, AVChannelLayout from 5.1, the old fields gone
// in 7.0.

#if FW_HAVE_CH_LAYOUT
inline std::uint64_t mask_of(const AVChannelLayout& layout) {
    return layout.order == AV_CHANNEL_ORDER_NATIVE ? layout.u.mask : 0;
}

/// A layout that owns no memory: native order if `mask` fits `channels`, else a bare count.
inline AVChannelLayout make_layout(std::uint64_t mask, int channels) {
    AVChannelLayout layout{};
    if (mask != 0 && av_channel_layout_from_mask(&layout, mask) >= 0 &&
        (channels <= 0 || layout.nb_channels == channels)) {
        return layout;
    }
    layout = AVChannelLayout{};
    layout.order = AV_CHANNEL_ORDER_UNSPEC;
    layout.nb_channels = channels;
    return layout;
}
#endif

/// The usual layout of this many channels, 0 where there is none.
inline std::uint64_t default_channel_mask(int channels) {
    if (channels <= 0) {
        return 0;
    }
#if FW_HAVE_CH_LAYOUT
    AVChannelLayout layout{};
    av_channel_layout_default(&layout, channels);
    return mask_of(layout);
#else
    return static_cast<std::uint64_t>(av_get_default_channel_layout(channels));
#endif
}

/// Channel count of an AVFrame, AVCodecParameters or AVCodecContext.
template <class T>
int channel_count(const T& object) {
#if FW_HAVE_CH_LAYOUT
    return object.ch_layout.nb_channels;
#else
    return object.channels;
#endif
}

/// Channel mask of an AVFrame, AVCodecParameters or AVCodecContext.
template <class T>
std::uint64_t channel_mask(const T& object) {
#if FW_HAVE_CH_LAYOUT
    return mask_of(object.ch_layout);
#else
    return static_cast<std::uint64_t>(object.channel_layout);
#endif
}

/// Sets the channels of a frame, in both representations while both exist.
inline void set_channels(AVFrame* frame, std::uint64_t mask, int channels) {
#if FW_HAVE_CH_LAYOUT
    av_channel_layout_uninit(&frame->ch_layout);
    frame->ch_layout = make_layout(mask, channels);
#endif
#if LIBAVUTIL_VERSION_MAJOR < 59  // the old fields were removed in 7.0
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    frame->channel_layout = mask;
    frame->channels = channels;
#pragma GCC diagnostic pop
#endif
}

/// The sound that one end of a resampler has.
struct AudioShape {
    std::uint64_t mask;
    int channels;
    AVSampleFormat format;
    int sample_rate;
};

/// Sets up a resampler, reusing `old` if it is not null. The result is not initialised yet; null on
/// failure, and then `old` has been freed. swr_alloc_set_opts was replaced in 5.1.
inline SwrContext* make_resampler(SwrContext* old, const AudioShape& out, const AudioShape& in) {
#if FW_HAVE_CH_LAYOUT
    // Not const because 5.1 takes pointers to changeable layouts.
    AVChannelLayout out_layout = make_layout(out.mask, out.channels);
    AVChannelLayout in_layout = make_layout(in.mask, in.channels);
    SwrContext* swr = old;
    if (swr_alloc_set_opts2(&swr, &out_layout, out.format, out.sample_rate, &in_layout, in.format,
                            in.sample_rate, 0, nullptr) < 0) {
        swr_free(&swr);
    }
    return swr;
#else
    return swr_alloc_set_opts(old, static_cast<std::int64_t>(out.mask), out.format, out.sample_rate,
                              static_cast<std::int64_t>(in.mask), in.format, in.sample_rate, 0,
                              nullptr);
#endif
}

/// The layout that comes out of an audio filter graph, as text ("stereo", "5.1(side)").
inline std::string sink_layout_text(AVFilterContext* sink) {
    char text[128] = "";
#if FW_HAVE_CH_LAYOUT
    AVChannelLayout layout{};
    if (av_buffersink_get_ch_layout(sink, &layout) >= 0) {
        av_channel_layout_describe(&layout, text, sizeof text);
        av_channel_layout_uninit(&layout);
    }
#else
    av_get_channel_layout_string(text, sizeof text, -1, av_buffersink_get_channel_layout(sink));
#endif
    return text;
}

/// How long the frame lasts, in ticks of its stream; 0 when unknown. Renamed in 6.0.
inline std::int64_t frame_duration(const AVFrame& frame) {
#if FW_HAVE_FRAME_DURATION
    return frame.duration;
#else
    return frame.pkt_duration;
#endif
}

inline void set_frame_duration(AVFrame* frame, std::int64_t duration) {
#if FW_HAVE_FRAME_DURATION
    frame->duration = duration;
#else
    frame->pkt_duration = duration;
#endif
}

/// Copies the numbers that some decoders count pictures with; there are none from 7.0 on.
inline void copy_picture_number(AVFrame* to, const AVFrame& from) {
#if FW_HAVE_PICTURE_NUMBER
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    to->coded_picture_number = from.coded_picture_number;
    to->display_picture_number = from.display_picture_number;
#pragma GCC diagnostic pop
#else
    (void)to;
    (void)from;
#endif
}

inline bool is_key_frame(const AVFrame& frame) {
#if FW_HAVE_FRAME_FLAG_KEY
    return (frame.flags & AV_FRAME_FLAG_KEY) != 0;
#else
    return frame.key_frame != 0;
#endif
}

/// The nine numbers of a stream's display matrix, or null. The size is an int until 4.4; the data
/// moved to the codec parameters in 6.1.
inline const std::int32_t* display_matrix(const AVStream& stream) {
    constexpr std::size_t matrix_size = 9 * sizeof(std::int32_t);
#if FW_HAVE_CODECPAR_SIDE_DATA
    const AVPacketSideData* const side =
        av_packet_side_data_get(stream.codecpar->coded_side_data,
                                stream.codecpar->nb_coded_side_data, AV_PKT_DATA_DISPLAYMATRIX);
    const std::uint8_t* const data = side != nullptr ? side->data : nullptr;
    const std::size_t size = side != nullptr ? side->size : 0;
#else
#if FW_SIDE_DATA_SIZE_IS_INT
    int size_found = 0;
#else
    std::size_t size_found = 0;
#endif
    const std::uint8_t* const data =
        av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size_found);
    const auto size = static_cast<std::size_t>(size_found);
#endif
    return data != nullptr && size >= matrix_size ? reinterpret_cast<const std::int32_t*>(data)
                                                  : nullptr;
}

/// The time of the first entry of the demuxer's index of a stream, AV_NOPTS_VALUE without one. The
/// index became private in 5.0.
inline std::int64_t first_index_time(AVStream* stream) {
#if FW_HAVE_INDEX_GETTER
    const AVIndexEntry* const first = avformat_index_get_entry(stream, 0);
#else
    const AVIndexEntry* const first =
        stream->nb_index_entries > 0 ? stream->index_entries : nullptr;
#endif
    return first != nullptr ? first->timestamp : AV_NOPTS_VALUE;
}

/// The planes of a frame as the audio FIFO wants them: the const in its signature moved in 6.0.
inline void** fifo_planes(const AVFrame& frame) {
    return reinterpret_cast<void**>(frame.extended_data);
}

}  // namespace ff::compat
