#include "tests/robustness/soak_memory.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace {

using fw_test::SoakMemory;
using Megabytes = std::function<double(int round)>;

SoakMemory soak_of(int rounds, const Megabytes& quiet, const Megabytes& allocated) {
    SoakMemory memory;
    for (int round = 0; round < rounds; ++round) {
        memory.add_busy(140);
        memory.add_busy(160);
        memory.end_round(quiet(round), allocated(round));
    }
    return memory;
}

double same(int /*round*/) {
    return 100;
}

}  // namespace

TEST(SoakMemoryTest, TakesWhatStaysTheSame) {
    EXPECT_EQ(soak_of(100, same, same).complaint(), "");
}

TEST(SoakMemoryTest, TakesWhatGrowsInTheFirstTwentiethOnly) {
    const auto warming = [](int round) { return round < 5 ? 60 + round * 8 : 100; };
    EXPECT_EQ(soak_of(100, warming, warming).complaint(), "");
}

TEST(SoakMemoryTest, TakesWhatGoesUpAndDown) {
    const auto wave = [](int round) { return round % 2 == 0 ? 90 : 110; };
    EXPECT_EQ(soak_of(200, wave, wave).complaint(), "");
}

TEST(SoakMemoryTest, RefusesASteadyGrowth) {
    const auto leak = [](int round) { return 100 + round * 0.08; };  // 8 % in all
    EXPECT_EQ(soak_of(100, leak, same).complaint(),
              "quiet memory grew from 100.56 MB to 105.96 MB in tenth 8");
    const auto slow = [](int round) { return 100 + round * 0.02; };
    EXPECT_EQ(soak_of(100, slow, slow).complaint(),
              "allocated memory grew from 100.14 MB to 101.29 MB in tenth 7");
}

TEST(SoakMemoryTest, RefusesATenthThatIsTooLargeThoughTheLastOneIsNot) {
    const auto hump = [](int round) { return round / 10 == 4 ? 106 : 100; };
    EXPECT_EQ(soak_of(100, hump, same).complaint(),
              "quiet memory grew from 100.00 MB to 106.00 MB in tenth 5");
}

TEST(SoakMemoryTest, DoesNotJudgeAFewRounds) {
    const auto leak = [](int round) { return 100 + round * 10; };
    EXPECT_EQ(soak_of(19, leak, leak).complaint(), "");
    EXPECT_NE(soak_of(20, leak, leak).complaint(), "");
}

TEST(SoakMemoryTest, ListsTheTenths) {
    const SoakMemory memory = soak_of(100, same, same);
    ASSERT_EQ(memory.table().size(), 10U);
    EXPECT_EQ(memory.table()[9],
              "10. tenth: quiet 100.00 MB, allocated 100.00 MB, busy 150.00 MB, at most 160.00 MB");
    EXPECT_EQ(memory.now(),
              "quiet 100.00 MB, allocated 100.00 MB, busy 150.00 MB, at most 160.00 MB");
}
