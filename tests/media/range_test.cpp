#include <framewell/media/range.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

namespace {

using ff::Range;
using ff::Rational;
using ff::XRect;

constexpr int kMaxInt = std::numeric_limits<int>::max();
constexpr std::int64_t kMin64 = std::numeric_limits<std::int64_t>::min();

void expect_form(const Rational& actual, std::int64_t num, std::int64_t den) {
    EXPECT_EQ(actual.num, num);
    EXPECT_EQ(actual.den, den);
}

TEST(RangeTest, ShiftsBothBoundsByTheRulesOfTheirForm) {
    Range range{{1, 2}, {1, 1}};
    EXPECT_EQ(&(range += Rational{1, 2}), &range);
    expect_form(range.start, 2, 2);
    expect_form(range.end, 3, 2);
    EXPECT_EQ(&(range -= Rational{1, 2}), &range);
    expect_form(range.start, 1, 2);
    expect_form(range.end, 2, 2);
}

TEST(RangeTest, ShiftedCopiesLeaveTheOriginal) {
    const Range range{{1, 1}, {2, 1}};
    const Rational one{1, 1};
    EXPECT_EQ(range + one, (Range{{2, 1}, {3, 1}}));
    EXPECT_EQ(range - one, (Range{{0, 1}, {1, 1}}));
    EXPECT_EQ(range, (Range{{1, 1}, {2, 1}}));
}

TEST(RangeTest, ScalesBothBoundsAndTurnsZeroIntoZeroOverZero) {
    Range range{{0, 1}, {3, 1}};
    EXPECT_EQ(&(range *= Rational{1, 2}), &range);
    expect_form(range.start, 0, 0);
    expect_form(range.end, 3, 2);
    range = {{1, 1}, {3, 1}};
    EXPECT_EQ(&(range /= Rational{3, 2}), &range);
    expect_form(range.start, 2, 3);
    expect_form(range.end, 2, 1);
}

TEST(RangeTest, ScalesByItsOwnBound) {
    Range range{{2, 1}, {3, 1}};
    range *= range.start;
    EXPECT_EQ(range, (Range{{4, 1}, {6, 1}}));
    range = {{2, 1}, {3, 1}};
    range -= range.start;
    EXPECT_EQ(range, (Range{{0, 1}, {1, 1}}));
}

TEST(RangeTest, EqualityComparesValues) {
    EXPECT_TRUE((Range{{1, 2}, {2, 2}} == Range{{2, 4}, {1, 1}}));
    EXPECT_TRUE((Range{{1, 2}, {1, 1}} != Range{{1, 2}, {2, 1}}));
    EXPECT_TRUE((Range{{1, 3}, {1, 1}} != Range{{1, 2}, {1, 1}}));
}

TEST(RangeTest, HullReachesFromTheLowerStartToTheHigherEnd) {
    EXPECT_EQ((Range{{1, 1}, {2, 1}} | Range{{3, 2}, {5, 1}}), (Range{{1, 1}, {5, 1}}));
    EXPECT_EQ((Range{{3, 2}, {5, 1}} | Range{{1, 1}, {2, 1}}), (Range{{1, 1}, {5, 1}}));
    EXPECT_EQ((Range{{0, 1}, {1, 1}} | Range{{0, 1}, {1, 1}}), (Range{{0, 1}, {1, 1}}));
}

TEST(RangeTest, HullTakesTheOthersFormOfEqualBounds) {
    const Range hull = Range{{1, 2}, {1, 1}} | Range{{2, 4}, {3, 3}};
    expect_form(hull.start, 2, 4);
    expect_form(hull.end, 3, 3);
}

TEST(RangeTest, RangesThatOnlyTouchDoNotIntersect) {
    EXPECT_FALSE((Range{{0, 1}, {1, 1}}.intersects(Range{{1, 1}, {2, 1}})));
    EXPECT_FALSE((Range{{1, 1}, {2, 1}}.intersects(Range{{0, 1}, {1, 1}})));
    EXPECT_FALSE((Range{{0, 1}, {1, 1}}.intersects(Range{{5, 1}, {6, 1}})));
}

TEST(RangeTest, RangesWithACommonMomentIntersect) {
    EXPECT_TRUE((Range{{0, 1}, {3, 2}}.intersects(Range{{1, 1}, {2, 1}})));
    EXPECT_TRUE((Range{{1, 1}, {2, 1}}.intersects(Range{{0, 1}, {3, 2}})));
    EXPECT_TRUE((Range{{0, 1}, {9, 1}}.intersects(Range{{1, 1}, {2, 1}})));
    EXPECT_TRUE((Range{{1, 1}, {2, 1}}.intersects(Range{{1, 1}, {2, 1}})));
}

TEST(RangeTest, WritesBothBoundsAsText) {
    char buf[Range::kTextSize];
    Range range{{1, 2}, {3, 1}};
    EXPECT_EQ(range.toString(buf), buf);
    EXPECT_STREQ(buf, "{(1/2), (3/1)}");
    EXPECT_EQ(range.toString(nullptr), nullptr);
}

TEST(RangeTest, WritesTheLongestBounds) {
    const std::string bound = "(-9223372036854775808/-9223372036854775808)";
    char buf[Range::kTextSize];
    const Range range{{kMin64, kMin64}, {kMin64, kMin64}};
    EXPECT_EQ(std::string(range.toString(buf)), "{" + bound + ", " + bound + "}");
}

TEST(RangeTest, WritesNoFurtherThanTheTextNeeds) {
    char buf[17];
    std::memset(buf, '#', sizeof buf);
    EXPECT_STREQ((Range{{1, 2}, {3, 1}}.toString(buf)), "{(1/2), (3/1)}");
    EXPECT_EQ(buf[16], '#');
}

TEST(XRectTest, EqualityComparesRowsAndValues) {
    const XRect rect{{{1, 2}, {1, 1}}, 3, 4};
    EXPECT_TRUE((rect == XRect{{{2, 4}, {2, 2}}, 3, 4}));
    EXPECT_TRUE((rect != XRect{{{1, 2}, {1, 1}}, 2, 4}));
    EXPECT_TRUE((rect != XRect{{{1, 2}, {1, 1}}, 3, 5}));
    EXPECT_TRUE((rect != XRect{{{1, 2}, {3, 1}}, 3, 4}));
    EXPECT_TRUE((rect != XRect{{{1, 3}, {1, 1}}, 3, 4}));
}

TEST(XRectTest, BoundsBothRectangles) {
    const XRect both = XRect{{{0, 1}, {1, 1}}, 10, 5} | XRect{{{2, 1}, {3, 1}}, 2, 3};
    EXPECT_EQ(both, (XRect{{{0, 1}, {3, 1}}, 2, 13}));
}

TEST(XRectTest, EmptyRectanglesAddNothing) {
    const XRect full{{{0, 1}, {1, 1}}, 1, 2};
    const XRect no_rows{{{5, 1}, {6, 1}}, 0, 0};
    const XRect no_start{{{0, 0}, {6, 1}}, 0, 9};
    const XRect no_end{{{5, 1}, {6, 0}}, 0, 9};
    const XRect backwards{{{6, 1}, {5, 1}}, 0, 9};
    for (const XRect& empty : {no_rows, no_start, no_end, backwards}) {
        EXPECT_EQ(empty | full, full);
        EXPECT_EQ(full | empty, full);
    }
    EXPECT_EQ(no_rows | backwards, backwards);
    EXPECT_EQ(backwards | no_rows, no_rows);
}

TEST(XRectTest, ASpanOfNoLengthIsNotEmpty) {
    const XRect moment{{{5, 1}, {5, 1}}, 0, 1};
    const XRect both = moment | XRect{{{0, 1}, {1, 1}}, 0, 1};
    EXPECT_EQ(both, (XRect{{{0, 1}, {5, 1}}, 0, 1}));
}

TEST(XRectTest, RowsAtTheEndsOfIntWrap) {
    const XRect low{{{0, 1}, {1, 1}}, kMaxInt, 10};
    const XRect both = low | XRect{{{0, 1}, {1, 1}}, 0, 1};
    EXPECT_EQ(both.y, 0);
    EXPECT_EQ(both.h, 1);  // the lower edge of `low` wraps below the other's
}

TEST(XRectTest, WritesSpanAndRowsAsText) {
    char buf[XRect::kTextSize];
    const XRect rect{{{1, 2}, {3, 1}}, -4, 5};
    EXPECT_EQ(rect.toString(buf), buf);
    EXPECT_STREQ(buf, "{rg:{(1/2), (3/1)}, y:-4,h=5}");
    EXPECT_EQ(rect.toString(nullptr), nullptr);
}

TEST(XRectTest, WritesTheLongestText) {
    const int low = std::numeric_limits<int>::min();
    char buf[XRect::kTextSize];
    const XRect rect{{{kMin64, kMin64}, {kMin64, kMin64}}, low, low};
    EXPECT_EQ(std::strlen(rect.toString(buf)), 124U);
    EXPECT_STREQ(buf + 94, ", y:-2147483648,h=-2147483648}");
}

}  // namespace
