#pragma once

#include <string>

namespace ff {

/// Returns why the FFmpeg libraries that this process runs with must not be used: the first one
/// whose major version is another than that of the headers that framewell was compiled with, and
/// whose structures therefore look otherwise. Empty when all fit, as always where the dynamic
/// loader goes by the libraries' own names; it is static libraries, renamed files and preloading
/// that get past it.
///
/// Asks six functions that return a constant, so callers ask at every entry.
/// Thread-safety: safe.
std::string ffmpeg_refusal();

}  // namespace ff
