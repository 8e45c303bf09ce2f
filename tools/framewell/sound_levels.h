#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tool {

/// How loud a stretch of one channel is. All of it 0 where there are no samples.
struct Level {
    float low = 0;   ///< smallest sample
    float high = 0;  ///< largest
    float rms = 0;   ///< root of the mean square
};

/// The levels of sound of any length, gathered piece by piece in a fixed amount of memory: samples
/// are summed up in buckets of equal length, and when all buckets are full, each two become one.
class SoundLevels {
public:
    /// @param channels     at least 1.
    /// @param most_buckets of each channel; even and at least 2. Columns begin and end at buckets,
    ///                     so there should be many times as many as columns.
    SoundLevels(int channels, std::size_t most_buckets)
        : m_channels(static_cast<std::size_t>(channels)), m_most(most_buckets) {}

    /// Adds `count` samples per channel, the channels of one moment side by side. What is no finite
    /// number counts as silence.
    void add(const float* samples, std::size_t count) {
        for (std::size_t i = 0; i < count; ++i, samples += m_channels) {
            if (m_samples == m_step * static_cast<std::int64_t>(m_most)) {
                halve();
            }
            const auto at = static_cast<std::size_t>(m_samples / m_step) * m_channels;
            if (at == m_buckets.size()) {
                m_buckets.resize(at + m_channels);
            }
            for (std::size_t channel = 0; channel < m_channels; ++channel) {
                const float value = samples[channel];
                m_buckets[at + channel].take(std::isfinite(value) ? value : 0);
            }
            ++m_samples;
        }
    }

    /// Samples per channel so far.
    std::int64_t samples() const { return m_samples; }

    /// The levels of `width` stretches that together cover all sound. With fewer samples than
    /// stretches, several show the same sample.
    std::vector<Level> columns(int channel, int width) const {
        std::vector<Level> result(static_cast<std::size_t>(width));
        if (m_samples == 0) {
            return result;
        }
        const auto buckets = static_cast<std::int64_t>(m_buckets.size() / m_channels);
        for (int column = 0; column < width; ++column) {
            const std::int64_t begin = sample_at(column, width) / m_step;
            const std::int64_t end =
                (sample_at(column + 1, width) + m_step - 1) / m_step;  // the first beyond it
            Bucket sum;
            for (std::int64_t i = begin; i < std::clamp(end, begin + 1, buckets); ++i) {
                sum.join(m_buckets[static_cast<std::size_t>(i) * m_channels +
                                   static_cast<std::size_t>(channel)]);
            }
            result[static_cast<std::size_t>(column)] = sum.level();
        }
        return result;
    }

private:
    struct Bucket {
        float low = 0;
        float high = 0;
        double squares = 0;
        std::int64_t count = 0;

        void take(float value) {
            join({value, value, static_cast<double>(value) * static_cast<double>(value), 1});
        }

        void join(const Bucket& other) {
            if (other.count == 0) {
                return;
            }
            low = count == 0 ? other.low : std::min(low, other.low);
            high = count == 0 ? other.high : std::max(high, other.high);
            squares += other.squares;
            count += other.count;
        }

        Level level() const {
            const double mean = count == 0 ? 0 : squares / static_cast<double>(count);
            return {low, high, static_cast<float>(std::sqrt(mean))};
        }
    };

    void halve() {
        for (std::size_t i = 0; i < m_most / 2; ++i) {
            for (std::size_t channel = 0; channel < m_channels; ++channel) {
                Bucket pair = m_buckets[2 * i * m_channels + channel];
                pair.join(m_buckets[(2 * i + 1) * m_channels + channel]);
                m_buckets[i * m_channels + channel] = pair;
            }
        }
        m_buckets.resize(m_most / 2 * m_channels);
        m_step *= 2;
    }

    // In double, which is exact enough for a border between columns and cannot run over.
    std::int64_t sample_at(int column, int width) const {
        const double share = static_cast<double>(column) / width;
        const auto sample = static_cast<std::int64_t>(share * static_cast<double>(m_samples));
        return std::min(sample, column < width ? m_samples - 1 : m_samples);
    }

    const std::size_t m_channels;
    const std::size_t m_most;
    std::int64_t m_step = 1;  // samples per bucket
    std::int64_t m_samples = 0;
    std::vector<Bucket> m_buckets;  // the channels of one stretch side by side
};

}  // namespace tool
