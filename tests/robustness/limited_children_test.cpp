#include "tests/robustness/limited_children.h"

#include "tests/robustness/sanitizer_hooks.h"
#include "tests/robustness/sanitizer_report.h"
#include "tests/support/media.h"
#include "tests/support/temp_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

using fw_test::ChildEnd;
using fw_test::ChildLimits;
using fw_test::Ending;
using fw_test::LimitedChildren;
using fw_test::TempFile;

class LimitedChildrenTest : public ::testing::Test {
protected:
    ChildEnd run(const std::function<int()>& body, const ChildLimits& limits = {},
                 const std::function<int()>& steps = nullptr) {
        LimitedChildren children(1);
        ChildEnd last;
        children.start(0, limits, output.path(), body, steps);
        children.wait_for_all([&](const ChildEnd& end) { last = end; });
        return last;
    }

    const TempFile output{"printed.txt"};
};

}  // namespace

TEST_F(LimitedChildrenTest, TellsACleanEndFromAComplaint) {
    EXPECT_EQ(run([] { return 0; }).ending, Ending::Clean);
    const ChildEnd end = run([] { return 5; });
    EXPECT_EQ(end.ending, Ending::Complaint);
    EXPECT_EQ(end.status, 5);
}

TEST_F(LimitedChildrenTest, NoticesASignal) {
    const ChildEnd end = run([] {
        (void)std::raise(SIGKILL);
        return 0;
    });
    EXPECT_EQ(end.ending, Ending::Signal);
    EXPECT_EQ(end.status, SIGKILL);
}

TEST_F(LimitedChildrenTest, EndsOneThatGoesOnForEver) {
    ChildLimits limits;
    limits.step_seconds = 0.2;
    const ChildEnd end = run(
        [] {
            for (volatile int i = 0; i >= 0; i = i % 2 + 1) {
            }
            return 0;
        },
        limits);
    EXPECT_EQ(end.ending, Ending::TooLong);
    EXPECT_GE(end.cpu_seconds, 0.2);
}

TEST_F(LimitedChildrenTest, LetsOneGoOnThatTakesSteps) {
    ChildLimits limits;
    limits.step_seconds = 0.3;
    int step = 0;  // as this process sees the child: twenty steps, and then no more
    const ChildEnd end = run(
        [] {
            for (volatile int i = 0; i >= 0; i = i % 2 + 1) {
            }
            return 0;
        },
        limits, [&] { return step = std::min(step + 1, 20); });
    EXPECT_EQ(end.ending, Ending::TooLong);
    EXPECT_EQ(step, 20);
    EXPECT_GE(end.cpu_seconds, 0.3);
}

TEST_F(LimitedChildrenTest, EndsOneThatGrows) {
    ChildLimits limits;
    limits.memory_mb = 300;
    const ChildEnd end = run(
        [] {
            std::vector<std::unique_ptr<char[]>> blocks;
            while (blocks.size() < 100000) {  // far more than there is
                blocks.push_back(std::make_unique<char[]>(1000000));
                std::memset(blocks.back().get(), 1, 1000000);
            }
            return 0;
        },
        limits);
    EXPECT_EQ(end.ending, Ending::TooLarge);
}

TEST_F(LimitedChildrenTest, KeepsWhatAChildPrints) {
    (void)run([] {
        (void)std::fputs("on one stream\n", stdout);
        (void)std::fflush(stdout);
        (void)std::fputs("on the other\n", stderr);
        return 0;
    });
    EXPECT_EQ(fw_test::read_file(output.path()), "on one stream\non the other\n");
}

TEST_F(LimitedChildrenTest, RunsSeveralAtATimeAndTellsThemApart) {
    LimitedChildren children(3);
    std::vector<int> statuses;
    const auto on_end = [&](const ChildEnd& end) { statuses.push_back(end.status); };
    for (int i = 0; i < 10; ++i) {
        children.start(children.free_slot(on_end), {}, "", [i] { return i; });
    }
    children.wait_for_all(on_end);
    std::sort(statuses.begin(), statuses.end());
    EXPECT_EQ(statuses, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

#ifdef FW_HAS_ADDRESS_SANITIZER

namespace {

void* volatile g_lost = nullptr;

}  // namespace

TEST_F(LimitedChildrenTest, FindsALeak) {
    const auto leak = [] {
        g_lost = std::malloc(1234);
        g_lost = nullptr;
        return fw_test::has_leaks() ? 23 : 0;
    };
    EXPECT_EQ(run([] { return fw_test::has_leaks() ? 23 : 0; }).status, 0);
    EXPECT_EQ(run(leak).status, 23);
    EXPECT_NE(fw_test::headline_of_report(fw_test::read_file(output.path())).find("LeakSanitizer"),
              std::string::npos);
}

TEST_F(LimitedChildrenTest, ReportsAnOverrun) {
    const ChildEnd end = run([] {
        auto* const bytes = static_cast<char*>(std::malloc(10));
        g_lost = bytes;
        static_cast<volatile char*>(g_lost)[10] = 1;
        std::free(bytes);
        return 0;
    });
    EXPECT_NE(end.ending, Ending::Clean);
    EXPECT_NE(
        fw_test::headline_of_report(fw_test::read_file(output.path())).find("heap-buffer-overflow"),
        std::string::npos);
}

#endif
