#include "scheduler.h"
#include "tests/support/fake_worker.h"

#include <climits>
#include <gtest/gtest.h>

#include <ctime>
#include <list>
#include <memory>
#include <mutex>
#include <shared_mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using fw_test::FakeWorker;
using fw_test::Pool;
using Names = std::vector<std::string>;

constexpr int kTag = 7;

/// A pool of workers by name, which the fixture owns; drops show in `deleted`.
class SchedulerOrderTest : public ::testing::Test {
protected:
    ~SchedulerOrderTest() override {
        while (!pool.m_workers.empty()) {
            pool.remove_worker(pool.m_workers.front(), false);
        }
    }

    FakeWorker& add(const std::string& name) {
        auto worker = std::make_unique<FakeWorker>(name);
        FakeWorker& added = *worker;
        added.on_delete = [this, name] { deleted.push_back(name); };
        names.emplace_back(&added, name);
        pool.add_worker(worker.release());
        return added;
    }

    FakeWorker& add_remembering(const std::string& name) {
        FakeWorker& worker = add(name);
        worker.contains = true;
        return worker;
    }

    FakeWorker& add_near(const std::string& name, long long first_ts, int tag = 0) {
        FakeWorker& worker = add(name);
        worker.near = true;
        worker.first_ts = first_ts;
        worker.m_tag = tag;
        return worker;
    }

    FakeWorker& add_empty(const std::string& name) {
        FakeWorker& worker = add(name);
        worker.empty = true;
        return worker;
    }

    FakeWorker& add_other(const std::string& name, std::time_t last_used, int tag = 0) {
        FakeWorker& worker = add(name);
        worker.m_last_used = last_used;
        worker.m_tag = tag;
        return worker;
    }

    Names names_of(const std::list<Pool::iWorker*>& workers) const {
        Names result;
        for (const Pool::iWorker* worker : workers) {
            for (const auto& [known, name] : names) {
                if (known == worker) {
                    result.push_back(name);
                }
            }
        }
        return result;
    }

    Names order(int tag = kTag) {
        const std::unique_lock<std::shared_timed_mutex> lock(pool.m_lock);
        std::list<Pool::iWorker*> result;
        pool.get_best_order(100, pool.m_workers, result, false, tag);
        return names_of(result);
    }

    Pool pool;
    Names deleted;
    std::vector<std::pair<const Pool::iWorker*, std::string>> names;
};

TEST_F(SchedulerOrderTest, IsEmptyForAnEmptyPool) {
    EXPECT_EQ(order(), Names{});
}

TEST_F(SchedulerOrderTest, CopiesASingleWorkerWithoutAskingIt) {
    FakeWorker& only = add_other("a", 5);
    only.m_busy = true;
    EXPECT_EQ(order(), (Names{"a"}));
    EXPECT_EQ(only.contain_calls, 0);
    EXPECT_EQ(only.near_calls, 0);
}

TEST_F(SchedulerOrderTest, ReplacesWhatTheListHeld) {
    for (const char* name : {"a", "b"}) {
        add_empty(name);
        std::list<Pool::iWorker*> result(3, nullptr);
        pool.get_best_order(100, pool.m_workers, result, false, kTag);
        EXPECT_EQ(result.size(), pool.m_workers.size());
        EXPECT_EQ(result, pool.m_workers);
    }
}

TEST_F(SchedulerOrderTest, TurnsRoundThoseThatRememberTheAnswer) {
    add_remembering("a").m_tag = kTag;
    add_remembering("b");
    add_remembering("c").m_last_used = 1;
    EXPECT_EQ(order(), (Names{"c", "b", "a"}));
}

TEST_F(SchedulerOrderTest, PutsTheLatestMemoryFirstAmongThoseThatAreNear) {
    add_near("a", 10);
    add_near("b", 30);
    add_near("c", 20);
    add_near("d", -1);
    EXPECT_EQ(order(), (Names{"b", "c", "a", "d"}));
}

TEST_F(SchedulerOrderTest, PutsTheNewcomerFirstAmongThoseThatAreEquallyNear) {
    add_near("a", 10);
    add_near("b", 10);
    add_near("c", 20);
    add_near("d", 20);
    add_near("e", 10);
    EXPECT_EQ(order(), (Names{"d", "c", "e", "b", "a"}));
}

TEST_F(SchedulerOrderTest, ComparesTheFarthestTimes) {
    add_near("a", LLONG_MIN);
    add_near("b", LLONG_MAX);
    add_near("c", 0);
    add_near("d", LLONG_MIN);
    EXPECT_EQ(order(), (Names{"b", "c", "d", "a"}));
}

TEST_F(SchedulerOrderTest, PutsTheRequestersOwnFirstAmongThoseThatAreNear) {
    add_near("a", 90);
    add_near("b", 10, kTag);
    add_near("c", 80, kTag + 1);
    add_near("d", 20, kTag);
    add_near("e", 95);
    add_near("f", 10, kTag);
    EXPECT_EQ(order(), (Names{"b", "d", "f", "e", "a", "c"}));
}

TEST_F(SchedulerOrderTest, KeepsThoseThatRememberNothingInPoolOrder) {
    add_empty("a");
    add_empty("b").m_tag = kTag;
    add_empty("c").m_last_used = 1;
    EXPECT_EQ(order(), (Names{"a", "b", "c"}));
}

TEST_F(SchedulerOrderTest, PutsTheLeastRecentlyUsedFirstAmongTheOthers) {
    add_other("a", 300);
    add_other("b", 100);
    add_other("c", 200);
    add_other("d", 0);
    EXPECT_EQ(order(), (Names{"d", "b", "c", "a"}));
}

TEST_F(SchedulerOrderTest, PutsTheNewcomerFirstAmongThoseUsedAtTheSameTime) {
    add_other("a", 100);
    add_other("b", 100);
    add_other("c", 50);
    add_other("d", 50);
    add_other("e", 100);
    EXPECT_EQ(order(), (Names{"d", "c", "e", "b", "a"}));
}

TEST_F(SchedulerOrderTest, PutsTheRequestersOwnFirstAmongTheOthers) {
    add_other("a", 10);
    add_other("b", 900, kTag);
    add_other("c", 20, kTag + 1);
    add_other("d", 800, kTag);
    add_other("e", 5);
    EXPECT_EQ(order(), (Names{"b", "d", "e", "a", "c"}));
}

TEST_F(SchedulerOrderTest, SetsTheFourGroupsOneBehindTheOther) {
    add_other("other", 10);
    add_other("own other", 20, kTag);
    add_empty("empty");
    add_near("near", 50);
    add_near("own near", 5, kTag);
    add_remembering("remembers");
    EXPECT_EQ(order(), (Names{"remembers", "own near", "near", "empty", "own other", "other"}));
}

TEST_F(SchedulerOrderTest, IsTheSameHoweverThePoolIsFilled) {
    add_remembering("remembers");
    add_near("own near", 5, kTag);
    add_near("near", 50);
    add_empty("empty");
    add_other("own other", 20, kTag);
    add_other("other", 10);
    EXPECT_EQ(order(), (Names{"remembers", "own near", "near", "empty", "own other", "other"}));
}

TEST_F(SchedulerOrderTest, CountsAWorkerToTheFirstGroupThatFits) {
    FakeWorker& near = add_near("near", 1);
    near.empty = true;
    FakeWorker& all = add_near("all", 1);
    all.contains = true;
    all.empty = true;
    EXPECT_EQ(order(), (Names{"all", "near"}));
}

TEST_F(SchedulerOrderTest, DoesNotMindWhoIsBusy) {
    add_remembering("a").m_busy = true;
    add_empty("b");
    EXPECT_EQ(order(), (Names{"a", "b"}));
}

TEST_F(SchedulerOrderTest, KnowsNoOwnersForTagsBelowOne) {
    for (const int tag : {0, -3}) {
        SCOPED_TRACE(tag);
        const int first = static_cast<int>(names.size());
        add_near("near" + std::to_string(first), 10 + first, tag);
        add_near("nearer" + std::to_string(first), 20 + first, 1);
        add_other("late" + std::to_string(first), 200 - first, tag);
        add_other("early" + std::to_string(first), 100 - first, 1);
    }
    const Names expected{"nearer4", "nearer0", "near4", "near0",
                         "early4",  "early0",  "late4", "late0"};
    EXPECT_EQ(order(0), expected);
    EXPECT_EQ(order(-3), expected);
}

TEST_F(SchedulerOrderTest, AsksEachWorkerOnceForWhatItCompares) {
    std::vector<FakeWorker*> workers;
    for (const char* name : {"a", "b", "c", "d"}) {
        workers.push_back(&add_near(name, 10));
    }
    order();
    for (const FakeWorker* worker : workers) {
        EXPECT_EQ(worker->first_ts_calls, 1);
        EXPECT_EQ(worker->contain_calls, 1);
    }
}

TEST_F(SchedulerOrderTest, ListsAWorkerTwiceThatWasAddedTwice) {
    FakeWorker& twice = add_empty("a");
    add_empty("b");
    pool.add_worker(&twice);
    EXPECT_EQ(order(), (Names{"a", "b", "a"}));
}

TEST_F(SchedulerOrderTest, DropsTheLeastRecentlyUsedWorker) {
    add_other("a", 300);
    add_other("b", 100);
    add_other("c", 200);
    pool.drop_idle_worker();
    EXPECT_EQ(deleted, (Names{"b"}));
    EXPECT_EQ(names_of(pool.m_workers), (Names{"a", "c"}));
}

TEST_F(SchedulerOrderTest, DropsTheFirstOfThoseUsedAtTheSameTime) {
    add_other("a", 5);
    add_other("b", 3);
    add_other("c", 3);
    pool.drop_idle_worker();
    EXPECT_EQ(deleted, (Names{"b"}));
}

TEST_F(SchedulerOrderTest, DropsTheNextIdleWorkerInPlaceOfOneThatWasNeverUsed) {
    add_other("never used", 0);
    add_other("used", 100);
    pool.drop_idle_worker();
    EXPECT_EQ(deleted, (Names{"used"}));
}

TEST_F(SchedulerOrderTest, DropsALaterWorkerThatWasNeverUsed) {
    add_other("used", 100);
    add_other("never used", 0);
    pool.drop_idle_worker();
    EXPECT_EQ(deleted, (Names{"never used"}));
}

TEST_F(SchedulerOrderTest, DropsTheLastOfThoseNeverUsed) {
    add_other("a", 0);
    add_other("b", 0);
    add_other("c", 0);
    pool.drop_idle_worker();
    EXPECT_EQ(deleted, (Names{"c"}));
}

TEST_F(SchedulerOrderTest, GoesOnFromANeverUsedWorkerInTheMiddle) {
    add_other("a", 100);
    add_other("b", 0);
    add_other("c", 200);
    add_other("d", 300);
    pool.drop_idle_worker();
    EXPECT_EQ(deleted, (Names{"c"}));
}

TEST_F(SchedulerOrderTest, DropsNoBusyWorker) {
    add_other("a", 100).m_busy = true;
    add_other("b", 300);
    add_other("c", 200).m_busy = true;
    pool.drop_idle_worker();
    EXPECT_EQ(deleted, (Names{"b"}));
}

TEST_F(SchedulerOrderTest, DropsNothingWhenAllWorkersAreBusy) {
    add_other("a", 100).m_busy = true;
    add_other("b", 0).m_busy = true;
    pool.drop_idle_worker();
    EXPECT_EQ(deleted, Names{});
    EXPECT_EQ(names_of(pool.m_workers), (Names{"a", "b"}));
}

TEST_F(SchedulerOrderTest, DropsNothingFromAnEmptyPool) {
    pool.drop_idle_worker();
    EXPECT_TRUE(pool.m_lock.try_lock());
    pool.m_lock.unlock();
}

TEST_F(SchedulerOrderTest, DropsOnceWhatWasAddedTwice) {
    pool.add_worker(&add_other("a", 1));
    pool.drop_idle_worker();
    EXPECT_EQ(deleted, (Names{"a"}));
    EXPECT_TRUE(pool.m_workers.empty());
}

// A job holds the mutex of its worker: who waited for it here would wait for ever.
TEST_F(SchedulerOrderTest, DropsWhileAJobRunsWithoutWaitingForIt) {
    FakeWorker& working = add_near("working", 1);
    add_other("idle", 100);
    working.on_job = [this] { std::thread([this] { pool.drop_idle_worker(); }).join(); };
    EXPECT_EQ(pool.do_working(100, nullptr, false, kTag, "dec_7"), "working made 100");
    EXPECT_EQ(deleted, (Names{"idle"}));
}

TEST_F(SchedulerOrderTest, DropsNothingWhileTheOnlyWorkerIsAtWork) {
    FakeWorker& working = add_empty("working");
    working.on_job = [this] { std::thread([this] { pool.drop_idle_worker(); }).join(); };
    EXPECT_EQ(pool.do_working(100, nullptr, false, kTag, "dec_7"), "working made 100");
    EXPECT_EQ(deleted, Names{});
}

}  // namespace
