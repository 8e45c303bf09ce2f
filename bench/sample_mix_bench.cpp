// Mixing and measuring samples: each path against the plain rule, as the same compiler makes it,
// and against a copy of the same bytes.

#include "comparison.h"
#include "media/sample_lanes.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

using ff::lanes::kFormats;
using ff::lanes::Path;
using ff::lanes::plain_path;

constexpr std::size_t kSamples = 3200;  // 1/30 s of stereo at 48 kHz
constexpr int kIterations = 20000;
constexpr double kNoTarget = std::numeric_limits<double>::infinity();
constexpr const char* kFormatNames[kFormats] = {"u8",    "s8",    "s16le", "s16be", "u16le",
                                                "u16be", "s32le", "s32be", "f32le", "f32be"};

/// Noise; as floats of -0.5 to 0.5.
std::vector<std::uint8_t> make_sound(std::uint32_t format, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::vector<std::uint8_t> bytes(kSamples * ff::lanes::sample_bytes(format));
    for (std::uint8_t& byte : bytes) {
        byte = static_cast<std::uint8_t>(random());
    }
    if (format < 8) {
        return bytes;
    }
    for (std::size_t i = 0; i < kSamples; ++i) {
        const float sample = static_cast<float>(random()) / 4294967296.0F - 0.5F;
        std::uint32_t bits = 0;
        std::memcpy(&bits, &sample, sizeof bits);
        for (std::size_t at = 0; at < 4; ++at) {
            const std::size_t shift = format == 8 ? 8 * at : 24 - 8 * at;
            bytes[4 * i + at] = static_cast<std::uint8_t>(bits >> shift);
        }
    }
    return bytes;
}

bench::Side mixing(const Path* path, std::uint32_t format, int volume) {
    return [=](benchmark::State& state) {
        std::vector<std::uint8_t> dst = make_sound(format, 1);
        const std::vector<std::uint8_t> src = make_sound(format, 2);
        for ([[maybe_unused]] auto _ : state) {
            path->mix[format](dst.data(), src.data(), kSamples, volume);
            benchmark::ClobberMemory();
        }
    };
}

bench::Side measuring(const Path* path, std::uint32_t format) {
    return [=](benchmark::State& state) {
        const std::vector<std::uint8_t> data = make_sound(format, 3);
        for ([[maybe_unused]] auto _ : state) {
            benchmark::DoNotOptimize(path->peak[format](data.data(), kSamples));
        }
    };
}

bench::Side copying(std::uint32_t format) {
    return [=](benchmark::State& state) {
        std::vector<std::uint8_t> dst = make_sound(format, 1);
        const std::vector<std::uint8_t> src = make_sound(format, 2);
        for ([[maybe_unused]] auto _ : state) {
            std::memcpy(dst.data(), src.data(), src.size());
            benchmark::ClobberMemory();
        }
    };
}

double mix_target(std::uint32_t format) {
    switch (format) {
        case 2:
            return 1.0 / 6;
        case 6:
            return 1.0 / 2;
        case 8:
            return 1.0 / 5;
        default:
            return kNoTarget;
    }
}

void add_rows(std::vector<bench::Row>* rows, const Path* path, std::uint32_t format, bool best) {
    const std::string what = std::string(kFormatNames[format]) + ", " + path->name;
    const std::string name = std::string("mix_") + kFormatNames[format] + "_" + path->name;
    const std::string title = "mix " + what;
    for (const int volume : {100, 128}) {
        const std::string suffix = "_" + std::to_string(volume);
        const std::string detail = ", volume " + std::to_string(volume);
        rows->push_back({name + suffix, title + detail, bench::Judge::Ratio,
                         best ? mix_target(format) : kNoTarget, 1, kIterations,
                         mixing(path, format, volume), mixing(&plain_path(), format, volume)});
    }
    rows->push_back({name + "_copy", title + ", beside a copy", bench::Judge::Ratio, kNoTarget, 1,
                     kIterations, mixing(path, format, 100), copying(format)});
    if (path->peak[format] == nullptr) {
        return;
    }
    const std::string peak = std::string("peak_") + kFormatNames[format] + "_" + path->name;
    rows->push_back({peak, "peak " + what, bench::Judge::Ratio, best ? 1.0 / 4 : kNoTarget, 1,
                     kIterations, measuring(path, format), measuring(&plain_path(), format)});
    rows->push_back({peak + "_copy", "peak " + what + ", beside a copy", bench::Judge::Ratio,
                     kNoTarget, 1, kIterations, measuring(path, format), copying(format)});
}

}  // namespace

int main(int argc, char** argv) {
    const Path* const paths[] = {ff::lanes::avx2_path(), ff::lanes::sse2_path(),
                                 ff::lanes::neon_path()};
    std::vector<bench::Row> rows;
    bool best = true;  // the targets are those of the first path that there is
    for (const Path* const path : paths) {
        for (std::uint32_t format = 0; path != nullptr && format < kFormats; ++format) {
            add_rows(&rows, path, format, best);
        }
        best = best && path == nullptr;
    }
    if (rows.empty()) {
        std::puts("mixing: this processor has the plain rule only");
        return 0;
    }
    return bench::compare(argc, argv, rows);
}
