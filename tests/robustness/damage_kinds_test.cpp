#include "tests/robustness/damage_kinds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <set>
#include <string>
#include <utility>

namespace {

using fw_test::damaged_copy;
using fw_test::DamageKind;
using fw_test::Random;

constexpr std::size_t kSize = 20000;

/// Bytes without repetitions, so that a block that moves shows.
std::string original() {
    Random random(99);
    std::string bytes(kSize, '\0');
    std::generate(bytes.begin(), bytes.end(), [&] { return static_cast<char>(random.bits()); });
    return bytes.replace(100, 4, "moov");
}

class DamageKindsTest : public ::testing::TestWithParam<int> {
protected:
    static DamageKind kind() { return static_cast<DamageKind>(GetParam()); }

    static std::string copy(std::string bytes, std::uint64_t seed) {
        Random random(seed);
        return damaged_copy(std::move(bytes), kind(), &random);
    }
};

}  // namespace

TEST_P(DamageKindsTest, MakesTheSameCopyOfTheSameSeed) {
    for (std::uint64_t seed = 0; seed < 20; ++seed) {
        EXPECT_EQ(copy(original(), seed), copy(original(), seed)) << seed;
    }
}

TEST_P(DamageKindsTest, MakesOtherCopiesOfOtherSeedsAndNearlyAllAreDamaged) {
    std::set<std::string> copies;
    for (std::uint64_t seed = 0; seed < 100; ++seed) {
        copies.insert(copy(original(), seed));
    }
    EXPECT_GE(copies.size(), 80U);
    copies.erase(original());
    EXPECT_GE(copies.size(), 80U);
}

TEST_P(DamageKindsTest, TakesFilesOfAnySize) {
    for (std::size_t size = 0; size < 40; ++size) {
        for (std::uint64_t seed = 0; seed < 20; ++seed) {
            (void)copy(std::string(size, 'a'), seed);
        }
    }
    EXPECT_FALSE(copy("", 1).empty() && copy("", 2).empty()) << "an empty file gets something";
}

TEST_P(DamageKindsTest, IsNamed) {
    EXPECT_STRNE(name_of(kind()), "");
}

INSTANTIATE_TEST_SUITE_P(Kinds, DamageKindsTest, ::testing::Range(0, fw_test::kDamageKinds));

TEST(DamageKindsTest, FlipsBitsOfTheHeadInTheFirstAndLast4KiBOnly) {
    const std::string bytes = original();
    for (std::uint64_t seed = 0; seed < 50; ++seed) {
        Random random(seed);
        const std::string copy = damaged_copy(bytes, DamageKind::HeadBits, &random);
        ASSERT_EQ(copy.size(), bytes.size());
        EXPECT_EQ(copy.substr(4096, kSize - 8192), bytes.substr(4096, kSize - 8192)) << seed;
        EXPECT_NE(copy, bytes) << seed;
    }
}

TEST(DamageKindsTest, CutsOnlyTheEnd) {
    const std::string bytes = original();
    for (std::uint64_t seed = 0; seed < 50; ++seed) {
        Random random(seed);
        const std::string copy = damaged_copy(bytes, DamageKind::Cut, &random);
        EXPECT_LT(copy.size(), bytes.size());
        EXPECT_EQ(copy, bytes.substr(0, copy.size()));
    }
}

TEST(DamageKindsTest, WritesNumbersNextToNames) {
    std::string bytes(kSize, '\0');
    bytes.replace(100, 4, "moov");
    int near = 0;
    for (std::uint64_t seed = 0; seed < 50; ++seed) {
        Random random(seed);
        const std::string copy = damaged_copy(bytes, DamageKind::Fields, &random);
        std::size_t first = 0;
        while (first < kSize && copy[first] == bytes[first]) {
            ++first;
        }
        near += first >= 96 && first < 130 ? 1 : 0;
    }
    EXPECT_GE(near, 15U);
}
