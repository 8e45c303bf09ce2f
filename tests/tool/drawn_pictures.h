#pragma once

/// @file
/// The picture files that the tool draws, read back with the ffmpeg program.

#include "tests/support/media.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <stdexcept>
#include <string>

namespace fw_test {

/// A picture of RGB pixels.
struct Drawn {
    std::size_t width = 0;
    std::size_t height = 0;
    std::string bytes;

    std::array<int, 3> at(std::size_t x, std::size_t y) const {
        const std::size_t i = 3 * (y * width + x);
        const auto value = [&](std::size_t k) { return static_cast<unsigned char>(bytes.at(k)); };
        return {value(i), value(i + 1), value(i + 2)};
    }
};

/// Reads a PNG file. Throws if it is none.
inline Drawn read_drawn(const std::string& path) {
    const std::string raw = path + ".pixels";
    const std::string command =
        "ffmpeg -v error -nostdin -i '" + path + "' -f rawvideo -pix_fmt rgb24 -y '" + raw + "'";
    if (std::system(command.c_str()) != 0) {
        throw std::runtime_error("failed: " + command);
    }
    const std::string file = read_file(path);
    const auto number = [&](std::size_t at) {  // big-endian, in the header of a PNG file
        std::size_t value = 0;
        for (std::size_t i = 0; i < 4; ++i) {
            value = value * 256 + static_cast<unsigned char>(file.at(at + i));
        }
        return value;
    };
    Drawn drawn{number(16), number(20), read_file(raw)};
    if (drawn.bytes.size() != 3 * drawn.width * drawn.height) {
        throw std::runtime_error("no picture of its size: " + path);
    }
    return drawn;
}

}  // namespace fw_test
