#pragma once

#include <framewell/base/config.h>
#include <framewell/media/stream.h>

#include <atomic>

/// @file
/// What is in a file.

namespace ff {

/// Returns what is in the file at `path`: its streams, durations, sizes, rates, rotation and
/// subtitles. Each decodable video stream is measured by decoding its first pictures, and a
/// duration that the container does not know or only guesses is corrected by decoding to the end.
///
/// The record is kept by path for the life of the process: a second call returns the same record
/// at once, also if the file has changed meanwhile.
/// @param path    the file, in the encoding that the system uses for file names.
/// @param cancel  may be null. When set to true, decoding to the end stops early; the record is
///                kept all the same, with the duration that was reached.
/// @return        a record that lives as long as the process and that everybody may read; null if
///                the file cannot be opened.
/// Logged (tag "bg"): "can't open input file" at level 2; at levels 2 and 3 what was corrected; at
/// level 5 that the record came from the cache.
/// Thread-safety: safe; different files are probed in parallel. Same as FFDecoder::probe().
/// Blocking: reads and decodes on the calling thread, a whole stream where the duration is unknown.
FRAMEWELL_API MovieCtx* getMovieInfo(const char* path, std::atomic<bool>* cancel = nullptr);

}  // namespace ff
