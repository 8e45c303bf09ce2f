#include "sound_compare.h"

#include <framewell/media/formats.h>

#include <algorithm>
#include <cmath>
#include <cstring>

namespace tool {

namespace {

template <class T>
T value_at(std::string_view bytes, std::size_t index) {
    T value{};
    std::memcpy(&value, bytes.data() + index * sizeof(T), sizeof(T));
    return value;
}

// One value, 1 being full scale.
double level_at(const SoundShape& shape, std::string_view bytes, std::size_t index) {
    switch (ff::avsamplefmt_to_samplefmt(shape.format)) {
        case ff::SampleFormat::U8:
            return (value_at<std::uint8_t>(bytes, index) - 128) / 128.0;
        case ff::SampleFormat::S16:
            return value_at<std::int16_t>(bytes, index) / 32768.0;
        case ff::SampleFormat::S32:
            return value_at<std::int32_t>(bytes, index) / 2147483648.0;
        default:
            return static_cast<double>(value_at<float>(bytes, index));
    }
}

std::string_view stretch(const SoundShape& shape, const SoundWindow& window, std::int64_t at,
                         std::size_t bytes) {
    return std::string_view(window.bytes)
        .substr(static_cast<std::size_t>(at) * shape.frame_bytes(), bytes);
}

}  // namespace

std::optional<std::int64_t> find_span(const SoundShape& shape, const SoundWindow& window,
                                      std::string_view span, std::int64_t expected,
                                      std::int64_t farthest) {
    const auto in_window = static_cast<std::int64_t>(window.bytes.size() / shape.frame_bytes());
    const auto length = static_cast<std::int64_t>(span.size() / shape.frame_bytes());
    const auto stands_at = [&](std::int64_t at) {
        return at >= 0 && at + length <= in_window &&
               stretch(shape, window, at, span.size()) == span;
    };
    for (std::int64_t distance = 0; distance <= farthest; ++distance) {
        if (stands_at(expected + distance)) {
            return distance;
        }
        if (stands_at(expected - distance)) {
            return -distance;
        }
    }
    return std::nullopt;
}

bool Deviation::is_close() const {
    constexpr double inaudible = 1.0 / 1024;
    // Sound from elsewhere differs by as much as there is. A quarter is far from that, and more
    // than any noise that a decoder puts in place of what an encoder left out.
    return largest <= inaudible || energy <= signal / 4;
}

Deviation measure(const SoundShape& shape, const SoundWindow& window, std::string_view span,
                  std::int64_t at) {
    const std::string_view expected = stretch(shape, window, at, span.size());
    Deviation result;
    for (std::size_t i = 0; i < span.size() / shape.sample_bytes; ++i) {
        const double level = level_at(shape, expected, i);
        const double difference = std::abs(level_at(shape, span, i) - level);
        result.largest = std::max(result.largest, difference);
        result.energy += difference * difference;
        result.signal += level * level;
    }
    return result;
}

}  // namespace tool
