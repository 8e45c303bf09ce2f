#pragma once

/// @file
/// Clips that ask to be shown turned. Which option of the `ffmpeg` program writes that differs
/// between its versions, so the matrix is put into the file here.

#include "tests/support/media.h"

#include <cstddef>
#include <stdexcept>
#include <string>

namespace fw_test {

/// Returns the path of a copy of an MP4 file with one stream whose display matrix turns pictures
/// clockwise.
/// @param quarters  how often by 90 degrees: 0 to 3.
inline std::string turned_clip(const std::string& upright, int quarters) {
    const std::string one("\0\1\0\0", 4);  // numbers of 16.16 bits, high byte first
    const std::string minus_one("\xff\xff\0\0", 4);
    const std::string zero(4, '\0');
    const std::string cosines[] = {one, zero, minus_one, zero};
    const std::string& cosine = cosines[quarters];
    const std::string& sine = cosines[(quarters + 3) % 4];
    const std::string& minus_sine = cosines[(quarters + 1) % 4];
    const std::string last("\x40\0\0\0", 4);  // this one has 2.30 bits
    const std::string matrix =
        cosine + sine + zero + minus_sine + cosine + zero + zero + zero + last;

    std::string bytes = read_file(upright);
    const std::size_t header = bytes.find("tkhd");
    if (header == std::string::npos) {
        throw std::runtime_error("no track header in " + upright);
    }
    constexpr std::size_t matrix_offset = 44;
    bytes.replace(header + matrix_offset, matrix.size(), matrix);
    return make_file("turned.mp4", bytes);
}

}  // namespace fw_test
