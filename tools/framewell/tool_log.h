#pragma once

#include <string>

namespace tool {

/// How much of the library's log a user sees. None of it ever goes to standard output.
enum class LogMode {
    Reasons,  ///< nothing but the reason that an error line quotes
    Verbose,  ///< every line down to level 5, and FFmpeg's messages
    Quiet,    ///< nothing, and error lines quote no reasons
};

/// Sets up the library's logger and FFmpeg's. To be called once, before anything is decoded.
void set_up_log(LogMode mode);

/// The last errors since they were last asked for. Empty under other modes than Reasons.
struct Complaints {
    std::string library;  ///< a message of the library of level 1 or 2
    std::string ffmpeg;   ///< an error of FFmpeg's own
};

Complaints take_complaints();

}  // namespace tool
