#pragma once

#include <framewell/base/value.h>

#include <cstdint>
#include <cstring>
#include <list>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>

/// @file
/// Trees of values for tests: what two have in common, deep ones, random ones.

namespace fw_test {

/// Whether both have the same type and the same contents, all the way down.
inline bool equal(const mox::Value& a, const mox::Value& b) {
    if (a.type() != b.type()) {
        return false;
    }
    if (a.array() != nullptr) {
        const auto& x = a.array()->items();
        const auto& y = b.array()->items();
        auto other = y.begin();
        for (const auto& item : x) {
            if (other == y.end() || !equal(item, *other++)) {
                return false;
            }
        }
        return other == y.end();
    }
    if (a.map() != nullptr) {
        const auto& x = a.map()->items();
        const auto& y = b.map()->items();
        auto other = y.begin();
        for (const auto& [key, value] : x) {
            if (other == y.end() || key != other->first || !equal(value, (other++)->second)) {
                return false;
            }
        }
        return other == y.end();
    }
    const auto same_bytes = [](const void* p, const void* q, std::size_t size) {
        return p == q || (p != nullptr && q != nullptr && std::memcmp(p, q, size) == 0);
    };
    const double number[] = {a.asNumber(), b.asNumber()};
    return a.asBool() == b.asBool() && a.asInteger() == b.asInteger() &&
           same_bytes(&number[0], &number[1], sizeof number[0]) &&
           same_bytes(a.asInt2(), b.asInt2(), 8) && same_bytes(a.asInt4(), b.asInt4(), 16) &&
           same_bytes(a.asDouble2(), b.asDouble2(), 16) &&
           same_bytes(a.asDouble4(), b.asDouble4(), 32) && a.asPointer() == b.asPointer() &&
           a.errorCode() == b.errorCode() && a.text() == b.text() && a.length() == b.length() &&
           (a.type() != mox::T_PTR || a.data() == b.data());
}

inline mox::Value list_of(std::list<mox::Value> items) {
    return mox::Value::list(std::move(items));
}

/// The list [1, "two", 3.5].
inline mox::Value list_of_three() {
    return list_of({mox::Value::integer(1), mox::Value::string("two"), mox::Value::number(3.5)});
}

/// A list in a list in a list, `levels` of them, with the number 1 in the innermost one.
inline mox::Value nested_lists(int levels) {
    mox::Value tree = mox::Value::integer(1);
    for (int level = 0; level < levels; ++level) {
        std::list<mox::Value> items;
        items.push_back(std::move(tree));
        tree = mox::Value::list(std::move(items));
    }
    return tree;
}

/// The same of maps, every value under the key "k".
inline mox::Value nested_maps(int levels) {
    mox::Value tree = mox::Value::integer(1);
    for (int level = 0; level < levels; ++level) {
        std::map<std::string, mox::Value> items;
        items["k"] = std::move(tree);
        tree = mox::Value::map(std::move(items));
    }
    return tree;
}

/// A text in memory of exactly its size, so that AddressSanitizer sees a step beyond its end.
class TightText {
public:
    explicit TightText(const std::string& text) : m_text(new char[text.size() + 1]) {
        std::memcpy(m_text.get(), text.c_str(), text.size() + 1);
    }

    const char* get() const { return m_text.get(); }

private:
    const std::unique_ptr<char[]> m_text;
};

/// Random numbers that are the same on every machine, which those of the standard distributions
/// are not.
class Dice {
public:
    explicit Dice(std::uint32_t seed) : m_engine(seed) {}

    /// From 0 to `count` - 1.
    std::uint32_t below(std::uint32_t count) {
        return static_cast<std::uint32_t>(m_engine() % std::uint64_t{count});
    }

    std::uint64_t bits() { return m_engine(); }

    std::int32_t int32() { return static_cast<std::int32_t>(static_cast<std::uint32_t>(bits())); }

    /// Made of the bytes of `alphabet`.
    std::string text(const std::string& alphabet, std::uint32_t longest) {
        std::string text;
        for (std::uint32_t left = below(longest + 1); left > 0; --left) {
            text += alphabet[below(static_cast<std::uint32_t>(alphabet.size()))];
        }
        return text;
    }

    /// Changes, drops, doubles or moves some bytes of `text`; never to NUL.
    std::string mutated(std::string text) {
        for (std::uint32_t left = 1 + below(4); left > 0 && !text.empty(); --left) {
            const auto size = static_cast<std::uint32_t>(text.size());
            const std::size_t at = below(size);
            const std::size_t length = 1 + below(8);
            switch (below(5)) {
                case 0:
                    text[at] = static_cast<char>(1 + below(255));
                    break;
                case 1:
                    text.erase(at, length);
                    break;
                case 2:
                    text.insert(below(size), text.substr(at, length));
                    break;
                case 3:
                    text[at] = "[]{}:`,\"\\0123456789-+.eE"[below(23)];
                    break;
                default:
                    text.resize(at);
                    break;
            }
        }
        return text;
    }

private:
    std::mt19937_64 m_engine;
};

}  // namespace fw_test
