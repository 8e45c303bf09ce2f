// Values out of text in the tagged form: the input is the text, up to its first NUL.

#include "byte_script.h"
#include "expect.h"

#include <framewell/base/value.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace {

using fuzz::expect;
using mox::Value;

// Six digits after the point, and at most four such numbers in 127 characters.
bool has_a_short_text(double number) {
    return std::isfinite(number) && std::fabs(number) < 1e20;
}

bool have_short_texts(const double* numbers, std::size_t count) {
    return std::all_of(numbers, numbers + count, has_a_short_text);
}

// Whether it is so of `value`, or of all that it holds if it is a container.
bool all_of(const Value& value, bool (*is_so)(const Value&)) {
    if (value.type() == mox::T_LIST) {
        const auto& items = value.array()->items();
        return std::all_of(items.begin(), items.end(),
                           [&](const Value& item) { return all_of(item, is_so); });
    }
    if (value.type() == mox::T_MAP) {
        const auto& items = value.map()->items();
        return std::all_of(items.begin(), items.end(),
                           [&](const auto& item) { return all_of(item.second, is_so); });
    }
    return is_so(value);
}

// Where a borrowed buffer has no length, a copy has no address either.
bool is_copied_whole(const Value& value) {
    return value.type() != mox::T_PTR || value.length() > 0;
}

// Whether the tagged form of `value`, inside of a container, is one that is promised to read back.
bool comes_back(const Value& value) {
    switch (value.type()) {
        case mox::T_DOUBLE:
            return has_a_short_text(value.asNumber());
        case mox::T_DOUBLE2:
            return have_short_texts(value.asDouble2(), 2);
        case mox::T_DOUBLE4:
            return have_short_texts(value.asDouble4(), 4);
        case mox::T_ERROR:
        case mox::T_POINTER:
        case mox::T_PTR:
            return false;
        default:
            return true;
    }
}

bool is_empty_container(const Value& value) {
    return (value.type() == mox::T_LIST && value.array()->items().empty()) ||
           (value.type() == mox::T_MAP && value.map()->items().empty());
}

void check_copies(const Value& value, const std::string& written) {
    Value copy = value;
    expect(copy.write() == written, "a copy is written like the original");
    const Value moved = std::move(copy);
    expect(moved.write() == written, "what was moved is written as before");
    copy.copyValue(&moved);  // NOLINT(bugprone-use-after-move): the value must allow it
    expect(copy.write() == written, "a value that was moved from can be used again");
}

void check_writing(const Value& value) {
    const std::string written = value.write();
    expect(!written.empty(), "every value has a text");
    if (all_of(value, is_copied_whole)) {
        check_copies(value, written);
    }
    expect(!value.writeJson(false, 0).empty(), "every value has a text in JSON");
    (void)value.writeJson(true, 1);  // more of the same characters
    Value again;
    int consumed = 0;
    const bool good = again.read(written.c_str(), &consumed);
    if (all_of(value, comes_back) && !is_empty_container(value)) {
        expect(good, "what was written can be read");
        expect(consumed == static_cast<int>(written.size()), "all that was written is read");
        expect(again.write() == written, "what was read is written the same again");
    }
}

void check_container(mox::MultiValues& items, const std::string& text) {
    int consumed = -1;
    const bool good = items.read(text.c_str(), &consumed);
    expect(consumed >= 0 && consumed <= static_cast<int>(text.size()),
           "a container ends inside of its text");
    const std::string written = items.write();
    const std::unique_ptr<mox::MultiValues> clone(items.clone());
    expect(clone->write() == written, "a clone is written like the original");
    expect(good || written.find(":0}") != std::string::npos, "a container that failed is empty");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::up_to_nul({reinterpret_cast<const char*>(data), size});
    Value value = Value::integer(1);
    int consumed = -1;
    const bool good = value.read(text.c_str(), &consumed);
    expect(consumed >= 0 && consumed <= static_cast<int>(text.size()),
           "an item ends inside of its text");
    expect(good || value.isNull(), "reading that fails leaves no value");
    check_writing(value);

    mox::ValueArray list;
    mox::ValueMap map;
    check_container(list, text);
    check_container(map, text);
    return 0;
}
