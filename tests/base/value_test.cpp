#include <framewell/base/value.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace {

using mox::Value;
using mox::ValueArray;
using mox::ValueMap;

constexpr long long kMax = std::numeric_limits<long long>::max();
constexpr long long kMin = std::numeric_limits<long long>::min();

Value list_of_three() {
    std::list<Value> items;
    items.push_back(Value::integer(1));
    items.push_back(Value::string("two"));
    items.push_back(Value::number(3.5));
    return Value::list(std::move(items));
}

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

TEST(ValueTest, HoldsDeepTrees) {
    Value tree = Value::integer(1);
    for (int level = 0; level < 1000; ++level) {
        std::list<Value> items;
        items.push_back(std::move(tree));
        tree = Value::list(std::move(items));
    }
    const Value copy = tree;
    tree.reset();
    const Value* leaf = &copy;
    while (leaf->array() != nullptr) {
        leaf = &leaf->array()->at(0);
    }
    EXPECT_EQ(leaf->asInteger(), 1);
}

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

TEST(ValueArrayTest, KeepsTheOrderOfItsElements) {
    ValueArray array;
    array.append(Value::integer(3));
    array.append(Value::integer(1));
    EXPECT_EQ(array.at(0).asInteger(), 3);
    EXPECT_EQ(array.at(1).asInteger(), 1);
    EXPECT_EQ(&array.at(2), &Value::m_invalid);
    array.append(array.at(0));
    EXPECT_EQ(array.at(2).asInteger(), 3);
}

TEST(ValueArrayTest, ClonesDeep) {
    ValueArray array;
    array.append(Value::string("text"));
    const mox::MultiValues& base = array;
    const std::unique_ptr<mox::MultiValues> clone(base.clone());
    array.items().clear();
    const auto* const copy = dynamic_cast<const ValueArray*>(clone.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->at(0).text(), "text");
}

TEST(ValueMapTest, InsertsADeepCopy) {
    ValueMap map;
    Value value = Value::string("text");
    EXPECT_TRUE(map.insert_data("k", value, false));
    value.fastSet("changed");
    EXPECT_EQ(map.at("k").text(), "text");
    EXPECT_EQ(&map.at("missing"), &Value::m_invalid);
}

TEST(ValueMapTest, KeepsTheOldValueUnlessTold) {
    ValueMap map;
    map.insert_data("k", Value::integer(1), false);
    EXPECT_FALSE(map.insert_data("k", Value::integer(2), false));
    EXPECT_EQ(map.at("k").asInteger(), 1);
    EXPECT_TRUE(map.insert_data("k", Value::integer(2), true));
    EXPECT_EQ(map.at("k").asInteger(), 2);
}

TEST(ValueMapTest, OverwritingWithTheStoredValueChangesNothing) {
    ValueMap map;
    map.insert_data("k", Value::string("text"), false);
    const char* const data = map.at("k").data();
    EXPECT_TRUE(map.insert_data("k", map.at("k"), true));
    EXPECT_EQ(map.at("k").data(), data);
}

TEST(ValueMapTest, OverwritesAValueWithAPartOfIt) {
    ValueMap map;
    map.insert_data("k", list_of_three(), false);
    EXPECT_TRUE(map.insert_data("k", map.at("k").array()->at(1), true));
    EXPECT_EQ(map.at("k").text(), "two");
}

TEST(ValueMapTest, RefusesANullKey) {
    ValueMap map;
    EXPECT_FALSE(map.insert_data(nullptr, Value::integer(1), true));
    EXPECT_TRUE(map.items().empty());
    EXPECT_TRUE(map.at(nullptr).isNull());
}

TEST(ValueMapTest, SortsKeysByTheirBytes) {
    ValueMap map;
    for (const char* const key : {"b", "\xC3\xA4", "a", "B", ""}) {
        map.insert_data(key, Value::integer(1), false);
    }
    std::string order;
    for (const auto& entry : map.items()) {
        order += entry.first + ",";
    }
    EXPECT_EQ(order, ",B,a,b,\xC3\xA4,");
}

TEST(ValueMapTest, ClonesDeep) {
    ValueMap map;
    map.insert_data("k", Value::string("text"), false);
    const mox::MultiValues& base = map;
    const std::unique_ptr<mox::MultiValues> clone(base.clone());
    map.items().clear();
    const auto* const copy = dynamic_cast<const ValueMap*>(clone.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->at("k").text(), "text");
}

}  // namespace
