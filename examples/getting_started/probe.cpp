// Prints how long FILE is and what its streams are: probe FILE
#include <framewell/framewell.h>

#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: probe FILE\n");
        return 2;
    }
    const ff::MovieCtx* movie = ff::FFDecoder::probe(argv[1]);
    if (movie == nullptr) {
        return 1;  // the log on standard error has said why
    }
    std::printf("%.1f seconds\n", static_cast<double>(movie->duration) / 1e6);
    for (int i = 0; i < movie->nb_streams; i++) {
        const ff::StreamCtx& stream = *movie->streams[i];
        if (stream.type == ff::StreamType::Video) {
            std::printf("pictures of %dx%d pixels\n", stream.width, stream.height);
        } else if (stream.type == ff::StreamType::Audio) {
            std::printf("sound of %d Hz\n", stream.sample_rate);
        }
    }
}
