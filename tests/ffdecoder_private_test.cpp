#include "ffdecoder_private.h"

#include "decoder_mgr.h"
#include "tests/support/decoders.h"
#include "tests/support/frames.h"
#include "tests/support/log_capture.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using ff::FFDecoderPrivate;
using ff::StreamType;
using fw_test::LogCapture;
using fw_test::stream_of;

std::size_t workers_of(const ff::StreamCtx* stream) {
    return ff::g_decoder_mgr().scheduler_of(stream).m_workers.size();
}

/// A decoder's state on two small files of its own, so that their pools begin empty.
class FFDecoderPrivateTest : public ::testing::Test {
protected:
    FFDecoderPrivateTest() {
        const std::string bytes = fw_test::read_file(fw_test::clip_small());
        first = stream_of(fw_test::make_file(name() + "-1.mp4", bytes));
        second = stream_of(fw_test::make_file(name() + "-2.mp4", bytes));
    }

    ~FFDecoderPrivateTest() override {
        for (const ff::StreamCtx* const stream : {first, second}) {
            ff::DecoderMgr::Scheduler& pool = ff::g_decoder_mgr().scheduler_of(stream);
            while (!pool.m_workers.empty()) {
                pool.remove_worker(pool.m_workers.front(), false);
            }
        }
    }

    static std::string name() {
        return ::testing::UnitTest::GetInstance()->current_test_info()->name();
    }

    /// What open() is refused: a stream that the file does not have.
    ff::StreamCtx missing_stream() const {
        ff::StreamCtx missing;
        missing.index = 99;
        missing.type = StreamType::Video;
        missing.movie = first->movie;
        return missing;
    }

    const ff::StreamCtx* first = nullptr;
    const ff::StreamCtx* second = nullptr;
};

}  // namespace

TEST_F(FFDecoderPrivateTest, StartsEmpty) {
    const FFDecoderPrivate decoder;
    EXPECT_FALSE(decoder.m_opened);
    EXPECT_EQ(decoder.m_last_ts, 0);
    EXPECT_EQ(decoder.m_last_picture, nullptr);
    EXPECT_EQ(decoder.stream(), nullptr);
    EXPECT_EQ(decoder.m_filter, nullptr);
    EXPECT_EQ(decoder.m_fifo, nullptr);
    EXPECT_EQ(decoder.m_serial, 0);
    ASSERT_NE(decoder.m_cancel, nullptr);
    EXPECT_FALSE(decoder.m_cancel->load());
}

TEST_F(FFDecoderPrivateTest, NumbersItselfAndIsNamedAfterItsNumber) {
    const FFDecoderPrivate one;
    const FFDecoderPrivate two;
    EXPECT_GE(one.m_id, 1);
    EXPECT_EQ(two.m_id, one.m_id + 1);
    EXPECT_EQ(one.m_name, "dec_" + std::to_string(one.m_id));
}

TEST_F(FFDecoderPrivateTest, CutsItsNameAfterEightCharacters) {
    auto decoder = std::make_unique<FFDecoderPrivate>();
    ASSERT_LE(decoder->m_id, 12345);
    while (decoder->m_id < 12345) {
        decoder = std::make_unique<FFDecoderPrivate>();
    }
    EXPECT_STREQ(decoder->m_name, "dec_1234");
}

// Opening and closing

TEST_F(FFDecoderPrivateTest, OpenAddsAWorkerAndCloseDropsOne) {
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(first));
    EXPECT_TRUE(decoder.m_opened);
    EXPECT_EQ(workers_of(first), 1U);
    decoder.close();
    EXPECT_FALSE(decoder.m_opened);
    EXPECT_EQ(workers_of(first), 0U);
    decoder.close();
    EXPECT_EQ(workers_of(first), 0U);
}

TEST_F(FFDecoderPrivateTest, OpenOnTheSameStreamAddsOneMoreWorkerAndCloseDropsOnlyOne) {
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(first));
    ASSERT_TRUE(decoder.open(first));
    ASSERT_TRUE(decoder.open(first));
    EXPECT_EQ(workers_of(first), 3U);
    decoder.close();
    EXPECT_EQ(workers_of(first), 2U);
    decoder.close();
    EXPECT_EQ(workers_of(first), 2U);
}

TEST_F(FFDecoderPrivateTest, DestructionTakesBackTheWorkersThatOpeningAgainAdded) {
    FFDecoderPrivate other;
    ASSERT_TRUE(other.open(first));
    {
        FFDecoderPrivate decoder;
        ASSERT_TRUE(decoder.open(first));
        ASSERT_TRUE(decoder.open(first));
        decoder.close();
        ASSERT_TRUE(decoder.open(second));
        ASSERT_TRUE(decoder.open(second));
        ASSERT_TRUE(decoder.open(second));
        EXPECT_EQ(workers_of(first), 2U);
        EXPECT_EQ(workers_of(second), 3U);
    }
    EXPECT_EQ(workers_of(first), 1U);
    EXPECT_EQ(workers_of(second), 0U);
}

TEST_F(FFDecoderPrivateTest, OpenOnTheSameStreamKeepsWhatBelongsToIt) {
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(first));
    ASSERT_NE(decoder.get_frame(7000, nullptr), nullptr);
    ASSERT_TRUE(decoder.open_filter("hflip"));
    decoder.m_last_picture = std::make_shared<ff::VFrameCtx>();
    decoder.m_fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_S16, 2, 16));
    const std::int64_t last_ts = decoder.m_last_ts;
    ASSERT_TRUE(decoder.open(first));
    EXPECT_EQ(decoder.m_last_ts, last_ts);
    EXPECT_NE(decoder.m_filter, nullptr);
    EXPECT_NE(decoder.m_last_picture, nullptr);
    EXPECT_NE(decoder.m_fifo, nullptr);
}

TEST_F(FFDecoderPrivateTest, OpenOnAnotherStreamMovesTheWorkerAndForgetsTheOldStream) {
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(first));
    ASSERT_NE(decoder.get_frame(7000, nullptr), nullptr);
    ASSERT_TRUE(decoder.open_filter("hflip"));
    decoder.m_last_picture = std::make_shared<ff::VFrameCtx>();
    decoder.m_fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_S16, 2, 16));
    ASSERT_NE(decoder.m_last_ts, 0);
    ASSERT_TRUE(decoder.open(second));
    EXPECT_EQ(workers_of(first), 0U);
    EXPECT_EQ(workers_of(second), 1U);
    EXPECT_EQ(decoder.stream(), second);
    EXPECT_EQ(decoder.m_last_ts, 0);
    EXPECT_EQ(decoder.m_filter, nullptr);
    EXPECT_EQ(decoder.m_last_picture, nullptr);
    EXPECT_EQ(decoder.m_fifo, nullptr);
    EXPECT_EQ(decoder.m_serial, 0);
    decoder.close();
    EXPECT_EQ(workers_of(second), 0U);
}

TEST_F(FFDecoderPrivateTest, FailedOpenKeepsTheStreamButAddsNoWorker) {
    const ff::StreamCtx missing = missing_stream();
    FFDecoderPrivate decoder;
    EXPECT_FALSE(decoder.open(&missing));
    EXPECT_EQ(decoder.stream(), &missing);
    EXPECT_FALSE(decoder.m_opened);
    EXPECT_EQ(workers_of(&missing), 0U);
    EXPECT_FALSE(decoder.open(nullptr));
    EXPECT_EQ(decoder.stream(), nullptr);
    decoder.close();
}

TEST_F(FFDecoderPrivateTest, CloseAfterAFailedMoveDropsTheWorkerWhereItIs) {
    const ff::StreamCtx missing = missing_stream();
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(first));
    EXPECT_FALSE(decoder.open(&missing));
    EXPECT_TRUE(decoder.m_opened);
    EXPECT_EQ(workers_of(first), 1U);
    decoder.close();
    EXPECT_EQ(workers_of(first), 0U);
}

TEST_F(FFDecoderPrivateTest, FailedMoveDoesNotCostAnotherDecoderItsWorker) {
    // A stream that could be opened once but cannot any more, as when the file was taken away.
    ff::MovieCtx movie;
    std::string path = first->movie->path;
    movie.path = path.data();
    ff::StreamCtx record;
    record.index = first->index;
    record.type = StreamType::Video;
    record.time_base = first->time_base;
    record.movie = &movie;
    FFDecoderPrivate other;
    ASSERT_TRUE(other.open(&record));
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(second));
    path[0] = '?';
    EXPECT_FALSE(decoder.open(&record));
    decoder.close();
    EXPECT_EQ(workers_of(second), 0U);
    EXPECT_EQ(workers_of(&record), 1U);
    EXPECT_NE(other.get_frame(0, nullptr), nullptr);
    other.close();
}

TEST_F(FFDecoderPrivateTest, CloseFreesWhatBelongsToTheStream) {
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(first));
    ASSERT_TRUE(decoder.open_filter("hflip"));
    decoder.m_fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_S16, 2, 16));
    const auto picture = std::make_shared<ff::VFrameCtx>();
    decoder.m_last_picture = picture;
    decoder.close();
    EXPECT_EQ(decoder.m_filter, nullptr);
    EXPECT_EQ(decoder.m_fifo, nullptr);
    EXPECT_EQ(decoder.m_last_picture, nullptr);
    EXPECT_EQ(picture.use_count(), 1);
    EXPECT_EQ(decoder.stream(), first);
}

TEST_F(FFDecoderPrivateTest, CloseOfADecoderThatIsNotOpenFreesAsWell) {
    FFDecoderPrivate decoder;
    decoder.m_last_picture = std::make_shared<ff::VFrameCtx>();
    decoder.m_fifo.reset(av_audio_fifo_alloc(AV_SAMPLE_FMT_S16, 2, 16));
    decoder.close();
    EXPECT_EQ(decoder.m_last_picture, nullptr);
    EXPECT_EQ(decoder.m_fifo, nullptr);
}

TEST_F(FFDecoderPrivateTest, CloseSetsTheFlagAndOpenClearsIt) {
    FFDecoderPrivate decoder;
    decoder.close();
    EXPECT_TRUE(decoder.m_cancel->load());
    EXPECT_EQ(decoder.m_serial, 1);
    EXPECT_FALSE(decoder.open(nullptr));
    ASSERT_TRUE(decoder.open(first));
    EXPECT_FALSE(decoder.m_cancel->load());
    EXPECT_EQ(decoder.m_serial, 1);
    decoder.close();
    EXPECT_TRUE(decoder.m_cancel->load());
    EXPECT_EQ(decoder.m_serial, 2);
}

TEST_F(FFDecoderPrivateTest, DestructorDropsTheWorker) {
    {
        FFDecoderPrivate decoder;
        ASSERT_TRUE(decoder.open(first));
        EXPECT_EQ(workers_of(first), 1U);
    }
    EXPECT_EQ(workers_of(first), 0U);
}

TEST_F(FFDecoderPrivateTest, CloseLeavesWorkersThatAreBusy) {
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(first));
    auto* const worker = ff::g_decoder_mgr().scheduler_of(first).m_workers.front();
    worker->m_busy = true;
    decoder.close();
    EXPECT_FALSE(decoder.m_opened);
    EXPECT_EQ(workers_of(first), 1U);
    worker->m_busy = false;
}

// Frames

TEST_F(FFDecoderPrivateTest, NotesTheTimeOfTheFrameThatItGot) {
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(first));
    const std::shared_ptr<AVFrame> frame =
        decoder.get_frame(ff::time_to_timestamp({41, 40}, first->time_base), nullptr);
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->pts, ff::time_to_timestamp({1, 1}, first->time_base));
    EXPECT_EQ(decoder.m_last_ts, frame->pts);
}

TEST_F(FFDecoderPrivateTest, KeepsTheTimeWhenThereIsNoFrame) {
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(first));
    decoder.m_last_ts = 17;
    std::atomic<bool> cancel{true};
    EXPECT_EQ(decoder.get_frame(5000, &cancel), nullptr);
    EXPECT_EQ(decoder.get_next_frame(&cancel, true), nullptr);
    EXPECT_EQ(decoder.m_last_ts, 17);
}

TEST_F(FFDecoderPrivateTest, GetsNothingWhenItIsNotOpen) {
    FFDecoderPrivate other;
    ASSERT_TRUE(other.open(first));
    ASSERT_NE(other.get_frame(0, nullptr), nullptr);

    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(first));
    decoder.close();
    LogCapture log;
    EXPECT_EQ(decoder.get_frame(0, nullptr), nullptr);
    EXPECT_EQ(decoder.get_next_frame(nullptr, true), nullptr);
    const std::vector<fw_test::LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 2U);
    for (const fw_test::LogLine& line : lines) {
        EXPECT_EQ(line.message, fw_test::quoted("worker-list empty"));
        EXPECT_EQ(line.level, 5);
        EXPECT_EQ(line.tag, decoder.m_name);
    }
}

TEST_F(FFDecoderPrivateTest, StepsThroughAllFramesAndStopsAtTheEnd) {
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(first));
    const auto reference = fw_test::reference_frames(first->movie->path, first->index);
    ASSERT_NE(decoder.get_frame(0, nullptr), nullptr);
    for (std::size_t i = 1; i < reference.size(); ++i) {
        const std::shared_ptr<AVFrame> frame = decoder.get_next_frame(nullptr, false);
        ASSERT_NE(frame, nullptr) << i;
        EXPECT_EQ(frame->pts, reference[i].pts);
        EXPECT_EQ(decoder.m_last_ts, frame->pts);
    }
    const std::int64_t last = reference.back().pts;
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(decoder.get_next_frame(nullptr, false), nullptr);
        EXPECT_EQ(decoder.m_last_ts, last);
        const std::shared_ptr<AVFrame> same = decoder.get_next_frame(nullptr, true);
        ASSERT_NE(same, nullptr);
        EXPECT_EQ(same->pts, last);
    }
}

TEST_F(FFDecoderPrivateTest, StepsOnFromWhereItStandsThoughAnotherDecoderWorksElsewhere) {
    FFDecoderPrivate decoder;
    FFDecoderPrivate other;
    ASSERT_TRUE(decoder.open(first));
    ASSERT_TRUE(other.open(first));
    const auto reference = fw_test::reference_frames(first->movie->path, first->index);
    ASSERT_NE(decoder.get_frame(reference[10].pts, nullptr), nullptr);
    for (std::size_t i = 11; i < 20; ++i) {
        ASSERT_NE(other.get_frame(reference[(i * 7) % 60].pts, nullptr), nullptr);
        const std::shared_ptr<AVFrame> frame = decoder.get_next_frame(nullptr, false);
        ASSERT_NE(frame, nullptr);
        EXPECT_EQ(frame->pts, reference[i].pts);
    }
}

// Filters

TEST_F(FFDecoderPrivateTest, OpensReplacesAndClosesAFilter) {
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(first));
    decoder.m_last_picture = std::make_shared<ff::VFrameCtx>();
    EXPECT_TRUE(decoder.open_filter("hflip"));
    const ff::AVFilterMgr* const filter = decoder.m_filter.get();
    ASSERT_NE(filter, nullptr);
    EXPECT_EQ(decoder.m_last_picture, nullptr);

    decoder.m_last_picture = std::make_shared<ff::VFrameCtx>();
    EXPECT_TRUE(decoder.open_filter("vflip"));
    EXPECT_EQ(decoder.m_filter.get(), filter) << "the same manager takes the new graph";
    EXPECT_EQ(decoder.m_last_picture, nullptr);

    decoder.m_last_picture = std::make_shared<ff::VFrameCtx>();
    decoder.close_filter();
    EXPECT_EQ(decoder.m_filter, nullptr);
    EXPECT_EQ(decoder.m_last_picture, nullptr);

    decoder.m_last_picture = std::make_shared<ff::VFrameCtx>();
    decoder.close_filter();
    EXPECT_NE(decoder.m_last_picture, nullptr) << "there was no filter to close";
}

TEST_F(FFDecoderPrivateTest, LosesItsFilterToADescriptionThatIsRefused) {
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(first));
    ASSERT_TRUE(decoder.open_filter("hflip"));
    decoder.m_last_picture = std::make_shared<ff::VFrameCtx>();
    EXPECT_FALSE(decoder.open_filter("no_such_filter=1"));
    EXPECT_EQ(decoder.m_filter, nullptr);
    EXPECT_NE(decoder.m_last_picture, nullptr);
    EXPECT_FALSE(decoder.open_filter(nullptr));
    EXPECT_EQ(decoder.m_filter, nullptr);
    EXPECT_TRUE(decoder.open_filter("hflip"));
    EXPECT_NE(decoder.m_filter, nullptr);
}

TEST_F(FFDecoderPrivateTest, OpensAFilterForSound) {
    FFDecoderPrivate decoder;
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_aac(), StreamType::Audio)));
    EXPECT_TRUE(decoder.open_filter("atempo=2.0"));
    EXPECT_NE(decoder.m_filter, nullptr);
    EXPECT_FALSE(decoder.open_filter("hflip"));
    EXPECT_EQ(decoder.m_filter, nullptr);
}

TEST_F(FFDecoderPrivateTest, OpensNoFilterForAnythingElse) {
    FFDecoderPrivate decoder;
    LogCapture log;
    EXPECT_FALSE(decoder.open_filter("hflip"));
    decoder.m_filter = std::make_unique<ff::AVFilterMgr>();
    (void)decoder.open(stream_of(fw_test::clip_subrip(), StreamType::Subtitle));
    log.clear();
    decoder.m_last_picture = std::make_shared<ff::VFrameCtx>();
    EXPECT_FALSE(decoder.open_filter("hflip"));
    EXPECT_EQ(decoder.m_filter, nullptr) << "a graph that was open is not applied any more";
    EXPECT_NE(decoder.m_last_picture, nullptr);
    const std::vector<fw_test::LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].message, fw_test::quoted("no support for stream->type='2'"));
    EXPECT_EQ(lines[0].level, 2);
    EXPECT_EQ(lines[0].tag, "bg");
    EXPECT_EQ(lines[0].file, "src/ffdecoder_private");
}

TEST_F(FFDecoderPrivateTest, NamesTheTypeOfNoStreamWhenItCannotFilter) {
    FFDecoderPrivate decoder;
    LogCapture log;
    EXPECT_FALSE(decoder.open_filter("hflip"));
    EXPECT_EQ(log.texts(2), std::vector<std::string>{"no support for stream->type='-1'"});
}
