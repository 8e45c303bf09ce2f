#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tool {

/// A picture of interleaved pixels whose rows have no padding. The last channel of RGBA pixels is
/// the alpha channel.
struct Image {
    int width = 0;
    int height = 0;
    int channels = 4;           ///< 4: RGBA, 3: RGB
    int bytes_per_channel = 1;  ///< 2: big-endian
    std::vector<std::uint8_t> bytes;

    std::size_t pixel_bytes() const {
        return static_cast<std::size_t>(channels) * static_cast<std::size_t>(bytes_per_channel);
    }

    std::size_t row_bytes() const { return static_cast<std::size_t>(width) * pixel_bytes(); }
};

/// The number of quarter turns clockwise, 0 to 3, that `degrees` stands for. 0 for angles that are
/// not within a degree of a multiple of 90.
int quarter_turns(double degrees);

/// Returns `image` turned clockwise by this many quarter turns, 0 to 3; every pixel is kept as it
/// is.
Image turned(Image image, int quarters);

/// Returns `image`, which has 8 bits per channel, at another size of at least 1x1: every pixel is
/// the mean of what it covers, nearer pixels counting more, so that fine patterns do not flicker
/// and enlarged pixels have soft edges.
Image scaled(const Image& image, int width, int height);

/// Returns `image` without its alpha channel if every pixel is opaque, else as it is.
Image without_opaque_alpha(Image image);

}  // namespace tool
