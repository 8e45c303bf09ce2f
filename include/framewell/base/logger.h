#pragma once

#include <framewell/base/config.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

/// @file
/// Where everything that framewell reports goes: one logger for the whole process.

/// Lets the compiler check a printf-style call. `text` and `args` number the parameters from 1, the
/// implicit object included; 0 for arguments in a va_list.
#if defined(__GNUC__) || defined(__clang__)
#define FRAMEWELL_PRINTF(text, args) __attribute__((format(printf, text, args)))
#else
#define FRAMEWELL_PRINTF(text, args)
#endif

namespace mox {

/// The levels of messages, and the letter that each shows in a line. Numbers outside 0 to 6 count
/// as the nearest of these.
enum MoxLogLevel : int {
    MoxLogNone = 0,     ///< '-'
    MoxLogFatal = 1,    ///< 'F'
    MoxLogError = 2,    ///< 'E'  failures to open, read, decode, seek, allocate
    MoxLogWarning = 3,  ///< 'W'
    MoxLogInfo = 4,     ///< 'I'
    MoxLogDebug = 5,    ///< 'D'  progress: seek retries, cache hits, probe results
    MoxLogVerbose = 6,  ///< '='
};

/// Prints one line per message on a stdio stream, or hands each message to the host's callback.
///
///     mox::Logger::instance()->setLevel(mox::MoxLogDebug);  // more lines on standard error
///
///     mox::Logger::instance()->setCallback(                 // or: every message to the host
///         [](const char* tag, int level, const char* file, int line, const char* message) {
///             my_log(level, "%s %s:%d %s", tag, file, line, message);
///         });
///
/// A line reads "1107-14:03:22[E][bg] reader 122 : " and the message: month, day and local time,
/// the level's letter, the tag ("bg" in general, "hw" in hardware decoding, "dec_%d" for one
/// decoder), the last component of the source path, the line. A line has at most 510 characters, a
/// longer message is cut. The library's own messages carry a double quote at each end and a newline
/// after it; the logger adds none.
///
/// Thread-safety: safe; any thread may write and change settings. No lock is taken on the way of a
/// message: a line reaches the stream by one fputs, and its stream's own lock keeps it whole.
class FRAMEWELL_API Logger {
public:
    /// Takes (tag, level 0 to 6, source path in full, line, message without prefix).
    /// The texts are valid during the call only. It may run on any thread, on several at a time,
    /// and while the library holds locks: it must neither call decoders nor log. What it throws is
    /// swallowed.
    using Callback = std::function<void(const char* tag, int level, const char* file, int line,
                                        const char* message)>;

    /// The level up to which a new logger passes messages.
    static constexpr int kDefaultLevel = MoxLogError;

    /// Makes a logger on standard error that passes levels up to kDefaultLevel.
    Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    /// If this is the process's logger, the default one takes over. No thread may be writing to
    /// this logger any more.
    virtual ~Logger();

    /// Returns the process's logger; with an argument, installs that one first. The host owns what
    /// it installs and keeps it until no thread can be using it; the one before is neither deleted
    /// nor told. The default logger is made on first use and never destroyed, so destructors of
    /// static objects may log.
    static Logger* instance(Logger* logger = nullptr);

    /// Returns whether a message of this level goes anywhere: a callback is set (it gets every
    /// level), or the level is not above the threshold.
    bool wants(int level) const {
        return m_callback.load(std::memory_order_relaxed) != nullptr ||
               clamp_level(level) <= m_level.load(std::memory_order_relaxed);
    }

    /// Writes one message, printf-style. Any text may be null, which counts as empty.
    /// A message that nobody wants costs two loads and a comparison.
    /// @param file  source path; either kind of slash separates its components.
    void write(const char* tag, int level, const char* file, int line, const char* format, ...)
        FRAMEWELL_PRINTF(6, 7);

    /// write() with its arguments in a list.
    void write2(const char* tag, int level, const char* file, int line, const char* format,
                std::va_list args) FRAMEWELL_PRINTF(6, 0);

    /// Returns the local time as strftime() formats it, at most 63 characters; empty if it needs
    /// more. The text belongs to the calling thread and changes with its next call of now() or
    /// write().
    static const char* now(const char* format);

    /// Writes the prefix of a line into `buf`, at most `size` - 1 characters and a NUL.
    /// @return  the number of characters written; 0 without a buffer.
    static int make_prefix(char* buf, int size, const char* tag, MoxLogLevel level,
                           const char* file, int line);

    /// Returns the level that was set last.
    int level() const { return m_level.load(std::memory_order_relaxed); }

    /// Drops messages above `level` from now on; below 0 drops all. No effect on a callback.
    void setLevel(int level) { m_level.store(level, std::memory_order_relaxed); }

    /// Returns the stream that lines go to.
    std::FILE* stream() const { return m_stream.load(std::memory_order_acquire); }

    /// Sends lines to `stream` from now on; null: standard error. The host closes it, after no
    /// thread can be writing to it.
    void setStream(std::FILE* stream);

    /// Hands every message to `callback` instead of the stream; an empty one returns to the stream.
    /// The one before may still be running on another thread: it is kept, and destroyed with this
    /// logger.
    void setCallback(Callback callback);

private:
    static constexpr int clamp_level(int level) {
        return level < MoxLogNone ? MoxLogNone : level > MoxLogVerbose ? MoxLogVerbose : level;
    }

    std::atomic<std::FILE*> m_stream;
    std::atomic<int> m_level;
    std::atomic<const Callback*> m_callback;  // the last of m_callbacks, or null

    std::mutex m_callbacks_mutex;  // orders setters; never taken on the way of a message
    std::vector<std::unique_ptr<const Callback>> m_callbacks;  // guarded by m_callbacks_mutex
};

}  // namespace mox
