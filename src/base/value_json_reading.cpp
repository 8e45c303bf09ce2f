// Reading JSON.

#include "base/c_locale.h"
#include "base/value_forms.h"

#include <framewell/base/value.h>

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <list>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace mox {
namespace {

bool is_digit(char byte) {
    return byte >= '0' && byte <= '9';
}

bool is_high_surrogate(std::uint32_t unit) {
    return unit >= 0xD800 && unit < 0xDC00;
}

bool is_low_surrogate(std::uint32_t unit) {
    return unit >= 0xDC00 && unit < 0xE000;
}

void append_utf8(std::string& text, std::uint32_t code) {
    const auto add = [&text](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (code < 0x80) {
        add(code);
    } else if (code < 0x800) {
        add(0xC0 | (code >> 6));
        add(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        add(0xE0 | (code >> 12));
        add(0x80 | ((code >> 6) & 0x3F));
        add(0x80 | (code & 0x3F));
    } else {
        add(0xF0 | (code >> 18));
        add(0x80 | ((code >> 12) & 0x3F));
        add(0x80 | ((code >> 6) & 0x3F));
        add(0x80 | (code & 0x3F));
    }
}

// Returns what the escape of one letter stands for; NUL if there is none.
char unescaped(char letter) {
    switch (letter) {
        case 'b':
            return '\b';
        case 'f':
            return '\f';
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        case '"':
        case '\\':
        case '/':
            return letter;
        default:
            return '\0';
    }
}

// Reads one text. Whatever fails leaves the place where it failed; the NUL at the end of the text
// fits nowhere, so nothing goes beyond it.
class JsonReader {
public:
    explicit JsonReader(const char* text)
        : m_begin(text), m_end(text + std::strlen(text)), m_at(text) {}

    bool read(Value& value) {
        skip_blanks();
        switch (*m_at) {
            case '{': {
                std::map<std::string, Value> items;
                const bool good = read(items);
                if (good) {
                    value.setMap(std::move(items));
                }
                return good;
            }
            case '[': {
                std::list<Value> items;
                const bool good = read(items);
                if (good) {
                    value.setArray(std::move(items));
                }
                return good;
            }
            case '"':
                return read_text(value);
            case 't':
                value = Value::boolean(true);
                return take("true");
            case 'f':
                value = Value::boolean(false);
                return take("false");
            case 'n':
                return take("null");
            default:
                return read_number(value);
        }
    }

    bool read(std::list<Value>& items) {
        const NestingScope nesting(m_depth);
        if (nesting.too_deep() || !take_sign('[')) {
            return false;
        }
        if (take_sign(']')) {
            return true;
        }
        do {
            if (!read(items.emplace_back())) {
                return false;
            }
        } while (take_sign(','));
        return take_sign(']');
    }

    bool read(std::map<std::string, Value>& items) {
        const NestingScope nesting(m_depth);
        if (nesting.too_deep() || !take_sign('{')) {
            return false;
        }
        if (take_sign('}')) {
            return true;
        }
        do {
            std::string name;
            Value value;
            skip_blanks();
            if (!read_string(name) || !take_sign(':') || !read(value)) {
                return false;
            }
            items.insert_or_assign(std::move(name), std::move(value));
        } while (take_sign(','));
        return take_sign('}');
    }

    bool take_end() {
        skip_blanks();
        return m_at == m_end;
    }

    std::ptrdiff_t taken() const { return m_at - m_begin; }

    void complain() const { (void)std::fprintf(stderr, "[json] parse error: %s\n", m_at); }

private:
    void skip_blanks() {
        while (*m_at == ' ' || *m_at == '\n' || *m_at == '\t' || *m_at == '\r') {
            ++m_at;
        }
    }

    // Takes a sign of structure, with white space before it.
    bool take_sign(char sign) {
        skip_blanks();
        if (*m_at != sign) {
            return false;
        }
        ++m_at;
        return true;
    }

    bool take(std::string_view word) {
        if (std::strncmp(m_at, word.data(), word.size()) != 0) {
            return false;
        }
        m_at += word.size();
        return true;
    }

    bool read_text(Value& value) {
        std::string text;
        if (!read_string(text)) {
            return false;
        }
        value = Value::string(text);
        if (value.isNull() && !text.empty()) {
            throw std::bad_alloc();  // or longer than a value can be
        }
        return true;
    }

    bool read_string(std::string& text) {
        if (*m_at != '"') {
            return false;
        }
        ++m_at;
        while (*m_at != '"') {
            const std::size_t plain = std::strcspn(m_at, "\"\\");
            text.append(m_at, plain);
            m_at += plain;
            if (m_at == m_end || (*m_at == '\\' && !read_escape(text))) {
                return false;
            }
        }
        ++m_at;
        return true;
    }

    bool read_escape(std::string& text) {
        if (m_at[1] != 'u') {
            const char byte = unescaped(m_at[1]);
            if (byte == '\0') {
                return false;
            }
            text += byte;
            m_at += 2;
            return true;
        }
        std::uint32_t code = 0;
        if (!code_unit(m_at, code)) {
            return false;
        }
        m_at += kUnitLength;
        std::uint32_t low = 0;
        if (is_high_surrogate(code) && code_unit(m_at, low) && is_low_surrogate(low)) {
            m_at += kUnitLength;
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
        } else if (is_high_surrogate(code) || is_low_surrogate(code)) {
            code = 0xFFFD;  // half a pair is no character
        }
        append_utf8(text, code);
        return true;
    }

    // Decodes "\u" and four hexadecimal digits.
    static bool code_unit(const char* at, std::uint32_t& unit) {
        if (at[0] != '\\' || at[1] != 'u') {
            return false;
        }
        const char* const begin = at + 2;
        for (const char* digit = begin; digit < at + kUnitLength; ++digit) {
            if (*digit == '\0') {
                return false;
            }
        }
        return std::from_chars(begin, at + kUnitLength, unit, 16).ptr == at + kUnitLength;
    }

    // Goes over at least one digit.
    static bool skip_digits(const char*& at) {
        const char* const begin = at;
        while (is_digit(*at)) {
            ++at;
        }
        return at != begin;
    }

    bool read_number(Value& value) {
        if (*m_at != '-' && !is_digit(*m_at)) {
            return false;
        }
        const char* at = m_at + (*m_at == '-' ? 1 : 0);
        const bool leading_zero = at[0] == '0' && is_digit(at[1]);
        if (!skip_digits(at) || leading_zero) {
            (void)std::fprintf(stderr, "[json] parser 'int' error: %s", m_at);
            return false;
        }
        bool good = true;
        const char* const whole_end = at;
        if (*at == '.') {
            ++at;
            good = skip_digits(at);
        }
        if (good && (*at == 'e' || *at == 'E')) {
            ++at;
            at += *at == '+' || *at == '-' ? 1 : 0;
            good = skip_digits(at);
        }
        if (!good) {
            (void)std::fprintf(stderr, "[json] parser 'double' error: %s", m_at);
            return false;
        }
        std::int64_t integer = 0;
        if (at == whole_end && std::from_chars(m_at, at, integer).ec == std::errc()) {
            value = Value::integer(integer);
        } else {
            value = Value::number(std::strtod(m_at, nullptr));
        }
        m_at = at;
        return true;
    }

    static constexpr int kUnitLength = 6;

    const char* const m_begin;
    const char* const m_end;
    const char* m_at;
    int m_depth = 0;
};

// Reads `text` into `into`, a null value or an empty container, which stays that if it fails.
template <typename T>
bool read_json_text(const char* text, T& into, int* consumed) {
    tell_consumed(consumed, 0);
    try {
        const CLocaleScope c_locale;
        JsonReader reader(text != nullptr ? text : "");
        T read;
        const bool good = reader.read(read);
        const std::ptrdiff_t taken = reader.taken();
        if (!good || (consumed == nullptr && !reader.take_end())) {
            reader.complain();
            return false;
        }
        tell_consumed(consumed, taken);
        into = std::move(read);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace

// All three read before they let go of what they hold: the text may be part of it.

bool Value::readJson(const char* text, int* consumed) {
    Value value;
    const bool good = read_json_text(text, value, consumed);
    *this = std::move(value);
    return good;
}

bool ValueArray::readJson(const char* text, int* consumed) {
    std::list<Value> items;
    const bool good = read_json_text(text, items, consumed);
    m_items->swap(items);
    return good;
}

bool ValueMap::readJson(const char* text, int* consumed) {
    std::map<std::string, Value> items;
    const bool good = read_json_text(text, items, consumed);
    m_items->swap(items);
    return good;
}

}  // namespace mox
