// Exact time: what one request's arithmetic costs.

#include <framewell/media/rational.h>

#include <benchmark/benchmark.h>

#include <cstdint>

namespace {

constexpr ff::Rational kTimeBase{1, 90000};
constexpr ff::Rational kMicrosecond{1, 1000000};

void sum_of_unlike_fractions(benchmark::State& state) {
    ff::Rational time{1001, 30000};
    const ff::Rational start{23021, 1000000};
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(time);
        benchmark::DoNotOptimize(time + start);
    }
}

void comparison_of_unlike_fractions(benchmark::State& state) {
    ff::Rational time{1001, 30000};
    const ff::Rational limit{7007, 200};
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(time);
        benchmark::DoNotOptimize(time < limit);
    }
}

void seconds_to_ticks(benchmark::State& state) {
    ff::Rational time{7007, 200};
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(time);
        benchmark::DoNotOptimize(ff::time_to_timestamp(time, kTimeBase));
    }
}

void ticks_to_seconds(benchmark::State& state) {
    std::int64_t ticks = 3153150;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(ticks);
        benchmark::DoNotOptimize(ff::timestamp_to_time(ticks, kTimeBase));
    }
}

void ticks_to_other_ticks(benchmark::State& state) {
    std::int64_t ticks = 3153150;
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(ticks);
        benchmark::DoNotOptimize(ff::rescale_q(ticks, kTimeBase, kMicrosecond));
    }
}

BENCHMARK(sum_of_unlike_fractions);
BENCHMARK(comparison_of_unlike_fractions);
BENCHMARK(seconds_to_ticks);
BENCHMARK(ticks_to_seconds);
BENCHMARK(ticks_to_other_ticks);

}  // namespace

BENCHMARK_MAIN();
