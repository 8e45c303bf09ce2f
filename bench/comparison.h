#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

/// @file
/// Measures framewell and something else in turns and prints one table of ratios.

namespace bench {

/// One side of a comparison: a body for Google Benchmark. What stands before its loop over `state`
/// is not measured.
using Side = std::function<void(benchmark::State&)>;

/// How the CPU time of framewell is held against that of the other side.
enum class Judge {
    Ratio,       ///< framewell / other
    Difference,  ///< framewell - other, microseconds
    Alone,       ///< framewell, nanoseconds; there is no other side
};

/// One row of the table.
struct Row {
    std::string name;   ///< letters, digits, "_" and "/": the name that --only looks for
    std::string title;  ///< for people
    Judge judge;
    double target;   ///< the largest value that is fast enough; infinity: any is
    double units;    ///< what one run of the body does, in units that the time is shown for
    int iterations;  ///< how often the loop over `state` runs in one measurement
    Side framewell;
    Side other;
};

/// Measures every row, both sides by turns and the first side changing from round to round, so that
/// whatever else the machine does hits both. What counts is CPU time, of all threads of the
/// process; the value of a row is made of the medians. The spread that is printed is that of the
/// ratios of the single rounds.
///
/// Options: --rounds=N (default 5), --only=TEXT (rows whose name contains it), --no-header.
/// Returns the program's exit status: 0, or 1 if a row could not be measured. A missed target is
/// told in the table and is no failure: machines differ.
int compare(int argc, char** argv, const std::vector<Row>& rows);

}  // namespace bench
