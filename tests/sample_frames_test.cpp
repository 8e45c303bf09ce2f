#include "sample_frames.h"

#include "tests/support/log_capture.h"

#include <framewell/frame.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

namespace ff {
namespace {

using fw_test::LogCapture;

StreamCtx stream_of(int rate, int channels = 2, int format = AV_SAMPLE_FMT_S16) {
    StreamCtx stream{};
    stream.sample_rate = rate;
    stream.channels = channels;
    stream.sample_fmt = format;
    return stream;
}

/// A frame of samples that all have one value, of 16 bits.
std::shared_ptr<AVFrame> constant(int rate, int nb_samples, std::int16_t value, int channels = 2) {
    std::shared_ptr<AVFrame> frame =
        create_avframe_with(channels, rate, AV_SAMPLE_FMT_S16, nb_samples);
    auto* const samples = reinterpret_cast<std::int16_t*>(frame->data[0]);
    std::fill(samples, samples + nb_samples * channels, value);
    return frame;
}

std::int16_t sample_of(const AVFrame& frame, int index) {
    std::int16_t sample = 0;
    std::memcpy(&sample, frame.data[0] + static_cast<std::size_t>(index) * sizeof sample,
                sizeof sample);
    return sample;
}

TEST(ReusedFrameTest, HasTheFormOfTheStream) {
    StreamCtx stream = stream_of(44100, 6, AV_SAMPLE_FMT_FLTP);
    stream.channel_layout = 0x60F;  // 5.1 with side channels, which six channels alone do not mean
    ReusedFrame reused;
    const std::shared_ptr<AVFrame> frame = reused.take(stream, 100);
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->nb_samples, 100);
    EXPECT_EQ(frame->sample_rate, 44100);
    EXPECT_EQ(frame->format, AV_SAMPLE_FMT_FLTP);
    EXPECT_EQ(compat::channel_count(*frame), 6);
    EXPECT_EQ(compat::channel_mask(*frame), 0x60FU);
}

TEST(ReusedFrameTest, IsTheSameForSpansThatFitIntoIt) {
    const StreamCtx stream = stream_of(48000);
    ReusedFrame reused;
    const AVFrame* const first = reused.take(stream, 1600).get();
    EXPECT_EQ(reused.take(stream, 10).get(), first);
    const std::shared_ptr<AVFrame> again = reused.take(stream, 1600);
    EXPECT_EQ(again.get(), first);
    EXPECT_EQ(again->nb_samples, 1600);
}

TEST(ReusedFrameTest, HasRoomForALongerSpan) {
    const StreamCtx stream = stream_of(48000);
    ReusedFrame reused;
    (void)reused.take(stream, 10);
    const std::shared_ptr<AVFrame> longer = reused.take(stream, 100000);
    ASSERT_NE(longer, nullptr);
    std::memset(longer->data[0], 1, 100000 * 4);  // watched by the address sanitizer
}

TEST(ReusedFrameTest, IsAnotherOneWhileTheLastIsHeld) {
    const StreamCtx stream = stream_of(48000);
    ReusedFrame reused;
    const std::shared_ptr<AVFrame> held = reused.take(stream, 100);
    EXPECT_NE(reused.take(stream, 100).get(), held.get());
}

TEST(ReusedFrameTest, IsAnotherOneWhileItsSamplesAreHeld) {
    const StreamCtx stream = stream_of(48000);
    ReusedFrame reused;
    const FramePtr clone(av_frame_clone(reused.take(stream, 100).get()));
    ASSERT_NE(clone, nullptr);
    EXPECT_NE(reused.take(stream, 100)->data[0], clone->data[0]);
}

TEST(ReusedFrameTest, FollowsTheStream) {
    ReusedFrame reused;
    (void)reused.take(stream_of(48000), 1000);
    EXPECT_EQ(reused.take(stream_of(44100), 100)->sample_rate, 44100);
    EXPECT_EQ(compat::channel_count(*reused.take(stream_of(44100, 1), 100)), 1);
    EXPECT_EQ(reused.take(stream_of(44100, 1, AV_SAMPLE_FMT_FLT), 100)->format, AV_SAMPLE_FMT_FLT);
}

TEST(ReusedFrameTest, IsEmptyWhereThereCanBeNoSamples) {
    ReusedFrame reused;
    EXPECT_EQ(reused.take(stream_of(48000, 0), 100), nullptr);
    EXPECT_EQ(reused.take(stream_of(48000, 2, AV_SAMPLE_FMT_NONE), 100), nullptr);
    EXPECT_NE(reused.take(stream_of(48000), 100), nullptr) << "and is of use afterwards";
}

TEST(FrameRefitterTest, LeavesFramesOfTheAnnouncedFormAlone) {
    FrameRefitter refitter;
    const auto frame = constant(48000, 100, 5);
    const auto pieces = refitter.fit(stream_of(48000), frame, "test");
    EXPECT_EQ(pieces[0], nullptr);
    EXPECT_EQ(pieces[1], frame);
    EXPECT_EQ(refitter.take_rest(stream_of(48000)), nullptr);
}

TEST(FrameRefitterTest, GivesAllSamplesOfAStretchInAnotherRate) {
    const StreamCtx stream = stream_of(48000);
    FrameRefitter refitter;
    int samples = 0;
    for (int i = 0; i < 10; ++i) {
        for (const auto& piece : refitter.fit(stream, constant(24000, 100, 1000), "test")) {
            samples += piece ? piece->nb_samples : 0;
        }
    }
    EXPECT_LT(samples, 2000) << "something is held back";
    const auto back = constant(48000, 7, 5);
    const auto pieces = refitter.fit(stream, back, "test");
    ASSERT_NE(pieces[0], nullptr);
    EXPECT_EQ(pieces[1], back);
    // The filter's own delay may add a few.
    EXPECT_NEAR(samples + pieces[0]->nb_samples, 2000, 32);
}

TEST(FrameRefitterTest, GivesTheRestBeforeAStretchInAThirdForm) {
    const StreamCtx stream = stream_of(48000);
    FrameRefitter refitter;
    (void)refitter.fit(stream, constant(24000, 1000, 1000), "test");
    const auto pieces = refitter.fit(stream, constant(12000, 1000, 1000), "test");
    EXPECT_NE(pieces[0], nullptr);
    EXPECT_NE(pieces[1], nullptr);
    EXPECT_NE(refitter.take_rest(stream), nullptr);
    EXPECT_EQ(refitter.take_rest(stream), nullptr) << "there is only one";
}

TEST(FrameRefitterTest, MixesChannels) {
    const StreamCtx stream = stream_of(48000);
    FrameRefitter refitter;
    const auto pieces = refitter.fit(stream, constant(48000, 100, 1000, 1), "test");
    ASSERT_NE(pieces[1], nullptr);
    EXPECT_EQ(compat::channel_count(*pieces[1]), 2);
    EXPECT_EQ(pieces[1]->nb_samples, 100);
    EXPECT_EQ(sample_of(*pieces[1], 0), sample_of(*pieces[1], 1));
    EXPECT_NE(sample_of(*pieces[1], 0), 0);
}

TEST(FrameRefitterTest, ForgetsWhatIsHeldBack) {
    const StreamCtx stream = stream_of(48000);
    FrameRefitter refitter;
    (void)refitter.fit(stream, constant(24000, 1000, 1000), "test");
    refitter.reset();
    EXPECT_EQ(refitter.take_rest(stream), nullptr);
}

TEST(FrameRefitterTest, DropsAFrameThatCannotBeConverted) {
    const LogCapture log;
    FrameRefitter refitter;
    const auto frame = constant(48000, 100, 5);
    frame->sample_rate = 0;
    const auto pieces = refitter.fit(stream_of(48000), frame, "dec_1");
    EXPECT_EQ(pieces[0], nullptr);
    EXPECT_EQ(pieces[1], nullptr);
    EXPECT_TRUE(log.contains("a frame in another sample format is dropped: Invalid argument"));
}

}  // namespace
}  // namespace ff
