#pragma once

// The ways to mix and to measure samples: a plain rule for every format, and the same for many
// samples at a time with the processor's vector instructions. The plain rule is the reference; all
// others give its bytes, which sample_mix_test.cpp proves path by path.

#include <cstddef>
#include <cstdint>

namespace ff::lanes {

constexpr std::uint32_t kFormats = 10;
constexpr int kFullVolume = 128;  // leaves a sample as it is
constexpr float kVolumeStep = 0.0078125F;
constexpr float kLargestFloat = 3.4028234663852886e38F;
constexpr std::uint32_t kQuietNan = 0x7FC00000;

/// Adds `count` samples at `src`, times `volume` / 128, onto those at `dst`. Neither need be
/// aligned; the two may be one.
using MixFunction = void (*)(std::uint8_t* dst, const std::uint8_t* src, std::size_t count,
                             int volume);

/// Returns the peak of `count` samples, which a double holds exactly for every format.
using PeakFunction = double (*)(const std::uint8_t* data, std::size_t count);

/// One way, for all formats. A null peak function: the format has no peak.
struct Path {
    const char* name;
    MixFunction mix[kFormats];
    PeakFunction peak[kFormats];
};

/// One sample at a time.
const Path& plain_path();

// The others are null where the library is built for another processor or the one it runs on lacks
// the instructions.
const Path* sse2_path();
const Path* avx2_path();
const Path* neon_path();

/// The fastest path that this processor has; the plain one where it has no other.
const Path& best_path();

/// Bytes per sample of a format below kFormats.
constexpr std::size_t sample_bytes(std::uint32_t format) {
    return format < 2 ? 1 : format < 6 ? 2 : 4;
}

}  // namespace ff::lanes
