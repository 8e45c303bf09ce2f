#include "tests/support/comma_locale.h"
#include "tests/support/sanitized.h"
#include "tests/support/stderr_capture.h"
#include "tests/support/values.h"

#include <framewell/base/value.h>

#include <climits>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <list>
#include <locale>
#include <map>
#include <sstream>
#include <string>
#include <utility>

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
constexpr double kNotANumber = std::numeric_limits<double>::quiet_NaN();

/// What became of reading all of a text into a value that held something else.
struct Outcome {
    Value value = Value::string("what was there before");
    bool good = false;
    std::string printed;
};

Outcome read(const std::string& text) {
    Outcome outcome;
    const TightText tight(text);
    StderrCapture printed;
    outcome.good = outcome.value.readJson(tight.get(), nullptr);
    outcome.printed = printed.text();
    return outcome;
}

/// As a stream of C++ prints it that nobody has set up.
std::string streamed(double number) {
    std::ostringstream stream;
    stream.imbue(std::locale::classic());
    stream << number;
    return stream.str();
}

struct WriteRow {
    const char* name;
    Value value;
    std::string json;
};

class ValueWriteJsonTest : public testing::TestWithParam<WriteRow> {};

TEST_P(ValueWriteJsonTest, Writes) {
    EXPECT_EQ(GetParam().value.writeJson(false, 0), GetParam().json);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ValueWriteJsonTest,
    testing::Values(
        WriteRow{"Null", Value(), "null"}, WriteRow{"True", Value::boolean(true), "true"},
        WriteRow{"False", Value::boolean(false), "false"},
        WriteRow{"Integer", Value::integer(-12), "-12"},
        WriteRow{"LargestInteger", Value::integer(INT64_MAX), "9223372036854775807"},
        WriteRow{"SmallestInteger", Value::integer(INT64_MIN), "-9223372036854775808"},
        WriteRow{"Double", Value::number(0.25), "0.25"},
        WriteRow{"DoubleOfSixDigits", Value::number(1.23456789), "1.23457"},
        WriteRow{"DoubleWithoutFraction", Value::number(100), "100"},
        WriteRow{"LargeDouble", Value::number(1234567), "1.23457e+06"},
        WriteRow{"SmallDouble", Value::number(0.00001), "1e-05"},
        WriteRow{"NegativeZero", Value::number(-0.0), "-0"},
        WriteRow{"Infinity", Value::number(kInfinity), "inf"},
        WriteRow{"MinusInfinity", Value::number(-kInfinity), "-inf"},
        WriteRow{"NotANumber", Value::number(kNotANumber), streamed(kNotANumber)},
        WriteRow{"String", Value::string("abc"), "\"abc\""},
        WriteRow{"StringWithQuotesAndBackslashes", Value::string("\"a\\b\"\\"), R"("\"a\\b\"\\")"},
        WriteRow{"StringWithOtherBytes", Value::string("/\n\t\x01\xFF"), "\"/\n\t\x01\xFF\""},
        WriteRow{"StringEndsAtItsNul", Value::string(std::string("ab\0cd", 5)), "\"ab\""},
        WriteRow{"Int2", Value::int2(1, -2), "\"[i2]1,-2\""},
        WriteRow{"Int4", Value::int4(1, 2, 3, 4), "\"[i4]1,2,3,4\""},
        WriteRow{"Double2", Value::double2(0.5, 1), "\"[d2]0.500000,1.000000\""},
        WriteRow{"Double4", Value::double4(1, 2, 3, 4),
                 "\"[d4]1.000000,2.000000,3.000000,4.000000\""},
        WriteRow{"Borrowed", Value::borrowed(nullptr, 0), "\"[ptr]0,0\""},
        WriteRow{"ErrorIsRaw", Value::error(-22, "a\"b\\"), "\"[err:4]-22,a\"b\\\""},
        WriteRow{"EmptyList", Value::list({}), "[]"}, WriteRow{"EmptyMap", Value::map({}), "{}"},
        WriteRow{"List", list_of({Value::integer(1), Value(), Value::string("a")}),
                 "[1,null,\"a\"]"},
        WriteRow{"MapInOrderOfItsKeys",
                 Value::map({{"b", Value::integer(1)}, {"a", Value()}, {"", Value()}}),
                 R"({"":null,"a":null,"b":1})"},
        WriteRow{"KeysAreRaw", Value::map({{"a\"\\\n", Value::integer(1)}}), "{\"a\"\\\n\":1}"},
        WriteRow{"Nested",
                 list_of({Value::map({{"k", list_of({Value::list({})})}}), Value::map({})}),
                 R"([{"k":[[]]},{}])"}),
    [](const testing::TestParamInfo<WriteRow>& row) { return row.param.name; });

TEST(ValueJsonTest, WritesPrettyMaps) {
    const Value value = Value::map({{"a", Value::integer(1)}});
    EXPECT_EQ(value.writeJson(true, 0), "{\n  \"a\":1\n}");
    EXPECT_EQ(value.writeJson(true, 2), "{\n      \"a\":1\n    }");
    EXPECT_EQ(value.map()->writeJson(true, 0), "{\n  \"a\":1\n}");
    EXPECT_EQ(value.map()->writeJson(false, 3), "{\"a\":1}");
}

TEST(ValueJsonTest, WritesPrettyTrees) {
    const Value value =
        Value::map({{"list", list_of({Value::integer(1), list_of({Value::integer(2)}), Value()})},
                    {"map", Value::map({{"x", Value()}, {"y", Value()}})}});
    const std::string json =
        "{\n"
        "  \"list\":[\n"
        "    1,\n"
        "    [\n"
        "      2\n"
        "    ],\n"
        "    null\n"
        "  ],\n"
        "  \"map\":{\n"
        "    \"x\":null,\n"
        "    \"y\":null\n"
        "  }\n"
        "}";
    EXPECT_EQ(value.writeJson(true, 0), json);
    EXPECT_TRUE(equal(read(json).value, value));
    EXPECT_EQ(list_of({Value::integer(1)}).array()->writeJson(true, 1), "[\n    1\n  ]");
}

TEST(ValueJsonTest, WritesPrettyEmptyContainers) {
    EXPECT_EQ(Value::map({}).writeJson(true, 1), "{\n\n  }");
    EXPECT_EQ(Value::list({}).writeJson(true, 0), "[\n\n]");
    EXPECT_EQ(Value::integer(1).writeJson(true, 5), "1");
}

TEST(ValueJsonTest, SurvivesAnyIndent) {
    const Value value = list_of({Value::integer(1)});
    EXPECT_EQ(value.writeJson(true, -1), "[\n1\n]");
    EXPECT_EQ(value.writeJson(true, INT_MIN), "[\n1\n]");
    const std::string deepest(2000, ' ');
    EXPECT_EQ(value.writeJson(true, 999), "[\n" + deepest + "1\n" + deepest.substr(2) + "]");
    EXPECT_EQ(value.writeJson(true, INT_MAX), "[\n" + deepest + "1\n" + deepest + "]");
}

TEST(ValueJsonTest, WritesTreesOfAnyDepth) {
    constexpr std::size_t levels = 200000;
    EXPECT_EQ(fw_test::nested_lists(levels).writeJson(false, 0),
              std::string(levels, '[') + "1" + std::string(levels, ']'));
    EXPECT_GT(fw_test::nested_maps(10000).writeJson(true, 0).size(), 10000U * 2000U);
}

TEST(ValueJsonTest, PrintsDoublesAsAPlainStream) {
    Dice dice(20260103);
    for (int i = 0; i < 20000; ++i) {
        const std::uint64_t bits = dice.bits();
        double number = 0;
        std::memcpy(&number, &bits, sizeof number);
        const double tame = static_cast<double>(dice.int32()) / 1000;
        ASSERT_EQ(Value::number(number).writeJson(false, 0), streamed(number));
        ASSERT_EQ(Value::number(tame).writeJson(false, 0), streamed(tame));
    }
}

TEST(ValueJsonTest, NumbersDoNotFollowTheLocale) {
    const fw_test::CommaLocale locale;
    const Value value = list_of({Value::number(12345.5), Value::integer(1234567)});
    EXPECT_EQ(value.writeJson(false, 0), "[12345.5,1234567]");
    EXPECT_TRUE(equal(read("[12345.5,1234567]").value, value));
    if (!locale.known()) {
        GTEST_SKIP() << "locale de_DE.UTF-8 is not installed: only the streams had commas";
    }
}

struct ReadRow {
    const char* name;
    std::string json;
    Value value;
};

class ValueReadJsonTest : public testing::TestWithParam<ReadRow> {};

TEST_P(ValueReadJsonTest, Reads) {
    const Outcome outcome = read(GetParam().json);
    EXPECT_TRUE(outcome.good);
    EXPECT_TRUE(equal(outcome.value, GetParam().value)) << outcome.value.write();
    EXPECT_EQ(outcome.printed, "");
}

const auto g_row_name = [](const testing::TestParamInfo<ReadRow>& row) { return row.param.name; };

INSTANTIATE_TEST_SUITE_P(
    Numbers, ValueReadJsonTest,
    testing::Values(ReadRow{"Zero", "0", Value::integer(0)},
                    ReadRow{"MinusZero", "-0", Value::integer(0)},
                    ReadRow{"MinusZeroWithFraction", "-0.0", Value::number(-0.0)},
                    ReadRow{"Integer", "-12", Value::integer(-12)},
                    ReadRow{"LargestInteger", "9223372036854775807", Value::integer(INT64_MAX)},
                    ReadRow{"SmallestInteger", "-9223372036854775808", Value::integer(INT64_MIN)},
                    ReadRow{"AboveTheIntegers", "9223372036854775808", Value::number(0x1p63)},
                    ReadRow{"BelowTheIntegers", "-9223372036854775809", Value::number(-0x1p63)},
                    ReadRow{"ManyDigits", "1" + std::string(300, '0'), Value::number(1e300)},
                    ReadRow{"Fraction", "0.5", Value::number(0.5)},
                    ReadRow{"FractionWithoutNeed", "1.0", Value::number(1)},
                    ReadRow{"Exponent", "1e2", Value::number(100)},
                    ReadRow{"CapitalExponentWithPlus", "1E+2", Value::number(100)},
                    ReadRow{"NegativeExponent", "-25e-2", Value::number(-0.25)},
                    ReadRow{"ZeroWithExponent", "0e1", Value::number(0)},
                    ReadRow{"FractionAndExponent", "1.5e00001", Value::number(15)},
                    ReadRow{"LargestDouble", "1.7976931348623157e308",
                            Value::number(std::numeric_limits<double>::max())},
                    ReadRow{"TinyDouble", "4.9406564584124654e-324",
                            Value::number(std::numeric_limits<double>::denorm_min())},
                    ReadRow{"ExponentBeyondTheRange", "1e999", Value::number(kInfinity)},
                    ReadRow{"ExponentFarBeyondTheRange", "-1e99999999999999999999",
                            Value::number(-kInfinity)},
                    ReadRow{"ExponentBelowTheRange", "1e-99999999999999999999", Value::number(0)},
                    ReadRow{"AllDigitsCount", "9007199254740993.0000000000000001",
                            Value::number(9007199254740994.0)}),
    g_row_name);

INSTANTIATE_TEST_SUITE_P(
    Strings, ValueReadJsonTest,
    testing::Values(
        ReadRow{"String", "\"abc\"", Value::string("abc")},
        ReadRow{"EmptyStringIsNull", "\"\"", Value()},
        ReadRow{"EveryEscape", R"("\"\\\/\b\f\n\r\t")", Value::string("\"\\/\b\f\n\r\t")},
        ReadRow{"EscapesInText", R"("a\nb\\c")", Value::string("a\nb\\c")},
        ReadRow{"OneByte", R"("\u0041")", Value::string("A")},
        ReadRow{"LastOneByte", R"("\u007f")", Value::string("\x7F")},
        ReadRow{"TwoBytes", R"("\u0080\u00e4\u07FF")", Value::string("\xC2\x80\xC3\xA4\xDF\xBF")},
        ReadRow{"ThreeBytes", R"("\u0800\u20aC\uffff")",
                Value::string("\xE0\xA0\x80\xE2\x82\xAC\xEF\xBF\xBF")},
        ReadRow{"AroundTheSurrogates", R"("\ud7ff\ue000")",
                Value::string("\xED\x9F\xBF\xEE\x80\x80")},
        ReadRow{"Pair", R"("\uD83D\uDE00")", Value::string("\xF0\x9F\x98\x80")},
        ReadRow{"FirstPair", R"("\ud800\udc00")", Value::string("\xF0\x90\x80\x80")},
        ReadRow{"LastPair", R"("\udbff\udfff")", Value::string("\xF4\x8F\xBF\xBF")},
        ReadRow{"HighAlone", R"("a\ud800b")",
                Value::string("a\xEF\xBF\xBD"
                              "b")},
        ReadRow{"HighAtTheEnd", R"("\ud800")", Value::string("\xEF\xBF\xBD")},
        ReadRow{"LowAlone", R"("\udc00")", Value::string("\xEF\xBF\xBD")},
        ReadRow{"PairInWrongOrder", R"("\udc00\ud800")", Value::string("\xEF\xBF\xBD\xEF\xBF\xBD")},
        ReadRow{"HighBeforeAPair", R"("\ud800\ud800\udc00")",
                Value::string("\xEF\xBF\xBD\xF0\x90\x80\x80")},
        ReadRow{"HighBeforeAnotherEscape", R"("\ud800\u0041\ud800\n")",
                Value::string("\xEF\xBF\xBD"
                              "A\xEF\xBF\xBD\n")},
        ReadRow{"EscapedNul", R"("a\u0000b")", Value::string(std::string("a\0b", 3))},
        ReadRow{"RawControlCharacters", "\"\x01\n\t\r\x1F\x7F\"",
                Value::string("\x01\n\t\r\x1F\x7F")},
        ReadRow{"BytesThatAreNoUtf8", "\"\x80\xFF\xC3\"", Value::string("\x80\xFF\xC3")},
        ReadRow{"SignsOfStructure", R"("[{]},:")", Value::string("[{]},:")}),
    g_row_name);

INSTANTIATE_TEST_SUITE_P(
    Structure, ValueReadJsonTest,
    testing::Values(
        ReadRow{"Null", "null", Value()}, ReadRow{"True", "true", Value::boolean(true)},
        ReadRow{"False", "false", Value::boolean(false)},
        ReadRow{"BlanksAround", " \t\r\n1 \t\r\n", Value::integer(1)},
        ReadRow{"EmptyArray", "[]", Value::list({})},
        ReadRow{"EmptyArrayWithBlanks", " [ \n] ", Value::list({})},
        ReadRow{"Array", "[1,null,\"a\",[],{}]",
                list_of({Value::integer(1), Value(), Value::string("a"), Value::list({}),
                         Value::map({})})},
        ReadRow{"ArrayWithBlanks", "[ 1\t,\n2 ]", list_of({Value::integer(1), Value::integer(2)})},
        ReadRow{"EmptyObject", "{}", Value::map({})},
        ReadRow{"EmptyObjectWithBlanks", "{ }", Value::map({})},
        ReadRow{"Object", R"({"b":1,"a":{"":[]}})",
                Value::map({{"b", Value::integer(1)}, {"a", Value::map({{"", Value::list({})}})}})},
        ReadRow{"ObjectWithBlanks", "{ \"a\" : 1 ,\n\"b\" : 2 }",
                Value::map({{"a", Value::integer(1)}, {"b", Value::integer(2)}})},
        ReadRow{"LastOfANameCounts", R"({"a":[1],"a":2})", Value::map({{"a", Value::integer(2)}})},
        ReadRow{"EscapesInNames", R"({"\u0041\n\"":1})",
                Value::map({{"A\n\"", Value::integer(1)}})},
        ReadRow{
            "NulInNames", R"({"a\u0000b":1,"a":2})",
            Value::map({{std::string("a\0b", 3), Value::integer(1)}, {"a", Value::integer(2)}})},
        ReadRow{"NoNullFromEmptyStringsInArrays", R"(["",1])",
                list_of({Value(), Value::integer(1)})}),
    g_row_name);

struct BadRow {
    const char* name;
    std::string json;
    std::string rest;         ///< the text from where it fails
    std::string before = "";  ///< what is printed before that
};

class ValueBadJsonTest : public testing::TestWithParam<BadRow> {};

TEST_P(ValueBadJsonTest, IsRefused) {
    const BadRow& row = GetParam();
    const Outcome outcome = read(row.json);
    EXPECT_FALSE(outcome.good);
    EXPECT_TRUE(outcome.value.isNull());
    EXPECT_EQ(outcome.printed, row.before + "[json] parse error: " + row.rest + "\n");
}

const auto g_bad_name = [](const testing::TestParamInfo<BadRow>& row) { return row.param.name; };

INSTANTIATE_TEST_SUITE_P(
    Structure, ValueBadJsonTest,
    testing::Values(
        BadRow{"Nothing", "", ""}, BadRow{"Blanks", " \n", ""}, BadRow{"Word", "nope", "nope"},
        BadRow{"CutWord", "tru", "tru"}, BadRow{"CapitalWord", "True", "True"},
        BadRow{"WordAndMore", "nulls", "s"}, BadRow{"TwoValues", "1 2", "2"},
        BadRow{"TwoArrays", "[][]", "[]"}, BadRow{"NotANumber", "NaN", "NaN"},
        BadRow{"Infinity", "inf", "inf"},
        BadRow{"ByteOrderMark", "\xEF\xBB\xBF{}", "\xEF\xBB\xBF{}"},
        BadRow{"FormFeed", "\f1", "\f1"},
        BadRow{"NoBreakBlank",
               "\xC2\xA0"
               "1",
               "\xC2\xA0"
               "1"},
        BadRow{"Comment", "1 // one", "// one"}, BadRow{"SingleQuotes", "'a'", "'a'"},
        BadRow{"OpenArray", "[", ""}, BadRow{"OpenArrayWithElement", "[1", ""},
        BadRow{"OpenArrayWithComma", "[1,", ""}, BadRow{"CommaBeforeEnd", "[1,]", "]"},
        BadRow{"CommaFirst", "[,1]", ",1]"}, BadRow{"TwoCommas", "[1,,2]", ",2]"},
        BadRow{"NoComma", "[1 2]", "2]"}, BadRow{"ColonInArray", "[1:2]", ":2]"},
        BadRow{"ArrayClosedAsObject", "[1}", "}"}, BadRow{"CloseAlone", "]", "]"},
        BadRow{"OneCloseTooMany", "[]]", "]"}, BadRow{"OpenObject", "{", ""},
        BadRow{"OpenObjectWithName", "{\"a\"", ""}, BadRow{"OpenObjectWithColon", "{\"a\":", ""},
        BadRow{"OpenObjectWithValue", "{\"a\":1", ""},
        BadRow{"ObjectCommaBeforeEnd", "{\"a\":1,}", "}"}, BadRow{"ObjectCommaFirst", "{,}", ",}"},
        BadRow{"NameWithoutQuotes", "{a:1}", "a:1}"}, BadRow{"NameIsNumber", "{1:1}", "1:1}"},
        BadRow{"NoColon", "{\"a\" 1}", "1}"}, BadRow{"NoValue", "{\"a\":}", "}"},
        BadRow{"TwoColons", "{\"a\"::1}", ":1}"}, BadRow{"ObjectClosedAsArray", "{\"a\":1]", "]"},
        BadRow{"QuoteInName", "{\"a\"b\":1}", "b\":1}"}),
    g_bad_name);

INSTANTIATE_TEST_SUITE_P(
    Strings, ValueBadJsonTest,
    testing::Values(
        BadRow{"Open", "\"abc", ""}, BadRow{"OpenAndEmpty", "\"", ""},
        BadRow{"OpenAfterEscape", "\"a\\\"", ""}, BadRow{"BackslashLast", "\"a\\", "\\"},
        BadRow{"UnknownEscape", "\"a\\x41\"", "\\x41\""},
        BadRow{"CapitalEscape", "\"\\N\"", "\\N\""},
        BadRow{"EscapedControlCharacter", "\"\\\n\"", "\\\n\""},
        BadRow{"CutUnicode", "\"\\u12", "\\u12"}, BadRow{"ShortUnicode", "\"\\u123\"", "\\u123\""},
        BadRow{"UnicodeWithSign", "\"\\u-123\"", "\\u-123\""},
        BadRow{"UnicodeWithBlank", "\"\\u 123\"", "\\u 123\""},
        BadRow{"UnicodeWithPrefix", "\"\\u0x41\"", "\\u0x41\""},
        BadRow{"CapitalU", "\"\\U0041\"", "\\U0041\""}, BadRow{"CutPair", "\"\\ud800\\u", "\\u"},
        BadRow{"BadSecondHalf", "\"\\ud800\\uzzzz\"", "\\uzzzz\""}),
    g_bad_name);

BadRow bad_number(const char* name, const std::string& number, const char* kind) {
    return {name, "[" + number + "]", number + "]",
            std::string("[json] parser '") + kind + "' error: " + number + "]"};
}

INSTANTIATE_TEST_SUITE_P(
    Numbers, ValueBadJsonTest,
    testing::Values(bad_number("Minus", "-", "int"), bad_number("MinusWord", "-x", "int"),
                    bad_number("TwoMinus", "--1", "int"), bad_number("LeadingZero", "01", "int"),
                    bad_number("NegativeLeadingZero", "-012", "int"),
                    bad_number("TwoZeros", "00", "int"), bad_number("MinusInfinity", "-inf", "int"),
                    bad_number("NoWholePart", "-.5", "int"),
                    bad_number("NoFraction", "1.", "double"),
                    bad_number("NoFractionBeforeExponent", "1.e2", "double"),
                    bad_number("NoExponent", "1e", "double"),
                    bad_number("NoExponentAfterSign", "1.5E+", "double"),
                    bad_number("ExponentOfTwoSigns", "1e+-2", "double"), BadRow{"Plus", "+1", "+1"},
                    BadRow{"PointFirst", ".5", ".5"}, BadRow{"Hex", "0x10", "x10"},
                    BadRow{"FractionInExponent", "1e2.5", ".5"}, BadRow{"TwoPoints", "1.2.3", ".3"},
                    BadRow{"Suffix", "1L", "L"}, BadRow{"Grouped", "1_000", "_000"}),
    g_bad_name);

TEST(ValueJsonTest, StopsBehindTheValueIfAskedWhere) {
    Value value;
    int consumed = -1;
    EXPECT_TRUE(value.readJson(" [1, 2] x", &consumed));
    EXPECT_EQ(consumed, 7);
    EXPECT_EQ(value.array()->items().size(), 2U);
    EXPECT_TRUE(value.readJson("12,13", &consumed));
    EXPECT_EQ(consumed, 2);
    EXPECT_EQ(value.asInteger(), 12);
    const StderrCapture quiet;
    EXPECT_FALSE(value.readJson("[1", &consumed));
    EXPECT_EQ(consumed, 0);
    EXPECT_TRUE(value.isNull());
}

TEST(ValueJsonTest, ReadingNothingGivesNull) {
    Value value = Value::integer(1);
    StderrCapture printed;
    EXPECT_FALSE(value.readJson(nullptr, nullptr));
    EXPECT_TRUE(value.isNull());
    EXPECT_EQ(printed.text(), "[json] parse error: \n");
}

TEST(ValueJsonTest, ReadsItsOwnText) {
    Value value = Value::string("[\"a text that is longer than a short one\"]");
    EXPECT_TRUE(value.readJson(value.data(), nullptr));
    EXPECT_EQ(value.array()->at(0).text(), "a text that is longer than a short one");
    value.array()->append(Value::string("[1, 2]"));
    EXPECT_TRUE(value.array()->readJson(value.array()->at(1).data(), nullptr));
    EXPECT_EQ(value.writeJson(false, 0), "[1,2]");
}

TEST(ValueJsonTest, ContainersReadTheirOwnKindOnly) {
    ValueArray array;
    ValueMap map;
    int consumed = -1;
    array.append(Value::integer(1));
    map.insert_data("k", Value::integer(1), true);
    StderrCapture printed;
    EXPECT_FALSE(array.readJson("{}", &consumed));
    EXPECT_EQ(consumed, 0);
    EXPECT_TRUE(array.items().empty());
    EXPECT_FALSE(map.readJson("[]", nullptr));
    EXPECT_TRUE(map.items().empty());
    EXPECT_FALSE(array.readJson(nullptr, nullptr));
    EXPECT_EQ(printed.text(),
              "[json] parse error: {}\n[json] parse error: []\n[json] parse error: \n");
    EXPECT_TRUE(array.readJson(" [7]", &consumed));
    EXPECT_EQ(consumed, 4);
    EXPECT_EQ(array.at(0).asInteger(), 7);
    mox::MultiValues& base = map;
    EXPECT_TRUE(base.readJson("{\"a\":8}", nullptr));
    EXPECT_EQ(map.at("a").asInteger(), 8);
}

TEST(ValueJsonTest, ReadsContainersUpTo256Deep) {
    const auto lists = fw_test::nested_lists(256);
    const auto maps = fw_test::nested_maps(256);
    EXPECT_TRUE(equal(read(lists.writeJson(false, 0)).value, lists));
    EXPECT_TRUE(equal(read(maps.writeJson(true, 0)).value, maps));
    for (const std::size_t levels : {257U, 10000U, 1000000U}) {
        const std::string open(levels, '[');
        const std::string rest = open.substr(256);
        for (const std::string& tail : {std::string(), std::string(levels, ']')}) {
            const Outcome outcome = read(open + tail);
            EXPECT_FALSE(outcome.good);
            EXPECT_TRUE(outcome.value.isNull());
            EXPECT_EQ(outcome.printed, "[json] parse error: " + rest + tail + "\n");
        }
    }
    EXPECT_FALSE(read(fw_test::nested_maps(10000).writeJson(false, 0)).good);
}

TEST(ValueJsonTest, ManyArraysBesideEachOtherAreNotDeep) {
    std::string json = "[";
    for (int i = 0; i < 1000; ++i) {
        json += "[[]],";
    }
    EXPECT_TRUE(read(json + "{}]").good);
}

/// A tree that survives JSON: doubles of six digits with a fraction, texts without NUL, names
/// without quotes and backslashes.
Value random_tree(Dice& dice, int levels) {
    static const std::string s_text = "abc[]{}:,\"\"\\\\/\n\t\x01\x7F\x80\xFF u0041";
    static const std::string s_name = "abc[]{}:,/\n\x01\x80\xFF";
    switch (dice.below(levels > 0 ? 7 : 5)) {
        case 0:
            return {};
        case 1:
            return Value::boolean(dice.below(2) == 1);
        case 2:
            return Value::integer(static_cast<long long>(dice.bits() >> dice.below(64)));
        case 3:
            return Value::number(static_cast<double>(dice.below(100000)) - 50000 + 0.5);
        case 4:
            return Value::string(dice.text(s_text, 20));
        case 5: {
            std::list<Value> items;
            for (auto left = dice.below(6); left > 0; --left) {
                items.push_back(random_tree(dice, levels - 1));
            }
            return Value::list(std::move(items));
        }
        default: {
            std::map<std::string, Value> items;
            for (auto left = dice.below(6); left > 0; --left) {
                items[dice.text(s_name, 5)] = random_tree(dice, levels - 1);
            }
            return Value::map(std::move(items));
        }
    }
}

TEST(ValueJsonTest, ReadsBackRandomTrees) {
    Dice dice(20260104);
    for (int i = 0; i < 2000; ++i) {
        const Value tree = random_tree(dice, 5);
        for (const bool pretty : {false, true}) {
            const std::string json = tree.writeJson(pretty, 0);
            const Outcome outcome = read(json);
            ASSERT_TRUE(outcome.good) << json;
            ASSERT_TRUE(equal(outcome.value, tree)) << json;
        }
    }
}

TEST(ValueJsonTest, SurvivesDamagedTexts) {
    Dice dice(20260105);
    StderrCapture quiet;
    for (int i = 0; i < 2000; ++i) {
        const std::string json = random_tree(dice, 4).writeJson(i % 2 == 0, 0);
        for (int k = 0; k < 20; ++k) {
            const std::string damaged = dice.mutated(json);
            const TightText tight(damaged);
            Value value = Value::integer(1);
            int consumed = -1;
            const bool good = value.readJson(tight.get(), &consumed);
            ASSERT_GE(consumed, 0) << damaged;
            ASSERT_LE(consumed, static_cast<int>(std::strlen(tight.get()))) << damaged;
            ASSERT_TRUE(good ? consumed > 0 : value.isNull()) << damaged;
            ASSERT_FALSE(value.writeJson(true, 0).empty());
        }
    }
}

TEST(ValueJsonTest, ReadsALongTextInOnePass) {
    // 100 MB where that is no hardship. Looking at all of the rest for each element would take
    // hours.
    const std::size_t size = fw_test::kSanitized ? 10'000'000 : 100'000'000;
    const std::string item = "\"" + std::string(97, 'x') + "\",";
    std::string json = "[";
    while (json.size() < size) {
        json += item;
    }
    json.back() = ']';
    Value value;
    ASSERT_TRUE(value.readJson(json.c_str(), nullptr));
    EXPECT_EQ(value.array()->items().size(), json.size() / item.size());
    EXPECT_EQ(value.writeJson(false, 0), json);
    json.back() = ',';
    const StderrCapture quiet;
    EXPECT_FALSE(value.readJson(json.c_str(), nullptr));
}

}  // namespace
