#include "tests/support/decoders.h"
#include "tests/support/log_capture.h"

#include <framewell/ffdecoder.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using ff::PixelFormat;
using ff::StreamType;
using fw_test::LogCapture;
using fw_test::luma_of;
using fw_test::picture_at;
using fw_test::stream_of;

constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t kLastPicture = 1966667;  // 59/30 s

class FFDecoderRequestTest : public ::testing::Test {
protected:
    const ff::StreamCtx* const stream = stream_of(fw_test::clip_small());
    ff::FFDecoder decoder;
};

}  // namespace

// Times

TEST_F(FFDecoderRequestTest, MakesANewRecordForEveryRequest) {
    ASSERT_TRUE(decoder.open(stream));
    const auto first = decoder.getVideoFrame(picture_at({1, 1}));
    const auto second = decoder.getVideoFrame(picture_at({1, 1}));
    ASSERT_NE(first, nullptr);
    ASSERT_NE(second, nullptr);
    EXPECT_NE(first, second);
    EXPECT_NE(first->buffer, second->buffer);
    EXPECT_EQ(luma_of(*first), luma_of(*second));
}

TEST_F(FFDecoderRequestTest, GivesEveryPictureForEveryTimeThatItCovers) {
    ASSERT_TRUE(decoder.open(stream));
    const std::vector<std::int64_t> times = fw_test::picture_times_us(*stream);
    ASSERT_EQ(times.size(), 60U);
    for (std::size_t i = 0; i < times.size(); ++i) {
        const auto n = static_cast<std::int64_t>(i);
        for (const ff::Rational time : {ff::Rational{n, 30}, ff::Rational{2 * n + 1, 60}}) {
            const auto picture = decoder.getVideoFrame(picture_at(time));
            ASSERT_NE(picture, nullptr) << i;
            EXPECT_EQ(picture->pts, times[i]) << i;
        }
    }
}

TEST_F(FFDecoderRequestTest, CountsTimesFromTheMoviesStart) {
    const std::string path =
        fw_test::make_clip("starts_late.mkv",
                           "-f lavfi -i testsrc2=size=160x120:rate=10:duration=2,format=yuv420p "
                           "-c:v libx264 -bf 0 -g 5 -threads 1 -output_ts_offset 1.5");
    const ff::StreamCtx* const late = stream_of(path);
    ASSERT_EQ(late->movie->start_time, 1500000);
    ASSERT_TRUE(decoder.open(late));
    const auto first = decoder.getVideoFrame(picture_at({0, 1}));
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->pts, 1500000);
    const auto tenth = decoder.getVideoFrame(picture_at({1, 1}));
    ASSERT_NE(tenth, nullptr);
    EXPECT_EQ(tenth->pts, 2500000);

    const long long ts = ff::time_to_timestamp({3, 2}, late->time_base);
    LogCapture log;
    decoder.pri_seek({0, 1}, false);
    EXPECT_EQ(log.texts(5), std::vector<std::string>{"Video: seek... pos=" + std::to_string(ts)});
}

TEST_F(FFDecoderRequestTest, TakesTimesAsTheyAreWhenTheMoviesStartIsNotKnown) {
    ff::MovieCtx movie;
    movie.path = stream->movie->path;
    movie.start_time = kMin;
    ff::StreamCtx record;
    record.index = stream->index;
    record.type = StreamType::Video;
    record.time_base = stream->time_base;
    record.width = 160;
    record.height = 120;
    record.movie = &movie;
    ASSERT_TRUE(decoder.open(&record));
    const auto picture = decoder.getVideoFrame(picture_at({1, 1}));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->pts, 1000000);
    decoder.close();  // before the record goes
}

namespace {

struct OddTime {
    const char* name;
    ff::Rational time;
    std::int64_t pts;  // of the picture that is shown
};

class FFDecoderOddTimeTest : public ::testing::TestWithParam<OddTime> {};

}  // namespace

TEST_P(FFDecoderOddTimeTest, GivesThePictureThatIsShownThen) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_small())));
    for (int round = 0; round < 2; ++round) {  // decoded, then remembered
        const auto picture = decoder.getVideoFrame(picture_at(GetParam().time));
        ASSERT_NE(picture, nullptr);
        EXPECT_EQ(picture->pts, GetParam().pts);
        ASSERT_NE(decoder.getVideoFrame(picture_at({1, 1})), nullptr);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Times, FFDecoderOddTimeTest,
    ::testing::Values(OddTime{"Denominator0", {1, 0}, 0}, OddTime{"NumeratorMin", {kMin, 0}, 0},
                      OddTime{"ZeroByZero", {0, 0}, 0}, OddTime{"ZeroByNegative", {0, -1}, 0},
                      OddTime{"JustBefore0", {-1, 1000000000}, 0}, OddTime{"Negative", {-5, 1}, 0},
                      OddTime{"NegativeDenominator", {5, -1}, 0},
                      OddTime{"BothNegative", {-1, -1}, 1000000}, OddTime{"Min", {kMin, 1}, 0},
                      OddTime{"MinByMinus1", {kMin, -1}, kLastPicture},
                      OddTime{"AtTheEnd", {2, 1}, kLastPicture},
                      OddTime{"FarBeyond", {1000000000, 1}, kLastPicture},
                      OddTime{"Max", {kMax, 1}, kLastPicture},
                      OddTime{"MaxByMax", {kMax, kMax}, 1000000},
                      OddTime{"OneByMax", {1, kMax}, 0}),
    [](const auto& row) { return std::string(row.param.name); });

// Cancelling

TEST_F(FFDecoderRequestTest, FillsItsOwnFlagIntoTheRequest) {
    ASSERT_TRUE(decoder.open(stream));
    const ff::RequireVideoFrame request = picture_at({0, 1});
    EXPECT_NE(decoder.getVideoFrame(request), nullptr);
    ASSERT_NE(request.abort_flag, nullptr);
    EXPECT_FALSE(request.abort_flag->load());

    const ff::RequireVideoFrame second = picture_at({1, 1});
    EXPECT_NE(decoder.getVideoFrame(second), nullptr);
    EXPECT_EQ(second.abort_flag, request.abort_flag);
    decoder.close();
    EXPECT_TRUE(request.abort_flag->load());
    ASSERT_TRUE(decoder.reopen());
    EXPECT_FALSE(request.abort_flag->load());
    EXPECT_NE(decoder.getVideoFrame(request), nullptr);
}

TEST_F(FFDecoderRequestTest, FillsItsFlagInEvenWhereThereIsNoAnswer) {
    const ff::RequireVideoFrame request = picture_at({0, 1});
    EXPECT_EQ(decoder.getVideoFrame(request), nullptr);
    EXPECT_NE(request.abort_flag, nullptr);
}

TEST_F(FFDecoderRequestTest, TakesARequestObjectThatIsConst) {
    ASSERT_TRUE(decoder.open(stream));
    static const ff::RequireVideoFrame s_request{{1, 1}, PixelFormat::Rgba, 1, nullptr};
    EXPECT_NE(decoder.getVideoFrame(s_request), nullptr);
    EXPECT_NE(decoder.getVideoFrame(s_request), nullptr);
}

TEST_F(FFDecoderRequestTest, ObeysTheHostsFlagAndLeavesItWhereItIs) {
    // A file of its own, so that no worker remembers the picture: what is remembered is given out
    // whatever the flag says.
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_small("cancelled.mp4"))));
    std::atomic<bool> stop{true};
    ff::RequireVideoFrame request = picture_at({1, 1});
    request.abort_flag = &stop;
    EXPECT_EQ(decoder.getVideoFrame(request), nullptr);
    EXPECT_EQ(request.abort_flag, &stop);
    EXPECT_TRUE(stop.load());
    stop = false;
    EXPECT_NE(decoder.getVideoFrame(request), nullptr);
    EXPECT_EQ(request.abort_flag, &stop);
    decoder.close();
    EXPECT_FALSE(stop.load());
}

TEST_F(FFDecoderRequestTest, TakesAFlagOfAnotherDecoderForNone) {
    ff::FFDecoder other;
    ASSERT_TRUE(other.open(stream));
    const ff::RequireVideoFrame request = picture_at({0, 1});
    ASSERT_NE(other.getVideoFrame(request), nullptr);
    const std::atomic<bool>* const flag_of_other = request.abort_flag;
    other.close();
    ASSERT_TRUE(flag_of_other->load());

    ASSERT_TRUE(decoder.open(stream));
    EXPECT_NE(decoder.getVideoFrame(request), nullptr);
    EXPECT_NE(request.abort_flag, flag_of_other);
}

TEST_F(FFDecoderRequestTest, TakesAFlagOfADecoderThatIsGoneForNone) {
    const ff::RequireVideoFrame request = picture_at({0, 1});
    {
        ff::FFDecoder gone;
        ASSERT_TRUE(gone.open(stream));
        ASSERT_NE(gone.getVideoFrame(request), nullptr);
    }
    ASSERT_TRUE(request.abort_flag->load());  // the memory is still there
    ASSERT_TRUE(decoder.open(stream));
    EXPECT_NE(decoder.getVideoFrame(request), nullptr);
    ff::FFDecoder third;
    ASSERT_TRUE(third.open(stream));
    EXPECT_NE(third.getVideoFrame(request), nullptr);
    EXPECT_NE(decoder.getVideoFrame(request), nullptr);
}

TEST_F(FFDecoderRequestTest, LetsTwoThreadsUseOneRequest) {
    ff::FFDecoder other;
    ASSERT_TRUE(decoder.open(stream));
    ASSERT_TRUE(other.open(stream));
    const ff::RequireVideoFrame request = picture_at({1, 2});
    const auto ask = [&request](ff::FFDecoder* which) {
        for (int i = 0; i < 50; ++i) {
            const auto picture = which->getVideoFrame(request);
            ASSERT_NE(picture, nullptr);
            EXPECT_EQ(picture->pts, 500000);
        }
    };
    std::thread second([&] { ask(&other); });
    ask(&decoder);
    second.join();
}

// Records

TEST_F(FFDecoderRequestTest, LeavesRecordsToTheirHolders) {
    auto temporary = std::make_unique<ff::FFDecoder>();
    ASSERT_TRUE(temporary->open(stream));
    auto picture = temporary->getVideoFrame(picture_at({1, 1}));
    ASSERT_NE(picture, nullptr);
    const std::string before = luma_of(*picture);
    temporary->close();
    temporary.reset();
    (void)ff::FFDecoder::memCollection(0);
    EXPECT_EQ(luma_of(*picture), before);
    EXPECT_EQ(ff::FFDecoder::memCollection(0), 0U);
    const std::shared_ptr<ff::VFrameCtx> second_holder = picture;
    picture.reset();
    EXPECT_EQ(ff::FFDecoder::memCollection(0), 0U);
    EXPECT_EQ(luma_of(*second_holder), before);
}

TEST_F(FFDecoderRequestTest, GivesTheBufferOfAStillBackOnce) {
    (void)ff::FFDecoder::memCollection(0);
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_png())));
    auto picture = decoder.getVideoFrame(picture_at({0, 1}));
    ASSERT_NE(picture, nullptr);
    picture.reset();
    EXPECT_EQ(ff::FFDecoder::memCollection(0), 0U);  // the decoder still holds it
    decoder.close();
    EXPECT_EQ(ff::FFDecoder::memCollection(0), 1U);
    EXPECT_EQ(ff::FFDecoder::memCollection(0), 0U);
}

TEST(FFDecoderLifetimeTest, CanBeDestroyedOpenNeverOpenedAndThroughItsBase) {
    const ff::StreamCtx* const stream = stream_of(fw_test::clip_small());

    class HostDecoder final : public ff::FFDecoder {
    public:
        explicit HostDecoder(bool* gone) : m_gone(gone) {}

        HostDecoder(const HostDecoder&) = delete;
        HostDecoder& operator=(const HostDecoder&) = delete;

        ~HostDecoder() override { *m_gone = true; }

    private:
        bool* m_gone;
    };

    { const ff::FFDecoder never_opened; }
    bool gone = false;
    {
        const std::unique_ptr<ff::FFDecoder> open = std::make_unique<HostDecoder>(&gone);
        ASSERT_TRUE(open->open(stream));
        ASSERT_NE(open->getVideoFrame(picture_at({0, 1})), nullptr);
    }
    EXPECT_TRUE(gone);
}

TEST(FFDecoderLifetimeTest, AsksTheSubclassForPictures) {
    class CountingDecoder final : public ff::FFDecoder {
    public:
        std::shared_ptr<ff::VFrameCtx> pri_getVideoFrame(const ff::RequireVideoFrame& req,
                                                         int serial) override {
            serials.push_back(serial);
            return FFDecoder::pri_getVideoFrame(req, serial);
        }

        std::vector<int> serials;
    };

    CountingDecoder decoder;
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_small())));
    EXPECT_NE(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
    decoder.pri_seek({1, 1}, false);
    decoder.close();
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
    EXPECT_EQ(decoder.serials, (std::vector<int>{0, 0, 1}));
}
