#pragma once

#include <framewell/frame.h>
#include <framewell/media/stream.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fw_test {

/// One picture of a stream, and from when until when it is shown.
struct KnownPicture {
    std::int64_t from = 0;  ///< ticks
    std::int64_t until = 0;
    std::int64_t pts_us = 0;  ///< as results tell it
    std::string md5;          ///< as yuv420p
};

/// A stream, and all that it holds. Thread-safety: read-only once it is made.
struct KnownStream {
    const ff::StreamCtx* record = nullptr;
    std::vector<KnownPicture> pictures;  ///< of a video stream, in order
    std::vector<std::string> tenths;     ///< of sound: md5s of the tenths of a second, in order

    bool is_video() const { return record->type == ff::StreamType::Video; }
};

/// Returns what the first video and the first sound stream of each file hold. Pictures are those
/// that the `ffmpeg` program lists; what each looks like is learnt by asking for one after the
/// other, in order, and has to be what that program says where it has the same pixel format. Throws
/// std::runtime_error where it is not.
std::vector<KnownStream> learn_streams(const std::vector<std::string>& paths);

/// The request for a picture at full size, at tick `at`.
ff::RequireVideoFrame known_picture_at(const KnownStream& stream, std::int64_t at);

/// The request for a tenth of a second in the stream's own rate.
ff::RequireAudioFrame known_tenth(const KnownStream& stream, std::size_t number);

/// Returns the md5 of a picture from known_picture_at(); "none" for none.
std::string md5_of_picture(const ff::VFrameCtx* picture);

/// Returns the md5 of sound; "none" for none.
std::string md5_of_sound(const ff::AFrameCtx* sound);

/// Asks a decoder of its own for every `step`-th picture and tenth of a second, in order. Returns a
/// line for each that differs.
std::vector<std::string> differences_in_order(const KnownStream& stream, std::size_t step);

}  // namespace fw_test
