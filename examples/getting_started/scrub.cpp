// Drags a playhead over the first five seconds of FILE without ever waiting: scrub FILE
#include <framewell/framewell.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <memory>

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: scrub FILE\n");
        return 2;
    }
    std::atomic<int> shown{0};
    std::promise<double> arrival;  // what callbacks use outlives the decoder
    std::future<double> last = arrival.get_future();

    const ff::MovieCtx* movie = ff::FFDecoder::probe(argv[1]);
    ff::FFDecoder decoder;
    if (!decoder.open(ff::first_stream(movie, ff::StreamType::Video))) {
        return 1;
    }
    for (int step = 1; step <= 500; step++) {
        ff::RequireVideoFrame request;
        request.time = {step, 100};
        decoder.getVideoFrameAsync(request, [&, step](const auto& picture) {
            shown++;  // on a thread of the decoder: a window would be told here
            if (step == 500) {
                arrival.set_value(static_cast<double>(picture->pts) / 1e6);
            }
        });
    }
    if (last.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
        return 1;  // a request without a picture calls nobody
    }
    std::printf("stopped at the picture of %.2f s\n", last.get());
    std::fprintf(stderr, "%d of 500 requests were answered\n", shown.load());
}
