#pragma once

#include <chrono>
#include <string>

namespace tool {

/// How far a long command has come, as one line on standard error: drawn over and over on a
/// terminal, and as lines of their own elsewhere if the user asks for them.
class Progress {
public:
    /// @param asked  show it even if standard error is no terminal.
    /// @param quiet  never show it.
    Progress(bool asked, bool quiet);
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /// Removes the line from the terminal.
    ~Progress();

    /// Shows "[#####     ]  50 % TEXT"; calls that follow too closely show nothing.
    /// @param fraction  0 to 1; a negative one means that nobody knows, and no bar is drawn.
    void show(double fraction, const std::string& text);

    /// Removes the line, so that results can be printed.
    void clear();

private:
    using Clock = std::chrono::steady_clock;

    bool m_is_on = false;
    bool m_is_terminal = false;
    bool m_is_drawn = false;
    Clock::time_point m_next;
};

}  // namespace tool
