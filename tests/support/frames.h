#pragma once

/// @file
/// Decoded frames made by hand, for tests of what is done to them.

#include "media/ff_handles.h"

#include <framewell/frame.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <stdexcept>

namespace fw_test {

/// Returns a picture all of whose bytes are `value`.
inline std::shared_ptr<AVFrame> make_picture_frame(int format, int width, int height,
                                                   std::uint8_t value, std::int64_t time = 0) {
    std::shared_ptr<AVFrame> frame = ff::create_avframe_ptr(av_frame_alloc());
    frame->format = format;
    frame->width = width;
    frame->height = height;
    frame->pts = time;
    frame->best_effort_timestamp = time;
    if (av_frame_get_buffer(frame.get(), 0) < 0) {
        throw std::runtime_error("no memory for a picture");
    }
    for (int plane = 0; plane < 4 && frame->buf[plane] != nullptr; ++plane) {
        std::memset(frame->buf[plane]->data, value,
                    static_cast<std::size_t>(frame->buf[plane]->size));
    }
    return frame;
}

/// Returns `nb_samples` samples of 16 bits, interleaved, all of the value `value`.
inline std::shared_ptr<AVFrame> make_s16_frame(int channels, int sample_rate, int nb_samples,
                                               std::int16_t value) {
    std::shared_ptr<AVFrame> frame =
        ff::create_avframe_with(channels, sample_rate, AV_SAMPLE_FMT_S16, nb_samples);
    auto* const samples = reinterpret_cast<std::int16_t*>(frame->data[0]);
    for (int i = 0; i < nb_samples * channels; ++i) {
        samples[i] = value;
    }
    return frame;
}

}  // namespace fw_test
