#include "progress.h"

#include "report.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace tool {

namespace {

// A command that is over sooner shows none: it would only flicker.
constexpr std::chrono::milliseconds kPatience{500};
constexpr std::chrono::milliseconds kTerminalPause{100};
constexpr std::chrono::milliseconds kLinePause{1000};

std::string bar(double fraction) {
    constexpr int width = 24;
    const double full = std::clamp(fraction, 0.0, 1.0);
    const auto done = static_cast<std::size_t>(full * width);
    char percent[16];
    (void)std::snprintf(percent, sizeof percent, "] %3d %% ", static_cast<int>(full * 100));
    return "[" + std::string(done, '#') + std::string(width - done, ' ') + percent;
}

}  // namespace

Progress::Progress(bool asked, bool quiet)
    : m_is_terminal(isatty(STDERR_FILENO) == 1), m_next(Clock::now() + kPatience) {
    m_is_on = !quiet && (asked || m_is_terminal);
    if (asked) {
        m_next = Clock::now();
    }
}

Progress::~Progress() {
    clear();
}

void Progress::show(double fraction, const std::string& text) {
    const Clock::time_point now = Clock::now();
    if (!m_is_on || now < m_next) {
        return;
    }
    m_next = now + (m_is_terminal ? kTerminalPause : kLinePause);
    const std::string line = (fraction < 0 ? "" : bar(fraction)) + printable(text);
    // There is no other place to report to if this cannot be written.
    if (m_is_terminal) {
        (void)std::fprintf(stderr, "\r%.100s\x1b[K", line.c_str());
        m_is_drawn = true;
    } else {
        (void)std::fprintf(stderr, "%s\n", line.c_str());
    }
    (void)std::fflush(stderr);
}

void Progress::clear() {
    if (m_is_drawn) {
        (void)std::fputs("\r\x1b[K", stderr);
        (void)std::fflush(stderr);
        m_is_drawn = false;
    }
}

}  // namespace tool
