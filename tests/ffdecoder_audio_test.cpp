// Spans of sound through the whole decoder: what they hold, how they are counted, when a run of
// them begins anew, and what the log says.

#include "ffdecoder_private.h"
#include "tests/public/sound_reference.h"
#include "tests/support/log_capture.h"
#include "tests/support/media.h"
#include "tests/support/watchdog.h"

#include <climits>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>

namespace {

using fw_test::LogCapture;
using fw_test::make_clip;
using fw_test::make_file;
using fw_test::sound_bytes;

constexpr auto kS16 = ff::SampleFormat::S16;

std::string little_endian(std::uint32_t value, int bytes) {
    std::string text;
    for (int i = 0; i < bytes; i++) {
        text += static_cast<char>(value >> (8 * i) & 0xff);
    }
    return text;
}

/// The sample number `i` of the ramps below: neighbours differ, and so do samples far apart.
int ramp_value(std::int64_t i) {
    return static_cast<int>((i * 7919 + 1) % 30000);
}

std::string ramp_bytes(std::int64_t first, std::int64_t count) {
    std::string bytes;
    for (std::int64_t i = first; i < first + count; i++) {
        bytes += little_endian(static_cast<std::uint32_t>(ramp_value(i)), 2);
    }
    return bytes;
}

/// A WAV file, one channel of 16 bits, with the ramp in it.
std::string ramp_wav(int rate, int samples) {
    const auto hz = static_cast<std::uint32_t>(rate);
    const std::string data = ramp_bytes(0, samples);
    const auto size = static_cast<std::uint32_t>(data.size());
    return make_file("ramp-" + std::to_string(rate) + "-" + std::to_string(samples) + ".wav",
                     "RIFF" + little_endian(36 + size, 4) + "WAVEfmt " + little_endian(16, 4) +
                         little_endian(1, 2) + little_endian(1, 2) + little_endian(hz, 4) +
                         little_endian(hz * 2, 4) + little_endian(2, 2) + little_endian(16, 2) +
                         "data" + little_endian(size, 4) + data);
}

/// A decoder whose inside a test may look at.
class OpenDecoder : public ff::FFDecoder {
public:
    explicit OpenDecoder(const std::string& path, int stream = -1) {
        const ff::MovieCtx* const movie = ff::getMovieInfo(path.c_str());
        m_found = stream < 0 ? ff::first_stream(movie, ff::StreamType::Audio)
                             : ff::stream_by_index(movie, stream);
        if (!open(m_found)) {
            throw std::runtime_error("cannot open the sound of " + path);
        }
    }

    std::shared_ptr<ff::AFrameCtx> ask(const ff::Rational& from, const ff::Rational& to,
                                       ff::SampleFormat format = kS16) {
        return fw_test::ask_sound(this, from, to, format);
    }

    int count(const ff::Rational& from, const ff::Rational& to) {
        const auto sound = ask(from, to);
        return sound ? sound->nb_samples : 0;
    }

    const ff::StreamCtx& stream() const { return *m_found; }

    using FFDecoder::d;

private:
    const ff::StreamCtx* m_found = nullptr;
};

ff::Rational seconds(std::int64_t value) {
    return {value, 1};
}

std::string small_clip(const std::string& name, const std::string& arguments,
                       const std::string& rate = "48000", const std::string& length = "2") {
    return make_clip(name,
                     "-f lavfi -i \"aevalsrc=0.3*sin(2*PI*(200+40*t)*t)|0.2*sin(2*PI*700*t)"
                     ":s=" +
                         rate + ":d=" + length + "\" " + arguments);
}

class AudioTest : public testing::Test {
protected:
    LogCapture log;
};

using AudioRunTest = AudioTest;

TEST_F(AudioRunTest, ThirtiethsOfASecondHoldWholeNumbersOfSamples) {
    for (const auto& [rate, expected] : {std::pair{48000, 1600}, std::pair{44100, 1470}}) {
        OpenDecoder decoder(ramp_wav(rate, rate * 2));
        for (std::int64_t k = 0; k < 30; k++) {
            const auto sound = decoder.ask({k, 30}, {k + 1, 30});
            ASSERT_TRUE(sound) << k;
            EXPECT_EQ(sound->nb_samples, expected) << rate << " Hz, span " << k;
            EXPECT_EQ(sound_bytes(sound), ramp_bytes(k * expected, expected));
        }
    }
}

struct Steps {
    int rate;
    ff::Rational step;
};

class AudioCountTest : public testing::TestWithParam<Steps> {};

TEST_P(AudioCountTest, TheRunningTotalIsTheElapsedTimeRounded) {
    const LogCapture log;
    const auto [rate, step] = GetParam();
    OpenDecoder decoder(ramp_wav(rate, rate));
    std::string joined;
    for (std::int64_t k = 0; (k + 1) * step.num < step.den; k++) {
        joined += sound_bytes(decoder.ask(ff::Rational{k * step.num, step.den},
                                          ff::Rational{(k + 1) * step.num, step.den}));
        // The nearest whole number; of two equally near ones either.
        const auto total = static_cast<std::int64_t>(joined.size()) / 2;
        const std::int64_t error = total * step.den - (k + 1) * step.num * rate;
        ASSERT_LE(std::abs(2 * error), step.den) << "after span " << k;
    }
    EXPECT_EQ(joined, ramp_bytes(0, static_cast<std::int64_t>(joined.size()) / 2));
}

std::vector<Steps> all_steps() {
    std::vector<Steps> rows;
    for (const int rate : {8000, 11025, 16000, 22050, 32000, 44100, 48000, 88200, 96000, 192000}) {
        for (const ff::Rational& step :
             {ff::Rational{1, 30}, {1, 60}, {1, 7}, {1001, 30000}, {1, 999}}) {
            rows.push_back({rate, step});
        }
    }
    return rows;
}

INSTANTIATE_TEST_SUITE_P(Rates, AudioCountTest, testing::ValuesIn(all_steps()),
                         [](const auto& row) {
                             return std::to_string(row.param.rate) + "Hz_" +
                                    std::to_string(row.param.step.num) + "_" +
                                    std::to_string(row.param.step.den);
                         });

TEST_F(AudioRunTest, BeginsWithTheFirstSpanWithEveryRepeatedOneAndAfterAClose) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    const ff::AudioRun& run = decoder.d()->m_run;
    EXPECT_EQ(sound_bytes(decoder.ask({1, 2}, seconds(1))), ramp_bytes(24000, 24000));
    EXPECT_EQ(run.discontinuities, 1);
    EXPECT_EQ(sound_bytes(decoder.ask({1, 2}, seconds(1))), ramp_bytes(24000, 24000));
    EXPECT_EQ(run.discontinuities, 2);
    EXPECT_EQ(sound_bytes(decoder.ask(seconds(1), {3, 2})), ramp_bytes(48000, 24000));
    EXPECT_EQ(run.discontinuities, 2);
    decoder.close();
    ASSERT_TRUE(decoder.reopen());
    EXPECT_EQ(run.discontinuities, 0);
    EXPECT_EQ(sound_bytes(decoder.ask({3, 2}, seconds(2))), ramp_bytes(72000, 24000));
    EXPECT_EQ(run.discontinuities, 1);
}

TEST_F(AudioRunTest, TakesEqualTimesForEqualHoweverTheyAreWritten) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    EXPECT_EQ(decoder.count({0, 1}, {10, 20}), 24000);
    EXPECT_EQ(sound_bytes(decoder.ask({500, 1000}, {3, 4})), ramp_bytes(24000, 12000));
    EXPECT_EQ(decoder.d()->m_run.discontinuities, 1);
}

TEST_F(AudioRunTest, IsShortAtTheEndOfTheStreamAndEmptyAfterIt) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    EXPECT_EQ(decoder.count(seconds(0), {3, 2}), 72000);
    EXPECT_EQ(sound_bytes(decoder.ask({3, 2}, {5, 2})), ramp_bytes(72000, 24000));
    EXPECT_FALSE(decoder.ask({5, 2}, seconds(3)));
    EXPECT_EQ(sound_bytes(decoder.ask({7, 4}, seconds(2))), ramp_bytes(84000, 12000));
}

TEST_F(AudioRunTest, StampsEachAnswerWithTheStartOfItsSpan) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    const auto sound = decoder.ask({1, 3}, seconds(1));
    ASSERT_TRUE(sound);
    EXPECT_EQ(sound->pts, 333333);
    EXPECT_EQ(sound->sample_rate, 48000);
    EXPECT_EQ(sound->channels, 1);
    EXPECT_EQ(sound->format, AV_SAMPLE_FMT_S16);
    EXPECT_EQ(sound->planar, 0);
    EXPECT_EQ(sound->size, sound->nb_samples * 2);
}

TEST_F(AudioRunTest, StampsInFileTimeWhereTheFileBeginsLate) {
    OpenDecoder decoder(small_clip("late.ts", "-c:a mp2"));
    const std::int64_t start_us = decoder.stream().movie->start_time;
    ASSERT_GT(start_us, 1000000);
    const auto sound = decoder.ask({1, 2}, seconds(1));
    ASSERT_TRUE(sound);
    EXPECT_EQ(sound->pts, start_us + 500000);
    EXPECT_EQ(sound->nb_samples, 24000);
}

// What does not begin where its frame begins

TEST_F(AudioRunTest, FillsWhatLiesBeforeTheFirstFrameWithSilence) {
    const std::string wav = ramp_wav(48000, 96000);
    OpenDecoder decoder(make_clip("begins_10ms_late.mov",
                                  "-f lavfi -i color=size=64x64:rate=25:duration=2 -itsoffset 0.01 "
                                  "-i '" +
                                      wav + "' -map 0:v -map 1:a -c:v mpeg4 -c:a copy"));
    ASSERT_EQ(decoder.stream().start_time, 480);
    const auto sound = decoder.ask(seconds(0), {1, 10});
    EXPECT_EQ(sound_bytes(sound), std::string(960, '\0') + ramp_bytes(0, 4800 - 480));
    EXPECT_EQ(log.count_exactly("***Warnning***: first packet lost, fill silence; target=0, "
                                "f->pts=480, nb_silence=-480"),
              1U);
    EXPECT_EQ(sound_bytes(decoder.ask({1, 10}, {2, 10})), ramp_bytes(4320, 4800));
}

TEST_F(AudioRunTest, LimitsTheSilenceBeforeTheFirstFrame) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    const auto sound = decoder.ask(seconds(-60), {1, 10});
    EXPECT_EQ(log.count_exactly("***Warnning***: first packet lost, fill silence; target=-2880000, "
                                "f->pts=0, nb_silence=-2880000"),
              1U);
    EXPECT_EQ(log.count_exactly("***Warnning***: nb_drain=2880000 is too bigger, limit to 1048576"),
              1U);
    ASSERT_TRUE(sound);
    EXPECT_EQ(sound->nb_samples, 0x100000 + 96000);
    EXPECT_EQ(sound_bytes(sound).substr(0x200000), ramp_bytes(0, 96000));
}

/// Frames of 4096 samples that no seek can cut.
std::string long_frames() {
    return make_clip("long_frames.flac", "-i '" + ramp_wav(48000, 96000) + "' -frame_size 4096");
}

TEST_F(AudioRunTest, DropsWhatLiesBeforeTheSpan) {
    OpenDecoder decoder(long_frames());
    EXPECT_EQ(sound_bytes(decoder.ask({10007, 48000}, {10017, 48000})), ramp_bytes(10007, 10));
    const auto line = log.find("seek: target=10007, f->pts=8192, nb_drain=1815");
    ASSERT_TRUE(line);
    EXPECT_EQ(line->level, 5);
    EXPECT_EQ(line->tag, std::string(decoder.d()->m_name));
}

TEST_F(AudioRunTest, DropsTwoSecondsWhereTheFrameBeganTwoSecondsBefore) {
    OpenDecoder decoder(long_frames());
    const std::int64_t last_frame = 96000 / 4096 * 4096;
    const ff::Rational start{last_frame + 96000, 48000};
    EXPECT_FALSE(decoder.ask(start, start + ff::Rational{1, 10}));
    EXPECT_EQ(log.count_exactly("seek: target=190208, f->pts=94208, nb_drain=96000"), 1U);
}

// Seeks without a result

TEST_F(AudioRunTest, SeekOnlyTellsWhereItWent) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    EXPECT_FALSE(decoder.ask({1, 2}, {1, 2}, ff::SampleFormat::SeekOnly));
    EXPECT_EQ(log.count_exactly("Audio: seek... pos=24000"), 1U);
    EXPECT_EQ(sound_bytes(decoder.ask({1, 2}, seconds(1))), ramp_bytes(24000, 24000));
}

TEST_F(AudioRunTest, SeekOnlyThatContinuesTellsMinusOneAndLosesNothing) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    EXPECT_EQ(decoder.count(seconds(0), {1, 2}), 24000);
    EXPECT_FALSE(decoder.ask({1, 2}, {1, 2}, ff::SampleFormat::SeekOnly));
    EXPECT_FALSE(decoder.ask({1, 2}, {3, 4}, ff::SampleFormat::SeekOnly));
    EXPECT_EQ(log.count_exactly("Audio: seek... pos=-1"), 2U);
    EXPECT_EQ(sound_bytes(decoder.ask({1, 2}, seconds(1))), ramp_bytes(24000, 24000));
    EXPECT_EQ(decoder.d()->m_run.discontinuities, 1);
}

TEST_F(AudioRunTest, SeekOnlyElsewhereEndsTheRun) {
    OpenDecoder decoder(ramp_wav(48000, 192000));
    EXPECT_EQ(decoder.count(seconds(0), {1, 2}), 24000);
    decoder.pri_seek(seconds(3), false);
    EXPECT_EQ(log.count_exactly("Audio: seek... pos=144000"), 1U);
    EXPECT_EQ(sound_bytes(decoder.ask({1, 2}, seconds(1))), ramp_bytes(24000, 24000));
    EXPECT_EQ(sound_bytes(decoder.ask(seconds(3), {7, 2})), ramp_bytes(144000, 24000));
}

// Odd spans

TEST_F(AudioRunTest, AnEmptySpanGivesNothingAndTheNextOneIsRight) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    EXPECT_FALSE(decoder.ask({1, 2}, {1, 2}));
    EXPECT_EQ(sound_bytes(decoder.ask({1, 2}, {6, 10})), ramp_bytes(24000, 4800));
    EXPECT_FALSE(decoder.ask({6, 10}, {6, 10}));
    EXPECT_EQ(sound_bytes(decoder.ask({6, 10}, {7, 10})), ramp_bytes(28800, 4800));
}

TEST_F(AudioRunTest, ASpanTooShortForASampleIsCountedWithTheNext) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    EXPECT_FALSE(decoder.ask(seconds(1), ff::Rational{480001, 480000}));
    EXPECT_EQ(sound_bytes(decoder.ask(ff::Rational{480001, 480000}, {48010, 48000})),
              ramp_bytes(48000, 10));
}

TEST_F(AudioRunTest, AReversedSpanFailsAndTheNextRunIsRight) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    EXPECT_FALSE(decoder.ask(seconds(1), {1, 2}));
    EXPECT_EQ(log.count_exactly("audio io read failed: Invalid argument"), 1U);
    EXPECT_EQ(sound_bytes(decoder.ask(seconds(1), {3, 2})), ramp_bytes(48000, 24000));
}

TEST_F(AudioRunTest, AReversedSpanOfADayFailsAsAShortOneDoes) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    // So many samples that, of 32 bits, they are five hundred million forwards.
    const std::int64_t back = (std::int64_t{1} << 32) - 500000000;
    EXPECT_FALSE(decoder.ask(seconds(1), {48000 - back, 48000}));
    EXPECT_EQ(log.count_exactly("audio io read failed: Invalid argument"), 1U);
    EXPECT_EQ(sound_bytes(decoder.ask(seconds(1), {3, 2})), ramp_bytes(48000, 24000));
}

TEST_F(AudioRunTest, BeforeTheStreamThereIsSilence) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    EXPECT_EQ(sound_bytes(decoder.ask(seconds(-1), seconds(1))),
              std::string(96000, '\0') + ramp_bytes(0, 48000));
    EXPECT_EQ(sound_bytes(decoder.ask(seconds(-2), seconds(-1))), std::string(96000, '\0'));
}

TEST_F(AudioRunTest, ASpanOfHoursGivesWhatThereIs) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    EXPECT_EQ(sound_bytes(decoder.ask(seconds(0), seconds(36000))), ramp_bytes(0, 96000));
    EXPECT_FALSE(decoder.ask(seconds(36000), seconds(36001)));
}

TEST_F(AudioRunTest, ASpanOfYearsIsRefused) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    for (const std::int64_t end : {std::int64_t{44740}, std::int64_t{100000000}}) {
        EXPECT_FALSE(decoder.ask(seconds(0), seconds(end)));
        EXPECT_EQ(
            log.count_exactly("a span of " + std::to_string(end * 48000) + " samples is too long"),
            1U);
    }
    for (const std::int64_t far : {INT64_MAX, INT64_MAX / 2, INT64_MIN + 1}) {
        (void)decoder.ask(seconds(far), seconds(far));
        (void)decoder.ask({0, 0}, {far, 0});
        (void)decoder.ask({far, 3}, {far, 2});
    }
    EXPECT_EQ(sound_bytes(decoder.ask(seconds(1), {3, 2})), ramp_bytes(48000, 24000));
}

TEST_F(AudioRunTest, ARateThatOnlyADamagedHeaderTellsIsNotResampled) {
    OpenDecoder decoder(ramp_wav(1073763874, 22050));
    ff::RequireAudioFrame request;
    request.range = {{0, 1}, {1, 100}};
    request.format = kS16;
    request.channels = 1;
    for (const int rate : {44100, 8000, 1}) {
        request.sample_rate = rate;
        EXPECT_FALSE(decoder.getAudioFrame(request)) << rate;
    }
    EXPECT_EQ(sound_bytes(decoder.ask(seconds(0), {1, 100000})), ramp_bytes(0, 10738))
        << "as it is it can be had";
}

TEST_F(AudioRunTest, ARequestAtOneSamplePerSecondIsRefusedAndTheNextSpanIsRight) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    ff::RequireAudioFrame request;
    request.range = {{0, 1}, {1, 1}};
    request.format = kS16;
    request.channels = 1;
    for (const int rate : {1, 0, -48000}) {
        request.sample_rate = rate;
        EXPECT_FALSE(decoder.getAudioFrame(request)) << rate;
    }
    EXPECT_EQ(sound_bytes(decoder.ask(seconds(1), {3, 2})), ramp_bytes(48000, 24000));
}

TEST_F(AudioRunTest, FarBehindTheEndThereIsNothing) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    for (const std::int64_t start : {3, 90, 44740, 100000000}) {
        EXPECT_FALSE(decoder.ask(seconds(start), seconds(start + 1))) << start;
    }
    EXPECT_EQ(sound_bytes(decoder.ask(seconds(1), {3, 2})), ramp_bytes(48000, 24000));
}

// Stale and cancelled

/// Vorbis whose middle is gone. After a seek into the hole its times are counted on from the page
/// that was found, so that two decoders may end at two times.
std::string ogg_with_a_hole() {
    const std::string path = small_clip("long.ogg", "-c:a libvorbis", "48000", "12");
    std::string bytes = fw_test::read_file(path);
    const std::size_t begin = bytes.size() / 8;
    const std::size_t end = bytes.size() * 2 / 3;
    std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(begin),
              bytes.begin() + static_cast<std::ptrdiff_t>(end), '\0');
    return make_file("hole.ogg", bytes);
}

TEST_F(AudioRunTest, EndsASpanWhoseFramesGoBackInTimeAgainAndAgain) {
    const std::string path = ogg_with_a_hole();
    const fw_test::Watchdog watchdog("a span whose times go back does not end");
    OpenDecoder first(path);
    OpenDecoder second(path);  // another worker
    EXPECT_EQ(second.count({1, 1}, {11, 10}), 4800);
    EXPECT_FALSE(second.ask({1000000, 1}, {1000001, 1}));
    EXPECT_EQ(log.count_exactly("the times of the frames go back again and again"), 1U);
    EXPECT_EQ(second.count({1, 1}, {11, 10}), 4800);
}

TEST_F(AudioRunTest, ARequestFromBeforeACloseIsStale) {
    OpenDecoder decoder(ramp_wav(48000, 96000));
    ff::RequireAudioFrame request;
    request.range = {{7, 8}, {1, 1}};
    request.format = kS16;
    request.sample_rate = 48000;
    request.channels = 1;
    decoder.close();
    ASSERT_TRUE(decoder.reopen());
    EXPECT_FALSE(decoder.pri_getAudioFrame(request, 0));
    EXPECT_EQ(log.texts(5).back(), "> 异步取音频，已过时： 7 (serials=0)");
    EXPECT_EQ(decoder.d()->m_run.discontinuities, 0);
    EXPECT_TRUE(decoder.pri_getAudioFrame(request, 1));
    EXPECT_EQ(request.abort_flag, decoder.d()->m_cancel);
}

TEST_F(AudioRunTest, ACancelledRequestGivesNothingAndTheNextSpanIsExact) {
    OpenDecoder decoder(ramp_wav(48000, 480000));
    std::atomic<bool> abort{false};
    ff::RequireAudioFrame request;
    request.range = {{0, 1}, {1, 1}};
    request.format = kS16;
    request.sample_rate = 48000;
    request.channels = 1;
    request.abort_flag = &abort;
    EXPECT_TRUE(decoder.getAudioFrame(request));
    abort = true;
    request.range = {{1, 1}, {3, 1}};
    EXPECT_FALSE(decoder.getAudioFrame(request));
    EXPECT_EQ(request.abort_flag, &abort);
    EXPECT_EQ(sound_bytes(decoder.ask(seconds(3), seconds(4))), ramp_bytes(144000, 48000));
    EXPECT_EQ(sound_bytes(decoder.ask(seconds(4), seconds(5))), ramp_bytes(192000, 48000));
}

}  // namespace
