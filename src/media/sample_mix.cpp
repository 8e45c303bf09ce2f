#include "media/sample_lanes.h"

#include <framewell/media/sample_mix.h>

#include <cstdio>

namespace {

using ff::lanes::kFormats;
using ff::lanes::sample_bytes;

// What the peak of each format is measured against; 1 where there is no peak.
constexpr double kFullScale[kFormats] = {
    127.0,
    127.0,
    32767.0,
    32767.0,
    1.0,
    1.0,
    2147483647.0,
    2147483647.0,
    3.4028234663852886e38,
    3.4028234663852886e38,
};

// A conversion beyond the range of the type is undefined, and a scale can lead there.
std::uint32_t to_unsigned(double value) {
    constexpr double too_large = 4294967296.0;
    if (!(value > 0)) {  // NaN as well: an infinite peak at scale 0
        return 0;
    }
    return value < too_large ? static_cast<std::uint32_t>(value) : UINT32_MAX;
}

}  // namespace

void SDL_MixAudioFormat(std::uint8_t* dst, const std::uint8_t* src, SDL_AudioFormat format,
                        std::uint32_t len, int volume) {
    if (volume == 0) {
        return;
    }
    if (format >= kFormats) {
        perror("MixAudio: unknown audio format");
        return;
    }
    if (dst == nullptr || src == nullptr) {
        return;
    }
    ff::lanes::best_path().mix[format](dst, src, len / sample_bytes(format), volume);
}

std::uint32_t Audio_Volume_Peak(SDL_AudioFormat format, const std::uint8_t* data, std::uint32_t len,
                                int scale) {
    if (format >= kFormats || data == nullptr) {
        return 0;
    }
    const ff::lanes::Path& path = ff::lanes::best_path();
    if (path.peak[format] == nullptr) {
        return 0;
    }
    const double peak = path.peak[format](data, len / sample_bytes(format));
    return to_unsigned(peak / kFullScale[format] * scale);
}

const ff::lanes::Path& ff::lanes::best_path() {
    static const Path* const s_vectors = avx2_path() != nullptr   ? avx2_path()
                                         : sse2_path() != nullptr ? sse2_path()
                                                                  : neon_path();
    return s_vectors != nullptr ? *s_vectors : plain_path();
}
