#include "base/line_text.h"

#include <framewell/base/logger.h>

#include <utility>

namespace mox {
namespace {

constexpr char CLevel[] = "-FEWID= ";  // NOLINT(readability-identifier-naming): given name

constexpr std::size_t kLineSize = 512;
constexpr int kPrefixSize = 128;
constexpr std::size_t kMessageSize = kLineSize - 1;
constexpr std::size_t kTimeSize = 64;

// The installed logger; null until one is asked for. A constant initialiser and no destructor:
// it can be used before and after every other static object.
std::atomic<Logger*> g_logger{nullptr};

Logger* install_default() {
    static auto* const s_default = new Logger;  // never destroyed: static destructors log too
    Logger* none = nullptr;
    return g_logger.compare_exchange_strong(none, s_default) ? s_default : none;
}

const char* base_name(const char* path) {
    const char* name = path;
    for (const char* p = path; *p != '\0'; ++p) {
        if (*p == '/' || *p == '\\') {
            name = p + 1;
        }
    }
    return name;
}

// Formats into `buf`, which is a text afterwards whatever happens.
void FRAMEWELL_PRINTF(3, 0)
    format_text(char* buf, std::size_t size, const char* format, std::va_list args) {
    if (format == nullptr || std::vsnprintf(buf, size, format, args) < 0) {
        buf[0] = '\0';
    }
}

}  // namespace

Logger::Logger() : m_stream(stderr), m_level(kDefaultLevel), m_callback(nullptr) {}

Logger::~Logger() {
    Logger* self = this;
    g_logger.compare_exchange_strong(self, nullptr);
    m_callback.store(nullptr);
    m_stream.store(stderr);
}

Logger* Logger::instance(Logger* logger) {
    if (logger != nullptr) {
        g_logger.store(logger, std::memory_order_release);
        return logger;
    }
    Logger* const installed = g_logger.load(std::memory_order_acquire);
    return installed != nullptr ? installed : install_default();
}

void Logger::write(const char* tag, int level, const char* file, int line, const char* format,
                   ...) {
    if (!wants(level)) {
        return;
    }
    std::va_list args;
    va_start(args, format);
    write2(tag, level, file, line, format, args);
    va_end(args);
}

void Logger::write2(const char* tag, int level, const char* file, int line, const char* format,
                    std::va_list args) {
    level = clamp_level(level);
    if (const Callback* const callback = m_callback.load(std::memory_order_acquire)) {
        char message[kMessageSize];
        format_text(message, kMessageSize, format, args);
        try {
            (*callback)(text_or_empty(tag), level, text_or_empty(file), line, message);
        } catch (...) {  // NOLINT(bugprone-empty-catch): there is nobody to tell but the logger
        }
        return;
    }
    if (level > m_level.load(std::memory_order_relaxed)) {
        return;
    }
    char text[kLineSize];
    const auto prefix = static_cast<std::size_t>(
        make_prefix(text, kPrefixSize, tag, static_cast<MoxLogLevel>(level), file, line));
    format_text(text + prefix, kLineSize - 1 - prefix, format, args);
    std::FILE* const out = stream();
    (void)std::fputs(text, out);  // a log that cannot be written has nowhere to say so
    (void)std::fflush(out);
}

const char* Logger::now(const char* format) {
    thread_local char s_buff[kTimeSize];
    format_local_time(s_buff, sizeof s_buff, format);
    return s_buff;
}

int Logger::make_prefix(char* buf, int size, const char* tag, MoxLogLevel level, const char* file,
                        int line) {
    if (buf == nullptr || size <= 0) {
        return 0;
    }
    const auto room = static_cast<std::size_t>(size);
    const int wanted = std::snprintf(buf, room, "%s[%c][%s] %s %-4d: ", now("%m%d-%H:%M:%S"),
                                     CLevel[clamp_level(level)], text_or_empty(tag),
                                     base_name(text_or_empty(file)), line);
    return static_cast<int>(written(wanted, room));
}

void Logger::setStream(std::FILE* stream) {
    m_stream.store(stream != nullptr ? stream : stderr, std::memory_order_release);
}

void Logger::setCallback(Callback callback) {
    const std::lock_guard<std::mutex> lock(m_callbacks_mutex);
    if (!callback) {
        m_callback.store(nullptr, std::memory_order_release);
        return;
    }
    m_callbacks.push_back(std::make_unique<const Callback>(std::move(callback)));
    m_callback.store(m_callbacks.back().get(), std::memory_order_release);
}

}  // namespace mox
