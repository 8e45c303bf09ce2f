#include <framewell/base/read_write_mutex.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <unordered_map>

namespace mox {

struct ReadWriteMutexRecursivePrivate {
    explicit ReadWriteMutexRecursivePrivate(bool is_recursive) : recursive(is_recursive) {}

    // All counters are guarded by `mutex`.
    std::int32_t waiting_writers = 0;
    std::int32_t waiting_readers = 0;
    std::int32_t writer_active = 0;  // 0 or 1
    std::int32_t active_readers = 0;
    std::mutex mutex;
    std::condition_variable_any readers_turn;
    std::condition_variable_any writers_turn;

    // What re-entrant locking would need. Deliberate: not consulted, since a thread that may take
    // the lock again past a waiting writer would undo the writers' precedence.
    std::unordered_map<std::thread::id, std::int32_t> holds_per_thread;
    std::int32_t recursive_holds = 0;
    const bool recursive;
};

namespace {

// Counts the calling thread as waiting while it waits, also if the wait ends by an exception.
// `lock` holds the mutex that guards `count`.
void wait_counted(std::condition_variable_any& turn, std::unique_lock<std::mutex>& lock,
                  std::int32_t& count) {
    struct Counted {
        explicit Counted(std::int32_t& n) : value(n) { ++value; }

        Counted(const Counted&) = delete;
        Counted& operator=(const Counted&) = delete;

        ~Counted() { --value; }

        std::int32_t& value;
    } counted(count);

    turn.wait(lock);
}

}  // namespace

_AbstractReadWriteMutex::~_AbstractReadWriteMutex() = default;

ReadWriteMutex::ReadWriteMutex(bool recursive)
    : m_private(std::make_unique<ReadWriteMutexRecursivePrivate>(recursive)) {}

ReadWriteMutex::~ReadWriteMutex() = default;

void ReadWriteMutex::lock_read() {
    ReadWriteMutexRecursivePrivate& p = *m_private;
    std::unique_lock<std::mutex> lock(p.mutex);
    while (p.waiting_writers > 0 || p.writer_active != 0) {
        wait_counted(p.readers_turn, lock, p.waiting_readers);
    }
    ++p.active_readers;
}

void ReadWriteMutex::lock_write() {
    ReadWriteMutexRecursivePrivate& p = *m_private;
    std::unique_lock<std::mutex> lock(p.mutex);
    // A writer that comes while another is being woken may go first: the woken one finds the lock
    // taken, counts itself as waiting again, and is woken again when the other is done.
    while (p.active_readers > 0 || p.writer_active != 0) {
        wait_counted(p.writers_turn, lock, p.waiting_writers);
    }
    p.writer_active = 1;
}

void ReadWriteMutex::unlock() {
    ReadWriteMutexRecursivePrivate& p = *m_private;
    const std::lock_guard<std::mutex> lock(p.mutex);
    if (p.writer_active != 0) {
        p.writer_active = 0;
    } else if (p.active_readers > 0) {
        --p.active_readers;
        if (p.active_readers > 0) {
            return;
        }
    } else {
        return;  // nobody holds it: counting below zero would lock writers out for good
    }
    if (p.waiting_writers > 0) {
        p.writers_turn.notify_one();
    } else if (p.waiting_readers > 0) {
        p.readers_turn.notify_all();
    }
}

}  // namespace mox
