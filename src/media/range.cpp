#include <framewell/media/range.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace ff {

namespace {

bool is_empty(const XRect& rect) {
    return rect.h < 1 || rect.rg.start.den == 0 || rect.rg.end.den == 0 ||
           detail::sign(rect.rg.end - rect.rg.start) < 0;
}

// Rows come from the host and may lie at the ends of int, where a signed sum is undefined.
int wrap_add(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

int wrap_sub(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}

}  // namespace

Range& Range::operator+=(const Rational& r) {
    return *this = *this + r;
}

Range& Range::operator-=(const Rational& r) {
    return *this = *this - r;
}

Range Range::operator+(const Rational& r) const {
    return {start + r, end + r};
}

Range Range::operator-(const Rational& r) const {
    return {start - r, end - r};
}

Range& Range::operator*=(const Rational& r) {
    return *this = Range{start * r, end * r};
}

Range& Range::operator/=(const Rational& r) {
    return *this = Range{start / r, end / r};
}

bool Range::operator==(const Range& other) const {
    return start == other.start && end == other.end;
}

Range Range::operator|(const Range& other) const {
    const bool starts_first = detail::sign(other.start - start) > 0;
    const bool ends_last = detail::sign(other.end - end) < 0;
    return {starts_first ? start : other.start, ends_last ? end : other.end};
}

bool Range::intersects(const Range& other) const {
    return detail::sign(start - other.end) < 0 && detail::sign(end - other.start) > 0;
}

char* Range::toString(char* buf) const {
    if (buf == nullptr) {
        return nullptr;
    }
    char start_text[Rational::kTextSize];
    char end_text[Rational::kTextSize];
    char text[kTextSize];
    const int length = std::snprintf(text, sizeof text, "{%s, %s}", start.toString(start_text),
                                     end.toString(end_text));
    std::memcpy(buf, text, static_cast<std::size_t>(length) + 1);
    return buf;
}

bool XRect::operator==(const XRect& other) const {
    return y == other.y && h == other.h && rg == other.rg;
}

XRect XRect::operator|(const XRect& other) const {
    if (is_empty(*this)) {
        return other;
    }
    if (is_empty(other)) {
        return *this;
    }
    const int top = std::min(y, other.y);
    const int bottom = std::max(wrap_add(y, h), wrap_add(other.y, other.h));
    return {rg | other.rg, top, wrap_sub(bottom, top)};
}

char* XRect::toString(char* buf) const {
    if (buf == nullptr) {
        return nullptr;
    }
    char range_text[Range::kTextSize];
    char text[kTextSize];
    const int length =
        std::snprintf(text, sizeof text, "{rg:%s, y:%d,h=%d}", rg.toString(range_text), y, h);
    std::memcpy(buf, text, static_cast<std::size_t>(length) + 1);
    return buf;
}

}  // namespace ff
