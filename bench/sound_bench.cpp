// What framewell adds to decoding and resampling sound: the same spans by the library and by a
// plain loop.

#include "clips.h"
#include "comparison.h"
#include "plain_sound_loop.h"

#include <framewell/ffdecoder.h>
#include <framewell/movie_info.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Loop = bench::PlainSoundLoop;

constexpr std::uint32_t kSeed = 20230611;
constexpr int kChannels = 2;

// Consecutive spans are as long as a picture.
constexpr int kSpansPerSecond = 30;

constexpr int kRandomSpans = 200;
constexpr int kLongSeconds = 600;
constexpr int kComparedSpans = 200;

// Sound up to here may be decoded from the start, which is measured apart.
constexpr int kNearStartSeconds = 10;

/// How many samples before a place decoding must begin for the sound there to be right; as many as
/// the library decodes.
int preroll_of(const bench::SoundClip& clip) {
    if (clip.name == "aac") {
        return 4 * 2048;
    }
    if (clip.name == "mp3") {
        return 12 * 1152;
    }
    return clip.name == "opus" ? 96000 : 0;
}

/// A stretch of a stream in its own samples.
struct Span {
    std::int64_t first;
    int count;
};

/// Spans of 10 ms to 1 s that lie in [from, to) seconds.
std::vector<Span> random_spans(int rate, int from, int to, int wanted) {
    std::mt19937 random(kSeed);
    std::vector<Span> spans;
    for (int i = 0; i < wanted; ++i) {
        const int ms = 10 + static_cast<int>(random() % 991);
        const int count = static_cast<int>(std::int64_t{rate} * ms / 1000);
        const std::int64_t room = std::int64_t{to - from} * rate - count;
        const auto offset = static_cast<std::int64_t>(random() % static_cast<std::uint32_t>(room));
        spans.push_back({std::int64_t{from} * rate + offset, count});
    }
    return spans;
}

/// Everything that both sides need to do the same work.
struct Job {
    bench::SoundClip clip;
    int rate;                 // of the results, Hz
    std::vector<Span> spans;  // empty: all, one after another
    bool near_start;

    /// The number of consecutive spans.
    int span_count() const { return clip.seconds * kSpansPerSecond; }

    std::string path() const { return bench::path_of(clip); }

    const ff::StreamCtx* stream() const {
        return ff::first_stream(ff::FFDecoder::probe(path().c_str()), ff::StreamType::Audio);
    }
};

ff::RequireAudioFrame request_for(const Job& job, const ff::Range& range) {
    ff::RequireAudioFrame request;
    request.range = range;
    request.sample_rate = job.rate;
    request.channels = kChannels;
    return request;
}

ff::Range range_of(const Job& job, const Span& span) {
    const int rate = job.clip.sample_rate;
    return {{span.first, rate}, {span.first + span.count, rate}};
}

int take(const Job& job, Loop* loop, const Span& span) {
    return job.near_start ? loop->take_from_start(span.first, span.count)
                          : loop->take(span.first, span.count, preroll_of(job.clip));
}

bool play_framewell(const Job& job, ff::FFDecoder* decoder, Loop::Samples* record) {
    for (int i = 0; i < job.span_count(); ++i) {
        const auto sound = decoder->getAudioFrame(
            request_for(job, {{i, kSpansPerSecond}, {i + 1, kSpansPerSecond}}));
        if (!sound) {
            return false;
        }
        if (record != nullptr) {
            const auto* const samples = reinterpret_cast<const std::int16_t*>(sound->data[0]);
            record->insert(record->end(), samples,
                           samples + std::ptrdiff_t{sound->nb_samples} * kChannels);
        }
    }
    return true;
}

/// The resampler keeps a little back, and a coded stream may be longer than what went into it; all
/// but that must be there, and the same.
bool plays_the_same(const Job& job, ff::FFDecoder* decoder, Loop* loop) {
    Loop::Samples ours;
    Loop::Samples theirs;
    (void)loop->play(&theirs);
    if (!play_framewell(job, decoder, &ours)) {
        return false;
    }
    const std::size_t compared = std::min(ours.size(), theirs.size());
    const auto seconds = static_cast<std::size_t>(job.clip.seconds);
    const std::size_t expected =
        static_cast<std::size_t>(job.rate) * kChannels * (seconds * 100 - 5) / 100;
    return compared >= expected &&
           std::memcmp(ours.data(), theirs.data(), compared * sizeof ours[0]) == 0;
}

bool takes_the_same(const Job& job, ff::FFDecoder* decoder, Loop* loop) {
    for (std::size_t i = 0; i < job.spans.size() && i < kComparedSpans; ++i) {
        const auto sound = decoder->getAudioFrame(request_for(job, range_of(job, job.spans[i])));
        const int got = take(job, loop, job.spans[i]);
        if (!sound || sound->nb_samples != got ||
            std::memcmp(sound->data[0], loop->buffer(),
                        static_cast<std::size_t>(got) * kChannels * sizeof(std::int16_t)) != 0) {
            return false;
        }
    }
    return true;
}

/// Makes sure that both sides give the very same samples; otherwise the times mean nothing.
bool is_same_work(const Job& job) {
    ff::FFDecoder decoder;
    if (!decoder.open(job.stream())) {
        return false;
    }
    Loop loop(job.path(), job.rate);
    return job.spans.empty() ? plays_the_same(job, &decoder, &loop)
                             : takes_the_same(job, &decoder, &loop);
}

bool take_all(const Job& job, ff::FFDecoder* decoder) {
    return std::all_of(job.spans.begin(), job.spans.end(), [&](const Span& span) {
        return decoder->getAudioFrame(request_for(job, range_of(job, span))) != nullptr;
    });
}

void run_framewell(benchmark::State& state, const Job& job) {
    ff::FFDecoder decoder;
    if (!decoder.open(job.stream())) {
        state.SkipWithError("cannot open the decoder");
        return;
    }
    for ([[maybe_unused]] auto _ : state) {
        if (!(job.spans.empty() ? play_framewell(job, &decoder, nullptr)
                                : take_all(job, &decoder))) {
            state.SkipWithError("no sound");
            return;
        }
    }
}

void run_loop(benchmark::State& state, const Job& job) {
    Loop loop(job.path(), job.rate);
    for ([[maybe_unused]] auto _ : state) {
        if (job.spans.empty()) {
            benchmark::DoNotOptimize(loop.play(nullptr));
        }
        for (const Span& span : job.spans) {
            benchmark::DoNotOptimize(take(job, &loop, span));
        }
    }
}

/// What is compared before a row is measured for the first time, and once only.
class CheckedJob {
public:
    explicit CheckedJob(Job job) : m_job(std::move(job)) {}

    const Job* get(benchmark::State& state) {
        if (!m_is_checked) {
            m_is_checked = true;
            m_is_same = is_same_work(m_job);
        }
        if (!m_is_same) {
            state.SkipWithError("the two sides give different samples");
            return nullptr;
        }
        return &m_job;
    }

private:
    const Job m_job;
    bool m_is_checked = false;
    bool m_is_same = false;
};

bench::Row make_row(const Job& job, const std::string& what, const std::string& title,
                    double target) {
    const auto checked = std::make_shared<CheckedJob>(job);
    const auto side = [checked](void (*run)(benchmark::State&, const Job&)) {
        return [checked, run](benchmark::State& state) {
            if (const Job* const ready = checked->get(state)) {
                run(state, *ready);
            }
        };
    };
    const double units = job.spans.empty() ? static_cast<double>(job.span_count())
                                           : static_cast<double>(job.spans.size());
    return {"sound_" + job.clip.name + "/" + what,
            job.clip.title + ": " + title,
            bench::Judge::Ratio,
            target,
            units,
            1,
            side(run_framewell),
            side(run_loop)};
}

bench::Row random_row(const bench::SoundClip& clip, const std::string& what,
                      const std::string& title) {
    const auto spans =
        random_spans(clip.sample_rate, kNearStartSeconds, clip.seconds - 1, kRandomSpans);
    return make_row({clip, 48000, spans, false}, what, title, 1.2);
}

std::vector<bench::Row> make_rows() {
    std::vector<bench::Row> rows;
    for (bench::SoundClip clip : bench::sound_clips()) {
        for (const int rate : {48000, 44100}) {
            const std::string hertz = std::to_string(rate);
            rows.push_back(make_row({clip, rate, {}, false}, "in_order_" + hertz,
                                    "spans of 1/30 s, to " + hertz, 1.3));
        }
        // A minute is so short that many spans lie just ahead of the one before, where the library
        // decodes on.
        rows.push_back(random_row(clip, "random_minute", "200 at random in a minute"));
        clip.seconds = kLongSeconds;
        rows.push_back(random_row(clip, "random", "200 at random in ten minutes"));
    }
    // The only one of them whose first seconds are decoded from the start.
    const bench::SoundClip& aac = bench::sound_clips().front();
    rows.push_back(make_row({aac, 48000, random_spans(aac.sample_rate, 0, 8, 50), true},
                            "near_start", "50 in the first 8 s", 1.2));
    return rows;
}

}  // namespace

int main(int argc, char** argv) {
    return bench::compare(argc, argv, make_rows());
}
