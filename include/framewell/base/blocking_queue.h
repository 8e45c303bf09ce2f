#pragma once

#include <framewell/base/config.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <queue>
#include <utility>

/// @file
/// The queue between threads that produce and threads that consume.

namespace mox {

/// An unbounded first-in, first-out queue for any number of producers and consumers.
///
/// It is open until abort(); from then on it refuses all work, for good, and nobody waits in it.
/// Its owner destroys it after the last thread has left it.
///
/// Thread-safety: safe. Elements are copied, moved and destroyed, and the release function is
/// called, while the queue is locked: none of these may use the queue. Exceptions from them reach
/// the caller, with the queue unlocked and whole.
template <class T>
class BlockingQueue {
public:
    /// Makes an empty, open queue.
    /// @param release  called by clear() for each element that it discards; may be empty.
    explicit BlockingQueue(std::function<void(T&)> release = {}) : m_release(std::move(release)) {}

    BlockingQueue(const BlockingQueue&) = delete;
    BlockingQueue& operator=(const BlockingQueue&) = delete;

    /// Aborts, then destroys the remaining elements without releasing them.
    virtual ~BlockingQueue() { abort(); }

    /// Appends a copy of `item` and wakes one consumer. Never waits for room.
    /// @return  0; 1: the queue is aborted.
    int push(const T& item) {
        if (m_aborted.load(std::memory_order_acquire)) {
            return 1;
        }
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (m_aborted.load(std::memory_order_relaxed)) {
            return 1;
        }
        m_items.push(item);
        m_not_empty.notify_one();
        return 0;
    }

    /// Takes the oldest element, or looks at it.
    /// @param item        gets the element: moved out of the queue if `remove`, else copied.
    /// @param wait        true: waits for an element without limit.
    /// @param timeout_ms  without `wait`: waits once, at most this many milliseconds; 0 is not at
    ///                    all.
    /// @param remove      whether the element leaves the queue.
    /// @return  0; 1: the queue is aborted, even if elements remain; 2: nothing came in time.
    int _get_front_(T& item, bool wait, unsigned int timeout_ms, bool remove) {
        if (m_aborted.load(std::memory_order_acquire)) {
            return 1;
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        const int failure = wait ? wait_for_item(lock) : wait_for_item(lock, timeout_ms);
        if (failure != 0) {
            return failure;
        }
        if (!remove) {
            item = m_items.front();
            return 0;
        }
        item = std::move(m_items.front());
        m_items.pop();
        m_space.notify_one();
        return 0;
    }

    /// Discards all elements, oldest first, each after it went through the release function.
    void clear() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        while (!m_items.empty()) {
            T item = std::move(m_items.front());
            m_items.pop();  // first, so that an element whose release throws is not released twice
            if (m_release) {
                m_release(item);
            }
        }
        m_space.notify_all();
    }

    /// Wakes everybody who waits in the queue and makes it refuse all work from now on.
    void abort() {
        {
            const std::lock_guard<std::mutex> lock(m_mutex);
            m_aborted.store(true, std::memory_order_release);
        }
        m_not_empty.notify_all();
        m_space.notify_all();
    }

private:
    // Waits for an element. Returns 0, or 1 when aborted. `lock` holds m_mutex.
    int wait_for_item(std::unique_lock<std::mutex>& lock) {
        for (;;) {
            if (m_aborted.load(std::memory_order_relaxed)) {
                return 1;
            }
            if (!m_items.empty()) {
                return 0;
            }
            m_not_empty.wait(lock);
        }
    }

    // Waits for an element once at most. Returns 0, 1 when aborted, or 2. `lock` holds m_mutex.
    int wait_for_item(std::unique_lock<std::mutex>& lock, unsigned int timeout_ms) {
        for (std::chrono::milliseconds left{std::int64_t{timeout_ms}};; left = left.zero()) {
            if (m_aborted.load(std::memory_order_relaxed)) {
                return 1;
            }
            if (!m_items.empty()) {
                return 0;
            }
            if (left == left.zero()) {
                return 2;
            }
            const auto deadline = std::chrono::steady_clock::now() + left;
            if (m_not_empty.wait_until(lock, deadline) == std::cv_status::timeout) {
                return 2;
            }
        }
    }

    // Written under m_mutex; read ahead of it as well, to refuse work without waiting for the lock.
    std::atomic<bool> m_aborted{false};
    std::mutex m_mutex;
    std::condition_variable_any m_not_empty;
    std::condition_variable_any m_space;  // for producers that wait for room or emptiness
    std::queue<T> m_items;                // guarded by m_mutex
    const std::function<void(T&)> m_release;
};

/// The queue of tasks for a worker thread; compiled once, in the library.
extern template class FRAMEWELL_API BlockingQueue<std::function<void()>>;

}  // namespace mox
