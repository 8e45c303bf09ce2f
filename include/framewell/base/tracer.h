#pragma once

#include <framewell/base/config.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <utility>

/// @file
/// The call tracer, which draws a tree of selected calls with their threads and times, and two
/// helpers that act at the end of a scope.

namespace mox {

/// Returns the local time as strftime() formats it, at most 63 characters; empty if it needs more.
/// Like Logger::now(), with a text of its own, which belongs to the calling thread and changes with
/// its next call.
FRAMEWELL_API const char* now(const char* format);

/// Draws an indented tree of the calls that the library traces (moving a demuxer, adding and
/// removing decoding workers) on a stdio stream. Off unless the host turns it on:
///
///     mox::Func_Tracer::instance()->setEnabled(true);
///
///     7731   14:03:22|__[88]add_worker src/scheduler
///     7731   14:03:22|__[88]@ (1.742us)
///
/// Each line: thread id, local time, one bar per call around it, source line; then the function,
/// its source path and a note where a call begins, the microseconds it took where it ends. The
/// depth is one for all threads, so calls on several threads indent each other.
///
/// Thread-safety: safe; lines are drawn one after another. A disabled tracer takes no lock.
class FRAMEWELL_API Func_Tracer {
public:
    /// Makes a disabled tracer on standard error.
    Func_Tracer();
    Func_Tracer(const Func_Tracer&) = delete;
    Func_Tracer& operator=(const Func_Tracer&) = delete;

    /// If this is the process's tracer, the default one takes over. No thread may be inside a call
    /// that this tracer has begun to draw.
    virtual ~Func_Tracer();

    /// Returns the process's tracer; with an argument, installs that one first. The host owns what
    /// it installs and keeps it until no thread can be using it. The default tracer is made on
    /// first use and never destroyed.
    static Func_Tracer* instance(Func_Tracer* tracer = nullptr);

    /// Returns whether calls are drawn.
    bool enabled() const;

    /// Turns drawing on or off. Turned on anew, the tree begins at its root; calls that are running
    /// then are drawn where they end only.
    void setEnabled(bool enabled);

    /// Draws on `stream` from now on; null: standard error. The host closes it, after no thread can
    /// be drawing on it.
    void setStream(std::FILE* stream);

    /// Draws the beginning of a call and goes one deeper. Texts may be null, which counts as empty;
    /// a line is cut at 511 characters.
    /// @return  the time to hand to deep_out(): nanoseconds of the steady clock; 0 when disabled.
    long long deep_in(unsigned int thread_id, const char* function, const char* file, int line,
                      const char* note);

    /// Draws the end of a call, at the depth of its beginning.
    /// @param start  what deep_in() returned; below 1: the call is drawn as having taken no time.
    void deep_out(unsigned int thread_id, int line, long long start);

private:
    struct State;
    const std::unique_ptr<State> m_state;
};

/// One traced call: draws its end when it is destroyed.
/// Thread-safety: one thread, the one that made it.
class FRAMEWELL_API TCell {
public:
    /// Takes what deep_out() is to be called with at the end of the scope.
    /// @param tracer  borrowed; null: nothing is drawn.
    /// @param start   what the tracer's deep_in() returned.
    TCell(Func_Tracer* tracer, unsigned int thread_id, int line, long long start)
        : m_tracer(tracer), m_thread_id(thread_id), m_line(line), m_start(start) {}

    TCell(const TCell&) = delete;
    TCell& operator=(const TCell&) = delete;
    /// Draws the end of the call.
    ~TCell();

private:
    Func_Tracer* const m_tracer;
    const unsigned int m_thread_id;
    const int m_line;
    const long long m_start;  // nanoseconds of the steady clock
};

/// Calls a function when its scope ends. An exception from the function ends the process.
///
///     const mox::Defer closing([file] { std::fclose(file); });
///
/// Thread-safety: one thread at a time.
class Defer {
public:
    /// Keeps the function.
    /// @param action  may be empty: nothing is called.
    explicit Defer(std::function<void()> action) : m_action(std::move(action)) {}

    Defer(const Defer&) = delete;
    Defer& operator=(const Defer&) = delete;

    /// Calls the function.
    ~Defer() {
        if (m_action) {
            m_action();
        }
    }

private:
    const std::function<void()> m_action;
};

}  // namespace mox
