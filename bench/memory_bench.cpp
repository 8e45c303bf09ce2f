// Memory: what a decoder holds after ever more random requests.

#include "clips.h"

#include <framewell/ffdecoder.h>
#include <framewell/movie_info.h>

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <random>
#include <string>

namespace {

/// The memory that the process has in use, KiB.
long resident_kib() {
    long total = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> total >> resident;
    return resident * (sysconf(_SC_PAGESIZE) / 1024);
}

}  // namespace

/// Usage: memory_bench [REQUESTS [CLIP]]; exit status 1 if memory grows.
int main(int argc, char** argv) {
    const long requests = argc > 1 ? std::atol(argv[1]) : 10000;
    const bench::Clip& clip = argc > 2 ? bench::clip_named(argv[2]) : bench::small_clip();
    const std::string path = bench::path_of(clip);
    const ff::StreamCtx* const stream =
        ff::first_stream(ff::FFDecoder::probe(path.c_str()), ff::StreamType::Video);
    ff::FFDecoder decoder;
    if (requests < 1000 || stream == nullptr || !decoder.open(stream)) {
        (void)std::fprintf(stderr, "usage: %s [REQUESTS (1000 or more) [CLIP]]\n", argv[0]);
        return 2;
    }
    std::mt19937 random(20230611);
    const auto pictures = static_cast<std::uint32_t>(clip.seconds * bench::kPicturesPerSecond);
    long settled = 0;  // after the first tenth, when every buffer has been made
    std::printf("%s, random requests -> KiB resident:", clip.title.c_str());
    for (long i = 1; i <= requests; ++i) {
        ff::RequireVideoFrame request;
        request.time = {static_cast<std::int64_t>(random() % pictures), bench::kPicturesPerSecond};
        if (!decoder.getVideoFrame(request)) {
            (void)std::fprintf(stderr, "no picture\n");
            return 1;
        }
        if (i % (requests / 10) == 0) {
            std::printf(" %ld: %ld", i, resident_kib());
            (void)std::fflush(stdout);
            settled = settled == 0 ? resident_kib() : settled;
        }
    }
    // Allocators round up and keep a little more or less; a leak of one small record per request
    // would show as more than this.
    constexpr long noise_kib = 1024;
    const long growth = resident_kib() - settled;
    std::printf("\ngrowth after the first tenth: %ld KiB %s\n", growth,
                growth <= noise_kib ? "ok" : "GROWS");
    return growth <= noise_kib ? 0 : 1;
}
