#pragma once

namespace ff {

/// Whether the FFmpeg libraries that are loaded are those that framewell was built for; if not,
/// says so in the log (level 2, tag "bg"). Asked at every public operation that would go on to read
/// or write FFmpeg's structures, which then gives its failure value. Thread-safety: safe.
bool is_ffmpeg_usable();

}  // namespace ff
