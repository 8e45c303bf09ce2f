// The value tree, its text forms and the store of settings.

#include <framewell/base/data.h>
#include <framewell/base/value.h>

#include <benchmark/benchmark.h>

#include <cstdint>
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

/// A list of `count` elements: numbers, texts, doubles and small maps by turns.
mox::Value make_list(std::int64_t count) {
    std::list<mox::Value> items;
    for (std::int64_t i = 0; i < count; ++i) {
        switch (i % 4) {
            case 0:
                items.push_back(mox::Value::integer(i));
                break;
            case 1:
                items.push_back(mox::Value::string("a clip with a name"));
                break;
            case 2:
                items.push_back(mox::Value::number(static_cast<double>(i) / 8));
                break;
            default:
                items.push_back(mox::Value::map({{"start", mox::Value::integer(i)}}));
                break;
        }
    }
    return mox::Value::list(std::move(items));
}

/// Tells how long an element took and how much text went by: both are the same for a list of any
/// length if time grows no faster than the list.
void count_elements(benchmark::State& state, const std::string& text) {
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(text.size()));
}

void write_tagged(benchmark::State& state) {
    const mox::Value list = make_list(state.range(0));
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(list.write());
    }
    count_elements(state, list.write());
}

void read_tagged(benchmark::State& state) {
    const std::string text = make_list(state.range(0)).write();
    mox::Value list;
    for ([[maybe_unused]] auto _ : state) {
        if (!list.read(text.c_str(), nullptr)) {
            state.SkipWithError("the text was not read");
        }
    }
    count_elements(state, text);
}

void write_json(benchmark::State& state) {
    const mox::Value list = make_list(state.range(0));
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(list.writeJson(false, 0));
    }
    count_elements(state, list.writeJson(false, 0));
}

void read_json(benchmark::State& state) {
    const std::string json = make_list(state.range(0)).writeJson(false, 0);
    mox::Value list;
    for ([[maybe_unused]] auto _ : state) {
        if (!list.readJson(json.c_str(), nullptr)) {
            state.SkipWithError("the text was not read");
        }
    }
    count_elements(state, json);
}

BENCHMARK(make_and_destroy_a_tree_of_100);
BENCHMARK(copy_a_tree_of_100);
BENCHMARK(copy_a_number);
BENCHMARK(read_a_setting)->Threads(1)->Threads(2);
BENCHMARK(write_tagged)->Arg(10'000)->Arg(100'000);
BENCHMARK(read_tagged)->Arg(10'000)->Arg(100'000);
BENCHMARK(write_json)->Arg(10'000)->Arg(100'000);
BENCHMARK(read_json)->Arg(10'000)->Arg(100'000);

}  // namespace

BENCHMARK_MAIN();
