// What the library adds where nothing is decoded: answers from the cache, and log lines that
// nobody wants.

#include "clips.h"
#include "comparison.h"
#include "plain_loop.h"

#include <framewell/base/logger.h>
#include <framewell/ffdecoder.h>
#include <framewell/movie_info.h>

extern "C" {
#include <libavutil/pixfmt.h>
}

#include <memory>
#include <string>
#include <vector>

namespace {

constexpr int kAnswers = 1000;      // per measurement
constexpr int kLogCalls = 5000000;  // per measurement

/// Asks again and again for the picture that was decoded last.
void answer_from_cache(benchmark::State& state, const std::string& path, int divider) {
    const ff::StreamCtx* const stream =
        ff::first_stream(ff::FFDecoder::probe(path.c_str()), ff::StreamType::Video);
    ff::FFDecoder decoder;
    ff::RequireVideoFrame request;
    request.time = {1, 2};
    request.divider = divider;
    if (!decoder.open(stream) || !decoder.getVideoFrame(request)) {
        state.SkipWithError("cannot decode the clip");
        return;
    }
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(decoder.getVideoFrame(request));
    }
}

/// Scales the picture that was decoded last.
void convert_only(benchmark::State& state, const std::string& path, int width, int height) {
    bench::PlainLoop loop(path, width, height, AV_PIX_FMT_RGBA);
    const std::int64_t time = loop.times().at(bench::kPicturesPerSecond / 2);
    (void)loop.show(time);
    for ([[maybe_unused]] auto _ : state) {
        loop.show_kept(time);
    }
}

bench::Row cached_row(const bench::Clip& clip, int divider, int width, int height) {
    const std::string size = std::to_string(width) + "x" + std::to_string(height);
    const std::string path = bench::path_of(clip);
    return {"cached/" + size,
            "cached picture, " + size + ", less its conversion",
            bench::Judge::Difference,
            20,
            1,
            kAnswers,
            [=](benchmark::State& state) { answer_from_cache(state, path, divider); },
            [=](benchmark::State& state) { convert_only(state, path, width, height); }};
}

void log_unwanted(benchmark::State& state) {
    mox::Logger* const logger = mox::Logger::instance();
    for ([[maybe_unused]] auto _ : state) {
        logger->write("bg", mox::MoxLogDebug, "bench/overhead_bench", 1, "picture %d", 25);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<bench::Row> rows{
        cached_row(bench::small_clip(), 1, 160, 90),
        cached_row(bench::all_clips().front(), 1, 1920, 1080),
        cached_row(bench::all_clips().front(), 2, 960, 540),
        {"log", "a log call that is filtered out", bench::Judge::Alone, 5, 1, kLogCalls,
         log_unwanted, nullptr},
    };
    return bench::compare(argc, argv, rows);
}
