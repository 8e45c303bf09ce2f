// Writes COUNT small pictures, spread over FILE, one after another as a stream of PAM images:
// thumbnails FILE COUNT > thumbnails.pam
#include <framewell/framewell.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr int kThumbnailWidth = 160;

bool write_picture(const ff::VFrameCtx& picture) {
    std::printf("P7\nWIDTH %d\nHEIGHT %d\nDEPTH 4\nMAXVAL 255\nTUPLTYPE RGB_ALPHA\nENDHDR\n",
                picture.width, picture.height);
    for (int y = 0; y < picture.height; y++) {
        std::fwrite(picture.data[0] + std::ptrdiff_t{y} * picture.linesize[0], 4,
                    static_cast<std::size_t>(picture.width), stdout);
    }
    return std::ferror(stdout) == 0;
}

}  // namespace

int main(int argc, char** argv) {
    const int count = argc == 3 ? std::atoi(argv[2]) : 0;
    if (count < 1) {
        std::fprintf(stderr, "usage: thumbnails FILE COUNT > thumbnails.pam\n");
        return 2;
    }
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(argv[1]);
    const ff::StreamCtx* const stream = ff::first_stream(movie, ff::StreamType::Video);
    ff::FFDecoder decoder;
    if (!decoder.open(stream)) {
        return 1;
    }

    // Dividing is cheaper than scaling afterwards, and less memory goes around.
    ff::RequireVideoFrame request;
    request.divider = std::max(1, stream->width / kThumbnailWidth);
    const std::int64_t duration_us = std::max<std::int64_t>(0, movie->duration);
    for (int i = 0; i < count; i++) {
        request.time = {duration_us / count * i, 1000000};
        const auto picture = decoder.getVideoFrame(request);
        if (picture && !write_picture(*picture)) {
            return 1;
        }
    }
}
