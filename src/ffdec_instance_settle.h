#pragma once

#include "media/ff_compat.h"

#include <cstdint>

namespace ff {

/// How many samples before a time a decoder of this stream must begin so that from that time on it
/// gives the samples which a decode from the start of the stream gives. Transforms overlap, and
/// some codecs keep bits of a frame in the frames before it.
std::int64_t samples_to_settle(const AVCodecParameters& parameters);

}  // namespace ff
