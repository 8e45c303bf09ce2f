// Reads that fail, decoders that give nothing any more, seeks that are refused: requests end with
// the failure value, and are answered exactly when the trouble is over.

#include "tests/hw/libav_hooks.h"
#include "tests/support/decoders.h"
#include "tests/support/demux_hooks.h"
#include "tests/support/engine.h"
#include "tests/support/temp_file.h"
#include "tests/support/watchdog.h"

#include <framewell/ffdecoder.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using fw_test::g_demux_hooks;
using fw_test::g_hooks;
using fw_test::HookScope;
using fw_test::LogCapture;
using fw_test::luma_of;
using fw_test::picture_at;
using fw_test::sound_of;
using fw_test::stream_of;
using fw_test::TempFile;
using fw_test::Watchdog;
using Texts = std::vector<std::string>;

constexpr int kRate = 44100;

const ff::StreamCtx* video() {
    return stream_of(fw_test::clip_h264());
}

const ff::StreamCtx* sound() {
    return stream_of(fw_test::clip_pcm(), ff::StreamType::Audio);
}

std::shared_ptr<ff::FFDecoder> opened(const ff::StreamCtx* stream) {
    auto decoder = std::make_shared<ff::FFDecoder>();
    if (!decoder->open(stream)) {
        throw std::runtime_error("the clip cannot be opened");
    }
    return decoder;
}

class StoppedTest : public testing::Test {
protected:
    /// Lets so many packets pass, then fails the next `failures`.
    static void fail_reads_after(int packets, int failures) {
        const auto count = std::make_shared<int>(0);
        g_demux_hooks.read_packet = [=](AVPacket*) {
            const int number = (*count)++;
            return number >= packets && number - packets < failures
                       ? std::optional<int>(AVERROR(EIO))
                       : std::nullopt;
        };
    }

    static std::string samples_of(const std::shared_ptr<ff::AFrameCtx>& sound) {
        return sound == nullptr ? ""
                                : std::string(reinterpret_cast<char*>(sound->buffer),
                                              static_cast<std::size_t>(sound->size));
    }

    static constexpr int kForEver = std::numeric_limits<int>::max();

    HookScope hooks;
    Watchdog watchdog{"a decoder that gets nothing any more"};
};

TEST_F(StoppedTest, APictureWhoseReadsFailIsNoneAndComesWhenTheyPass) {
    const auto decoder = opened(video());
    const auto expected = decoder->getVideoFrame(picture_at({3, 2}));
    ASSERT_NE(expected, nullptr);
    for (const int packets : {0, 1, 7, 20}) {
        decoder->close();
        ASSERT_TRUE(decoder->open(video()));
        {
            fail_reads_after(packets, kForEver);
            const LogCapture log;
            EXPECT_EQ(decoder->getVideoFrame(picture_at({3, 2})), nullptr) << packets;
            EXPECT_GT(log.count("read packet failed: Input/output error"), 0U);
        }
        g_demux_hooks.read_packet = nullptr;
        const auto picture = decoder->getVideoFrame(picture_at({3, 2}));
        ASSERT_NE(picture, nullptr) << packets;
        EXPECT_EQ(picture->pts, expected->pts);
        EXPECT_EQ(luma_of(*picture), luma_of(*expected)) << packets;
    }
}

TEST_F(StoppedTest, AFewFailedReadsAreTriedAgain) {
    const auto decoder = opened(video());
    const auto expected = decoder->getVideoFrame(picture_at({5, 2}));
    decoder->close();
    ASSERT_TRUE(decoder->open(video()));
    fail_reads_after(10, 3);
    const LogCapture log;
    const auto picture = decoder->getVideoFrame(picture_at({5, 2}));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(luma_of(*picture), luma_of(*expected));
    EXPECT_EQ(log.count("read packet failed: Input/output error"), 3U);
}

TEST_F(StoppedTest, SoundWhoseReadsFailEndsThereAndComesWhenTheyPass) {
    const auto decoder = opened(sound());
    const std::string expected = samples_of(decoder->getAudioFrame(sound_of({{0, 1}, {2, 1}})));
    ASSERT_EQ(expected.size(), 2U * kRate * 4);
    decoder->close();
    ASSERT_TRUE(decoder->open(sound()));
    {
        fail_reads_after(10, kForEver);
        const LogCapture log;
        const std::string part = samples_of(decoder->getAudioFrame(sound_of({{0, 1}, {2, 1}})));
        EXPECT_LT(part.size(), expected.size());
        EXPECT_EQ(part, expected.substr(0, part.size()));
        EXPECT_GT(log.count("read packet failed: Input/output error"), 0U);
    }
    g_demux_hooks.read_packet = nullptr;
    EXPECT_EQ(samples_of(decoder->getAudioFrame(sound_of({{0, 1}, {2, 1}}))), expected);
}

TEST_F(StoppedTest, AProbeWhoseReadsFailEnds) {
    const TempFile file("probe.h264", fw_test::read_file(fw_test::clip_raw_h264()));
    fail_reads_after(12, kForEver);
    const LogCapture log;
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(file.path().c_str());
    ASSERT_NE(movie, nullptr);
    EXPECT_EQ(movie->nb_streams, 1);
    EXPECT_GT(log.count("read packet failed: Input/output error"), 0U);
}

TEST_F(StoppedTest, ADecoderThatStopsGivingFramesIsGivenUpUntilItGoesOn) {
    const auto decoder = opened(video());
    const auto expected = decoder->getVideoFrame(picture_at({3, 1}));
    ASSERT_NE(expected, nullptr);
    decoder->close();
    ASSERT_TRUE(decoder->open(video()));
    ASSERT_NE(decoder->getVideoFrame(picture_at({0, 1})), nullptr);
    {
        g_hooks.receive_frame = [](AVCodecContext*, AVFrame*) { return AVERROR(EAGAIN); };
        const LogCapture log;
        EXPECT_EQ(decoder->getVideoFrame(picture_at({3, 1})), nullptr);
        EXPECT_GT(log.count("failed to dec frame: Resource temporarily unavailable"), 0U);
    }
    g_hooks = fw_test::Hooks();
    const LogCapture quiet;
    const auto picture = decoder->getVideoFrame(picture_at({3, 1}));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(luma_of(*picture), luma_of(*expected));
}

TEST_F(StoppedTest, ADecoderThatNeverGivesAFrameIsBrokenUntilItIsOpenedAnew) {
    const auto decoder = opened(video());
    {
        bool at_end = false;
        g_demux_hooks.send_packet = [&at_end](const AVPacket* packet) {
            at_end = packet == nullptr;
            return std::optional<int>(0);
        };
        g_hooks.receive_frame = [&at_end](AVCodecContext*, AVFrame*) {
            return at_end ? AVERROR_EOF : AVERROR(EAGAIN);
        };
        const LogCapture log;
        EXPECT_EQ(decoder->getVideoFrame(picture_at({0, 1})), nullptr);
        EXPECT_EQ(log.texts(2), Texts{"bad movie: unexpected eof"});
    }
    g_hooks = fw_test::Hooks();
    g_demux_hooks.send_packet = nullptr;
    const LogCapture quiet;
    EXPECT_EQ(decoder->getVideoFrame(picture_at({0, 1})), nullptr);
    decoder->close();
    ASSERT_TRUE(decoder->reopen());
    EXPECT_NE(decoder->getVideoFrame(picture_at({0, 1})), nullptr);
}

TEST_F(StoppedTest, SeeksThatAlwaysFailAreMadeGoodByOpeningTheFileAgain) {
    const auto decoder = opened(video());
    std::vector<std::string> expected;
    const std::vector<int> seconds{3, 1, 2, 0};
    for (const int second : seconds) {
        expected.push_back(luma_of(*decoder->getVideoFrame(picture_at({second, 1}))));
    }
    decoder->close();
    ASSERT_TRUE(decoder->open(video()));
    g_demux_hooks.seek = [](int, std::int64_t, int) { return AVERROR(EPERM); };
    for (std::size_t i = 0; i < seconds.size(); ++i) {
        const LogCapture log;
        const auto picture = decoder->getVideoFrame(picture_at({seconds[i], 1}));
        ASSERT_NE(picture, nullptr) << seconds[i];
        EXPECT_EQ(luma_of(*picture), expected[i]) << seconds[i];
        EXPECT_EQ(log.count("Seek Start failed, Reopen failed"), 0U);
    }
}

TEST_F(StoppedTest, SeeksThatFailInAFileThatIsGoneGiveNoWrongPicture) {
    const TempFile file("gone.mp4", fw_test::read_file(fw_test::clip_h264()));
    const auto decoder = opened(stream_of(file.path()));
    ASSERT_NE(decoder->getVideoFrame(picture_at({2, 1})), nullptr);
    g_demux_hooks.seek = [](int, std::int64_t, int) { return AVERROR(EPERM); };
    file.remove();
    for (const int second : {0, 1}) {
        const LogCapture log;
        EXPECT_EQ(decoder->getVideoFrame(picture_at({second, 2})), nullptr) << second;
        EXPECT_EQ(log.count_exactly("Seek Start failed, Reopen failed: " + file.path()), 1U);
    }
    g_demux_hooks.seek = nullptr;
    const auto picture =
        decoder->getVideoFrame(picture_at({1, 2}));  // the open file is still there
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->pts, 500000);
}

}  // namespace
