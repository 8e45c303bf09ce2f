#include "async_helper.h"

#include "tests/support/async_scene.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using ff::AsyncHelper;
using fw_test::Answers;
using fw_test::Carried;
using fw_test::Gate;
using fw_test::LogCapture;
using fw_test::Watchdog;

/// A helper that is ended as its owner has to end it.
class AsyncHelperTest : public ::testing::Test {
protected:
    ~AsyncHelperTest() override {
        gate.open();
        helper->stop();
        helper->join();
    }

    /// Keeps the thread busy, so that what is submitted next has to wait.
    void hold() {
        helper->submit([this] { gate.pass(); });
        gate.wait_for(1);
    }

    Watchdog watchdog{"AsyncHelperTest"};
    Gate gate;
    Answers<int> ran;
    std::shared_ptr<AsyncHelper> helper = AsyncHelper::start();
};

/// Calls back when it is destroyed.
class AtEnd {
public:
    explicit AtEnd(std::function<void()> call) : m_call(std::move(call)) {}

    AtEnd(const AtEnd&) = delete;
    AtEnd& operator=(const AtEnd&) = delete;

    ~AtEnd() { m_call(); }

private:
    const std::function<void()> m_call;
};

/// Calls back whenever it is copied.
struct AtCopy {
    explicit AtCopy(const std::function<void()>* observer) : call(observer) {}

    AtCopy(const AtCopy& other) : call(other.call) { (*call)(); }

    AtCopy& operator=(const AtCopy&) = delete;
    ~AtCopy() = default;

    const std::function<void()>* call;
};

TEST_F(AsyncHelperTest, RunsTasksOnOneThreadOfItsOwn) {
    Answers<std::thread::id> ids;
    for (std::size_t i = 1; i <= 3; ++i) {
        helper->submit([&] { ids.add(std::this_thread::get_id()); });
        (void)ids.wait_for(i);
    }
    const std::vector<std::thread::id> all = ids.all();
    EXPECT_NE(all[0], std::this_thread::get_id());
    EXPECT_EQ(all[1], all[0]);
    EXPECT_EQ(all[2], all[0]);
}

TEST_F(AsyncHelperTest, LetsOnlyTheNewestTaskWait) {
    hold();
    Carried discarded;
    helper->submit([this, thing = discarded.make()] { ran.add(*thing + 1); });
    EXPECT_FALSE(discarded.is_gone());
    helper->submit([this] { ran.add(2); });
    EXPECT_TRUE(discarded.is_gone()) << "the task that was replaced is still there";
    gate.open();
    EXPECT_EQ(ran.wait_for(1), std::vector<int>{2});
}

TEST_F(AsyncHelperTest, IgnoresAnEmptyTaskAndKeepsTheOneThatWaits) {
    hold();
    helper->submit([this] { ran.add(1); });
    helper->submit(nullptr);
    helper->submit(AsyncHelper::Task());
    gate.open();
    EXPECT_EQ(ran.wait_for(1), std::vector<int>{1});
}

TEST_F(AsyncHelperTest, LogsWhatATaskThrowsAndGoesOn) {
    const LogCapture log;
    helper->submit([] { throw std::runtime_error("no more tea"); });
    fw_test::wait_until([&] { return log.lines().size() == 1; });
    helper->submit([] { throw 42; });
    fw_test::wait_until([&] { return log.lines().size() == 2; });
    helper->submit([this] { ran.add(1); });
    EXPECT_EQ(ran.wait_for(1), std::vector<int>{1});
    EXPECT_EQ(log.texts(2), (std::vector<std::string>{"a callback has thrown: no more tea",
                                                      "a callback has thrown"}));
    EXPECT_EQ(log.lines()[0].tag, "bg");
    EXPECT_EQ(log.lines()[0].file, "src/async_helper");
    helper->stop();
    helper->join();
}

TEST_F(AsyncHelperTest, DestroysATaskThatHasRunBeforeTheNextComes) {
    Carried carried;
    helper->submit([thing = carried.make()] {});
    carried.wait_until_gone();
}

TEST_F(AsyncHelperTest, AcceptsTasksFromATask) {
    helper->submit([this] {
        helper->submit([this] { ran.add(1); });
        helper->submit([this] { ran.add(2); });
    });
    EXPECT_EQ(ran.wait_for(1), std::vector<int>{2});
}

TEST_F(AsyncHelperTest, AcceptsTasksFromTheDestructorOfADiscardedOne) {
    hold();
    auto at_end = std::make_shared<AtEnd>([this] { helper->submit([this] { ran.add(2); }); });
    helper->submit([at_end = std::move(at_end)] {});
    helper->submit([this] { ran.add(1); });  // discards it, and is discarded by what it submits
    gate.open();
    EXPECT_EQ(ran.wait_for(1), std::vector<int>{2});
}

TEST_F(AsyncHelperTest, AcceptsTasksFromTheCopyConstructorOfATask) {
    std::atomic<int> copies{0};
    const std::function<void()> on_copy = [&] {
        ++copies;
        helper->submit([this] { ran.add(1); });
    };
    const AtCopy at_copy(&on_copy);
    helper->submit([this, at_copy] { ran.add(2); });
    fw_test::wait_until([this] { return !ran.all().empty() && ran.all().back() == 2; });
    EXPECT_GT(copies, 0);
}

TEST_F(AsyncHelperTest, NeverRunsTheTaskThatWaitsWhenItIsStopped) {
    hold();
    Carried waiting;
    helper->submit([this, thing = waiting.make()] { ran.add(*thing); });
    helper->stop();
    gate.open();
    helper->join();
    EXPECT_TRUE(ran.all().empty());
    EXPECT_FALSE(waiting.is_gone());
    helper->discard_waiting();
    EXPECT_TRUE(waiting.is_gone());
}

TEST_F(AsyncHelperTest, RefusesTasksAfterItWasStopped) {
    helper->stop();
    Carried refused;
    helper->submit([this, thing = refused.make()] { ran.add(*thing); });
    EXPECT_TRUE(refused.is_gone());
    helper->join();
    EXPECT_TRUE(ran.all().empty());
}

TEST_F(AsyncHelperTest, DiscardsTheWaitingTaskWithoutTouchingTheRunningOne) {
    Gate second;
    helper->submit([&] {
        second.pass();
        ran.add(1);
    });
    second.wait_for(1);
    Carried waiting;
    helper->submit([this, thing = waiting.make()] { ran.add(*thing); });
    helper->discard_waiting();
    EXPECT_TRUE(waiting.is_gone());
    helper->discard_waiting();
    second.open();
    EXPECT_EQ(ran.wait_for(1), std::vector<int>{1});
}

TEST_F(AsyncHelperTest, AcceptsTasksFromTheDestructorOfATaskThatIsThrownAway) {
    hold();
    auto at_end = std::make_shared<AtEnd>([this] { helper->submit([this] { ran.add(1); }); });
    helper->submit([at_end = std::move(at_end)] {});
    helper->discard_waiting();
    gate.open();
    EXPECT_EQ(ran.wait_for(1), std::vector<int>{1});
}

TEST_F(AsyncHelperTest, LetsEveryoneWhoJoinsWaitForTheEndOfTheTask) {
    std::atomic<bool> task_ended{false};
    helper->submit([&] {
        gate.pass();
        task_ended = true;
    });
    gate.wait_for(1);
    helper->stop();
    EXPECT_FALSE(helper->has_ended());
    std::vector<std::thread> threads;
    std::atomic<int> waited{0};
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            helper->join();
            waited += task_ended ? 1 : 0;
        });
    }
    gate.open();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(waited, 4);
    EXPECT_TRUE(helper->has_ended());
    helper->join();  // once more does no harm
}

TEST_F(AsyncHelperTest, DoesNotWaitForItself) {
    helper->submit([this] {
        ran.add(helper->is_own_thread() ? 1 : 0);
        helper->stop();
        helper->join();
        ran.add(2);
    });
    EXPECT_EQ(ran.wait_for(2), (std::vector<int>{1, 2}));
    EXPECT_FALSE(helper->is_own_thread());
}

TEST_F(AsyncHelperTest, OutlivesItsLastOwnerWhoLetsGoInATask) {
    Carried carried;
    std::shared_ptr<AsyncHelper> other = AsyncHelper::start();
    const std::weak_ptr<AsyncHelper> watched = other;
    other->submit([&, thing = carried.make()] {
        gate.pass();
        other->stop();
        other.reset();
        ran.add(1);
    });
    gate.open();  // a call needs an owner until it returns
    (void)ran.wait_for(1);
    carried.wait_until_gone();
    fw_test::wait_until([&] { return watched.expired(); });
}

TEST_F(AsyncHelperTest, EndsWithoutATask) {
    const std::shared_ptr<AsyncHelper> idle = AsyncHelper::start();
    idle->stop();
    idle->join();
    EXPECT_TRUE(idle->has_ended());
}

}  // namespace
