#include <framewell/utils/clock.h>
#include <framewell/utils/mempool.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace {

using bg::mempool;

constexpr unsigned kMaxUnsigned = std::numeric_limits<unsigned>::max();
constexpr char kWarning[] = "\"[mempool] *warnning* free to pool: bufflist not exist.\"\n";

// The pool belongs to the process: each test starts without idle buffers.
struct MempoolTest : testing::Test {
    MempoolTest() { (void)mempool::collection(0); }
};

// Returns once the clock that the pool reads has moved on.
void wait_for_next_millisecond() {
    const long long before = bg::time::cpu_msec_pts();
    while (bg::time::cpu_msec_pts() <= before) {
        std::this_thread::yield();
    }
}

TEST_F(MempoolTest, SizesAreSharedInStepsOf32Bytes) {
    void* const one = mempool::malloc(1, 16);
    mempool::free(one);
    void* const whole = mempool::malloc(32, 16);
    EXPECT_EQ(whole, one);
    void* const more = mempool::malloc(33, 16);
    EXPECT_NE(more, one);
    std::memset(more, 1, 64);
    mempool::free(more);
    EXPECT_EQ(mempool::malloc(64, 16), more);
    mempool::free(more);
    mempool::free(whole);
}

TEST_F(MempoolTest, HandsOutFirstWhatWasFreedFirst) {
    void* const a = mempool::malloc(4096, 16);
    void* const b = mempool::malloc(4096, 16);
    mempool::free(b);
    mempool::free(a);
    EXPECT_EQ(mempool::malloc(4096, 16), b);
    EXPECT_EQ(mempool::malloc(4096, 16), a);
    mempool::free(a);
    mempool::free(b);
}

TEST_F(MempoolTest, KeepsContentAndAlignmentOfAReusedBuffer) {
    auto* const p = static_cast<unsigned char*>(mempool::malloc(640, 64));
    ASSERT_TRUE(mempool::is_alignment(p, 64));
    p[639] = 77;
    mempool::free(p);
    auto* const again = static_cast<unsigned char*>(mempool::malloc(640, 16));
    EXPECT_EQ(again, p);
    EXPECT_EQ(again[639], 77);
    mempool::free(again);
}

TEST_F(MempoolTest, CollectsAllIdleBuffersAndNoneInUse) {
    auto* const used = static_cast<char*>(mempool::malloc(100, 16));
    mempool::free(mempool::malloc(5000, 16));
    mempool::free(mempool::malloc(6000, 16));
    EXPECT_EQ(mempool::collection(0), 2U);
    EXPECT_EQ(mempool::collection(0), 0U);
    std::memset(used, 1, 100);
    mempool::free(used);
    EXPECT_EQ(mempool::collection(0), 1U);
}

TEST_F(MempoolTest, CollectionKeepsYoungBuffers) {
    mempool::free(mempool::malloc(5000, 16));
    EXPECT_EQ(mempool::collection(kMaxUnsigned), 0U);
    EXPECT_EQ(mempool::collection(0), 1U);
}

TEST_F(MempoolTest, CollectionFreesBuffersThatWereIdleForLonger) {
    mempool::free(mempool::malloc(5000, 16));
    mempool::free(mempool::malloc(7000, 16));
    wait_for_next_millisecond();  // so that both are idle for more than 1 ms after the next
    wait_for_next_millisecond();
    EXPECT_EQ(mempool::collection(1), 2U);
}

TEST_F(MempoolTest, CollectionStopsAtTheFirstYoungBuffer) {
    // The age of the young one depends on when this thread gets to run: a run in which it grew too
    // old says nothing, and one of many will not.
    bool kept_the_young_one = false;
    for (int attempt = 0; attempt < 50 && !kept_the_young_one; ++attempt) {
        void* const old_one = mempool::malloc(5000, 16);
        void* const young_one = mempool::malloc(5000, 16);
        mempool::free(old_one);
        wait_for_next_millisecond();
        const long long between = bg::time::cpu_msec_pts();
        for (int i = 0; i < 20; ++i) {
            wait_for_next_millisecond();
        }
        mempool::free(young_one);
        const auto age = static_cast<unsigned>(bg::time::cpu_msec_pts() - between);
        if (mempool::collection(age) == 1) {
            kept_the_young_one = mempool::malloc(5000, 16) == young_one;
            mempool::free(young_one);
        }
        (void)mempool::collection(0);
    }
    EXPECT_TRUE(kept_the_young_one);
}

TEST_F(MempoolTest, FreeingTwiceWarnsAndKeepsTheBufferOnce) {
    void* const p = mempool::malloc(300, 16);
    testing::internal::CaptureStderr();
    mempool::free(p);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    testing::internal::CaptureStderr();
    mempool::free(p);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), kWarning);
    EXPECT_EQ(mempool::collection(0), 1U);
}

TEST_F(MempoolTest, FreeingWhatIsNotItsOwnWarns) {
    int foreign = 0;
    for (void* const p : {static_cast<void*>(&foreign), static_cast<void*>(nullptr)}) {
        testing::internal::CaptureStderr();
        mempool::free(p);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), kWarning);
    }
    EXPECT_EQ(mempool::collection(0), 0U);
}

TEST_F(MempoolTest, SizesThatCannotBeRoundedGiveNull) {
    EXPECT_EQ(mempool::malloc(0xFFFFFFE1U, 16), nullptr);
    EXPECT_EQ(mempool::malloc(kMaxUnsigned, 16), nullptr);
}

TEST_F(MempoolTest, ImpossibleAlignmentsGiveNullAndLeaveNothing) {
    for (const unsigned align : {0U, 1U, 2U, 4U, 24U}) {
        EXPECT_EQ(mempool::malloc(123456, align), nullptr) << align;
    }
    EXPECT_EQ(mempool::collection(0), 0U);
}

TEST_F(MempoolTest, ErrorCodesInPlaceOfSizesGiveNull) {
    EXPECT_EQ(ff::mem_malloc(-22, 16), nullptr);
    EXPECT_EQ(ff::mem_malloc(std::numeric_limits<int>::min(), 16), nullptr);
}

TEST_F(MempoolTest, ShortNamesReachTheSamePool) {
    void* const p = ff::mem_malloc(2000, 16);
    ASSERT_NE(p, nullptr);
    EXPECT_TRUE(bg::mem::is_aligned(p, 16));
    ff::mem_free(p);
    EXPECT_EQ(mempool::malloc(2000, 16), p);
    mempool::free(p);
    EXPECT_EQ(ff::mem_collection(0), 1U);
}

TEST_F(MempoolTest, AlignmentIsAskedOfTheAddress) {
    EXPECT_TRUE(bg::mem::is_aligned(reinterpret_cast<void*>(std::uintptr_t{0x1000}), 16));
    EXPECT_FALSE(bg::mem::is_aligned(reinterpret_cast<void*>(std::uintptr_t{0x1008}), 16));
    EXPECT_TRUE(bg::mem::is_aligned(reinterpret_cast<void*>(std::uintptr_t{0x1001}), 1));
    EXPECT_TRUE(mempool::is_alignment(nullptr, 4096));
    void* const p = bg::mem::aligned_malloc(100, 256);
    EXPECT_TRUE(bg::mem::is_aligned(p, 256));
    bg::mem::aligned_free(p);
    bg::mem::aligned_free(nullptr);
    EXPECT_EQ(bg::mem::aligned_malloc(100, 3), nullptr);
}

TEST_F(MempoolTest, NoBufferHasTwoOwnersAtATime) {
    constexpr int kThreads = 4;
    constexpr int kRounds = 5000;
    std::atomic<int> overwritten{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t, &overwritten] {
            std::vector<unsigned char*> held;
            const auto mark = static_cast<unsigned char>(t + 1);
            const auto let_go = [&] {
                overwritten += held.front()[0] == mark && held.front()[63] == mark ? 0 : 1;
                mempool::free(held.front());
                held.erase(held.begin());
            };
            for (int i = 0; i < kRounds; ++i) {
                const unsigned size = 64U << (i % 3);
                auto* const p = static_cast<unsigned char*>(mempool::malloc(size, 16));
                std::memset(p, mark, 64);
                held.push_back(p);
                if (held.size() > 5) {
                    let_go();
                }
                if (i % 512 == 0) {
                    (void)mempool::collection(static_cast<unsigned>(t % 2));
                }
            }
            while (!held.empty()) {
                let_go();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(overwritten.load(), 0);
    // At most what was held at once, plus one in flight per thread.
    EXPECT_LE(mempool::collection(0), static_cast<unsigned>(kThreads * (5 + 1) * 3));
}

TEST_F(MempoolTest, ABufferFreedByAnotherThreadComesBack) {
    void* const p = mempool::malloc(9000, 16);
    std::thread([p] { mempool::free(p); }).join();
    EXPECT_EQ(mempool::malloc(9000, 16), p);
    mempool::free(p);
}

// A static object that was made before the pool and outlives it in the order of destruction.
struct LateUser {
    ~LateUser() {
        if (buffer != nullptr) {
            mempool::free(buffer);
        }
    }

    void* buffer = nullptr;
} g_late_user;

TEST_F(MempoolTest, TakesBuffersBackAfterMain) {
    g_late_user.buffer = mempool::malloc(777, 16);
    EXPECT_NE(g_late_user.buffer, nullptr);
}

#if defined(__SANITIZE_ADDRESS__)
#define FW_TEST_WITH_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define FW_TEST_WITH_ASAN 1
#endif
#endif

#ifdef FW_TEST_WITH_ASAN
TEST_F(MempoolTest, AddressSanitizerSeesUseAfterReturn) {
    auto* const p = static_cast<volatile char*>(mempool::malloc(512, 16));
    mempool::free(const_cast<char*>(p));
    EXPECT_DEATH(p[100] = 1, "use-after-poison");
}
#endif

}  // namespace
