#pragma once

#include <framewell/base/config.h>

/// @file
/// FFmpeg's error codes as texts.

namespace ff {

/// Returns FFmpeg's text for its error code `errnum` ("End of file"), or "Error number N occurred"
/// for a code that it does not know.
/// @return  owned by the library and good for one log line: each thread has ten texts, so a text
///          stays as it is until that thread's tenth further call, or until the thread ends.
/// Thread-safety: safe.
FRAMEWELL_API const char* ffmpeg_error(int errnum);

}  // namespace ff
