#include "plain_sound_loop.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>

namespace bench {

namespace {

constexpr int kChannels = 2;

void check(bool ok, const char* what) {
    if (!ok) {
        (void)std::fprintf(stderr, "plain sound loop: cannot %s\n", what);
        std::exit(1);  // NOLINT(concurrency-mt-unsafe): no other thread ends the program
    }
}

/// `name` is the option's since FFmpeg 5.1, `old_name` before.
bool set_stereo(SwrContext* swr, const char* name, const char* old_name) {
    return av_opt_set(swr, name, "stereo", 0) >= 0 || av_opt_set(swr, old_name, "stereo", 0) >= 0;
}

}  // namespace

void PlainSoundLoop::Free::operator()(AVFormatContext* format) const {
    avformat_close_input(&format);
}

void PlainSoundLoop::Free::operator()(AVCodecContext* codec) const {
    avcodec_free_context(&codec);
}

void PlainSoundLoop::Free::operator()(AVPacket* packet) const {
    av_packet_free(&packet);
}

void PlainSoundLoop::Free::operator()(AVFrame* frame) const {
    av_frame_free(&frame);
}

void PlainSoundLoop::Free::operator()(SwrContext* resampler) const {
    swr_free(&resampler);
}

PlainSoundLoop::PlainSoundLoop(const std::string& path, int rate)
    : m_packet(av_packet_alloc()), m_frame(av_frame_alloc()) {
    check(m_packet != nullptr && m_frame != nullptr, "allocate a packet and a frame");
    open(path);
    open_codec();
    make_resampler(rate);
}

PlainSoundLoop::~PlainSoundLoop() = default;

void PlainSoundLoop::open(const std::string& path) {
    AVFormatContext* format = nullptr;
    check(avformat_open_input(&format, path.c_str(), nullptr, nullptr) >= 0, "open the file");
    m_format.reset(format);
    check(avformat_find_stream_info(format, nullptr) >= 0, "find the streams");
    const int index = av_find_best_stream(format, AVMEDIA_TYPE_AUDIO, -1, -1, nullptr, 0);
    check(index >= 0, "find an audio stream");
    m_stream = format->streams[index];
}

void PlainSoundLoop::open_codec() {
    const AVCodec* const codec = avcodec_find_decoder(m_stream->codecpar->codec_id);
    check(codec != nullptr, "find a decoder");
    m_codec.reset(avcodec_alloc_context3(codec));
    check(avcodec_parameters_to_context(m_codec.get(), m_stream->codecpar) >= 0, "set the decoder");
    m_codec->pkt_timebase = m_stream->time_base;
    m_codec->thread_count = 0;  // as many as there are processors
    check(avcodec_open2(m_codec.get(), codec, nullptr) >= 0, "open the decoder");
}

void PlainSoundLoop::make_resampler(int rate) {
    m_resampler.reset(swr_alloc());
    SwrContext* const swr = m_resampler.get();
    check(swr != nullptr && set_stereo(swr, "in_chlayout", "in_channel_layout") &&
              set_stereo(swr, "out_chlayout", "out_channel_layout") &&
              av_opt_set_int(swr, "in_sample_rate", m_stream->codecpar->sample_rate, 0) >= 0 &&
              av_opt_set_int(swr, "out_sample_rate", rate, 0) >= 0 &&
              av_opt_set_sample_fmt(swr, "in_sample_fmt",
                                    static_cast<AVSampleFormat>(m_stream->codecpar->format),
                                    0) >= 0 &&
              av_opt_set_sample_fmt(swr, "out_sample_fmt", AV_SAMPLE_FMT_S16, 0) >= 0 &&
              swr_init(swr) >= 0,
          "make a resampler");
}

std::int64_t PlainSoundLoop::play(Samples* record) {
    std::int64_t played = 0;
    while (decode()) {
        const int got = resample(0, m_frame->nb_samples, 0);
        if (record != nullptr) {
            record->insert(record->end(), m_buffer.begin(),
                           m_buffer.begin() + std::ptrdiff_t{got} * kChannels);
        }
        played += got;
    }
    return played;
}

int PlainSoundLoop::take(std::int64_t first, int count, int preroll) {
    seek(first - preroll);
    avcodec_flush_buffers(m_codec.get());
    return cut(first, count);
}

int PlainSoundLoop::take_from_start(std::int64_t first, int count) {
    seek(0);
    open_codec();
    return cut(first, count);
}

/// The time of a sample, the first of the stream being sample 0.
std::int64_t PlainSoundLoop::to_ticks(std::int64_t samples) const {
    const std::int64_t start = m_stream->start_time == AV_NOPTS_VALUE ? 0 : m_stream->start_time;
    return start + av_rescale_q(samples, {1, m_stream->codecpar->sample_rate}, m_stream->time_base);
}

void PlainSoundLoop::seek(std::int64_t sample) {
    check(
        av_seek_frame(m_format.get(), m_stream->index, to_ticks(sample), AVSEEK_FLAG_BACKWARD) >= 0,
        "seek");
}

/// Decodes on to `first` and resamples what is wanted.
int PlainSoundLoop::cut(std::int64_t first, int count) {
    const std::int64_t target = to_ticks(first);
    int filled = 0;
    while (count > 0 && decode()) {
        std::int64_t skip = av_rescale_q(target - m_frame->pts, m_stream->time_base,
                                         {1, m_stream->codecpar->sample_rate});
        skip = std::max<std::int64_t>(skip, 0);
        if (skip < m_frame->nb_samples) {
            const int used = std::min(count, m_frame->nb_samples - static_cast<int>(skip));
            filled += resample(static_cast<int>(skip), used, filled);
            count -= used;
        }
    }
    return filled;
}

/// Decodes the next frame into m_frame. False at the end.
bool PlainSoundLoop::decode() {
    int received = avcodec_receive_frame(m_codec.get(), m_frame.get());
    while (received == AVERROR(EAGAIN)) {
        const int read = av_read_frame(m_format.get(), m_packet.get());
        check(read >= 0 || read == AVERROR_EOF, "read a packet");
        // What refers to packets before a seek may fail: it is not wanted.
        (void)avcodec_send_packet(m_codec.get(), read < 0 ? nullptr : m_packet.get());
        av_packet_unref(m_packet.get());
        received = avcodec_receive_frame(m_codec.get(), m_frame.get());
    }
    check(received >= 0 || received == AVERROR_EOF, "decode sound");
    return received >= 0;
}

/// Resamples `count` samples of m_frame behind the first `skip` to where `filled` samples stand in
/// the buffer already. Returns how many came out.
int PlainSoundLoop::resample(int skip, int count, int filled) {
    const auto format = static_cast<AVSampleFormat>(m_frame->format);
    const bool is_planar = av_sample_fmt_is_planar(format) != 0;
    const int step = av_get_bytes_per_sample(format) * (is_planar ? 1 : kChannels);
    const std::uint8_t* in[kChannels] = {};
    for (int plane = 0; plane < (is_planar ? kChannels : 1); ++plane) {
        in[plane] = m_frame->extended_data[plane] + std::ptrdiff_t{skip} * step;
    }
    const int room = swr_get_out_samples(m_resampler.get(), count);
    check(room >= 0, "size the resampler's result");
    const auto needed = static_cast<std::size_t>(filled + room) * kChannels;
    if (m_buffer.size() < needed) {
        m_buffer.resize(needed);
    }
    auto* out =
        reinterpret_cast<std::uint8_t*>(m_buffer.data() + std::ptrdiff_t{filled} * kChannels);
    const int converted = swr_convert(m_resampler.get(), &out, room, in, count);
    check(converted >= 0, "resample");
    return converted;
}

}  // namespace bench
