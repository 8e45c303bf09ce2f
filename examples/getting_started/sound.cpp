// Writes what FILE sounds like from 2 to 4 seconds into sound.wav: sound FILE
#include <framewell/framewell.h>

#include <cstdint>
#include <cstdio>

namespace {

constexpr std::uint32_t kRate = 48000;  // of the result, whatever the file has

/// The 44 bytes in front of 16-bit stereo samples, as a little-endian machine stores them.
void write_header(std::FILE* file, std::uint32_t bytes) {
    const std::uint32_t words[] = {0x46464952, 36 + bytes, 0x45564157, 0x20746d66, 16,   0x00020001,
                                   kRate,      kRate * 4,  0x00100004, 0x61746164, bytes};
    std::fwrite(words, 4, 11, file);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: sound FILE\n");
        return 2;
    }
    const ff::MovieCtx* movie = ff::FFDecoder::probe(argv[1]);
    ff::FFDecoder decoder;
    if (!decoder.open(ff::first_stream(movie, ff::StreamType::Audio))) {
        return 1;
    }
    std::FILE* file = std::fopen("sound.wav", "wb");
    if (file == nullptr) {
        return 1;
    }
    write_header(file, 0);
    std::uint32_t bytes = 0;
    for (int i = 60; i < 120; i++) {
        ff::RequireAudioFrame request;  // 16-bit stereo
        request.range = {{i, 30}, {i + 1, 30}};
        request.sample_rate = kRate;
        if (const auto span = decoder.getAudioFrame(request)) {
            std::fwrite(span->data[0], 4, static_cast<std::size_t>(span->nb_samples), file);
            bytes += 4 * static_cast<std::uint32_t>(span->nb_samples);
        }
    }
    std::rewind(file);
    write_header(file, bytes);  // now that it is known how much there is
    std::fclose(file);
    std::printf("%u samples of each channel\n", bytes / 4);
}
