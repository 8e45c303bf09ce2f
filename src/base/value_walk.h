#pragma once

#include <framewell/base/value.h>

#include <list>
#include <map>
#include <string>

namespace mox {

/// A place in a list or a map, between two elements. Trees are walked with a stack of these instead
/// of by recursion, because nothing limits how deep a host's tree is.
class ValueWalk {
public:
    /// `value` is null if there is no element; `key` is null in a list.
    struct Element {
        const std::string* key;
        const Value* value;
    };

    /// Begins in front of the first element, or behind the last one.
    enum class From { Begin, End };

    ValueWalk(const ValueArray& array, From from) : m_array(&array) {
        m_item = from == From::Begin ? array.items().begin() : array.items().end();
    }

    ValueWalk(const ValueMap& map, From from) : m_map(&map) {
        m_entry = from == From::Begin ? map.items().begin() : map.items().end();
    }

    /// `value` is a list or a map.
    static ValueWalk through(const Value& value, From from) {
        return value.array() != nullptr ? ValueWalk(*value.array(), from)
                                        : ValueWalk(*value.map(), from);
    }

    static bool possible(const Value& value) {
        return value.type() == T_LIST || value.type() == T_MAP;
    }

    bool is_map() const { return m_map != nullptr; }

    /// Steps over the element after the place and returns it.
    Element next() {
        if (m_array != nullptr) {
            return m_item == m_array->items().end() ? Element{} : Element{nullptr, &*m_item++};
        }
        if (m_entry == m_map->items().end()) {
            return {};
        }
        const auto& entry = *m_entry++;
        return {&entry.first, &entry.second};
    }

    /// Steps back over the element before the place and returns it.
    Element previous() {
        if (m_array != nullptr) {
            return m_item == m_array->items().begin() ? Element{} : Element{nullptr, &*--m_item};
        }
        if (m_entry == m_map->items().begin()) {
            return {};
        }
        const auto& entry = *--m_entry;
        return {&entry.first, &entry.second};
    }

private:
    // One of the two is null, and so without meaning is the iterator of that kind.
    const ValueArray* m_array = nullptr;
    const ValueMap* m_map = nullptr;
    std::list<Value>::const_iterator m_item;
    std::map<std::string, Value>::const_iterator m_entry;
};

}  // namespace mox
