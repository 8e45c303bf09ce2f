#include "ffdec_instance.h"

#include "base/log.h"
#include "base/trace.h"
#include "cancel_flag.h"
#include "ffdec_instance_settle.h"
#include "hw/hw_decoder.h"
#include "media/input_file.h"

#include <framewell/media/ffmpeg_error.h>

#include <algorithm>
#include <utility>

namespace ff {

namespace {

constexpr char kLogSource[] = "src/ffdec_instance";

/// The length of one frame in ticks by the stream's nominal rate, 0 when it has none.
std::int64_t nominal_frame_step(AVFormatContext* format, AVStream* stream) {
    if (stream->codecpar->codec_type != AVMEDIA_TYPE_VIDEO) {
        return 0;
    }
    const AVRational rate = av_guess_frame_rate(format, stream, nullptr);
    if (rate.num <= 0 || rate.den <= 0 || stream->time_base.num <= 0) {
        return 0;
    }
    return av_rescale_q(1, av_inv_q(rate), stream->time_base);
}

/// A copy, since the context may be about to go.
std::string url_of(const AVFormatContext& format) {
    return format.url != nullptr ? format.url : "";
}

}  // namespace

Instance::Instance() : m_jitter(std::make_unique<FrameJitter>()) {}

Instance::~Instance() {
    close();
}

bool Instance::open(const char* path, int stream_index) {
    close();
    return open_format(path, stream_index) && open_codec(path, stream_index);
}

bool Instance::open_format(const char* path, int stream_index) {
    AVFormatContext* format = nullptr;
    const int opened = open_input_file(&format, path);
    if (opened < 0) {
        FW_LOG(2, "bg", "failed to open: %s, %s", path != nullptr ? path : "",
               ffmpeg_error(opened));
        return false;
    }
    m_format.reset(format);
    const int found = avformat_find_stream_info(format, nullptr);
    if (found < 0) {
        FW_LOG(2, "bg", "failed to find stream info: %s", ffmpeg_error(found));
        return false;
    }
    if (stream_index < 0 || stream_index >= static_cast<int>(format->nb_streams)) {
        FW_LOG(2, "bg", "no such stream: %s, [%d]", path, stream_index);
        return false;
    }
    m_stream = format->streams[stream_index];
    ignore_other_streams();
    m_flac_clock.start(*format, *m_stream);
    return true;
}

bool Instance::open_codec(const char* path, int stream_index) {
    const AVCodecID codec_id = m_stream->codecpar->codec_id;
    const AVCodec* const codec = avcodec_find_decoder(codec_id);
    if (codec == nullptr) {
        FW_LOG(2, "bg", "failed to find decoder for: %s, [%d], %d", path, stream_index,
               static_cast<int>(codec_id));
        return false;
    }
    if (!make_codec_context(codec) || !start_codec(codec)) {
        return false;
    }
    m_jitter->set_name(avcodec_get_name(codec_id));
    m_jitter->set_frame_step(nominal_frame_step(m_format.get(), m_stream));
    m_jitter->reset(start_or_zero());
    return true;
}

bool Instance::make_codec_context(const AVCodec* codec) {
    m_codec.reset(HWDecoder::instance()->hw_codec_alloc_context3(codec));
    if (!m_codec) {
        FW_LOG(2, "bg", "failed to alloc codec context");
        return false;
    }
    if (avcodec_parameters_to_context(m_codec.get(), m_stream->codecpar) < 0) {
        FW_LOG(2, "bg", "failed to copy parameters");
        return false;
    }
    // Lets decoders that drop samples at the beginning (MP3, Opus) stamp what is left exactly.
    m_codec->pkt_timebase = m_stream->time_base;
    compat::decode_plain_events(m_codec.get());
    return true;
}

bool Instance::start_codec(const AVCodec* codec) {
    AVDictionary* options = nullptr;
    if (compat::set_threads(*codec, &options) < 0) {
        FW_LOG(2, "bg", "failed to set codec options");  // not fatal: then it is one thread
    }
    const int opened = avcodec_open2(m_codec.get(), codec, &options);
    m_options.reset(options);
    if (opened < 0) {
        FW_LOG(2, "bg", "failed to open codec: %d, err=%d, %s", static_cast<int>(codec->id), opened,
               ffmpeg_error(opened));
        return false;
    }
    return true;
}

/// Tells the demuxer to skip what belongs to other streams, unread where the container allows.
void Instance::ignore_other_streams() {
    for (unsigned i = 0; i < m_format->nb_streams; ++i) {
        AVStream* const stream = m_format->streams[i];
        stream->discard = stream == m_stream ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
}

void Instance::close() {
    m_options.reset();
    if (m_codec) {
        hw_codec_release(m_codec.get());
        m_codec.reset();
    }
    m_stream = nullptr;
    m_format.reset();
    m_jitter->reset(AV_NOPTS_VALUE);
    m_landing = Landing::FileOpened;
    m_first_packet = {};
    m_landed_on = {};
    m_ahead.reset();
    m_flac_clock = {};
    m_has_concealed = false;
    m_gate = Gate::Open;
    m_drop_damaged = false;
    m_has_recovered = false;
    m_drop_repeated = false;
    m_time_before = AV_NOPTS_VALUE;
    m_settle_until = AV_NOPTS_VALUE;
    m_sound_place = {};
    m_packets_left = kAllPackets;
}

int Instance::get_packet(AVPacket* packet) {
    if (!m_format || m_stream == nullptr) {
        return AVERROR_EXIT;
    }
    int result = 0;
    do {
        av_packet_unref(packet);
        result = av_read_frame(m_format.get(), packet);
    } while (result >= 0 && packet->stream_index != m_stream->index);
    if (result >= 0) {
        m_flac_clock.correct(packet);
    }
    return result;
}

int Instance::get_frame(AVPacket* packet, AVFrame* frame, const std::atomic<bool>* cancel) {
    if (!m_codec) {
        return AVERROR_EXIT;
    }
    if (avcodec_is_open(m_codec.get()) == 0) {
        return AVERROR(EINVAL);  // which FFmpeg says itself, but 7.1 reads through null before that
    }
    const int result = decode_frame(packet, frame, cancel);
    if (result >= 0) {
        keep_sound_in_order(frame);
    }
    return result;
}

int Instance::decode_frame(AVPacket* packet, AVFrame* frame, const std::atomic<bool>* cancel) {
    av_frame_unref(frame);
    if (m_jitter->take_ready(frame)) {
        return 0;
    }
    bool more_input = true;
    for (;;) {
        const int received = HWDecoder::instance()->hw_codec_receive_frame(m_codec.get(), frame);
        m_has_concealed = m_has_concealed || frame->decode_error_flags != 0;
        compat::correct_guessed_time(frame);
        if (received == 0 && is_inexact(*frame, !more_input)) {
            av_frame_unref(frame);
            continue;
        }
        if (received != AVERROR(EAGAIN)) {
            measure_sound(frame);
            if (m_jitter->put(frame) != nullptr) {
                return 0;
            }
            if (received >= 0) {
                continue;  // held back; the decoder may have more from the same packet
            }
        }
        if (!more_input) {
            if (received == AVERROR_EOF) {
                m_jitter->finish();
                return m_jitter->take_ready(frame) ? 0 : received;
            }
            return received;
        }
        const int fed = feed_decoder(packet, cancel, &more_input);
        if (fed < 0) {
            return fed;
        }
    }
}

/// Sound tells its length by its samples, also where the container does not: frames that were
/// packed together are spaced by it.
void Instance::measure_sound(AVFrame* frame) const {
    if (frame->nb_samples > 0 && frame->sample_rate > 0 && compat::frame_duration(*frame) <= 0) {
        const std::int64_t length =
            av_rescale_q(frame->nb_samples, {1, frame->sample_rate}, m_stream->time_base);
        compat::set_frame_duration(frame, std::max<std::int64_t>(length, 1));
    }
}

/// Gives the decoder the next packet, or at the end of the file the sign to hand out what it holds.
int Instance::feed_decoder(AVPacket* packet, const std::atomic<bool>* cancel, bool* more_input) {
    if (is_set(cancel)) {
        return AVERROR_EXIT;
    }
    const int read = read_packet(packet, cancel);
    if (read == AVERROR_EXIT && is_set(cancel)) {
        return read;
    }
    if (read == AVERROR_EOF) {
        (void)avcodec_send_packet(m_codec.get(), nullptr);  // fails only if it was sent before
        *more_input = false;
        return 0;
    }
    if (read < 0) {
        FW_LOG(2, "bg", "read packet failed: %s", ffmpeg_error(read));
        return read;
    }
    const int sent = avcodec_send_packet(m_codec.get(), packet);
    av_packet_unref(packet);
    if (sent < 0 && m_settle_until != AV_NOPTS_VALUE) {
        return 0;  // a packet that refers to what lies before the seek; it would be dropped anyway
    }
    return sent;
}

void Instance::decode_roughly(int max_packets) {
    if (m_codec) {
        // Smoothing the edges of blocks is a third of the work, and no picture depends on it for
        // being there.
        m_codec->skip_loop_filter = AVDISCARD_ALL;
        m_packets_left = max_packets > 0 ? max_packets : kAllPackets;
    }
}

/// The next packet that the decoder is to see; AVERROR_EXIT if `cancel` is set while it is looked
/// for.
int Instance::read_packet(AVPacket* packet, const std::atomic<bool>* cancel) {
    if (m_packets_left == 0) {
        return AVERROR_EOF;
    }
    int result = take_packet(packet);
    while (result >= 0 && !passes_key_gate(*packet)) {
        result = is_set(cancel) ? AVERROR_EXIT : get_packet(packet);
    }
    if (result >= 0 && m_packets_left > 0) {
        --m_packets_left;
    }
    return result;
}

/// The next packet of the file, key frame or not.
int Instance::take_packet(AVPacket* packet) {
    if (m_ahead) {
        av_packet_unref(packet);
        av_packet_move_ref(packet, m_ahead.get());
        m_ahead.reset();
        return m_ahead_result;
    }
    return m_landing != Landing::BehindPacket ? read_at_landing(packet) : get_packet(packet);
}

bool Instance::landed_where_it_did_before() {
    if (m_landing != Landing::SeekToTime) {
        return false;
    }
    m_ahead.reset(av_packet_alloc());
    if (!m_ahead) {
        return false;
    }
    const PacketMark before = m_landed_on;
    m_ahead_result = read_at_landing(m_ahead.get());
    return m_landed_on.is_same_packet(before);
}

/// Nothing is known of a packet that could not be read.
Instance::PacketMark Instance::mark_of(const AVPacket& packet, int read_result) {
    return read_result >= 0 ? PacketMark{packet.pts, packet.dts, packet.pos, packet.duration}
                            : PacketMark{};
}

/// Reads the first packet after opening or seeking, so that a stream of pictures begins in the same
/// way every time: its first packet comes back with the times that it had at first, which some
/// formats guess anew after a seek. And where a seek to the start ends behind it, as happens to
/// packets that have no times, the file is opened again.
int Instance::read_at_landing(AVPacket* packet) {
    const Landing landing = std::exchange(m_landing, Landing::BehindPacket);
    const int result = get_packet(packet);
    m_landed_on = mark_of(*packet, result);
    if (landing == Landing::FileOpened) {
        m_first_packet = m_landed_on;
        return result;
    }
    if (m_first_packet.pos < 0) {
        return result;
    }
    if (result >= 0 && packet->pos == m_first_packet.pos) {
        packet->pts = m_first_packet.pts;
        packet->dts = m_first_packet.dts;
        return result;
    }
    return landing == Landing::SeekToStart && reopen() ? read_at_landing(packet) : result;
}

/// To be called before a seek: the first packet can be told only by reading it.
void Instance::note_first_packet() {
    const PacketPtr packet(av_packet_alloc());
    if (packet && m_landing == Landing::FileOpened) {
        (void)read_at_landing(packet.get());  // an unreadable one is met again after the seek
    }
}

int Instance::get_subtitle(AVPacket* packet, AVSubtitle* subtitle) {
    if (!m_codec) {
        return AVERROR_EXIT;
    }
    const int read = get_packet(packet);
    if (read < 0) {
        return read;
    }
    int got = 0;
    const int decoded = avcodec_decode_subtitle2(m_codec.get(), subtitle, &got, packet);
    av_packet_unref(packet);
    return got != 0 ? decoded : -1;
}

const std::uint8_t* Instance::get_subtitle_header() const {
    return m_codec ? m_codec->subtitle_header : nullptr;
}

bool Instance::seek(std::int64_t ts, bool flush) {
    FW_TRACE("seek", nullptr);
    if (!m_codec) {
        return false;
    }
    const std::int64_t target = std::max(ts, start_or_zero());
    const bool at_start = target <= start_or_zero();
    expect_settling(target, at_start);
    if (flush) {
        reset_codec(time_to_decode_from(target) <= start_or_zero());
    }
    m_jitter->reset(at_start ? start_or_zero() : AV_NOPTS_VALUE);
    expect_key_frame(at_start);
    m_sound_place = {};
    m_ahead.reset();
    const bool is_video = m_codec->codec_type == AVMEDIA_TYPE_VIDEO;
    if (is_video || has_plain_samples() || m_flac_clock.is_running()) {
        note_first_packet();
    }
    if (is_video) {
        m_landing = at_start ? Landing::SeekToStart : Landing::SeekToTime;
    }
    return seek_file(target);
}

/// Makes the decoder forget what it holds. Many decoders of sound keep something over a flush (the
/// state of a noise generator, some everything), so one that goes back to the start is made anew.
/// Likewise a decoder of pictures that has made up missing parts of one: it keeps the pictures that
/// it takes them from, and would make them up from others the next time.
void Instance::reset_codec(bool at_start) {
    const bool is_lossy_sound =
        m_codec->codec_type == AVMEDIA_TYPE_AUDIO && settling_of(*m_stream->codecpar).samples > 0;
    const AVCodec* const codec = m_codec->codec;
    const bool needs_new = std::exchange(m_has_concealed, false) || (at_start && is_lossy_sound);
    CodecContextPtr old = std::move(m_codec);
    if (needs_new && make_codec_context(codec) && start_codec(codec)) {
        hw_codec_release(old.get());
        return;
    }
    m_codec = std::move(old);
    if (avcodec_is_open(m_codec.get()) != 0) {
        avcodec_flush_buffers(m_codec.get());
    }
}

bool Instance::seek_file(std::int64_t target) {
    const bool at_start_time = target == start_or_zero();
    const int result = at_start_time ? seek_to_first_packet(target) : seek_before(target);
    if (result >= 0) {
        if (at_start_time && m_stream->start_time == AV_NOPTS_VALUE) {
            // A bare stream has no clock: times are counted from where the file was opened, and a
            // search loses count.
            (void)reopen();
        }
        return true;
    }
    const char* const kind = m_codec->codec_type == AVMEDIA_TYPE_AUDIO ? "Audio" : "Video";
    FW_LOG(2, "bg", "---> seek '%s' failed (%d): %s", kind, result, ffmpeg_error(result));
    if (!at_start_time) {
        return false;
    }
    FW_LOG(2, "bg", "seek '%s' start_time=%lld, seek again ...", kind,
           static_cast<long long>(target));
    const std::string url = url_of(*m_format);
    if (!reopen()) {
        FW_LOG(2, "bg", "Seek Start failed, Reopen failed: %s", url.c_str());
        return false;
    }
    FW_LOG(5, "bg", "Seek Start failed, Reopen Success !!");
    return true;
}

/// Seeks to a time after the start, early enough for the decoder to settle.
int Instance::seek_before(std::int64_t target) {
    const auto seek_to = [this](std::int64_t position) {
        return av_seek_frame(m_format.get(), m_stream->index, position, AVSEEK_FLAG_BACKWARD);
    };
    if (m_settle_until == AV_NOPTS_VALUE) {
        return seek_to(has_plain_samples() ? packet_start_before(target) : target);
    }
    const std::int64_t early = time_to_decode_from(target);
    const int result =
        early > start_or_zero() ? seek_to(early) : seek_to_first_packet(start_or_zero());
    return result >= 0 ? result : seek_to(target);
}

/// Seeks to the start of the stream, which is where its first packet lies: files are searched by
/// decoding time, and what is shown first may be decoded long before the start time.
int Instance::seek_to_first_packet(std::int64_t target) {
    if (is_broadcast() && av_seek_frame(m_format.get(), -1, 0, AVSEEK_FLAG_BYTE) >= 0) {
        return 0;  // such streams begin with their first byte
    }
    const std::int64_t first = compat::first_index_time(m_stream);
    if (first != AV_NOPTS_VALUE) {
        target = std::min(target, first);
    }
    return av_seek_frame(m_format.get(), m_stream->index, target, AVSEEK_FLAG_BACKWARD);
}

/// True for MPEG transport and program streams.
bool Instance::is_broadcast() const {
    const int flags = m_format->iformat->flags;
    return (flags & AVFMT_TS_DISCONT) != 0 &&
           (flags & (AVFMT_NOBINSEARCH | AVFMT_NO_BYTE_SEEK)) == 0;
}

/// Goes on with the file freshly opened, at its start. On failure everything stays as it is.
bool Instance::reopen() {
    Instance fresh;
    if (!fresh.open(url_of(*m_format).c_str(), m_stream->index)) {
        return false;
    }
    if (fresh.m_codec->codec_type != m_codec->codec_type) {
        FW_LOG(2, "bg", "stream %d is of another kind by now: %s", m_stream->index,
               url_of(*m_format).c_str());
        return false;
    }
    swap(&fresh);
    return true;
}

void Instance::swap(Instance* other) {
    std::swap(m_format, other->m_format);
    std::swap(m_codec, other->m_codec);
    std::swap(m_stream, other->m_stream);
    std::swap(m_options, other->m_options);
    std::swap(m_jitter, other->m_jitter);
    std::swap(m_landing, other->m_landing);
    std::swap(m_first_packet, other->m_first_packet);
    std::swap(m_landed_on, other->m_landed_on);
    std::swap(m_ahead, other->m_ahead);
    std::swap(m_ahead_result, other->m_ahead_result);
    std::swap(m_flac_clock, other->m_flac_clock);
    std::swap(m_has_concealed, other->m_has_concealed);
    std::swap(m_gate, other->m_gate);
    std::swap(m_key_time, other->m_key_time);
    std::swap(m_drop_damaged, other->m_drop_damaged);
    std::swap(m_has_recovered, other->m_has_recovered);
    std::swap(m_drop_repeated, other->m_drop_repeated);
    std::swap(m_time_before, other->m_time_before);
    std::swap(m_settle_until, other->m_settle_until);
    std::swap(m_sound_place, other->m_sound_place);
    std::swap(m_packets_left, other->m_packets_left);
}

/// A search may land on any packet. At the start of a stream whatever decodes is what there is; in
/// the middle a decoder fed from between two key frames would make up what it misses.
void Instance::expect_key_frame(bool at_start) {
    const bool is_video = m_codec->codec_type == AVMEDIA_TYPE_VIDEO;
    m_gate = is_video && !at_start ? Gate::WaitForKey : Gate::Open;
    m_key_time = AV_NOPTS_VALUE;
    m_drop_repeated = !at_start && compat::repeats_last_picture(m_codec->codec_id);
    m_time_before = AV_NOPTS_VALUE;
    if (m_codec->codec_id == AV_CODEC_ID_H264) {
        // After a seek to a key frame that is not an IDR picture the decoder keeps back what it has
        // not seen recover, at the end of the stream also pictures that have (5.1). So it is told
        // to hand out everything, and what it marks as damaged is dropped here.
        m_drop_damaged = !at_start;
        m_has_recovered = false;
        m_codec->flags = at_start ? m_codec->flags & ~AV_CODEC_FLAG_OUTPUT_CORRUPT
                                  : m_codec->flags | AV_CODEC_FLAG_OUTPUT_CORRUPT;
    }
}

bool Instance::passes_key_gate(const AVPacket& packet) {
    if (m_gate != Gate::WaitForKey) {
        return true;
    }
    if ((packet.flags & AV_PKT_FLAG_KEY) == 0) {
        return false;
    }
    m_key_time = packet.pts;
    m_gate = m_key_time != AV_NOPTS_VALUE ? Gate::WaitForTime : Gate::Open;
    return true;
}

/// True for a frame that a decode from the start of the stream would give differently: sound from
/// before the decoder has settled, a picture that lies before the key frame that decoding began
/// with, or one that the decoder says is damaged.
bool Instance::is_inexact(const AVFrame& frame, bool draining) {
    if (is_settling(frame)) {
        return true;
    }
    if (m_drop_damaged && is_damaged(frame, draining)) {
        return true;
    }
    if (m_drop_repeated && is_repeated(frame, draining)) {
        return true;
    }
    if (m_gate != Gate::WaitForTime) {
        return false;
    }
    if (frame.best_effort_timestamp != AV_NOPTS_VALUE && frame.best_effort_timestamp < m_key_time) {
        return true;
    }
    m_gate = Gate::Open;
    return false;
}

/// True for a picture that is built on what lies before the seek. Pictures that the decoder still
/// holds at the end of the stream come out without its mark (5.1): they count once one is known to
/// be whole, as every picture without references is.
bool Instance::is_damaged(const AVFrame& frame, bool draining) {
    if ((frame.flags & AV_FRAME_FLAG_CORRUPT) != 0) {
        return true;
    }
    m_has_recovered = m_has_recovered || !draining || frame.pict_type == AV_PICTURE_TYPE_I;
    return !m_has_recovered;
}

/// True for a picture at the end of the stream whose time lies before that of the one before it.
/// One without a time is none.
bool Instance::is_repeated(const AVFrame& frame, bool draining) {
    const std::int64_t time = frame.best_effort_timestamp;
    const std::int64_t before = std::exchange(m_time_before, time);
    return draining && time != AV_NOPTS_VALUE && before != AV_NOPTS_VALUE && time < before;
}

std::int64_t Instance::start_or_zero() const {
    return m_stream->start_time != AV_NOPTS_VALUE ? m_stream->start_time : 0;
}

}  // namespace ff
