#pragma once

#include "tests/robustness/random.h"

#include <cstdint>
#include <string>

namespace fw_test {

/// What came out of a file. A plain record, so that it can lie in memory that processes share.
struct Yield {
    bool is_opened = false;  ///< the probe has a record of it
    std::int32_t streams = 0;
    std::int32_t steps = 0;  ///< requests and all else that is one call or a few
    std::int32_t requests = 0;
    std::int32_t pictures = 0;
    std::int32_t spans = 0;       ///< of sound, with at least one sample
    char step[160] = {};          ///< what is going on, or went on last
    const char* wrong = nullptr;  ///< what a result had that none may have: a constant text
};

/// Does with a file what hosts do: probes it, asks each of its first streams for pictures or sound
/// at 20 times of `random`'s choice, some far outside the file, and then does one of: reversed and
/// filtered, in the background, with a second decoder, a cover. Every result is read to its last
/// byte. What was in it is counted in `yield`, which always tells how far the work has come.
void use_damaged_file(const std::string& path, Random* random, Yield* yield);

}  // namespace fw_test
