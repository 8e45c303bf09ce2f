#include "tests/robustness/soak_memory.h"

#include <algorithm>
#include <cstdio>

namespace fw_test {

namespace {

constexpr std::size_t kTenths = 10;
constexpr double kAllowed = 1.05;
constexpr std::size_t kRoundsToJudgeQuiet = 20;  // two in a tenth: the first may still warm up
constexpr std::size_t kRoundsToJudgeBusy = 100;

std::string megabytes(double value) {
    char text[32];
    (void)std::snprintf(text, sizeof text, "%.1f MB", value);
    return text;
}

std::string in_words(double quiet, double busy, double most) {
    return "quiet " + megabytes(quiet) + ", busy " + megabytes(busy) + ", at most " +
           megabytes(most);
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

void SoakMemory::end_round(double quiet_megabytes) {
    const double looks = static_cast<double>(std::max<std::size_t>(m_busy_looks, 1));
    m_rounds.push_back({quiet_megabytes, m_busy_sum / looks, m_busy_most});
    m_busy_sum = m_busy_most = 0;
    m_busy_looks = 0;
}

std::string SoakMemory::now() const {
    const Round last = m_rounds.empty() ? Round{} : m_rounds.back();
    return in_words(last.quiet, last.busy, last.most);
}

SoakMemory::Tenth SoakMemory::mean_of(std::size_t first, std::size_t end) const {
    Tenth mean;
    for (std::size_t i = first; i < end; ++i) {
        mean.quiet += m_rounds[i].quiet / static_cast<double>(end - first);
        mean.busy += m_rounds[i].busy / static_cast<double>(end - first);
        mean.most = std::max(mean.most, m_rounds[i].most);
    }
    return mean;
}

std::vector<SoakMemory::Tenth> SoakMemory::tenths() const {
    std::vector<Tenth> result;
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
    for (const Tenth& tenth : tenths()) {
        lines.push_back(std::to_string(lines.size() + 1) +
                        ". tenth: " + in_words(tenth.quiet, tenth.busy, tenth.most));
    }
    return lines;
}

std::string SoakMemory::complaint() const {
    if (m_rounds.size() < kRoundsToJudgeQuiet) {
        return "";
    }
    const std::vector<Tenth> all = tenths();
    const std::size_t first_tenth = m_rounds.size() / kTenths;
    const double quiet_level = mean_of(first_tenth / 2, first_tenth).quiet;
    const double busy_level = all[0].busy;
    for (std::size_t i = 1; i < all.size(); ++i) {
        if (all[i].quiet > quiet_level * kAllowed) {
            return growth("quiet", quiet_level, all[i].quiet, i + 1);
        }
        if (m_rounds.size() >= kRoundsToJudgeBusy && all[i].busy > busy_level * kAllowed) {
            return growth("busy", busy_level, all[i].busy, i + 1);
        }
    }
    return "";
}

}  // namespace fw_test
