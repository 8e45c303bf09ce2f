#pragma once

#include <framewell/media/rational.h>
#include <framewell/media/stream.h>

#include <cstdint>

namespace ff {

struct RequireMvImage;

/// Returns the whole factor by which a picture is shrunk to about the size of a box; see
/// getMovieImage(). Sides of the box of 0 or less are no limit.
int cover_divider(int width, int height, int max_width, int max_height);

/// Returns the time that `req` means in a movie of `duration_us` microseconds (INT64_MIN: unknown).
Rational cover_time(const RequireMvImage& req, std::int64_t duration_us);

/// Returns the record that the movie's video stream number `i` of `video_index` leads to, or null.
/// Deliberate: the file's stream number is used as the position in `streams`, which is another
/// stream where streams before it have no record. Hosts have covers of these files stored.
const StreamCtx* cover_stream(const MovieCtx& movie, int i);

}  // namespace ff
