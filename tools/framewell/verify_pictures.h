#pragma once

#include "progress.h"
#include "verify_report.h"

#include <framewell/media/stream.h>

namespace tool {

/// Walks through the pictures of a stream in order, then asks for them again at random, backwards
/// and from several threads, `requests` times each. Ends early when the user interrupts it.
Verdict verify_pictures(const ff::StreamCtx& stream, unsigned int seed, int requests,
                        Progress* progress);

}  // namespace tool
