// Mixes the first ten seconds of several files into one, the second and all others at half the
// volume, and shows the level of the mix every half second: mixdown OUT.raw FILE...
// OUT.raw gets 16-bit stereo at 48000 Hz.
#include <framewell/framewell.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <utility>
#include <vector>

namespace {

constexpr int kRate = 48000;
constexpr int kChannels = 2;
constexpr int kRangesPerSecond = 30;
constexpr int kSeconds = 10;

/// Decoders on the first audio stream of each file that has one.
std::vector<std::unique_ptr<ff::FFDecoder>> open_all(char** paths, int count) {
    std::vector<std::unique_ptr<ff::FFDecoder>> sources;
    for (int i = 0; i < count; i++) {
        auto decoder = std::make_unique<ff::FFDecoder>();
        if (decoder->open(
                ff::first_stream(ff::FFDecoder::probe(paths[i]), ff::StreamType::Audio))) {
            sources.push_back(std::move(decoder));
        }
    }
    return sources;
}

void show_level(const ff::PcmBuffer& block, double seconds) {
    int loudest = 0;
    const auto* const samples = reinterpret_cast<const std::int16_t*>(block.data);
    for (std::size_t i = 0; i < static_cast<std::size_t>(block.size) / sizeof *samples; i++) {
        loudest = std::max(loudest, std::abs(static_cast<int>(samples[i])));
    }
    std::printf("%4.1f s %.*s\n", seconds, 1 + loudest * 50 / 32768,
                "==================================================|");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: mixdown OUT.raw FILE...\n");
        return 2;
    }
    const auto sources = open_all(argv + 2, argc - 2);
    if (sources.empty()) {
        return 1;
    }
    std::FILE* const out = std::fopen(argv[1], "wb");
    if (out == nullptr) {
        return 1;
    }
    ff::AudioMixer mixer(kRate, kChannels, ff::SampleFormat::S16);
    bool good = true;
    for (int i = 0; good && i < kSeconds * kRangesPerSecond; i++) {
        ff::RequireAudioFrame request;
        request.range = {{i, kRangesPerSecond}, {i + 1, kRangesPerSecond}};
        request.sample_rate = kRate;  // the form of the mixer
        request.channels = kChannels;
        mixer.begin(request.range);
        for (const auto& source : sources) {
            const int volume = source == sources.front() ? 128 : 64;
            // One write per source and range. Behind the end of a file there is nothing to add.
            (void)mixer.getBuffer(source.get())->write(source->getAudioFrame(request), volume);
        }
        const std::shared_ptr<ff::PcmBuffer> block = mixer.end();
        const auto size = static_cast<std::size_t>(block->size);
        good = std::fwrite(block->data, 1, size, out) == size;
        if (i % (kRangesPerSecond / 2) == 0) {
            show_level(*block, static_cast<double>(i) / kRangesPerSecond);
        }
    }
    return std::fclose(out) == 0 && good ? 0 : 1;
}
