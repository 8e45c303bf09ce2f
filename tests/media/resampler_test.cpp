#include "media/resampler.h"

#include "tests/support/av_log_capture.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace ff {
namespace {

using fw_test::AvLogCapture;

constexpr int kMost = std::numeric_limits<int>::max();

compat::AudioShape mono(int rate) {
    return {AV_CH_LAYOUT_MONO, 1, AV_SAMPLE_FMT_S16, rate};
}

/// How many samples come of `count` zeros.
int nb_resampled(SwrContext* swr, int count) {
    const std::vector<std::int16_t> in(static_cast<std::size_t>(count));
    std::vector<std::int16_t> out(static_cast<std::size_t>(4 * count + 1000));
    const auto* from = reinterpret_cast<const std::uint8_t*>(in.data());
    auto* to = reinterpret_cast<std::uint8_t*>(out.data());
    const int room = static_cast<int>(out.size());
    const int now = swr_convert(swr, &to, room, &from, count);
    to += now * static_cast<int>(sizeof(std::int16_t));
    return now + swr_convert(swr, &to, room - now, nullptr, 0);
}

TEST(ResamplerTest, IsReadyForUse) {
    const SwrPtr swr = open_resampler(nullptr, mono(24000), mono(48000));
    ASSERT_NE(swr, nullptr);
    EXPECT_NEAR(nb_resampled(swr.get(), 4800), 2400, 1);
}

TEST(ResamplerTest, TakesAnOldOneOfOtherRates) {
    SwrPtr swr = open_resampler(nullptr, mono(24000), mono(48000));
    swr = open_resampler(std::move(swr), mono(96000), mono(48000));
    ASSERT_NE(swr, nullptr);
    EXPECT_NEAR(nb_resampled(swr.get(), 4800), 9600, 1);
}

TEST(ResamplerTest, RefusesToThinOutSoundByThousands) {
    const std::pair<int, int> rates[] = {
        {kMost, 8000}, {1073763874, 44100}, {8000 * 2050, 8000}, {48000, 1}, {4096, 1}};
    for (const auto& [in, out] : rates) {
        const AvLogCapture log;
        EXPECT_EQ(
            open_resampler(open_resampler(nullptr, mono(8000), mono(48000)), mono(out), mono(in)),
            nullptr);
        EXPECT_EQ(log.texts(AV_LOG_ERROR),
                  std::vector<std::string>{"no resampling from " + std::to_string(in) + " to " +
                                           std::to_string(out) + " samples per second\n"});
    }
}

TEST(ResamplerTest, GoesFromTheFastestSoundToASlowOne) {
    const AvLogCapture log;
    EXPECT_NE(open_resampler(nullptr, mono(8000), mono(2822400)), nullptr);
    EXPECT_NE(open_resampler(nullptr, mono(100), mono(48000)), nullptr);
    EXPECT_NE(open_resampler(nullptr, mono(768000), mono(8000)), nullptr);
    EXPECT_EQ(log.texts(AV_LOG_ERROR), std::vector<std::string>{});
}

TEST(ResamplerTest, IsNoneWhereARateIsNoNumberOfSamples) {
    const AvLogCapture quiet;
    for (const int rate : {0, -1, std::numeric_limits<int>::min()}) {
        EXPECT_EQ(open_resampler(nullptr, mono(rate), mono(48000)), nullptr) << rate;
        EXPECT_EQ(open_resampler(nullptr, mono(48000), mono(rate)), nullptr) << rate;
    }
}

}  // namespace
}  // namespace ff
