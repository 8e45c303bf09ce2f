#include "tools/framewell/time_text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>

namespace {

using tool::parse_time;
using tool::ParsedTime;

struct Accepted {
    const char* text;
    std::int64_t num;
    std::int64_t den;
};

void PrintTo(const Accepted& row, std::ostream* out) {
    *out << row.text;
}

class AcceptedTime : public testing::TestWithParam<Accepted> {};

TEST_P(AcceptedTime, IsTakenExactlyAsWritten) {
    const ParsedTime parsed = parse_time(GetParam().text);
    EXPECT_TRUE(parsed.ok) << parsed.error;
    EXPECT_EQ(parsed.time.num, GetParam().num);
    EXPECT_EQ(parsed.time.den, GetParam().den);
    EXPECT_EQ(parsed.error, "");
}

INSTANTIATE_TEST_SUITE_P(
    TimeTextTest, AcceptedTime,
    testing::Values(Accepted{"0", 0, 1}, Accepted{"7", 7, 1}, Accepted{"12.5", 125, 10},
                    Accepted{"12.50", 1250, 100}, Accepted{".5", 5, 10}, Accepted{"5.", 5, 1},
                    Accepted{"0.0", 0, 10}, Accepted{"007", 7, 1}, Accepted{"+1.5", 15, 10},
                    Accepted{"-1.5", -15, 10}, Accepted{"-0", 0, 1},
                    Accepted{"1001/30000", 1001, 30000}, Accepted{"-1001/30000", -1001, 30000},
                    Accepted{"2/4", 2, 4}, Accepted{"0/5", 0, 5}, Accepted{"0:00", 0, 1},
                    Accepted{"1:05", 65, 1}, Accepted{"01:05", 65, 1}, Accepted{"90:00", 5400, 1},
                    Accepted{"1:05.25", 6525, 100}, Accepted{"-1:05.5", -655, 10},
                    Accepted{"1:02:03", 3723, 1}, Accepted{"100:59:59.999", 363599999, 1000},
                    Accepted{"0.000000000000000001", 1, 1000000000000000000},
                    Accepted{"9223372036854775807", std::numeric_limits<std::int64_t>::max(), 1},
                    Accepted{"1/9223372036854775807", 1,
                             std::numeric_limits<std::int64_t>::max()}));

class RejectedTime : public testing::TestWithParam<std::string> {};

TEST_P(RejectedTime, HasAReasonAndNoValue) {
    const ParsedTime parsed = parse_time(GetParam());
    EXPECT_FALSE(parsed.ok);
    EXPECT_NE(parsed.error, "");
    EXPECT_EQ(parsed.error.find('\n'), std::string::npos);
    EXPECT_EQ(parsed.time.num, 0);
    EXPECT_EQ(parsed.time.den, 1);
}

INSTANTIATE_TEST_SUITE_P(
    TimeTextTest, RejectedTime,
    testing::Values("", "-", "+", ".", "-.", "/", ":", "x", "1x", "x1", " 1", "1 ", "1 2", "1,5",
                    "1e3", "0x10", "inf", "nan", "--1", "+-1", "1.2.3", "1..2", "1/", "/2", "1/2/3",
                    "1/-2", "1/2.5", "1.5/2", "1/0", "0/0", "1:", ":30", "1:5", "1:60", "1:005",
                    "1:-5", "1:60:00", "1:00:60", "1:2:03", "1:00:00:00", "1:00/2", "1:00:", "1:.5",
                    "12s", "9223372036854775808", "99999999999999999999999",
                    "1.0000000000000000000", "1/9223372036854775808", "9223372036854775807:00",
                    "153722867280912931:00", "2562047788015216:00:00"));

TEST(TimeTextTest, NamesTheDenominatorThatIsZero) {
    EXPECT_EQ(parse_time("5/000").error, "the denominator is 0");
}

TEST(TimeTextTest, SaysThatANumberDoesNotFit) {
    EXPECT_EQ(parse_time("123456789012345678901").error, "it has more digits than fit 64 bits");
    EXPECT_EQ(parse_time("1/123456789012345678901").error, "it has more digits than fit 64 bits");
    EXPECT_EQ(parse_time("0.1234567890123456789012").error, "it has more digits than fit 64 bits");
}

TEST(TimeTextTest, RejectsANulByteInside) {
    EXPECT_FALSE(parse_time(std::string("1\0", 2)).ok);
}

}  // namespace
