#include "comparison.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace bench {

namespace {

struct Options {
    int rounds = 5;
    std::string only;
    bool header = true;
};

/// CPU times of the single runs of one side, nanoseconds per unit.
using Times = std::vector<double>;

/// The run's error; null if it had none. Google Benchmark 1.8 has renamed what tells.
template <class Run>
auto error_of(const Run& run, int /*preferred*/) -> decltype(run.error_message.c_str()) {
    return run.error_occurred ? run.error_message.c_str() : nullptr;
}

template <class Run>
auto error_of(const Run& run, long /*else*/) -> decltype(run.skip_message.c_str()) {
    return run.skipped != decltype(run.skipped){} ? run.skip_message.c_str() : nullptr;
}

/// Takes the times out of Google Benchmark, and prints nothing but errors.
class Collector : public benchmark::BenchmarkReporter {
public:
    bool ReportContext(const Context& /*context*/) override { return true; }

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (const char* const error = error_of(run, 0)) {
                (void)std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), error);
                failed = true;
            } else if (run.run_type == Run::RT_Iteration) {
                seconds = run.cpu_accumulated_time / static_cast<double>(run.iterations);
            }
        }
    }

    bool failed = false;
    double seconds = 0;  // of the last run, per iteration
};

double median(Times times) {
    std::sort(times.begin(), times.end());
    const std::size_t middle = times.size() / 2;
    return times.size() % 2 == 1 ? times[middle] : (times[middle - 1] + times[middle]) / 2;
}

bool read_option(const char* argument, Options* options) {
    constexpr char rounds[] = "--rounds=";
    constexpr char only[] = "--only=";
    if (std::strncmp(argument, rounds, sizeof rounds - 1) == 0) {
        options->rounds = std::max(1, std::atoi(argument + sizeof rounds - 1));
    } else if (std::strncmp(argument, only, sizeof only - 1) == 0) {
        options->only = argument + sizeof only - 1;
    } else if (std::strcmp(argument, "--no-header") == 0) {
        options->header = false;
    } else {
        return false;
    }
    return true;
}

void register_side(const std::string& name, const Side& side, int iterations) {
    benchmark::RegisterBenchmark(name.c_str(), side)
        ->Iterations(iterations)
        ->MeasureProcessCPUTime();
}

/// Runs one side once. False if it failed.
bool measure(const std::string& name, double units, Times* times) {
    Collector collector;
    const std::string filter = "^" + name + "/iterations";
    (void)benchmark::RunSpecifiedBenchmarks(&collector, filter);  // it has one benchmark
    times->push_back(collector.seconds * 1e9 / units);
    return !collector.failed;
}

std::string time_text(double nanoseconds) {
    char text[32];
    if (nanoseconds >= 1e6) {
        (void)std::snprintf(text, sizeof text, "%.3f ms", nanoseconds / 1e6);
    } else if (nanoseconds >= 1e3) {
        (void)std::snprintf(text, sizeof text, "%.2f us", nanoseconds / 1e3);
    } else {
        (void)std::snprintf(text, sizeof text, "%.2f ns", nanoseconds);
    }
    return text;
}

double value_of(const Row& row, double framewell, double other) {
    switch (row.judge) {
        case Judge::Ratio:
            return framewell / other;
        case Judge::Difference:
            return (framewell - other) / 1e3;
        case Judge::Alone:
            break;
    }
    return framewell;
}

const char* unit_of(Judge judge) {
    switch (judge) {
        case Judge::Ratio:
            return "x";
        case Judge::Difference:
            return "us";
        case Judge::Alone:
            break;
    }
    return "ns";
}

void print_header() {
    std::printf("%-46s %12s %12s %10s  %-14s %10s\n", "CPU time of", "framewell", "plain loop",
                "ratio", "(rounds)", "target");
}

void print_row(const Row& row, const Times& framewell, const Times& other) {
    Times values;
    for (std::size_t i = 0; i < framewell.size(); ++i) {
        values.push_back(value_of(row, framewell[i], other.empty() ? 0 : other[i]));
    }
    const double ours = median(framewell);
    const double theirs = other.empty() ? 0 : median(other);
    const double value = value_of(row, ours, theirs);
    const auto [lowest, highest] = std::minmax_element(values.begin(), values.end());
    char spread[32];
    (void)std::snprintf(spread, sizeof spread, "(%.3g..%.3g)", *lowest, *highest);
    char target[32] = "";
    if (std::isfinite(row.target)) {
        (void)std::snprintf(target, sizeof target, "%7.4g %-2s %s", row.target, unit_of(row.judge),
                            value <= row.target ? "ok" : "MISS");
    }
    std::printf("%-46s %12s %12s %7.3f %-2s  %-14s %s\n", row.title.c_str(),
                time_text(ours).c_str(), other.empty() ? "" : time_text(theirs).c_str(), value,
                unit_of(row.judge), spread, target);
    (void)std::fflush(stdout);
}

bool run_row(const Row& row, int rounds) {
    const std::string ours = row.name + "/framewell";
    const std::string theirs = row.name + "/loop";
    register_side(ours, row.framewell, row.iterations);
    if (row.other) {
        register_side(theirs, row.other, row.iterations);
    }
    Times framewell;
    Times other;
    bool ok = true;
    for (int round = 0; ok && round < rounds; ++round) {
        if (round % 2 == 0) {
            ok = measure(ours, row.units, &framewell);
        }
        if (ok && row.other) {
            ok = measure(theirs, row.units, &other);
        }
        if (ok && round % 2 != 0) {
            ok = measure(ours, row.units, &framewell);
        }
    }
    if (ok) {
        print_row(row, framewell, other);
    }
    return ok;
}

}  // namespace

int compare(int argc, char** argv, const std::vector<Row>& rows) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        if (!read_option(argv[i], &options)) {
            (void)std::fprintf(stderr, "usage: %s [--rounds=N] [--only=TEXT] [--no-header]\n",
                               argv[0]);
            return 2;
        }
    }
    int no_arguments = 1;
    benchmark::Initialize(&no_arguments, argv);
    if (options.header) {
        print_header();
    }
    bool ok = true;
    for (const Row& row : rows) {
        if (row.name.find(options.only) != std::string::npos) {
            ok = run_row(row, options.rounds) && ok;
        }
    }
    return ok ? 0 : 1;
}

}  // namespace bench
