#include "cancel_flag.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

namespace {

/// More than one block of the store holds.
constexpr int kMany = 600;

/// A flag that is given back at the end of the scope.
class LentFlag {
public:
    LentFlag() = default;
    LentFlag(const LentFlag&) = delete;
    LentFlag& operator=(const LentFlag&) = delete;

    ~LentFlag() { ff::give_back_cancel_flag(m_flag); }

    std::atomic<bool>* get() const { return m_flag; }

private:
    std::atomic<bool>* const m_flag = ff::take_cancel_flag();
};

}  // namespace

TEST(CancelFlagTest, LendsFlagsThatAreNotSet) {
    const LentFlag flag;
    ASSERT_NE(flag.get(), nullptr);
    EXPECT_FALSE(flag.get()->load());
}

TEST(CancelFlagTest, LendsEachFlagToOneAtATime) {
    std::set<const std::atomic<bool>*> flags;
    const std::vector<LentFlag> lent(kMany);
    for (const LentFlag& flag : lent) {
        flags.insert(flag.get());
    }
    EXPECT_EQ(flags.size(), lent.size());
}

TEST(CancelFlagTest, LendsAFlagAgainAfterItWasGivenBackAndClearsIt) {
    std::atomic<bool>* const first = ff::take_cancel_flag();
    first->store(true);
    ff::give_back_cancel_flag(first);
    const LentFlag again;
    EXPECT_EQ(again.get(), first);
    EXPECT_FALSE(again.get()->load());
}

TEST(CancelFlagTest, KnowsItsFlagsWhileTheyAreLentAndAfterwards) {
    std::vector<const std::atomic<bool>*> flags;
    {
        const std::vector<LentFlag> lent(kMany);
        for (const LentFlag& flag : lent) {
            flags.push_back(flag.get());
            EXPECT_TRUE(ff::is_cancel_flag(flag.get()));
        }
    }
    for (const std::atomic<bool>* const flag : flags) {
        EXPECT_TRUE(ff::is_cancel_flag(flag));
    }
}

TEST(CancelFlagTest, DoesNotTakeAHostsFlagForItsOwn) {
    const LentFlag lent;
    const std::atomic<bool> on_stack{false};
    static const std::atomic<bool> s_static{false};
    const std::vector<std::atomic<bool>> on_heap(kMany);
    EXPECT_FALSE(ff::is_cancel_flag(&on_stack));
    EXPECT_FALSE(ff::is_cancel_flag(&s_static));
    for (const std::atomic<bool>& flag : on_heap) {
        EXPECT_FALSE(ff::is_cancel_flag(&flag));
    }
    EXPECT_FALSE(ff::is_cancel_flag(nullptr));
}

TEST(CancelFlagTest, FillsAnEmptySlotWithTheOwnFlag) {
    const LentFlag own;
    std::atomic<bool>* slot = nullptr;
    EXPECT_EQ(ff::claim_abort_flag(slot, own.get()), own.get());
    EXPECT_EQ(slot, own.get());
    EXPECT_EQ(ff::claim_abort_flag(slot, own.get()), own.get());
    EXPECT_EQ(slot, own.get());
}

TEST(CancelFlagTest, LeavesAHostsFlagInTheSlot) {
    const LentFlag own;
    std::atomic<bool> hosts{true};
    std::atomic<bool>* slot = &hosts;
    EXPECT_EQ(ff::claim_abort_flag(slot, own.get()), &hosts);
    EXPECT_EQ(slot, &hosts);
    EXPECT_TRUE(hosts.load());
}

TEST(CancelFlagTest, ReplacesAFlagThatWasLentToAnother) {
    const LentFlag own;
    const LentFlag other;
    other.get()->store(true);
    std::atomic<bool>* slot = other.get();
    EXPECT_EQ(ff::claim_abort_flag(slot, own.get()), own.get());
    EXPECT_EQ(slot, own.get());
}

TEST(CancelFlagTest, ReplacesAFlagThatWasGivenBack) {
    const LentFlag own;
    std::atomic<bool>* slot = ff::take_cancel_flag();
    ff::give_back_cancel_flag(slot);
    EXPECT_EQ(ff::claim_abort_flag(slot, own.get()), own.get());
    EXPECT_EQ(slot, own.get());
}

TEST(CancelFlagTest, LetsThreadsClaimOneSlotAtTheSameTime) {
    std::atomic<bool>* slot = nullptr;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&slot] {
            const LentFlag own;
            for (int round = 0; round < 1000; ++round) {
                EXPECT_EQ(ff::claim_abort_flag(slot, own.get()), own.get());
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_TRUE(ff::is_cancel_flag(slot));
}
