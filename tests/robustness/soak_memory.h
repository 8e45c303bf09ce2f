#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace fw_test {

/// Judges whether a process that does the same for ever stays as large as it is.
///
/// Three measures for each round of work, in MB:
/// - quiet: what is resident after the round, when only what lasts is open, stands at its start,
/// and
///   free memory has been given back. Whatever is left behind stays in it.
/// - allocated: what of that malloc has handed out.
/// - busy: what is resident during the round, the mean of many looks. It depends on which streams
///   the round happens to use, so it is shown and not judged; what grows in it without an end is
///   either left behind by the round or belongs to what lasts, and quiet shows both.
///
/// The level is what stands when the first tenth is over, the mean of the second half of its
/// rounds: by then all code has run once and all libraries are loaded. No later tenth's mean may be
/// more than 5 % above it; of what is allocated, a few megabytes of which 5 % is nothing, no more
/// than 1 MB above it.
class SoakMemory {
public:
    /// One look during a round.
    void add_busy(double megabytes);

    /// Ends a round.
    void end_round(double quiet_megabytes, double allocated_megabytes);

    /// The last round, in words.
    std::string now() const;

    /// A line for each tenth of the rounds.
    std::vector<std::string> table() const;

    /// What breaks the rule; empty: nothing. Fewer than 20 rounds are too few to tell.
    std::string complaint() const;

private:
    struct Round {
        double quiet = 0;
        double allocated = 0;
        double busy = 0;
        double most = 0;  ///< the largest of the looks
    };

    static std::string in_words(const Round& round);

    /// The means, and of `most` the largest.
    Round mean_of(std::size_t first, std::size_t end) const;
    std::vector<Round> tenths() const;

    std::vector<Round> m_rounds;
    double m_busy_sum = 0;  // of the round that runs
    double m_busy_most = 0;
    std::size_t m_busy_looks = 0;
};

}  // namespace fw_test
