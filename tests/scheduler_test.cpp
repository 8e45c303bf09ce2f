#include "scheduler.h"

#include "tests/support/fake_worker.h"
#include "tests/support/log_capture.h"
#include "tests/support/scheduler_fixture.h"

#include <framewell/base/tracer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <future>
#include <list>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using fw_test::FakeWorker;
using fw_test::is_free;
using fw_test::kName;
using fw_test::kTag;
using fw_test::LogCapture;
using fw_test::Pool;

class SchedulerTest : public fw_test::SchedulerFixture {};

TEST_F(SchedulerTest, NumbersAndNamesItsWorkers) {
    const int before = Pool::iWorker::s_count;
    const FakeWorker first("a");
    const FakeWorker second("b");
    EXPECT_EQ(first.m_id, before + 1);
    EXPECT_EQ(second.m_id, before + 2);
    EXPECT_STREQ(second.m_name, ("work_" + std::to_string(before + 2)).c_str());
}

TEST_F(SchedulerTest, BeginsWithIdleWorkersThatWereNeverUsed) {
    const FakeWorker worker("a");
    EXPECT_FALSE(worker.m_busy);
    EXPECT_EQ(worker.m_tag, 0);
    EXPECT_EQ(worker.m_last_used, 0);
}

TEST_F(SchedulerTest, EndsAJobThatTookTheLockItself) {
    FakeWorker worker("a");
    worker.on_job = [&] { EXPECT_FALSE(is_free(worker.m_mutex)); };
    const std::time_t before = std::time(nullptr);
    EXPECT_EQ(worker.do_job(5, false, nullptr, true), "a made 5 next");
    EXPECT_TRUE(is_free(worker.m_mutex));
    EXPECT_FALSE(worker.m_busy);
    EXPECT_GE(worker.m_last_used, before);
}

TEST_F(SchedulerTest, IgnoresANullWorker) {
    pool.add_worker(nullptr);
    pool.remove_worker(nullptr, false);
    EXPECT_TRUE(pool.m_workers.empty());
    EXPECT_TRUE(is_free(pool.m_lock));
}

TEST_F(SchedulerTest, AnswersEmptyWithoutWorkersAndSaysSo) {
    LogCapture log;
    EXPECT_EQ(ask(), "");
    const std::vector<fw_test::LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].message, fw_test::quoted("worker-list empty"));
    EXPECT_EQ(lines[0].tag, kName);
    EXPECT_EQ(lines[0].level, 5);
    EXPECT_EQ(lines[0].file, "src/scheduler");
}

TEST_F(SchedulerTest, HoldsNoLockWhileItLogsThatThereAreNoWorkers) {
    mox::Logger* const previous = mox::Logger::instance();
    mox::Logger logger;
    bool free = false;
    logger.setCallback(
        [&](const char*, int, const char*, int, const char*) { free = is_free(pool.m_lock); });
    mox::Logger::instance(&logger);
    EXPECT_EQ(ask(), "");
    mox::Logger::instance(previous);
    EXPECT_TRUE(free);
}

TEST_F(SchedulerTest, AnswersOutOfMemoryWithoutAJob) {
    FakeWorker& only = add_remembering("a");
    EXPECT_EQ(ask(3), "a remembers 3");
    EXPECT_EQ(ask(4, nullptr, true), "a remembers 4 next");
    EXPECT_EQ(only.jobs, 0);
    EXPECT_EQ(only.m_tag, 0);
    EXPECT_EQ(only.m_last_used, 0);
}

TEST_F(SchedulerTest, AnswersOutOfTheMemoryOfABusyWorker) {
    FakeWorker& only = add_remembering("a");
    only.m_busy = true;
    EXPECT_EQ(ask(), "a remembers 100");
    EXPECT_TRUE(only.m_busy);
}

TEST_F(SchedulerTest, PassesOnAnEmptyAnswerOutOfMemory) {
    Pool other;

    class Forgetful final : public Pool::iWorker {
        bool is_empty() const override { return true; }

        long long cached_first_ts() const override { return -1; }

        bool is_contain(long long, bool) override { return true; }

        bool will_contain(long long) override { return false; }

        std::string get_exist_resource(long long, bool) override { return {}; }

        std::string do_job(long long, bool locked, std::atomic<bool>*, bool) override {
            const JobGuard job(*this, locked);
            return "made";
        }
    };

    auto* const worker = new Forgetful;
    other.add_worker(worker);
    EXPECT_EQ(other.do_working(1, nullptr, false, kTag, kName), "");
    other.remove_worker(worker, false);
}

TEST_F(SchedulerTest, HoldsOnlyTheWorkerWhileItAnswersOutOfMemory) {
    FakeWorker& other = add_empty("a");
    FakeWorker& asked = add_remembering("b");
    int looked = 0;
    asked.on_get = [&] {
        ++looked;
        EXPECT_TRUE(is_free(pool.m_lock));
        EXPECT_TRUE(is_free(other.m_mutex));
        EXPECT_FALSE(is_free(asked.m_mutex));
    };
    EXPECT_EQ(ask(), "b remembers 100");
    EXPECT_EQ(looked, 1);
    EXPECT_TRUE(is_free(asked.m_mutex));
}

TEST_F(SchedulerTest, HoldsOnlyTheWorkerDuringItsJob) {
    FakeWorker& first = add("a");
    FakeWorker& chosen = add_empty("b");
    FakeWorker& last = add("c");
    chosen.on_job = [&] {
        EXPECT_TRUE(is_free(pool.m_lock));
        EXPECT_TRUE(is_free(first.m_mutex));
        EXPECT_TRUE(is_free(last.m_mutex));
        EXPECT_FALSE(is_free(chosen.m_mutex));
    };
    EXPECT_EQ(ask(), "b made 100");
    EXPECT_EQ(chosen.jobs, 1);
    EXPECT_TRUE(is_free(chosen.m_mutex));
}

TEST_F(SchedulerTest, MarksTheWorkerForItsJob) {
    FakeWorker& only = add_empty("a");
    const std::time_t before = std::time(nullptr);
    only.on_job = [&] {
        EXPECT_TRUE(only.m_busy);
        EXPECT_EQ(only.m_tag, kTag);
        EXPECT_GE(only.m_last_used, before);
        only.m_last_used = 1;
    };
    EXPECT_EQ(ask(3, nullptr, true), "a made 3 next");
    EXPECT_EQ(only.jobs, 1);
    EXPECT_FALSE(only.m_busy);
    EXPECT_EQ(only.m_tag, kTag);
    EXPECT_GE(only.m_last_used, before);
}

TEST_F(SchedulerTest, HandsTheCancelFlagToTheJob) {
    add_empty("a");
    std::atomic<bool> cancel{true};
    EXPECT_EQ(ask(3, &cancel), "");
    cancel = false;
    EXPECT_EQ(ask(3, &cancel), "a made 3");
}

TEST_F(SchedulerTest, TakesMemoryBeforeGoingOnBeforeStartingBeforeLeaving) {
    add("far").m_last_used = 1;
    EXPECT_EQ(ask(), "far made 100");
    add("own").m_tag = kTag;
    add("never used by anyone");
    EXPECT_EQ(ask(), "far made 100") << "the first job has made it the requester's own";
    add_empty("empty");
    EXPECT_EQ(ask(), "empty made 100");
    add_near("near");
    EXPECT_EQ(ask(), "near made 100");
    add_remembering("remembers");
    EXPECT_EQ(ask(), "remembers remembers 100");
}

TEST_F(SchedulerTest, TakesTheLeastRecentlyUsedOfOthersWorkers) {
    add("a").m_last_used = 300;
    add("b").m_last_used = 100;
    add("c").m_last_used = 200;
    EXPECT_EQ(ask(), "b made 100");
}

TEST_F(SchedulerTest, PassesByBusyWorkersThatAreNotNear) {
    add_empty("a").m_busy = true;
    add_empty("b");
    EXPECT_EQ(ask(), "b made 100");
}

TEST_F(SchedulerTest, AsksAWorkerOnceThatWasAddedTwice) {
    FakeWorker& twice = add_empty("a");
    pool.add_worker(&twice);
    pool.add_worker(&twice);
    EXPECT_EQ(ask(), "a made 100");
    pool.remove_worker(&twice, false);
    EXPECT_TRUE(pool.m_workers.empty());
}

TEST_F(SchedulerTest, RemovesAWorkerOnlyAfterItsJob) {
    FakeWorker& working = add_empty("a");
    std::atomic<bool> deleted{false};
    std::promise<void> started;
    std::promise<void> go_on;
    working.on_delete = [&] { deleted = true; };
    working.on_job = [&] {
        started.set_value();
        go_on.get_future().wait();
    };
    std::future<std::string> answer = ask_in_thread();
    started.get_future().wait();
    std::thread remover([&] { pool.remove_worker(&working, false); });
    while (is_free(pool.m_lock)) {  // until the removal has begun
        std::this_thread::yield();
    }
    EXPECT_FALSE(deleted);
    go_on.set_value();
    remover.join();
    EXPECT_TRUE(deleted);
    EXPECT_EQ(answer.get(), "a made 100");
}

TEST_F(SchedulerTest, RemovesEveryEntryOfAWorker) {
    FakeWorker& twice = add("a");
    FakeWorker& other = add("b");
    pool.add_worker(&twice);
    int deleted = 0;
    twice.on_delete = [&] { ++deleted; };
    pool.remove_worker(&twice, false);
    EXPECT_EQ(deleted, 1);
    EXPECT_EQ(pool.m_workers, (std::list<Pool::iWorker*>{&other}));
}

TEST_F(SchedulerTest, KeepsNothingLockedWhenAWorkerThrows) {
    FakeWorker& first = add_empty("a");
    FakeWorker& second = add("b");
    const auto fail = [] { throw std::runtime_error("a defect"); };
    const auto expect_all_free = [&] {
        EXPECT_THROW((void)ask(), std::runtime_error);
        EXPECT_TRUE(is_free(pool.m_lock));
        EXPECT_TRUE(is_free(first.m_mutex));
        EXPECT_TRUE(is_free(second.m_mutex));
        EXPECT_FALSE(first.m_busy);
        EXPECT_FALSE(second.m_busy);
    };
    second.on_is_contain = fail;
    expect_all_free();

    int calls = 0;
    second.on_is_contain = [&] {
        if (++calls == 2) {  // on the visit, with the first one held
            fail();
        }
    };
    expect_all_free();

    second.on_is_contain = nullptr;
    second.on_will_contain = [&](int) { fail(); };
    expect_all_free();

    second.on_will_contain = nullptr;
    second.contains = true;
    second.on_get = fail;
    expect_all_free();
}

TEST_F(SchedulerTest, AnswersARequestOnlyAfterTheJobThatRuns) {
    FakeWorker& working = add_empty("working");
    FakeWorker& idle = add_empty("idle");
    std::promise<void> started;
    std::promise<void> go_on;
    std::vector<std::string> events;  // written under the lock of `working`, then after both
    working.on_job = [&] {
        started.set_value();
        go_on.get_future().wait();
        working.contains = true;
        events.emplace_back("job ended");
    };
    std::future<std::string> one = ask_in_thread();
    started.get_future().wait();
    std::future<std::string> two = std::async(std::launch::async, [&] {
        std::string answer = ask(50);
        events.emplace_back("second answered");
        return answer;
    });
    go_on.set_value();
    EXPECT_EQ(two.get(), "working remembers 50");
    EXPECT_EQ(one.get(), "working made 100");
    EXPECT_EQ(events, (std::vector<std::string>{"job ended", "second answered"}));
    EXPECT_EQ(idle.jobs, 0);
}

// Two requesters whose orders differ, so that each takes the workers' locks in the other's reverse.
TEST_F(SchedulerTest, LetsOnePassGoOverThePoolAtATime) {
    constexpr int kRequests = 200;
    constexpr std::size_t kWorkers = 3;
    std::vector<std::thread::id> asked;  // guarded by the pool's lock: that is what is shown here
    for (std::size_t i = 0; i < kWorkers; ++i) {
        FakeWorker& worker = add("worker");
        worker.m_tag = 1 + static_cast<int>(i) % 2;
        worker.on_is_contain = [&] { asked.push_back(std::this_thread::get_id()); };
    }
    const auto request_often = [&](int tag) {
        for (int i = 0; i < kRequests; ++i) {
            EXPECT_EQ(pool.do_working(i, nullptr, false, tag, kName),
                      "worker made " + std::to_string(i));
        }
    };
    std::thread other(request_often, 2);
    request_often(1);
    other.join();

    constexpr std::size_t kCallsPerPass = 2 * kWorkers;  // all are ordered, then all are visited
    ASSERT_EQ(asked.size(), 2 * kRequests * kCallsPerPass);
    for (std::size_t pass = 0; pass < asked.size(); pass += kCallsPerPass) {
        const auto begin = asked.begin() + static_cast<std::ptrdiff_t>(pass);
        EXPECT_EQ(std::count(begin, begin + kCallsPerPass, *begin),
                  static_cast<std::ptrdiff_t>(kCallsPerPass))
            << "pass " << pass / kCallsPerPass;
    }
}

TEST_F(SchedulerTest, TracesComingAndGoing) {
    std::FILE* const file = std::tmpfile();
    ASSERT_NE(file, nullptr);
    {
        mox::Func_Tracer* const previous = mox::Func_Tracer::instance();
        mox::Func_Tracer tracer;
        tracer.setStream(file);
        tracer.setEnabled(true);
        mox::Func_Tracer::instance(&tracer);
        pool.remove_worker(&add("a"), false);
        pool.add_worker(nullptr);
        pool.remove_worker(nullptr, false);
        mox::Func_Tracer::instance(previous);
    }
    std::rewind(file);
    std::vector<std::string> begins;
    std::array<char, 512> line{};
    while (std::fgets(line.data(), static_cast<int>(line.size()), file) != nullptr) {
        const std::string text = line.data();
        if (text.find("]@") == std::string::npos) {  // not the end of a call
            begins.push_back(text.substr(text.find(']') + 1));
        }
    }
    (void)std::fclose(file);
    EXPECT_EQ(begins, (std::vector<std::string>{
                          "add_worker src/scheduler \n", "remove_worker src/scheduler \n",
                          "remove_worker src/scheduler del wk\n", "add_worker src/scheduler \n",
                          "remove_worker src/scheduler \n"}));
}

}  // namespace
