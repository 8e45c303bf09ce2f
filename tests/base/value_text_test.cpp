#include "tests/support/comma_locale.h"
#include "tests/support/sanitized.h"
#include "tests/support/stderr_capture.h"
#include "tests/support/values.h"

#include <framewell/base/value.h>

#include <climits>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <list>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using fw_test::Dice;
using fw_test::equal;
using fw_test::list_of;
using fw_test::StderrCapture;
using fw_test::TightText;
using mox::Value;
using mox::ValueArray;
using mox::ValueMap;

constexpr double kInfinity = std::numeric_limits<double>::infinity();

/// What became of reading a text into a value that held something else.
struct Outcome {
    Value value = Value::string("what was there before");
    int consumed = -99;
    bool good = false;
    std::string printed;
};

Outcome read(const std::string& text) {
    Outcome outcome;
    const TightText tight(text);
    StderrCapture printed;
    outcome.good = outcome.value.read(tight.get(), &outcome.consumed);
    outcome.printed = printed.text();
    return outcome;
}

char* address(std::uintptr_t number) {
    return reinterpret_cast<char*>(number);  // NOLINT(performance-no-int-to-ptr): not followed
}

std::string printed_double(double number) {
    char buf[512];
    (void)std::snprintf(buf, sizeof buf, "%lf", number);
    return buf;
}

std::string printed_pointer(void* pointer) {
    char buf[64];
    (void)std::snprintf(buf, sizeof buf, "%p", pointer);
    return buf;
}

struct WriteRow {
    const char* name;
    Value value;
    std::string text;
};

class ValueWriteTest : public testing::TestWithParam<WriteRow> {};

TEST_P(ValueWriteTest, Writes) {
    EXPECT_EQ(GetParam().value.write(), GetParam().text);
}

int g_target = 0;

INSTANTIATE_TEST_SUITE_P(
    Rows, ValueWriteTest,
    testing::Values(
        WriteRow{"Null", Value(), "<null>"}, WriteRow{"True", Value::boolean(true), "[b]true"},
        WriteRow{"False", Value::boolean(false), "[b]false"},
        WriteRow{"Integer", Value::integer(-5), "[i]-5"},
        WriteRow{"LargestInteger", Value::integer(INT64_MAX), "[i]9223372036854775807"},
        WriteRow{"SmallestInteger", Value::integer(INT64_MIN), "[i]-9223372036854775808"},
        WriteRow{"Double", Value::number(0.5), "[f]0.500000"},
        WriteRow{"DoubleIsRounded", Value::number(-1.23456789), "[f]-1.234568"},
        WriteRow{"Infinity", Value::number(kInfinity), "[f]inf"},
        WriteRow{"MinusInfinity", Value::number(-kInfinity), "[f]-inf"},
        WriteRow{"NegativeZero", Value::number(-0.0), "[f]-0.000000"},
        WriteRow{"LongDoubleIsCut", Value::number(1e200),
                 ("[f]" + printed_double(1e200)).substr(0, 127)},
        WriteRow{"String", Value::string("abc"), "[str:3]abc"},
        WriteRow{"StringIsRaw", Value::string("a`]\"\\\n"), "[str:6]a`]\"\\\n"},
        WriteRow{"StringWithNul", Value::string(std::string("a\0b", 3)),
                 std::string("[str:3]a\0b", 10)},
        WriteRow{"Int2", Value::int2(INT32_MIN, INT32_MAX), "[i2]-2147483648,2147483647"},
        WriteRow{"Int4", Value::int4(1, -2, 3, -4), "[i4]1,-2,3,-4"},
        WriteRow{"Double2", Value::double2(0.5, -1), "[d2]0.500000,-1.000000"},
        WriteRow{"Double4", Value::double4(1, 2, 3, 4.25),
                 "[d4]1.000000,2.000000,3.000000,4.250000"},
        WriteRow{"LongDouble4IsCut", Value::double4(1e100, 1e100, 1, 1),
                 ("[d4]" + printed_double(1e100) + "," + printed_double(1e100)).substr(0, 127)},
        WriteRow{"Pointer", Value::pointer(&g_target), "[v]" + printed_pointer(&g_target)},
        WriteRow{"NullPointer", Value::pointer(nullptr), "[v]" + printed_pointer(nullptr)},
        WriteRow{"Borrowed", Value::borrowed(address(4096), 17), "[ptr]4096,17"},
        WriteRow{"Error", Value::error(-22, "bad`file"), "[err:8]-22,bad`file"},
        WriteRow{"ErrorWithoutMessage", Value::error(5, ""), "[err:0]5,"},
        WriteRow{"EmptyList", Value::list({}), "{list:0}"},
        WriteRow{"EmptyMap", Value::map({}), "{map:0}"},
        WriteRow{"List", list_of({Value::integer(5), Value::string("a`b")}),
                 "{list:16}[i]5`[str:3]a`b`"},
        WriteRow{"Map", Value::map({{"b", Value::integer(1)}, {"a", Value()}, {"", Value()}}),
                 "{map:24}:<null>`a:<null>`b:[i]1`"},
        WriteRow{"ListOfMaps",
                 list_of({Value::map({{"k", list_of({Value::integer(1)})}}), Value::map({})}),
                 "{list:33}{map:16}k:{list:5}[i]1```{map:0}`"}),
    [](const testing::TestParamInfo<WriteRow>& row) { return row.param.name; });

TEST(ValueTextTest, ContainersWriteThemselves) {
    ValueArray array;
    array.append(Value::integer(5));
    EXPECT_EQ(array.write(), "{list:5}[i]5`");
    ValueMap map;
    map.insert_data("k", Value::integer(5), false);
    const mox::MultiValues& base = map;
    EXPECT_EQ(base.write(), "{map:7}k:[i]5`");
}

struct ReadRow {
    const char* name;
    std::string text;
    Value value;  ///< null: reading fails, except for "<null>"
    int consumed;
    std::string printed = "";
};

class ValueReadTest : public testing::TestWithParam<ReadRow> {};

TEST_P(ValueReadTest, Reads) {
    const ReadRow& row = GetParam();
    const Outcome outcome = read(row.text);
    EXPECT_TRUE(equal(outcome.value, row.value)) << outcome.value.write();
    EXPECT_EQ(outcome.consumed, row.consumed);
    EXPECT_EQ(outcome.good, !row.value.isNull() || row.text.substr(0, 6) == "<null>");
    EXPECT_EQ(outcome.printed, row.printed);
}

const auto g_row_name = [](const testing::TestParamInfo<ReadRow>& row) { return row.param.name; };

INSTANTIATE_TEST_SUITE_P(
    Scalars, ValueReadTest,
    testing::Values(
        ReadRow{"Nothing", "", Value(), 0}, ReadRow{"TooShort", "[b]", Value(), 0},
        ReadRow{"ShortestBool", "[b]`", Value::boolean(false), 3},
        ReadRow{"Null", "<null>", Value(), 6}, ReadRow{"NullAndMore", "<null>`[i]1", Value(), 6},
        ReadRow{"CutNull", "<null", Value(), 0},
        ReadRow{"True", "[b]true", Value::boolean(true), 7},
        ReadRow{"TrueAndMore", "[b]trueness`x", Value::boolean(true), 11},
        ReadRow{"CapitalTrueIsFalse", "[b]True", Value::boolean(false), 7},
        ReadRow{"CutTrueIsFalse", "[b]tru`e", Value::boolean(false), 6},
        ReadRow{"Integer", "[i]-12`", Value::integer(-12), 6},
        ReadRow{"IntegerWithBlanksAndPlus", "[i] \t\n+12", Value::integer(12), 9},
        ReadRow{"IntegerAndMore", "[i]12abc`", Value::integer(12), 8},
        ReadRow{"LargestInteger", "[i]9223372036854775807", Value::integer(INT64_MAX), 22},
        ReadRow{"SmallestInteger", "[i]-9223372036854775808", Value::integer(INT64_MIN), 23},
        ReadRow{"IntegerBeyondTheRange", "[i]9223372036854775808", Value::integer(INT64_MAX), 22},
        ReadRow{"IntegerFarBeyondTheRange", "[i]-99999999999999999999999",
                Value::integer(INT64_MIN), 27},
        ReadRow{"IntegerWithoutDigits", "[i]x`", Value(), 4},
        ReadRow{"IntegerOfTwoSigns", "[i]+-1", Value(), 6},
        ReadRow{"NumberInTheNextItem", "[i]`1", Value(), 3},
        ReadRow{"Double", "[f]-0.25", Value::number(-0.25), 8},
        ReadRow{"DoubleWithExponent", "[f]1e3`", Value::number(1000), 6},
        ReadRow{"DoubleInHex", "[f]0x1p4", Value::number(16), 8},
        ReadRow{"DoubleWithComma", "[f]1,5", Value::number(1), 6},
        ReadRow{"DoubleInfinity", "[f]-inf", Value::number(-kInfinity), 7},
        ReadRow{"DoubleBeyondTheRange", "[f]1e999", Value::number(kInfinity), 8},
        ReadRow{"DoubleWithoutDigits", "[f].`1", Value(), 4},
        ReadRow{"Int2", "[i2]1,-2`", Value::int2(1, -2), 8},
        ReadRow{"Int2WithBlanks", "[i2] 1, 2", Value::int2(1, 2), 9},
        ReadRow{"Int2WithBlankBeforeComma", "[i2]1 ,2", Value(), 8},
        ReadRow{"Int2AndMore", "[i2]1,2,3", Value::int2(1, 2), 9},
        ReadRow{"Int2TooFew", "[i2]1,`2", Value(), 6},
        ReadRow{"Int2BeyondTheRange", "[i2]2147483648,-9999999999",
                Value::int2(INT32_MAX, INT32_MIN), 26},
        ReadRow{"Int4", "[i4]1,2,3,4", Value::int4(1, 2, 3, 4), 11},
        ReadRow{"Int4TooFew", "[i4]1,2,3", Value(), 9},
        ReadRow{"Double2", "[d2]0.5,-1e2", Value::double2(0.5, -100), 12},
        ReadRow{"Double2TooFew", "[d2]0.5", Value(), 7},
        ReadRow{"Double4", "[d4]1,2,3,4.5`", Value::double4(1, 2, 3, 4.5), 13},
        ReadRow{"Double4TooFew", "[d4]1,2,3,`4", Value(), 10},
        ReadRow{"Pointer", "[v]0x1000`", Value::pointer(address(4096)), 9},
        ReadRow{"PointerWithoutPrefix", "[v]ff", Value::pointer(address(255)), 5},
        ReadRow{"NullPointer", "[v](nil)", Value::pointer(nullptr), 8},
        ReadRow{"PointerWithoutDigits", "[v]0x`", Value(), 5},
        ReadRow{"PointerOfSigns", "[v]0x-5", Value(), 7},
        ReadRow{"Borrowed", "[ptr]4096,17", Value::borrowed(address(4096), 17), 12},
        ReadRow{"BorrowedWithoutLength", "[ptr]4096", Value(), 9},
        ReadRow{"BorrowedTooMuch", "[ptr]1,99999999999", Value::borrowed(address(1), INT32_MAX),
                18}),
    g_row_name);

INSTANTIATE_TEST_SUITE_P(
    Tags, ValueReadTest,
    testing::Values(ReadRow{"UnknownTag", "[q]7", Value(), 4},
                    ReadRow{"UnknownTagUpToTheBacktick", "[q]7`[i]1", Value(), 4},
                    ReadRow{"NoBracket", "abcdefgh", Value(), 0},
                    ReadRow{"BracketFirst", "]abc`", Value(), 4},
                    ReadRow{"EmptyTag", "[]abc", Value(), 5},
                    ReadRow{"FirstByteIsSkipped", "xi]5", Value::integer(5), 4},
                    ReadRow{"TagOf15", "[str:00000000003]abcd", Value::string("abc"), 20},
                    ReadRow{"TagOf16IsUnknown", "[str:000000000003]abcd", Value(), 22},
                    ReadRow{"VeryLongTag", "[" + std::string(1000, 'i') + "]5", Value(), 1003},
                    ReadRow{"TagInCapitals", "[I]5", Value(), 4},
                    ReadRow{"TagWithMore", "[strX]abc", Value(), 9},
                    ReadRow{"TagWithBlank", "[i ]5", Value(), 5}),
    g_row_name);

INSTANTIATE_TEST_SUITE_P(
    Texts, ValueReadTest,
    testing::Values(
        ReadRow{"String", "[str:3]abc", Value::string("abc"), 10},
        ReadRow{"StringTakesItsLength", "[str:3]a`bc", Value::string("a`b"), 10},
        ReadRow{"StringWithoutLength", "[str]abc`[i]1", Value::string("abc"), 8},
        ReadRow{"StringWithoutLengthToTheEnd", "[str]abc", Value::string("abc"), 8},
        ReadRow{"StringWithBadLength", "[str:x]abc", Value::string("abc"), 10,
                "> Value:read() err: type='str:x', missing 'len'.\n"},
        ReadRow{"StringWithNoLengthAfterColon", "[str:]abc`d", Value::string("abc"), 9,
                "> Value:read() err: type='str:', missing 'len'.\n"},
        ReadRow{"StringWithNegativeLength", "[str:-1]abc`d", Value::string("abc"), 11},
        ReadRow{"StringLongerThanTheText", "[str:2147483647]abc", Value::string("abc"), 19},
        ReadRow{"StringLengthBeyondTheRange", "[str:9999999999]abc", Value::string("abc"), 19},
        ReadRow{"StringLengthWithMore", "[str:2x]abc", Value::string("ab"), 10},
        ReadRow{"EmptyString", "[str:0]abc", Value(), 7},
        ReadRow{"EmptyStringWithoutLength", "[str]`abc", Value(), 5},
        ReadRow{"StringOfAnyBytes", "[str:3]\xFF\x01\xC3", Value::string("\xFF\x01\xC3"), 10},
        // The length counts from the number on.
        ReadRow{"Error", "[err:6]-5,abcdef", Value::error(-5, "abc"), 13},
        ReadRow{"ErrorAsItIsWritten", "[err:3]5,abc`", Value::error(5, "a"), 10},
        ReadRow{"ErrorTakesBacktick", "[err:5]5,a`b`", Value::error(5, "a`b"), 12},
        ReadRow{"ErrorWithShortLength", "[err:1]5,abc", Value::error(5, ""), 9},
        ReadRow{"ErrorWithZeroLength", "[err:0]5,", Value::error(5, ""), 9},
        ReadRow{"ErrorWithHugeLength", "[err:2147483647]5,abc", Value::error(5, "abc"), 21},
        ReadRow{"ErrorWithoutComma", "[err:3]5`abc", Value::error(5, ""), 8},
        ReadRow{"ErrorWithoutNumber", "[err:4]x,abc", Value::error(0, "ab"), 11},
        ReadRow{"ErrorWithoutLength", "[err]5,abc`[i]1", Value::error(5, "5,abc`[i]1"), 10},
        ReadRow{"ErrorWithoutLengthAndMessage", "[err]5,", Value::error(5, ""), 7},
        ReadRow{"ErrorWithoutLengthAndComma", "[err]5`[i2]1,2", Value::error(5, ""), 6},
        ReadRow{"ErrorWithNegativeLength", "[err:-4]5,a`", Value::error(5, "5,a`"), 11},
        ReadRow{"ErrorWithBadLength", "[err:y]5,a", Value::error(5, "5,a"), 10,
                "> Value:read() err: type='err:y', missing 'len'.\n"},
        ReadRow{"EmptyError", "[err]", Value::error(0, ""), 5}),
    g_row_name);

INSTANTIATE_TEST_SUITE_P(
    Lists, ValueReadTest,
    testing::Values(
        ReadRow{"List", "{list:16}[i]5`[str:3]a`b`",
                list_of({Value::integer(5), Value::string("a`b")}), 25},
        ReadRow{"ListWithoutLength", "{list}[i]5`[i]6`",
                list_of({Value::integer(5), Value::integer(6)}), 16},
        ReadRow{"ListWithoutLastBacktick", "{list}[i]5`[i]6",
                list_of({Value::integer(5), Value::integer(6)}), 15},
        ReadRow{"ListIgnoresWordsAfterItsName", "{listing}[i]5", list_of({Value::integer(5)}), 13},
        ReadRow{"ListEndsAtItsLength", "{list:5}[i]5`[i]6`", list_of({Value::integer(5)}), 13},
        ReadRow{"ListLongerThanTheText", "{list:2147483647}[i]5`", list_of({Value::integer(5)}),
                22},
        ReadRow{"ListShorterThanItsElement", "{list:3}[i]12345`[i]6",
                list_of({Value::integer(12345)}), 11},
        ReadRow{"ListStopsAtWhatItCannotRead", "{list:17}[i]5`[q]1`[i]7`]",
                list_of({Value::integer(5)}), 25},
        ReadRow{"ListHoldsNulls", "{list:12}<null>`[i]5`", list_of({Value(), Value::integer(5)}),
                21},
        ReadRow{"ListOfLength0", "{list:0}`", Value::list({}), 8},
        ReadRow{"ListOfNegativeLength", "{list:-10}`", Value::list({}), 10},
        ReadRow{"ListOfVeryNegativeLength", "{list:-9999999999}`", Value::list({}), 18},
        ReadRow{"EmptyListAtTheEnd", "{list:0}", Value(), 0},
        ReadRow{"ListWithoutEnd", "{list:5", Value(), 0},
        ReadRow{"ListWithBadLength", "{list:x}[i]5`", list_of({Value::integer(5)}), 13,
                "> ValueList:read() err: data='{list:x}[i]5`', missing 'len'.\n"},
        ReadRow{"ListInAList", "{list:23}{list:5}[i]1``{list:0}`",
                list_of({list_of({Value::integer(1)}), Value::list({})}), 32},
        // A nested list of a negative length takes its header only.
        ReadRow{"NegativeListsInAList", "{list}{list:-10}`{list:-11}`[i]5`",
                list_of({Value::list({}), Value::list({}), Value::integer(5)}), 33},
        // The writer counts the message, the reader the number as well: the rest is lost.
        ReadRow{"ListEndsAfterAnError", "{list:18}[err:3]5,abc`[i]7`",
                list_of({Value::error(5, "a")}), 27}),
    g_row_name);

INSTANTIATE_TEST_SUITE_P(
    Maps, ValueReadTest,
    testing::Values(
        ReadRow{"Map", "{map:20}a:[i]1`b:[str:3]x`:`",
                Value::map({{"a", Value::integer(1)}, {"b", Value::string("x`:")}}), 28},
        ReadRow{"MapWithoutLength", "{map}a:[i]1`", Value::map({{"a", Value::integer(1)}}), 12},
        ReadRow{"MapWithEmptyKey", "{map}:[i]1`", Value::map({{"", Value::integer(1)}}), 11},
        ReadRow{"MapWithBacktickInKey", "{map}a`b:[i]1`", Value::map({{"a`b", Value::integer(1)}}),
                14},
        ReadRow{"MapEndsAtItsLength", "{map:7}a:[i]1`b:[i]2`",
                Value::map({{"a", Value::integer(1)}}), 14},
        ReadRow{"MapTakesTheLastOfAKey", "{map}a:[i]1`a:[i]2`",
                Value::map({{"a", Value::integer(2)}}), 19},
        ReadRow{"MapStopsAtWhatItCannotRead", "{map}a:[i]1`b:[q]1`c:[i]3`",
                Value::map({{"a", Value::integer(1)}}), 26},
        ReadRow{"MapStopsWithoutAColon", "{map}a:[i]1`b[i]2`",
                Value::map({{"a", Value::integer(1)}}), 18},
        ReadRow{"MapHoldsNulls", "{map}a:<null>`", Value::map({{"a", Value()}}), 14},
        ReadRow{"MapOfNegativeLength", "{map:-3}`", Value::map({}), 8},
        ReadRow{"EmptyMapAtTheEnd", "{map:0}", Value(), 0},
        ReadRow{"MapWithoutEnd", "{map:5", Value(), 0},
        ReadRow{"MapWithBadLength", "{map:?}a:[i]5`", Value::map({{"a", Value::integer(5)}}), 14,
                "> ValueMap:read() err: data='{map:?}a:[i]5`', missing 'len'.\n"},
        ReadRow{"MapOfMaps", "{map:27}k:{map:7}a:[i]1``l:{map:0}`",
                Value::map({{"k", Value::map({{"a", Value::integer(1)}})}, {"l", Value::map({})}}),
                35}),
    g_row_name);

TEST(ValueTextTest, ReadingNothingGivesNull) {
    Value value = Value::integer(1);
    int consumed = 5;
    EXPECT_FALSE(value.read(nullptr, &consumed));
    EXPECT_TRUE(value.isNull());
    EXPECT_EQ(consumed, 0);
    EXPECT_FALSE(value.read(nullptr, nullptr));
    EXPECT_TRUE(value.read("[i]5", nullptr));
    EXPECT_EQ(value.asInteger(), 5);
}

TEST(ValueTextTest, ReadingDoesNotFreeABorrowedBuffer) {
    char buffer[] = "borrowed";
    Value value = Value::borrowed(buffer, 8);
    EXPECT_TRUE(value.read("[i]5", nullptr));
    EXPECT_STREQ(buffer, "borrowed");
}

TEST(ValueTextTest, ReadsItsOwnText) {
    Value value = Value::string("{list}[str]a text that is longer than a short one`");
    EXPECT_TRUE(value.read(value.data(), nullptr));
    ASSERT_NE(value.array(), nullptr);
    EXPECT_EQ(value.array()->at(0).text(), "a text that is longer than a short one");
    value.array()->append(Value::string("{list}[i]1`[i]2`"));
    EXPECT_TRUE(value.array()->read(value.array()->at(1).data(), nullptr));
    EXPECT_TRUE(equal(value, list_of({Value::integer(1), Value::integer(2)})));
}

TEST(ValueTextTest, ContainersReadTheirOwnKindOnly) {
    ValueArray array;
    ValueMap map;
    int consumed = -1;
    array.append(Value::integer(1));
    map.insert_data("k", Value::integer(1), true);
    EXPECT_FALSE(array.read("{map}a:[i]1`", &consumed));
    EXPECT_EQ(consumed, 0);
    EXPECT_TRUE(array.items().empty());
    EXPECT_FALSE(map.read("{list}[i]1`", &consumed));
    EXPECT_TRUE(map.items().empty());
    EXPECT_FALSE(array.read("[i]1", nullptr));
    EXPECT_FALSE(array.read(nullptr, nullptr));
    EXPECT_FALSE(map.read("", nullptr));
    EXPECT_TRUE(array.read("{list}[i]1`", &consumed));
    EXPECT_EQ(consumed, 11);
    EXPECT_EQ(array.at(0).asInteger(), 1);
    mox::MultiValues& base = map;
    EXPECT_TRUE(base.read("{map}a:[i]1`", &consumed));
    EXPECT_EQ(consumed, 12);
    EXPECT_EQ(map.at("a").asInteger(), 1);
}

TEST(ValueTextTest, ReadsContainersUpTo256Deep) {
    EXPECT_TRUE(equal(read(fw_test::nested_lists(256).write()).value, fw_test::nested_lists(256)));
    EXPECT_TRUE(equal(read(fw_test::nested_maps(256).write()).value, fw_test::nested_maps(256)));
    for (const int levels : {257, 10000}) {
        for (const auto& tree : {fw_test::nested_lists(levels), fw_test::nested_maps(levels)}) {
            const Outcome outcome = read(tree.write());
            EXPECT_FALSE(outcome.good);
            EXPECT_TRUE(outcome.value.isNull());
            EXPECT_EQ(outcome.consumed, 0);
        }
    }
    std::string open;
    for (int i = 0; i < 100000; ++i) {
        open += "{list}";
    }
    EXPECT_FALSE(read(open).good);
}

TEST(ValueTextTest, ManyListsBesideEachOtherAreNotDeep) {
    std::list<Value> lists;
    for (int i = 0; i < 1000; ++i) {
        lists.push_back(list_of({Value::integer(i)}));
    }
    const Value tree = Value::list(std::move(lists));
    EXPECT_TRUE(equal(read(tree.write()).value, tree));
}

TEST(ValueTextTest, WritesTreesOfAnyDepth) {
    constexpr int levels = 200000;
    std::string text = fw_test::nested_lists(levels).write();
    // From the outside in: every header tells what is left without the backticks of those outside.
    std::size_t position = 0;
    for (std::size_t level = 0; level < levels; ++level) {
        const std::size_t end = text.find('}', position);
        const std::string length = std::to_string(text.size() - level - end - 1);
        ASSERT_EQ(text.substr(position, end + 1 - position), "{list:" + length + "}");
        position = end + 1;
    }
    EXPECT_EQ(text.substr(position), "[i]1" + std::string(levels, '`'));
}

// Each list of 20 bytes holds something that claims all of the rest, and the next of these lists
// follows after the 20 bytes. Reading every claim would take 2^1000 steps, or gigabytes of texts.
TEST(ValueTextTest, RefusesLengthsThatMultiplyTheWork) {
    std::string lists;
    std::string texts;
    for (int i = 0; i < 1000; ++i) {
        lists += "{list:20}{list:999999999}[b]x`";
    }
    for (int i = 0; i < 100000; ++i) {
        texts += "{list:20}[str:999999999]_____`";
    }
    for (const std::string& text : {lists, "{list}" + lists, "{list}" + texts}) {
        const Outcome outcome = read(text);
        EXPECT_FALSE(outcome.good);
        EXPECT_TRUE(outcome.value.isNull());
    }
}

TEST(ValueTextTest, ReadsManyItemsWithoutLookingFarForEach) {
    std::string lists = "{list}";
    std::string errors = "{list}";
    for (int i = 0; i < 100000; ++i) {
        lists += "{list:3}abc`";
        errors += "[err:2]5,`";
    }
    Value value;
    EXPECT_TRUE(value.read(lists.c_str(), nullptr));
    EXPECT_EQ(value.array()->items().size(), 100000U);
    EXPECT_TRUE(value.read(errors.c_str(), nullptr));
    EXPECT_EQ(value.array()->items().size(), 100000U);
}

TEST(ValueTextTest, NumbersDoNotFollowTheLocale) {
    const fw_test::CommaLocale locale;
    const Value value = list_of({Value::number(1234567.25), Value::double2(0.5, 1.5)});
    const std::string text = "{list:40}[f]1234567.250000`[d2]0.500000,1.500000`";
    EXPECT_EQ(value.write(), text);
    EXPECT_TRUE(equal(read(text).value, value));
    if (!locale.known()) {
        GTEST_SKIP() << "locale de_DE.UTF-8 is not installed: only the streams had commas";
    }
    EXPECT_EQ(printed_double(0.5), "0,500000");  // the thread has its own locale back
}

/// A tree that survives the tagged form: texts of any bytes, doubles of six digits, no errors.
Value random_tree(Dice& dice, int levels) {
    static const std::string s_text = "abc`:[]{}\",\\\n\x01\x80\xFF<>0123456789";
    static const std::string s_key = "abc`[]{}\",\\\n\x80\xFF";
    const auto fraction = [&dice] { return static_cast<double>(dice.int32()) / 64; };
    switch (dice.below(levels > 0 ? 12 : 10)) {
        case 0:
            return {};
        case 1:
            return Value::boolean(dice.below(2) == 1);
        case 2:
            return Value::integer(static_cast<long long>(dice.bits() >> dice.below(64)));
        case 3:
            return Value::number(fraction());
        case 4:
            return Value::string(dice.text(s_text, 20));
        case 5:
            return Value::int2(dice.int32(), dice.int32());
        case 6:
            return Value::int4(dice.int32(), dice.int32(), dice.int32(), dice.int32());
        case 7:
            return Value::double2(fraction(), fraction());
        case 8:
            return Value::double4(fraction(), fraction(), fraction(), fraction());
        case 9:
            return dice.below(2) == 1 ? Value::pointer(address(dice.bits()))
                                      : Value::borrowed(address(dice.bits()), dice.int32());
        case 10: {
            std::list<Value> items;
            for (auto left = dice.below(6); left > 0; --left) {
                items.push_back(random_tree(dice, levels - 1));
            }
            return Value::list(std::move(items));
        }
        default: {
            std::map<std::string, Value> items;
            for (auto left = dice.below(6); left > 0; --left) {
                items[dice.text(s_key, 5)] = random_tree(dice, levels - 1);
            }
            return Value::map(std::move(items));
        }
    }
}

TEST(ValueTextTest, ReadsBackRandomTrees) {
    Dice dice(20260101);
    for (int i = 0; i < 2000; ++i) {
        const Value tree = list_of({random_tree(dice, 5), random_tree(dice, 5)});
        const std::string text = tree.write();
        const Outcome outcome = read(text + "`behind it");
        ASSERT_TRUE(outcome.good) << text;
        ASSERT_EQ(outcome.consumed, static_cast<int>(text.size())) << text;
        ASSERT_TRUE(equal(outcome.value, tree)) << text << "\n" << outcome.value.write();
        ASSERT_TRUE(equal(Value(tree), tree)) << text;
    }
}

TEST(ValueTextTest, SurvivesDamagedTexts) {
    Dice dice(20260102);
    StderrCapture quiet;
    for (int i = 0; i < 2000; ++i) {
        const std::string text =
            list_of({random_tree(dice, 4), Value::error(5, "message")}).write();
        for (int k = 0; k < 20; ++k) {
            const std::string damaged = dice.mutated(text);
            const TightText tight(damaged);
            Value value = Value::integer(1);
            int consumed = -1;
            const bool good = value.read(tight.get(), &consumed);
            ASSERT_GE(consumed, 0) << damaged;
            ASSERT_LE(consumed, static_cast<int>(std::strlen(tight.get()))) << damaged;
            ASSERT_TRUE(good || value.isNull()) << damaged;
            ASSERT_FALSE(value.write().empty());
        }
    }
}

TEST(ValueTextTest, ReadsALongTextInOnePass) {
    // 100 MB where that is no hardship. Looking at all of the rest for each element would take
    // hours.
    const std::size_t size = fw_test::kSanitized ? 10'000'000 : 100'000'000;
    const std::string item = "[str:91]" + std::string(91, 'x') + "`";
    std::string text = "{list}";
    while (text.size() < size) {
        text += item;
    }
    Value value;
    int consumed = 0;
    ASSERT_TRUE(value.read(text.c_str(), &consumed));
    EXPECT_EQ(consumed, static_cast<int>(text.size()));
    EXPECT_EQ(value.array()->items().size(), text.size() / item.size());
    const std::string written = value.write();
    EXPECT_EQ(written.substr(written.find('}')), text.substr(5));
}

}  // namespace
