#pragma once

/// @file
/// The measure of exact sound: what a plain decode of a stream from its start to its end gives,
/// where in it the answer to a span must lie, and the answers of a decoder.

#include "media/ff_compat.h"
#include "media/ff_handles.h"
#include "tests/support/media.h"

#include <framewell/ffdecoder.h>
#include <framewell/movie_info.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace fw_test {

/// One frame of a plain decode.
struct SoundFrame {
    std::int64_t time = 0;   ///< ticks
    std::int64_t first = 0;  ///< number of its first sample in the whole decode
    int nb_samples = 0;
};

/// All sound of one stream, in the format that its decoder gives, interleaved.
struct WholeSound {
    ff::SampleFormat format = ff::SampleFormat::S16;
    int rate = 0;
    int channels = 0;
    bool is_lossless = false;
    ff::Rational time_base;
    std::vector<SoundFrame> frames;
    std::string bytes;

    std::size_t sample_size() const {
        return static_cast<std::size_t>(av_get_bytes_per_sample(static_cast<AVSampleFormat>(
                                            ff::samplefmt_to_avsamplefmt(format))) *
                                        channels);
    }

    std::int64_t samples() const {
        return frames.empty() ? 0 : frames.back().first + frames.back().nb_samples;
    }

    /// `count` samples from number `first` on: fewer at the end, silence before the beginning.
    std::string stretch(std::int64_t first, std::int64_t count) const {
        const char silence = format == ff::SampleFormat::U8 ? static_cast<char>(0x80) : '\0';
        const std::int64_t before = std::clamp<std::int64_t>(-first, 0, count);
        const auto begin = static_cast<std::size_t>(std::clamp<std::int64_t>(first, 0, samples()));
        const auto length = static_cast<std::size_t>(count - before);
        return std::string(static_cast<std::size_t>(before) * sample_size(), silence) +
               bytes.substr(begin * sample_size(), length * sample_size());
    }

    /// The number of the sample that a span from tick `ts` on begins with: counted from the frame
    /// that covers the tick, since a container may space its frames wider or closer than they are
    /// long. Negative before the first frame.
    std::int64_t sample_at(std::int64_t ts) const {
        const auto after = std::upper_bound(
            frames.begin(), frames.end(), ts,
            [](std::int64_t time, const SoundFrame& frame) { return time < frame.time; });
        const SoundFrame& covering = after == frames.begin() ? *after : *(after - 1);
        return covering.first +
               av_rescale_q(ts - covering.time, rational(time_base), AVRational{1, rate});
    }

    static AVRational rational(const ff::Rational& value) {
        return {static_cast<int>(value.num), static_cast<int>(value.den)};
    }
};

inline std::string sound_md5(const std::string& bytes) {
    return md5_hex(bytes.data(), bytes.size());
}

/// A demuxer and a decoder as FFmpeg's own examples have them: no seek, no cache, one thread.
class PlainSoundDecoder {
public:
    PlainSoundDecoder(const std::string& path, int stream) : m_stream(stream) {
        AVFormatContext* format = nullptr;
        if (avformat_open_input(&format, path.c_str(), nullptr, nullptr) < 0) {
            throw std::runtime_error("a plain decoder cannot open " + path);
        }
        m_format.reset(format);
        if (avformat_find_stream_info(format, nullptr) < 0 ||
            stream >= static_cast<int>(format->nb_streams)) {
            throw std::runtime_error(path + " lacks a stream");
        }
        const AVCodecParameters* const parameters = avstream().codecpar;
        const AVCodec* const codec = avcodec_find_decoder(parameters->codec_id);
        m_codec.reset(avcodec_alloc_context3(codec));
        if (!m_codec || avcodec_parameters_to_context(m_codec.get(), parameters) < 0) {
            throw std::runtime_error("a plain decoder cannot be set up for " + path);
        }
        m_codec->pkt_timebase = avstream().time_base;
        if (avcodec_open2(m_codec.get(), codec, nullptr) < 0) {
            throw std::runtime_error("a plain decoder cannot be opened for " + path);
        }
    }

    const AVStream& avstream() const { return *m_format->streams[m_stream]; }

    /// The next frame, null at the end. Damaged packets are passed over.
    const AVFrame* next() {
        for (;;) {
            const int received = avcodec_receive_frame(m_codec.get(), m_frame.get());
            if (received >= 0) {
                ff::compat::correct_guessed_time(m_frame.get());
                return m_frame.get();
            }
            if (received == AVERROR_EOF) {
                return nullptr;
            }
            feed();
        }
    }

private:
    void feed() {
        av_packet_unref(m_packet.get());
        const bool at_end = av_read_frame(m_format.get(), m_packet.get()) < 0;
        if (at_end || m_packet->stream_index == m_stream) {
            (void)avcodec_send_packet(m_codec.get(), at_end ? nullptr : m_packet.get());
        }
    }

    const int m_stream;
    ff::FormatContextPtr m_format;
    ff::CodecContextPtr m_codec;
    ff::PacketPtr m_packet{av_packet_alloc()};
    ff::FramePtr m_frame{av_frame_alloc()};
};

/// Appends the samples of a frame, interleaved.
inline void append_interleaved(const AVFrame& frame, std::string* bytes) {
    const auto format = static_cast<AVSampleFormat>(frame.format);
    const int channels = ff::compat::channel_count(frame);
    const auto size = static_cast<std::size_t>(av_get_bytes_per_sample(format));
    if (av_sample_fmt_is_planar(format) == 0) {
        bytes->append(reinterpret_cast<const char*>(frame.extended_data[0]),
                      static_cast<std::size_t>(frame.nb_samples * channels) * size);
        return;
    }
    for (std::size_t i = 0; i < static_cast<std::size_t>(frame.nb_samples); i++) {
        for (int channel = 0; channel < channels; channel++) {
            const auto* plane = reinterpret_cast<const char*>(frame.extended_data[channel]);
            bytes->append(plane + i * size, size);
        }
    }
}

/// Gives the frames in front that have no time the one that is counted back from the first that
/// has, those behind it the one that is counted on, and moves a frame that does not come after the
/// one before it behind that.
inline void set_times_in_order(WholeSound* sound) {
    const AVRational tick = WholeSound::rational(sound->time_base);
    const AVRational sample{1, sound->rate};
    auto& frames = sound->frames;
    const auto timed = std::find_if(frames.begin(), frames.end(), [](const SoundFrame& frame) {
        return frame.time != AV_NOPTS_VALUE;
    });
    const std::int64_t origin =
        timed == frames.end() ? 0 : timed->time - av_rescale_q(timed->first, sample, tick);
    std::int64_t end = INT64_MIN;
    std::int64_t last = INT64_MIN;
    for (SoundFrame& frame : frames) {
        if (frame.time == AV_NOPTS_VALUE) {
            frame.time = end == INT64_MIN ? origin : end;
        }
        if (frame.time <= last) {
            frame.time = end;
        }
        last = frame.time;
        end = last + std::max<std::int64_t>(av_rescale_q(frame.nb_samples, sample, tick), 1);
    }
}

/// Decodes a stream from its start to its end. What is in another format than the first frame ends
/// it.
inline WholeSound decode_whole(const std::string& path, int stream) {
    PlainSoundDecoder decoder(path, stream);
    WholeSound sound;
    sound.time_base = {decoder.avstream().time_base.num, decoder.avstream().time_base.den};
    const AVCodecDescriptor* const codec =
        avcodec_descriptor_get(decoder.avstream().codecpar->codec_id);
    sound.is_lossless = codec != nullptr && (codec->props & AV_CODEC_PROP_LOSSLESS) != 0;
    std::int64_t first = 0;
    int format = AV_SAMPLE_FMT_NONE;
    while (const AVFrame* const frame = decoder.next()) {
        const bool is_first = sound.frames.empty();
        if (is_first) {
            format = frame->format;
            sound.rate = frame->sample_rate;
            sound.channels = ff::compat::channel_count(*frame);
            sound.format = ff::avsamplefmt_to_samplefmt(
                av_get_packed_sample_fmt(static_cast<AVSampleFormat>(format)));
        } else if (frame->format != format || frame->sample_rate != sound.rate ||
                   ff::compat::channel_count(*frame) != sound.channels) {
            break;
        }
        append_interleaved(*frame, &sound.bytes);
        sound.frames.push_back({frame->best_effort_timestamp, first, frame->nb_samples});
        first += frame->nb_samples;
    }
    if (sound.frames.empty()) {
        throw std::runtime_error("no sound in " + path);
    }
    set_times_in_order(&sound);
    return sound;
}

/// Returns the time of a tick from the movie's start.
inline ff::Rational sound_time(const ff::StreamCtx& stream, std::int64_t tick) {
    const ff::Rational in_file = ff::timestamp_to_time(tick, stream.time_base);
    if (stream.movie->start_time == INT64_MIN) {
        return in_file;
    }
    return in_file - ff::timestamp_to_time(stream.movie->start_time, {1, 1000000});
}

/// Returns the tick that a time from the movie's start is rounded to.
inline std::int64_t sound_tick(const ff::StreamCtx& stream, const ff::Rational& time) {
    const bool has_start = stream.movie->start_time != INT64_MIN;
    const ff::Rational movie_start =
        has_start ? ff::timestamp_to_time(stream.movie->start_time, {1, 1000000})
                  : ff::Rational{0, 1};
    return ff::time_to_timestamp(time + movie_start, stream.time_base);
}

/// Asks for [from, to) in the stream's own rate and channels.
inline std::shared_ptr<ff::AFrameCtx> ask_sound(ff::FFDecoder* decoder, const ff::Rational& from,
                                                const ff::Rational& to, ff::SampleFormat format) {
    ff::RequireAudioFrame request;
    request.range = {from, to};
    request.format = format;
    request.sample_rate = decoder->streamContex()->sample_rate;
    request.channels = decoder->streamContex()->channels;
    return decoder->getAudioFrame(request);
}

/// The samples of an answer; none if there is none.
inline std::string sound_bytes(const std::shared_ptr<ff::AFrameCtx>& sound) {
    return sound ? std::string(reinterpret_cast<const char*>(sound->data[0]),
                               static_cast<std::size_t>(sound->size))
                 : std::string();
}

/// Asks for consecutive spans of `step` seconds from `start` on until `end` lies behind, and joins
/// the answers.
inline std::string joined_spans(ff::FFDecoder* decoder, const ff::Rational& start,
                                const ff::Rational& end, const ff::Rational& step,
                                ff::SampleFormat format) {
    std::string bytes;
    ff::Rational from = start;
    for (std::int64_t k = 1; from < end; k++) {
        const ff::Rational to = start + ff::Rational{step.num * k, step.den};
        bytes += sound_bytes(ask_sound(decoder, from, to, format));
        from = to;
    }
    return bytes;
}

/// Opens a decoder on a stream of a file; throws if that fails.
inline std::unique_ptr<ff::FFDecoder> open_sound(const std::string& path, int stream) {
    auto decoder = std::make_unique<ff::FFDecoder>();
    const ff::MovieCtx* const movie = ff::getMovieInfo(path.c_str());
    if (movie == nullptr || !decoder->open(ff::stream_by_index(movie, stream))) {
        throw std::runtime_error("cannot open the sound of " + path);
    }
    return decoder;
}

}  // namespace fw_test
