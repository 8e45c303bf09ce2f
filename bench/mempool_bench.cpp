// The memory pool, against the system's allocator, for buffers of the size of a picture.

#include <framewell/utils/mempool.h>

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <vector>

namespace {

constexpr unsigned kAlignment = 16;
constexpr unsigned kPage = 4096;

// A picture is written to all over, which is when the system really provides its memory.
void touch(void* buffer, unsigned size) {
    auto* const bytes = static_cast<volatile char*>(buffer);
    for (unsigned at = 0; at < size; at += kPage) {
        bytes[at] = 1;
    }
}

void pool_takes_and_gives_back(benchmark::State& state) {
    const auto size = static_cast<unsigned>(state.range(0));
    for ([[maybe_unused]] auto _ : state) {
        void* const buffer = bg::mempool::malloc(size, kAlignment);
        touch(buffer, size);
        bg::mempool::free(buffer);
    }
}

void system_takes_and_gives_back(benchmark::State& state) {
    const auto size = static_cast<unsigned>(state.range(0));
    for ([[maybe_unused]] auto _ : state) {
        void* const buffer = bg::mem::aligned_malloc(size, kAlignment);
        touch(buffer, size);
        bg::mem::aligned_free(buffer);
    }
}

// With many buffers handed out at a time, as by a host that shows a filmstrip.
void pool_with_many_in_use(benchmark::State& state) {
    std::vector<void*> held;
    held.reserve(1000);
    for (int i = 0; i < 1000; ++i) {
        held.push_back(bg::mempool::malloc(256, kAlignment));
    }
    for ([[maybe_unused]] auto _ : state) {
        bg::mempool::free(bg::mempool::malloc(512, kAlignment));
    }
    for (void* const buffer : held) {
        bg::mempool::free(buffer);
    }
}

BENCHMARK(pool_takes_and_gives_back)->Arg(4L * 320 * 180)->Arg(4L * 1920 * 1080);
BENCHMARK(system_takes_and_gives_back)->Arg(4L * 320 * 180)->Arg(4L * 1920 * 1080);
BENCHMARK(pool_with_many_in_use);
BENCHMARK(pool_takes_and_gives_back)->Arg(4L * 320 * 180)->Threads(2);

}  // namespace

BENCHMARK_MAIN();
