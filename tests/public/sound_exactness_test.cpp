// Sound is exact: spans that follow each other hold, joined, every sample of a plain decode from
// the stream's start to its end, and spans in random order hold the same stretch of it.

#include "tests/public/sound_reference.h"
#include "tests/support/log_capture.h"
#include "tests/support/sanitized.h"

#include <framewell/base/data.h>

#include <gtest/gtest.h>

#include <cctype>
#include <iterator>
#include <optional>
#include <random>

namespace {

using fw_test::kSanitized;
using fw_test::WholeSound;

constexpr int kRandomSpans = kSanitized ? 24 : 200;

/// What spans in random order are compared with.
enum class Random {
    Exact,
    // Noise that the decoder makes up, or what rounding left over, runs on from the first frame of
    // the stream. Spans near the start are decoded from there and are exact; those far out differ.
    NoiseNearStart,
};

struct Row {
    const char* file;
    int stream;
    Random random = Random::Exact;
};

// A table rather than a look into the folder: a file that is missing is then skipped by name.
constexpr Row kRows[] = {
    {"aac-adts-undecodable-picture.aac", 0},
    {"aac-adts.aac", 0},
    {"aac-edit-list-long.mp4", 0},
    {"aac-start-256ms.m4a", 0},
    {"ac3-5.1.ac3", 0},
    {"aiff-s8-stereo.aiff", 0},
    {"amr-nb.amr", 0},
    {"ass-subtitles.mkv", 1},
    {"edit-list-aac-priming.mp4", 1},
    {"edit-list-preroll-keyframe.mp4", 1},
    {"edit-list-video-starts-1s.mp4", 1},
    {"flac-453s-silence.flac", 0},
    {"flac-unknown-duration.flac", 0},
    {"fragmented-wrong-duration.mp4", 1},
    {"h263-vfr-video-starts-late.3gp", 1},
    {"h264-30s-four-keyframes.mov", 1},
    {"h264-60fps-few-keyframes.mp4", 1},
    {"h264-aac.flv", 1},
    {"h264-in-avi-no-pts.avi", 1},
    {"h264-interlaced-1080i-ac3.mts", 1},
    {"hevc-aac-5.1.ts", 1},
    {"live-truncated-no-duration.webm", 0},
    {"long-6min-av1-aac.mp4", 1},
    {"long-gop-start-10s.ts", 1},
    {"mjpeg-pcm-u8.mov", 1},
    {"mp3-cover-art.mp3", 0},
    {"mp3-vbr-no-header.mp3", 0},
    {"mp4-audio-named-aac.aac", 0},
    {"mpeg2-interlaced-mp3.ts", 1},
    {"mpeg2-mp2-tiny.mpg", 2},
    {"mpeg4-mp3-dropped-frames.avi", 1},
    {"msmpeg4-wma-vfr.asf", 0},
    {"multi-video-multi-audio.mp4", 1},
    {"multi-video-multi-audio.mp4", 4},
    {"no-initial-keyframe.ts", 1},
    {"opus-5.1.mka", 0},
    {"opus-live-no-duration.webm", 0},
    {"pcm-f32-5.1.wav", 0},
    {"pcm-s16-stereo.wav", 0},
    {"pcm-s24-mono.wav", 0},
    {"pcm-u8-mono.wav", 0},
    {"rotation-180.mp4", 1},
    {"rotation-270-vfr.mp4", 1},
    {"rotation-90-video-starts-late.mp4", 1},
    {"subrip-one-line.mkv", 1},
    {"theora-vorbis.ogv", 1},
    {"two-audio-tracks-5.1-no-video.mp4", 0},
    {"two-audio-tracks-5.1-no-video.mp4", 1},
    {"vorbis.ogg", 0},
    {"vp8-vorbis-start-3ms.webm", 1},
    {"vp9-60fps-vorbis-5.1.webm", 1},
};

std::string as_name(std::string text) {
    for (char& c : text) {
        c = std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
    }
    return text;
}

/// Keeps next to nothing of what was decoded, so that most questions need a seek.
struct SmallCache {
    SmallCache() { (void)mox::Data::instance()->set("dec.max_af", mox::Value::integer(1)); }

    SmallCache(const SmallCache&) = delete;
    SmallCache& operator=(const SmallCache&) = delete;

    ~SmallCache() { (void)mox::Data::instance()->set("dec.max_af", mox::Value::integer(500)); }
};

/// One stream, its whole decode, and an open decoder.
struct Scene {
    Scene(const std::string& path, int stream_index)
        : whole(fw_test::decode_whole(path, stream_index)),
          decoder(fw_test::open_sound(path, stream_index)),
          stream(*decoder->streamContex()),
          start(fw_test::sound_time(stream, whole.frames.front().time)),
          end(start + ff::Rational{whole.samples(), whole.rate}) {}

    std::string joined(const ff::Rational& step, ff::SampleFormat format) {
        return fw_test::joined_spans(decoder.get(), start, end, step, format);
    }

    fw_test::LogCapture quiet;
    WholeSound whole;
    std::unique_ptr<ff::FFDecoder> decoder;
    const ff::StreamCtx& stream;
    ff::Rational start;
    ff::Rational end;
};

/// Where two stretches of sound part, for a message; empty if they are equal.
std::string parting(const std::string& got, const std::string& expected, std::size_t sample_size) {
    if (got == expected) {
        return {};
    }
    const auto differs = std::mismatch(
        got.begin(),
        got.begin() + static_cast<std::ptrdiff_t>(std::min(got.size(), expected.size())),
        expected.begin());
    return std::to_string(got.size() / sample_size) + " samples came, " +
           std::to_string(expected.size() / sample_size) + " expected, first difference at " +
           std::to_string(static_cast<std::size_t>(differs.first - got.begin()) / sample_size);
}

// A sanitizer, under which each of them takes long, gets the first two.
constexpr ff::Rational kSteps[] = {{1, 7}, {1001, 30000}, {1, 30}, {1, 60}};
constexpr std::size_t kStepCount = kSanitized ? 2 : std::size(kSteps);

void expect_exact_sequences(Scene* scene) {
    for (std::size_t i = 0; i < kStepCount; i++) {
        const ff::Rational& step = kSteps[i];
        const std::string got = scene->joined(step, scene->whole.format);
        EXPECT_EQ(parting(got, scene->whole.bytes, scene->whole.sample_size()), "")
            << "in steps of " << step.num << "/" << step.den << " s";
    }
}

struct Span {
    std::int64_t first = 0;  // sample, counted by time from the first frame's start
    std::int64_t count = 0;
};

/// A span of 10 ms to 1 s.
Span random_span(const WholeSound& whole, std::int64_t limit, std::mt19937* random) {
    const auto below = [random](std::int64_t end) {
        return static_cast<std::int64_t>((*random)() % static_cast<std::uint64_t>(end));
    };
    const std::int64_t shortest = whole.rate / 100;
    const std::int64_t count = std::min(shortest + below(whole.rate - shortest + 1), limit);
    return {below(limit - count + 1), count};
}

/// Returns a line per span that is not the same stretch of the whole decode.
std::vector<std::string> differences(Scene* scene, std::int64_t limit, int spans) {
    std::vector<std::string> lines;
    std::mt19937 random(7);
    for (int i = 0; i < spans; i++) {
        if (i % 8 == 0) {
            scene->decoder->close();
            (void)scene->decoder->open(&scene->stream);  // else every answer is missing
        }
        const WholeSound& whole = scene->whole;
        const Span span = random_span(whole, limit, &random);
        const ff::Rational from = scene->start + ff::Rational{span.first, whole.rate};
        const ff::Rational to = scene->start + ff::Rational{span.first + span.count, whole.rate};
        const auto sound = fw_test::ask_sound(scene->decoder.get(), from, to, whole.format);
        const std::int64_t at = whole.sample_at(fw_test::sound_tick(scene->stream, from));
        const std::string text = parting(fw_test::sound_bytes(sound), whole.stretch(at, span.count),
                                         whole.sample_size());
        if (!text.empty()) {
            lines.push_back("samples " + std::to_string(span.first) + " + " +
                            std::to_string(span.count) + ": " + text);
        }
    }
    return lines;
}

std::string first_of(const std::vector<std::string>& lines) {
    std::string text = std::to_string(lines.size()) + " spans differ";
    for (std::size_t i = 0; i < std::min<std::size_t>(lines.size(), 8); i++) {
        text += "\n  " + lines[i];
    }
    return text;
}

/// The samples from the start within which spans in random order must be exact.
std::int64_t exact_part(const WholeSound& whole, Random random) {
    constexpr int kSecondsDecodedFromStart = 8;
    return random == Random::NoiseNearStart
               ? std::min<std::int64_t>(whole.samples(), kSecondsDecodedFromStart * whole.rate)
               : whole.samples();
}

void expect_exact_random_spans(Scene* scene, Random random) {
    const SmallCache small_cache;
    const auto lines = differences(scene, exact_part(scene->whole, random), kRandomSpans);
    EXPECT_TRUE(lines.empty()) << first_of(lines);
}

/// The ground truth is what FFmpeg 5.1 decodes, and 4.3, but that this leaves on the end of two
/// files what 5.1 cuts off. In 7.1 samples of lossy sound differ by up to one of 16 bits. There the
/// plain decode has to be enough.
bool has_truth(const std::string& file, const WholeSound& whole) {
    constexpr unsigned kMajorOfTruth = 59;
    const unsigned major = avcodec_version() >> 16;
    if (major < kMajorOfTruth) {
        return file != "vorbis.ogg" && file != "msmpeg4-wma-vfr.asf";
    }
    return major == kMajorOfTruth || whole.is_lossless;
}

class SharedSoundTest : public testing::TestWithParam<Row> {};

TEST_P(SharedSoundTest, SpansInARowAreTheWholeSound) {
    const Row row = GetParam();
    const std::string path = fw_test::shared_media(row.file);
    if (path.empty()) {
        GTEST_SKIP() << "needs the shared media file " << row.file;
    }
    Scene scene(path, row.stream);
    expect_exact_sequences(&scene);
    if (!has_truth(row.file, scene.whole)) {
        return;
    }
    // The ground truth knows the samples in 16 bits.
    const auto truth = fw_test::shared_truth(row.file);
    ASSERT_TRUE(truth) << row.file << " has no ground truth";
    for (const fw_test::TruthStream& stream : truth->streams) {
        if (stream.index == row.stream) {
            EXPECT_EQ(fw_test::sound_md5(scene.joined({1, 7}, ff::SampleFormat::S16)), stream.md5);
        }
    }
}

TEST_P(SharedSoundTest, SpansInRandomOrderAreTheSameStretchOfIt) {
    const Row row = GetParam();
    const std::string path = fw_test::shared_media(row.file);
    if (path.empty()) {
        GTEST_SKIP() << "needs the shared media file " << row.file;
    }
    Scene scene(path, row.stream);
    expect_exact_random_spans(&scene, row.random);
}

INSTANTIATE_TEST_SUITE_P(Shared, SharedSoundTest, testing::ValuesIn(kRows), [](const auto& row) {
    return as_name(row.param.file) + "_stream" + std::to_string(row.param.stream);
});

/// A clip made on the spot: 20 s, so that most of it lies beyond what is decoded from the start.
struct Clip {
    const char* file;
    const char* arguments;
    int rate = 44100;
    Random random = Random::Exact;
};

constexpr Clip kClips[] = {
    {"aac.m4a", "-c:a aac -aac_pns 0"},
    {"aac.aac", "-c:a aac -aac_pns 0"},
    {"aac_mono.mkv", "-c:a aac -aac_pns 0 -ac 1"},
    {"aac_48000.ts", "-c:a aac -aac_pns 0", 48000},
    {"aac_with_noise.m4a", "-c:a aac -b:a 48k", 44100, Random::NoiseNearStart},
    {"mp3_constant.mp3", "-c:a libmp3lame -b:a 128k"},
    {"mp3_variable.mp3", "-c:a libmp3lame -q:a 4"},
    {"mp3_low.mp3", "-c:a libmp3lame -b:a 32k"},
    {"mp3.mkv", "-c:a libmp3lame -b:a 96k", 48000},
    {"mp3.avi", "-c:a libmp3lame -b:a 128k"},
    {"mp2.mp2", "-c:a mp2", 44100, Random::NoiseNearStart},
    {"mp2.ts", "-c:a mp2", 48000, Random::NoiseNearStart},
    {"ac3.ac3", "-c:a ac3", 48000, Random::NoiseNearStart},
    {"ac3.ts", "-c:a ac3", 48000, Random::NoiseNearStart},
    {"eac3.mp4", "-c:a eac3", 48000, Random::NoiseNearStart},
    {"vorbis.ogg", "-c:a libvorbis"},
    {"vorbis.mkv", "-c:a libvorbis"},
    {"opus.ogg", "-c:a libopus", 48000},
    {"opus.mkv", "-c:a libopus", 48000},
    {"opus.mp4", "-c:a libopus", 48000},
    {"wma.asf", "-c:a wmav2"},
    {"flac.flac", "-c:a flac"},
    {"flac.mkv", "-c:a flac"},
    {"flac.ogg", "-c:a flac"},
    {"alac.m4a", "-c:a alac"},
    {"pcm_16.wav", "-c:a pcm_s16le"},
    {"pcm_16.mov", "-c:a pcm_s16be"},
    {"pcm_16.avi", "-c:a pcm_s16le"},
    {"pcm_float.mkv", "-c:a pcm_f32le", 48000},
    {"pcm_32.wav", "-c:a pcm_s32le"},
    {"pcm_8.wav", "-c:a pcm_u8", 8000},
};

class ClipSoundTest : public testing::TestWithParam<Clip> {
protected:
    ClipSoundTest()
        : m_scene(fw_test::make_clip(std::string("exact_") + GetParam().file,
                                     "-f lavfi -i \"aevalsrc=0.3*sin(2*PI*(200+40*t)*t)+"
                                     "0.1*random(0)|0.3*sin(2*PI*(900-20*t)*t)+0.1*random(1):s=" +
                                         std::to_string(GetParam().rate) + ":d=20\" " +
                                         GetParam().arguments),
                  0) {}

    Scene m_scene;
};

TEST_P(ClipSoundTest, SpansInARowAreTheWholeSound) {
    expect_exact_sequences(&m_scene);
}

TEST_P(ClipSoundTest, SpansInRandomOrderAreTheSameStretchOfIt) {
    expect_exact_random_spans(&m_scene, GetParam().random);
}

INSTANTIATE_TEST_SUITE_P(Clips, ClipSoundTest, testing::ValuesIn(kClips),
                         [](const auto& row) { return as_name(row.param.file); });

}  // namespace
