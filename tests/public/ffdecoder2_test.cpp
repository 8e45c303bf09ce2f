// Speed, reverse and filters of a decoder: what it prints, which media times it asks for, and what
// comes out.

#include "tests/support/log_capture.h"
#include "tests/support/media.h"
#include "tests/support/stderr_capture.h"
#include "tests/support/streams.h"

#include <framewell/ffdecoder2.h>
#include <framewell/framewell.h>

extern "C" {
#include <libavfilter/avfilter.h>
#include <libavutil/log.h>
}

#include <gtest/gtest.h>

#include <cmath>
#include <condition_variable>
#include <cstdint>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace {

using fw_test::LogCapture;
using fw_test::StderrCapture;
using fw_test::stream_of;

/// 20 seconds, 30 pictures per second, from 0 on.
const ff::StreamCtx* video() {
    return stream_of(fw_test::clip_h264_long_gop(), ff::StreamType::Video);
}

/// 3 seconds, 44100 Hz, stereo.
const ff::StreamCtx* sound() {
    return stream_of(fw_test::clip_pcm(), ff::StreamType::Audio);
}

/// libavfilter says why it refuses a description; not in the output of the tests.
class QuietFFmpeg {
public:
    QuietFFmpeg() { av_log_set_level(AV_LOG_QUIET); }

    QuietFFmpeg(const QuietFFmpeg&) = delete;
    QuietFFmpeg& operator=(const QuietFFmpeg&) = delete;

    ~QuietFFmpeg() { av_log_set_level(m_previous); }

private:
    const int m_previous = av_log_get_level();
};

class FFDecoder2Test : public ::testing::Test {
protected:
    /// Opens on a stream, without a word.
    void open(const ff::StreamCtx* stream) { ASSERT_TRUE(decoder.open(stream)); }

    bool set_speed(double speed) {
        const StderrCapture quiet;
        return decoder.setSpeed(speed);
    }

    bool set_filters(const char* filters) {
        const StderrCapture quiet;
        return decoder.setFilters(filters);
    }

    /// The ticks that a request for the picture at `time` asks the engine for.
    std::int64_t asked_ticks(const ff::Rational& time) {
        log.clear();
        ff::RequireVideoFrame req;
        req.time = time;
        req.format = ff::PixelFormat::SeekOnly;
        EXPECT_FALSE(decoder.getVideoFrame(req));
        return ticks_in("Video: seek... pos=");
    }

    /// The ticks of the start of the span that a request for sound asks the engine for.
    std::int64_t asked_audio_ticks(const ff::Range& range) {
        log.clear();
        ff::RequireAudioFrame req;
        req.range = range;
        req.format = ff::SampleFormat::SeekOnly;
        EXPECT_FALSE(decoder.getAudioFrame(req));
        return ticks_in("Audio: seek... pos=");
    }

    std::int64_t ticks_in(const std::string& text) {
        const auto line = log.find(text);
        EXPECT_TRUE(line) << "no line " << text;
        return line ? std::stoll(line->text().substr(text.size())) : -1;
    }

    /// `time` in ticks of the stream.
    std::int64_t ticks(const ff::Rational& time) const {
        return ff::time_to_timestamp(time, decoder.streamContex()->time_base);
    }

    std::shared_ptr<ff::VFrameCtx> picture_at(const ff::Rational& time) {
        ff::RequireVideoFrame req;
        req.time = time;
        req.format = ff::PixelFormat::Yuv420p;
        return decoder.getVideoFrame(req);
    }

    static std::string bytes_of(const std::shared_ptr<ff::AFrameCtx>& span) {
        return span ? std::string(reinterpret_cast<const char*>(span->data[0]),
                                  static_cast<std::size_t>(span->nb_samples) * 4)
                    : "";
    }

    LogCapture log;
    ff::FFDecoder2 decoder;
};

// Speed

TEST_F(FFDecoder2Test, AcceptsSpeedsFromAHalfToThree) {
    open(sound());
    for (const double speed : {0.5, 3.0, 1.0, 0.57}) {
        EXPECT_TRUE(set_speed(speed));
        EXPECT_EQ(decoder.speed(), speed);
    }
    EXPECT_TRUE(log.texts(2).empty());
}

TEST_F(FFDecoder2Test, RefusesOtherSpeedsWithALineAndKeepsTheOneItHas) {
    open(sound());
    EXPECT_EQ(decoder.speed(), 1.0);
    ASSERT_TRUE(set_speed(1.5));
    const double infinity = std::numeric_limits<double>::infinity();
    StderrCapture error;
    for (const double speed : {0.49, 3.01, 0.0, -1.0, infinity, -infinity, std::nan("")}) {
        EXPECT_FALSE(decoder.setSpeed(speed));
    }
    EXPECT_EQ(error.text(), "") << "the filters are not to be touched";
    EXPECT_EQ(decoder.speed(), 1.5);
    EXPECT_EQ(log.texts(2),
              (std::vector<std::string>{"speed = 0.490 is invalid, limited: (0, 3.0]",
                                        "speed = 3.010 is invalid, limited: (0, 3.0]",
                                        "speed = 0.000 is invalid, limited: (0, 3.0]",
                                        "speed = -1.000 is invalid, limited: (0, 3.0]",
                                        "speed = inf is invalid, limited: (0, 3.0]",
                                        "speed = -inf is invalid, limited: (0, 3.0]",
                                        "speed = nan is invalid, limited: (0, 3.0]"}));
    EXPECT_EQ(log.lines()[0].tag, "bg");
    EXPECT_EQ(log.find("invalid")->file, "src/ffdecoder2");
}

TEST_F(FFDecoder2Test, PrintsWhichFiltersItOpensAndCloses) {
    const QuietFFmpeg quiet;
    open(sound());
    StderrCapture error;
    EXPECT_TRUE(decoder.setSpeed(2.0));
    EXPECT_TRUE(decoder.setFilters("volume=0.5"));
    EXPECT_TRUE(decoder.setSpeed(1.0));
    EXPECT_TRUE(decoder.setFilters(nullptr));
    EXPECT_TRUE(decoder.pri_setFilters(nullptr));
    EXPECT_TRUE(decoder.pri_setFilters("anull"));
    EXPECT_EQ(error.text(),
              "[filter] type=1, *****-> atempo=2.000000\n"
              "open filter: atempo=2.000000\n"
              "[filter] type=1, *****-> atempo=2.000000, volume=0.5\n"
              "open filter: atempo=2.000000, volume=0.5\n"
              "[filter] type=1, *****-> volume=0.5\n"
              "open filter: volume=0.5\n"
              "[filter] type=1, *****-> \n"
              "close filter: \n"
              "close filter: \n"
              "open filter: anull\n");
}

struct SpeedRow {
    const char* name;
    double speed;
    ff::Rational asked;  // for 10 seconds
};

class FFDecoder2SpeedTest : public FFDecoder2Test,
                            public ::testing::WithParamInterface<SpeedRow> {};

TEST_P(FFDecoder2SpeedTest, MultipliesTimesWithTheSpeedCutToTwoDecimals) {
    open(video());
    ASSERT_TRUE(set_speed(GetParam().speed));
    EXPECT_EQ(asked_ticks({10, 1}), ticks(GetParam().asked));
    EXPECT_EQ(asked_ticks({0, 1}), 0);
}

const SpeedRow kSpeedRows[] = {
    {"Speed1255", 1.255, {25, 2}}, {"Speed115", 1.15, {114, 10}},
    {"Speed230", 2.3, {229, 10}},  {"Speed57", 0.57, {56, 10}},
    {"Speed110", 1.1, {11, 1}},    {"Speed50", 0.5, {5, 1}},
    {"Speed300", 3.0, {30, 1}},    {"Speed150", 1.5, {15, 1}},
    {"Speed1001", 1.001, {10, 1}}, {"SpeedJustBelow1", 0.9999, {99, 10}},
};

INSTANTIATE_TEST_SUITE_P(Rows, FFDecoder2SpeedTest, ::testing::ValuesIn(kSpeedRows),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(FFDecoder2Test, ShowsThePictureOfTheMultipliedTime) {
    open(video());
    ASSERT_TRUE(set_speed(1.255));
    const std::shared_ptr<ff::VFrameCtx> picture = picture_at({10, 1});
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->pts, 12500000);
}

TEST_F(FFDecoder2Test, AppliesToBackgroundRequestsToo) {
    open(video());
    ASSERT_TRUE(set_speed(2.0));
    std::mutex mutex;
    std::condition_variable changed;
    std::int64_t pts = -1;  // guarded by mutex
    ff::RequireVideoFrame req;
    req.time = {2, 1};
    decoder.getVideoFrameAsync(req, [&](const std::shared_ptr<ff::VFrameCtx>& picture) {
        const std::lock_guard<std::mutex> lock(mutex);
        pts = picture->pts;
        changed.notify_all();
    });
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [&] { return pts != -1; });
    EXPECT_EQ(pts, 4000000);
}

TEST_F(FFDecoder2Test, AsksForTheSpanOfSoundThatIsPlayedInTheRequestedTime) {
    open(stream_of(fw_test::make_clip("sound_6s.wav",
                                      "-f lavfi -i "
                                      "aevalsrc='0.4*sin(2*PI*(300+50*t)*t)|0.3*cos(900*t)'"
                                      ":s=44100:d=6 -c:a pcm_s16le"),
                   ff::StreamType::Audio));
    ASSERT_TRUE(set_speed(2.0));
    EXPECT_EQ(asked_audio_ticks({{1, 1}, {2, 1}}), ticks({2, 1}));
    {
        const StderrCapture quiet;
        ASSERT_TRUE(decoder.pri_setFilters("")) << "without atempo, the span comes as it is";
    }
    ff::RequireAudioFrame req;
    req.range = {{1, 1}, {2, 1}};
    const std::shared_ptr<ff::AFrameCtx> fast = decoder.getAudioFrame(req);
    ff::FFDecoder plain;
    ASSERT_TRUE(plain.open(decoder.streamContex()));
    req.range = {{2, 1}, {4, 1}};
    const std::shared_ptr<ff::AFrameCtx> whole = plain.getAudioFrame(req);
    ASSERT_TRUE(fast && whole);
    EXPECT_EQ(fast->nb_samples, 88200);
    EXPECT_EQ(bytes_of(fast), bytes_of(whole));
}

/// Asks for consecutive spans of a tenth of a second; returns how many samples came.
int play(ff::FFDecoder* decoder, int first, int count) {
    int samples = 0;
    for (int i = first; i < first + count; ++i) {
        ff::RequireAudioFrame req;
        req.range = {{i, 10}, {i + 1, 10}};
        req.sample_rate = decoder->streamContex()->sample_rate;
        if (const auto span = decoder->getAudioFrame(req)) {
            samples += span->nb_samples;
        }
    }
    return samples;
}

TEST_F(FFDecoder2Test, PlaysTwiceAsManySamplesInTheTimeOfOne) {
    open(sound());
    ASSERT_TRUE(set_speed(2.0));
    const int samples = play(&decoder, 0, 14);
    // 1.4 seconds; atempo holds back one of its windows (at most an eighth of a second), and what a
    // span gives beyond one frame of the filter waits in the graph.
    EXPECT_GE(samples, 14 * 4410 * 3 / 4);
    EXPECT_LE(samples, 14 * 4410);
}

TEST_F(FFDecoder2Test, PlaysSlowlyToo) {
    open(sound());
    ASSERT_TRUE(set_speed(0.5));
    const int samples = play(&decoder, 0, 40);
    EXPECT_GT(samples, 0);
    EXPECT_LE(samples, 40 * 4410);
}

TEST_F(FFDecoder2Test, ChangesTheSpeedOfSurroundSoundWithItsSpeakersAtTheSides) {
    open(stream_of(fw_test::make_clip("side.ac3",
                                      "-f lavfi -i aevalsrc='sin(300*t)|sin(400*t)|sin(500*t)|"
                                      "sin(600*t)|sin(700*t)|sin(800*t)'"
                                      ":channel_layout=5.1\\(side\\):s=48000:d=3 -c:a ac3"),
                   ff::StreamType::Audio));
    ASSERT_EQ(decoder.streamContex()->channel_layout, 0x60fU) << "5.1(side)";
    ASSERT_TRUE(set_speed(1.5));
    EXPECT_GT(play(&decoder, 0, 15), 15 * 4800 / 2);
    EXPECT_EQ(log.count("filter"), log.count("excute filter failed: Resource temporarily"))
        << "a graph that refuses its input says so";
}

// Reverse

TEST_F(FFDecoder2Test, CountsTimesFromTheEndInReverse) {
    open(video());
    decoder.setRevert(true);
    EXPECT_EQ(asked_ticks({0, 1}), decoder.streamContex()->duration);
    EXPECT_EQ(asked_ticks({10, 1}), decoder.streamContex()->duration - ticks({10, 1}));
    const std::shared_ptr<ff::VFrameCtx> picture = picture_at({5, 1});
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->pts, 15000000);
    decoder.setRevert(false);
    EXPECT_EQ(asked_ticks({10, 1}), ticks({10, 1}));
}

TEST_F(FFDecoder2Test, MultipliesBeforeItReverses) {
    open(video());
    ASSERT_TRUE(set_speed(2.0));
    decoder.setRevert(true);
    EXPECT_EQ(asked_ticks({3, 1}), decoder.streamContex()->duration - ticks({6, 1}));
    EXPECT_EQ(asked_ticks({0, 1}), decoder.streamContex()->duration);
}

TEST_F(FFDecoder2Test, ReversesNothingButVideo) {
    StderrCapture none;
    decoder.setRevert(true);
    EXPECT_EQ(none.text(), "(stream.type=-1) unsupport revert ...\n");
    open(sound());
    StderrCapture audio;
    decoder.setRevert(true);
    EXPECT_EQ(audio.text(), "(stream.type=1) unsupport revert ...\n");
    EXPECT_EQ(asked_audio_ticks({{1, 1}, {2, 1}}), ticks({1, 1}));
    open(stream_of(fw_test::clip_subrip(), ff::StreamType::Video));
    EXPECT_EQ(asked_ticks({1, 1}), ticks({1, 1})) << "the attempts before must not count";
}

TEST_F(FFDecoder2Test, DoesNotChangeTheReverseOfPicturesOnAnotherStream) {
    open(video());
    decoder.setRevert(true);
    open(sound());
    StderrCapture error;
    decoder.setRevert(false);
    EXPECT_EQ(error.text(), "(stream.type=1) unsupport revert ...\n");
    open(video());
    EXPECT_EQ(asked_ticks({0, 1}), decoder.streamContex()->duration);
}

TEST_F(FFDecoder2Test, SurvivesReverseOfAnUnknownDuration) {
    // The library knows streams by their address, also after a decoder is closed.
    static ff::StreamCtx unknown = *video();
    unknown.duration = std::numeric_limits<std::int64_t>::min();
    open(&unknown);
    decoder.setRevert(true);
    (void)picture_at({0, 1});
    (void)picture_at({10, 1});
    decoder.setRevert(false);
    const std::shared_ptr<ff::VFrameCtx> picture = picture_at({1, 1});
    ASSERT_TRUE(picture);
    EXPECT_EQ(picture->pts, 1000000);
}

// Filters

/// One plane of a picture, its rows turned around if asked.
std::string plane_of(const ff::VFrameCtx& picture, int plane, bool mirrored) {
    const int width = plane == 0 ? picture.width : picture.width / 2;
    const int height = plane == 0 ? picture.height : picture.height / 2;
    std::string bytes;
    for (int y = 0; y < height; ++y) {
        const auto* const start =
            reinterpret_cast<const char*>(picture.data[plane]) + y * picture.linesize[plane];
        std::string row(start, static_cast<std::size_t>(width));
        if (mirrored) {
            std::reverse(row.begin(), row.end());
        }
        bytes += row;
    }
    return bytes;
}

bool is_mirror_of(const ff::VFrameCtx& a, const ff::VFrameCtx& b) {
    return plane_of(a, 0, true) == plane_of(b, 0, false) &&
           plane_of(a, 1, true) == plane_of(b, 1, false) &&
           plane_of(a, 2, true) == plane_of(b, 2, false);
}

bool is_same(const ff::VFrameCtx& a, const ff::VFrameCtx& b) {
    return plane_of(a, 0, false) == plane_of(b, 0, false);
}

TEST_F(FFDecoder2Test, RunsPicturesThroughTheHostsFilters) {
    open(video());
    const std::shared_ptr<ff::VFrameCtx> plain = picture_at({1, 1});
    ASSERT_TRUE(set_filters("hflip"));
    const std::shared_ptr<ff::VFrameCtx> mirrored = picture_at({1, 1});
    ASSERT_TRUE(set_filters("null"));
    const std::shared_ptr<ff::VFrameCtx> again = picture_at({1, 1});
    ASSERT_TRUE(plain && mirrored && again);
    EXPECT_TRUE(is_mirror_of(*mirrored, *plain));
    EXPECT_FALSE(is_same(*mirrored, *plain));
    EXPECT_TRUE(is_same(*again, *plain));
    EXPECT_EQ(mirrored->pts, plain->pts);
}

TEST_F(FFDecoder2Test, RunsAStillThroughFiltersThatChange) {
    open(stream_of(fw_test::clip_png(), ff::StreamType::Video));
    const std::shared_ptr<ff::VFrameCtx> plain = picture_at({0, 1});
    ASSERT_TRUE(set_filters("hflip"));
    const std::shared_ptr<ff::VFrameCtx> mirrored = picture_at({0, 1});
    ASSERT_TRUE(set_filters(""));
    const std::shared_ptr<ff::VFrameCtx> again = picture_at({0, 1});
    ASSERT_TRUE(plain && mirrored && again);
    EXPECT_FALSE(is_same(*mirrored, *plain)) << "the picture that was kept is not to be shown";
    EXPECT_TRUE(is_same(*again, *plain));
}

TEST_F(FFDecoder2Test, RunsSoundThroughTheHostsFilters) {
    open(sound());
    ff::RequireAudioFrame req;
    req.range = {{1, 1}, {11, 10}};
    const std::shared_ptr<ff::AFrameCtx> loud = decoder.getAudioFrame(req);
    ASSERT_TRUE(set_filters("volume=0"));
    const std::shared_ptr<ff::AFrameCtx> silent = decoder.getAudioFrame(req);
    ASSERT_TRUE(loud && silent);
    EXPECT_EQ(silent->nb_samples, loud->nb_samples);
    EXPECT_NE(bytes_of(loud), std::string(bytes_of(loud).size(), '\0'));
    EXPECT_EQ(bytes_of(silent), std::string(bytes_of(silent).size(), '\0'));
}

TEST_F(FFDecoder2Test, GoesOnWithoutFiltersWhenTheyAreRefused) {
    const QuietFFmpeg quiet;
    open(video());
    const std::shared_ptr<ff::VFrameCtx> plain = picture_at({1, 1});
    ASSERT_TRUE(set_filters("hflip"));
    std::vector<const char*> all = {
        "nosuchfilter", "hflip,,", "[in]hflip[x]", "volume=0.5", "scale=w=-5:h=7:nonsense=1", ","};
    if (avfilter_version() >> 16 <= 8) {
        all.push_back("hflip,");  // 7.1 takes it
    }
    for (const char* const refused : all) {
        EXPECT_FALSE(set_filters(refused)) << refused;
        const std::shared_ptr<ff::VFrameCtx> picture = picture_at({1, 1});
        ASSERT_TRUE(plain && picture);
        EXPECT_TRUE(is_same(*picture, *plain)) << refused;
    }
    EXPECT_FALSE(set_speed(2.0)) << "the description is kept, and refused again";
    EXPECT_EQ(decoder.speed(), 2.0);
    EXPECT_EQ(asked_ticks({1, 1}), ticks({2, 1}));
    EXPECT_TRUE(set_filters("hflip"));
}

TEST_F(FFDecoder2Test, GoesOnWithSoundWhenFiltersAreRefused) {
    const QuietFFmpeg quiet;
    open(sound());
    EXPECT_FALSE(set_filters("hflip"));
    EXPECT_FALSE(set_speed(1.5));
    EXPECT_GT(play(&decoder, 0, 5), 0);
    EXPECT_TRUE(set_filters(nullptr));
    EXPECT_TRUE(set_speed(1.0));
    EXPECT_EQ(play(&decoder, 0, 5), 5 * 4410);
}

TEST_F(FFDecoder2Test, RunsNoFiltersAfterACloseUntilTheyAreSetAgain) {
    open(video());
    const std::shared_ptr<ff::VFrameCtx> plain = picture_at({2, 1});
    ASSERT_TRUE(set_filters("hflip"));
    ASSERT_TRUE(set_speed(2.0));
    decoder.close();
    ASSERT_TRUE(decoder.reopen());
    EXPECT_EQ(decoder.speed(), 2.0);
    const std::shared_ptr<ff::VFrameCtx> reopened = picture_at({1, 1});
    ASSERT_TRUE(plain && reopened);
    EXPECT_EQ(reopened->pts, 2000000) << "times go on being mapped";
    EXPECT_TRUE(is_same(*reopened, *plain));
    ASSERT_TRUE(set_speed(1.0));
    const std::shared_ptr<ff::VFrameCtx> mirrored = picture_at({2, 1});
    ASSERT_TRUE(mirrored);
    EXPECT_TRUE(is_mirror_of(*mirrored, *plain)) << "the description was kept";
}

TEST_F(FFDecoder2Test, KeepsReverseOverAReopen) {
    open(video());
    decoder.setRevert(true);
    decoder.close();
    ASSERT_TRUE(decoder.reopen());
    EXPECT_EQ(asked_ticks({0, 1}), decoder.streamContex()->duration);
}

TEST_F(FFDecoder2Test, ForgetsFiltersThatWereSetForAnotherStreamWhileItWasClosed) {
    open(video());
    decoder.close();
    ASSERT_TRUE(set_filters("hflip"));
    open(stream_of(fw_test::clip_mpeg4_avi(), ff::StreamType::Video));
    const std::shared_ptr<ff::VFrameCtx> picture = picture_at({1, 1});
    ff::FFDecoder plain;
    ASSERT_TRUE(plain.open(decoder.streamContex()));
    ff::RequireVideoFrame req;
    req.time = {1, 1};
    req.format = ff::PixelFormat::Yuv420p;
    const std::shared_ptr<ff::VFrameCtx> expected = plain.getVideoFrame(req);
    ASSERT_TRUE(picture && expected);
    EXPECT_TRUE(is_same(*picture, *expected));
}

TEST_F(FFDecoder2Test, AnswersBeforeItIsOpened) {
    EXPECT_TRUE(set_speed(2.0)) << "there are no filters to set up for pictures";
    EXPECT_EQ(decoder.speed(), 2.0);
    EXPECT_TRUE(set_filters(nullptr));
    EXPECT_FALSE(set_filters("hflip"));
    EXPECT_EQ(log.count_exactly("no support for stream->type='-1'"), 1U);
    EXPECT_FALSE(picture_at({1, 1}));
    open(video());
    EXPECT_EQ(asked_ticks({1, 1}), ticks({2, 1}));
    const std::shared_ptr<ff::VFrameCtx> plain = picture_at({1, 1});
    ASSERT_TRUE(set_speed(1.0));
    const std::shared_ptr<ff::VFrameCtx> mirrored = picture_at({2, 1});
    ASSERT_TRUE(plain && mirrored);
    EXPECT_TRUE(is_mirror_of(*mirrored, *plain)) << "set before it was opened, used from now on";
}

TEST_F(FFDecoder2Test, RefusesFiltersForSubtitles) {
    ff::FFDecoder2 other;
    const StderrCapture quiet;
    (void)other.open(stream_of(fw_test::clip_subrip(), ff::StreamType::Subtitle));
    EXPECT_FALSE(other.setFilters("hflip"));
    EXPECT_EQ(log.count_exactly("no support for stream->type='2'"), 1U);
    EXPECT_TRUE(other.setFilters(""));
}

// Subclasses

/// A host that wants every other picture of the output.
class Halved final : public ff::FFDecoder2 {
public:
    ~Halved() override { close(); }

    std::shared_ptr<ff::VFrameCtx> pri_getVideoFrame(const ff::RequireVideoFrame& req,
                                                     int serial) override {
        ff::RequireVideoFrame copy{req.time, req.format, req.divider, req.abort_flag};
        copy.time = req.time * ff::Rational{2, 1};
        return FFDecoder2::pri_getVideoFrame(copy, serial);
    }
};

TEST_F(FFDecoder2Test, CallsWhatASubclassOverrides) {
    Halved halved;
    ASSERT_TRUE(halved.open(video()));
    {
        const StderrCapture quiet;
        ASSERT_TRUE(halved.setSpeed(1.5));
    }
    ff::RequireVideoFrame req;
    req.time = {1, 1};
    ASSERT_TRUE(halved.getVideoFrame(req));
    EXPECT_EQ(halved.getVideoFrame(req)->pts, 3000000);
}

}  // namespace
