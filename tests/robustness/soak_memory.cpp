#include "tests/robustness/soak_memory.h"

#include <algorithm>
#include <cstdio>

namespace fw_test {

namespace {

constexpr std::size_t kTenths = 10;
constexpr double kAllowed = 1.05;
constexpr double kAllowedMegabytes = 1;     // more of what malloc has handed out
constexpr std::size_t kRoundsToJudge = 20;  // two in a tenth: the first may still warm up

std::string megabytes(double value) {
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.2f MB", value);
    return text;
}

std::string growth(const char* kind, double level, double later, std::size_t tenth) {
    return std::string(kind) + " memory grew from " + megabytes(level) + " to " + megabytes(later) +
           " in tenth " + std::to_string(tenth);
}

}  // namespace

void SoakMemory::add_busy(double megabytes) {
    m_busy_sum += megabytes;
    m_busy_most = std::max(m_busy_most, megabytes);
    ++m_busy_looks;
}

void SoakMemory::end_round(double quiet_megabytes, double allocated_megabytes) {
    const double looks = static_cast<double>(std::max<std::size_t>(m_busy_looks, 1));
    m_rounds.push_back({quiet_megabytes, allocated_megabytes, m_busy_sum / looks, m_busy_most});
    m_busy_sum = m_busy_most = 0;
    m_busy_looks = 0;
}

std::string SoakMemory::in_words(const Round& round) {
    return "quiet " + megabytes(round.quiet) + ", allocated " + megabytes(round.allocated) +
           ", busy " + megabytes(round.busy) + ", at most " + megabytes(round.most);
}

std::string SoakMemory::now() const {
    return in_words(m_rounds.empty() ? Round{} : m_rounds.back());
}

SoakMemory::Round SoakMemory::mean_of(std::size_t first, std::size_t end) const {
    Round mean;
    const auto count = static_cast<double>(end - first);
    for (std::size_t i = first; i < end; ++i) {
        mean.quiet += m_rounds[i].quiet / count;
        mean.allocated += m_rounds[i].allocated / count;
        mean.busy += m_rounds[i].busy / count;
        mean.most = std::max(mean.most, m_rounds[i].most);
    }
    return mean;
}

std::vector<SoakMemory::Round> SoakMemory::tenths() const {
    std::vector<Round> result;
    for (std::size_t i = 0; i < kTenths; ++i) {
        const std::size_t first = m_rounds.size() * i / kTenths;
        const std::size_t end = m_rounds.size() * (i + 1) / kTenths;
        if (first < end) {
            result.push_back(mean_of(first, end));
        }
    }
    return result;
}

std::vector<std::string> SoakMemory::table() const {
    std::vector<std::string> lines;
    for (const Round& tenth : tenths()) {
        lines.push_back(std::to_string(lines.size() + 1) + ". tenth: " + in_words(tenth));
    }
    return lines;
}

std::string SoakMemory::complaint() const {
    if (m_rounds.size() < kRoundsToJudge) {
        return "";
    }
    const std::size_t first_tenth = m_rounds.size() / kTenths;
    const Round level = mean_of(first_tenth / 2, first_tenth);
    const std::vector<Round> all = tenths();
    for (std::size_t i = 1; i < all.size(); ++i) {
        if (all[i].quiet > level.quiet * kAllowed) {
            return growth("quiet", level.quiet, all[i].quiet, i + 1);
        }
        if (all[i].allocated > level.allocated + kAllowedMegabytes) {
            return growth("allocated", level.allocated, all[i].allocated, i + 1);
        }
    }
    return "";
}

}  // namespace fw_test
