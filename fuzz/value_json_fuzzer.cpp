// Values out of JSON: the input is the text, up to its first NUL. Another reader says whether it is
// JSON at all and what is in it.

#include "byte_script.h"
#include "expect.h"

#include <framewell/base/value.h>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

namespace {

using fuzz::expect;
using mox::Value;
using Json = nlohmann::json;

constexpr int kMaxNesting = 256;

bool is_same(const Value& value, const Json& json);

bool is_same_list(const Value& value, const Json& json) {
    if (value.type() != mox::T_LIST || value.array()->items().size() != json.size()) {
        return false;
    }
    const auto& items = value.array()->items();
    return std::equal(items.begin(), items.end(), json.begin(), is_same);
}

bool is_same_map(const Value& value, const Json& json) {
    if (value.type() != mox::T_MAP || value.map()->items().size() != json.size()) {
        return false;
    }
    const auto& items = value.map()->items();
    return std::all_of(items.begin(), items.end(), [&json](const auto& item) {
        const auto found = json.find(item.first);
        return found != json.end() && is_same(item.second, *found);
    });
}

bool is_same_number(const Value& value, const Json& json) {
    if (json.is_number_float()) {
        return value.type() == mox::T_DOUBLE && value.asNumber() == json.get<double>();
    }
    if (json.is_number_unsigned() && json.get<std::uint64_t>() > INT64_MAX) {
        return value.type() == mox::T_DOUBLE &&
               value.asNumber() == static_cast<double>(json.get<std::uint64_t>());
    }
    return value.type() == mox::T_INT && value.asInteger() == json.get<std::int64_t>();
}

// Whether `value` is what `json` says, by the rules of the value: no text is ever empty.
bool is_same(const Value& value, const Json& json) {
    switch (json.type()) {
        case Json::value_t::null:
            return value.isNull();
        case Json::value_t::boolean:
            return value.type() == mox::T_BOOL && value.asBool() == json.get<bool>();
        case Json::value_t::string: {
            const auto& text = json.get_ref<const std::string&>();
            return text.empty() ? value.isNull()
                                : value.type() == mox::T_STRING && value.text() == text;
        }
        case Json::value_t::array:
            return is_same_list(value, json);
        case Json::value_t::object:
            return is_same_map(value, json);
        default:
            return is_same_number(value, json);
    }
}

// What the other reader refuses and this one takes: bytes that are no UTF-8, control characters,
// halves of surrogate pairs, numbers that are infinite.
bool is_only_for_ours(const std::string& text) {
    const auto is_odd = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte >= 0x7F;
    };
    return std::any_of(text.begin(), text.end(), is_odd) ||
           text.find("\\ud") != std::string::npos || text.find("\\uD") != std::string::npos;
}

// Whether the numbers of `value` are written as numbers that read back.
bool comes_back(const Value& value);

bool comes_back_list(const Value& value) {
    const auto& items = value.array()->items();
    return std::all_of(items.begin(), items.end(), comes_back);
}

bool comes_back_map(const Value& value) {
    const auto& items = value.map()->items();
    return std::all_of(items.begin(), items.end(),
                       [](const auto& item) { return comes_back(item.second); });
}

bool comes_back(const Value& value) {
    if (value.type() == mox::T_LIST) {
        return comes_back_list(value);
    }
    if (value.type() == mox::T_MAP) {
        return comes_back_map(value);
    }
    // A zero with a sign is written "-0", which is the integer 0.
    const double number = value.asNumber(1.0);
    return std::isfinite(number) && (number != 0 || !std::signbit(number));
}

int nesting_of(const Json& json) {
    int deepest = 0;
    for (const Json& item : json) {
        deepest = std::max(deepest, item.is_structured() ? nesting_of(item) : 0);
    }
    return deepest + 1;
}

void check_writing(const Value& value, bool has_plain_texts) {
    const std::string line = value.writeJson(false, 0);
    const std::string lines = value.writeJson(true, 1);
    expect(!line.empty() && !lines.empty(), "what was read can be written");
    Value from_line;
    Value from_lines;
    const bool good = from_line.readJson(line.c_str(), nullptr);
    expect(good == from_lines.readJson(lines.c_str(), nullptr), "both layouts are as good");
    expect(from_line.write() == from_lines.write(), "both layouts hold the same");
    if (has_plain_texts && comes_back(value)) {
        expect(good, "what was written can be read");
        expect(from_line.writeJson(false, 0) == line, "what was read is written the same again");
    }
}

// Names with these are written as they are, and a text ends at its first NUL: neither reads back.
bool has_escapes(const std::string& text) {
    return text.find('\\') != std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text = fuzz::up_to_nul({reinterpret_cast<const char*>(data), size});
    Value whole = Value::integer(1);
    const bool is_json = whole.readJson(text.c_str(), nullptr);
    expect(is_json || whole.isNull(), "reading that fails leaves no value");

    Value first;
    int consumed = -1;
    const bool begins_with_json = first.readJson(text.c_str(), &consumed);
    expect(consumed >= 0 && consumed <= static_cast<int>(text.size()),
           "a value ends inside of its text");
    expect(begins_with_json == (consumed > 0), "only a value takes any bytes");
    expect(begins_with_json || !is_json, "a whole text that is JSON begins with JSON");
    expect(!is_json || first.write() == whole.write(), "both ways of reading give the same");
    if (begins_with_json) {
        Value again;
        expect(again.readJson(text.substr(0, static_cast<std::size_t>(consumed)).c_str(), nullptr),
               "the bytes that were taken are JSON on their own");
        check_writing(first, !has_escapes(text));
    }

    const Json json = Json::parse(text, nullptr, false);
    if (!json.is_discarded()) {
        expect(is_json == (nesting_of(json) <= kMaxNesting + (json.is_structured() ? 0 : 1)),
               "JSON that is not nested too deep can be read");
        expect(!is_json || is_same(whole, json), "both readers find the same");
    } else if (is_json && comes_back(whole)) {
        expect(is_only_for_ours(text), "what can be read is JSON");
    }
    return 0;
}
