#pragma once

#include <framewell/media/stream.h>

#include <optional>
#include <string>

namespace tool {

/// A file that was probed, or the reason why it could not be, without the file's name.
struct ProbedFile {
    const ff::MovieCtx* movie = nullptr;
    std::string error;  ///< one line that says what to do; empty if `movie` is set
};

ProbedFile probe_file(const std::string& path);

/// The movie's stream that pictures are to come from: the file's number `number`, or the first
/// video stream. Throws Failure if there is no such stream or it is not video.
const ff::StreamCtx& pick_video_stream(const ff::MovieCtx& movie, std::optional<int> number);

}  // namespace tool
