#include "base/line_text.h"
#include "base/trace.h"

#include <framewell/base/tracer.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <thread>

#if defined(__linux__)
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace mox {
namespace {

constexpr std::size_t kTimeSize = 64;
constexpr std::size_t kLineSize = 512;

constexpr char kLevelText[] = "|   ";
constexpr std::size_t kLevelWidth = sizeof kLevelText - 1;
// The widest indentation: 40 levels.
constexpr std::size_t s_level_len = 160;  // NOLINT(readability-identifier-naming): given name

// The installed tracer; null until one is asked for. Constant, so that it can be used before
// and after every other static object.
std::atomic<Func_Tracer*> g_tracer{nullptr};

Func_Tracer* install_default() {
    static auto* const s_default = new Func_Tracer;  // never destroyed
    Func_Tracer* none = nullptr;
    return g_tracer.compare_exchange_strong(none, s_default) ? s_default : none;
}

long long steady_ns() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

}  // namespace

struct Func_Tracer::State {
    std::atomic<bool> enabled{false};
    std::FILE* stream = stderr;  // guarded by mutex, as all below
    std::uint32_t depth = 0;
    char line[kLineSize] = {};
    std::mutex mutex;

    // Begins `line` with what both kinds of lines begin with. Returns its length.
    // The caller holds `mutex`.
    std::size_t begin_line(unsigned int thread_id);

    // Writes `line` out. The caller holds `mutex`.
    void put_line();
};

std::size_t Func_Tracer::State::begin_line(unsigned int thread_id) {
    const int wanted =
        std::snprintf(line, sizeof line, "%-6d %8s", static_cast<int>(thread_id), now("%H:%M:%S"));
    std::size_t length = written(wanted, sizeof line);
    // The depth is a 32-bit number, the width of its indentation is not.
    const std::uint64_t width = std::uint64_t{kLevelWidth} * depth;
    const auto drawn = static_cast<std::size_t>(std::min<std::uint64_t>(width, s_level_len));
    for (std::size_t i = 0; i < drawn; ++i) {
        line[length++] = kLevelText[i % kLevelWidth];
    }
    if (width > s_level_len) {
        line[length++] = '.';
        line[length++] = '.';
    }
    line[length] = '\0';
    return length;
}

void Func_Tracer::State::put_line() {
    (void)std::fputs(line, stream);  // a trace that cannot be written has nowhere to say so
    (void)std::fflush(stream);
}

const char* now(const char* format) {
    thread_local char buff[kTimeSize];
    format_local_time(buff, sizeof buff, format);
    return buff;
}

Func_Tracer::Func_Tracer() : m_state(std::make_unique<State>()) {}

Func_Tracer::~Func_Tracer() {
    Func_Tracer* self = this;
    g_tracer.compare_exchange_strong(self, nullptr);
}

Func_Tracer* Func_Tracer::instance(Func_Tracer* tracer) {
    if (tracer != nullptr) {
        g_tracer.store(tracer, std::memory_order_release);
        return tracer;
    }
    Func_Tracer* const installed = g_tracer.load(std::memory_order_acquire);
    return installed != nullptr ? installed : install_default();
}

bool Func_Tracer::enabled() const {
    return m_state->enabled.load(std::memory_order_relaxed);
}

void Func_Tracer::setEnabled(bool enabled) {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    const bool was_enabled = m_state->enabled.exchange(enabled);
    if (enabled && !was_enabled) {
        m_state->depth = 0;  // calls that ended while it was off did not come back up
    }
}

void Func_Tracer::setStream(std::FILE* stream) {
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    m_state->stream = stream != nullptr ? stream : stderr;
}

long long Func_Tracer::deep_in(unsigned int thread_id, const char* function, const char* file,
                               int line, const char* note) {
    if (!enabled()) {
        return 0;
    }
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    const std::size_t length = m_state->begin_line(thread_id);
    ++m_state->depth;
    (void)std::snprintf(m_state->line + length, kLineSize - length, "|__[%d]%s %s %s\n", line,
                        text_or_empty(function), text_or_empty(file), text_or_empty(note));
    m_state->put_line();
    return steady_ns();
}

void Func_Tracer::deep_out(unsigned int thread_id, int line, long long start) {
    if (!enabled()) {
        return;
    }
    // Before the lock: waiting for another thread's line is no part of the call.
    const double elapsed_us = start >= 1 ? static_cast<double>(steady_ns() - start) / 1000.0 : 0.0;
    const std::lock_guard<std::mutex> lock(m_state->mutex);
    if (m_state->depth > 0) {  // 0: the call began while the tracer was off
        --m_state->depth;
    }
    const std::size_t length = m_state->begin_line(thread_id);
    (void)std::snprintf(m_state->line + length, kLineSize - length, "|__[%d]@ (%.3lfus)\n", line,
                        elapsed_us);
    m_state->put_line();
}

TCell::~TCell() {
    if (m_tracer == nullptr) {
        return;
    }
    try {
        m_tracer->deep_out(m_thread_id, m_line, m_start);
    } catch (...) {  // NOLINT(bugprone-empty-catch): a trace is no reason to fail
    }
}

unsigned int current_thread_id() {
    thread_local unsigned int s_id = 0;  // asked for once: a system call costs more than a trace
    if (s_id == 0) {
#if defined(__linux__)
        s_id = static_cast<unsigned int>(syscall(SYS_gettid));
#else
        s_id = static_cast<unsigned int>(std::hash<std::thread::id>()(std::this_thread::get_id()));
#endif
    }
    return s_id;
}

}  // namespace mox
