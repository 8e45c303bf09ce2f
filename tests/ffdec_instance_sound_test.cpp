// A seek of sound: what comes out first, that it is exact, and that nothing else comes out.

#include "ffdec_instance_settle.h"
#include "tests/public/sound_reference.h"
#include "tests/support/engine.h"

#include <gtest/gtest.h>

namespace {

using fw_test::Reader;
using fw_test::WholeSound;

std::string noisy_clip(const std::string& name, const std::string& arguments) {
    return fw_test::make_clip(
        name, "-f lavfi -i \"aevalsrc=0.3*sin(2*PI*(200+40*t)*t)+0.1*random(0):s=48000:d=12\" " +
                  arguments);
}

AVCodecParameters parameters_of(AVCodecID codec) {
    AVCodecParameters parameters{};
    parameters.codec_type = AVMEDIA_TYPE_AUDIO;
    parameters.codec_id = codec;
    parameters.sample_rate = 48000;
    return parameters;
}

TEST(SettlingTest, NothingIsNeededWhereEveryFrameStandsAlone) {
    for (const AVCodecID codec : {AV_CODEC_ID_PCM_S16LE, AV_CODEC_ID_FLAC, AV_CODEC_ID_ALAC}) {
        EXPECT_EQ(ff::settling_of(parameters_of(codec)).samples, 0) << avcodec_get_name(codec);
    }
}

TEST(SettlingTest, LossyCodecsNeedTheFramesBefore) {
    EXPECT_EQ(ff::settling_of(parameters_of(AV_CODEC_ID_AAC)).samples, 8192);
    EXPECT_EQ(ff::settling_of(parameters_of(AV_CODEC_ID_MP3)).samples, 13824);
    EXPECT_GT(ff::settling_of(parameters_of(AV_CODEC_ID_ATRAC3)).samples, 0);
}

TEST(SettlingTest, NoiseIsDecodedFromTheStartWhereThatIsNear) {
    EXPECT_EQ(ff::settling_of(parameters_of(AV_CODEC_ID_AC3)).from_start, 8 * 48000);
    const ff::Settling mp3 = ff::settling_of(parameters_of(AV_CODEC_ID_MP3));
    EXPECT_EQ(mp3.from_start, mp3.samples);
}

TEST(SettlingTest, WhatTheFileAsksForCounts) {
    AVCodecParameters parameters = parameters_of(AV_CODEC_ID_AAC);
    parameters.seek_preroll = 100000;
    EXPECT_EQ(ff::settling_of(parameters).samples, 100000);
    parameters.seek_preroll = -5;
    EXPECT_EQ(ff::settling_of(parameters).samples, 8192);
}

/// The frame that an instance gives next, as the whole decode has it.
void expect_frame(Reader* reader, const WholeSound& whole, const fw_test::SoundFrame& expected) {
    ASSERT_GE(reader->next(), 0);
    EXPECT_EQ(reader->frame->pts, expected.time);
    std::string bytes;
    fw_test::append_interleaved(*reader->frame, &bytes);
    EXPECT_EQ(fw_test::sound_md5(bytes),
              fw_test::sound_md5(whole.stretch(expected.first, expected.nb_samples)))
        << "at " << expected.time;
}

struct Clip {
    const char* file;
    const char* arguments;
    int near_seconds = 12;  ///< seeks up to here are exact
};

class SoundSeekTest : public testing::TestWithParam<Clip> {};

TEST_P(SoundSeekTest, TheFrameThatCoversTheTimeComesFirstAndIsExact) {
    const std::string path = noisy_clip(GetParam().file, GetParam().arguments);
    const WholeSound whole = fw_test::decode_whole(path, 0);
    Reader reader(path, 0);
    const auto last = static_cast<std::size_t>(
        std::upper_bound(
            whole.frames.begin(), whole.frames.end(),
            GetParam().near_seconds * std::int64_t{whole.rate},
            [](std::int64_t sample, const auto& frame) { return sample < frame.first; }) -
        whole.frames.begin());
    // Backwards, forwards, again and again: what was decoded before must not be heard.
    for (const std::size_t tenth : {9U, 3U, 7U, 1U, 5U, 0U, 8U, 2U, 0U, 4U}) {
        const std::size_t at = (last - 3) * tenth / 10;
        ASSERT_TRUE(reader.instance.seek(whole.frames[at].time, true));
        for (std::size_t i = at; i < at + 3; i++) {
            expect_frame(&reader, whole, whole.frames[i]);
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Codecs, SoundSeekTest,
    testing::Values(Clip{"seek.m4a", "-c:a aac -aac_pns 0"},
                    Clip{"seek_noise.m4a", "-c:a aac -b:a 48k", 8},
                    Clip{"seek.mp3", "-c:a libmp3lame"}, Clip{"seek.ac3", "-c:a ac3", 8},
                    Clip{"seek_eac3.mp4", "-c:a eac3", 8}, Clip{"seek_mp2.ts", "-c:a mp2", 8},
                    Clip{"seek.ogg", "-c:a libvorbis"}, Clip{"seek.opus", "-c:a libopus"},
                    Clip{"seek.flac", "-c:a flac"}, Clip{"seek_alac.m4a", "-c:a alac"}),
    [](const auto& row) {
        std::string name = row.param.file;
        name.replace(name.find('.'), 1, "_");
        return name;
    });

// Files of plain samples can be entered anywhere. Two workers that cut such a stream into different
// frames could not follow each other within a span.
TEST(PlainSoundTest, ASeekIntoAFrameGivesTheFrameThatADecodeFromTheStartHas) {
    const std::string path = noisy_clip("seek.wav", "-c:a pcm_s16le");
    const WholeSound whole = fw_test::decode_whole(path, 0);
    Reader reader(path, 0);
    for (const std::size_t at : {7U, 3U, 100U}) {
        ASSERT_TRUE(reader.instance.seek(whole.frames[at].time + 100, true));
        expect_frame(&reader, whole, whole.frames[at]);
        expect_frame(&reader, whole, whole.frames[at + 1]);
    }
}

}  // namespace
