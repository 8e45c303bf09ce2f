// What the documents show between their lines; each piece between two markers is printed there.

#include "base/log.h"
#include "tests/support/decoders.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_folder.h"

#include <framewell/framewell.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// [log-source]
namespace {
constexpr char kLogSource[] = "src/ffdec_task";  // the module, not the file that it is split into
}

// [log-source]

namespace {

using fw_test::clip_small;
using fw_test::stream_of;

constexpr int kError = -2;  // ENOENT

}  // namespace

TEST(DocumentsTest, PicturesAreAskedForByTheirStarts) {
    const ff::StreamCtx* const stream = stream_of(clip_small());
    const ff::MovieCtx* const movie = stream->movie;
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream));
    ff::RequireVideoFrame request;
    const int n = 17;
    std::shared_ptr<ff::VFrameCtx> picture;
    {
        // [picture-number]
        // Picture number n of a stream of constant rate that starts with the movie:
        request.time = ff::Rational{n, 1} / stream->frame_rate;
        // [picture-number]
        picture = decoder.getVideoFrame(request);
        ASSERT_NE(picture, nullptr);
        EXPECT_EQ(picture->pts, 566667);  // 17/30 s
    }
    {
        // [picture-time]
        // A picture that a result told of (microseconds in the file):
        request.time = ff::Rational{picture->pts - movie->start_time, 1000000};
        // [picture-time]
        const auto again = decoder.getVideoFrame(request);
        ASSERT_NE(again, nullptr);
        EXPECT_EQ(again->pts, picture->pts);
    }
}

TEST(DocumentsTest, PicturesOfAStreamAreWalkedByTicks) {
    const ff::StreamCtx* const stream = stream_of(fw_test::clip_variable_rate());
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream));
    std::vector<std::int64_t> starts;
    // [walk]
    // Every picture of a stream, whatever its rate: the picture at each of its ticks, less those
    // that are the same as before. `start` is the movie's start in ticks of the stream.
    const long long start =
        ff::time_to_timestamp({stream->movie->start_time, 1000000}, stream->time_base);
    std::int64_t shown = INT64_MIN;
    for (long long tick = stream->start_time; tick < stream->start_time + stream->duration;
         tick++) {
        ff::RequireVideoFrame request;
        request.time = ff::timestamp_to_time(tick - start, stream->time_base);
        request.divider = 8;  // only the times are wanted
        const auto picture = decoder.getVideoFrame(request);
        if (picture && picture->pts != shown) {
            shown = picture->pts;
            starts.push_back(shown);
        }
    }
    // [walk]
    EXPECT_EQ(starts, fw_test::picture_times_us(*stream));
}

TEST(DocumentsTest, LevelsAndCallbacksAreSet) {
    mox::Logger logger;
    mox::Logger::instance(&logger);
    // [log-level]
    mox::Logger::instance()->setLevel(mox::MoxLogDebug);  // levels up to 5
    // [log-level]
    EXPECT_TRUE(logger.wants(5));
    // [log-nothing]
    mox::Logger::instance()->setLevel(-1);  // nothing
    // [log-nothing]
    EXPECT_FALSE(logger.wants(2));
    std::string seen;
    // [log-callback]
    mox::Logger::instance()->setCallback(
        [&seen](const char* tag, int level, const char* file, int line, const char* message) {
            seen = std::string(tag) + " " + std::to_string(level) + " " + file + ":" +
                   std::to_string(line) + " " + message;
        });
    // [log-callback]
    EXPECT_EQ(ff::FFDecoder::probe("missing.mp4"), nullptr);
    EXPECT_EQ(seen.rfind("bg 2 src/ffdec_probe:", 0), 0U) << seen;
    EXPECT_NE(seen.find(" \"can't open input file: missing.mp4\"\n"), std::string::npos) << seen;
}

TEST(DocumentsTest, ModulesWriteMessagesByOneMacro) {
    fw_test::LogCapture log;
    const char* const path = "clip.mp4";
    const int error = kError;
    using ff::ffmpeg_error;
    // [log-write]
    FW_LOG(2, "bg", "failed to open: %s, %s", path, ffmpeg_error(error));
    // [log-write]
    EXPECT_EQ(log.texts(2),
              std::vector<std::string>{"failed to open: clip.mp4, No such file or directory"});
}

TEST(DocumentsTest, SettingsBoundCaches) {
    // [settings]
    mox::Data::instance()->set("dec.max_vf", mox::Value::integer(2));   // pictures per worker
    mox::Data::instance()->set("dec.max_af", mox::Value::integer(50));  // frames of sound
    ff::FFDecoder::memCollection(0);                                    // what is idle goes back
    // [settings]
    EXPECT_EQ(mox::Data::instance()->integer("dec.max_vf", 8), 2);
    EXPECT_EQ(mox::Data::instance()->integer("dec.max_af", 500), 50);
    EXPECT_EQ(ff::FFDecoder::memCollection(0), 0U);
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream_of(clip_small())));
    EXPECT_NE(decoder.getVideoFrame(fw_test::picture_at({1, 1})), nullptr);
}

TEST(DocumentsTest, ARequestIsCancelledFromAnotherThread) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_h264_long_gop())));
    // [cancel]
    std::atomic<bool> cancel{false};
    ff::RequireVideoFrame request;
    request.time = {15, 1};
    request.abort_flag = &cancel;
    std::thread user([&cancel] { cancel = true; });  // who no longer wants it
    const auto picture = decoder.getVideoFrame(request);
    user.join();
    // [cancel]
    cancel = true;
    EXPECT_EQ(decoder.getVideoFrame(request), nullptr);
}

TEST(DocumentsTest, ADeviceIsTriedBeforeSoftware) {
    const fw_test::LogCapture quiet;
    const ff::StreamCtx* const stream = stream_of(clip_small());
    ff::FFDecoder decoder;
    // [hardware]
    if (!ff::hw_enable_device("vaapi")) {
        // not a type that this FFmpeg knows: the earlier choice (none at first) stays
    }
    const bool is_open = decoder.open(stream);  // on the device if it can be, else in software
    // [hardware]
    EXPECT_TRUE(is_open);
    EXPECT_NE(decoder.getVideoFrame(ff::RequireVideoFrame{}), nullptr);
    ff::hw_disable();
}

TEST(DocumentsTest, SoundIsKeptInFilesPerPlane) {
    const fw_test::TemporaryFolder folder;
    const std::string left = folder.path("left.pcm");
    const std::string right = folder.path("right.pcm");
    std::vector<float> one(1000);
    std::vector<float> two(1000);
    for (std::size_t i = 0; i < one.size(); ++i) {
        one[i] = static_cast<float>(i);
        two[i] = -one[i];
    }
    const std::uint8_t* planes[] = {reinterpret_cast<const std::uint8_t*>(one.data()),
                                    reinterpret_cast<const std::uint8_t*>(two.data())};
    float taken[2][100] = {};
    std::uint8_t* buffers[] = {reinterpret_cast<std::uint8_t*>(taken[0]),
                               reinterpret_cast<std::uint8_t*>(taken[1])};
    const int bytes = 4000;
    const int part = 400;
    const long long first_sample = 300;
    // [wave-files]
    ff::WaveFiles store;
    store.open({left, right}, "wb");
    store.write(planes, bytes);  // as often as there is sound
    store.open({left, right}, "rb");
    store.seek(first_sample * 4, SEEK_SET);  // 32-bit samples
    const int got = store.read(buffers, 0, part);
    // [wave-files]
    EXPECT_EQ(got, part);
    EXPECT_EQ(taken[0][0], 300);
    EXPECT_EQ(taken[1][99], -399);
}
