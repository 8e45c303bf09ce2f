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
/// Ownership: the thread shares in owning the helper, so that the helper outlives its own thread
/// whoever lets go of it first; a task may even let go of the last other owner.
/// Thread-safety: safe, except join().
class AsyncHelper {
public:
    using Task = std::function<void()>;

    /// Starts a helper with its thread. Throws std::system_error if there can be no more threads.
    static std::shared_ptr<AsyncHelper> start();

    AsyncHelper(const AsyncHelper&) = delete;
    AsyncHelper& operator=(const AsyncHelper&) = delete;
    ~AsyncHelper();

    /// Runs `task` as soon as the running one has ended, unless another one is given before. An
    /// empty task is ignored. Tasks that are discarded are destroyed here, with no lock held.
    void submit(const Task& task);

    /// Lets the thread end: after the running task; waiting ones never run. Does not wait.
    void stop();

    /// Waits for the thread to end, once stop() was called. On the helper's own thread, which
    /// cannot wait for itself, the thread is left to end alone. To be called once, or not at all.
    void join();

    /// True on the helper's own thread.
    bool is_own_thread() const;

private:
    AsyncHelper();
    void run();
    void run_task(const Task& task) const;

    std::atomic<bool> m_stop{false};
    std::thread m_thread;  // started last, when everything that it uses is there
    std::mutex m_submit_mutex;
    std::vector<Task> m_discarded;  // guarded by m_submit_mutex
    mox::BlockingQueue<Task> m_queue;
};

}  // namespace ff
