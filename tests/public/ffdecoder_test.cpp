#include "tests/support/decoders.h"
#include "tests/support/log_capture.h"

#include <framewell/ffdecoder.h>

#include <gtest/gtest.h>

#include <memory>
#include <regex>
#include <string>
#include <vector>

namespace {

using ff::PixelFormat;
using ff::StreamType;
using fw_test::LogCapture;
using fw_test::luma_of;
using fw_test::picture_at;
using fw_test::stream_of;

/// Expects one message: its text, its level, its source path, and a decoder's tag.
void expect_only_line(const LogCapture& log, const std::string& text, int level,
                      const std::string& file) {
    const std::vector<fw_test::LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].message, fw_test::quoted(text));
    EXPECT_EQ(lines[0].level, level);
    EXPECT_EQ(lines[0].file, file);
    EXPECT_TRUE(std::regex_match(lines[0].tag, std::regex("dec_[1-9][0-9]*"))) << lines[0].tag;
}

class FFDecoderTest : public ::testing::Test {
protected:
    const ff::StreamCtx* const stream = stream_of(fw_test::clip_small());
    ff::FFDecoder decoder;
};

}  // namespace

// Opening and closing

TEST_F(FFDecoderTest, IsClosedAndWithoutStreamAtFirst) {
    EXPECT_FALSE(decoder.isOpened());
    EXPECT_EQ(decoder.streamContex(), nullptr);
}

TEST_F(FFDecoderTest, OpensAndCloses) {
    EXPECT_TRUE(decoder.open(stream));
    EXPECT_TRUE(decoder.isOpened());
    EXPECT_EQ(decoder.streamContex(), stream);
    decoder.close();
    EXPECT_FALSE(decoder.isOpened());
    EXPECT_EQ(decoder.streamContex(), stream);
    decoder.close();
    EXPECT_FALSE(decoder.isOpened());
}

TEST_F(FFDecoderTest, RefusesANullStream) {
    EXPECT_FALSE(decoder.open(nullptr));
    EXPECT_FALSE(decoder.isOpened());
    EXPECT_EQ(decoder.streamContex(), nullptr);
    EXPECT_FALSE(decoder.reopen());
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
}

TEST_F(FFDecoderTest, DoesNotReopenWhatWasNeverOpened) {
    EXPECT_FALSE(decoder.reopen());
    EXPECT_FALSE(decoder.isOpened());
}

TEST_F(FFDecoderTest, ReopensAfterClosing) {
    ASSERT_TRUE(decoder.open(stream));
    decoder.close();
    EXPECT_TRUE(decoder.reopen());
    EXPECT_TRUE(decoder.isOpened());
    EXPECT_EQ(decoder.streamContex(), stream);
    EXPECT_NE(decoder.getVideoFrame(picture_at({1, 1})), nullptr);
}

TEST_F(FFDecoderTest, OpensTwiceAndClosesOnce) {
    ASSERT_TRUE(decoder.open(stream));
    ASSERT_TRUE(decoder.open(stream));
    ASSERT_TRUE(decoder.reopen());
    EXPECT_NE(decoder.getVideoFrame(picture_at({1, 1})), nullptr);
    decoder.close();
    EXPECT_FALSE(decoder.isOpened());
    EXPECT_EQ(decoder.getVideoFrame(picture_at({1, 1})), nullptr);
}

TEST_F(FFDecoderTest, KeepsTheStreamOfAFailedOpen) {
    ff::StreamCtx missing;
    missing.index = 99;
    missing.type = StreamType::Video;
    missing.movie = stream->movie;
    LogCapture log;
    EXPECT_FALSE(decoder.open(&missing));
    EXPECT_FALSE(decoder.isOpened());
    EXPECT_EQ(decoder.streamContex(), &missing);
    EXPECT_EQ(log.texts(2), std::vector<std::string>{
                                "no such stream: " + std::string(stream->movie->path) + ", [99]"});
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
    EXPECT_TRUE(decoder.open(stream));
    EXPECT_NE(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
}

TEST_F(FFDecoderTest, StaysOpenWhenItCannotMoveToAnotherStream) {
    ff::StreamCtx missing;
    missing.index = 99;
    missing.type = StreamType::Video;
    missing.movie = stream->movie;
    ASSERT_TRUE(decoder.open(stream));
    EXPECT_FALSE(decoder.open(&missing));
    EXPECT_TRUE(decoder.isOpened());
    EXPECT_EQ(decoder.streamContex(), &missing);
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
    EXPECT_TRUE(decoder.open(stream));
    EXPECT_NE(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
}

TEST_F(FFDecoderTest, MovesToAnotherStream) {
    const ff::StreamCtx* const larger = stream_of(fw_test::clip_h264());
    ASSERT_TRUE(decoder.open(stream));
    ASSERT_NE(decoder.getVideoFrame(picture_at({1, 1})), nullptr);
    ASSERT_TRUE(decoder.open(larger));
    EXPECT_EQ(decoder.streamContex(), larger);
    const auto picture = decoder.getVideoFrame(picture_at({3, 1}));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->width, 320);
    EXPECT_EQ(picture->height, 240);
    EXPECT_EQ(picture->pts, 3000000);
}

TEST_F(FFDecoderTest, LeavesTheStillPictureBehindWhenItMoves) {
    const ff::StreamCtx* const still = stream_of(fw_test::clip_png());
    ASSERT_TRUE(decoder.open(still));
    const auto picture = decoder.getVideoFrame(picture_at({0, 1}));
    ASSERT_NE(picture, nullptr);
    ASSERT_TRUE(decoder.open(stream));
    const auto next = decoder.getVideoFrame(picture_at({1, 1}));
    ASSERT_NE(next, nullptr);
    EXPECT_NE(next, picture);
    EXPECT_EQ(next->pts, 1000000);
}

TEST_F(FFDecoderTest, TwoDecodersOfOneStreamCloseOneAfterTheOther) {
    ff::FFDecoder other;
    ASSERT_TRUE(decoder.open(stream));
    ASSERT_TRUE(other.open(stream));
    decoder.close();
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
    EXPECT_NE(other.getVideoFrame(picture_at({0, 1})), nullptr);
    other.close();
    EXPECT_EQ(other.getVideoFrame(picture_at({0, 1})), nullptr);
}

// What is told about the stream

TEST_F(FFDecoderTest, GivesDividerOneWithoutAVideoStream) {
    EXPECT_EQ(decoder.getImageDivider(ff::MemoryMode::ByResolution), 1);
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_aac(), StreamType::Audio)));
    for (int mode = -1; mode <= 3; ++mode) {
        EXPECT_EQ(decoder.getImageDivider(static_cast<ff::MemoryMode>(mode)), 1) << mode;
    }
}

TEST_F(FFDecoderTest, GivesTheDividerOfTheStreamsSize) {
    const ff::StreamCtx* const full_hd = stream_of(fw_test::clip_flat({81, 90, 240}, "1920x1080"));
    ASSERT_TRUE(decoder.open(full_hd));
    EXPECT_EQ(decoder.getImageDivider(ff::MemoryMode::Full), 1);
    EXPECT_EQ(decoder.getImageDivider(ff::MemoryMode::ByResolution), 2);
    decoder.close();
    EXPECT_EQ(decoder.getImageDivider(ff::MemoryMode::ByResolution), 2);
    ASSERT_TRUE(decoder.open(stream));
    EXPECT_EQ(decoder.getImageDivider(ff::MemoryMode::ByResolution), 1);
}

TEST_F(FFDecoderTest, ProbesAFileOnce) {
    const std::string path = fw_test::clip_small();
    EXPECT_EQ(ff::FFDecoder::probe(path.c_str()), ff::FFDecoder::probe(path.c_str(), nullptr));
    EXPECT_EQ(ff::FFDecoder::probe(path.c_str()), stream->movie);
}

TEST_F(FFDecoderTest, GivesIdleBuffersBackToTheSystem) {
    ASSERT_TRUE(decoder.open(stream));
    auto picture = decoder.getVideoFrame(picture_at({0, 1}));
    (void)ff::FFDecoder::memCollection(0);
    EXPECT_EQ(ff::FFDecoder::memCollection(0), 0U);
    picture.reset();
    EXPECT_EQ(ff::FFDecoder::memCollection(3600000), 0U);
    EXPECT_EQ(ff::FFDecoder::memCollection(0), 1U);
}

// Requests that get nothing

TEST_F(FFDecoderTest, AnswersNothingBeforeItIsOpen) {
    LogCapture log;
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
    expect_only_line(log, "no video stream to take a picture from", 2, "src/ffdecoder");
}

TEST_F(FFDecoderTest, AnswersNothingAfterItWasClosedThoughOthersAreOpen) {
    ff::FFDecoder other;
    ASSERT_TRUE(other.open(stream));
    ASSERT_NE(other.getVideoFrame(picture_at({1, 1})), nullptr);
    ASSERT_TRUE(decoder.open(stream));
    ASSERT_NE(decoder.getVideoFrame(picture_at({1, 1})), nullptr);
    decoder.close();
    LogCapture log;
    EXPECT_EQ(decoder.getVideoFrame(picture_at({1, 1})), nullptr);
    expect_only_line(log, "worker-list empty", 5, "src/ffdecoder_private");
}

TEST_F(FFDecoderTest, AnswersNothingOnAnAudioStream) {
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_aac(), StreamType::Audio)));
    LogCapture log;
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
    expect_only_line(log, "no video stream to take a picture from", 2, "src/ffdecoder");
}

TEST_F(FFDecoderTest, AnswersNothingOnASubtitleStreamAndDoesNotSeekThere) {
    const ff::StreamCtx* const subtitles = stream_of(fw_test::clip_subrip(), StreamType::Subtitle);
    (void)decoder.open(subtitles);  // there is a decoder for the text, but it gives no pictures
    EXPECT_EQ(decoder.streamContex(), subtitles);
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
    LogCapture log;
    decoder.pri_seek({1, 1}, false);
    decoder.pri_seek({1, 1}, true);
    EXPECT_EQ(log.texts(), std::vector<std::string>{});
}

TEST_F(FFDecoderTest, TagsItsMessagesWithItsOwnName) {
    ff::FFDecoder other;
    LogCapture log;
    (void)decoder.getVideoFrame(picture_at({0, 1}));
    (void)other.getVideoFrame(picture_at({0, 1}));
    (void)decoder.getVideoFrame(picture_at({0, 1}));
    const std::vector<fw_test::LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].tag, lines[2].tag);
    EXPECT_NE(lines[0].tag, lines[1].tag);
}

// Stale requests

TEST_F(FFDecoderTest, DropsARequestThatIsOlderThanAClose) {
    ASSERT_TRUE(decoder.open(stream));
    EXPECT_NE(decoder.pri_getVideoFrame(picture_at({1, 2}), 0), nullptr);
    decoder.close();
    ASSERT_TRUE(decoder.open(stream));
    LogCapture log;
    EXPECT_EQ(decoder.pri_getVideoFrame(picture_at({17, 30}), 0), nullptr);
    expect_only_line(log, "> 异步取画面，已过时： 17 (serials=0)", 5, "src/ffdecoder");
    log.clear();
    EXPECT_NE(decoder.pri_getVideoFrame(picture_at({17, 30}), 1), nullptr);
    EXPECT_NE(decoder.getVideoFrame(picture_at({1, 2})), nullptr);
    EXPECT_EQ(log.count("异步取画面"), 0U);
}

TEST_F(FFDecoderTest, CountsEveryCloseAndNoOpen) {
    decoder.close();  // never opened
    ASSERT_TRUE(decoder.open(stream));
    ASSERT_TRUE(decoder.reopen());
    EXPECT_NE(decoder.pri_getVideoFrame(picture_at({0, 1}), 1), nullptr);
    decoder.close();
    decoder.close();
    ASSERT_TRUE(decoder.open(stream));
    LogCapture log;
    EXPECT_EQ(decoder.pri_getVideoFrame(picture_at({0, 1}), 2), nullptr);
    EXPECT_EQ(log.texts(5), std::vector<std::string>{"> 异步取画面，已过时： 0 (serials=2)"});
    EXPECT_NE(decoder.pri_getVideoFrame(picture_at({0, 1}), 3), nullptr);
    EXPECT_NE(decoder.pri_getVideoFrame(picture_at({0, 1}), 4), nullptr);
}

TEST_F(FFDecoderTest, TestsForStalenessBeforeItLooksAtTheStillPicture) {
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_png())));
    ASSERT_NE(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
    EXPECT_EQ(decoder.pri_getVideoFrame(picture_at({0, 1}), -1), nullptr);
}

// Seek-only requests

TEST_F(FFDecoderTest, PositionsWithoutAPictureForASeekOnlyRequest) {
    ASSERT_TRUE(decoder.open(stream));
    const long long ts = ff::time_to_timestamp({3, 2}, stream->time_base);
    ASSERT_GT(ts, 0);
    LogCapture log;
    EXPECT_EQ(decoder.getVideoFrame(picture_at({3, 2}, PixelFormat::SeekOnly)), nullptr);
    expect_only_line(log, "Video: seek... pos=" + std::to_string(ts), 5, "src/ffdecoder");
    EXPECT_EQ(ff::SEEK_ONLY_FORMAT, 999111);
}

TEST_F(FFDecoderTest, SeeksByTheVirtualOperationToo) {
    ASSERT_TRUE(decoder.open(stream));
    const long long ts = ff::time_to_timestamp({1, 2}, stream->time_base);
    LogCapture log;
    decoder.pri_seek({1, 2}, false);
    expect_only_line(log, "Video: seek... pos=" + std::to_string(ts), 5, "src/ffdecoder");
    const auto picture = decoder.getVideoFrame(picture_at({1, 2}));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->pts, 500000);
}

TEST_F(FFDecoderTest, SeeksNowhereBeforeItIsOpen) {
    LogCapture log;
    decoder.pri_seek({1, 2}, false);
    EXPECT_EQ(log.count("seek"), 0U);
}

// Still pictures

namespace {

class FFDecoderStillTest : public ::testing::TestWithParam<const char*> {
protected:
    void SetUp() override {
        const std::string path =
            std::string(GetParam()) == "png" ? fw_test::clip_png() : fw_test::clip_jpeg();
        ASSERT_TRUE(decoder.open(stream_of(path)));
        ASSERT_TRUE(decoder.streamContex()->single_frame);
    }

    ff::FFDecoder decoder;
};

}  // namespace

TEST_P(FFDecoderStillTest, GivesTheVerySameRecordWhateverTheTimeAndTheFormat) {
    const auto first = decoder.getVideoFrame(picture_at({0, 1}, PixelFormat::Rgba));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1}, PixelFormat::Rgba)), first);
    EXPECT_EQ(decoder.getVideoFrame(picture_at({1000, 1}, PixelFormat::Rgba)), first);
    EXPECT_EQ(decoder.getVideoFrame(picture_at({-3, 1}, PixelFormat::Yuv420p)), first);
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 0}, PixelFormat::None)), first);
}

TEST_P(FFDecoderStillTest, ReplacesTheRecordForAnotherDivider) {
    const auto full = decoder.getVideoFrame(picture_at({0, 1}));
    const auto half = decoder.getVideoFrame(picture_at({0, 1}, PixelFormat::Yuv420p, 2));
    ASSERT_NE(full, nullptr);
    ASSERT_NE(half, nullptr);
    EXPECT_EQ(half->width, 160);
    EXPECT_EQ(half->height, 120);
    EXPECT_EQ(decoder.getVideoFrame(picture_at({5, 1}, PixelFormat::Rgba, 2)), half);
    const auto full_again = decoder.getVideoFrame(picture_at({0, 1}));
    ASSERT_NE(full_again, nullptr);
    EXPECT_NE(full_again, full);
    EXPECT_EQ(full_again->width, 320);
    EXPECT_EQ(full_again->height, 240);
}

TEST_P(FFDecoderStillTest, ComparesTheDividerAsItWasGiven) {
    const auto one = decoder.getVideoFrame(picture_at({0, 1}));
    const auto zero = decoder.getVideoFrame(picture_at({0, 1}, PixelFormat::Yuv420p, 0));
    ASSERT_NE(one, nullptr);
    ASSERT_NE(zero, nullptr);
    EXPECT_NE(zero, one);
    EXPECT_EQ(zero->width, one->width);
    EXPECT_EQ(zero->divider, 0);
}

TEST_P(FFDecoderStillTest, MakesANewRecordAfterReopening) {
    const auto before = decoder.getVideoFrame(picture_at({0, 1}));
    ASSERT_NE(before, nullptr);
    decoder.close();
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
    ASSERT_TRUE(decoder.reopen());
    const auto after = decoder.getVideoFrame(picture_at({0, 1}));
    ASSERT_NE(after, nullptr);
    EXPECT_NE(after, before);
    EXPECT_EQ(luma_of(*after), luma_of(*before));
}

TEST_P(FFDecoderStillTest, ForgetsTheRecordWhenTheNextRequestIsNotPossible) {
    const auto before = decoder.getVideoFrame(picture_at({0, 1}));
    ASSERT_NE(before, nullptr);
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1}, PixelFormat::None, 2)), nullptr);
    const auto after = decoder.getVideoFrame(picture_at({0, 1}));
    ASSERT_NE(after, nullptr);
    EXPECT_NE(after, before);
}

TEST_P(FFDecoderStillTest, SharesNoRecordBetweenDecoders) {
    ff::FFDecoder other;
    ASSERT_TRUE(other.open(decoder.streamContex()));
    EXPECT_NE(other.getVideoFrame(picture_at({0, 1})), decoder.getVideoFrame(picture_at({0, 1})));
}

INSTANTIATE_TEST_SUITE_P(Kinds, FFDecoderStillTest, ::testing::Values("png", "jpeg"),
                         [](const auto& row) { return std::string(row.param); });
