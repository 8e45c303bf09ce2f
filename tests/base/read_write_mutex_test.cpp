#include <framewell/base/read_write_mutex.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using mox::ReadLocker;
using mox::ReadWriteMutex;
using mox::WriteLocker;

using std::chrono::milliseconds;

constexpr milliseconds kShort(20);

// Gives other threads the time to get as far as they can. Nothing tells from outside that a thread
// has begun to wait for the lock, so a test that needs it takes the delay from comes_out().
void let_others_run(milliseconds delay = kShort) {
    std::this_thread::sleep_for(delay);
}

// Whether `scenario` gives `expected` with some delay. Too short a one proves nothing, since on a
// busy machine threads may not have come to where they wait; it is tried again with a longer one.
template <class Scenario, class Result>
bool comes_out(const Scenario& scenario, const Result& expected) {
    for (milliseconds delay = kShort; delay < milliseconds(10000); delay *= 4) {
        if (scenario(delay) == expected) {
            return true;
        }
    }
    return false;
}

// What happened, in order, from several threads.
class Journal {
public:
    void add(const std::string& event) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_events.push_back(event);
    }

    std::vector<std::string> events() const {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_events;
    }

private:
    mutable std::mutex m_mutex;
    std::vector<std::string> m_events;  // guarded by m_mutex
};

TEST(ReadWriteMutexTest, LetsReadersInTogether) {
    ReadWriteMutex mutex;
    mutex.lock_read();
    std::thread([&] {
        const ReadLocker other(&mutex);
        SUCCEED();
    }).join();
    mutex.unlock();
}

TEST(ReadWriteMutexTest, KeepsAWriterOutUntilTheLastReaderLeaves) {
    ReadWriteMutex mutex;
    std::atomic<bool> written{false};
    mutex.lock_read();
    mutex.lock_read();
    std::thread writer([&] {
        const WriteLocker lock(&mutex);
        written = true;
    });
    let_others_run();
    EXPECT_FALSE(written);
    mutex.unlock();
    let_others_run();
    EXPECT_FALSE(written);
    mutex.unlock();
    writer.join();
    EXPECT_TRUE(written);
}

TEST(ReadWriteMutexTest, KeepsReadersAndWritersOutOfAWritersHold) {
    ReadWriteMutex mutex;
    std::atomic<int> entered{0};
    mutex.lock_write();
    std::thread reader([&] {
        const ReadLocker lock(&mutex);
        ++entered;
    });
    std::thread writer([&] {
        const WriteLocker lock(&mutex);
        ++entered;
    });
    let_others_run();
    EXPECT_EQ(entered, 0);
    mutex.unlock();
    reader.join();
    writer.join();
    EXPECT_EQ(entered, 2);
}

TEST(ReadWriteMutexTest, LetsAWaitingWriterGoBeforeNewReaders) {
    const auto scenario = [](milliseconds delay) {
        ReadWriteMutex mutex;
        Journal journal;
        mutex.lock_read();
        std::thread writer([&] {
            const WriteLocker lock(&mutex);
            journal.add("writer");
        });
        let_others_run(delay);  // the writer waits now
        std::thread reader([&] {
            const ReadLocker lock(&mutex);
            journal.add("new reader");
        });
        let_others_run(delay);  // and so does the reader, though only readers hold the lock
        journal.add("first reader leaves");
        mutex.unlock();
        writer.join();
        reader.join();
        return journal.events();
    };
    EXPECT_TRUE(comes_out(scenario,
                          std::vector<std::string>{"first reader leaves", "writer", "new reader"}));
}

TEST(ReadWriteMutexTest, LetsAllWaitingWritersGoBeforeWaitingReaders) {
    const auto scenario = [](milliseconds delay) {
        ReadWriteMutex mutex;
        Journal journal;
        mutex.lock_write();
        std::vector<std::thread> threads;
        for (int i = 0; i < 2; ++i) {
            threads.emplace_back([&] {
                const ReadLocker lock(&mutex);
                journal.add("reader");
            });
        }
        let_others_run(delay);
        for (int i = 0; i < 3; ++i) {
            threads.emplace_back([&] {
                const WriteLocker lock(&mutex);
                journal.add("writer");
            });
        }
        let_others_run(delay);
        mutex.unlock();
        for (std::thread& thread : threads) {
            thread.join();
        }
        return journal.events();
    };
    EXPECT_TRUE(comes_out(
        scenario, std::vector<std::string>{"writer", "writer", "writer", "reader", "reader"}));
}

TEST(ReadWriteMutexTest, IgnoresAnUnlockWithoutAHold) {
    ReadWriteMutex mutex;
    mutex.unlock();
    mutex.unlock();
    { const WriteLocker lock(&mutex); }
    mutex.unlock();
    const ReadLocker first(&mutex);
    const ReadLocker second(&mutex);
    SUCCEED();
}

TEST(ReadWriteMutexTest, BehavesTheSameWhenMadeRecursive) {
    ReadWriteMutex mutex(true);
    mutex.lock_read();
    mutex.lock_read();
    mutex.unlock();
    std::atomic<bool> written{false};
    std::thread writer([&] {
        const WriteLocker lock(&mutex);
        written = true;
    });
    let_others_run();
    EXPECT_FALSE(written);
    mutex.unlock();
    writer.join();
}

TEST(ReadWriteMutexTest, WorksThroughItsBase) {
    const std::unique_ptr<mox::_AbstractReadWriteMutex> mutex = std::make_unique<ReadWriteMutex>();
    mutex->lock_write();
    mutex->unlock();
    mutex->lock_read();
    mutex->unlock();
}

TEST(ReadLockerTest, UnlocksOnceWhenUnlockedEarly) {
    ReadWriteMutex mutex;
    mutex.lock_read();
    {
        ReadLocker locker(&mutex);
        locker.unlock();
        locker.unlock();
    }
    std::atomic<bool> written{false};
    std::thread writer([&] {
        const WriteLocker lock(&mutex);
        written = true;
    });
    let_others_run();
    EXPECT_FALSE(written);  // the first hold is still there
    mutex.unlock();
    writer.join();
}

TEST(ReadLockerTest, TakesNullAsNothingToLock) {
    ReadLocker reader(nullptr);
    const WriteLocker writer(nullptr);
    reader.unlock();
    SUCCEED();
}

// Writers that come while another is being woken must not make that one miss its turn: with a lost
// wake-up this test never ends.
TEST(ReadWriteMutexTest, WakesEveryWaiterUnderContention) {
    ReadWriteMutex mutex;
    constexpr int kRounds = 300;
    long long value = 0;  // guarded by mutex
    std::atomic<int> torn{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                const WriteLocker lock(&mutex);
                ++value;
                ++value;
            }
        });
        threads.emplace_back([&] {
            for (int i = 0; i < kRounds; ++i) {
                const ReadLocker lock(&mutex);
                if (value % 2 != 0) {
                    ++torn;
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(value, 2LL * 3 * kRounds);
    EXPECT_EQ(torn, 0);
}

}  // namespace
