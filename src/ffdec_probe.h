#pragma once

#include "media/ff_compat.h"

#include <framewell/media/stream.h>
#include <framewell/movie_info.h>

#include <atomic>

namespace ff {

/// Measures one video stream and appends its record to `movie`. Returns the record, or null if the
/// movie has no room for it.
/// @param movie_duration  of the container, microseconds, AV_NOPTS_VALUE if unknown.
/// @param unreliable      the container guessed its duration from the bit rate.
/// @param cancel          may be null; ends the counting of frames early.
StreamCtx* probe_video_stream(MovieCtx* movie, AVStream* stream, long long movie_duration,
                              bool unreliable, std::atomic<bool>* cancel);

/// The same for an audio stream, which is decoded only if its duration is not known otherwise.
StreamCtx* probe_audio_stream(MovieCtx* movie, AVStream* stream, long long movie_duration,
                              bool unreliable, std::atomic<bool>* cancel);

/// Reads all events of a SubRip stream. Null, and nothing appended, for any other codec.
StreamCtx* probe_subtitle_stream(MovieCtx* movie, AVStream* stream);

/// Degrees clockwise that the pictures of a stream are to be turned by, from its "rotate" tag or
/// else its display matrix: in [0, 360), but values within 0.9 below 360 come out as small negative
/// ones, so that a matrix with rounding errors around 0 stays near 0.
double get_rotation(AVStream* stream);

}  // namespace ff
