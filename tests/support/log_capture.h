#pragma once

#include <framewell/base/logger.h>

#include <algorithm>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace fw_test {

/// The message that the logging macro makes of `text`: quote characters around it and a newline.
inline std::string quoted(const std::string& text) {
    return '"' + text + "\"\n";
}

/// One message as the logger handed it out.
struct LogLine {
    std::string tag;
    int level = 0;
    std::string file;
    int line = 0;
    std::string message;  ///< with the macro's quote characters and newline

    /// The message as it was written in the source: without the newline at its end and the quote
    /// characters around it.
    std::string text() const {
        std::string text = message;
        if (!text.empty() && text.back() == '\n') {
            text.pop_back();
        }
        if (text.size() >= 2 && text.front() == '"' && text.back() == '"') {
            text = text.substr(1, text.size() - 2);
        }
        return text;
    }
};

/// Records every message, of every level, from its construction to its destruction; nothing is
/// printed meanwhile. Captures nest: the inner one gets the messages.
///
///     LogCapture log;
///     decoder.open(&broken);
///     EXPECT_EQ(log.texts(2), std::vector<std::string>{"failed to open: x, y"});
///
/// Thread-safety: safe, but no other thread may be logging while a capture begins or ends.
class LogCapture {
public:
    LogCapture() {
        m_logger.setCallback(
            [this](const char* tag, int level, const char* file, int line, const char* message) {
                const std::lock_guard<std::mutex> lock(m_mutex);
                m_lines.push_back({tag, level, file, line, message});
            });
        mox::Logger::instance(&m_logger);
    }

    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    ~LogCapture() { mox::Logger::instance(m_previous); }

    /// The messages so far, oldest first.
    std::vector<LogLine> lines() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_lines;
    }

    /// text() of the messages so far, oldest first.
    std::vector<std::string> texts() const {
        std::vector<std::string> result;
        for (const LogLine& line : lines()) {
            result.push_back(line.text());
        }
        return result;
    }

    /// texts() of the messages of exactly this level.
    std::vector<std::string> texts(int level) const {
        std::vector<std::string> result;
        for (const LogLine& line : lines()) {
            if (line.level == level) {
                result.push_back(line.text());
            }
        }
        return result;
    }

    /// How many messages have `part` in them.
    std::size_t count(const std::string& part) const {
        const std::vector<LogLine> all = lines();
        return static_cast<std::size_t>(std::count_if(
            all.begin(), all.end(),
            [&](const LogLine& line) { return line.message.find(part) != std::string::npos; }));
    }

    /// How many messages have exactly this text().
    std::size_t count_exactly(const std::string& text) const {
        const std::vector<std::string> all = texts();
        return static_cast<std::size_t>(std::count(all.begin(), all.end(), text));
    }

    bool contains(const std::string& part) const { return count(part) != 0; }

    /// The first message that has `part` in it.
    std::optional<LogLine> find(const std::string& part) const {
        for (const LogLine& line : lines()) {
            if (line.message.find(part) != std::string::npos) {
                return line;
            }
        }
        return std::nullopt;
    }

    /// Forgets the messages so far.
    void clear() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_lines.clear();
    }

private:
    mutable std::mutex m_mutex;
    std::vector<LogLine> m_lines;  // guarded by m_mutex
    mox::Logger* const m_previous = mox::Logger::instance();
    mox::Logger m_logger;
};

}  // namespace fw_test
