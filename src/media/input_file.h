#pragma once

#include "media/ff_compat.h"

namespace ff {

/// Opens the file at `path` (may be null) as avformat_open_input() does: 0 and `format`, which the
/// caller closes, or a negative FFmpeg code.
///
/// What can be read only once, a pipe or a terminal, is refused with AVERROR(ESPIPE): every decoder
/// reads its file from the start again, and opening a pipe that nobody writes to waits for ever.
/// Thread-safety: safe.
int open_input_file(AVFormatContext** format, const char* path);

}  // namespace ff
