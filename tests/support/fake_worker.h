#pragma once

#include "scheduler.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

namespace fw_test {

/// A pool whose results are texts that tell where they come from.
using Pool = ff::AbstractScheduler<std::string>;

/// A worker that says and does what a test wants.
/// The plain members are guarded by `m_mutex`: before the pool has the worker, and while no request
/// runs, a test sets them as it likes.
class FakeWorker final : public Pool::iWorker {
public:
    explicit FakeWorker(std::string name) : m_text(std::move(name)) {}

    ~FakeWorker() override {
        if (on_delete) {
            on_delete();
        }
    }

    bool is_empty() const override { return empty; }

    long long cached_first_ts() const override {
        ++first_ts_calls;
        return first_ts;
    }

    bool is_contain(long long, bool) override {
        ++contain_calls;
        if (on_is_contain) {
            on_is_contain();
        }
        return contains;
    }

    bool will_contain(long long) override {
        const int call = ++near_calls;
        if (on_will_contain) {
            on_will_contain(call);
        }
        return near;
    }

    /// "NAME remembers TS", with " next" behind it in that mode.
    std::string get_exist_resource(long long ts, bool mode) override {
        if (on_get) {
            on_get();
        }
        return text_of("remembers", ts, mode);
    }

    /// "NAME made TS", with " next" behind it in that mode; empty if cancelled.
    std::string do_job(long long ts, bool locked, std::atomic<bool>* cancel, bool mode) override {
        const JobGuard job(*this, locked);
        ++jobs;
        if (on_job) {
            on_job();
        }
        return cancel != nullptr && *cancel ? std::string() : text_of("made", ts, mode);
    }

    /// Makes the worker busy as a worker is that lets go of its mutex during its job.
    void begin_detached_job() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_busy = true;
    }

    /// Ends it; `change` sets what the job has left behind.
    void end_detached_job(const std::function<void()>& change = [] {}) {
        const JobGuard job(*this, false);
        change();
    }

    /// Wakes the waiters though the job has not ended.
    void notify() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_cond.notify_all();
    }

    /// Returns when a request has asked will_contain() for the `call`th time and waits now.
    void wait_for_waiter(int call) {
        while (near_calls < call) {
            std::this_thread::yield();
        }
        // The mutex is held from that question until the wait has begun.
        const std::lock_guard<std::mutex> lock(m_mutex);
    }

    bool contains = false;
    bool near = false;
    bool empty = false;
    long long first_ts = -1;
    int jobs = 0;

    std::function<void()> on_is_contain;
    std::function<void(int call)> on_will_contain;
    std::function<void()> on_get;
    std::function<void()> on_job;
    std::function<void()> on_delete;

    std::atomic<int> contain_calls{0};
    std::atomic<int> near_calls{0};
    mutable std::atomic<int> first_ts_calls{0};

private:
    std::string text_of(const char* verb, long long ts, bool mode) const {
        return m_text + ' ' + verb + ' ' + std::to_string(ts) + (mode ? " next" : "");
    }

    const std::string m_text;
};

}  // namespace fw_test
