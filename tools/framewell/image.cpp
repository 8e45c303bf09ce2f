#include "image.h"

#include <cmath>
#include <cstring>
#include <utility>

namespace tool {

namespace {

bool is_opaque(const Image& image) {
    const std::size_t pixel = image.pixel_bytes();
    const auto alpha_bytes = static_cast<std::size_t>(image.bytes_per_channel);
    for (std::size_t at = pixel; at <= image.bytes.size(); at += pixel) {
        for (std::size_t i = at - alpha_bytes; i < at; ++i) {
            if (image.bytes[i] != 0xff) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace

int quarter_turns(double degrees) {
    const double quarters = std::round(degrees / 90);
    if (!std::isfinite(degrees) || std::fabs(degrees - quarters * 90) > 1) {
        return 0;
    }
    const int turns = static_cast<int>(std::fmod(quarters, 4));
    return turns < 0 ? turns + 4 : turns;
}

Image turned(Image image, int quarters) {
    if (quarters == 0) {
        return image;
    }
    Image result = image;
    if (quarters != 2) {
        std::swap(result.width, result.height);
    }
    const std::size_t pixel = image.pixel_bytes();
    std::uint8_t* to = result.bytes.data();
    for (int y = 0; y < result.height; ++y) {
        for (int x = 0; x < result.width; ++x) {
            // The pixel of the unturned picture that comes to stand at (x, y).
            const int from_x = quarters == 1   ? y
                               : quarters == 2 ? image.width - 1 - x
                                               : image.width - 1 - y;
            const int from_y = quarters == 1   ? image.height - 1 - x
                               : quarters == 2 ? image.height - 1 - y
                                               : x;
            const std::size_t from = static_cast<std::size_t>(from_y) * image.row_bytes() +
                                     static_cast<std::size_t>(from_x) * pixel;
            std::memcpy(to, image.bytes.data() + from, pixel);
            to += pixel;
        }
    }
    return result;
}

Image without_opaque_alpha(Image image) {
    if (image.channels != 4 || !is_opaque(image)) {
        return image;
    }
    const std::size_t from_pixel = image.pixel_bytes();
    image.channels = 3;
    const std::size_t to_pixel = image.pixel_bytes();
    std::size_t to = 0;
    for (std::size_t from = 0; from < image.bytes.size(); from += from_pixel) {
        std::memmove(image.bytes.data() + to, image.bytes.data() + from, to_pixel);
        to += to_pixel;
    }
    image.bytes.resize(to);
    return image;
}

}  // namespace tool
