#include "tests/support/temp_file.h"
#include "tests/support/values.h"

#include <framewell/base/value.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using fw_test::list_of_three;
using mox::Value;
using mox::ValueArray;
using mox::ValueMap;

constexpr long long kMax = std::numeric_limits<long long>::max();
constexpr long long kMin = std::numeric_limits<long long>::min();

void expect_list_of_three(const Value& value) {
    ASSERT_NE(value.array(), nullptr);
    ASSERT_EQ(value.array()->items().size(), 3U);
    EXPECT_EQ(value.array()->at(0).asInteger(), 1);
    EXPECT_EQ(value.array()->at(1).text(), "two");
    EXPECT_EQ(value.array()->at(2).asNumber(), 3.5);
}

TEST(ValueTest, BeginsAsNull) {
    const Value value;
    EXPECT_EQ(value.type(), mox::T_NULL);
    EXPECT_TRUE(value.isNull());
    EXPECT_EQ(value.data(), nullptr);
    EXPECT_EQ(value.length(), 0);
}

TEST(ValueTest, NumbersItsTypesAsTheTextFormsNeed) {
    EXPECT_EQ(Value().type(), 0);
    EXPECT_EQ(Value::boolean(true).type(), 1);
    EXPECT_EQ(Value::integer(1).type(), 2);
    EXPECT_EQ(Value::number(1).type(), 3);
    EXPECT_EQ(Value::string("s").type(), 4);
    EXPECT_EQ(Value::map({}).type(), 5);
    EXPECT_EQ(Value::list({}).type(), 6);
    EXPECT_EQ(Value::int2(1, 2).type(), 7);
    EXPECT_EQ(Value::int4(1, 2, 3, 4).type(), 8);
    EXPECT_EQ(Value::double2(1, 2).type(), 9);
    EXPECT_EQ(Value::double4(1, 2, 3, 4).type(), 10);
    EXPECT_EQ(Value::pointer(nullptr).type(), 11);
    EXPECT_EQ(Value::borrowed(nullptr, 0).type(), 12);
    EXPECT_EQ(Value::error(1, "e").type(), 99);
}

TEST(ValueTest, GivesBackTheScalarsThatItHolds) {
    int target = 0;
    EXPECT_TRUE(Value::boolean(true).asBool());
    EXPECT_FALSE(Value::boolean(false).asBool(true));
    EXPECT_EQ(Value::integer(kMin).asInteger(), kMin);
    EXPECT_EQ(Value::number(-0.25).asNumber(), -0.25);
    EXPECT_EQ(Value::pointer(&target).asPointer(), &target);
    EXPECT_EQ(Value::error(-5, "e").errorCode(), -5);
}

TEST(ValueTest, GivesBackTheVectorsThatItHolds) {
    const Value int2 = Value::int2(-1, 2);
    ASSERT_NE(int2.asInt2(), nullptr);
    EXPECT_EQ(int2.asInt2()[0], -1);
    EXPECT_EQ(int2.asInt2()[1], 2);
    const Value int4 = Value::int4(1, 2, 3, -4);
    ASSERT_NE(int4.asInt4(), nullptr);
    EXPECT_EQ(int4.asInt4()[3], -4);
    const Value double2 = Value::double2(0.5, 1.5);
    ASSERT_NE(double2.asDouble2(), nullptr);
    EXPECT_EQ(double2.asDouble2()[1], 1.5);
    const Value double4 = Value::double4(1, 2, 3, 4.5);
    ASSERT_NE(double4.asDouble4(), nullptr);
    EXPECT_EQ(double4.asDouble4()[3], 4.5);
}

TEST(ValueTest, GivesTheFallbackForAnotherType) {
    int target = 0;
    const Value value = Value::string("1");
    EXPECT_TRUE(value.asBool(true));
    EXPECT_EQ(value.asInteger(7), 7);
    EXPECT_EQ(value.asNumber(0.5), 0.5);
    EXPECT_EQ(value.asPointer(&target), &target);
    EXPECT_EQ(value.errorCode(9), 9);
    EXPECT_EQ(value.asInt2(), nullptr);
    EXPECT_EQ(value.asInt4(), nullptr);
    EXPECT_EQ(value.asDouble2(), nullptr);
    EXPECT_EQ(value.asDouble4(), nullptr);
    EXPECT_EQ(value.array(), nullptr);
    EXPECT_EQ(value.map(), nullptr);
    EXPECT_EQ(Value::integer(1).text(), "");
    EXPECT_EQ(Value::int4(1, 2, 3, 4).asInt2(), nullptr);
}

TEST(ValueTest, FastSetStoresATextWithANul) {
    Value value;
    EXPECT_TRUE(value.fastSet("a"));
    EXPECT_EQ(value.type(), mox::T_STRING);
    EXPECT_EQ(value.length(), 1);
    EXPECT_STREQ(value.data(), "a");
}

TEST(ValueTest, FastSetOfAnEmptyTextLeavesNull) {
    Value value = Value::integer(3);
    EXPECT_FALSE(value.fastSet(""));
    EXPECT_TRUE(value.isNull());
    EXPECT_EQ(value.data(), nullptr);
    EXPECT_EQ(value.length(), 0);
}

TEST(ValueTest, FastSetOfNullLeavesNull) {
    Value value = Value::string("x");
    EXPECT_FALSE(value.fastSet(nullptr));
    EXPECT_TRUE(value.isNull());
}

TEST(ValueTest, FastSetTakesItsOwnText) {
    Value value = Value::string("some text that is longer than a short one");
    EXPECT_TRUE(value.fastSet(value.data() + 5));
    EXPECT_EQ(value.text(), "text that is longer than a short one");
    EXPECT_TRUE(value.fastSet(value.data()));
    EXPECT_EQ(value.text(), "text that is longer than a short one");
}

TEST(ValueTest, FastSetReplacesAContainer) {
    Value value = list_of_three();
    EXPECT_TRUE(value.fastSet(value.array()->at(1).data()));
    EXPECT_EQ(value.text(), "two");
}

TEST(ValueTest, StringKeepsNulsInside) {
    const Value value = Value::string(std::string("a\0b", 3));
    EXPECT_EQ(value.length(), 3);
    EXPECT_EQ(value.text(), std::string("a\0b", 3));
    EXPECT_EQ(value.data()[3], '\0');
    EXPECT_TRUE(Value::string("").isNull());
}

TEST(ValueTest, StringRefusesATextThatIsTooLong) {
    // Only the length is looked at before the refusal.
    const char text[] = "x";
    EXPECT_TRUE(Value::string(std::string_view(text, std::size_t{1} << 31)).isNull());
    EXPECT_TRUE(Value::string(std::string_view(text, std::size_t{1} << 32)).isNull());
}

TEST(ValueTest, ErrorMayHaveNoMessage) {
    const Value value = Value::error(-22, "");
    EXPECT_EQ(value.type(), mox::T_ERROR);
    EXPECT_EQ(value.errorCode(), -22);
    EXPECT_EQ(value.text(), "");
    EXPECT_EQ(value.data(), nullptr);
    const Value copy = value;
    EXPECT_EQ(copy.errorCode(), -22);
}

TEST(ValueTest, CopiesEveryScalarAndVector) {
    int target = 0;
    EXPECT_TRUE(Value(Value()).isNull());
    const Value flag = Value::boolean(true);
    EXPECT_TRUE(Value(flag).asBool());
    const Value integer = Value::integer(kMax);
    EXPECT_EQ(Value(integer).asInteger(), kMax);
    const Value number = Value::number(2.5);
    EXPECT_EQ(Value(number).asNumber(), 2.5);
    const Value numbers = Value::double4(1, 2, 3, 4);
    const Value numbers_copy(numbers);
    EXPECT_EQ(std::memcmp(numbers_copy.asDouble4(), numbers.asDouble4(), 32), 0);
    const Value pointer = Value::pointer(&target);
    EXPECT_EQ(Value(pointer).asPointer(), &target);
    const Value error = Value::error(3, "message");
    const Value error_copy(error);
    EXPECT_EQ(error_copy.errorCode(), 3);
    EXPECT_EQ(error_copy.text(), "message");
    EXPECT_NE(error_copy.data(), error.data());
}

TEST(ValueTest, CopiesATextIntoABufferOfItsOwn) {
    auto source = std::make_unique<Value>(Value::string("text"));
    const Value copy = *source;
    EXPECT_NE(copy.data(), source->data());
    source.reset();
    EXPECT_EQ(copy.text(), "text");
    EXPECT_EQ(copy.data()[copy.length()], '\0');
}

TEST(ValueTest, SharesABorrowedBuffer) {
    char buffer[] = "borrowed";  // freeing it would end the program
    {
        const Value value = Value::borrowed(buffer, 8);
        const Value copy = value;
        EXPECT_EQ(copy.type(), mox::T_PTR);
        EXPECT_EQ(copy.data(), buffer);
        EXPECT_EQ(copy.length(), 8);
        EXPECT_EQ(copy.text(), "");
    }
    EXPECT_STREQ(buffer, "borrowed");
}

TEST(ValueTest, CopiesAnEmptyBorrowedBufferAsNoBuffer) {
    char buffer[] = "b";
    const Value value = Value::borrowed(buffer, 0);
    const Value copy = value;
    EXPECT_EQ(copy.type(), mox::T_PTR);
    EXPECT_EQ(copy.data(), nullptr);
    EXPECT_EQ(copy.length(), 0);
}

TEST(ValueTest, CopiesAListDeepAndInOrder) {
    auto source = std::make_unique<Value>(list_of_three());
    const Value copy = *source;
    EXPECT_NE(copy.array(), source->array());
    source->array()->items().front() = Value::integer(99);
    source.reset();
    expect_list_of_three(copy);
}

TEST(ValueTest, CopiesAMapDeep) {
    std::map<std::string, Value> items;
    items["b"] = Value::integer(2);
    items["a"] = list_of_three();
    auto source = std::make_unique<Value>(Value::map(std::move(items)));
    const Value copy = *source;
    source.reset();
    ASSERT_NE(copy.map(), nullptr);
    EXPECT_EQ(copy.map()->items().size(), 2U);
    EXPECT_EQ(copy.map()->at("b").asInteger(), 2);
    expect_list_of_three(copy.map()->at("a"));
}

TEST(ValueTest, CopyingOntoItselfChangesNothing) {
    Value value = Value::string("text");
    const char* const data = value.data();
    value.copyValue(&value);
    EXPECT_EQ(value.data(), data);
    const Value& same = value;
    value = same;
    EXPECT_EQ(value.data(), data);
    EXPECT_EQ(value.text(), "text");
}

TEST(ValueTest, CopyingNothingGivesNull) {
    Value value = Value::string("text");
    value.copyValue(nullptr);
    EXPECT_TRUE(value.isNull());
}

TEST(ValueTest, BecomesACopyOfAPartOfItself) {
    std::list<Value> outer;
    outer.push_back(list_of_three());
    Value value = Value::list(std::move(outer));
    value.copyValue(&value.array()->at(0));
    expect_list_of_three(value);
    value = value.array()->at(1);
    EXPECT_EQ(value.text(), "two");
}

TEST(ValueTest, TakesOverAPartOfItself) {
    std::list<Value> outer;
    outer.push_back(list_of_three());
    Value value = Value::list(std::move(outer));
    value = std::move(value.array()->items().front());
    expect_list_of_three(value);
    value.setArray(std::move(value.array()->items()));
    expect_list_of_three(value);
}

TEST(ValueTest, AssignmentReplacesWhatWasThere) {
    Value value = list_of_three();
    const Value text = Value::string("text");
    value = text;
    EXPECT_EQ(value.text(), "text");
    value = Value::integer(5);
    EXPECT_EQ(value.asInteger(), 5);
    EXPECT_EQ(value.data(), nullptr);
}

TEST(ValueTest, MovingLeavesNullBehind) {
    Value source = Value::string("text");
    const char* const data = source.data();
    const Value target(std::move(source));
    EXPECT_EQ(target.data(), data);
    EXPECT_EQ(target.text(), "text");
    EXPECT_TRUE(source.isNull());  // NOLINT(bugprone-use-after-move): what is left is promised
    EXPECT_EQ(source.data(), nullptr);
    EXPECT_EQ(source.length(), 0);
}

TEST(ValueTest, MoveAssignmentToItselfChangesNothing) {
    Value value = Value::string("text");
    Value& same = value;
    value = std::move(same);
    EXPECT_EQ(value.text(), "text");
}

TEST(ValueTest, SetArrayTakesTheNodesOver) {
    std::list<Value> items;
    items.push_back(Value::string("text"));
    const Value* const node = &items.front();
    Value value = Value::string("before");
    value.setArray(std::move(items));
    EXPECT_TRUE(items.empty());  // NOLINT(bugprone-use-after-move): what is left is promised
    ASSERT_NE(value.array(), nullptr);
    EXPECT_EQ(&value.array()->at(0), node);
}

TEST(ValueTest, SetMapTakesTheEntriesOver) {
    std::map<std::string, Value> items;
    items["k"] = Value::integer(1);
    Value value = Value::string("before");
    value.setMap(std::move(items));
    EXPECT_TRUE(items.empty());  // NOLINT(bugprone-use-after-move): what is left is promised
    EXPECT_EQ(value.map()->at("k").asInteger(), 1);
}

TEST(ValueTest, ResetGivesNullAndMayBeRepeated) {
    Value value = list_of_three();
    value.reset();
    value.reset();
    EXPECT_TRUE(value.isNull());
    EXPECT_EQ(value.array(), nullptr);
    value = Value::integer(8);
    value.reset();
    EXPECT_EQ(value.asInteger(-1), -1);
}

TEST(ValueTest, HasASharedNullToReferTo) {
    EXPECT_TRUE(Value::m_invalid.isNull());
}

// Its constructor and destructor run outside of main(), where nothing may rely on the order of
// static objects.
struct UserOfTheSharedNull {
    UserOfTheSharedNull() : null_at_start(Value::m_invalid.isNull()) {}

    ~UserOfTheSharedNull() {
        if (!Value::m_invalid.isNull()) {
            std::abort();
        }
    }

    const bool null_at_start;
};

const UserOfTheSharedNull g_user_of_the_shared_null;

TEST(ValueTest, HasASharedNullBeforeAndAfterMain) {
    EXPECT_TRUE(g_user_of_the_shared_null.null_at_start);
    EXPECT_TRUE(Value(Value::m_invalid).isNull());
    EXPECT_EQ(Value::m_invalid.write(), "<null>");
}

TEST(ValueTest, MovingTakesContainersAlong) {
    Value source = list_of_three();
    const ValueArray* const array = source.array();
    Value target(std::move(source));
    EXPECT_EQ(target.array(), array);
    EXPECT_TRUE(source.isNull());  // NOLINT(bugprone-use-after-move): what is left is promised
    Value map = Value::map({{"k", Value::integer(1)}});
    const ValueMap* const entries = map.map();
    target = std::move(map);
    EXPECT_EQ(target.map(), entries);
    EXPECT_TRUE(map.isNull());  // NOLINT(bugprone-use-after-move): what is left is promised
}

TEST(ValueTest, MovingTakesEveryTypeAlong) {
    char buffer[] = "borrowed";
    for (const Value& value :
         {Value(), Value::boolean(true), Value::integer(kMin), Value::number(0.5),
          Value::string("text"), Value::int2(1, 2), Value::int4(1, 2, 3, 4), Value::double2(1, 2),
          Value::double4(1, 2, 3, 4), Value::pointer(buffer), Value::borrowed(buffer, 8),
          Value::error(-5, "message"), Value::error(-5, "")}) {
        Value source = value;
        const Value target(std::move(source));
        EXPECT_TRUE(fw_test::equal(target, value)) << value.write();
        EXPECT_TRUE(source.isNull());  // NOLINT(bugprone-use-after-move): it is promised
        EXPECT_EQ(source.asInteger(), 0);
    }
}

TEST(ValueTest, GrowingContainersMoveTheirValues) {
    static_assert(std::is_nothrow_move_constructible_v<Value>);
    std::vector<Value> values;
    values.push_back(Value::string("text"));
    const char* const data = values.front().data();
    for (int i = 0; i < 100; ++i) {
        values.emplace_back();
    }
    EXPECT_EQ(values.front().data(), data);
}

/// Whether `act` lets go of what stands in the buffer of standard error.
template <typename Act>
bool flushes_standard_error(Act act) {
    const fw_test::TempFile file("standard-error");
    static char s_buf[4096];
    (void)std::fflush(stderr);
    const int before = dup(STDERR_FILENO);
    (void)std::freopen(file.path().c_str(), "w", stderr);
    (void)std::setvbuf(stderr, s_buf, _IOFBF, sizeof s_buf);
    (void)std::fputs("buffered", stderr);
    act();
    char text[16] = {};
    std::FILE* const written = std::fopen(file.path().c_str(), "r");
    const std::size_t length = written != nullptr ? std::fread(text, 1, sizeof text, written) : 0;
    if (written != nullptr) {
        (void)std::fclose(written);
    }
    (void)std::fflush(stderr);
    (void)dup2(before, STDERR_FILENO);
    (void)close(before);
    (void)std::setvbuf(stderr, nullptr, _IONBF, 0);
    return length > 0;
}

TEST(ValueTest, CopyingMovingAndReadingFlushStandardError) {
    Value value = Value::integer(1);
    EXPECT_FALSE(flushes_standard_error([&value] { value.reset(); }));
    EXPECT_TRUE(flushes_standard_error([&value] { const Value copy(value); }));
    EXPECT_TRUE(flushes_standard_error([&value] { const Value moved(std::move(value)); }));
    ValueArray array;
    EXPECT_TRUE(flushes_standard_error([&array] { array.read("{list}[i]1`", nullptr); }));
}

#if defined(__GNUC__)
/// The place of a virtual operation in the table of its class, in the form that the C++ interface
/// of the platform uses; only distances between two of them mean the same everywhere.
template <typename Operation>
std::ptrdiff_t slot_of(Operation operation) {
    std::ptrdiff_t words[sizeof operation / sizeof(std::ptrdiff_t)] = {};
    std::memcpy(words, &operation, sizeof operation);
    return words[0] / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST(ValueTest, KeepsTheOrderOfItsVirtualOperations) {
    EXPECT_EQ(slot_of(&Value::read) - slot_of(&Value::write), 1);
    using mox::MultiValues;
    EXPECT_EQ(slot_of(&MultiValues::read) - slot_of(&MultiValues::write), 1);
    EXPECT_EQ(slot_of(&MultiValues::clone) - slot_of(&MultiValues::write), 2);
    EXPECT_EQ(slot_of(&MultiValues::readJson) - slot_of(&MultiValues::write), 3);
    EXPECT_EQ(slot_of(&MultiValues::writeJson) - slot_of(&MultiValues::write), 4);
}
#endif

struct IntegerRow {
    const char* name;
    Value value;
    long long expected;
};

constexpr long long kFallback = 77;

class ValueToIntegerTest : public testing::TestWithParam<IntegerRow> {};

TEST_P(ValueToIntegerTest, Converts) {
    EXPECT_EQ(GetParam().value.toInteger(kFallback), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ValueToIntegerTest,
    testing::Values(
        IntegerRow{"Integer", Value::integer(-8), -8},
        IntegerRow{"LargestInteger", Value::integer(kMax), kMax},
        IntegerRow{"True", Value::boolean(true), 1}, IntegerRow{"False", Value::boolean(false), 0},
        IntegerRow{"FractionIsCut", Value::number(8.9), 8},
        IntegerRow{"NegativeFractionIsCut", Value::number(-8.9), -8},
        IntegerRow{"HugeDouble", Value::number(1e30), kMax},
        IntegerRow{"TwoTo63", Value::number(9223372036854775808.0), kMax},
        IntegerRow{"MinusTwoTo63", Value::number(-9223372036854775808.0), kMin},
        IntegerRow{"HugeNegativeDouble", Value::number(-1e30), kMin},
        IntegerRow{"Infinity", Value::number(std::numeric_limits<double>::infinity()), kMax},
        IntegerRow{"MinusInfinity", Value::number(-std::numeric_limits<double>::infinity()), kMin},
        IntegerRow{"NotANumber", Value::number(std::numeric_limits<double>::quiet_NaN()),
                   kFallback},
        IntegerRow{"Text", Value::string("12"), 12},
        IntegerRow{"NegativeText", Value::string("-12"), -12},
        IntegerRow{"TextWithPlus", Value::string("+12"), 12},
        IntegerRow{"TextWithZeros", Value::string("0012"), 12},
        IntegerRow{"TextBeyondTheRange", Value::string("9223372036854775808"), kMax},
        IntegerRow{"TextBelowTheRange", Value::string("-9223372036854775809"), kMin},
        IntegerRow{"TextWithMore", Value::string("12px"), kFallback},
        IntegerRow{"TextWithBlank", Value::string(" 12"), kFallback},
        IntegerRow{"TextWithFraction", Value::string("1.5"), kFallback},
        IntegerRow{"TextOfHexDigits", Value::string("0x10"), kFallback},
        IntegerRow{"TextOfTwoSigns", Value::string("+-1"), kFallback},
        IntegerRow{"TextOfASign", Value::string("+"), kFallback},
        IntegerRow{"TextOfAMinus", Value::string("-"), kFallback},
        IntegerRow{"TextWithNul", Value::string(std::string("1\0", 2)), kFallback},
        IntegerRow{"Word", Value::string("many"), kFallback},
        IntegerRow{"Null", Value(), kFallback},
        IntegerRow{"Error", Value::error(5, "5"), kFallback},
        IntegerRow{"Vector", Value::int2(1, 2), kFallback},
        IntegerRow{"List", list_of_three(), kFallback}),
    [](const testing::TestParamInfo<IntegerRow>& row) { return row.param.name; });

}  // namespace
