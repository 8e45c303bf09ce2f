#pragma once

#include "base/c_locale.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <limits>
#include <string>

/// @file
/// What the text forms of values have in common.

namespace mox {

/// How many containers may stand inside of each other in a text. Readers go down by recursion, and
/// a hostile text must not be able to use up the stack, not even a small one of a host's thread.
constexpr int kMaxNesting = 256;

/// Counts the containers that a reader is in, for as long as it lives.
class NestingScope {
public:
    explicit NestingScope(int& depth) : m_depth(depth) { ++m_depth; }

    NestingScope(const NestingScope&) = delete;
    NestingScope& operator=(const NestingScope&) = delete;

    ~NestingScope() { --m_depth; }

    bool too_deep() const { return m_depth > kMaxNesting; }

private:
    int& m_depth;
};

/// Tells a caller, if it asked, how many bytes of a text were taken.
inline void tell_consumed(int* consumed, std::ptrdiff_t bytes) {
    if (consumed != nullptr) {
        constexpr std::ptrdiff_t largest = std::numeric_limits<int>::max();
        *consumed = static_cast<int>(std::min(bytes, largest));
    }
}

/// Returns what `write` writes, with numbers as in the C locale; empty if memory runs out.
template <typename Write>
std::string written_by(Write write) {
    try {
        const CLocaleScope c_locale;
        return write();
    } catch (const std::exception&) {
        return {};
    }
}

}  // namespace mox
