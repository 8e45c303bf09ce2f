#pragma once

#include "media/ff_compat.h"

#include <framewell/media/rational.h>
#include <framewell/media/stream.h>

namespace ff {

/// True if the file of `stream` tells when it begins. A record that a host made may have no file.
inline bool has_movie_start(const StreamCtx& stream) {
    return stream.movie != nullptr && stream.movie->start_time != AV_NOPTS_VALUE;
}

/// When the file of `stream` begins, in seconds: what hosts count from. Only for files that tell.
inline Rational movie_start(const StreamCtx& stream) {
    return timestamp_to_time(stream.movie->start_time, {1, 1000000});
}

}  // namespace ff
