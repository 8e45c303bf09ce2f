// Drags a playhead over FILE from its start to its end, faster than pictures can be decoded, and
// prints which pictures were shown on the way: scrub FILE
#include <framewell/framewell.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <memory>
#include <mutex>
#include <thread>

namespace {

constexpr int kSteps = 500;  // places where the playhead is on its way
constexpr std::chrono::milliseconds kStep{2};

/// What the host shows. Callbacks come on a thread of the decoder.
class Display {
public:
    void show(int step, const ff::VFrameCtx& picture) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        std::printf("at step %3d the picture of %.3f s\n", step,
                    static_cast<double>(picture.pts) / 1e6);
        m_shown++;
        m_last_step = step;
        m_changed.notify_all();
    }

    /// Waits for the picture at the place where the playhead stopped.
    int wait_for(int step) {
        std::unique_lock<std::mutex> lock(m_mutex);
        (void)m_changed.wait_for(lock, std::chrono::seconds(10),
                                 [&] { return m_last_step == step; });
        return m_shown;
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    int m_shown = 0;
    int m_last_step = -1;
};

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: scrub FILE\n");
        return 2;
    }
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(argv[1]);
    Display display;        // outlives the decoder, whose callbacks use it
    ff::FFDecoder decoder;  // its destructor waits for a callback that runs
    if (!decoder.open(ff::first_stream(movie, ff::StreamType::Video)) || movie->duration < 0) {
        return 1;
    }
    for (int step = 0; step < kSteps; step++) {
        ff::RequireVideoFrame request;
        request.time = {movie->duration / kSteps * step, 1000000};
        request.divider = decoder.getImageDivider(ff::MemoryMode::ByResolution);
        // Replaces the request that still waits: it would show what is no longer asked for.
        decoder.getVideoFrameAsync(request,
                                   [step, &display](const std::shared_ptr<ff::VFrameCtx>& picture) {
                                       display.show(step, *picture);
                                   });
        std::this_thread::sleep_for(kStep);
    }
    std::printf("%d of %d requests were answered\n", display.wait_for(kSteps - 1), kSteps);
}
