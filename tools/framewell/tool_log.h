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
    std::string framewell;  ///< a message of the library of level 1 or 2
    std::string ffmpeg;     ///< an error of FFmpeg's own
};

Complaints take_complaints();

/// Why requests fail, as far as the library has said it. It says it once: later requests fail for
/// the same reason in silence.
class Reason {
public:
    /// What was said last, in brackets after a space; empty if nothing ever was.
    std::string text();

private:
    std::string m_last;
};

/// Keeps what the library itself prints on standard error away from the user while it lives, except
/// under LogMode::Verbose. Only for calls while no other thread prints.
class HushedStandardError {
public:
    HushedStandardError();
    HushedStandardError(const HushedStandardError&) = delete;
    HushedStandardError& operator=(const HushedStandardError&) = delete;
    ~HushedStandardError();

private:
    int m_saved = -1;  // the real standard error; -1 while that is in place
};

}  // namespace tool
