#include "decoder_mgr.h"
#include "scheduler.h"
#include "tests/support/fake_worker.h"

#include <framewell/media/stream.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <functional>
#include <future>
#include <list>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kThreads = 8;
constexpr long long kLength = 1000;

using Pool = ff::AbstractScheduler<std::shared_ptr<const long long>>;

/// Remembers a stretch of numbers, and goes on from its end or starts anew where it is asked to.
/// Nothing of it is atomic: it is the pool that keeps requests apart.
class StretchWorker final : public Pool::iWorker {
public:
    /// @param running   counts the jobs that run
    /// @param detached  lets go of the mutex during its jobs, which makes others wait for it
    StretchWorker(std::atomic<int>& running, bool detached)
        : m_running(running), m_detached(detached) {}

    bool is_empty() const override { return m_last < 0; }

    long long cached_first_ts() const override { return m_first; }

    bool is_contain(long long ts, bool) override { return m_first <= ts && ts <= m_last; }

    bool will_contain(long long ts) override {
        return !is_empty() && m_last < ts && ts <= m_last + kLength / 10;
    }

    std::shared_ptr<const long long> get_exist_resource(long long ts, bool) override {
        return std::make_shared<const long long>(ts);
    }

    std::shared_ptr<const long long> do_job(long long ts, bool locked, std::atomic<bool>* cancel,
                                            bool) override {
        const JobGuard job(*this, locked);
        if (++m_running > 1 && !m_detached) {
            ADD_FAILURE() << "two jobs at a time";
        }
        if (m_detached) {
            m_mutex.unlock();
            std::this_thread::yield();
            m_mutex.lock();
        }
        m_first = will_contain(ts) ? std::max(m_first, ts - kLength / 50) : ts;
        m_last = ts;
        --m_running;
        return *cancel ? nullptr : std::make_shared<const long long>(ts);
    }

private:
    std::atomic<int>& m_running;
    const bool m_detached;
    long long m_first = -1;
    long long m_last = -1;
};

class SchedulerRaceTest : public ::testing::Test {
protected:
    ~SchedulerRaceTest() override {
        while (!pool.m_workers.empty()) {
            pool.remove_worker(pool.m_workers.front(), false);
        }
    }

    void open(bool detached = false) { pool.add_worker(new StretchWorker(running, detached)); }

    /// Asks for `ts`, and from time to time for nothing.
    void request(long long ts, int tag, bool cancelled) {
        std::atomic<bool> cancel{cancelled};
        const std::shared_ptr<const long long> answer =
            pool.do_working(ts, &cancel, ts % 2 == 0, tag, "dec");
        if (answer != nullptr) {
            EXPECT_EQ(*answer, ts);
        } else {
            EXPECT_TRUE(cancelled);
        }
    }

    static void in_threads(const std::function<void(int tag, std::mt19937& random)>& body) {
        std::vector<std::thread> threads;
        for (int tag = 1; tag <= kThreads; ++tag) {
            threads.emplace_back([&body, tag] {
                std::mt19937 random(static_cast<unsigned>(tag));
                body(tag, random);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    std::atomic<int> running{0};
    Pool pool;
};

TEST_F(SchedulerRaceTest, AnswersEveryRequestWhileOthersOpenAndClose) {
    in_threads([this](int tag, std::mt19937& random) {
        for (int session = 0; session < 30; ++session) {
            open();
            for (int i = 0; i < 20; ++i) {
                request(static_cast<long long>(random() % kLength), tag, random() % 8 == 0);
            }
            pool.drop_idle_worker();
        }
    });
    EXPECT_EQ(running, 0);
    EXPECT_LE(pool.m_workers.size(), static_cast<std::size_t>(kThreads) * 30);
}

TEST_F(SchedulerRaceTest, AnswersEveryRequestOfOneWorker) {
    open();
    in_threads([this](int tag, std::mt19937& random) {
        for (int i = 0; i < 300; ++i) {
            request(static_cast<long long>(random() % kLength), tag, false);
        }
    });
    EXPECT_EQ(pool.m_workers.size(), 1U);
}

TEST_F(SchedulerRaceTest, AnswersEveryRequestOfWorkersThatAreSeenBusy) {
    for (int i = 0; i < 4; ++i) {
        open(true);
    }
    in_threads([this](int tag, std::mt19937& random) {
        long long ts = 0;
        for (int i = 0; i < 200; ++i) {
            const long long step = random() % 8 == 0 ? kLength / 2 : 30;
            ts = (ts + step) % kLength;
            request(ts, tag, random() % 4 == 0);
        }
    });
    EXPECT_EQ(running, 0);
}

TEST_F(SchedulerRaceTest, RemovesWorkersThatOthersWaitFor) {
    for (int round = 0; round < 100; ++round) {
        fw_test::Pool waited_pool;
        auto* const worker = new fw_test::FakeWorker("awaited");  // the pool's
        worker->near = true;
        worker->begin_detached_job();
        waited_pool.add_worker(worker);
        std::vector<std::future<std::string>> answers;
        for (int tag = 1; tag <= kThreads / 2; ++tag) {
            answers.push_back(std::async(std::launch::async, [&waited_pool, tag] {
                return waited_pool.do_working(1, nullptr, false, tag, "dec");
            }));
        }
        worker->wait_for_waiter(kThreads / 2);
        waited_pool.remove_worker(worker, false);
        for (std::future<std::string>& answer : answers) {
            EXPECT_EQ(answer.get(), "");
        }
    }
}

TEST_F(SchedulerRaceTest, FindsThePoolsOfStreamsFromAllThreads) {
    ff::DecoderMgr mgr;
    const std::array<ff::StreamCtx, 5> streams;
    in_threads([&](int, std::mt19937& random) {
        for (int i = 0; i < 200; ++i) {
            const ff::StreamCtx* const stream = &streams[random() % streams.size()];
            EXPECT_EQ(&mgr.scheduler_of(stream), &mgr.scheduler_of(stream));
        }
    });
}

}  // namespace
