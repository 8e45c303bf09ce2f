#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace fw_test {

/// Ends the process, with a sentence on standard error, if it lives for too long: work that hangs
/// then fails by name instead of taking the whole run with it. The limit is far beyond what slow
/// machines and sanitizers need, so that it says "never" rather than "late".
class Watchdog {
public:
    explicit Watchdog(std::string what, std::chrono::seconds limit = std::chrono::seconds(120))
        : m_what(std::move(what)), m_limit(limit), m_thread([this] { watch(); }) {}

    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

    ~Watchdog() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_done = true;
        }
        m_cond.notify_all();
        m_thread.join();
    }

    /// Begins the limit anew for the next piece of work.
    void start(const std::string& what) {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_what = what;
            ++m_round;
        }
        m_cond.notify_all();
    }

private:
    void watch() {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_done) {
            const int round = m_round;
            const bool in_time =
                m_cond.wait_for(lock, m_limit, [&] { return m_done || m_round != round; });
            if (!in_time) {
                (void)std::fprintf(stderr, "no end after %lld seconds: %s\n",
                                   static_cast<long long>(m_limit.count()), m_what.c_str());
                std::abort();
            }
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_cond;
    std::string m_what;   // guarded by m_mutex
    int m_round = 0;      // guarded by m_mutex
    bool m_done = false;  // guarded by m_mutex
    const std::chrono::seconds m_limit;
    std::thread m_thread;  // last, so that it sees all the others made
};

}  // namespace fw_test
