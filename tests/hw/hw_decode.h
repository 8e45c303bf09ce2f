#pragma once

/// @file
/// Decodes a clip on the road that the library's demuxer takes: a context of the hardware decoder,
/// opened, fed and emptied through it, released and freed.

#include "hw/hw_decoder.h"
#include "media/ff_handles.h"

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace fw_test {

/// A codec context as its owner has to treat it.
struct ReleasingDeleter {
    void operator()(AVCodecContext* ctx) const {
        ff::hw_codec_release(ctx);
        avcodec_free_context(&ctx);
    }
};

using HwCodecContextPtr = std::unique_ptr<AVCodecContext, ReleasingDeleter>;

struct DecodedPicture {
    int format = -1;
    std::int64_t pts = 0;
    std::int64_t duration = 0;
    AVRational aspect{0, 0};
    int width = 0;
    int height = 0;
    int luma = -1;  ///< the first byte of the first plane
};

struct DecodeRun {
    std::vector<DecodedPicture> pictures;
    std::vector<int> receive_errors;  ///< negative results other than "more input" and the end
    std::vector<int> send_errors;
    bool had_device = false;         ///< the context was set up for a device
    std::optional<int> final_state;  ///< of a device context, after the last picture
};

inline void receive_all(AVCodecContext* ctx, AVFrame* frame, DecodeRun* run) {
    // A picture that cannot be copied is lost, and the ones behind it still come; the limit keeps
    // an error that never ends from hanging the test.
    for (int i = 0; i < 1000; ++i) {
        const int r = ff::HWDecoder::instance()->hw_codec_receive_frame(ctx, frame);
        if (r == AVERROR(EAGAIN) || r == AVERROR_EOF) {
            return;
        }
        if (r < 0) {
            run->receive_errors.push_back(r);
            if (frame->buf[0] != nullptr) {
                throw std::runtime_error("a failed call left a picture behind");
            }
            continue;
        }
        run->pictures.push_back({frame->format, frame->best_effort_timestamp,
                                 ff::compat::frame_duration(*frame), frame->sample_aspect_ratio,
                                 frame->width, frame->height,
                                 frame->data[0] != nullptr ? frame->data[0][0] : -1});
        av_frame_unref(frame);
    }
}

/// Decodes the first video stream of the file at `path` to its end.
inline DecodeRun decode_clip(const std::string& path, int nb_threads = 0) {
    AVFormatContext* opened = nullptr;
    if (avformat_open_input(&opened, path.c_str(), nullptr, nullptr) < 0) {
        throw std::runtime_error("cannot open " + path);
    }
    const ff::FormatContextPtr format(opened);
    const int index = av_find_best_stream(opened, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (index < 0) {
        throw std::runtime_error("no video in " + path);
    }
    const AVCodecParameters* const parameters = format->streams[index]->codecpar;
    const AVCodec* const codec = avcodec_find_decoder(parameters->codec_id);
    const HwCodecContextPtr ctx(ff::HWDecoder::instance()->hw_codec_alloc_context3(codec));
    if (!ctx || avcodec_parameters_to_context(ctx.get(), parameters) < 0) {
        throw std::runtime_error("cannot set up a decoder for " + path);
    }
    DecodeRun run;
    run.had_device = ff::hw_format_state(ctx.get()) != nullptr;
    ctx->thread_count = nb_threads;
    if (avcodec_open2(ctx.get(), codec, nullptr) < 0) {
        throw std::runtime_error("cannot open a decoder for " + path);
    }
    const ff::PacketPtr packet(av_packet_alloc());
    const ff::FramePtr frame(av_frame_alloc());
    while (av_read_frame(format.get(), packet.get()) >= 0) {
        if (packet->stream_index == index) {
            const int r = avcodec_send_packet(ctx.get(), packet.get());
            if (r < 0) {
                run.send_errors.push_back(r);
            }
            receive_all(ctx.get(), frame.get(), &run);
        }
        av_packet_unref(packet.get());
    }
    (void)avcodec_send_packet(ctx.get(), nullptr);  // drains; what follows shows if it could not
    receive_all(ctx.get(), frame.get(), &run);
    if (const ff::HwFormatState* const state = ff::hw_format_state(ctx.get())) {
        run.final_state = state->state.load();
    }
    return run;
}

}  // namespace fw_test
