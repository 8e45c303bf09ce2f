// Writing the tagged form.

#include "base/line_text.h"
#include "base/value_forms.h"
#include "base/value_walk.h"

#include <framewell/base/value.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace mox {
namespace {

std::string tagged_text(const Value& value) {
    std::string text = "[str:" + std::to_string(value.length()) + "]";
    return text.append(value.text());
}

std::string tagged_error(const Value& value) {
    std::string text = "[err:" + std::to_string(value.text().size()) + "]" +
                       std::to_string(value.errorCode()) + ",";
    return text.append(value.text());
}

// Numbers and addresses. Deliberate: what does not fit into 127 characters is cut there.
std::string tagged_numbers(const Value& value) {
    char buf[128];
    int wanted = 0;
    switch (value.type()) {
        case T_INT:
            wanted = std::snprintf(buf, sizeof buf, "[i]%lld", value.asInteger());
            break;
        case T_DOUBLE:
            wanted = std::snprintf(buf, sizeof buf, "[f]%lf", value.asNumber());
            break;
        case T_INT2: {
            const auto* const n = value.asInt2();
            wanted = std::snprintf(buf, sizeof buf, "[i2]%d,%d", n[0], n[1]);
            break;
        }
        case T_INT4: {
            const auto* const n = value.asInt4();
            wanted = std::snprintf(buf, sizeof buf, "[i4]%d,%d,%d,%d", n[0], n[1], n[2], n[3]);
            break;
        }
        case T_DOUBLE2: {
            const auto* const n = value.asDouble2();
            wanted = std::snprintf(buf, sizeof buf, "[d2]%lf,%lf", n[0], n[1]);
            break;
        }
        case T_DOUBLE4: {
            const auto* const n = value.asDouble4();
            wanted = std::snprintf(buf, sizeof buf, "[d4]%lf,%lf,%lf,%lf", n[0], n[1], n[2], n[3]);
            break;
        }
        case T_POINTER:
            wanted = std::snprintf(buf, sizeof buf, "[v]%p", value.asPointer());
            break;
        case T_PTR: {
            const auto address = reinterpret_cast<std::uintptr_t>(value.data());
            wanted = std::snprintf(buf, sizeof buf, "[ptr]%llu,%d",
                                   static_cast<unsigned long long>(address), value.length());
            break;
        }
        default:
            break;
    }
    return {buf, written(wanted, sizeof buf)};
}

// Writes a value that is no container.
std::string tagged_item(const Value& value) {
    switch (value.type()) {
        case T_NULL:
            return "<null>";
        case T_BOOL:
            return value.asBool() ? "[b]true" : "[b]false";
        case T_STRING:
            return tagged_text(value);
        case T_ERROR:
            return tagged_error(value);
        default:
            return tagged_numbers(value);
    }
}

// Writes a tree from its end to its start, every byte in front of those before: the length of a
// body is then known when its header is due, and no body is copied into the one around it.
class BackwardWriter {
public:
    std::string write(const ValueWalk& root) {
        m_open.push_back({root, nullptr, 0});
        while (!m_open.empty()) {
            const ValueWalk::Element element = m_open.back().walk.previous();
            if (element.value == nullptr) {
                close_container();
                continue;
            }
            m_backward += '`';
            if (ValueWalk::possible(*element.value)) {
                m_open.push_back({ValueWalk::through(*element.value, ValueWalk::From::End),
                                  element.key, m_backward.size()});
            } else {
                prepend(tagged_item(*element.value));
                prepend_key(element.key);
            }
        }
        std::reverse(m_backward.begin(), m_backward.end());
        return std::move(m_backward);
    }

private:
    struct Container {
        ValueWalk walk;
        const std::string* key;  // its own, in the container around it
        std::size_t behind;      // bytes of the text that stand behind it
    };

    void close_container() {
        const Container& container = m_open.back();
        const std::size_t length = m_backward.size() - container.behind;
        prepend((container.walk.is_map() ? "{map:" : "{list:") + std::to_string(length) + "}");
        prepend_key(container.key);
        m_open.pop_back();
    }

    void prepend(std::string_view text) { m_backward.append(text.rbegin(), text.rend()); }

    void prepend_key(const std::string* key) {
        if (key != nullptr) {
            m_backward += ':';
            prepend(*key);
        }
    }

    std::vector<Container> m_open;  // from the root down
    std::string m_backward;
};

}  // namespace

std::string Value::write() const {
    return written_by([this] {
        return ValueWalk::possible(*this)
                   ? BackwardWriter().write(ValueWalk::through(*this, ValueWalk::From::End))
                   : tagged_item(*this);
    });
}

std::string ValueArray::write() const {
    return written_by(
        [this] { return BackwardWriter().write(ValueWalk(*this, ValueWalk::From::End)); });
}

std::string ValueMap::write() const {
    return written_by(
        [this] { return BackwardWriter().write(ValueWalk(*this, ValueWalk::From::End)); });
}

}  // namespace mox
