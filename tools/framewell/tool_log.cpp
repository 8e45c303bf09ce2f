#include "tool_log.h"

#include "ffmpeg_facts.h"

#include <framewell/base/logger.h>

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
    notebook().last.library = without_quotes(message);
}

void note_ffmpeg_error(const std::string& line) {
    const std::lock_guard<std::mutex> lock(notebook().mutex);
    notebook().last.ffmpeg = line;
}

}  // namespace

void set_up_log(LogMode mode) {
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

}  // namespace tool
