// Mixes the first five seconds of two files into mix.raw, the second at half the volume; 16-bit
// stereo at 48000 Hz: mix FILE FILE
#include <framewell/framewell.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: mix FILE FILE\n");
        return 2;
    }
    ff::FFDecoder voice;
    ff::FFDecoder music;
    if (!voice.open(ff::first_stream(ff::FFDecoder::probe(argv[1]), ff::StreamType::Audio)) ||
        !music.open(ff::first_stream(ff::FFDecoder::probe(argv[2]), ff::StreamType::Audio))) {
        return 1;
    }
    std::FILE* file = std::fopen("mix.raw", "wb");
    if (file == nullptr) {
        return 1;
    }
    ff::AudioMixer mixer(48000, 2, ff::SampleFormat::S16);
    int bytes = 0;
    for (int i = 0; i < 150; i++) {
        ff::RequireAudioFrame request;
        request.range = {{i, 30}, {i + 1, 30}};
        request.sample_rate = 48000;
        mixer.begin(request.range);
        (void)mixer.getBuffer(&voice)->write(voice.getAudioFrame(request), 128);  // as it is
        (void)mixer.getBuffer(&music)->write(music.getAudioFrame(request), 64);   // half
        const auto block = mixer.end();
        std::fwrite(block->data, 1, static_cast<std::size_t>(block->size), file);
        bytes += block->size;
    }
    std::fclose(file);
    std::printf("%d samples of each channel\n", bytes / 4);
}
