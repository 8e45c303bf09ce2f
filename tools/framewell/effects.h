#pragma once

#include <framewell/ffdecoder2.h>

#include <string>

namespace tool {

/// What `--speed`, `--reverse` and `--filter` ask for.
struct Effects {
    double speed = 1.0;
    bool reverse = false;  ///< pictures only
    std::string filter;    ///< in libavfilter's syntax; empty: none
};

/// Sets an open decoder up for them. Throws Failure if libavfilter refuses the filters or the
/// stream cannot be played backwards.
/// @param name  of the stream, for the error line ("clip.mp4: stream 1").
void apply_effects(const Effects& effects, const std::string& name, ff::FFDecoder2& decoder);

}  // namespace tool
