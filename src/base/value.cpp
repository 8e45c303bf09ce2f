#include <framewell/base/value.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <limits>
#include <system_error>
#include <type_traits>
#include <utility>

namespace mox {
namespace {

// Deliberate: copying and moving values brings standard error up to date, so that what a host
// printed about a value has been seen before the value changes hands.
void sync_standard_error() {
    (void)std::fflush(stderr);
}

long long whole_part(double value, long long fallback) {
    constexpr double limit = 9223372036854775808.0;  // 2^63, the first that does not fit
    if (std::isnan(value)) {
        return fallback;
    }
    if (value >= limit) {
        return std::numeric_limits<long long>::max();
    }
    if (value < -limit) {
        return std::numeric_limits<long long>::min();
    }
    return static_cast<long long>(value);
}

long long parse_decimal(std::string_view text, long long fallback) {
    if (text.size() >= 2 && text[0] == '+' && text[1] != '-') {
        text.remove_prefix(1);
    }
    long long value = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (stop != end) {
        return fallback;
    }
    if (error == std::errc::result_out_of_range) {
        return text.front() == '-' ? std::numeric_limits<long long>::min()
                                   : std::numeric_limits<long long>::max();
    }
    return error == std::errc() ? value : fallback;
}

// Returns the first element of a list or a map, or null.
Value* first_of(ValueType type, MultiValues* container) {
    if (type == T_LIST) {
        auto& items = static_cast<ValueArray*>(container)->items();
        return items.empty() ? nullptr : &items.front();
    }
    auto& items = static_cast<ValueMap*>(container)->items();
    return items.empty() ? nullptr : &items.begin()->second;
}

void drop_first(ValueType type, MultiValues* container) {
    if (type == T_LIST) {
        static_cast<ValueArray*>(container)->items().pop_front();
    } else {
        auto& items = static_cast<ValueMap*>(container)->items();
        items.erase(items.begin());
    }
}

/// Holds a value from before the first constructor of a static object runs until after the last
/// destructor: initialised by the compiler, never destroyed.
union SharedNull {
    constexpr SharedNull() noexcept : value() {}

    SharedNull(const SharedNull&) = delete;
    SharedNull& operator=(const SharedNull&) = delete;

    ~SharedNull() {}  // NOLINT(modernize-use-equals-default): that would be deleted

    Value value;
};

const SharedNull kSharedNull;

}  // namespace

// Constant-initialised and left as it is by its destructor: usable before and after all others.
const Value& Value::m_invalid = kSharedNull.value;

Value::Value(const Value& other) {
    copyValue(&other);
}

Value::Value(Value&& other) noexcept {
    take(other);
    sync_standard_error();
}

Value& Value::operator=(const Value& other) {
    if (this != &other) {
        copyValue(&other);
    }
    return *this;
}

Value& Value::operator=(Value&& other) noexcept {
    if (this != &other) {
        Value taken(std::move(other));  // first: `other` may be part of what the reset destroys
        reset();
        take(taken);
    }
    return *this;
}

Value::~Value() {
    reset();
}

void Value::reset() noexcept {
    if (m_type == T_NULL) {
        return;
    }
    if (has_container()) {
        destroy(m_type, m_payload.container);
    }
    if (m_data != nullptr && m_type != T_PTR) {
        m_release(m_data);
    }
    m_data = nullptr;
    m_length = 0;
    m_payload = {};
    m_type = T_NULL;
}

// Destroys a tree without recursion and without memory of its own. On the way down, the first
// element of a container lets go of its own one and holds the way back up instead.
void Value::destroy(ValueType type, MultiValues* container) noexcept {
    decltype(Payload::up) up{nullptr, T_NULL};
    while (container != nullptr) {
        Value* const first = first_of(type, container);
        if (first == nullptr) {
            delete container;
            container = up.container;
            type = up.type;
            if (container != nullptr) {
                Value* const way_up = first_of(type, container);
                up = way_up->m_payload.up;
                way_up->m_type = T_NULL;
            }
        } else if (first->has_container()) {
            MultiValues* const inner = first->m_payload.container;
            first->m_payload.up = up;
            up = {container, type};
            container = inner;
            type = first->m_type;
        } else {
            drop_first(type, container);
        }
    }
}

// Takes everything from `other`. This value is T_NULL.
void Value::take(Value& other) noexcept {
    m_payload = std::exchange(other.m_payload, {});
    m_type = std::exchange(other.m_type, T_NULL);
    m_data = std::exchange(other.m_data, nullptr);
    m_length = std::exchange(other.m_length, 0);
    m_release = other.m_release;
}

// Gives the value, which has no data, a copy of `length` bytes and a NUL. False: nothing was done.
bool Value::set_text(const char* text, std::size_t length) noexcept {
    if (length == 0 || length > std::size_t{std::numeric_limits<std::int32_t>::max()}) {
        return false;
    }
    auto* const copy = static_cast<char*>(std::malloc(length + 1));
    if (copy == nullptr) {
        return false;
    }
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    m_data = copy;
    m_length = static_cast<std::int32_t>(length);
    m_release = &std::free;
    return true;
}

void Value::set_container(ValueType type, MultiValues* container) noexcept {
    reset();
    m_payload.container = container;
    m_type = type;
}

void Value::copyValue(const Value* src) {
    if (src == this) {
        return;
    }
    if (src == nullptr) {
        reset();
        return;
    }
    // The copy is complete before the reset, because `src` may be part of what that destroys.
    Value copy;
    sync_standard_error();
    if (src->has_container()) {
        copy.m_payload.container = src->m_payload.container->clone();
        copy.m_type = src->m_type;
    } else if (copy.copy_data(*src)) {
        copy.m_payload = src->m_payload;
        copy.m_type = src->m_type;
    }
    reset();
    take(copy);
}

// Gives the value, which has no data, that of `src`. False: memory ran out.
bool Value::copy_data(const Value& src) noexcept {
    if (src.m_data == nullptr || src.m_length <= 0) {
        return true;
    }
    if (src.m_type == T_PTR) {
        m_data = src.m_data;  // borrowed by both
        m_length = src.m_length;
        return true;
    }
    const bool copied = set_text(src.m_data, static_cast<std::size_t>(src.m_length));
    sync_standard_error();
    return copied;
}

bool Value::fastSet(const char* text) {
    // The copy is made before the reset, because `text` may be this value's own.
    Value copy;
    if (text != nullptr && copy.set_text(text, std::strlen(text))) {
        copy.m_type = T_STRING;
    }
    reset();
    take(copy);
    return m_type == T_STRING;
}

void Value::setArray(std::list<Value>&& items) {
    // Spliced before the reset, because `items` may be part of what that destroys.
    auto list = std::make_unique<ValueArray>();
    list->items().splice(list->items().end(), items);
    set_container(T_LIST, list.release());  // owned by the payload
}

void Value::setMap(std::map<std::string, Value>&& items) {
    auto entries = std::make_unique<ValueMap>();
    entries->items().swap(items);
    set_container(T_MAP, entries.release());  // owned by the payload
}

Value Value::boolean(bool value) {
    Value result;
    result.m_payload.boolean = value;
    result.m_type = T_BOOL;
    return result;
}

Value Value::integer(long long value) {
    Value result;
    result.m_payload.integer = value;
    result.m_type = T_INT;
    return result;
}

Value Value::number(double value) {
    Value result;
    result.m_payload.number = value;
    result.m_type = T_DOUBLE;
    return result;
}

Value Value::int2(std::int32_t a, std::int32_t b) {
    Value result = int4(a, b, 0, 0);
    result.m_type = T_INT2;
    return result;
}

Value Value::int4(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d) {
    Value result;
    const std::int32_t values[] = {a, b, c, d};
    std::memcpy(result.m_payload.integers, values, sizeof values);
    result.m_type = T_INT4;
    return result;
}

Value Value::double2(double a, double b) {
    Value result = double4(a, b, 0, 0);
    result.m_type = T_DOUBLE2;
    return result;
}

Value Value::double4(double a, double b, double c, double d) {
    Value result;
    const double values[] = {a, b, c, d};
    std::memcpy(result.m_payload.numbers, values, sizeof values);
    result.m_type = T_DOUBLE4;
    return result;
}

Value Value::string(std::string_view text) {
    Value result;
    if (result.set_text(text.data(), text.size())) {
        result.m_type = T_STRING;
    }
    return result;
}

Value Value::error(long long code, std::string_view message) {
    Value result;
    (void)result.set_text(message.data(), message.size());  // the code counts without it as well
    result.m_payload.integer = code;
    result.m_type = T_ERROR;
    return result;
}

Value Value::pointer(void* pointer) {
    Value result;
    result.m_payload.pointer = pointer;
    result.m_type = T_POINTER;
    return result;
}

Value Value::borrowed(char* data, std::int32_t length) {
    Value result;
    result.m_data = data;
    result.m_length = length;
    result.m_type = T_PTR;
    return result;
}

Value Value::list(std::list<Value>&& items) {
    Value result;
    result.setArray(std::move(items));
    return result;
}

Value Value::map(std::map<std::string, Value>&& items) {
    Value result;
    result.setMap(std::move(items));
    return result;
}

bool Value::asBool(bool fallback) const {
    return m_type == T_BOOL ? m_payload.boolean : fallback;
}

long long Value::asInteger(long long fallback) const {
    return m_type == T_INT ? m_payload.integer : fallback;
}

double Value::asNumber(double fallback) const {
    return m_type == T_DOUBLE ? m_payload.number : fallback;
}

void* Value::asPointer(void* fallback) const {
    return m_type == T_POINTER ? m_payload.pointer : fallback;
}

const std::int32_t* Value::asInt2() const {
    return m_type == T_INT2 ? m_payload.integers : nullptr;
}

const std::int32_t* Value::asInt4() const {
    return m_type == T_INT4 ? m_payload.integers : nullptr;
}

const double* Value::asDouble2() const {
    return m_type == T_DOUBLE2 ? m_payload.numbers : nullptr;
}

const double* Value::asDouble4() const {
    return m_type == T_DOUBLE4 ? m_payload.numbers : nullptr;
}

long long Value::errorCode(long long fallback) const {
    return m_type == T_ERROR ? m_payload.integer : fallback;
}

std::string_view Value::text() const {
    if ((m_type != T_STRING && m_type != T_ERROR) || m_data == nullptr) {
        return "";
    }
    return {m_data, static_cast<std::size_t>(m_length)};
}

ValueArray* Value::array() {
    return m_type == T_LIST ? static_cast<ValueArray*>(m_payload.container) : nullptr;
}

const ValueArray* Value::array() const {
    return m_type == T_LIST ? static_cast<const ValueArray*>(m_payload.container) : nullptr;
}

ValueMap* Value::map() {
    return m_type == T_MAP ? static_cast<ValueMap*>(m_payload.container) : nullptr;
}

const ValueMap* Value::map() const {
    return m_type == T_MAP ? static_cast<const ValueMap*>(m_payload.container) : nullptr;
}

long long Value::toInteger(long long fallback) const {
    switch (m_type) {
        case T_BOOL:
            return m_payload.boolean ? 1 : 0;
        case T_INT:
            return m_payload.integer;
        case T_DOUBLE:
            return whole_part(m_payload.number, fallback);
        case T_STRING:
            return parse_decimal(text(), fallback);
        default:
            return fallback;
    }
}

}  // namespace mox
