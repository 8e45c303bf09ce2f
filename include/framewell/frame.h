#pragma once

#include <framewell/base/config.h>
#include <framewell/media/formats.h>
#include <framewell/media/range.h>
#include <framewell/media/rational.h>

#include <atomic>
#include <cstdint>
#include <memory>

/// @file
/// What a host asks for (requests) and what it gets (results).

struct AVFrame;

namespace ff {

/// How much pictures are shrunk to save memory; see getImageDivider(). The numbers are fixed.
enum class MemoryMode : std::int32_t {
    Full = 0,          ///< never
    ByResolution = 1,  ///< from 1920x1080 by 2, from 3840x2160 by 4
    ByExportSize = 2,  ///< to about the area that the host exports
};

/// The request for one picture. A plain record: fill it, keep it, use it again.
/// Thread-safety: several threads may hand in one record at the same time as long as none of them
/// changes it.
struct RequireVideoFrame {
    Rational time{0, 1};                     ///< seconds from the movie's start
    PixelFormat format = PixelFormat::Rgba;  ///< of the result; PixelFormat::SeekOnly gives none
    /// 1 and less: full size. n >= 2: each side divided by n, then rounded up, the width to a
    /// multiple of 16 pixels and the height to one of 2; larger than a side: no picture.
    std::int32_t divider = 1;
    /// Set it to true to give up; tested before every decode call. Null: the decoder fills in its
    /// own flag (hence mutable), which closing the decoder sets. A flag that was filled in by
    /// another decoder counts as null, so one record can be used with many decoders.
    mutable std::atomic<bool>* abort_flag = nullptr;
};

/// The request for one span of sound. A plain record like RequireVideoFrame.
/// Thread-safety: as RequireVideoFrame.
struct RequireAudioFrame {
    Range range{{0, 1}, {0, 1}};              ///< [start, end), seconds from the movie's start
    SampleFormat format = SampleFormat::S16;  ///< of the result; SampleFormat::SeekOnly gives none
    /// Of the result, Hz. At less than a 2048th of the stream's rate no request gives anything.
    std::int32_t sample_rate = 44100;
    std::int32_t channels = 2;                        ///< of the result
    mutable std::atomic<bool>* abort_flag = nullptr;  ///< as in RequireVideoFrame
};

/// One converted picture. Handed out as std::shared_ptr; an empty pointer means no picture.
/// The record owns `buffer`, which holds all planes, and gives it back to the memory pool when the
/// last holder lets go. It stays valid after the decoder is closed or gone.
/// Thread-safety: the library never touches a record that it has handed out.
struct FRAMEWELL_API VFrameCtx {
    /// Makes a record without a picture.
    VFrameCtx() = default;
    VFrameCtx(const VFrameCtx&) = delete;
    VFrameCtx& operator=(const VFrameCtx&) = delete;

    /// Gives `buffer` back to the memory pool.
    ~VFrameCtx();

    std::int32_t width = 0;         ///< pixels of the stored picture, after division and alignment
    std::int32_t height = 0;        ///< likewise
    std::int32_t format = -1;       ///< FFmpeg's AVPixelFormat
    std::uint8_t* data[8] = {};     ///< planes, inside `buffer`
    std::int32_t linesize[8] = {};  ///< bytes from one row to the next, a multiple of 32, per plane
    std::int32_t src_width = 0;     ///< pixels of the stream's pictures before division
    std::int32_t src_height = 0;    ///< likewise
    std::int32_t divider = 1;       ///< the request's
    std::int64_t pts = 0;           ///< the picture's own time in the file, microseconds
    std::uint8_t* buffer = nullptr;  ///< owned; 16-byte aligned
    std::int32_t size = 0;           ///< bytes in `buffer`
};

/// One converted span of sound. Ownership and thread-safety as for VFrameCtx.
struct FRAMEWELL_API AFrameCtx {
    /// Makes a record without sound.
    AFrameCtx() = default;
    AFrameCtx(const AFrameCtx&) = delete;
    AFrameCtx& operator=(const AFrameCtx&) = delete;

    /// Gives `buffer` back to the memory pool.
    ~AFrameCtx();

    std::int32_t channels = 0;       ///< in `data`; the request's
    std::int32_t sample_rate = 0;    ///< Hz; the request's
    std::int32_t format = -1;        ///< FFmpeg's AVSampleFormat
    std::int32_t planar = 0;         ///< 1 if `format` is planar, else 0
    std::uint8_t* data[8] = {};      ///< one pointer (packed) or one per channel (planar)
    std::int32_t linesize[8] = {};   ///< bytes per plane
    std::int32_t nb_samples = 0;     ///< samples per channel
    std::int64_t pts = 0;            ///< start of the span in the file, microseconds
    std::uint8_t* buffer = nullptr;  ///< owned; 16-byte aligned; null when there are no samples
    std::int32_t size = 0;           ///< bytes in `buffer`
};

/// Returns by how much a picture of `width` x `height` pixels is to be divided under `mode`: the
/// value for RequireVideoFrame::divider. 1 for an unknown mode. The area is a 32-bit product that
/// wraps for sizes beyond 46340 x 46340.
/// Thread-safety: safe.
FRAMEWELL_API int getImageDivider(MemoryMode mode, int width, int height);

/// Returns a new audio frame with these parameters and the default layout of `channels`. With
/// `nb_samples` of 1 and more it holds that many samples of silence, else no data.
/// Empty: out of memory. A frame that was to have samples but whose parameters give no size, or for
/// which there was no memory, comes back without data and with `nb_samples` 0.
/// @param format  FFmpeg's AVSampleFormat.
/// Thread-safety: safe.
FRAMEWELL_API std::shared_ptr<AVFrame> create_avframe_with(int channels, int sample_rate,
                                                           int format, int nb_samples);

/// Returns a new record of `nb_samples` samples of silence in the form that `req` asks for, its
/// `pts` from the start of the request's range. With no samples, or with a form that has no size,
/// the record comes with `nb_samples` 0, `size` 0 and a null `buffer`.
/// Thread-safety: safe.
FRAMEWELL_API std::shared_ptr<AFrameCtx> create_audioframe_ctx(const RequireAudioFrame& req,
                                                               int nb_samples);

}  // namespace ff
