#pragma once

extern "C" {
#include <libavutil/log.h>
}

#include <cstdarg>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

namespace fw_test {

/// Records what is logged through av_log without a context, as our code does it. The libraries
/// themselves mostly log with one, but not all of the time.
class AvLogCapture {
public:
    AvLogCapture() {
        lines().clear();
        av_log_set_callback(&AvLogCapture::record);
    }

    AvLogCapture(const AvLogCapture&) = delete;
    AvLogCapture& operator=(const AvLogCapture&) = delete;

    ~AvLogCapture() { av_log_set_callback(av_log_default_callback); }

    std::vector<std::string> texts(int level) const {
        const std::lock_guard<std::mutex> lock(mutex());
        std::vector<std::string> found;
        for (const Line& line : lines()) {
            if (line.level == level) {
                found.push_back(line.text);
            }
        }
        return found;
    }

private:
    struct Line {
        int level;
        std::string text;
    };

    static std::vector<Line>& lines() {
        static std::vector<Line> s_lines;
        return s_lines;
    }

    static std::mutex& mutex() {
        static std::mutex s_mutex;
        return s_mutex;
    }

    static void record(void* context, int level, const char* format, std::va_list args) {
        if (context != nullptr) {
            return;
        }
        char text[512];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
        (void)std::vsnprintf(text, sizeof text, format, args);
#pragma GCC diagnostic pop
        const std::lock_guard<std::mutex> lock(mutex());
        lines().push_back({level, text});
    }
};

}  // namespace fw_test
