#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <mutex>

namespace ff {

/// What a scheduler keeps of each of its workers, whatever they produce: who it is, whether it is
/// free, and the lock of its jobs.
/// Thread-safety: see members.
class SchedulerWorker {
public:
    SchedulerWorker(const SchedulerWorker&) = delete;
    SchedulerWorker& operator=(const SchedulerWorker&) = delete;

    // NOLINTNEXTLINE(readability-identifier-naming): a member, for which s_ is the house's prefix
    static inline std::atomic<std::int32_t> s_count{0};  ///< serial numbers given out so far

    const std::int32_t m_id;  ///< serial number, from 1
    char m_name[16] = {};     ///< for log lines; fixed once a pool has the worker

    // Written under m_mutex; read without it by whoever chooses a worker to drop.
    std::atomic<bool> m_busy{false};          ///< a job was given and has not ended
    std::atomic<std::int32_t> m_tag{0};       ///< who asked for the last job; 0: nobody yet
    std::atomic<std::time_t> m_last_used{0};  ///< last start or end of a job, seconds; 0: never

    std::mutex m_mutex;                  ///< held during a job and while the worker is examined
    std::condition_variable_any m_cond;  ///< told of every end of a job

protected:
    /// Takes the next serial number and the name "work_%d" with it.
    SchedulerWorker() : m_id(++s_count) {
        (void)std::snprintf(m_name, sizeof m_name, "work_%d", static_cast<int>(m_id));
    }

    ~SchedulerWorker() = default;

    /// Holds a worker for the time of one job, and ends the job when it goes out of scope: the
    /// worker is idle again, the time is noted, waiters are told, `m_mutex` is unlocked. Nothing
    /// may touch the worker afterwards, since another thread may be deleting it: declare the guard
    /// before all else that does.
    class JobGuard {
    public:
        /// @param locked  the caller holds `m_mutex` and hands it over
        JobGuard(SchedulerWorker& worker, bool locked) : m_worker(worker) {
            if (!locked) {
                m_worker.m_mutex.lock();
            }
        }

        JobGuard(const JobGuard&) = delete;
        JobGuard& operator=(const JobGuard&) = delete;

        ~JobGuard() {
            m_worker.m_busy = false;
            m_worker.m_last_used = std::time(nullptr);
            m_worker.m_cond.notify_all();
            m_worker.m_mutex.unlock();
        }

    private:
        SchedulerWorker& m_worker;
    };

private:
    template <typename T>
    friend class AbstractScheduler;

    // Keeps a worker alive while a request waits on its m_cond, where nobody holds m_mutex for it.
    // Made and destroyed with m_mutex held.
    class WaiterCount {
    public:
        explicit WaiterCount(SchedulerWorker& worker) : m_worker(worker) { ++m_worker.m_waiters; }

        WaiterCount(const WaiterCount&) = delete;
        WaiterCount& operator=(const WaiterCount&) = delete;

        ~WaiterCount() {
            if (--m_worker.m_waiters == 0 && m_worker.m_removed) {
                m_worker.m_cond.notify_all();  // wakes wait_until_unused()
            }
        }

    private:
        SchedulerWorker& m_worker;
    };

    // Returns when no job runs and nobody waits for one. The worker must be out of its pool, so
    // that no request finds it any more; some may have found it before.
    void wait_until_unused() {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_removed = true;
        m_cond.notify_all();
        m_cond.wait(lock, [this] { return m_waiters == 0; });
    }

    int m_waiters = 0;       // guarded by m_mutex: requests that wait on m_cond
    bool m_removed = false;  // guarded by m_mutex: nobody may start to wait or to work here
};

}  // namespace ff
