// The value tree and the store of settings.

#include <framewell/base/data.h>
#include <framewell/base/value.h>

#include <benchmark/benchmark.h>

#include <list>
#include <map>
#include <string>
#include <utility>

namespace {

/// Settings such as a host keeps: two levels, some texts, some numbers.
mox::Value make_tree() {
    std::map<std::string, mox::Value> entries;
    for (int i = 0; i < 10; ++i) {
        std::list<mox::Value> items;
        for (int k = 0; k < 10; ++k) {
            items.push_back(k % 2 == 0 ? mox::Value::integer(k) : mox::Value::string("clip"));
        }
        entries["track" + std::to_string(i)] = mox::Value::list(std::move(items));
    }
    return mox::Value::map(std::move(entries));
}

void make_and_destroy_a_tree_of_100(benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(make_tree());
    }
}

void copy_a_tree_of_100(benchmark::State& state) {
    const mox::Value tree = make_tree();
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(mox::Value(tree));
    }
}

void copy_a_number(benchmark::State& state) {
    const mox::Value number = mox::Value::integer(8);
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(mox::Value(number));
    }
}

void read_a_setting(benchmark::State& state) {
    mox::Data::instance()->set("bench.value", mox::Value::integer(8));
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(mox::Data::instance()->integer("bench.value", 0));
    }
}

BENCHMARK(make_and_destroy_a_tree_of_100);
BENCHMARK(copy_a_tree_of_100);
BENCHMARK(copy_a_number);
BENCHMARK(read_a_setting)->Threads(1)->Threads(2);

}  // namespace

BENCHMARK_MAIN();
