#pragma once

#include "media/ff_compat.h"
#include "media/ff_handles.h"

namespace ff {

/// Makes a resampler that is ready for use, out of `old` unless that is null. Null if FFmpeg has
/// none between the two, and where sound is to be thinned out by more than 2048: a sample that
/// comes out is made of 32 times as many samples as it stands for, and FFmpeg keeps up to 1024
/// tables of that length. FFmpeg's log tells why.
SwrPtr open_resampler(SwrPtr old, const compat::AudioShape& out, const compat::AudioShape& in);

}  // namespace ff
