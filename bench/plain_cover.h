#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// A picture that plain_cover() made.
struct PlainCover {
    int width = 0;
    int height = 0;
    int stride = 0;                   ///< bytes from row to row
    std::vector<std::uint8_t> bytes;  ///< RGBA
};

/// What a cover costs at least: opens the file, seeks to half of its duration, decodes up to the
/// picture of that time, and scales it once to RGBA, `divider` times smaller. One demuxer and one
/// decoder with as many threads as there are processors; nothing is measured beforehand, nothing
/// kept. Ends the program with a message if that fails.
PlainCover plain_cover(const std::string& path, int divider);

}  // namespace bench
