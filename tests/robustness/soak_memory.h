#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace fw_test {

/// Judges whether a process that does the same for ever stays as large as it is.
///
/// Two measures of resident memory, in MB, for each round of work:
/// - quiet: after the round, when nothing is open and free memory has been given back. It tells
/// what
///   is lost: whatever is left behind stays in it.
/// - busy: the mean of many looks during the round. It tells what work needs, and depends on which
///   streams a round happens to use.
///
/// The level is what stands when the first tenth is over: by then all code has run once, all
/// libraries are loaded, and the allocator has the arenas that it makes for threads. For quiet it
/// is the mean of the second half of the first tenth's rounds, and no later tenth's mean may be
/// more than 5 % above it. For busy it is the mean of the first tenth, with the same rule where a
/// tenth has enough rounds for their differences to even out.
class SoakMemory {
public:
    /// One look during a round.
    void add_busy(double megabytes);

    /// Ends a round.
    void end_round(double quiet_megabytes);

    /// The last round, in words.
    std::string now() const;

    /// A line for each tenth of the rounds.
    std::vector<std::string> table() const;

    /// What breaks the rule; empty: nothing. Fewer than 20 rounds are too few to tell.
    std::string complaint() const;

private:
    struct Round {
        double quiet = 0;
        double busy = 0;
        double most = 0;
    };

    struct Tenth {
        double quiet = 0;  ///< means
        double busy = 0;
        double most = 0;  ///< largest
    };

    Tenth mean_of(std::size_t first, std::size_t end) const;
    std::vector<Tenth> tenths() const;

    std::vector<Round> m_rounds;
    double m_busy_sum = 0;  // of the round that runs
    double m_busy_most = 0;
    std::size_t m_busy_looks = 0;
};

}  // namespace fw_test
