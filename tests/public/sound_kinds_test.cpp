// What sound can be asked for as, and files that are not as they should be.

#include "tests/public/sound_reference.h"
#include "tests/support/engine.h"
#include "tests/support/log_capture.h"
#include "tests/support/watchdog.h"

#include <framewell/ffdecoder2.h>

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>

namespace {

using fw_test::LogCapture;
using fw_test::make_clip;
using fw_test::open_sound;
using fw_test::sound_bytes;

/// `channels` expressions of aevalsrc, joined by bars.
std::string source(const std::string& channels, int rate, const std::string& length = "3") {
    return "-f lavfi -i \"aevalsrc=" + channels + ":s=" + std::to_string(rate) + ":d=" + length +
           "\" ";
}

const std::string kStereo = "0.5*sin(2*PI*440*t)|0.25*sin(2*PI*660*t)";

std::string surround_clip() {
    return make_clip("surround.ac3", source("0.1|0.2|0.3|0.05|0.15|0.25", 48000) +
                                         "-af aformat=channel_layouts=5.1 -c:a ac3 -b:a 448k");
}

std::shared_ptr<ff::AFrameCtx> ask(ff::FFDecoder* decoder, const ff::Range& range,
                                   ff::SampleFormat format, int rate, int channels) {
    ff::RequireAudioFrame request;
    request.range = range;
    request.format = format;
    request.sample_rate = rate;
    request.channels = channels;
    return decoder->getAudioFrame(request);
}

template <typename Sample>
Sample sample_at(const ff::AFrameCtx& sound, int index) {
    Sample sample;
    std::memcpy(&sample, sound.data[0] + static_cast<std::size_t>(index) * sizeof sample,
                sizeof sample);
    return sample;
}

TEST(SoundKindsTest, GivesTheSameSoundInEveryFormat) {
    const LogCapture quiet;
    const auto decoder = open_sound(make_clip("dc.wav", source("0.25|-0.5", 48000)), 0);
    const auto in = [&](ff::SampleFormat format) {
        return ask(decoder.get(), {{1, 1}, {2, 1}}, format, 48000, 2);
    };
    const auto bytes = in(ff::SampleFormat::U8);
    const auto shorts = in(ff::SampleFormat::S16);
    const auto ints = in(ff::SampleFormat::S32);
    const auto floats = in(ff::SampleFormat::Flt);
    ASSERT_TRUE(bytes && shorts && ints && floats);
    EXPECT_EQ(sample_at<std::uint8_t>(*bytes, 10), 0x80 + 0x20);
    EXPECT_EQ(sample_at<std::uint8_t>(*bytes, 11), 0x80 - 0x40);
    EXPECT_EQ(sample_at<std::int16_t>(*shorts, 10), 0x2000);
    EXPECT_EQ(sample_at<std::int16_t>(*shorts, 11), -0x4000);
    EXPECT_EQ(sample_at<std::int32_t>(*ints, 10), 0x20000000);
    EXPECT_EQ(sample_at<float>(*floats, 11), -0.5F);
    for (const auto& sound : {bytes, shorts, ints, floats}) {
        EXPECT_EQ(sound->nb_samples, 48000);
    }
}

TEST(SoundKindsTest, RefusesFormatsRatesAndChannelsThatDoNotExist) {
    const LogCapture quiet;
    const auto decoder = open_sound(make_clip("dc.wav", source("0.25|-0.5", 48000)), 0);
    const ff::Range range{{1, 1}, {2, 1}};
    EXPECT_FALSE(ask(decoder.get(), range, ff::SampleFormat::None, 48000, 2));
    EXPECT_FALSE(ask(decoder.get(), range, static_cast<ff::SampleFormat>(77), 48000, 2));
    EXPECT_FALSE(ask(decoder.get(), range, ff::SampleFormat::S16, 0, 2));
    EXPECT_FALSE(ask(decoder.get(), range, ff::SampleFormat::S16, -1, 2));
    EXPECT_FALSE(ask(decoder.get(), range, ff::SampleFormat::S16, 48000, 0));
    EXPECT_FALSE(ask(decoder.get(), range, ff::SampleFormat::S16, 48000, -3));
    EXPECT_TRUE(ask(decoder.get(), range, ff::SampleFormat::S16, 48000, 2));
}

TEST(SoundKindsTest, ResamplesInARowWithoutLosingCount) {
    const LogCapture quiet;
    const auto decoder = open_sound(make_clip("sines.wav", source(kStereo, 48000)), 0);
    int total = 0;
    double largest = 0;
    for (int k = 0; k < 60; k++) {
        const auto sound =
            ask(decoder.get(), {{k, 30}, {k + 1, 30}}, ff::SampleFormat::Flt, 44100, 2);
        ASSERT_TRUE(sound) << k;
        EXPECT_EQ(sound->sample_rate, 44100);
        for (int i = 0; i < sound->nb_samples; i++) {
            const double time = static_cast<double>(total + i) / 44100;
            const double expected = 0.5 * std::sin(2 * M_PI * 440 * time);
            largest = std::max(largest, std::abs(sample_at<float>(*sound, 2 * i) - expected));
        }
        total += sound->nb_samples;
    }
    // The resampler's filter of 32 taps holds back half its length, once for the whole run, and
    // does not know what comes before the first sample.
    EXPECT_NEAR(total, 2 * 44100, 32);
    EXPECT_LT(largest, 0.3);
}

TEST(SoundKindsTest, ASingleSampleCanBeResampled) {
    const LogCapture quiet;
    const auto decoder = open_sound(make_clip("sines.wav", source(kStereo, 48000)), 0);
    int total = 0;
    for (std::int64_t i = 0; i < 1000; i++) {
        const auto sound =
            ask(decoder.get(), {{i, 48000}, {i + 1, 48000}}, ff::SampleFormat::S16, 44100, 2);
        total += sound ? sound->nb_samples : 0;
    }
    // 1000 * 44100 / 48000, less what the resampler's filter of 32 taps holds back.
    EXPECT_LE(total, 919);
    EXPECT_GE(total, 919 - 32);
    EXPECT_TRUE(ask(decoder.get(), {{1, 1}, {2, 1}}, ff::SampleFormat::S16, 44100, 2));
}

TEST(SoundKindsTest, MixesSixChannelsDownToTwo) {
    const LogCapture quiet;
    const auto decoder = open_sound(surround_clip(), 0);
    ASSERT_EQ(decoder->streamContex()->channels, 6);
    const auto stereo = ask(decoder.get(), {{1, 1}, {2, 1}}, ff::SampleFormat::Flt, 48000, 2);
    const auto six = ask(decoder.get(), {{1, 1}, {2, 1}}, ff::SampleFormat::Flt, 48000, 6);
    ASSERT_TRUE(stereo && six);
    EXPECT_EQ(stereo->nb_samples, 48000);
    EXPECT_EQ(six->nb_samples, 48000);
    EXPECT_NE(sample_at<float>(*stereo, 1000), sample_at<float>(*stereo, 1001));
}

TEST(SoundKindsTest, FiltersALayoutThatIsNotTheUsualOneOfItsCount) {
    const LogCapture log;
    ff::FFDecoder2 decoder;
    const ff::MovieCtx* const movie = ff::getMovieInfo(surround_clip().c_str());
    ASSERT_TRUE(decoder.open(ff::first_stream(movie, ff::StreamType::Audio)));
    // 5.1(side), where 5.1 has the same number of channels.
    ASSERT_EQ(decoder.streamContex()->channel_layout, 0x60fU);
    const auto plain = ask(&decoder, {{1, 1}, {2, 1}}, ff::SampleFormat::Flt, 48000, 6);
    ASSERT_TRUE(decoder.setFilters("volume=0.5"));
    const auto halved = ask(&decoder, {{1, 1}, {2, 1}}, ff::SampleFormat::Flt, 48000, 6);
    ASSERT_TRUE(plain && halved) << testing::PrintToString(log.texts(2));
    EXPECT_FLOAT_EQ(sample_at<float>(*halved, 6), sample_at<float>(*plain, 6) / 2);
}

// Streams that are not sound

TEST(SoundKindsTest, AVideoAndASubtitleStreamHaveNoSamples) {
    LogCapture log;
    for (const ff::StreamType type : {ff::StreamType::Video, ff::StreamType::Subtitle}) {
        ff::FFDecoder decoder;
        const ff::MovieCtx* const movie = ff::getMovieInfo(fw_test::clip_subrip().c_str());
        (void)decoder.open(ff::first_stream(movie, type));
        log.clear();
        EXPECT_FALSE(ask(&decoder, {{0, 1}, {1, 1}}, ff::SampleFormat::S16, 44100, 2));
        EXPECT_EQ(log.count_exactly("no audio stream to take samples from"), 1U);
    }
}

TEST(SoundKindsTest, AnUnopenedDecoderHasNoSamples) {
    const LogCapture log;
    ff::FFDecoder decoder;
    EXPECT_FALSE(ask(&decoder, {{0, 1}, {1, 1}}, ff::SampleFormat::S16, 44100, 2));
    EXPECT_EQ(log.count_exactly("no audio stream to take samples from"), 1U);
}

TEST(SoundKindsTest, ARecordThatTheHostMadeIsAnsweredWithoutACrash) {
    const LogCapture quiet;
    std::string path = make_clip("sines.wav", source(kStereo, 48000));
    ff::MovieCtx movie;
    movie.path = path.data();
    movie.start_time = INT64_MIN;
    ff::StreamCtx stream;
    stream.index = 0;
    stream.type = ff::StreamType::Audio;
    stream.time_base = {1, 48000};
    stream.movie = &movie;
    ff::FFDecoder decoder;
    (void)decoder.open(&stream);
    EXPECT_FALSE(ask(&decoder, {{0, 1}, {1, 1}}, ff::SampleFormat::S16, 48000, 2));
    stream.channels = 2;
    stream.sample_rate = 48000;
    EXPECT_FALSE(ask(&decoder, {{0, 1}, {1, 1}}, ff::SampleFormat::S16, 48000, 2));
    stream.sample_fmt = AV_SAMPLE_FMT_S16;
    const auto sound = ask(&decoder, {{0, 1}, {1, 1}}, ff::SampleFormat::S16, 48000, 2);
    ASSERT_TRUE(sound);
    EXPECT_EQ(sound->nb_samples, 48000);
    // Another format than the frames have: these are converted.
    ff::StreamCtx wrong = stream;
    wrong.sample_fmt = AV_SAMPLE_FMT_FLTP;
    wrong.channels = 1;
    wrong.channel_layout = 0x4;
    ASSERT_TRUE(decoder.open(&wrong));
    const auto converted = ask(&decoder, {{0, 1}, {1, 1}}, ff::SampleFormat::S16, 48000, 1);
    ASSERT_TRUE(converted);
    EXPECT_EQ(converted->nb_samples, 48000);
    decoder.close();
}

TEST(SoundKindsTest, EachOfManyStreamsGivesItsOwnSound) {
    const LogCapture quiet;
    constexpr int kStreams = 12;
    std::string inputs;
    std::string maps;
    for (int i = 0; i < kStreams; i++) {
        inputs += source(std::to_string(0.05 * (i + 1)), 8000, "1");
        maps += "-map " + std::to_string(i) + " ";
    }
    const std::string path = make_clip("many.mkv", inputs + maps + "-c:a pcm_f32le");
    for (int i = 0; i < kStreams; i++) {
        const auto decoder = open_sound(path, i);
        const auto sound = ask(decoder.get(), {{1, 4}, {3, 4}}, ff::SampleFormat::Flt, 8000, 1);
        ASSERT_TRUE(sound) << i;
        EXPECT_EQ(sound->nb_samples, 4000);
        EXPECT_FLOAT_EQ(sample_at<float>(*sound, 2000), static_cast<float>(0.05 * (i + 1)));
    }
}

// Streams that change on the way

TEST(SoundKindsTest, AStreamThatChangesRateAndChannelsKeepsWhatItAnnounced) {
    const LogCapture log;
    const auto part = [](const std::string& name, const std::string& channels, int rate) {
        return fw_test::read_file(make_clip(name, source(channels, rate) + "-c:a mp2 -b:a 192k"));
    };
    const std::string path = fw_test::make_file(
        "changing.mp2", part("part1.mp2", kStereo, 48000) +
                            part("part2.mp2", "0.5*sin(900*t)", 44100) +
                            part("part3.mp2", kStereo, 32000) + part("part4.mp2", kStereo, 48000));
    const auto decoder = open_sound(path, 0);
    ASSERT_EQ(decoder->streamContex()->sample_rate, 48000);
    ASSERT_EQ(decoder->streamContex()->channels, 2);
    const auto whole = ask(decoder.get(), {{0, 1}, {20, 1}}, ff::SampleFormat::S16, 48000, 2);
    ASSERT_TRUE(whole);
    EXPECT_NEAR(whole->nb_samples, 12 * 48000, 4 * 1152);
    // In a row of short spans nothing may be lost at their borders, nor what a resampler holds back
    // there.
    std::string joined;
    for (int k = 0; k < 600; k++) {
        const auto sound =
            ask(decoder.get(), {{k, 30}, {k + 1, 30}}, ff::SampleFormat::S16, 48000, 2);
        if (sound) {
            joined += sound_bytes(sound);
        }
    }
    EXPECT_EQ(joined.size(), sound_bytes(whole).size());
    EXPECT_TRUE(joined == sound_bytes(whole));
    EXPECT_FALSE(log.contains("is dropped"));
}

// Damage

class DamagedSoundTest : public testing::TestWithParam<const char*> {
protected:
    std::string clip() {
        const std::string file = GetParam();
        const std::string format = file.substr(file.find('.') + 1);
        return make_clip("to_damage_" + file,
                         source(kStereo, 44100) + (format == "avi" ? "-c:a libmp3lame" : ""));
    }

    /// Walks over the file and asks at random.
    void walk(const std::string& path) {
        const ff::MovieCtx* const movie = ff::getMovieInfo(path.c_str());
        const ff::StreamCtx* const stream = ff::first_stream(movie, ff::StreamType::Audio);
        ff::FFDecoder decoder;
        if (stream == nullptr || !decoder.open(stream)) {
            return;
        }
        std::mt19937 random(3);
        for (int k = 0; k < 60; k++) {
            const std::int64_t at = k < 30 ? k : static_cast<std::int64_t>(random() % 40);
            const auto sound =
                fw_test::ask_sound(&decoder, {at, 7}, {at + 1, 7}, ff::SampleFormat::S16);
            EXPECT_LE(sound ? sound->nb_samples : 0, 44100 / 7 + 1);
        }
    }

    LogCapture quiet;
};

TEST_P(DamagedSoundTest, FlippedBitsNeverHangOrCrash) {
    fw_test::Watchdog watchdog("sound with flipped bits");
    const std::string bytes = fw_test::read_file(clip());
    for (const std::size_t step : {61U, 997U, 7919U}) {
        watchdog.start("one in " + std::to_string(step));
        walk(fw_test::make_file("flipped_" + std::to_string(step) + "_" + GetParam(),
                                fw_test::with_flipped_bits(bytes, 200, step)));
    }
}

TEST_P(DamagedSoundTest, ATruncatedFileGivesWhatIsThere) {
    fw_test::Watchdog watchdog("truncated sound");
    const std::string bytes = fw_test::read_file(clip());
    for (const std::size_t part : {2U, 3U, 50U}) {
        watchdog.start("1/" + std::to_string(part));
        walk(fw_test::make_file("cut_" + std::to_string(part) + "_" + GetParam(),
                                bytes.substr(0, bytes.size() / part)));
    }
}

INSTANTIATE_TEST_SUITE_P(Formats, DamagedSoundTest,
                         testing::Values("a.mp3", "a.aac", "a.m4a", "a.flac", "a.ogg", "a.ac3",
                                         "a.wav", "a.ts", "a.avi", "a.mkv"),
                         [](const auto& row) { return std::string(row.param).substr(2); });

}  // namespace
