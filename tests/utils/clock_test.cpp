#include <framewell/utils/clock.h>

#include <gtest/gtest.h>

#include <time.h>

#include <thread>
#include <vector>

namespace {

namespace clk = bg::time;

TEST(ClockTest, StoresWhatItIsAskedForAndReturnsTheFinestPart) {
    long long sec = -1;
    long long nsec = -1;
    const long long of_both = clk::cpu_pts(&sec, &nsec);
    EXPECT_EQ(of_both, nsec);
    EXPECT_GE(nsec, 0);
    EXPECT_LT(nsec, 1000000000);
    EXPECT_GT(sec, 0);

    long long only = -1;
    const long long of_seconds = clk::cpu_pts(&only, nullptr);
    EXPECT_EQ(of_seconds, only);
    EXPECT_GE(only, sec);
    only = -1;
    const long long of_nanoseconds = clk::cpu_pts(nullptr, &only);
    EXPECT_EQ(of_nanoseconds, only);
    EXPECT_EQ(clk::cpu_pts(nullptr, nullptr), 0);
}

TEST(ClockTest, LooksLikeTheTimeOfDay) {
    long long sec = 0;
    (void)clk::cpu_pts(&sec, nullptr);
    // An hour, since only the epoch is to be recognised, and the wall clock may be set meanwhile.
    EXPECT_NEAR(static_cast<double>(sec), static_cast<double>(::time(nullptr)), 3600.0);
}

TEST(ClockTest, AllUnitsCutTheSameTime) {
    for (int i = 0; i < 1000; ++i) {
        const long long first = clk::cpu_nano_pts();
        const long long usec = clk::cpu_usec_pts();
        const long long msec = clk::cpu_msec_pts();
        long long sec = 0;
        (void)clk::cpu_pts(&sec, nullptr);
        const long long last = clk::cpu_nano_pts();
        EXPECT_LE(first / 1000, usec);
        EXPECT_LE(usec, last / 1000);
        EXPECT_LE(first / 1000000, msec);
        EXPECT_LE(msec, last / 1000000);
        EXPECT_LE(first / 1000000000, sec);
        EXPECT_LE(sec, last / 1000000000);
    }
}

TEST(ClockTest, NeverGoesBackOnAnyThread) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            long long before = clk::cpu_nano_pts();
            for (int i = 0; i < 20000; ++i) {
                const long long now = clk::cpu_nano_pts();
                ASSERT_GE(now, before);
                before = now;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

}  // namespace
