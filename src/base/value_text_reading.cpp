// Reading the tagged form.

#include "base/c_locale.h"
#include "base/value_forms.h"
#include "base/value_number_scan.h"

#include <framewell/base/value.h>

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <list>
#include <map>
#include <string>
#include <string_view>
#include <utility>

namespace mox {
namespace {

constexpr std::size_t kLongestTag = 15;

bool begins_with(std::string_view text, std::string_view start) {
    return text.substr(0, start.size()) == start;
}

// What reading a text may cost. Lengths that contradict each other can make items overlap, so that
// the same bytes are read again and again: twice as often for each further list, if somebody means
// it. A text whose lengths are right costs less than 12 for each of its bytes.
class Effort {
public:
    explicit Effort(std::size_t length) : m_left((std::size_t{1} << 20) + 16 * length) {}

    bool spend(std::size_t cost) {
        m_exhausted = m_exhausted || cost > m_left;
        m_left -= m_exhausted ? 0 : cost;
        return !m_exhausted;
    }

    bool exhausted() const { return m_exhausted; }

private:
    std::size_t m_left;
    bool m_exhausted = false;
};

// Finds the next byte of one kind. It remembers the last answer, so that many items in front of a
// far byte do not look for it each on its own.
class Finder {
public:
    Finder(char byte, const char* text_end, Effort& effort)
        : m_byte(byte), m_text_end(text_end), m_effort(effort) {}

    // Returns the first such byte from `from` on, or the end of the text.
    const char* find(const char* from) {
        if (m_from == nullptr || from < m_from || from > m_found) {
            const auto length = static_cast<std::size_t>(m_text_end - from);
            const auto* const found = static_cast<const char*>(std::memchr(from, m_byte, length));
            m_from = from;
            m_found = found != nullptr ? found : m_text_end;
            m_effort.spend(static_cast<std::size_t>(m_found - from));
        }
        return m_found;
    }

private:
    const char m_byte;
    const char* const m_text_end;
    Effort& m_effort;
    const char* m_from = nullptr;
    const char* m_found = nullptr;
};

// Scans up to four doubles as sscanf() does and returns how many there are.
int scan_doubles(std::string_view body, double (&numbers)[4]) {
    // Only bytes that numbers are made of: sscanf() measures what it is given, and a body may be
    // the whole rest of a text.
    const auto* const end = std::find_if(body.begin(), body.end(), [](char byte) {
        return std::isalnum(static_cast<unsigned char>(byte)) == 0 &&
               std::string_view("+-.,() \t\n\v\f\r").find(byte) == std::string_view::npos;
    });
    const std::string numeric(body.begin(), end);
    return std::sscanf(numeric.c_str(), "%lf,%lf,%lf,%lf", &numbers[0], &numbers[1], &numbers[2],
                       &numbers[3]);
}

// Decodes two or four numbers; T_NULL if there are fewer or the tag is another.
Value decode_vector(std::string_view tag, std::string_view body) {
    NumberScan scan(body);
    double doubles[4] = {};
    if (tag == "i2") {
        std::int32_t n[2] = {};
        return scan.take_all(n) ? Value::int2(n[0], n[1]) : Value();
    }
    if (tag == "i4") {
        std::int32_t n[4] = {};
        return scan.take_all(n) ? Value::int4(n[0], n[1], n[2], n[3]) : Value();
    }
    if (tag == "d2") {
        return scan_doubles(body, doubles) >= 2 ? Value::double2(doubles[0], doubles[1]) : Value();
    }
    if (tag == "d4") {
        return scan_doubles(body, doubles) == 4
                   ? Value::double4(doubles[0], doubles[1], doubles[2], doubles[3])
                   : Value();
    }
    return {};
}

// Decodes an item that has no length; T_NULL if it cannot be.
Value decode(std::string_view tag, std::string_view body) {
    NumberScan scan(body);
    if (tag == "b") {
        return Value::boolean(begins_with(body, "true"));
    }
    if (tag == "i") {
        long long number = 0;
        return scan.take(number) ? Value::integer(number) : Value();
    }
    if (tag == "f") {
        double doubles[4] = {};
        return scan_doubles(body, doubles) >= 1 ? Value::number(doubles[0]) : Value();
    }
    if (tag == "v") {
        void* pointer = nullptr;
        return scan.take(pointer) ? Value::pointer(pointer) : Value();
    }
    if (tag == "ptr") {
        unsigned long long address = 0;
        std::int32_t length = 0;
        const bool both = scan.take(address) && scan.take_comma() && scan.take(length);
        // NOLINTNEXTLINE(performance-no-int-to-ptr): only carried, never followed
        auto* const data = reinterpret_cast<char*>(static_cast<std::uintptr_t>(address));
        return both ? Value::borrowed(data, length) : Value();
    }
    return decode_vector(tag, body);
}

bool is_text_tag(std::string_view tag, std::string_view kind) {
    return begins_with(tag, kind) && (tag.size() == kind.size() || tag[kind.size()] == ':');
}

// Returns the length in "str:5" or "err:5"; negative if there is none.
std::int32_t length_in(std::string_view tag) {
    constexpr std::size_t kind_length = 3;
    std::int32_t length = -1;
    if (tag.size() > kind_length && !NumberScan(tag.substr(kind_length + 1)).take(length)) {
        (void)std::fprintf(stderr, "> Value:read() err: type='%s', missing 'len'.\n",
                           std::string(tag).c_str());
    }
    return length;
}

// Reads one text. What stands at `at` is read, `stop` gets its end; where nothing is read, `stop`
// stays or tells how long the unknown item is.
class TaggedReader {
public:
    explicit TaggedReader(const char* text)
        : m_end(text + std::strlen(text)),
          m_effort(static_cast<std::size_t>(m_end - text)),
          m_brackets(']', m_end, m_effort),
          m_braces('}', m_end, m_effort),
          m_colons(':', m_end, m_effort),
          m_backticks('`', m_end, m_effort) {}

    // Whether the text goes too deep or costs too much. All that was read of it is void then.
    bool refused() const { return m_too_deep || m_effort.exhausted(); }

    bool read(const char* at, Value& value, const char*& stop) {
        stop = at;
        const std::string_view text = from(at);
        if (!m_effort.spend(kCostOfItem) || text.size() < 4) {
            return false;
        }
        if (begins_with(text, "<null>")) {
            stop = at + 6;
            return true;
        }
        if (begins_with(text, "{list")) {
            std::list<Value> items;
            const bool good = read(at, items, stop);
            if (good) {
                value.setArray(std::move(items));
            }
            return good;
        }
        if (begins_with(text, "{map")) {
            std::map<std::string, Value> items;
            const bool good = read(at, items, stop);
            if (good) {
                value.setMap(std::move(items));
            }
            return good;
        }
        return read_tagged(at, value, stop);
    }

    bool read(const char* at, std::list<Value>& items, const char*& stop) {
        const NestingScope nesting(m_depth);
        Body body{};
        if (!open_container(at, "{list", "List", body)) {
            return false;
        }
        for (const char* position = body.begin; position < body.end;) {
            const char* item_end = position;
            if (!read(position, items.emplace_back(), item_end)) {
                items.pop_back();
                break;
            }
            position = item_end + 1;
        }
        stop = body.end;
        return !refused();
    }

    bool read(const char* at, std::map<std::string, Value>& items, const char*& stop) {
        const NestingScope nesting(m_depth);
        Body body{};
        if (!open_container(at, "{map", "Map", body)) {
            return false;
        }
        for (const char* position = body.begin; position < body.end;) {
            const char* const colon = m_colons.find(position);
            const char* item_end = colon;
            Value value;
            if (colon == m_end || !m_effort.spend(static_cast<std::size_t>(colon - position)) ||
                !read(colon + 1, value, item_end)) {
                break;
            }
            items.insert_or_assign(std::string(position, colon), std::move(value));
            position = item_end + 1;
        }
        stop = body.end;
        return !refused();
    }

private:
    static constexpr std::size_t kCostOfItem = 16;  // the shortest, "[b]`", has 4 bytes

    struct Body {
        const char* begin;
        const char* end;
    };

    std::string_view from(const char* at) const {
        return {at, static_cast<std::size_t>(m_end - at)};
    }

    // Takes "{list}", "{list:LENGTH}" or the same of a map.
    bool open_container(const char* at, std::string_view start, const char* kind, Body& body) {
        m_too_deep = m_too_deep || m_depth > kMaxNesting;
        if (refused() || !begins_with(from(at), start)) {
            return false;
        }
        const char* const after_start = at + start.size();
        const char* const brace = m_braces.find(after_start);
        if (brace == m_end || brace + 1 == m_end) {
            return false;  // not even a backtick follows
        }
        body = {brace + 1, m_end};
        if (*after_start != ':') {
            return true;
        }
        std::int32_t length = 0;
        if (NumberScan(from(after_start + 1)).take(length)) {
            body.end = body.begin + std::clamp<std::ptrdiff_t>(length, 0, m_end - body.begin);
        } else if (m_effort.spend(from(at).size())) {
            (void)std::fprintf(stderr, "> Value%s:read() err: data='%s', missing 'len'.\n", kind,
                               at);
        }
        return true;
    }

    bool read_tagged(const char* at, Value& value, const char*& stop) {
        const char* const bracket = m_brackets.find(at);
        if (bracket == m_end) {
            return false;
        }
        std::string_view tag = from(at).substr(0, static_cast<std::size_t>(bracket - at));
        tag.remove_prefix(tag.empty() ? 0 : 1);  // whatever stands there
        tag = tag.size() > kLongestTag ? "" : tag;
        const char* const body = bracket + 1;
        (void)std::fflush(stderr);  // Deliberate: what was printed before an item comes first
        if (is_text_tag(tag, "str")) {
            value = read_text(tag, body, stop);
        } else if (is_text_tag(tag, "err")) {
            value = read_error(tag, body, stop);
        } else {
            stop = m_backticks.find(body);
            value = decode(tag, affordable(body, stop));
        }
        return !value.isNull();
    }

    Value read_text(std::string_view tag, const char* body, const char*& stop) {
        const std::ptrdiff_t length = length_in(tag);
        stop = length >= 0 ? body + std::min(length, m_end - body) : m_backticks.find(body);
        return Value::string(affordable(body, stop));
    }

    Value read_error(std::string_view tag, const char* body, const char*& stop) {
        const std::ptrdiff_t length = length_in(tag);
        stop = m_backticks.find(body);
        const std::string_view item(body, static_cast<std::size_t>(stop - body));
        long long code = 0;
        (void)NumberScan(item).take(code);  // an error without a number has the code 0
        const std::size_t comma = item.find(',');
        (void)m_effort.spend(std::min(comma, item.size()));
        std::string_view message;
        if (comma != std::string_view::npos) {
            const char* const begin = body + comma + 1;
            if (length >= 0) {
                // Deliberate: the length counts from the number on, so part of the message is
                // lost. Texts that hosts have kept are read like this.
                const std::ptrdiff_t left = length - (begin - body);
                stop = begin + std::clamp<std::ptrdiff_t>(left, 0, m_end - begin);
                message = affordable(begin, stop);
            } else if (begin != m_end) {
                message = affordable(body, m_end);  // Deliberate: the number and all that follows
            }
        }
        return Value::error(code, message);
    }

    // The bytes that a value is about to be made of; none if that costs too much.
    std::string_view affordable(const char* begin, const char* end) {
        const auto length = static_cast<std::size_t>(end - begin);
        return m_effort.spend(length) ? std::string_view(begin, length) : std::string_view();
    }

    const char* const m_end;
    Effort m_effort;
    Finder m_brackets;
    Finder m_braces;
    Finder m_colons;
    Finder m_backticks;
    int m_depth = 0;
    bool m_too_deep = false;
};

// Reads `text` into `into`, a null value or an empty container, which stays that if it fails.
template <typename T>
bool read_tagged_text(const char* text, T& into, int* consumed) {
    tell_consumed(consumed, 0);
    if (text == nullptr) {
        return false;
    }
    try {
        const CLocaleScope c_locale;
        TaggedReader reader(text);
        T read;
        const char* stop = text;
        const bool good = reader.read(text, read, stop) && !reader.refused();
        if (!reader.refused()) {
            tell_consumed(consumed, stop - text);
        }
        if (good) {
            into = std::move(read);
        }
        return good;
    } catch (const std::exception&) {
        tell_consumed(consumed, 0);
        return false;
    }
}

}  // namespace

// All three read before they let go of what they hold: the text may be part of it.

bool Value::read(const char* text, int* consumed) {
    Value value;
    const bool good = read_tagged_text(text, value, consumed);
    *this = std::move(value);
    return good;
}

bool ValueArray::read(const char* text, int* consumed) {
    std::list<Value> items;
    const bool good = read_tagged_text(text, items, consumed);
    m_items->swap(items);
    return good;
}

bool ValueMap::read(const char* text, int* consumed) {
    std::map<std::string, Value> items;
    const bool good = read_tagged_text(text, items, consumed);
    m_items->swap(items);
    return good;
}

}  // namespace mox
