// Writes the picture that FILE shows at a time: frame_at FILE MILLISECONDS > picture.pam
#include <framewell/framewell.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
    if (argc != 3) {
        std::fprintf(stderr, "usage: frame_at FILE MILLISECONDS > picture.pam\n");
        return 2;
    }
    const ff::MovieCtx* movie = ff::FFDecoder::probe(argv[1]);
    ff::FFDecoder decoder;
    if (!decoder.open(ff::first_stream(movie, ff::StreamType::Video))) {
        return 1;  // the log on standard error says why
    }
    ff::RequireVideoFrame request;               // one picture, RGBA, full size
    request.time = {std::atoll(argv[2]), 1000};  // seconds from the start, as a fraction
    const auto picture = decoder.getVideoFrame(request);
    if (!picture) {
        return 1;
    }
    std::printf("P7\nWIDTH %d\nHEIGHT %d\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n",
                picture->width, picture->height);
    const auto width = static_cast<std::size_t>(picture->width);
    for (int y = 0; y < picture->height; y++) {
        const std::uint8_t* row = picture->data[0] + std::ptrdiff_t{y} * picture->linesize[0];
        if (std::fwrite(row, 4, width, stdout) != width) {
            return 1;
        }
    }
}
