#pragma once

/// @file
/// What tests of background requests share: a gate that holds a request where it is, and a list of
/// answers. Nothing here measures time; a test that would hang ends by its watchdog.

#include "tests/support/watchdog.h"

#include <framewell/ffdecoder.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace fw_test {

/// Waits until `is_true()`; the watchdog of the test ends a wait that would be for ever.
inline void wait_until(const std::function<bool()>& is_true) {
    while (!is_true()) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

/// Holds those who come until it is opened; then it stays open. Opens when it is destroyed.
class Gate {
public:
    void pass() {
        std::unique_lock<std::mutex> lock(m_mutex);
        ++m_came;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_open; });
    }

    void open() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }

    /// Waits until so many have come.
    void wait_for(int count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] { return m_came >= count; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_came = 0;       // guarded by m_mutex
    bool m_open = false;  // guarded by m_mutex
};

/// What callbacks were called with, in their order.
template <class T>
class Answers {
public:
    void add(T answer) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_all.push_back(std::move(answer));
        m_changed.notify_all();
    }

    /// Waits until there are so many, and returns all.
    std::vector<T> wait_for(std::size_t count) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_changed.wait(lock, [&] { return m_all.size() >= count; });
        return m_all;
    }

    std::vector<T> all() { return wait_for(0); }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::vector<T> m_all;  // guarded by m_mutex
};

/// Something that a callback carries, and that tells when nobody has the callback any more: its
/// request then has been answered, discarded or dropped.
class Carried {
public:
    std::shared_ptr<int> make() {
        auto thing = std::make_shared<int>(0);
        m_thing = thing;
        return thing;
    }

    bool is_gone() const { return m_thing.expired(); }

    void wait_until_gone() const {
        wait_until([this] { return is_gone(); });
    }

private:
    std::weak_ptr<int> m_thing;
};

/// A host's decoder, whose pictures pass by the test first.
class WatchedDecoder final : public ff::FFDecoder {
public:
    using Visit = std::function<void(const ff::RequireVideoFrame& req, int serial)>;

    explicit WatchedDecoder(Visit visit) : m_visit(std::move(visit)) {}

    ~WatchedDecoder() override { close(); }

    std::shared_ptr<ff::VFrameCtx> pri_getVideoFrame(const ff::RequireVideoFrame& req,
                                                     int serial) override {
        m_visit(req, serial);
        return FFDecoder::pri_getVideoFrame(req, serial);
    }

private:
    const Visit m_visit;
};

}  // namespace fw_test
