// Writing JSON.

#include "base/line_text.h"
#include "base/value_forms.h"
#include "base/value_walk.h"

#include <framewell/base/value.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace mox {
namespace {

// Further levels are indented no more: a tree of n levels would take n * n blanks.
constexpr long long kDeepestIndent = 1000;

void append_quoted(std::string& json, std::string_view text) {
    json += '"';
    text = text.substr(0, text.find('\0'));  // Deliberate: what C functions would see of it
    while (!text.empty()) {
        const std::size_t plain = std::min(text.find_first_of("\"\\"), text.size());
        json.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (!text.empty()) {
            json += '\\';
            json += text.front();
            text.remove_prefix(1);
        }
    }
    json += '"';
}

void append_double(std::string& json, double number) {
    char buf[32];
    const int wanted = std::snprintf(buf, sizeof buf, "%g", number);
    json.append(buf, written(wanted, sizeof buf));
}

// Writes a value that is no container.
void append_item(std::string& json, const Value& value) {
    switch (value.type()) {
        case T_NULL:
            json += "null";
            break;
        case T_BOOL:
            json += value.asBool() ? "true" : "false";
            break;
        case T_INT:
            json += std::to_string(value.asInteger());
            break;
        case T_DOUBLE:
            append_double(json, value.asNumber());
            break;
        case T_STRING:
            append_quoted(json, value.text());
            break;
        default:
            json += '"';
            json += value.write();
            json += '"';
            break;
    }
}

class JsonWriter {
public:
    JsonWriter(bool pretty, int indent) : m_pretty(pretty), m_indent(indent) {}

    std::string write(const ValueWalk& root) {
        open_container(root);
        while (!m_open.empty()) {
            const ValueWalk::Element element = m_open.back().walk.next();
            if (element.value == nullptr) {
                close_container();
                continue;
            }
            begin_element(element.key);
            if (ValueWalk::possible(*element.value)) {
                open_container(ValueWalk::through(*element.value, ValueWalk::From::Begin));
            } else {
                append_item(m_json, *element.value);
            }
        }
        return std::move(m_json);
    }

private:
    struct Container {
        ValueWalk walk;
        bool empty;  // so far
    };

    void open_container(const ValueWalk& walk) {
        m_json += walk.is_map() ? '{' : '[';
        m_json += m_pretty ? "\n" : "";
        m_open.push_back({walk, true});
    }

    void begin_element(const std::string* key) {
        if (!std::exchange(m_open.back().empty, false)) {
            m_json += m_pretty ? ",\n" : ",";
        }
        indent_line();
        if (key != nullptr) {
            m_json += '"';
            m_json += *key;  // Deliberate: as it is
            m_json += "\":";
        }
    }

    void close_container() {
        const char end = m_open.back().walk.is_map() ? '}' : ']';
        m_open.pop_back();
        m_json += m_pretty ? "\n" : "";
        indent_line();
        m_json += end;
    }

    void indent_line() {
        if (m_pretty) {
            const long long level = m_indent + static_cast<long long>(m_open.size());
            const long long shown = std::clamp(level, 0LL, kDeepestIndent);
            m_json.append(2 * static_cast<std::size_t>(shown), ' ');
        }
    }

    const bool m_pretty;
    const int m_indent;
    std::vector<Container> m_open;  // from the root down
    std::string m_json;
};

}  // namespace

std::string Value::writeJson(bool pretty, int indent) const {
    return written_by([this, pretty, indent] {
        if (ValueWalk::possible(*this)) {
            return JsonWriter(pretty, indent)
                .write(ValueWalk::through(*this, ValueWalk::From::Begin));
        }
        std::string json;
        append_item(json, *this);
        return json;
    });
}

std::string ValueArray::writeJson(bool pretty, int indent) const {
    return written_by([this, pretty, indent] {
        return JsonWriter(pretty, indent).write(ValueWalk(*this, ValueWalk::From::Begin));
    });
}

std::string ValueMap::writeJson(bool pretty, int indent) const {
    return written_by([this, pretty, indent] {
        return JsonWriter(pretty, indent).write(ValueWalk(*this, ValueWalk::From::Begin));
    });
}

}  // namespace mox
