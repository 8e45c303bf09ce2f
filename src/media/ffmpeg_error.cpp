#include "media/ff_compat.h"

#include <framewell/media/ffmpeg_error.h>

#include <cstddef>

namespace ff {

namespace {

constexpr std::size_t kRingSize = 10;  // the most texts that one log line uses
constexpr std::size_t kTextSize = 512;

}  // namespace

const char* ffmpeg_error(int errnum) {
    // One ring per thread: threads that fail at the same time do not write over each other's text.
    thread_local char err[kRingSize][kTextSize];
    thread_local std::size_t index = 0;

    char* const slot = err[index];
    index = (index + 1) % kRingSize;
    (void)av_strerror(errnum, slot, kTextSize);  // for an unknown code it fails and writes a text
    return slot;
}

}  // namespace ff
