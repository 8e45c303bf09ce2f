#pragma once

#include <framewell/base/config.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <map>
#include <memory>
#include <string>
#include <string_view>

/// @file
/// A dynamically typed value and its two containers; together they form trees. A tree can be
/// written as text in two forms and read back.
///
/// # The tagged form
/// Every item carries its type in brackets, and what can contain anything carries its length in
/// bytes; nothing is escaped. `write()` gives:
///
///     T_NULL    <null>                     T_INT2     [i2]1,2
///     T_BOOL    [b]true  [b]false          T_INT4     [i4]1,2,3,4
///     T_INT     [i]-5                      T_DOUBLE2  [d2]0.500000,1.000000
///     T_DOUBLE  [f]0.500000                T_DOUBLE4  [d4] and four of them
///     T_STRING  [str:3]abc                 T_POINTER  [v]0x7f00
///     T_ERROR   [err:3]-22,bad             T_PTR      [ptr]ADDRESS,LENGTH
///     T_LIST    {list:LENGTH}ITEM`ITEM`    T_MAP      {map:LENGTH}KEY:ITEM`KEY:ITEM`
///
/// `read()` takes one item from the start of a text. An item ends where its length says, else at
/// the next backtick or the end of the text. The lengths in tags may be missing: a text then goes
/// up to the next backtick, a container to the end of the text, and an error whose comma is
/// followed by anything takes the whole rest, number and comma included. White space in front of a
/// number is skipped, numbers beyond the range are cut to it. Elements of a container are read
/// until one of them cannot be read, and the container holds those before it. Of a key that comes
/// twice the last one counts.
///
/// What does not come back:
/// - doubles have six digits after the point, and an item of numbers is cut at 127 characters: from
///   about 1e120 on a single number comes back wrong, and several come back as nothing at all;
/// - an error loses as many characters of its message as its number and comma have, and the
///   elements after it in the same container are lost: send errors on their own, or as a text;
/// - "{list:0}" and "{map:0}" are read inside of other containers only;
/// - keys that contain a colon;
/// - T_POINTER and T_PTR carry addresses, which mean nothing to another process, and a text from
///   elsewhere can claim any: never follow one that was read.
///
/// # JSON
/// `writeJson()` writes null, true, false, integers, doubles with six significant digits, texts
/// with backslashes before `"` and `\`, arrays and objects; all other types as a string that holds
/// their tagged form as it is. A text ends at its first NUL, and other control characters and bytes
/// that are no UTF-8 are written as they are. Infinities and NaNs (inf, nan), keys with `"` or `\`
/// and messages of errors with these make a text that is no JSON and does not read back. Doubles
/// without a fraction read back as integers.
///
/// `readJson()` takes one value, with white space around it, in the grammar of RFC 8259; further,
/// strings may contain any bytes but NUL. All escapes are known, also pairs of surrogates; half a
/// pair gives U+FFFD. A number with neither fraction nor exponent that fits into 64 bits becomes
/// T_INT, any other T_DOUBLE (infinite if it is too large). Of a name that comes twice the last one
/// counts. The empty string becomes T_NULL, as every empty text does.
///
/// # Both forms
/// Containers may be nested up to 256 deep to be read; a text that goes deeper is refused. Writing
/// knows no such limit. Numbers look as in the C locale, whatever the locale of the process is.
/// Time grows with the length of the text and no faster; a tagged text whose lengths contradict
/// each other so that reading it would take longer is refused. Nothing is thrown: text for which
/// memory runs out is empty, and reading fails. Failing leaves T_NULL, or an empty container.
/// An element takes about 90 bytes of memory however short its text is: limit what you accept.

namespace mox {

class MultiValues;
class ValueArray;
class ValueMap;

/// What a Value holds. The numbers are fixed; others have no meaning and are never stored.
enum ValueType : std::uint16_t {
    T_NULL = 0,      ///< nothing
    T_BOOL = 1,      ///< true or false
    T_INT = 2,       ///< signed, 64 bits
    T_DOUBLE = 3,    ///< a double
    T_STRING = 4,    ///< one byte or more
    T_MAP = 5,       ///< owns a ValueMap
    T_LIST = 6,      ///< owns a ValueArray
    T_INT2 = 7,      ///< two signed 32-bit numbers
    T_INT4 = 8,      ///< four of them
    T_DOUBLE2 = 9,   ///< two doubles
    T_DOUBLE4 = 10,  ///< four of them
    T_POINTER = 11,  ///< an opaque pointer, never followed or freed
    T_PTR = 12,      ///< a borrowed buffer, never copied or freed
    T_ERROR = 99,    ///< a signed 64-bit code and a message
};

/// One value of any of these types. It owns its text and its container; copies are deep, moves
/// leave T_NULL behind.
///
///     mox::Value size = mox::Value::int2(1920, 1080);
///     mox::Value count = mox::Value::integer(8);
///     mox::Value name = mox::Value::string("clip");     // "" gives T_NULL: no text is ever empty
///     long long n = name.toInteger(4);                  // 4: not a number
///
/// A tree may be as deep as memory allows; nothing here goes down it by recursion.
/// Thread-safety: one thread at a time for a whole tree; reading from several is fine.
class FRAMEWELL_API Value {
public:
    /// Makes a T_NULL value.
    constexpr Value() noexcept = default;

    /// Makes a deep copy; T_NULL in place of a text for which memory runs out.
    Value(const Value& other);
    Value& operator=(const Value& other);

    /// Takes everything over and leaves T_NULL behind.
    Value(Value&& other) noexcept;
    Value& operator=(Value&& other) noexcept;

    /// Lets go of what the value owns.
    virtual ~Value();

    /// Returns the tagged form; empty if memory runs out.
    virtual std::string write() const;

    /// Becomes what stands at the start of `text`, which may be this value's own.
    /// @param consumed  gets the number of bytes that the item took, at most INT_MAX, also if it is
    ///                  of no known type; 0 if no item was found. May be null.
    /// @return          true: this is the item; false, and T_NULL: there is none that can be read.
    /// A length that is no number is told on standard error, which is flushed for every item.
    virtual bool read(const char* text, int* consumed);

    /// Returns the value as JSON; empty if memory runs out.
    /// @param pretty  true: every element of a container on a line of its own, which begins with
    /// two
    ///                blanks for each level
    /// @param indent  the level of the line that the value stands on. Lines of a negative level are
    ///                not indented, lines beyond level 1,000 as for that level.
    std::string writeJson(bool pretty, int indent) const;

    /// Becomes the JSON value at the start of `text`, which may be this value's own.
    /// @param consumed  gets the number of bytes up to the end of the value, at most INT_MAX; 0 if
    ///                  there is none. Null: `text` must contain nothing else but white space.
    /// @return          true: this is the value; false, and T_NULL: the text is no JSON, which is
    ///                  told on standard error with the text from there on.
    bool readJson(const char* text, int* consumed);

    /// Gives a value of the type that belongs to the arguments: T_BOOL, T_INT, T_DOUBLE, and those
    /// of two and four numbers.
    static Value boolean(bool value);
    static Value integer(long long value);
    static Value number(double value);
    static Value int2(std::int32_t a, std::int32_t b);
    static Value int4(std::int32_t a, std::int32_t b, std::int32_t c, std::int32_t d);
    static Value double2(double a, double b);
    static Value double4(double a, double b, double c, double d);

    /// Gives a T_STRING with a copy of `text`, which may contain NULs; T_NULL if it is empty,
    /// longer than 2^31 - 1 bytes or memory runs out.
    static Value string(std::string_view text);

    /// Gives a T_ERROR. A message that string() would refuse is left out.
    static Value error(long long code, std::string_view message);

    /// Gives a T_POINTER.
    static Value pointer(void* pointer);

    /// Gives a T_PTR to `length` bytes that must outlive the value and all of its copies. A copy of
    /// one without bytes has no address either.
    static Value borrowed(char* data, std::int32_t length);

    /// Gives a T_LIST or T_MAP that takes over `items` and leaves it empty.
    static Value list(std::list<Value>&& items);
    static Value map(std::map<std::string, Value>&& items);

    /// Returns what the value holds.
    ValueType type() const { return m_type; }

    /// Returns whether the value holds nothing.
    bool isNull() const { return m_type == T_NULL; }

    /// Returns what the function is named after if the value is exactly of that type, else
    /// `fallback`. toInteger() converts.
    bool asBool(bool fallback = false) const;
    long long asInteger(long long fallback = 0) const;
    double asNumber(double fallback = 0) const;
    void* asPointer(void* fallback = nullptr) const;

    /// Returns two or four numbers, owned by the value and good until it changes; null if the type
    /// is another.
    const std::int32_t* asInt2() const;
    const std::int32_t* asInt4() const;
    const double* asDouble2() const;
    const double* asDouble4() const;

    /// Returns the code of a T_ERROR, else `fallback`.
    long long errorCode(long long fallback = 0) const;

    /// Returns the text of a T_STRING or the message of a T_ERROR, owned by the value and followed
    /// by a NUL; empty for other types.
    std::string_view text() const;

    /// Returns the bytes of a T_STRING, T_ERROR or T_PTR; null if there are none.
    const char* data() const { return m_data; }

    /// Returns the number of bytes behind data().
    std::int32_t length() const { return m_length; }

    /// Returns the container, owned by the value; null if the type is another.
    ValueArray* array();
    const ValueArray* array() const;
    ValueMap* map();
    const ValueMap* map() const;

    /// Converts to an integer: T_INT as it is, T_DOUBLE cut to its whole part and to the range,
    /// T_BOOL 0 or 1, T_STRING if all of it is one decimal number (cut to the range). `fallback`
    /// for NaN, any other text and any other type.
    long long toInteger(long long fallback) const;

    /// Becomes a deep copy of `src`, which may be part of this value. Null gives T_NULL, and so
    /// does a text for which memory runs out. Nothing happens if `src` is this value.
    void copyValue(const Value* src);

    /// Becomes a T_STRING with a copy of `text`, which may be this value's own.
    /// @return  false, and T_NULL: `text` is null, empty or too long, or memory ran out.
    bool fastSet(const char* text);

    /// Becomes a T_LIST that takes over the nodes of `items` and leaves it empty; no element is
    /// copied.
    void setArray(std::list<Value>&& items);

    /// Becomes a T_MAP that takes over `items` and leaves it empty.
    void setMap(std::map<std::string, Value>&& items);

    /// Becomes T_NULL and lets go of what it owned.
    void reset() noexcept;

    /// A T_NULL value to refer to where there is no value. It can be used at any time, also by the
    /// constructors and destructors of static objects.
    static const Value& m_invalid;  // NOLINT(readability-identifier-naming): given name

private:
    union Payload {
        double numbers[4];  // first and as large as the union: clearing it clears all
        std::int32_t integers[4];
        std::int64_t integer;
        double number;
        bool boolean;
        void* pointer;
        MultiValues* container;  // owned; T_MAP and T_LIST

        struct {
            MultiValues* container;
            ValueType type;
        } up;  // only while a tree is destroyed
    };

    static_assert(sizeof(Payload) == 32);

    bool has_container() const { return m_type == T_MAP || m_type == T_LIST; }

    bool copy_data(const Value& src) noexcept;
    bool set_text(const char* text, std::size_t length) noexcept;
    void take(Value& other) noexcept;
    void set_container(ValueType type, MultiValues* container) noexcept;
    static void destroy(ValueType type, MultiValues* container) noexcept;

    Payload m_payload{};
    ValueType m_type = T_NULL;
    char* m_data = nullptr;  // owned, except by T_PTR; texts end in a NUL that m_length leaves out
    std::int32_t m_length = 0;
    void (*m_release)(void*) = &std::free;  // frees m_data, by the C library that allocated it
};

/// What the two containers have in common. The text forms are as for Value; reading wants a
/// container of the same kind and replaces all elements, by none if it fails.
/// Thread-safety: as for Value.
class FRAMEWELL_API MultiValues {
public:
    MultiValues() = default;
    MultiValues(const MultiValues&) = delete;
    MultiValues& operator=(const MultiValues&) = delete;
    virtual ~MultiValues();

    /// As Value::write().
    virtual std::string write() const = 0;

    /// As Value::read().
    virtual bool read(const char* text, int* consumed) = 0;

    /// Returns a new container of the same class with deep copies of all elements, owned by the
    /// caller.
    virtual MultiValues* clone() const = 0;

    /// As Value::readJson().
    virtual bool readJson(const char* text, int* consumed) = 0;

    /// As Value::writeJson().
    virtual std::string writeJson(bool pretty, int indent) const = 0;
};

/// A list of values, in the order in which they were added.
/// Thread-safety: as for Value.
class FRAMEWELL_API ValueArray final : public MultiValues {
public:
    /// Makes an empty list.
    ValueArray();
    ValueArray(const ValueArray&) = delete;
    ValueArray& operator=(const ValueArray&) = delete;
    ~ValueArray() override;

    std::string write() const override;
    bool read(const char* text, int* consumed) override;
    ValueArray* clone() const override;
    bool readJson(const char* text, int* consumed) override;
    std::string writeJson(bool pretty, int indent) const override;

    /// The elements, to be read and changed.
    std::list<Value>& items() { return *m_items; }

    /// The elements, to be read.
    const std::list<Value>& items() const { return *m_items; }

    /// Returns the element at a position from 0, or Value::m_invalid. Takes time in proportion to
    /// the position.
    const Value& at(std::size_t position) const;

    /// Adds a deep copy of `value` at the end.
    void append(const Value& value);

private:
    const std::unique_ptr<std::list<Value>> m_items;
};

/// Values by name, in the order of the names' bytes.
/// Thread-safety: as for Value.
class FRAMEWELL_API ValueMap final : public MultiValues {
public:
    /// Makes an empty map.
    ValueMap();
    ValueMap(const ValueMap&) = delete;
    ValueMap& operator=(const ValueMap&) = delete;
    ~ValueMap() override;

    std::string write() const override;
    bool read(const char* text, int* consumed) override;
    ValueMap* clone() const override;
    bool readJson(const char* text, int* consumed) override;
    std::string writeJson(bool pretty, int indent) const override;

    /// The entries, to be read and changed.
    std::map<std::string, Value>& items() { return *m_items; }

    /// The entries, to be read.
    const std::map<std::string, Value>& items() const { return *m_items; }

    /// Returns the value of `key`, or Value::m_invalid if there is none.
    const Value& at(const char* key) const;

    /// Stores a deep copy of `value`, which may be part of this map, under `key`.
    /// @return  true: the map has it now; false: `key` is null, or there is a value already and
    ///          `overwrite` is false.
    bool insert_data(const char* key, const Value& value, bool overwrite);

private:
    const std::unique_ptr<std::map<std::string, Value>> m_items;
};

}  // namespace mox
