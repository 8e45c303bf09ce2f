#include "plain_loop.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace bench {

namespace {

constexpr int kRowAlignment = 32;

void check(bool ok, const char* what) {
    if (!ok) {
        (void)std::fprintf(stderr, "plain loop: cannot %s\n", what);
        std::exit(1);  // NOLINT(concurrency-mt-unsafe): no other thread ends the program
    }
}

}  // namespace

void PlainLoop::Free::operator()(AVFormatContext* format) const {
    avformat_close_input(&format);
}

void PlainLoop::Free::operator()(AVCodecContext* codec) const {
    avcodec_free_context(&codec);
}

void PlainLoop::Free::operator()(AVPacket* packet) const {
    av_packet_free(&packet);
}

void PlainLoop::Free::operator()(AVFrame* frame) const {
    av_frame_free(&frame);
}

void PlainLoop::Free::operator()(SwsContext* scaler) const {
    sws_freeContext(scaler);
}

void PlainLoop::Free::operator()(std::uint8_t* memory) const {
    av_free(memory);
}

PlainLoop::PlainLoop(const std::string& path, int width, int height, int format)
    : m_packet(av_packet_alloc()) {
    check(m_packet != nullptr, "allocate a packet");
    open(path);
    list_pictures();
    make_scaler(width, height, format);
    seek_to(m_key_frames.front());
}

PlainLoop::~PlainLoop() = default;

void PlainLoop::open(const std::string& path) {
    AVFormatContext* format = nullptr;
    check(avformat_open_input(&format, path.c_str(), nullptr, nullptr) >= 0, "open the file");
    m_format.reset(format);
    check(avformat_find_stream_info(format, nullptr) >= 0, "find the streams");
    const int index = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    check(index >= 0, "find a video stream");
    m_stream = format->streams[index];
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        const bool is_ours = format->streams[i] == m_stream;
        format->streams[i]->discard = is_ours ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    const AVCodec* const codec = avcodec_find_decoder(m_stream->codecpar->codec_id);
    check(codec != nullptr, "find a decoder");
    m_codec.reset(avcodec_alloc_context3(codec));
    check(avcodec_parameters_to_context(m_codec.get(), m_stream->codecpar) >= 0, "set the decoder");
    m_codec->pkt_timebase = m_stream->time_base;
    m_codec->thread_count = 0;  // as many as there are processors
    check(avcodec_open2(m_codec.get(), codec, nullptr) >= 0, "open the decoder");
}

void PlainLoop::list_pictures() {
    while (av_read_frame(m_format.get(), m_packet.get()) >= 0) {
        if (m_packet->stream_index == m_stream->index) {
            m_times.push_back(m_packet->pts);
            if ((m_packet->flags & AV_PKT_FLAG_KEY) != 0) {
                m_key_frames.push_back(m_packet->pts);
            }
        }
        av_packet_unref(m_packet.get());
    }
    check(!m_key_frames.empty(), "find key frames");
    std::sort(m_times.begin(), m_times.end());
    std::sort(m_key_frames.begin(), m_key_frames.end());
}

void PlainLoop::make_scaler(int width, int height, int format) {
    const auto pixels = static_cast<AVPixelFormat>(format);
    m_scaler.reset(sws_getContext(m_codec->width, m_codec->height, m_codec->pix_fmt, width, height,
                                  pixels, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr));
    check(m_scaler != nullptr, "make a scaler");
    const int size = av_image_get_buffer_size(pixels, width, height, kRowAlignment);
    check(size > 0, "size a picture");
    m_buffer.reset(static_cast<std::uint8_t*>(av_malloc(static_cast<std::size_t>(size))));
    check(m_buffer != nullptr, "allocate a picture");
    check(av_image_fill_arrays(m_planes, m_strides, m_buffer.get(), pixels, width, height,
                               kRowAlignment) >= 0,
          "lay out a picture");
}

int PlainLoop::ticks_per_second() const {
    return m_stream->time_base.den / m_stream->time_base.num;
}

std::int64_t PlainLoop::show(std::int64_t time) {
    const AVFrame* frame = find_kept(time);
    if (frame == nullptr) {
        frame = decode_to(time);
    }
    scale(*frame);
    return frame->best_effort_timestamp;
}

void PlainLoop::show_kept(std::int64_t time) {
    const AVFrame* const frame = find_kept(time);
    check(frame != nullptr, "find a picture that was kept");
    scale(*frame);
}

/// The time of the key frame that the picture of this time needs.
std::int64_t PlainLoop::key_frame_for(std::int64_t time) const {
    const auto after = std::upper_bound(m_key_frames.begin(), m_key_frames.end(), time);
    return after == m_key_frames.begin() ? *after : *std::prev(after);
}

const AVFrame* PlainLoop::find_kept(std::int64_t time) const {
    for (const Owned<AVFrame>& frame : m_kept) {
        if (frame->best_effort_timestamp == time) {
            return frame.get();
        }
    }
    return nullptr;
}

const AVFrame* PlainLoop::decode_to(std::int64_t time) {
    const std::int64_t key_frame = key_frame_for(time);
    const bool is_ahead =
        m_next < m_times.size() && m_times[m_next] <= time && m_times[m_next] >= key_frame;
    if (!is_ahead) {
        seek_to(key_frame);
    }
    while (m_kept.empty() || m_kept.back()->best_effort_timestamp != time) {
        decode_one();
    }
    return m_kept.back().get();
}

void PlainLoop::seek_to(std::int64_t key_frame) {
    avcodec_flush_buffers(m_codec.get());
    check(av_seek_frame(m_format.get(), m_stream->index, key_frame, AVSEEK_FLAG_BACKWARD) >= 0,
          "seek");
    const auto position = std::lower_bound(m_times.begin(), m_times.end(), key_frame);
    m_next = static_cast<std::size_t>(position - m_times.begin());
}

/// Decodes the picture after the last one into the kept ones.
void PlainLoop::decode_one() {
    Owned<AVFrame> frame(av_frame_alloc());
    check(frame != nullptr, "allocate a frame");
    int received = avcodec_receive_frame(m_codec.get(), frame.get());
    while (received == AVERROR(EAGAIN)) {
        const int read = av_read_frame(m_format.get(), m_packet.get());
        check(read >= 0 || read == AVERROR_EOF, "read a packet");
        if (read < 0 || m_packet->stream_index == m_stream->index) {
            const AVPacket* const packet = read < 0 ? nullptr : m_packet.get();
            check(avcodec_send_packet(m_codec.get(), packet) >= 0, "decode a packet");
        }
        av_packet_unref(m_packet.get());
        received = avcodec_receive_frame(m_codec.get(), frame.get());
    }
    check(received >= 0, "decode a picture");
    check(m_next < m_times.size() && frame->best_effort_timestamp == m_times[m_next],
          "decode the pictures in order");
    ++m_next;
    keep(std::move(frame));
}

void PlainLoop::keep(Owned<AVFrame> frame) {
    if (m_kept.size() == kKeptPictures) {
        m_kept.pop_front();
    }
    m_kept.push_back(std::move(frame));
}

void PlainLoop::scale(const AVFrame& frame) {
    check(sws_scale(m_scaler.get(), frame.data, frame.linesize, 0, frame.height, m_planes,
                    m_strides) > 0,
          "scale");
}

}  // namespace bench
