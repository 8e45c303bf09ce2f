#include "scheduler.h"
#include "tests/support/fake_worker.h"
#include "tests/support/log_capture.h"
#include "tests/support/scheduler_fixture.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <future>
#include <mutex>
#include <shared_mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// Requests that wait for a busy worker. A worker is seen busy only if it lets go of its mutex
// during its job, which the decoding workers never do.

namespace {

using fw_test::FakeWorker;
using fw_test::is_free;
using fw_test::kTag;
using fw_test::LogCapture;
using fw_test::Pool;

class SchedulerWaitTest : public fw_test::SchedulerFixture {};

TEST_F(SchedulerWaitTest, WaitsForABusyWorkerThatIsNear) {
    FakeWorker& busy = add_near("busy");
    FakeWorker& idle = add_empty("idle");
    busy.begin_detached_job();
    std::future<std::string> answer = ask_in_thread();
    busy.wait_for_waiter(2);
    EXPECT_TRUE(is_free(pool.m_lock));
    EXPECT_TRUE(is_free(idle.m_mutex));
    busy.end_detached_job();
    EXPECT_EQ(answer.get(), "busy made 100");
    EXPECT_EQ(idle.jobs, 0);
    EXPECT_EQ(busy.m_tag, kTag);
    EXPECT_FALSE(busy.m_busy);
}

TEST_F(SchedulerWaitTest, WaitsForASingleBusyWorkerThatIsNear) {
    FakeWorker& only = add_near("a");
    only.begin_detached_job();
    std::future<std::string> answer = ask_in_thread();
    only.wait_for_waiter(1);
    only.end_detached_job();
    EXPECT_EQ(answer.get(), "a made 100");
}

TEST_F(SchedulerWaitTest, TakesTheAnswerThatTheAwaitedJobLeftBehind) {
    FakeWorker& only = add_near("a");
    only.begin_detached_job();
    std::future<std::string> answer = ask_in_thread();
    only.wait_for_waiter(1);
    only.end_detached_job([&] { only.contains = true; });
    EXPECT_EQ(answer.get(), "a remembers 100");
    EXPECT_EQ(only.jobs, 0);
}

TEST_F(SchedulerWaitTest, TakesTheAnswerOfAnAwaitedJobThatGoesOn) {
    FakeWorker& only = add_near("a");
    only.begin_detached_job();
    std::future<std::string> answer = ask_in_thread();
    only.wait_for_waiter(1);
    only.notify();
    {
        const std::lock_guard<std::mutex> lock(only.m_mutex);
        only.contains = true;
        only.m_cond.notify_all();
    }
    EXPECT_EQ(answer.get(), "a remembers 100");
    EXPECT_TRUE(only.m_busy);
}

TEST_F(SchedulerWaitTest, WaitsOnAfterAWakeUpThatBringsNothing) {
    FakeWorker& only = add_near("a");
    only.begin_detached_job();
    std::future<std::string> answer = ask_in_thread();
    only.wait_for_waiter(1);
    const int asked = only.contain_calls;
    only.notify();
    while (only.contain_calls == asked) {
        std::this_thread::yield();
    }
    EXPECT_EQ(only.near_calls, 1) << "it waits on and does not go over the pool again";
    only.end_detached_job();
    EXPECT_EQ(answer.get(), "a made 100");
}

TEST_F(SchedulerWaitTest, RepeatsUntilABusyWorkerIsFree) {
    FakeWorker& first = add_empty("a");
    FakeWorker& second = add("b");
    first.begin_detached_job();
    second.begin_detached_job();
    std::future<std::string> answer = ask_in_thread();
    while (second.contain_calls < 10) {  // two calls a pass
        std::this_thread::yield();
    }
    second.end_detached_job();
    EXPECT_EQ(answer.get(), "b made 100");
    first.end_detached_job();
}

TEST_F(SchedulerWaitTest, RunsTheJobOfACancelledWaitOnceTheWorkerIsFree) {
    LogCapture log;
    FakeWorker& only = add_near("a");
    only.begin_detached_job();
    std::atomic<bool> cancel{false};
    std::future<std::string> answer = ask_in_thread(&cancel);
    only.wait_for_waiter(1);
    cancel = true;
    for (int pass = 2; pass < 6; ++pass) {
        only.notify();
        only.wait_for_waiter(pass);
    }
    only.end_detached_job();
    EXPECT_EQ(answer.get(), "");
    EXPECT_EQ(only.jobs, 1) << "it is the job that finds the flag set";

    const std::vector<fw_test::LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 1U) << "once, however often it was woken";
    std::array<char, 64> text{};
    (void)std::snprintf(text.data(), text.size(), "worker cancelled: %p, %s",
                        static_cast<const void*>(static_cast<Pool::iWorker*>(&only)), only.m_name);
    EXPECT_EQ(lines[0].text(), text.data());
    EXPECT_EQ(lines[0].tag, "bg");
    EXPECT_EQ(lines[0].level, 5);
    EXPECT_EQ(lines[0].file, "src/scheduler");
}

TEST_F(SchedulerWaitTest, DoesNotLookAtTheCancelFlagBeforeItIsWoken) {
    FakeWorker& only = add_near("a");
    std::atomic<bool> cancel{true};
    only.begin_detached_job();
    std::future<std::string> answer = ask_in_thread(&cancel);
    only.wait_for_waiter(1);
    EXPECT_EQ(only.near_calls, 1);
    only.end_detached_job([&] { only.contains = true; });
    EXPECT_EQ(answer.get(), "a remembers 100") << "found in memory by the pass that follows";
}

// Workers that change sides between the ordering and the visit, so that idle ones stand before the
// one that is waited for.
class SchedulerCandidatesTest : public SchedulerWaitTest {
protected:
    SchedulerCandidatesTest() {
        busy.on_will_contain = [this](int call) { busy.near = call > 1; };
        busy.m_last_used = 900;
        busy.begin_detached_job();
    }

    std::future<std::string> ask_and_wait() {
        std::future<std::string> answer = ask_in_thread(&cancel);
        busy.wait_for_waiter(2);
        return answer;
    }

    FakeWorker& first = add_empty("first");
    FakeWorker& second = add_empty("second");
    FakeWorker& busy = add("busy");
    std::atomic<bool> cancel{false};
};

TEST_F(SchedulerCandidatesTest, ChoosesTheFirstWhenTheWaitIsCancelled) {
    std::future<std::string> answer = ask_and_wait();
    cancel = true;
    busy.notify();
    EXPECT_EQ(answer.get(), "");
    EXPECT_EQ(first.jobs, 1);
    EXPECT_EQ(second.jobs, 0);
    EXPECT_TRUE(busy.m_busy);
    busy.end_detached_job();
}

TEST_F(SchedulerCandidatesTest, LeavesThemFreeDuringTheWait) {
    std::future<std::string> answer = ask_and_wait();
    EXPECT_TRUE(is_free(first.m_mutex));
    EXPECT_TRUE(is_free(second.m_mutex));
    EXPECT_TRUE(is_free(pool.m_lock));
    busy.end_detached_job();
    EXPECT_EQ(answer.get(), "busy made 100");
    EXPECT_EQ(first.jobs, 0);
}

TEST_F(SchedulerCandidatesTest, PassesByOneThatWasRemovedMeanwhile) {
    std::future<std::string> answer = ask_and_wait();
    pool.remove_worker(&first, false);
    cancel = true;
    busy.notify();
    EXPECT_EQ(answer.get(), "");
    EXPECT_EQ(second.jobs, 1);
    busy.end_detached_job();
}

TEST_F(SchedulerCandidatesTest, PassesByOneThatBecameBusyMeanwhile) {
    std::future<std::string> answer = ask_and_wait();
    first.begin_detached_job();
    cancel = true;
    busy.notify();
    EXPECT_EQ(answer.get(), "");
    EXPECT_EQ(first.jobs, 0);
    EXPECT_EQ(second.jobs, 1);
    first.end_detached_job();
    busy.end_detached_job();
}

TEST_F(SchedulerCandidatesTest, ChoosesTheFirstWhenTheAwaitedWorkerIsRemoved) {
    std::future<std::string> answer = ask_and_wait();
    pool.remove_worker(&busy, false);
    EXPECT_EQ(answer.get(), "first made 100");
}

TEST_F(SchedulerCandidatesTest, GoesOverThePoolAgainWhenNoneIsLeft) {
    std::future<std::string> answer = ask_and_wait();
    first.begin_detached_job();
    second.begin_detached_job();
    cancel = true;
    busy.notify();
    busy.wait_for_waiter(4);
    cancel = false;
    busy.end_detached_job();
    EXPECT_EQ(answer.get(), "busy made 100");
    first.end_detached_job();
    second.end_detached_job();
}

TEST_F(SchedulerWaitTest, RemovesAWorkerThatOthersWaitFor) {
    FakeWorker& awaited = add_near("awaited");
    awaited.begin_detached_job();
    std::atomic<bool> deleted{false};
    awaited.on_delete = [&] { deleted = true; };
    std::future<std::string> one = ask_in_thread();
    awaited.wait_for_waiter(1);
    std::future<std::string> two = ask_in_thread();
    awaited.wait_for_waiter(2);

    pool.remove_worker(&awaited, false);
    EXPECT_TRUE(deleted);
    EXPECT_EQ(one.get(), "") << "the pool is empty now";
    EXPECT_EQ(two.get(), "");
}

TEST_F(SchedulerWaitTest, TurnsToAnotherWorkerWhenTheAwaitedOneIsRemoved) {
    FakeWorker& awaited = add_near("awaited");
    add_empty("other");
    awaited.begin_detached_job();
    std::future<std::string> answer = ask_in_thread();
    awaited.wait_for_waiter(2);
    {
        const std::unique_lock<std::shared_timed_mutex> lock(pool.m_lock);
        pool.remove_worker(&awaited, true);
    }
    EXPECT_EQ(answer.get(), "other made 100");
}

TEST_F(SchedulerWaitTest, KeepsNothingLockedWhenAnAwaitedWorkerThrows) {
    FakeWorker& only = add_near("a");
    only.begin_detached_job();
    std::future<std::string> answer = ask_in_thread();
    only.wait_for_waiter(1);
    only.end_detached_job(
        [&] { only.on_is_contain = [] { throw std::runtime_error("a defect"); }; });
    EXPECT_THROW((void)answer.get(), std::runtime_error);
    EXPECT_TRUE(is_free(pool.m_lock));
    EXPECT_TRUE(is_free(only.m_mutex));
    only.on_is_contain = nullptr;
    EXPECT_EQ(ask(), "a made 100");
}

}  // namespace
