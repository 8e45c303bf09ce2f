#pragma once

#include <framewell/base/config.h>
#include <framewell/frame.h>
#include <framewell/media/formats.h>
#include <framewell/media/rational.h>
#include <framewell/movie_info.h>

#include <atomic>
#include <cstdint>
#include <memory>

/// @file
/// One picture per file for hosts that list files, the size that a host exports at, and thin
/// functions for hosts that convert pictures themselves.

namespace ff {

/// The request for the cover of a file. A plain record: fill it, keep it, use it again.
/// Thread-safety: several threads may hand in one record at the same time.
struct RequireMvImage {
    double ratio = 0;     ///< where in the movie, 0 its start, 1 its end; used when `time` has none
    Rational time{0, 0};  ///< where in the movie, seconds; a denominator of 0: `ratio` counts
    int max_width = 0;    ///< of the box that the picture is to fit, pixels; 0 or less: no limit
    int max_height = 0;   ///< likewise
    PixelFormat format = PixelFormat::Rgba;   ///< of the result
    std::atomic<bool>* abort_flag = nullptr;  ///< set it to true to give up; may be null
};

/// Returns one picture of the file at `path` for a list of files, and how long the file is.
///
///     ff::RequireMvImage request;
///     request.ratio = 0.1;  // the very first pictures of a movie are often black
///     request.max_width = 320;
///     request.max_height = 240;
///     ff::Rational duration{0, 1};
///     if (auto cover = ff::getMovieImage("clip.mp4", request, &duration)) {
///         show(cover->data[0], cover->linesize[0], cover->width, cover->height);
///     }
///
/// The picture comes from the last video stream of the file, which is found by using the file's
/// number of the stream as the position among the records: the stream itself in files all of whose
/// streams have records. It is the one that FFDecoder::getVideoFrame() gives for that time and
/// divider.
///
/// Pictures are shrunk by whole factors only, so one may be larger than the box: the factor is the
/// smallest with which the width and then the height fit, or one less if that leaves less than half
/// of the box's width or height. 1920x200 in a box of 320x240 is divided by 5, since 200 / 6 is
/// less than half of 240.
///
/// Of a file with several video streams a decoder stays open on each but the last one, whose stream
/// therefore keeps a worker: up to 16 such decoders in the process, after which the oldest ends.
/// @param path      in the encoding that the system uses for file names.
/// @param duration  may be null; gets the movie's duration, as microseconds over 1000000, also when
///                  there is no picture. Left alone if the file cannot be probed.
/// @return          shared record, not turned even if the stream asks for that. Empty: the file
///                  cannot be probed ("@@获取视频封面和信息失败：%s" in the log, level 2, tag
///                  "bg"); it has no video; its last video stream cannot be decoded; cancelled. A
///                  time outside the movie gives its first or last picture. A duration that is
///                  unknown or a `ratio` that is no number means its start.
/// Thread-safety: safe. Blocking: probes and decodes on the calling thread.
FRAMEWELL_API std::shared_ptr<VFrameCtx> getMovieImage(const char* path, const RequireMvImage& req,
                                                       Rational* duration);

/// Tells the size in pixels at which the host exports its movie, by which MemoryMode::ByExportSize
/// divides pictures. The area is a 32-bit product that wraps. 0 x 0, as at the start: not known.
/// Thread-safety: safe, but a decoder that asks meanwhile may see either size.
FRAMEWELL_API void setExportMVSize(int width, int height);

/// Returns a new scaler from pictures of `src_w` x `src_h` in format `src` to pictures of
/// `dst_w` x `dst_h` in format `dst`, for swsConvert(); the caller ends it with swsDestroy(). One
/// with which nothing can be converted, and a line in the log (level 2), for sizes or formats that
/// FFmpeg refuses. Null only when there is no memory.
/// Thread-safety: safe; one handle is for one thread at a time.
FRAMEWELL_API void* swsNew(PixelFormat src, PixelFormat dst, int src_w, int src_h, int dst_w,
                           int dst_h);

/// Converts rows `y` to `y` + `h` - 1 of a source picture; a whole picture may come in such slices,
/// from the top down. Nothing happens without a usable scaler, of which swsNew() has told the log,
/// and, with a line in the log (level 2), with a null array and for rows outside the picture.
/// @param src         planes, four entries; the first row of each is row `y`.
/// @param src_stride  bytes from row to row of each plane, four entries.
/// @param dst         planes of the whole result, likewise four. FFmpeg's vector code may write up
///                    to 64 bytes behind the last row of a packed picture and read as many behind a
///                    source plane: the host's buffers need that much room at their end.
/// Thread-safety: safe on different handles.
FRAMEWELL_API void swsConvert(void* handle, const std::uint8_t* const* src, const int* src_stride,
                              int y, int h, std::uint8_t* const* dst, const int* dst_stride);

/// Ends the handle; null is allowed. The scaler inside stays allocated for hosts that have taken it
/// out of the handle, whose first field it is: the newest 16 of the process do, older ones are
/// freed. Make few handles and keep them.
/// Thread-safety: safe; nobody may be using the handle any more.
FRAMEWELL_API void swsDestroy(void* handle);

/// Fills `linesizes` (four entries) with the bytes that a row of each plane of a picture of this
/// width needs, without padding. False, with a line in the log (level 2), for a format without an
/// FFmpeg format, a negative width and a null array.
/// Thread-safety: safe.
FRAMEWELL_API bool imageFillLinesizes(int* linesizes, PixelFormat format, int width);

/// Points `data` (four entries) to the planes of a picture of `height` rows of `linesizes` bytes
/// (four entries) that lies in `buffer`; with a null buffer, only measures it.
/// @return  the bytes that the picture takes; a negative FFmpeg code, with a line in the log (level
///          2), for arguments that fit no picture: an unknown format, a height below 1, null
///          arrays.
/// Thread-safety: safe.
FRAMEWELL_API int imageFillPointers(std::uint8_t** data, PixelFormat format, int height,
                                    std::uint8_t* buffer, const int* linesizes);

}  // namespace ff
