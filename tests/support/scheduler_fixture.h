#pragma once

#include "scheduler.h"
#include "tests/support/fake_worker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <mutex>
#include <string>

namespace fw_test {

inline constexpr int kTag = 7;
inline constexpr char kName[] = "dec_7";

/// Whether nobody holds `lockable`.
template <typename Lockable>
bool is_free(Lockable& lockable) {
    // From a thread of its own: one that holds a lock must not try it.
    return std::async(std::launch::async,
                      [&] {
                          const std::unique_lock<Lockable> lock(lockable, std::try_to_lock);
                          return lock.owns_lock();
                      })
        .get();
}

/// A pool that a test fills with workers and asks for results.
class SchedulerFixture : public ::testing::Test {
protected:
    ~SchedulerFixture() override {
        while (!pool.m_workers.empty()) {
            pool.remove_worker(pool.m_workers.front(), false);
        }
    }

    FakeWorker& add(const std::string& name) {
        auto* const worker = new FakeWorker(name);  // the pool's
        pool.add_worker(worker);
        return *worker;
    }

    FakeWorker& add_empty(const std::string& name) {
        FakeWorker& worker = add(name);
        worker.empty = true;
        return worker;
    }

    FakeWorker& add_near(const std::string& name) {
        FakeWorker& worker = add(name);
        worker.near = true;
        return worker;
    }

    FakeWorker& add_remembering(const std::string& name) {
        FakeWorker& worker = add(name);
        worker.contains = true;
        return worker;
    }

    std::string ask(long long ts = 100, std::atomic<bool>* cancel = nullptr, bool mode = false) {
        return pool.do_working(ts, cancel, mode, kTag, kName);
    }

    std::future<std::string> ask_in_thread(std::atomic<bool>* cancel = nullptr) {
        return std::async(std::launch::async, [this, cancel] { return ask(100, cancel); });
    }

    Pool pool;
};

}  // namespace fw_test
