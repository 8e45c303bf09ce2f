// Plays FILE backwards and mirrored, ten pictures per second, and prints what comes: reverse FILE
#include <framewell/framewell.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: reverse FILE\n");
        return 2;
    }
    const ff::MovieCtx* movie = ff::FFDecoder::probe(argv[1]);
    ff::FFDecoder2 decoder;  // an FFDecoder with effects
    if (!decoder.open(ff::first_stream(movie, ff::StreamType::Video))) {
        return 1;
    }
    decoder.setRevert(true);  // from now on the movie begins with its end
    if (!decoder.setFilters("hflip")) {
        return 1;
    }
    for (int i = 1; i <= 5; i++) {
        ff::RequireVideoFrame request;
        request.time = {i, 10};
        if (const auto picture = decoder.getVideoFrame(request)) {
            std::printf("at %.1f s the picture of %.2f s\n", i / 10.0,
                        static_cast<double>(picture->pts) / 1e6);
        }
    }
}
