#pragma once

#include <framewell/base/config.h>

#include <memory>

/// @file
/// A reader/writer lock under which a waiting writer goes before new readers.

namespace mox {

struct ReadWriteMutexRecursivePrivate;

/// What a reader/writer lock can do.
/// Thread-safety: safe.
class FRAMEWELL_API _AbstractReadWriteMutex {  // NOLINT(*-reserved-identifier): given name
public:
    _AbstractReadWriteMutex() = default;
    _AbstractReadWriteMutex(const _AbstractReadWriteMutex&) = delete;
    _AbstractReadWriteMutex& operator=(const _AbstractReadWriteMutex&) = delete;
    virtual ~_AbstractReadWriteMutex();

    virtual void lock_read() = 0;   ///< waits until the lock can be held for reading
    virtual void lock_write() = 0;  ///< waits until the lock can be held for writing
    virtual void unlock() = 0;      ///< ends one hold
};

/// Any number of readers, or one writer. A reader waits for a writer that is only waiting itself,
/// so a stream of readers cannot starve writers; when a hold ends, one waiting writer goes before
/// all waiting readers.
///
/// Not re-entrant: a thread that holds the lock for reading and asks for it again waits for ever
/// once a writer waits.
///
/// Thread-safety: safe. Use ReadLocker and WriteLocker rather than the operations themselves.
class FRAMEWELL_API ReadWriteMutex : public _AbstractReadWriteMutex {
public:
    /// Makes a lock that nobody holds.
    /// @param recursive  kept with the lock; the lock is not re-entrant either way.
    explicit ReadWriteMutex(bool recursive = false);
    ReadWriteMutex(const ReadWriteMutex&) = delete;
    ReadWriteMutex& operator=(const ReadWriteMutex&) = delete;

    /// Nobody may hold the lock or wait for it any more.
    ~ReadWriteMutex() override;

    /// Waits until no writer holds the lock or waits for it, then holds it for reading.
    void lock_read() override;

    /// Waits until nobody holds the lock, then holds it for writing.
    void lock_write() override;

    /// Ends one hold of either kind. Without a hold it does nothing.
    void unlock() override;

private:
    const std::unique_ptr<ReadWriteMutexRecursivePrivate> m_private;
};

/// Holds a lock for reading until it is destroyed.
///
///     const mox::ReadLocker lock(&mutex);  // other readers may come in
///
/// Thread-safety: one thread, the one that made it.
class ReadLocker {
public:
    /// Waits for the lock.
    /// @param mutex  borrowed; null: nothing is locked.
    explicit ReadLocker(ReadWriteMutex* mutex) : m_mutex(mutex) {
        if (m_mutex != nullptr) {
            m_mutex->lock_read();
            m_locked = true;
        }
    }

    ReadLocker(const ReadLocker&) = delete;
    ReadLocker& operator=(const ReadLocker&) = delete;

    /// Ends the hold, unless unlock() has.
    ~ReadLocker() { unlock(); }

    /// Ends the hold early.
    void unlock() {
        if (m_locked) {
            m_locked = false;
            m_mutex->unlock();
        }
    }

private:
    ReadWriteMutex* const m_mutex;
    bool m_locked = false;
};

/// Holds a lock for writing until it is destroyed.
/// Thread-safety: one thread, the one that made it.
class WriteLocker {
public:
    /// Waits for the lock.
    /// @param mutex  borrowed; null: nothing is locked.
    explicit WriteLocker(ReadWriteMutex* mutex) : m_mutex(mutex) {
        if (m_mutex != nullptr) {
            m_mutex->lock_write();
        }
    }

    WriteLocker(const WriteLocker&) = delete;
    WriteLocker& operator=(const WriteLocker&) = delete;

    /// Ends the hold.
    ~WriteLocker() {
        if (m_mutex != nullptr) {
            m_mutex->unlock();
        }
    }

private:
    ReadWriteMutex* const m_mutex;
};

}  // namespace mox
