#include "base/value_walk.h"

#include <framewell/base/value.h>

#include <iterator>
#include <utility>
#include <vector>

namespace mox {
namespace {

// Where copies of elements go: a list or a map.
class CopyTarget {
public:
    explicit CopyTarget(ValueArray& array) : m_array(&array) {}

    explicit CopyTarget(ValueMap& map) : m_map(&map) {}

    // Adds a null value behind all others; the keys come in their order.
    Value& add(const std::string* key) {
        if (m_array != nullptr) {
            return m_array->items().emplace_back();
        }
        auto& items = m_map->items();
        // NOLINTNEXTLINE(clang-analyzer-core.NonNullParamChecker): what goes into a map has a key
        return items.try_emplace(items.end(), *key)->second;
    }

private:
    ValueArray* m_array = nullptr;
    ValueMap* m_map = nullptr;
};

CopyTarget become_container(Value& value, ValueType type) {
    if (type == T_LIST) {
        value.setArray({});
        return CopyTarget(*value.array());
    }
    value.setMap({});
    return CopyTarget(*value.map());
}

// Copies all elements of a tree. What has been copied before memory runs out belongs to `to`.
void copy_elements(const ValueWalk& from, const CopyTarget& to) {
    std::vector<std::pair<ValueWalk, CopyTarget>> waiting{{from, to}};
    while (!waiting.empty()) {
        auto [walk, target] = waiting.back();
        waiting.pop_back();
        for (auto element = walk.next(); element.value != nullptr; element = walk.next()) {
            Value& copy = target.add(element.key);
            if (ValueWalk::possible(*element.value)) {
                waiting.emplace_back(ValueWalk::through(*element.value, ValueWalk::From::Begin),
                                     become_container(copy, element.value->type()));
            } else {
                copy.copyValue(element.value);
            }
        }
    }
}

}  // namespace

MultiValues::~MultiValues() = default;

ValueArray::ValueArray() : m_items(std::make_unique<std::list<Value>>()) {}

ValueArray::~ValueArray() = default;

ValueArray* ValueArray::clone() const {
    auto copy = std::make_unique<ValueArray>();
    copy_elements(ValueWalk(*this, ValueWalk::From::Begin), CopyTarget(*copy));
    return copy.release();  // owned by the caller
}

const Value& ValueArray::at(std::size_t position) const {
    if (position >= m_items->size()) {
        return Value::m_invalid;
    }
    return *std::next(m_items->begin(), static_cast<std::ptrdiff_t>(position));
}

void ValueArray::append(const Value& value) {
    m_items->push_back(value);
}

ValueMap::ValueMap() : m_items(std::make_unique<std::map<std::string, Value>>()) {}

ValueMap::~ValueMap() = default;

ValueMap* ValueMap::clone() const {
    auto copy = std::make_unique<ValueMap>();
    copy_elements(ValueWalk(*this, ValueWalk::From::Begin), CopyTarget(*copy));
    return copy.release();  // owned by the caller
}

const Value& ValueMap::at(const char* key) const {
    const auto entry = key != nullptr ? m_items->find(key) : m_items->end();
    return entry != m_items->end() ? entry->second : Value::m_invalid;
}

bool ValueMap::insert_data(const char* key, const Value& value, bool overwrite) {
    if (key == nullptr) {
        return false;
    }
    const auto [entry, inserted] = m_items->try_emplace(key, value);
    if (!inserted && overwrite) {
        entry->second.copyValue(&value);  // which does nothing for the stored value itself
    }
    return inserted || overwrite;
}

}  // namespace mox
