#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace fw_test {

/// Ends the process when one step of any of its threads takes for ever, and says what all of them
/// were doing. The limit is far beyond what a step takes on a slow machine.
///
/// Thread-safety: safe; a Step is for one thread.
class HangWatch {
    using Clock = std::chrono::steady_clock;

    struct Slot {
        std::string what;
        Clock::time_point since;
        bool is_busy = false;
    };

public:
    /// @param threads  how many there are to watch; each has a slot, from 0.
    HangWatch(std::chrono::seconds limit, std::size_t threads)
        : m_limit(limit), m_slots(threads), m_thread([this] { watch(); }) {}

    HangWatch(const HangWatch&) = delete;
    HangWatch& operator=(const HangWatch&) = delete;

    ~HangWatch() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_done = true;
        }
        m_changed.notify_all();
        m_thread.join();
    }

    /// A step that has begun, and ends with the object.
    class Step {
    public:
        Step(HangWatch* watch, std::size_t slot, std::string what) : m_watch(*watch), m_slot(slot) {
            m_watch.set(slot, std::move(what), true);
        }

        Step(const Step&) = delete;
        Step& operator=(const Step&) = delete;

        ~Step() { m_watch.set(m_slot, "", false); }

    private:
        HangWatch& m_watch;
        const std::size_t m_slot;
    };

private:
    void set(std::size_t slot, std::string what, bool is_busy) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_slots[slot] = {std::move(what), Clock::now(), is_busy};
    }

    void watch() {
        std::unique_lock<std::mutex> lock(m_mutex);
        while (!m_done) {
            (void)m_changed.wait_for(lock, std::chrono::seconds(1));
            for (const Slot& slot : m_slots) {
                if (slot.is_busy && Clock::now() - slot.since > m_limit) {
                    dump();
                    std::abort();
                }
            }
        }
    }

    void dump() const {
        (void)std::fprintf(stderr, "a step has not ended after %lld s. All threads:\n",
                           static_cast<long long>(m_limit.count()));
        for (std::size_t i = 0; i < m_slots.size(); ++i) {
            const auto taken = std::chrono::duration_cast<std::chrono::milliseconds>(
                Clock::now() - m_slots[i].since);
            (void)std::fprintf(stderr, "    %zu: %s, for %lld ms\n", i,
                               m_slots[i].is_busy ? m_slots[i].what.c_str() : "idle",
                               static_cast<long long>(taken.count()));
        }
    }

    const std::chrono::seconds m_limit;
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<Slot> m_slots;  // guarded by m_mutex
    bool m_done = false;        // guarded by m_mutex
    std::thread m_thread;       // last, so that it sees all the others made
};

}  // namespace fw_test
