#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// @file
/// What the tool asks FFmpeg for by itself: names, digests, devices and the level of its messages.

namespace tool {

/// FFmpeg's name of an AVPixelFormat or AVSampleFormat ("yuv420p", "fltp"); null if there is none.
const char* pixel_format_name(int format);
const char* sample_format_name(int format);

/// The MD5 of `bytes` as 32 lower-case hexadecimal digits.
std::string md5_hex(const std::vector<std::uint8_t>& bytes);

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
