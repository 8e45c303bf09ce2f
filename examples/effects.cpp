// Plays the first two seconds of FILE with effects, and prints what comes: pictures backwards and
// mirrored, sound at 1.5 times the speed and half as loud: effects FILE
#include <framewell/framewell.h>

#include <cstdint>
#include <cstdio>

namespace {

constexpr int kSeconds = 2;
constexpr int kPicturesPerSecond = 10;

void play_pictures(const ff::StreamCtx* stream) {
    ff::FFDecoder2 decoder;
    if (!decoder.open(stream)) {
        return;
    }
    decoder.setRevert(true);            // needs an open decoder: it asks for the duration
    (void)decoder.setFilters("hflip");  // as libavfilter understands it
    for (int i = 0; i < kSeconds * kPicturesPerSecond; i++) {
        ff::RequireVideoFrame request;
        request.time = {i, kPicturesPerSecond};  // of the output: 0 is the end of the file
        request.format = ff::PixelFormat::Yuv420p;
        if (const auto picture = decoder.getVideoFrame(request)) {
            std::printf("at %.1f s the picture of %.3f s\n",
                        static_cast<double>(i) / kPicturesPerSecond,
                        static_cast<double>(picture->pts) / 1e6);
        }
    }
}

void play_sound(const ff::StreamCtx* stream) {
    ff::FFDecoder2 decoder;
    if (!decoder.open(stream) || !decoder.setFilters("volume=0.5") || !decoder.setSpeed(1.5)) {
        return;
    }
    std::int64_t samples = 0;
    for (int i = 0; i < kSeconds * 10; i++) {
        ff::RequireAudioFrame request;
        request.range = {{i, 10}, {i + 1, 10}};  // of the output; of the file, 1.5 times as much
        request.sample_rate = stream->sample_rate;
        // The first spans may come short or empty: the filter needs some sound ahead.
        if (const auto span = decoder.getAudioFrame(request)) {
            samples += span->nb_samples;
        }
    }
    std::printf("%lld samples for %d seconds of %d Hz\n", static_cast<long long>(samples), kSeconds,
                stream->sample_rate);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: effects FILE\n");
        return 2;
    }
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(argv[1]);
    const ff::StreamCtx* const video = ff::first_stream(movie, ff::StreamType::Video);
    const ff::StreamCtx* const audio = ff::first_stream(movie, ff::StreamType::Audio);
    if (video == nullptr && audio == nullptr) {
        return 1;  // the log on standard error says why
    }
    if (video != nullptr) {
        play_pictures(video);
    }
    if (audio != nullptr) {
        play_sound(audio);
    }
}
