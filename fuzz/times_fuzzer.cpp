// Times as users of the tool write them: the input is the text. Its first bytes, as a number of
// microseconds, are also written as a clock shows them and read again.

#include "byte_script.h"
#include "expect.h"
#include "tools/framewell/clock_text.h"
#include "tools/framewell/time_text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using fuzz::expect;
using tool::parse_time;
using tool::ParsedTime;

__extension__ using Wide = __int128;

std::vector<std::string> parts_of(const std::string& text, char separator) {
    std::vector<std::string> parts(1);
    for (const char c : text) {
        if (c == separator) {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

// Only for numbers that are known to fit.
Wide number_of(const std::string& digits) {
    Wide value = 0;
    for (const char c : digits) {
        value = value * 10 + (c - '0');
    }
    return value;
}

// Whether `time` is what `text`, which has been accepted, says; worked out by taking it apart.
bool is_value_of(const std::string& text, const ff::Rational& time) {
    const bool has_sign = text[0] == '-' || text[0] == '+';
    const std::string plain = text.substr(has_sign ? 1 : 0);
    const Wide sign = text[0] == '-' ? -1 : 1;
    const std::vector<std::string> fraction = parts_of(plain, '/');
    if (fraction.size() == 2) {
        return time.num == sign * number_of(fraction[0]) && time.den == number_of(fraction[1]);
    }
    const std::vector<std::string> decimal = parts_of(plain, '.');
    Wide seconds = 0;
    for (const std::string& part : parts_of(decimal[0], ':')) {
        seconds = seconds * 60 + number_of(part);
    }
    const std::string digits = decimal.size() > 1 ? decimal[1] : "";
    const Wide den = number_of("1" + std::string(digits.size(), '0'));
    return time.den == den && time.num == sign * (seconds * den + number_of(digits));
}

void check_text(const std::string& text) {
    const ParsedTime parsed = parse_time(text);
    if (!parsed.ok) {
        expect(!parsed.error.empty(), "a text that is no time has a reason");
        expect(parsed.error.find('\n') == std::string::npos, "the reason is one line");
        expect(parsed.time.num == 0 && parsed.time.den == 1, "there is no time without a text");
        return;
    }
    expect(parsed.error.empty(), "a time has no error");
    expect(parsed.time.den > 0, "a time is a number");
    expect(is_value_of(text, parsed.time), "a time is exactly what was written");
    const ParsedTime again =
        parse_time(std::to_string(parsed.time.num) + "/" + std::to_string(parsed.time.den));
    expect(again.ok && again.time.num == parsed.time.num && again.time.den == parsed.time.den,
           "the fraction that was read can be written and read again");
}

void check_clock(std::int64_t microseconds, int digits) {
    const std::string text = tool::clock_text(microseconds, digits);
    const ParsedTime parsed = parse_time(text);
    expect(parsed.ok, "what a clock shows is a time");
    constexpr std::int64_t units[] = {1000000, 100000, 10000, 1000};
    const std::int64_t unit = units[std::clamp(digits, 0, 3)];
    expect(parsed.time.num == microseconds / unit && parsed.time.den == 1000000 / unit,
           "a clock shows the time cut to its digits");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    check_text(std::string(reinterpret_cast<const char*>(data), size));
    fuzz::ByteScript script(data, size);
    const int digits = script.below(6) - 1;
    check_clock(script.number(), digits);
    return 0;
}
