#pragma once

#include <framewell/media/formats.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

/// @file
/// What the tool asks FFmpeg for by itself: names, digests, devices and the level of its messages.

namespace tool {

/// FFmpeg's name of an AVPixelFormat or AVSampleFormat ("yuv420p", "fltp"); null if there is none.
const char* pixel_format_name(int format);
const char* sample_format_name(int format);

/// FFmpeg's text for a negative result of one of its functions.
std::string ffmpeg_reason(int result);

/// FFmpeg's name of the codec of the file's stream number `stream` ("aac"); empty if it does not
/// tell.
std::string codec_name(const std::string& path, int stream);

/// The format among those that pictures can be asked for in that loses least of pictures of the
/// AVPixelFormat `format`.
ff::PixelFormat richest_format(int format);

/// The same for sound of the AVSampleFormat `format`.
ff::SampleFormat richest_sample_format(int format);

/// The MD5 of `bytes` as 32 lower-case hexadecimal digits.
std::string md5_hex(const std::uint8_t* bytes, std::size_t size);
std::string md5_hex(const std::vector<std::uint8_t>& bytes);
std::string md5_hex(std::string_view bytes);

/// 128 bits that tell different bytes apart, for memory only: much faster than MD5, and no defence
/// against bytes that are made to collide.
using Fingerprint = std::array<std::uint8_t, 16>;
Fingerprint fingerprint(const std::vector<std::uint8_t>& bytes);

/// Tries to open a hardware device of the type that FFmpeg calls `name`.
/// @return  empty if one was opened, else the reason.
std::string why_device_fails(const std::string& name);

/// Where FFmpeg's own messages go.
enum class FFmpegMessages {
    Nowhere,
    ToStandardError,
    ErrorsToListener,  ///< errors only, each as one line without newline
};

/// @param listener  called on any thread, also on several at a time; kept for good.
void route_ffmpeg_messages(FFmpegMessages route,
                           std::function<void(const std::string& line)> listener = {});

}  // namespace tool
