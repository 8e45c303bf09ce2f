#pragma once

/// @file
/// What the tests of decoders share: probed streams, requests, clips of one colour, and one pixel
/// of a result. Thread-safety: safe, except for reading a record while somebody changes it.

#include "tests/support/media.h"
#include "tests/support/streams.h"

#include <framewell/ffdecoder.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fw_test {

inline ff::RequireVideoFrame picture_at(const ff::Rational& time,
                                        ff::PixelFormat format = ff::PixelFormat::Yuv420p,
                                        int divider = 1) {
    ff::RequireVideoFrame request;
    request.time = time;
    request.format = format;
    request.divider = divider;
    return request;
}

/// A request for stereo sound of 16 bits.
inline ff::RequireAudioFrame sound_of(const ff::Range& range, std::int32_t rate = 44100) {
    ff::RequireAudioFrame request;
    request.range = range;
    request.format = ff::SampleFormat::S16;
    request.sample_rate = rate;
    request.channels = 2;
    return request;
}

/// Luma and two chroma samples of 8 bits each.
struct Yuv {
    int y = 0, u = 0, v = 0;
};

/// Returns a clip of two pictures, a second each, that have this colour everywhere, coded without a
/// loss.
/// @param pix_fmt  FFmpeg's name: yuv420p, yuv422p, yuv444p, or one of them with 10 bits.
inline std::string clip_flat(const Yuv& colour, const std::string& size,
                             const std::string& pix_fmt = "yuv420p") {
    const bool deep = pix_fmt.find("10") != std::string::npos;
    const auto text = [deep](int value) { return std::to_string(deep ? value * 4 : value); };
    // By way of 4:4:4, since the source of colours makes odd sizes even where chroma is halved.
    return make_clip("flat-" + size + "-" + pix_fmt + ".mkv",
                     "-f lavfi -i color=s=" + size + ":r=1:d=2,format=yuv444p" +
                         (deep ? "10le" : "") + ",geq=lum=" + text(colour.y) +
                         ":cb=" + text(colour.u) + ":cr=" + text(colour.v) + ",format=" + pix_fmt +
                         " -c:v ffv1 -threads 1");
}

/// Returns a clip of 60 pictures, 30 per second, with a key picture every 10: little to decode.
inline std::string clip_small(const std::string& name = "small.mp4") {
    return make_clip(name,
                     "-f lavfi -i testsrc2=size=160x120:rate=30:duration=2,format=yuv420p "
                     "-c:v libx264 -preset veryfast -threads 1 -bf 2 -g 10");
}

/// Returns the starts of a file's pictures in order, microseconds, as a reference decode lists
/// them.
inline std::vector<std::int64_t> picture_times_us(const ff::StreamCtx& stream) {
    std::vector<std::int64_t> times;
    for (const ReferenceFrame& frame : reference_frames(stream.movie->path, stream.index)) {
        times.push_back(ff::rescale_q(frame.pts, stream.time_base, {1, 1000000}));
    }
    return times;
}

/// Returns the bytes of one pixel of a packed picture.
inline std::vector<int> packed_pixel(const ff::VFrameCtx& picture, int x, int y, int bytes) {
    const std::uint8_t* const pixel =
        picture.data[0] + static_cast<std::ptrdiff_t>(y) * picture.linesize[0] + x * bytes;
    return {pixel, pixel + bytes};
}

/// Returns one sample of plane `plane`; x counts bytes.
inline int plane_byte(const ff::VFrameCtx& picture, int plane, int x, int y) {
    return picture.data[plane][static_cast<std::ptrdiff_t>(y) * picture.linesize[plane] + x];
}

/// Returns the luma of a planar picture row by row, to compare whole pictures.
inline std::string luma_of(const ff::VFrameCtx& picture) {
    std::string bytes;
    for (int y = 0; y < picture.height; ++y) {
        bytes.append(reinterpret_cast<const char*>(picture.data[0]) +
                         static_cast<std::ptrdiff_t>(y) * picture.linesize[0],
                     static_cast<std::size_t>(picture.width));
    }
    return bytes;
}

}  // namespace fw_test
