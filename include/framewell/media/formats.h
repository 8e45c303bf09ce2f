#pragma once

#include <framewell/base/config.h>

#include <cstdint>

/// @file
/// The picture and sample formats that framewell converts to, and the kinds of streams.
/// Thread-safety: all safe.

namespace ff {

/// The value that, in place of a format, makes a request move the decoder without giving a result.
constexpr std::int32_t SEEK_ONLY_FORMAT = 999111;  // NOLINT(readability-identifier-naming): given

/// The pixel formats that a picture can be asked for in. Stored in 32 bits; the numbers are fixed.
enum class PixelFormat : std::int32_t {
    None = 0,                     ///< no format
    Rgba = 1,                     ///< 8 bits each of R, G, B, A, packed
    Yuv420p = 2,                  ///< planar Y, U, V with chroma halved in both directions
    Nv12 = 3,                     ///< Y plane, then U and V interleaved
    Bgra64be = 4,                 ///< 16 bits each of B, G, R, A, packed, big-endian
    Bgra64le = 5,                 ///< 16 bits each of B, G, R, A, packed, little-endian
    SeekOnly = SEEK_ONLY_FORMAT,  ///< no picture: only position the decoder
};

/// The sample formats that sound can be asked for in, all interleaved. The numbers are fixed.
enum class SampleFormat : std::int32_t {
    None = 0,                     ///< no format
    U8 = 1,                       ///< unsigned 8 bits; 128 is silence
    S16 = 2,                      ///< signed 16 bits
    S32 = 3,                      ///< signed 32 bits
    Flt = 4,                      ///< 32-bit float; full scale is 1
    SeekOnly = SEEK_ONLY_FORMAT,  ///< no sound: only position the decoder
};

/// The kinds of streams that a record can describe. The numbers are framewell's own: a subtitle
/// stream is 2 here and 3 in FFmpeg.
enum class StreamType : std::int32_t {
    None = -1,     ///< no stream
    Video = 0,     ///< pictures
    Audio = 1,     ///< sound
    Subtitle = 2,  ///< texts
};

/// Returns FFmpeg's AVPixelFormat of `format`, or -1 (AV_PIX_FMT_NONE) for any value without one.
FRAMEWELL_API int pixfmt_to_avpixfmt(PixelFormat format);

/// Returns the PixelFormat of FFmpeg's AVPixelFormat `format`, or PixelFormat::None if it has none.
FRAMEWELL_API PixelFormat avpixfmt_to_pixfmt(int format);

/// Returns FFmpeg's AVSampleFormat of `format`, or -1 (AV_SAMPLE_FMT_NONE) for any other value.
FRAMEWELL_API int samplefmt_to_avsamplefmt(SampleFormat format);

/// Returns the SampleFormat of FFmpeg's AVSampleFormat `format`; SampleFormat::None for planar and
/// double formats, which have none.
FRAMEWELL_API SampleFormat avsamplefmt_to_samplefmt(int format);

}  // namespace ff
