#pragma once

#include <framewell/frame.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// @file
/// Whether two stretches of sound are the same, and how far they are apart.

namespace tool {

/// Consecutive samples that were decoded in order, the channels of one moment side by side.
struct SoundWindow {
    std::int64_t first = 0;  ///< number of its first sample in the stream
    std::string bytes;
};

/// How samples are stored.
struct SoundShape {
    int format = -1;  ///< AVSampleFormat, interleaved
    int channels = 0;
    std::size_t sample_bytes = 0;  ///< of one value of one channel

    std::size_t frame_bytes() const { return sample_bytes * static_cast<std::size_t>(channels); }
};

/// Where `span` stands in the window: the place nearest to `expected` (samples from the window's
/// start), as the distance from there. Nothing if it does not.
/// @param farthest  the largest distance that is tried, samples.
std::optional<std::int64_t> find_span(const SoundShape& shape, const SoundWindow& window,
                                      std::string_view span, std::int64_t expected,
                                      std::int64_t farthest);

/// How far two stretches of one length are apart. 1 is full scale.
struct Deviation {
    double largest = 0;
    double energy = 0;  ///< sum of the squared differences
    double signal = 0;  ///< sum of the squared values of the expected stretch

    /// Whether they sound alike: a decoder's own noise may differ, what was recorded may not.
    bool is_close() const;
};

/// Compares `span` with the window from `at` on; `at` and the span lie inside it.
Deviation measure(const SoundShape& shape, const SoundWindow& window, std::string_view span,
                  std::int64_t at);

}  // namespace tool
