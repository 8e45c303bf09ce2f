// Writes COUNT pictures of FILE side by side, each from the middle of its part of the movie, as one
// PAM image: filmstrip FILE COUNT > strip.pam
#include <framewell/framewell.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

constexpr int kHeight = 90;  // pictures are divided by whole numbers down to about this

// [strip]
struct Strip {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> pixels;  // RGBA, rows without padding
};

Strip make_strip(ff::FFDecoder* decoder, int count) {
    const ff::StreamCtx& stream = *decoder->streamContex();
    const std::int64_t duration_us = std::max<std::int64_t>(0, stream.movie->duration);
    ff::RequireVideoFrame request;
    request.divider = std::max(1, stream.height / kHeight);
    Strip strip;
    for (int i = 0; i < count; i++) {  // in order of time: from one picture to the next is not far
        request.time =
            ff::Rational{2 * i + 1, std::int64_t{2} * count} * ff::Rational{duration_us, 1000000};
        const auto picture = decoder->getVideoFrame(request);
        if (!picture) {
            continue;  // that place stays transparent
        }
        if (strip.pixels.empty()) {  // all pictures of a stream come out in one size
            strip.width = picture->width * count;
            strip.height = picture->height;
            strip.pixels.resize(std::size_t{4} * static_cast<std::size_t>(strip.width) *
                                static_cast<std::size_t>(strip.height));
        }
        for (std::ptrdiff_t y = 0; y < picture->height; y++) {
            const std::uint8_t* const row = picture->data[0] + y * picture->linesize[0];
            const std::ptrdiff_t place = y * strip.width + std::ptrdiff_t{i} * picture->width;
            std::copy(row, row + std::ptrdiff_t{4} * picture->width,
                      strip.pixels.begin() + 4 * place);
        }
    }
    return strip;
}

// [strip]

}  // namespace

int main(int argc, char** argv) {
    const int count = argc == 3 ? std::atoi(argv[2]) : 0;
    if (count < 1 || count > 1000) {
        std::fprintf(stderr, "usage: filmstrip FILE COUNT > strip.pam\n");
        return 2;
    }
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(argv[1]);
    ff::FFDecoder decoder;
    if (!decoder.open(ff::first_stream(movie, ff::StreamType::Video))) {
        return 1;
    }
    const Strip strip = make_strip(&decoder, count);
    if (strip.pixels.empty()) {
        return 1;
    }
    std::printf("P7\nWIDTH %d\nHEIGHT %d\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n",
                strip.width, strip.height);
    return std::fwrite(strip.pixels.data(), 1, strip.pixels.size(), stdout) == strip.pixels.size()
               ? 0
               : 1;
}
