#include <framewell/base/blocking_queue.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

namespace {

using Queue = mox::BlockingQueue<int>;

constexpr int kDone = 0;
constexpr int kAborted = 1;
constexpr int kNothing = 2;

// Long enough never to end a test that works.
constexpr unsigned int kLong = 600000;

TEST(BlockingQueueTest, HandsElementsOutInTheirOrder) {
    Queue queue;
    for (const int item : {3, 1, 2}) {
        EXPECT_EQ(queue.push(item), kDone);
    }
    std::vector<int> taken;
    int item = 0;
    while (queue._get_front_(item, false, 0, true) == kDone) {
        taken.push_back(item);
    }
    EXPECT_EQ(taken, (std::vector<int>{3, 1, 2}));
}

TEST(BlockingQueueTest, ReturnsAtOnceFromAnEmptyQueueWithoutATimeout) {
    Queue queue;
    int item = 42;
    EXPECT_EQ(queue._get_front_(item, false, 0, true), kNothing);
    EXPECT_EQ(item, 42);
}

TEST(BlockingQueueTest, ReturnsFromAnEmptyQueueAfterTheTimeout) {
    Queue queue;
    int item = 42;
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(queue._get_front_(item, false, 50, true), kNothing);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(50));
    EXPECT_EQ(item, 42);
}

TEST(BlockingQueueTest, TakesAnElementThatComesWithinTheTimeout) {
    Queue queue;
    std::thread producer([&] { queue.push(7); });
    int item = 0;
    EXPECT_EQ(queue._get_front_(item, false, kLong, true), kDone);
    EXPECT_EQ(item, 7);
    producer.join();
}

TEST(BlockingQueueTest, AcceptsTheLongestTimeout) {
    Queue queue;
    std::thread producer([&] { queue.push(7); });
    int item = 0;
    EXPECT_EQ(queue._get_front_(item, false, 0xFFFFFFFFU, true), kDone);
    producer.join();
}

TEST(BlockingQueueTest, WaitsWithoutLimitForAnElement) {
    Queue queue;
    std::thread producer([&] { queue.push(7); });
    int item = 0;
    EXPECT_EQ(queue._get_front_(item, true, 0, true), kDone);
    EXPECT_EQ(item, 7);
    producer.join();
}

TEST(BlockingQueueTest, LeavesAnElementThatIsOnlyLookedAt) {
    Queue queue;
    queue.push(7);
    int item = 0;
    EXPECT_EQ(queue._get_front_(item, false, 50, false), kDone);
    EXPECT_EQ(item, 7);
    item = 0;
    EXPECT_EQ(queue._get_front_(item, true, 0, true), kDone);
    EXPECT_EQ(item, 7);
    EXPECT_EQ(queue._get_front_(item, false, 0, false), kNothing);
}

TEST(BlockingQueueTest, RefusesEverythingAfterAbortEvenWithElementsLeft) {
    Queue queue;
    queue.push(7);
    queue.abort();
    int item = 42;
    EXPECT_EQ(queue.push(8), kAborted);
    EXPECT_EQ(queue._get_front_(item, false, 0, true), kAborted);
    EXPECT_EQ(queue._get_front_(item, false, kLong, true), kAborted);
    EXPECT_EQ(queue._get_front_(item, true, 0, false), kAborted);
    EXPECT_EQ(item, 42);
    queue.abort();
    EXPECT_EQ(queue.push(8), kAborted);
}

TEST(BlockingQueueTest, AbortWakesAllConsumers) {
    Queue queue;
    std::vector<int> results(4, -1);
    std::vector<std::thread> consumers;
    for (std::size_t i = 0; i < results.size(); ++i) {
        consumers.emplace_back([&queue, &results, i] {
            int item = 0;
            results[i] = queue._get_front_(item, i % 2 == 0, kLong, true);
        });
    }
    queue.abort();
    for (std::thread& consumer : consumers) {
        consumer.join();
    }
    EXPECT_EQ(results, std::vector<int>(4, kAborted));
}

TEST(BlockingQueueTest, ClearReleasesEachElementOldestFirst) {
    std::vector<int> released;
    Queue queue([&](int& item) { released.push_back(item); });
    for (const int item : {1, 2, 3}) {
        queue.push(item);
    }
    queue.clear();
    EXPECT_EQ(released, (std::vector<int>{1, 2, 3}));
    int item = 0;
    EXPECT_EQ(queue._get_front_(item, false, 0, true), kNothing);
    queue.clear();
    EXPECT_EQ(released.size(), 3U);
}

TEST(BlockingQueueTest, ClearWorksWithoutAReleaseFunction) {
    const auto held = std::make_shared<int>(1);
    mox::BlockingQueue<std::shared_ptr<int>> queue(nullptr);
    queue.push(held);
    EXPECT_EQ(held.use_count(), 2);
    queue.clear();
    EXPECT_EQ(held.use_count(), 1);
}

TEST(BlockingQueueTest, ClearWorksAfterAbort) {
    int released = 0;
    Queue queue([&](int&) { ++released; });
    queue.push(1);
    queue.abort();
    queue.clear();
    EXPECT_EQ(released, 1);
}

TEST(BlockingQueueTest, DestructorReleasesNothing) {
    int released = 0;
    const auto held = std::make_shared<int>(1);
    {
        mox::BlockingQueue<std::shared_ptr<int>> queue([&](std::shared_ptr<int>&) { ++released; });
        queue.push(held);
    }
    EXPECT_EQ(released, 0);
    EXPECT_EQ(held.use_count(), 1);
}

TEST(BlockingQueueTest, TakingMovesTheElementAndLookingCopiesIt) {
    mox::BlockingQueue<std::shared_ptr<int>> queue;
    auto held = std::make_shared<int>(1);
    queue.push(held);
    std::shared_ptr<int> looked;
    queue._get_front_(looked, false, 0, false);
    EXPECT_EQ(held.use_count(), 3);
    std::shared_ptr<int> taken = std::make_shared<int>(2);
    queue._get_front_(taken, false, 0, true);
    EXPECT_EQ(taken, held);
    EXPECT_EQ(held.use_count(), 3);
}

// An element whose copy throws on demand.
struct Brittle {
    Brittle() = default;

    Brittle(const Brittle& other) : breaks(other.breaks) { check(); }

    Brittle& operator=(const Brittle& other) {
        breaks = other.breaks;
        check();
        return *this;
    }

    ~Brittle() = default;

    void check() const {
        if (breaks != nullptr && *breaks) {
            throw std::runtime_error("copy");
        }
    }

    bool* breaks = nullptr;
};

TEST(BlockingQueueTest, StaysWholeWhenCopyingAnElementThrows) {
    bool breaks = true;
    mox::BlockingQueue<Brittle> queue;
    Brittle item;
    item.breaks = &breaks;
    EXPECT_THROW(queue.push(item), std::runtime_error);
    EXPECT_EQ(queue._get_front_(item, false, 0, true), kNothing);
    breaks = false;
    EXPECT_EQ(queue.push(item), kDone);
    breaks = true;
    Brittle taken;
    EXPECT_THROW(queue._get_front_(taken, false, 0, false), std::runtime_error);
    EXPECT_THROW(queue._get_front_(taken, false, 0, true), std::runtime_error);
    breaks = false;
    EXPECT_EQ(queue._get_front_(taken, false, 0, true), kDone);
}

TEST(BlockingQueueTest, ReleasesNoElementTwiceWhenTheReleaseFunctionThrows) {
    std::vector<int> released;
    Queue queue([&](int& item) {
        released.push_back(item);
        if (item == 1) {
            throw std::runtime_error("release");
        }
    });
    queue.push(1);
    queue.push(2);
    EXPECT_THROW(queue.clear(), std::runtime_error);
    EXPECT_EQ(queue.push(3), kDone);
    queue.clear();
    EXPECT_EQ(released, (std::vector<int>{1, 2, 3}));
}

TEST(BlockingQueueTest, CarriesTasks) {
    mox::BlockingQueue<std::function<void()>> queue;
    int ran = 0;
    queue.push([&] { ++ran; });
    std::function<void()> task;
    ASSERT_EQ(queue._get_front_(task, true, 0, true), kDone);
    task();
    EXPECT_EQ(ran, 1);
}

TEST(BlockingQueueTest, LosesAndDoublesNothingBetweenManyThreads) {
    Queue queue;
    constexpr int kProducers = 3;
    constexpr int kConsumers = 3;
    constexpr int kItems = 500;
    std::atomic<long long> sum{0};
    std::atomic<int> count{0};
    std::vector<std::thread> consumers;
    for (int c = 0; c < kConsumers; ++c) {
        consumers.emplace_back([&, c] {
            for (int item = 0;;) {
                const int result = queue._get_front_(item, c % 2 == 0, 1, true);
                if (result == kAborted) {
                    return;
                }
                if (result == kDone) {
                    sum += item;
                    ++count;
                }
            }
        });
    }
    std::vector<std::thread> producers;
    for (int p = 0; p < kProducers; ++p) {
        producers.emplace_back([&queue] {
            for (int i = 1; i <= kItems; ++i) {
                queue.push(i);
            }
        });
    }
    for (std::thread& producer : producers) {
        producer.join();
    }
    while (count.load() < kProducers * kItems) {
        std::this_thread::yield();
    }
    queue.abort();
    for (std::thread& consumer : consumers) {
        consumer.join();
    }
    EXPECT_EQ(count.load(), kProducers * kItems);
    EXPECT_EQ(sum.load(), static_cast<long long>(kProducers) * kItems * (kItems + 1) / 2);
}

TEST(BlockingQueueTest, MayBeAbortedAndClearedWhileThreadsUseIt) {
    Queue queue;
    std::thread producer([&] {
        while (queue.push(1) == kDone) {
            std::this_thread::yield();
        }
    });
    std::thread consumer([&] {
        int item = 0;
        while (queue._get_front_(item, true, 0, true) == kDone) {
        }
    });
    for (int i = 0; i < 100; ++i) {
        queue.clear();
    }
    queue.abort();
    producer.join();
    consumer.join();
    EXPECT_EQ(queue.push(1), kAborted);
}

}  // namespace
