#pragma once

#include <framewell/base/blocking_queue.h>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace ff {

/// One background thread that runs tasks one after another, of which only the newest waits: giving
/// it a task discards the one that has not begun yet. Knows nothing of decoders.
///
/// Nothing of a task (copying, running, destroying it) happens with a lock held, so what a task
/// carries may call whatever it likes.
///
/// Ownership: the thread shares in owning the helper, so that the helper outlives its own thread
/// whoever lets go of it first; a task may even let go of the last other owner.
/// Thread-safety: safe.
class AsyncHelper {
public:
    using Task = std::function<void()>;

    /// Starts a helper with its thread. Throws std::system_error if there can be no more threads.
    static std::shared_ptr<AsyncHelper> start();

    AsyncHelper(const AsyncHelper&) = delete;
    AsyncHelper& operator=(const AsyncHelper&) = delete;
    ~AsyncHelper();

    /// Runs `task` as soon as the running one has ended, unless another one is given before. An
    /// empty task is ignored. What a task throws is logged (level 2). A task that is discarded is
    /// destroyed here.
    void submit(const Task& task);

    /// Lets the thread end after the running task. Does not wait.
    void stop();

    /// Destroys the task that waits; the running one goes on.
    void discard_waiting();

    /// Waits for the thread to end, once stop() was called; at once if it has. On the helper's own
    /// thread, which cannot wait for itself, does nothing: that thread ends alone.
    void join();

    /// True on the helper's own thread. (When that has ended, another thread may get its id.)
    bool is_own_thread() const { return !has_ended() && m_thread_id == std::this_thread::get_id(); }

    /// True when the last task has ended for good: join() then waits for nobody's code.
    bool has_ended() const { return m_ended; }

private:
    AsyncHelper();
    void run();
    static void run_task(const Task& task);

    std::atomic<bool> m_stop{false};
    std::atomic<bool> m_ended{false};
    std::thread::id m_thread_id;  // constant after start()
    std::mutex m_join_mutex;
    std::thread m_thread;  // guarded by m_join_mutex; started when everything that it uses is there
    std::mutex m_submit_mutex;
    std::vector<Task> m_discarded;  // guarded by m_submit_mutex
    mox::BlockingQueue<Task> m_queue;
};

}  // namespace ff
