#include "plain_cover.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/imgutils.h>
#include <libswscale/swscale.h>
}

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace bench {

namespace {

constexpr int kRowAlignment = 32;
constexpr int kScalerOverrun = 64;  // what the scaler's vector code may write behind the last row

void check(bool ok, const char* what) {
    if (!ok) {
        (void)std::fprintf(stderr, "plain cover: cannot %s\n", what);
        std::exit(1);  // NOLINT(concurrency-mt-unsafe): no other thread ends the program
    }
}

int rounded_up(int value, int multiple) {
    return (value + multiple - 1) / multiple * multiple;
}

/// Decodes up to the picture of `time` (ticks), which comes back in `frame`.
void decode_to(AVFormatContext* format, AVCodecContext* codec, int stream, std::int64_t time,
               AVFrame* frame) {
    AVPacket* packet = av_packet_alloc();
    AVFrame* next = av_frame_alloc();
    check(packet != nullptr && next != nullptr, "allocate");
    bool found = false;
    while (!found) {
        const int received = avcodec_receive_frame(codec, next);
        if (received == AVERROR(EAGAIN)) {
            const int read = av_read_frame(format, packet);
            if (read < 0 || packet->stream_index == stream) {
                check(avcodec_send_packet(codec, read < 0 ? nullptr : packet) >= 0, "decode");
            }
            av_packet_unref(packet);
            continue;
        }
        if (received < 0) {
            break;  // the end: the last picture is the one
        }
        const bool is_later = next->best_effort_timestamp > time;
        found = is_later || next->best_effort_timestamp == time;
        if (!is_later || frame->data[0] == nullptr) {
            av_frame_unref(frame);
            av_frame_move_ref(frame, next);
        }
        av_frame_unref(next);
    }
    check(frame->data[0] != nullptr, "find a picture");
    av_frame_free(&next);
    av_packet_free(&packet);
}

PlainCover scale(const AVFrame& frame, int divider) {
    PlainCover cover;
    cover.width = divider < 2 ? frame.width : rounded_up(frame.width / divider, 16);
    cover.height = divider < 2 ? frame.height : rounded_up(frame.height / divider, 2);
    const int size =
        av_image_get_buffer_size(AV_PIX_FMT_RGBA, cover.width, cover.height, kRowAlignment);
    check(size > 0, "size a picture");
    cover.bytes.resize(static_cast<std::size_t>(size) + kScalerOverrun);
    std::uint8_t* planes[4] = {};
    int strides[4] = {};
    check(av_image_fill_arrays(planes, strides, cover.bytes.data(), AV_PIX_FMT_RGBA, cover.width,
                               cover.height, kRowAlignment) >= 0,
          "lay out a picture");
    cover.stride = strides[0];
    SwsContext* const scaler = sws_getContext(
        frame.width, frame.height, static_cast<AVPixelFormat>(frame.format), cover.width,
        cover.height, AV_PIX_FMT_RGBA, SWS_FAST_BILINEAR, nullptr, nullptr, nullptr);
    check(scaler != nullptr &&
              sws_scale(scaler, frame.data, frame.linesize, 0, frame.height, planes, strides) > 0,
          "scale");
    sws_freeContext(scaler);
    return cover;
}

}  // namespace

PlainCover plain_cover(const std::string& path, int divider) {
    AVFormatContext* format = nullptr;
    check(avformat_open_input(&format, path.c_str(), nullptr, nullptr) >= 0, "open the file");
    check(avformat_find_stream_info(format, nullptr) >= 0, "find the streams");
    const int index = av_find_best_stream(format, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    check(index >= 0, "find a video stream");
    AVStream* const stream = format->streams[index];
    for (unsigned i = 0; i < format->nb_streams; ++i) {
        format->streams[i]->discard =
            format->streams[i] == stream ? AVDISCARD_DEFAULT : AVDISCARD_ALL;
    }
    const AVCodec* const decoder = avcodec_find_decoder(stream->codecpar->codec_id);
    AVCodecContext* codec = avcodec_alloc_context3(decoder);
    check(codec != nullptr && avcodec_parameters_to_context(codec, stream->codecpar) >= 0,
          "set up the decoder");
    codec->pkt_timebase = stream->time_base;
    codec->thread_count = 0;
    check(avcodec_open2(codec, decoder, nullptr) >= 0, "open the decoder");

    const std::int64_t start = format->start_time == AV_NOPTS_VALUE ? 0 : format->start_time;
    const std::int64_t time =
        av_rescale_q(start + format->duration / 2, {1, AV_TIME_BASE}, stream->time_base);
    check(av_seek_frame(format, index, time, AVSEEK_FLAG_BACKWARD) >= 0, "seek");
    AVFrame* frame = av_frame_alloc();
    check(frame != nullptr, "allocate");
    decode_to(format, codec, index, time, frame);
    PlainCover cover = scale(*frame, divider);
    av_frame_free(&frame);
    avcodec_free_context(&codec);
    avformat_close_input(&format);
    return cover;
}

}  // namespace bench
