// The part of Instance that only sound needs.

#include "ffdec_instance.h"
#include "ffdec_instance_settle.h"

#include <algorithm>

namespace ff {

namespace {

// Frames of a broadcast may share their time or overlap, and are then moved behind one another
// until a gap comes; where they end up depends on those before. So many samples before a time
// nearly every such row has begun.
constexpr int kSamplesForTimes = 48000;

}  // namespace

/// True for sound of which every sample stands alone: files of it can be entered anywhere.
bool Instance::has_plain_samples() const {
    return m_codec->codec_type == AVMEDIA_TYPE_AUDIO &&
           av_get_exact_bits_per_sample(m_codec->codec_id) > 0;
}

/// Where a packet would begin at or before `target` if the stream were read from its start.
/// Decoders that enter between packets would cut the stream into other frames than those that do
/// not, and frames of several decoders could not follow each other.
std::int64_t Instance::packet_start_before(std::int64_t target) const {
    const std::int64_t step = m_first_packet.duration;
    std::int64_t distance = 0;
    if (step <= 0 || m_first_packet.pts == AV_NOPTS_VALUE ||
        __builtin_sub_overflow(target, m_first_packet.pts, &distance) || distance < 0) {
        return target;
    }
    return m_first_packet.pts + distance / step * step;
}

/// Where decoding begins for the sound at `target` to be right.
std::int64_t Instance::time_to_decode_from(std::int64_t target) const {
    if (m_settle_until == AV_NOPTS_VALUE) {
        return target;
    }
    const Settling settling = settling_of(*m_stream->codecpar);
    const auto to_ticks = [this](std::int64_t samples) {
        return av_rescale_q_rnd(samples, {1, m_stream->codecpar->sample_rate}, m_stream->time_base,
                                AV_ROUND_UP);
    };
    return target <= start_or_zero() + to_ticks(settling.from_start)
               ? start_or_zero()
               : target - to_ticks(settling.samples + (is_broadcast() ? kSamplesForTimes : 0));
}

/// Sound is right only some time after a decoder was fed from the middle. What is decoded until
/// then never leaves this instance: the frame that covers the target comes out first.
void Instance::expect_settling(std::int64_t target, bool at_start) {
    const bool is_audio = m_codec->codec_type == AVMEDIA_TYPE_AUDIO;
    m_settle_until = is_audio && !at_start && m_stream->codecpar->sample_rate > 0 &&
                             settling_of(*m_stream->codecpar).samples > 0
                         ? target
                         : AV_NOPTS_VALUE;
}

/// True for a frame of sound that was decoded only to settle the decoder.
bool Instance::is_settling(const AVFrame& frame) {
    if (m_settle_until == AV_NOPTS_VALUE) {
        return false;
    }
    if (frame.best_effort_timestamp != AV_NOPTS_VALUE && frame.sample_rate > 0) {
        const std::int64_t length = av_rescale_q_rnd(frame.nb_samples, {1, frame.sample_rate},
                                                     m_stream->time_base, AV_ROUND_UP);
        const std::int64_t told = compat::frame_duration(frame);
        // Those that are dropped count for the order of those that are not.
        const SoundPlace before = m_sound_place;
        const std::int64_t time =
            next_sound_time(frame.best_effort_timestamp, told > 0 ? told : length);
        if (time <= m_settle_until - length) {
            return true;
        }
        m_sound_place = before;
    }
    m_settle_until = AV_NOPTS_VALUE;
    return false;
}

/// A frame of sound is found by its time, so no two may have the same: one that does not come after
/// the frame before it (broadcasts, joined files) is moved behind that frame.
void Instance::keep_sound_in_order(AVFrame* frame) {
    if (m_codec->codec_type != AVMEDIA_TYPE_AUDIO) {
        return;
    }
    const std::int64_t time = next_sound_time(frame->pts, compat::frame_duration(*frame));
    if (time != frame->pts) {
        frame->pts = time;
        frame->best_effort_timestamp = time;
    }
}

/// The time of a frame that comes after all before it; remembers it.
std::int64_t Instance::next_sound_time(std::int64_t time, std::int64_t length) {
    SoundPlace& last = m_sound_place;
    if (last.time != AV_NOPTS_VALUE && time <= last.time) {
        time = last.end;
    }
    last.time = time;
    if (__builtin_add_overflow(time, std::max<std::int64_t>(length, 1), &last.end)) {
        last.end = time;
    }
    return time;
}

}  // namespace ff
