#include "image.h"

#include <algorithm>
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

/// The pixels of a line that make one pixel of the scaled line, and how much each counts.
struct Mix {
    int first = 0;
    std::vector<float> weights;  // together 1
};

std::vector<Mix> mixes(int from, int to) {
    const double step = static_cast<double>(from) / to;
    const double reach = std::max(1.0, step);  // where a pixel counts nothing any more
    std::vector<Mix> result(static_cast<std::size_t>(to));
    for (int i = 0; i < to; ++i) {
        const double centre = (i + 0.5) * step - 0.5;
        Mix& mix = result[static_cast<std::size_t>(i)];
        mix.first = std::max(0, static_cast<int>(std::floor(centre - reach)) + 1);
        const int last = std::min(from - 1, static_cast<int>(std::ceil(centre + reach)) - 1);
        float sum = 0;
        for (int at = mix.first; at <= last; ++at) {
            mix.weights.push_back(static_cast<float>(1 - std::fabs(at - centre) / reach));
            sum += mix.weights.back();
        }
        for (float& weight : mix.weights) {
            weight /= sum;
        }
    }
    return result;
}

/// Scales `lines` lines of `length` pixels to `to` pixels each. Lines become columns by it, so that
/// a second call scales the other direction and puts them right again.
std::vector<float> scaled_lines(const std::vector<float>& from, int lines, int length, int to,
                                int channels) {
    const auto count = static_cast<std::size_t>(channels);
    const std::vector<Mix> line = mixes(length, to);
    std::vector<float> result(static_cast<std::size_t>(lines) * line.size() * count);
    for (int y = 0; y < lines; ++y) {
        const float* const row =
            from.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(length) * count;
        for (std::size_t x = 0; x < line.size(); ++x) {
            const float* pixel = row + static_cast<std::size_t>(line[x].first) * count;
            float* const sum =
                result.data() +
                (x * static_cast<std::size_t>(lines) + static_cast<std::size_t>(y)) * count;
            for (const float weight : line[x].weights) {
                for (std::size_t c = 0; c < count; ++c) {
                    sum[c] += weight * *pixel++;
                }
            }
        }
    }
    return result;
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

Image scaled(const Image& image, int width, int height) {
    const std::vector<float> values(image.bytes.begin(), image.bytes.end());
    const std::vector<float> columns =
        scaled_lines(values, image.height, image.width, width, image.channels);
    const std::vector<float> rows =
        scaled_lines(columns, width, image.height, height, image.channels);
    Image result = image;
    result.width = width;
    result.height = height;
    result.bytes.resize(rows.size());
    std::transform(rows.begin(), rows.end(), result.bytes.begin(), [](float value) {
        return static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 255L));
    });
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
