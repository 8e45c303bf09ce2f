#include "tool_log.h"

#include "ffmpeg_facts.h"

#include <framewell/base/logger.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <mutex>
#include <utility>

namespace tool {

namespace {

struct Notebook {
    std::mutex mutex;
    Complaints last;  // guarded by mutex
};

// Never destroyed: a thread of FFmpeg's may report while the process ends.
Notebook& notebook() {
    static auto* const s_notebook = new Notebook;
    return *s_notebook;
}

bool g_is_verbose = false;  // written before any thread starts

// The library's messages stand between double quotes, with a newline at the end.
std::string without_quotes(std::string text) {
    if (!text.empty() && text.back() == '\n') {
        text.pop_back();
    }
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
        text = text.substr(1, text.size() - 2);
    }
    return text;
}

void note_library_error(const char* /*tag*/, int level, const char* /*file*/, int /*line*/,
                        const char* message) {
    if (level < mox::MoxLogFatal || level > mox::MoxLogError) {
        return;
    }
    const std::lock_guard<std::mutex> lock(notebook().mutex);
    notebook().last.framewell = without_quotes(message);
}

void note_ffmpeg_error(const std::string& line) {
    const std::lock_guard<std::mutex> lock(notebook().mutex);
    notebook().last.ffmpeg = line;
}

}  // namespace

void set_up_log(LogMode mode) {
    g_is_verbose = mode == LogMode::Verbose;
    mox::Logger* const logger = mox::Logger::instance();
    switch (mode) {
        case LogMode::Reasons:
            logger->setCallback(note_library_error);
            route_ffmpeg_messages(FFmpegMessages::ErrorsToListener, note_ffmpeg_error);
            break;
        case LogMode::Verbose:
            logger->setLevel(mox::MoxLogDebug);
            route_ffmpeg_messages(FFmpegMessages::ToStandardError);
            break;
        case LogMode::Quiet:
            logger->setLevel(mox::MoxLogNone - 1);
            route_ffmpeg_messages(FFmpegMessages::Nowhere);
            break;
    }
}

Complaints take_complaints() {
    const std::lock_guard<std::mutex> lock(notebook().mutex);
    return std::exchange(notebook().last, Complaints{});
}

std::string Reason::text() {
    const Complaints complaints = take_complaints();
    const std::string& said =
        complaints.framewell.empty() ? complaints.ffmpeg : complaints.framewell;
    if (!said.empty()) {
        m_last = said;
    }
    return m_last.empty() ? "" : " (" + m_last + ")";
}

HushedStandardError::HushedStandardError() {
    const int nowhere = g_is_verbose ? -1 : ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nowhere < 0) {
        return;
    }
    (void)std::fflush(stderr);  // what was printed before belongs to the user
    m_saved = ::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    if (m_saved >= 0 && ::dup2(nowhere, STDERR_FILENO) < 0) {
        (void)::close(m_saved);  // nothing was redirected
        m_saved = -1;
    }
    (void)::close(nowhere);  // standard error has its own copy
}

HushedStandardError::~HushedStandardError() {
    if (m_saved >= 0) {
        (void)std::fflush(stderr);
        (void)::dup2(m_saved, STDERR_FILENO);  // both are open, so it cannot fail
        (void)::close(m_saved);
    }
}

}  // namespace tool
