#pragma once

#include <framewell/ffdecoder.h>
#include <framewell/media/stream.h>

#include <cstdint>
#include <optional>
#include <string>

namespace tool {

/// A file that was probed, or the reason why it could not be, without the file's name.
struct ProbedFile {
    const ff::MovieCtx* movie = nullptr;
    std::string error;  ///< one line that says what to do; empty if `movie` is set
};

ProbedFile probe_file(const std::string& path);

/// Probes a file that the command cannot do without. Throws Failure if that fails.
const ff::MovieCtx& need_file(const std::string& path);

/// The movie's stream of a kind that is to be decoded: the file's number `number`, or the first
/// stream of that kind. Throws Failure if there is no such stream or it is of another kind.
const ff::StreamCtx& pick_stream(const ff::MovieCtx& movie, ff::StreamType kind,
                                 std::optional<int> number);

/// "clip.mp4: stream 1", to begin an error line with.
std::string stream_name(const ff::StreamCtx& stream);

/// "video", "audio", "subtitle", "none".
const char* kind_name(ff::StreamType type);

/// When the movie starts in the file's own time, microseconds; 0 if it does not say.
std::int64_t movie_start_us(const ff::MovieCtx& movie);

/// Opens the decoder on the stream. Throws Failure if it cannot be decoded.
void open_stream(const ff::StreamCtx& stream, ff::FFDecoder& decoder);

}  // namespace tool
