#pragma once

#include "progress.h"
#include "verify_report.h"

#include <framewell/media/stream.h>

namespace tool {

/// Plays the sound of a stream from its start to its end, then asks for spans of it again at
/// random, backwards and from several threads, `requests` times each. Ends early when the user
/// interrupts it.
Verdict verify_sound(const ff::StreamCtx& stream, unsigned int seed, int requests,
                     Progress* progress);

}  // namespace tool
