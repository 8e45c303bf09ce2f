// Writes the picture that FILE shows at 2.5 seconds into picture.ppm: picture FILE
#include <framewell/framewell.h>

#include <cstddef>
#include <cstdio>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: picture FILE\n");
        return 2;
    }
    const ff::MovieCtx* movie = ff::FFDecoder::probe(argv[1]);
    ff::FFDecoder decoder;
    if (!decoder.open(ff::first_stream(movie, ff::StreamType::Video))) {
        return 1;
    }
    ff::RequireVideoFrame request;
    request.time = {5, 2};  // 5/2 seconds from the start of the movie
    const auto picture = decoder.getVideoFrame(request);
    if (!picture) {
        return 1;
    }
    std::FILE* file = std::fopen("picture.ppm", "wb");
    if (file == nullptr) {
        return 1;
    }
    std::fprintf(file, "P6 %d %d 255\n", picture->width, picture->height);
    for (std::ptrdiff_t y = 0; y < picture->height; y++) {
        const auto* row = picture->data[0] + y * picture->linesize[0];
        for (std::ptrdiff_t x = 0; x < picture->width; x++) {
            std::fwrite(row + 4 * x, 1, 3, file);  // red, green, blue; not the alpha behind them
        }
    }
    std::fclose(file);
    std::printf("%dx%d pixels, shown from %.2f s on\n", picture->width, picture->height,
                static_cast<double>(picture->pts) / 1e6);
}
