#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace fw_test {

/// How a child has ended.
enum class Ending {
    Clean,      ///< it returned 0
    Complaint,  ///< it returned something else
    Signal,     ///< a signal ended it
    TooLong,    ///< one step used more processor time than it may
    Stuck,      ///< it used no processor time for a minute
    TooLarge,   ///< it had more memory than it may
    Stopped,    ///< all were to end
};

/// Returns the name of an ending as reports write it.
const char* name_of(Ending ending);

struct ChildLimits {
    double step_seconds = 10;  ///< of processor time
    double memory_mb = 2048;
};

struct ChildEnd {
    std::size_t slot = 0;  ///< which one it was
    Ending ending = Ending::Clean;
    int status = 0;  ///< what it returned, or its signal
    double cpu_seconds = 0;
    double memory_mb = 0;  ///< the most that was in memory
};

/// Runs functions in processes of their own that are forks of this one, each within limits of time
/// and memory. This process must have no other threads, so that the forks are whole.
///
/// Time is that of the processor, which does not depend on what else the machine does. One that is
/// ended for the time it takes gets SIGABRT first, so that a sanitizer shows where it was.
///
/// Thread-safety: one object per process, one thread.
class LimitedChildren {
public:
    explicit LimitedChildren(std::size_t slots);
    LimitedChildren(const LimitedChildren&) = delete;
    LimitedChildren& operator=(const LimitedChildren&) = delete;
    ~LimitedChildren();  ///< ends those that still run

    /// Returns a slot in which nothing runs; waits for an end while there is none, which `on_end`
    /// is told.
    std::size_t free_slot(const std::function<void(const ChildEnd&)>& on_end);

    /// Runs `body` in a child. What it prints on either stream goes to the file `output`, unless
    /// that is empty. Its result is the child's status; what it throws ends the child.
    /// `steps` is asked from this process and tells another number with each step that the child
    /// takes, for instance from memory that both share; without it the whole of it is one step.
    void start(std::size_t slot, const ChildLimits& limits, const std::string& output,
               const std::function<int()>& body, const std::function<int()>& steps = nullptr);

    /// Waits for all.
    void wait_for_all(const std::function<void(const ChildEnd&)>& on_end);

    /// Whether somebody has asked this process to end (SIGINT, SIGTERM): then children end early,
    /// and nothing more should be started.
    bool is_stopped() const { return m_stopped; }

private:
    struct Child {
        pid_t pid = 0;  ///< 0: none
        ChildLimits limits;
        std::function<int()> steps;
        int last_step = 0;
        double step_began = 0;          ///< seconds of its processor time
        Ending ending = Ending::Clean;  ///< why it was killed
        double cpu_seconds = 0;         ///< when it was last seen to move
        double moved_at = 0;            ///< seconds of the monotonic clock, likewise
        double killed_at = 0;           ///< 0: not yet
    };

    void wait_for_news(const std::function<void(const ChildEnd&)>& on_end);
    void collect(const std::function<void(const ChildEnd&)>& on_end);
    static void watch(Child* child);
    void stop_all();

    std::vector<Child> m_children;
    bool m_stopped = false;
};

}  // namespace fw_test
