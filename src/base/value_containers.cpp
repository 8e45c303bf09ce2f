#include <framewell/base/value.h>

#include <iterator>

namespace mox {

MultiValues::~MultiValues() = default;

ValueArray::ValueArray() : m_items(std::make_unique<std::list<Value>>()) {}

ValueArray::~ValueArray() = default;

ValueArray* ValueArray::clone() const {
    auto copy = std::make_unique<ValueArray>();
    *copy->m_items = *m_items;
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
    *copy->m_items = *m_items;
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
