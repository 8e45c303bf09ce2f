#include "audio_mixer_private.h"
#include "media/ff_handles.h"
#include "tests/support/log_capture.h"

#include <framewell/audio_mixer.h>
#include <framewell/utils/mempool.h>

#include <climits>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace {

using ff::AFrameCtx;
using ff::AudioMixer;
using ff::PcmBuffer;
using ff::Range;
using ff::Rational;
using ff::SampleFormat;
using fw_test::LogCapture;

constexpr Range kFirst{{0, 1}, {1, 30}};
constexpr Range kSecond{{1, 30}, {2, 30}};
constexpr char kNotBegun[] = "***ERROR***  need_samples <= 0, must call 'begin()'";

/// A stereo frame whose sample i is `value(i)` in both channels.
std::shared_ptr<AFrameCtx> make_frame(int samples, const std::function<int(int)>& value,
                                      SampleFormat format = SampleFormat::S16, int channels = 2) {
    ff::RequireAudioFrame request;
    request.format = format;
    request.channels = channels;
    auto frame = ff::create_audioframe_ctx(request, samples);
    for (int i = 0; i < samples * channels; ++i) {
        const int v = value(i / channels);
        if (format == SampleFormat::S16) {
            reinterpret_cast<std::int16_t*>(frame->buffer)[i] = static_cast<std::int16_t>(v);
        } else if (format == SampleFormat::S32) {
            reinterpret_cast<std::int32_t*>(frame->buffer)[i] = v;
        } else if (format == SampleFormat::Flt) {
            reinterpret_cast<float*>(frame->buffer)[i] = static_cast<float>(v);
        } else {
            frame->buffer[i] = static_cast<std::uint8_t>(v);
        }
    }
    return frame;
}

std::shared_ptr<AFrameCtx> constant_frame(int samples, int value) {
    return make_frame(samples, [value](int /*i*/) { return value; });
}

/// The samples of a stereo block of 16 bits, each of which both channels must have.
std::vector<int> samples_of(const std::shared_ptr<PcmBuffer>& block) {
    std::vector<int> samples;
    const auto* const data = reinterpret_cast<const std::int16_t*>(block->data);
    for (int i = 0; i < block->size / 4; ++i) {
        EXPECT_EQ(data[2 * i], data[2 * i + 1]) << i;
        samples.push_back(data[2 * i]);
    }
    return samples;
}

std::vector<int> run_of(int count, int value) {
    return std::vector<int>(static_cast<std::size_t>(count), value);
}

std::vector<int> joined(std::vector<int> a, const std::vector<int>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

struct AudioMixerTest : testing::Test {
    AudioMixer mixer{48000, 2, SampleFormat::S16};
    int keys[4] = {};
    LogCapture log;
};

TEST_F(AudioMixerTest, CountsSamplesFromTheStartOfARun) {
    for (int i = 0; i < 30; ++i) {
        mixer.begin({{i, 30}, {i + 1, 30}});
        EXPECT_EQ(mixer.end()->size, 1600 * 4);
    }
    AudioMixer thirds(44100, 2, SampleFormat::S16);
    for (int i = 0; i < 3; ++i) {
        thirds.begin({{i, 3}, {i + 1, 3}});
        EXPECT_EQ(thirds.end()->size, 14700 * 4);
    }
}

TEST_F(AudioMixerTest, RangesBetweenSamplesSumToTheWholeRun) {
    for (const int rate : {8000, 44100, 48000}) {
        AudioMixer sevenths(rate, 1, SampleFormat::U8);
        long long sum = 0;
        for (int i = 0; i < 100; ++i) {
            sevenths.begin({{i, 7}, {i + 1, 7}});
            sum += sevenths.end()->size;
            EXPECT_EQ(sum, ff::time_to_timestamp({i + 1, 7}, {1, rate})) << i;
        }
    }
}

TEST_F(AudioMixerTest, ARunThatStartsAnywhereCountsFromThere) {
    mixer.begin({{100001, 48000 * 2}, {100001 + 3200, 48000 * 2}});
    EXPECT_EQ(mixer.end()->size, 1600 * 4);
    mixer.begin({{-1, 30}, {0, 30}});
    EXPECT_EQ(mixer.end()->size, 1600 * 4);
    EXPECT_TRUE(log.texts().empty());
}

TEST_F(AudioMixerTest, CountsOnBeyond32Bits) {
    // One sample per range would take too long: two ranges of 12 hours are refused as too large,
    // and counting goes on behind them.
    constexpr std::int64_t day = 24 * 3600;
    mixer.begin({{0, 1}, {day, 1}});
    EXPECT_EQ(mixer.end()->size, 0);
    mixer.begin({{day, 1}, {day * 30 + 1, 30}});
    EXPECT_EQ(mixer.end()->size, 1600 * 4);
}

TEST_F(AudioMixerTest, AFrameThatCoversTheRangeIsTheBlock) {
    mixer.begin(kFirst);
    EXPECT_TRUE(mixer.getBuffer(&keys[0])->write(make_frame(1600, [](int i) { return i; }), 128));
    const auto samples = samples_of(mixer.end());
    ASSERT_EQ(samples.size(), 1600U);
    for (int i = 0; i < 1600; ++i) {
        EXPECT_EQ(samples[static_cast<std::size_t>(i)], i);
    }
}

TEST_F(AudioMixerTest, SourcesAreSummedAndClipped) {
    mixer.begin(kFirst);
    EXPECT_TRUE(mixer.getBuffer(&keys[0])->write(constant_frame(1600, 32767), 128));
    EXPECT_TRUE(mixer.getBuffer(&keys[1])->write(constant_frame(1600, -32768), 128));
    EXPECT_EQ(samples_of(mixer.end()), run_of(1600, -1));
    mixer.begin(kSecond);
    EXPECT_TRUE(mixer.getBuffer(&keys[0])->write(constant_frame(1600, 30000), 128));
    EXPECT_TRUE(mixer.getBuffer(&keys[1])->write(constant_frame(1600, 10000), 64));
    EXPECT_EQ(samples_of(mixer.end()), run_of(1600, 32767));
}

TEST_F(AudioMixerTest, VolumeMakesASourceQuieterOrSilent) {
    mixer.begin(kFirst);
    EXPECT_TRUE(mixer.getBuffer(&keys[0])->write(constant_frame(1600, 1000), 32));
    EXPECT_TRUE(mixer.getBuffer(&keys[1])->write(constant_frame(1600, 30000), 0));
    EXPECT_EQ(samples_of(mixer.end()), run_of(1600, 250));
}

TEST_F(AudioMixerTest, MixesTheOtherFormats) {
    AudioMixer bytes(48000, 2, SampleFormat::U8);
    bytes.begin(kFirst);
    const auto loud = [](int /*i*/) { return 200; };
    EXPECT_TRUE(bytes.getBuffer(nullptr)->write(make_frame(1600, loud, SampleFormat::U8), 128));
    auto block = bytes.end();
    ASSERT_EQ(block->size, 3200);
    EXPECT_EQ(block->data[3199], 72);  // the block begins with zeros, 128 below the middle
    AudioMixer ints(48000, 1, SampleFormat::S32);
    ints.begin(kFirst);
    const auto large = [](int /*i*/) { return 1500000000; };
    for (int i = 0; i < 2; ++i) {
        EXPECT_TRUE(
            ints.getBuffer(&keys[i])->write(make_frame(1600, large, SampleFormat::S32, 1), 128));
    }
    block = ints.end();
    ASSERT_EQ(block->size, 6400);
    EXPECT_EQ(reinterpret_cast<std::int32_t*>(block->data)[1599], INT32_MAX);
    AudioMixer floats(48000, 3, SampleFormat::Flt);
    floats.begin(kFirst);
    const auto two = [](int /*i*/) { return 2; };
    EXPECT_TRUE(floats.getBuffer(nullptr)->write(make_frame(1600, two, SampleFormat::Flt, 3), 96));
    block = floats.end();
    ASSERT_EQ(block->size, 1600 * 12);
    EXPECT_EQ(reinterpret_cast<float*>(block->data)[4799], 1.5F);
}

TEST_F(AudioMixerTest, SurplusIsMixedFirstInTheNextRange) {
    const auto writer = mixer.getBuffer(&keys[0]);
    mixer.begin(kFirst);
    EXPECT_TRUE(writer->write(make_frame(2048, [](int i) { return i; }), 128));
    mixer.end();
    mixer.begin(kSecond);
    EXPECT_TRUE(writer->write(constant_frame(1600, 9), 128));
    const auto samples = samples_of(mixer.end());
    EXPECT_EQ(samples.front(), 1600);
    EXPECT_EQ(samples[447], 2047);
    EXPECT_EQ(samples[448], 9);
    EXPECT_EQ(samples.back(), 9);
    // 448 are still left over; a frame of none brings them out.
    mixer.begin({{2, 30}, {3, 30}});
    EXPECT_TRUE(writer->write(constant_frame(0, 0), 128));
    EXPECT_EQ(samples_of(mixer.end()), joined(run_of(448, 9), run_of(1152, 0)));
}

TEST_F(AudioMixerTest, AJumpForgetsWhatIsLeftOver) {
    const auto writer = mixer.getBuffer(&keys[0]);
    for (const Range& jump : {Range{{2, 30}, {3, 30}}, kFirst, kFirst, Range{{1, 60}, {3, 60}}}) {
        mixer.begin(kFirst);
        EXPECT_TRUE(writer->write(constant_frame(2048, 77), 128));
        mixer.end();
        mixer.begin(jump);
        EXPECT_FALSE(writer->write(constant_frame(0, 0), 128));
        EXPECT_TRUE(writer->write(constant_frame(100, 5), 128));
        EXPECT_EQ(samples_of(mixer.end()), joined(run_of(100, 5), run_of(1500, 0)));
    }
}

TEST_F(AudioMixerTest, ContiguousMeansEqualInAnyForm) {
    const auto writer = mixer.getBuffer(&keys[0]);
    mixer.begin(kFirst);
    EXPECT_TRUE(writer->write(constant_frame(3200, 77), 128));
    mixer.begin({{2, 60}, {1, 15}});
    EXPECT_TRUE(writer->write(constant_frame(0, 0), 128));
    EXPECT_EQ(samples_of(mixer.end()), run_of(1600, 77));
}

TEST_F(AudioMixerTest, EveryWriteLandsOnTheStartOfTheBlock) {
    const auto writer = mixer.getBuffer(&keys[0]);
    mixer.begin(kFirst);
    EXPECT_TRUE(writer->write(constant_frame(800, 1000), 128));
    EXPECT_TRUE(writer->write(constant_frame(800, 300), 128));
    EXPECT_EQ(samples_of(mixer.end()), joined(run_of(800, 1300), run_of(800, 0)));
}

TEST_F(AudioMixerTest, AShortSourceLeavesTheRestToOthers) {
    mixer.begin(kFirst);
    EXPECT_TRUE(mixer.getBuffer(&keys[0])->write(constant_frame(1600, 40), 128));
    EXPECT_TRUE(mixer.getBuffer(&keys[1])->write(constant_frame(3, 2), 128));
    EXPECT_EQ(samples_of(mixer.end()), joined(run_of(3, 42), run_of(1597, 40)));
}

TEST_F(AudioMixerTest, SamplesWrittenOutsideARangeWaitForTheNext) {
    const auto writer = mixer.getBuffer(&keys[0]);
    mixer.begin(kFirst);
    mixer.end();
    EXPECT_FALSE(writer->write(constant_frame(1600, 12), 128));
    const auto line = log.find("need_samples");
    ASSERT_TRUE(line.has_value());
    EXPECT_EQ(line->text(), kNotBegun);
    EXPECT_EQ(line->tag, "bg");
    EXPECT_EQ(line->level, 2);
    EXPECT_EQ(line->file, "src/audio_mixer_private");
    EXPECT_EQ(line->line, 155);
    mixer.begin(kSecond);
    EXPECT_TRUE(writer->write(constant_frame(0, 0), 128));
    EXPECT_EQ(samples_of(mixer.end()), run_of(1600, 12));
}

TEST_F(AudioMixerTest, WritingBeforeTheFirstRangeIsRefusedAndForgotten) {
    const auto writer = mixer.getBuffer(&keys[0]);
    EXPECT_FALSE(writer->write(constant_frame(10, 12), 128));
    EXPECT_EQ(log.count_exactly(kNotBegun), 1U);
    mixer.begin(kFirst);  // a jump
    EXPECT_FALSE(writer->write(constant_frame(0, 12), 128));
    EXPECT_EQ(log.texts().size(), 1U);
}

TEST_F(AudioMixerTest, AnEmptyFrameIsRefusedInSilence) {
    mixer.begin(kFirst);
    EXPECT_FALSE(mixer.getBuffer(&keys[0])->write(nullptr, 128));
    EXPECT_FALSE(mixer.getBuffer(&keys[0])->write(constant_frame(0, 0), 128));
    EXPECT_TRUE(log.texts().empty());
    EXPECT_EQ(samples_of(mixer.end()), run_of(1600, 0));
}

TEST_F(AudioMixerTest, FramesInAnotherFormAreRefusedAndNotQueued) {
    const auto writer = mixer.getBuffer(&keys[0]);
    const auto one = [](int /*i*/) { return 1; };
    mixer.begin(kFirst);
    EXPECT_FALSE(writer->write(make_frame(1600, one, SampleFormat::S16, 6), 128));
    EXPECT_FALSE(writer->write(make_frame(1600, one, SampleFormat::S16, 1), 128));
    EXPECT_FALSE(writer->write(make_frame(1600, one, SampleFormat::S32), 128));
    const auto planar = constant_frame(1600, 1);
    planar->format = AV_SAMPLE_FMT_S16P;
    planar->planar = 1;
    EXPECT_FALSE(writer->write(planar, 128));
    EXPECT_EQ(log.texts(2).size(), 4U);
    EXPECT_EQ(log.texts(2)[0], "[mixer] frame refused: format 1, channels 6; the mixer has 1, 2");
    EXPECT_FALSE(writer->write(constant_frame(0, 0), 128));
    EXPECT_EQ(samples_of(mixer.end()), run_of(1600, 0));
    // The same after a good frame.
    mixer.begin(kSecond);
    EXPECT_TRUE(writer->write(constant_frame(1700, 8), 128));
    EXPECT_FALSE(writer->write(make_frame(1600, one, SampleFormat::Flt), 128));
    EXPECT_EQ(samples_of(mixer.end()), run_of(1600, 8));
}

TEST_F(AudioMixerTest, FramesWithoutValidSamplesAreRefused) {
    const auto writer = mixer.getBuffer(&keys[0]);
    mixer.begin(kFirst);
    const auto negative = constant_frame(10, 1);
    negative->nb_samples = -5;
    EXPECT_FALSE(writer->write(negative, 128));
    const auto no_data = constant_frame(10, 1);
    no_data->data[0] = nullptr;
    EXPECT_FALSE(writer->write(no_data, 128));
    const auto boasting = constant_frame(10, 1);
    boasting->nb_samples = 1600;
    EXPECT_FALSE(writer->write(boasting, 128));
    EXPECT_EQ(log.texts(2).size(), 3U);
    EXPECT_EQ(samples_of(mixer.end()), run_of(1600, 0));
}

TEST_F(AudioMixerTest, AMixerInAFormatThatCannotBeMixedRefuses) {
    for (const int format : {0, 5, -1, INT_MAX, INT_MIN, ff::SEEK_ONLY_FORMAT}) {
        log.clear();
        AudioMixer unmixable(48000, 2, static_cast<SampleFormat>(format));
        unmixable.begin(kFirst);
        EXPECT_FALSE(unmixable.getBuffer(&keys[0])->write(constant_frame(1600, 1), 128));
        const auto line = log.find("unknow audio format");
        ASSERT_TRUE(line.has_value());
        EXPECT_EQ(line->text(), "unknow audio format: " + std::to_string(format) + "\\n");
        EXPECT_EQ(line->level, 2);
        EXPECT_EQ(line->file, "src/audio_mixer_private");
        EXPECT_EQ(line->line, 143);
        const auto block = unmixable.end();
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(block->size, 0);
    }
}

TEST_F(AudioMixerTest, MixersWithoutChannelsOrRateHaveEmptyBlocks) {
    for (const auto& [rate, channels] :
         {std::pair{0, 2}, std::pair{-48000, 2}, std::pair{48000, 0}, std::pair{48000, -1},
          std::pair{INT_MIN, INT_MIN}, std::pair{INT_MAX, INT_MAX}}) {
        log.clear();
        AudioMixer broken(rate, channels, SampleFormat::S16);
        broken.begin(kFirst);
        EXPECT_EQ(log.count("[mixer] no block for"), 1U) << rate << " " << channels;
        EXPECT_FALSE(broken.getBuffer(&keys[0])->write(constant_frame(1600, 1), 128));
        EXPECT_EQ(broken.end()->size, 0);
    }
}

struct EmptyRange {
    const char* name;
    Range range;
    bool logged;
};

void PrintTo(const EmptyRange& row, std::ostream* os) {
    *os << row.name;
}

struct AudioMixerRangeTest : testing::TestWithParam<EmptyRange> {};

TEST_P(AudioMixerRangeTest, GivesAnEmptyBlockAndRefusesUntilTheNextBegin) {
    LogCapture log;
    for (const bool after_another : {false, true}) {
        log.clear();
        AudioMixer mixer(48000, 2, SampleFormat::S16);
        const auto writer = mixer.getBuffer(nullptr);
        if (after_another) {
            mixer.begin({{-1, 30}, {0, 1}});
            EXPECT_TRUE(writer->write(constant_frame(1600, 3), 128));
            mixer.end();
        }
        mixer.begin(GetParam().range);
        EXPECT_EQ(log.count("[mixer] no block for"), GetParam().logged ? 1U : 0U);
        EXPECT_FALSE(writer->write(constant_frame(7, 4), 128));
        EXPECT_EQ(log.count_exactly(kNotBegun), 1U);
        const auto block = mixer.end();
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(block->size, 0);
        mixer.begin({{5, 1}, {151, 30}});
        EXPECT_TRUE(writer->write(constant_frame(1600, 9), 128));
        EXPECT_EQ(samples_of(mixer.end()), run_of(1600, 9));
    }
}

constexpr std::int64_t kMaxInt = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMinInt = std::numeric_limits<std::int64_t>::min();

INSTANTIATE_TEST_SUITE_P(Ranges, AudioMixerRangeTest,
                         testing::Values(EmptyRange{"Empty", {{0, 1}, {0, 1}}, false},
                                         EmptyRange{
                                             "ShorterThanASample", {{0, 1}, {1, 1000000}}, false},
                                         EmptyRange{"Backward", {{0, 1}, {-1, 30}}, true},
                                         EmptyRange{"Years", {{0, 1}, {100000000, 1}}, true},
                                         EmptyRange{"AllTime", {{0, 1}, {kMaxInt, 1}}, true},
                                         EmptyRange{"NoEnd", {{1, 2}, {0, 0}}, true},
                                         EmptyRange{"NoBounds", {{0, 0}, {0, 0}}, false},
                                         EmptyRange{"NoDenominators", {{7, 0}, {9, 0}}, false}),
                         [](const auto& row) { return std::string(row.param.name); });

// Differences of such times wrap, as fractions do; what must not happen is anything undefined.
TEST_F(AudioMixerTest, TimesAtTheEndsOfTheirTypeAreNoHarm) {
    for (const Range& range :
         {Range{{kMinInt, 1}, {kMaxInt, 1}}, Range{{kMaxInt, 1}, {0, 1}},
          Range{{0, 1}, {kMinInt, 1}}, Range{{kMinInt, 1}, {kMaxInt, 3}},
          Range{{1, kMaxInt}, {1, kMinInt}}, Range{{1, kMinInt}, {kMaxInt, kMinInt}}}) {
        mixer.begin(range);
        (void)mixer.getBuffer(&keys[0])->write(constant_frame(5, 1), 128);
        EXPECT_NE(mixer.end(), nullptr);
    }
    mixer.begin(kFirst);
    EXPECT_TRUE(mixer.getBuffer(&keys[0])->write(constant_frame(1600, 6), 128));
    EXPECT_EQ(samples_of(mixer.end()), run_of(1600, 6));
}

TEST_F(AudioMixerTest, TheSameKeyGivesTheSameWriter) {
    const auto first = mixer.getBuffer(&keys[0]);
    EXPECT_EQ(mixer.getBuffer(&keys[0]), first);
    EXPECT_NE(mixer.getBuffer(&keys[1]), first);
    EXPECT_NE(mixer.getBuffer(nullptr), first);
    EXPECT_EQ(mixer.getBuffer(nullptr), mixer.getBuffer(nullptr));
}

TEST_F(AudioMixerTest, TellsItsFormAndRange) {
    int rate = 0;
    int channels = 0;
    SampleFormat format = SampleFormat::None;
    mixer.getFormat(&rate, &channels, &format);
    EXPECT_EQ(rate, 48000);
    EXPECT_EQ(channels, 2);
    EXPECT_EQ(format, SampleFormat::S16);
    mixer.getFormat(nullptr, nullptr, nullptr);
    EXPECT_EQ(mixer.range(), (Range{{0, 0}, {0, 0}}));
    mixer.begin(kSecond);
    EXPECT_EQ(mixer.range(), kSecond);
    mixer.end();
    EXPECT_EQ(mixer.range(), kSecond);
}

TEST_F(AudioMixerTest, ThereIsNoBlockBeforeTheFirstRange) {
    EXPECT_EQ(mixer.end(), nullptr);
}

TEST_F(AudioMixerTest, ABlockIsUsedAgainWhileItIsLargeEnough) {
    mixer.begin({{0, 1}, {1, 10}});
    const auto first = mixer.end();
    EXPECT_EQ(first->capacity, 4800 * 4);
    EXPECT_TRUE(bg::mempool::is_alignment(first->data, 16));
    mixer.begin(kFirst);
    EXPECT_TRUE(mixer.getBuffer(&keys[0])->write(constant_frame(1600, 5), 128));
    EXPECT_EQ(mixer.end(), first);
    EXPECT_EQ(first->size, 6400);
    EXPECT_EQ(first->capacity, 4800 * 4);
    mixer.begin({{0, 1}, {1, 5}});
    const auto larger = mixer.end();
    EXPECT_NE(larger, first);
    EXPECT_EQ(larger->size, 9600 * 4);
    EXPECT_EQ(samples_of(first), run_of(1600, 5));  // still the host's
    EXPECT_EQ(samples_of(larger), run_of(9600, 0));
}

TEST_F(AudioMixerTest, ABlockOutlivesItsMixer) {
    auto short_lived = std::make_unique<AudioMixer>(48000, 2, SampleFormat::S16);
    short_lived->begin(kFirst);
    EXPECT_TRUE(short_lived->getBuffer(nullptr)->write(constant_frame(1600, 5), 128));
    auto block = short_lived->end();
    short_lived.reset();
    EXPECT_EQ(samples_of(block), run_of(1600, 5));
    (void)bg::mempool::collection(0);
    block.reset();
    EXPECT_EQ(bg::mempool::collection(0), 1U);
}

TEST_F(AudioMixerTest, AWriterOutlivesItsMixerAndRefuses) {
    auto short_lived = std::make_unique<AudioMixer>(48000, 2, SampleFormat::S16);
    const auto writer = short_lived->getBuffer(nullptr);
    short_lived->begin(kFirst);
    short_lived.reset();
    EXPECT_FALSE(writer->write(constant_frame(1600, 5), 128));
    EXPECT_EQ(log.texts(2), std::vector<std::string>{"[mixer] write after the mixer is gone"});
}

TEST_F(AudioMixerTest, AResetWriterForgetsItsSamples) {
    const auto writer = mixer.getBuffer(&keys[0]);
    auto* const pcm_writer = dynamic_cast<ff::PcmWriter*>(writer.get());
    ASSERT_NE(pcm_writer, nullptr);
    pcm_writer->reset();
    mixer.begin(kFirst);
    EXPECT_TRUE(writer->write(constant_frame(2000, 5), 128));
    pcm_writer->reset();
    mixer.begin(kSecond);
    EXPECT_FALSE(writer->write(constant_frame(0, 5), 128));
}

// However frames and ranges fall, each source's samples come out once and in order.
TEST_F(AudioMixerTest, FramesOfAnySizeComeOutWhole) {
    const auto writer = mixer.getBuffer(&keys[0]);
    int written = 0;
    std::vector<int> heard;
    for (int range = 0; range < 50; ++range) {
        mixer.begin({{range, 40}, {range + 1, 40}});
        const int samples = 1200 + (range * 37) % 100;  // at least what the range needs
        EXPECT_TRUE(writer->write(
            make_frame(samples, [written](int i) { return (written + i) % 30000; }), 128));
        written += samples;
        heard = joined(heard, samples_of(mixer.end()));
    }
    ASSERT_EQ(heard.size(), 50U * 1200U);
    for (std::size_t i = 0; i < heard.size(); ++i) {
        ASSERT_EQ(heard[i], static_cast<int>(i % 30000)) << i;
    }
}

TEST_F(AudioMixerTest, TakesNoMoreBlocksFromThePoolAsItGoesOn) {
    const auto writer = mixer.getBuffer(&keys[0]);
    const auto frame = constant_frame(1700, 1);
    (void)bg::mempool::collection(0);
    for (int range = 0; range < 100; ++range) {
        mixer.begin({{range, 30}, {range + 1, 30}});
        EXPECT_TRUE(writer->write(frame, 128));
        mixer.end();
    }
    EXPECT_EQ(bg::mempool::collection(0), 1U);  // the one that the queue is read into
}

TEST(SdlAudioFormatTest, HasACodeForTheFourInterleavedFormats) {
    LogCapture log;
    EXPECT_EQ(ff::get_sdl_audio_fmt(SampleFormat::U8), 0U);
    EXPECT_EQ(ff::get_sdl_audio_fmt(SampleFormat::S16), 2U);
    EXPECT_EQ(ff::get_sdl_audio_fmt(SampleFormat::S32), 6U);
    EXPECT_EQ(ff::get_sdl_audio_fmt(SampleFormat::Flt), 8U);
    EXPECT_TRUE(log.texts().empty());
    for (const int other : {0, 5, -3, INT_MAX, INT_MIN}) {
        EXPECT_EQ(ff::get_sdl_audio_fmt(static_cast<SampleFormat>(other)), 0U);
    }
    EXPECT_EQ(log.texts(2).size(), 5U);
}

TEST(MergeTest, RefusesAMissingQueue) {
    LogCapture log;
    ff::AudioMixerPrivate mixer(48000, 2, SampleFormat::S16);
    EXPECT_FALSE(mixer.merge(nullptr, 128));
    const ff::AudioFifoPtr fifo(av_audio_fifo_alloc(AV_SAMPLE_FMT_S16, 2, 16));
    EXPECT_FALSE(mixer.merge(fifo.get(), 128));
    EXPECT_TRUE(log.texts().empty());
}

TEST(AudioPeakTest, MeasuresPackedFrames) {
    LogCapture log;
    EXPECT_EQ(ff::getAudioPeak(constant_frame(100, 16384), 100), 50);
    EXPECT_EQ(ff::getAudioPeak(constant_frame(100, -1), 100), 200);
    const auto half = [](int i) { return i == 7 ? INT_MIN / 2 : 0; };
    EXPECT_EQ(ff::getAudioPeak(make_frame(100, half, SampleFormat::S32), 1000), 500);
    EXPECT_EQ(ff::getAudioPeak(constant_frame(0, 0), 100), 0);
    EXPECT_EQ(ff::getAudioPeak(constant_frame(100, -1), INT_MAX), INT_MAX);
    EXPECT_EQ(ff::getAudioPeak(constant_frame(100, -1), -100), 0);
    EXPECT_TRUE(log.texts().empty());
}

TEST(AudioPeakTest, MeasuresTheFirstChannelOfAPlanarFrameAsBytes) {
    LogCapture log;
    const auto frame = constant_frame(100, 0);
    frame->format = AV_SAMPLE_FMT_S16P;
    frame->planar = 1;
    frame->linesize[0] = frame->size / 2;
    frame->data[0] = frame->buffer;
    frame->buffer[3] = 100;
    frame->buffer[frame->size - 1] = 255;  // in the second channel
    EXPECT_EQ(ff::getAudioPeak(frame, 127), 100);
    EXPECT_EQ(log.texts(2), std::vector<std::string>{"unknow audio format: 0\\n"});
}

TEST(AudioPeakTest, FramesWithoutSamplesAreSilent) {
    EXPECT_EQ(ff::getAudioPeak(nullptr, 100), 0);
    const auto empty = std::make_shared<AFrameCtx>();
    empty->format = AV_SAMPLE_FMT_S16;
    empty->size = 100;  // of nothing
    EXPECT_EQ(ff::getAudioPeak(empty, 100), 0);
    const auto negative = constant_frame(100, 5);
    negative->size = -4;
    EXPECT_EQ(ff::getAudioPeak(negative, 100), 0);
}

}  // namespace
