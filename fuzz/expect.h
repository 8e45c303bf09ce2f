#pragma once

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace fuzz {

/// Ends the process unless `holds`, which makes the input a finding just as a crash does.
/// @param rule  what does not hold, as a sentence.
inline void expect(bool holds, const char* rule) {
    if (!holds) {
        (void)std::fprintf(stderr, "broken: %s\n", rule);
        std::abort();
    }
}

/// Reads all of a buffer of `size` bytes, which AddressSanitizer watches.
inline void touch(const void* bytes, int size) {
    const void* const volatile same = bytes;  // or the compiler would know the answer
    expect(size == 0 ||
               (bytes != nullptr && std::memcmp(bytes, same, static_cast<std::size_t>(size)) == 0),
           "all of a buffer can be read");
}

}  // namespace fuzz
