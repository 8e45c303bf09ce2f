// What framewell adds to decoding: the same pictures by the library and by a plain loop.

#include "clips.h"
#include "comparison.h"
#include "plain_loop.h"

#include <framewell/ffdecoder.h>
#include <framewell/movie_info.h>

extern "C" {
#include <libavutil/pixfmt.h>
}

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr std::uint32_t kSeed = 20230611;

using Positions = std::vector<std::size_t>;

/// Which pictures of a clip of `count` are asked for, one after another.
using Walk = std::function<Positions(std::size_t count)>;

/// The first `wanted` pictures.
Positions in_order(std::size_t count, std::size_t wanted) {
    Positions positions;
    for (std::size_t i = 0; i < std::min(count, wanted); ++i) {
        positions.push_back(i);
    }
    return positions;
}

Positions at_random(std::size_t count, std::size_t wanted) {
    std::mt19937 random(kSeed);
    Positions positions;
    for (std::size_t i = 0; i < wanted; ++i) {
        positions.push_back(random() % count);
    }
    return positions;
}

/// A head that somebody drags slowly: up to three pictures per step, now and then the same one, and
/// every twentieth step back by up to two seconds to see something again.
Positions moving_head(std::size_t count, std::size_t wanted) {
    std::mt19937 random(kSeed);
    Positions positions;
    std::size_t at = count / 4;
    while (positions.size() < wanted) {
        const bool jumps_back = positions.size() % 20 == 19;
        const std::size_t by = jumps_back ? 1 + random() % 60 : random() % 4;
        at = jumps_back ? at - std::min(at, by) : std::min(at + by, count - 1);
        positions.push_back(at);
    }
    return positions;
}

Positions backwards(std::size_t count, std::size_t wanted) {
    Positions positions;
    const std::size_t last = count * 3 / 4;
    for (std::size_t i = 0; i < std::min(last, wanted); ++i) {
        positions.push_back(last - i);
    }
    return positions;
}

Walk walk(Positions (*make)(std::size_t, std::size_t), std::size_t wanted) {
    return [make, wanted](std::size_t count) { return make(count, wanted); };
}

/// Everything that both sides need to do the same work.
struct Job {
    const ff::StreamCtx* stream;
    std::string path;
    int divider;
    std::vector<std::int64_t> times;  // in ticks, in the order in which they are asked for

    int width() const {
        return divider >= 2 ? (stream->width / divider + 15) / 16 * 16 : stream->width;
    }

    int height() const {
        return divider >= 2 ? (stream->height / divider + 1) / 2 * 2 : stream->height;
    }

    bench::PlainLoop make_loop() const { return {path, width(), height(), AV_PIX_FMT_RGBA}; }
};

ff::RequireVideoFrame request_for(const Job& job, std::int64_t time) {
    ff::RequireVideoFrame request;
    // The clips begin at 0, so the movie's time is the stream's.
    request.time = ff::timestamp_to_time(time, job.stream->time_base);
    request.divider = job.divider;
    return request;
}

Job make_job(const bench::Clip& clip, int divider, const Walk& walk) {
    Job job;
    job.path = bench::path_of(clip);
    job.stream = ff::first_stream(ff::FFDecoder::probe(job.path.c_str()), ff::StreamType::Video);
    job.divider = divider;
    const bench::PlainLoop loop = job.make_loop();
    for (const std::size_t position : walk(loop.times().size())) {
        job.times.push_back(loop.times()[position]);
    }
    return job;
}

/// Makes sure that both sides give the very same pictures; otherwise the times mean nothing.
bool is_same_work(const Job& job) {
    bench::PlainLoop loop = job.make_loop();
    ff::FFDecoder decoder;
    if (!decoder.open(job.stream)) {
        return false;
    }
    for (std::size_t i = 0; i < job.times.size() && i < 12; ++i) {
        (void)loop.show(job.times[i]);
        const auto picture = decoder.getVideoFrame(request_for(job, job.times[i]));
        if (!picture) {
            return false;
        }
        for (int y = 0; y < picture->height; ++y) {
            if (std::memcmp(picture->data[0] + std::ptrdiff_t{y} * picture->linesize[0],
                            loop.planes()[0] + std::ptrdiff_t{y} * loop.strides()[0],
                            static_cast<std::size_t>(picture->width) * 4) != 0) {
                return false;
            }
        }
    }
    return true;
}

void run_framewell(benchmark::State& state, const Job& job) {
    ff::FFDecoder decoder;
    if (!decoder.open(job.stream)) {
        state.SkipWithError("cannot open the decoder");
        return;
    }
    for ([[maybe_unused]] auto _ : state) {
        for (const std::int64_t time : job.times) {
            const auto picture = decoder.getVideoFrame(request_for(job, time));
            if (!picture ||
                picture->pts != ff::rescale_q(time, job.stream->time_base, {1, 1000000})) {
                state.SkipWithError("not the picture that was asked for");
                return;
            }
        }
    }
}

void run_loop(benchmark::State& state, const Job& job) {
    bench::PlainLoop loop = job.make_loop();
    for ([[maybe_unused]] auto _ : state) {
        for (const std::int64_t time : job.times) {
            if (loop.show(time) != time) {
                state.SkipWithError("not the picture that was asked for");
                return;
            }
        }
    }
}

/// A job is made when its row is run for the first time: making it takes a scan of the clip.
class LazyJob {
public:
    LazyJob(const bench::Clip& clip, int divider, Walk walk)
        : m_clip(&clip), m_divider(divider), m_walk(std::move(walk)) {}

    const Job* get(benchmark::State& state) {
        if (!m_job) {
            m_job = std::make_unique<Job>(make_job(*m_clip, m_divider, m_walk));
            m_is_same = is_same_work(*m_job);
        }
        if (!m_is_same) {
            state.SkipWithError("the two sides give different pictures");
            return nullptr;
        }
        return m_job.get();
    }

private:
    const bench::Clip* m_clip;
    int m_divider;
    Walk m_walk;
    std::unique_ptr<Job> m_job;
    bool m_is_same = false;
};

bench::Row make_row(const std::string& clip_name, const std::string& what, const std::string& title,
                    double target, int divider, std::size_t pictures, Walk walk) {
    const bench::Clip& clip = bench::clip_named(clip_name);
    const auto job = std::make_shared<LazyJob>(clip, divider, std::move(walk));
    const auto side = [job](void (*run)(benchmark::State&, const Job&)) {
        return [job, run](benchmark::State& state) {
            if (const Job* const ready = job->get(state)) {
                run(state, *ready);
            }
        };
    };
    return {clip_name + "/" + what,        clip.title + ": " + title,
            bench::Judge::Ratio,           target,
            static_cast<double>(pictures), 1,
            side(run_framewell),           side(run_loop)};
}

std::vector<bench::Row> make_rows() {
    std::vector<bench::Row> rows;
    const auto add = [&rows](const std::string& clip, const std::string& what,
                             const std::string& title, double target, int divider,
                             Positions (*make)(std::size_t, std::size_t), std::size_t pictures) {
        rows.push_back(
            make_row(clip, what, title, target, divider, pictures, walk(make, pictures)));
    };
    for (const char* const clip : {"h264_gop30", "h264_gop250", "hevc", "uhd"}) {
        const bool is_heavy = clip == std::string("hevc") || clip == std::string("uhd");
        const bool is_long = clip == std::string("h264_gop250");
        add(clip, "in_order_full", "in order, full", 1.05, 1, in_order, is_heavy ? 200 : 400);
        add(clip, "in_order_half", "in order, half", 1.05, 2, in_order, is_heavy ? 200 : 400);
        add(clip, "random", is_heavy ? "40 at random" : "200 at random", is_long ? 1.05 : 1.1, 1,
            at_random, is_heavy ? 40 : 200);
        add(clip, "head", "slow head, jumps back", 1.0, 1, moving_head, is_heavy ? 120 : 300);
        add(clip, "backwards", "100 backwards", 1.15, 1, backwards, 100);
    }
    return rows;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::compare(argc, argv, make_rows());
}
