#pragma once

#include "media/ff_compat.h"

#include <cstdint>

namespace ff {

/// How a decoder of sound must be led up to a time, so that from there on it gives the samples that
/// a decode from the start of the stream gives. In samples; both 0 where every frame stands alone.
struct Settling {
    std::int64_t samples;     ///< decoded before the time: transforms overlap, predictors remember
    std::int64_t from_start;  ///< times up to so far from the start are decoded from the start
};

Settling settling_of(const AVCodecParameters& parameters);

}  // namespace ff
