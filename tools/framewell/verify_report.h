#pragma once

#include <cstdint>
#include <mutex>
#include <string>

namespace tool {

/// The ways in which `verify` asks again for what it has seen.
enum class Way { InOrder, Random, Backwards, Threads };

/// "in order", "at random", "backwards", "from several threads".
const char* way_name(Way way);

/// What `verify` found out about one stream.
struct Verdict {
    bool is_usable = true;    ///< false: nothing of it can be decoded; `error` says why
    bool is_complete = true;  ///< false: the user interrupted it
    std::string error;
    std::int64_t seen = 0;    ///< pictures, or samples per channel, from the start to the end
    std::int64_t asked = 0;   ///< requests that were compared
    std::int64_t differ = 0;  ///< answers that are not what they must be
    std::string first;        ///< the first of them: when, how asked and what is wrong

    std::int64_t shared = 0;  ///< answers that were another of several pictures of one time

    std::int64_t shifted = 0;    ///< spans off by no more than the file's times are coarse
    std::int64_t max_shift = 0;  ///< samples
    std::int64_t moved = 0;      ///< spans that the file's times put elsewhere than its samples
    std::int64_t max_move = 0;   ///< samples
    std::int64_t close = 0;      ///< spans that the decoder itself cannot repeat
    double max_deviation = 0;    ///< of their samples, 1 is full scale
};

/// A verdict that several threads write.
class SharedVerdict {
public:
    /// Calls `change` with the verdict; one caller at a time.
    template <class Change>
    void change(Change change) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        change(m_verdict);
    }

    /// Counts one answer, wrong if `wrong` says how.
    /// @param seconds  the time that was asked for.
    void count(Way way, double seconds, const std::string& wrong);

    /// The verdict so far.
    Verdict get() {
        const std::lock_guard<std::mutex> lock(m_mutex);
        return m_verdict;
    }

private:
    std::mutex m_mutex;
    Verdict m_verdict;  // guarded by m_mutex
};

}  // namespace tool
