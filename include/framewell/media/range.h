#pragma once

#include <framewell/base/config.h>
#include <framewell/media/rational.h>

#include <cstddef>

/// @file
/// Intervals of time, and intervals of time placed on rows.

namespace ff {

/// A span of time [start, end) in seconds: `start` belongs to it, `end` does not. A plain value;
/// nothing keeps `start` from lying after `end`. All operations are those of Rational on both
/// bounds, so bounds keep the form that its rules give them.
/// Thread-safety: as for an int.
struct FRAMEWELL_API Range {
    /// Enough bytes for what toString() writes about any value.
    static constexpr std::size_t kTextSize = 96;

    Rational start;  ///< seconds, the first moment of the span
    Rational end;    ///< seconds, the first moment after it

    /// Shifts both bounds by `r` seconds.
    Range& operator+=(const Rational& r);
    Range& operator-=(const Rational& r);
    Range operator+(const Rational& r) const;
    Range operator-(const Rational& r) const;

    /// Scales both bounds by the factor `r`. A bound that becomes zero comes out as 0/0.
    Range& operator*=(const Rational& r);
    Range& operator/=(const Rational& r);

    /// True if both bounds are equal as Rational compares them, in whatever form.
    bool operator==(const Range& other) const;

    /// The opposite of `==`.
    bool operator!=(const Range& other) const { return !(*this == other); }

    /// Returns the hull: from the lower start to the higher end. Of two equal bounds it takes the
    /// other range's form.
    Range operator|(const Range& other) const;

    /// True if the two have a moment in common; ranges that only touch have none.
    bool intersects(const Range& other) const;

    /// Writes "{(num/den), (num/den)}" into `buf`, which the caller provides (kTextSize bytes hold
    /// any value), and returns it.
    char* toString(char* buf) const;
};

/// A span of time on a band of rows: `h` rows from row `y` on. A plain value.
/// Thread-safety: as for an int.
struct FRAMEWELL_API XRect {
    /// Enough bytes for what toString() writes about any value.
    static constexpr std::size_t kTextSize = 128;

    Range rg;   ///< the span of time
    int y = 0;  ///< its first row
    int h = 0;  ///< number of rows

    /// True if span and rows are equal.
    bool operator==(const XRect& other) const;

    /// The opposite of `==`.
    bool operator!=(const XRect& other) const { return !(*this == other); }

    /// Returns the smallest rectangle around both. An empty one (less than one row, a bound with
    /// denominator 0, or an end before its start) adds nothing: the other comes back unchanged.
    XRect operator|(const XRect& other) const;

    /// Writes "{rg:{(num/den), (num/den)}, y:Y,h=H}" into `buf`, which the caller provides
    /// (kTextSize bytes hold any value), and returns it.
    char* toString(char* buf) const;
};

}  // namespace ff
