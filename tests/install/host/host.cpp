// A host as small as it gets: host FILE. Fails unless the library works as it was installed.
#include <framewell/framewell.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
    const std::string expected = std::to_string(FRAMEWELL_VERSION_MAJOR) + "." +
                                 std::to_string(FRAMEWELL_VERSION_MINOR) + "." +
                                 std::to_string(FRAMEWELL_VERSION_PATCH);
    if (argc != 2 || expected != ff::framewell_version()) {
        std::fprintf(stderr, "headers %s, library %s\n", expected.c_str(), ff::framewell_version());
        return 1;
    }
    ff::FFDecoder decoder;
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(argv[1]);
    if (!decoder.open(ff::first_stream(movie, ff::StreamType::Video))) {
        return 1;
    }
    ff::RequireVideoFrame request;
    request.time = {1, 2};
    const auto picture = decoder.getVideoFrame(request);
    if (!picture || picture->width != 160 || picture->height != 120) {
        return 1;
    }
    std::printf("framewell %s: a picture of %dx%d\n", ff::framewell_version(), picture->width,
                picture->height);
    return 0;
}
