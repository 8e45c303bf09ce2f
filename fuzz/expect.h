#pragma once

#include <cstdio>
#include <cstdlib>

namespace fuzz {

/// Ends the process unless `holds`, which makes the input a finding just as a crash does.
/// @param rule  what does not hold, as a sentence.
inline void expect(bool holds, const char* rule) {
    if (!holds) {
        (void)std::fprintf(stderr, "broken: %s\n", rule);
        std::abort();
    }
}

}  // namespace fuzz
