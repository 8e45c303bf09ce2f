#include "tests/robustness/hang_watch.h"

#include "tests/support/processor.h"

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

namespace {

using fw_test::HangWatch;

}  // namespace

TEST(HangWatchTest, LetsStepsComeAndGo) {
    HangWatch watch(std::chrono::seconds(600), 2);
    for (int i = 0; i < 1000; ++i) {
        const HangWatch::Step first(&watch, 0, "first");
        const HangWatch::Step second(&watch, 1, "second");
    }
}

TEST(HangWatchTest, EndsTheProcessAndSaysWhatAllThreadsDid) {
    if (fw_test::kEmulated) {
        GTEST_SKIP() << fw_test::kCannotStartAnew;
    }
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH(
        {
            HangWatch watch(std::chrono::seconds(0), 2);
            const HangWatch::Step step(&watch, 1, "a step that stays");
            for (;;) {
                std::this_thread::sleep_for(std::chrono::seconds(1));
            }
        },
        "has not ended after 0 s(.|\n)*0: idle(.|\n)*1: a step that stays");
}
