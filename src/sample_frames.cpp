#include "sample_frames.h"

#include "base/log.h"
#include "media/resampler.h"

#include <framewell/frame.h>
#include <framewell/media/ffmpeg_error.h>

#include <algorithm>
#include <utility>

namespace ff {

namespace {

// Spans are the business of the decoder, and so is what is said about them.
constexpr char kLogSource[] = "src/ffdecoder";

bool is_same_shape(const compat::AudioShape& a, const compat::AudioShape& b) {
    return a.mask == b.mask && a.channels == b.channels && a.format == b.format &&
           a.sample_rate == b.sample_rate;
}

compat::AudioShape announced_shape(const StreamCtx& stream) {
    return {known_layout(stream.channel_layout, stream.channels), stream.channels,
            static_cast<AVSampleFormat>(stream.sample_fmt), stream.sample_rate};
}

compat::AudioShape shape_of(const AVFrame& frame) {
    const int channels = compat::channel_count(frame);
    return {known_layout(compat::channel_mask(frame), channels), channels,
            static_cast<AVSampleFormat>(frame.format), frame.sample_rate};
}

/// Layouts of the same number of channels count as one form: their planes can be joined.
bool has_announced_form(const AVFrame& frame, const StreamCtx& stream) {
    return frame.format == stream.sample_fmt && frame.sample_rate == stream.sample_rate &&
           compat::channel_count(frame) == stream.channels;
}

}  // namespace

std::uint64_t known_layout(std::uint64_t mask, int channels) {
    return mask != 0 ? mask : compat::default_channel_mask(channels);
}

bool ReusedFrame::fits(const StreamCtx& stream, int nb_samples) const {
    return m_frame && m_frame.use_count() == 1 && nb_samples <= m_room &&
           has_announced_form(*m_frame, stream) && av_frame_is_writable(m_frame.get()) > 0;
}

std::shared_ptr<AVFrame> ReusedFrame::take(const StreamCtx& stream, int nb_samples) {
    if (!fits(stream, nb_samples)) {
        m_frame =
            create_avframe_with(stream.channels, stream.sample_rate, stream.sample_fmt, nb_samples);
        m_room = m_frame ? m_frame->nb_samples : 0;
        if (nb_samples > m_room) {
            m_frame.reset();
            return nullptr;
        }
        // Filters and the resampler are set up for the stream's own layout, which may be another
        // one of the same number of channels.
        compat::set_channels(m_frame.get(), known_layout(stream.channel_layout, stream.channels),
                             stream.channels);
    }
    m_frame->nb_samples = nb_samples;
    return m_frame;
}

std::array<std::shared_ptr<AVFrame>, 2> FrameRefitter::fit(const StreamCtx& stream,
                                                           const std::shared_ptr<AVFrame>& frame,
                                                           const char* tag) {
    if (has_announced_form(*frame, stream)) {
        return {take_rest(stream), frame};
    }
    const compat::AudioShape in = shape_of(*frame);
    std::shared_ptr<AVFrame> rest;
    if (m_swr && !is_same_shape(in, m_shape_in)) {
        rest = take_rest(stream);
    }
    if (!m_swr) {
        prepare(stream, in);
    }
    std::shared_ptr<AVFrame> fitting;
    const int converted = convert(stream, frame.get(), &fitting);
    if (converted < 0) {
        FW_LOG(2, tag, "a frame in another sample format is dropped: %s", ffmpeg_error(converted));
    }
    return {rest, fitting};
}

std::shared_ptr<AVFrame> FrameRefitter::take_rest(const StreamCtx& stream) {
    if (!m_swr) {
        return nullptr;
    }
    std::shared_ptr<AVFrame> rest;
    (void)convert(stream, nullptr, &rest);  // a few samples less, behind frames that went well
    m_swr.reset();                          // one that was asked for its rest takes nothing more
    return rest;
}

void FrameRefitter::prepare(const StreamCtx& stream, const compat::AudioShape& in) {
    m_swr = open_resampler(nullptr, announced_shape(stream), in);
    m_shape_in = in;
}

/// A frame, or without one what is left, through m_swr. `result` is set unless this fails, with a
/// negative FFmpeg code. Not by swr_convert_frame(), which takes a frame whose layout is unknown
/// for a changed one (5.1).
int FrameRefitter::convert(const StreamCtx& stream, const AVFrame* frame,
                           std::shared_ptr<AVFrame>* result) {
    if (!m_swr) {
        return AVERROR(EINVAL);
    }
    const int given = frame != nullptr ? frame->nb_samples : 0;
    const int room = std::max(swr_get_out_samples(m_swr.get(), given), 1);
    std::shared_ptr<AVFrame> fitting =
        create_avframe_with(stream.channels, stream.sample_rate, stream.sample_fmt, room);
    if (!fitting || fitting->nb_samples != room) {
        return AVERROR(ENOMEM);
    }
    const int converted = swr_convert(
        m_swr.get(), fitting->extended_data, room,
        frame != nullptr ? const_cast<const std::uint8_t**>(frame->extended_data) : nullptr, given);
    if (converted >= 0) {
        fitting->nb_samples = converted;
        *result = std::move(fitting);
    }
    return converted;
}

}  // namespace ff
