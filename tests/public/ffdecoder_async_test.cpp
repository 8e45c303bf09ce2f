// Background requests of a decoder: which of them are answered, and that closing and reopening work
// at any moment.

#include "tests/public/async_fixture.h"

#include <framewell/framewell.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

namespace {

using fw_test::Answers;
using fw_test::Carried;
using fw_test::FFDecoderAsyncTest;
using fw_test::number_of;
using fw_test::picture;
using fw_test::sound;
using fw_test::tenth;
using fw_test::video;
using fw_test::wait_until;
using fw_test::WatchedDecoder;

TEST_F(FFDecoderAsyncTest, AnswersOnAThreadOfItsOwnWithThePictureOfASynchronousRequest) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(video()));
    Answers<std::shared_ptr<ff::VFrameCtx>> got;
    std::thread::id id;
    decoder.getVideoFrameAsync(picture(40), [&](const std::shared_ptr<ff::VFrameCtx>& answer) {
        id = std::this_thread::get_id();
        got.add(answer);
    });
    const std::shared_ptr<ff::VFrameCtx> background = got.wait_for(1)[0];
    const std::shared_ptr<ff::VFrameCtx> direct = decoder.getVideoFrame(picture(40));
    ASSERT_TRUE(background && direct);
    EXPECT_NE(id, std::this_thread::get_id());
    EXPECT_EQ(number_of(*background), 40);
    EXPECT_EQ(fw_test::md5_hex(background->buffer, static_cast<std::size_t>(background->size)),
              fw_test::md5_hex(direct->buffer, static_cast<std::size_t>(direct->size)));
}

TEST_F(FFDecoderAsyncTest, AnswersSoundWithTheSamplesOfASynchronousRequest) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(sound()));
    Answers<std::shared_ptr<ff::AFrameCtx>> got;
    decoder.getAudioFrameAsync(tenth(7), [&](const auto& answer) { got.add(answer); });
    const std::shared_ptr<ff::AFrameCtx> background = got.wait_for(1)[0];
    const std::shared_ptr<ff::AFrameCtx> direct = decoder.getAudioFrame(tenth(7));
    ASSERT_TRUE(background && direct);
    EXPECT_EQ(background->nb_samples, 4410);
    EXPECT_EQ(fw_test::md5_hex(background->buffer, static_cast<std::size_t>(background->size)),
              fw_test::md5_hex(direct->buffer, static_cast<std::size_t>(direct->size)));
}

TEST_F(FFDecoderAsyncTest, AnswersTheFirstAndTheLastOfTenRequestsThatComeDuringTheFirst) {
    const std::unique_ptr<WatchedDecoder> decoder = gated();
    ASSERT_TRUE(decoder->open(video()));
    hold(*decoder);
    std::vector<Carried> between(8);
    for (int i = 1; i <= 8; ++i) {
        decoder->getVideoFrameAsync(picture(i), answer(&between[static_cast<std::size_t>(i - 1)]));
    }
    decoder->getVideoFrameAsync(picture(9), answer());
    for (const Carried& carried : between) {
        EXPECT_TRUE(carried.is_gone());
    }
    gate.open();
    EXPECT_EQ(answers.wait_for(2), (std::vector<int>{0, 9}));
    decoder->close();
    EXPECT_EQ(answers.all().size(), 2U);
    EXPECT_EQ(visits, 2);
}

TEST_F(FFDecoderAsyncTest, AnswersNothingOfWhatWasAskedBeforeAClose) {
    const std::unique_ptr<WatchedDecoder> decoder = gated();
    ASSERT_TRUE(decoder->open(video()));
    Carried waiting;
    hold(*decoder);
    decoder->getVideoFrameAsync(picture(1), answer(&waiting));
    std::thread closer([&] { decoder->close(); });
    waiting.wait_until_gone();  // a close lets go of it without waiting for the running request
    gate.open();
    closer.join();
    EXPECT_TRUE(answers.all().empty());
    EXPECT_EQ(visits, 1) << "the request that waited has run";
}

TEST_F(FFDecoderAsyncTest, DoesNothingForARequestWhoseFlagIsSet) {
    const std::unique_ptr<WatchedDecoder> decoder = gated();
    ASSERT_TRUE(decoder->open(video()));
    gate.open();
    std::atomic<bool> abort{true};
    Carried carried;
    ff::RequireVideoFrame req = picture(1);
    req.abort_flag = &abort;
    decoder->getVideoFrameAsync(req, answer(&carried));
    carried.wait_until_gone();
    EXPECT_TRUE(answers.all().empty());
    EXPECT_EQ(visits, 0) << "nothing is to be decoded for it";
    EXPECT_EQ(req.abort_flag, &abort);

    abort = false;
    decoder->getVideoFrameAsync(req, answer());
    EXPECT_EQ(answers.wait_for(1), std::vector<int>{1});
}

TEST_F(FFDecoderAsyncTest, GivesUpARequestWhoseFlagIsSetWhileItRuns) {
    const std::unique_ptr<WatchedDecoder> decoder = gated();
    ASSERT_TRUE(decoder->open(video()));
    std::atomic<bool> abort{false};
    held.abort_flag = &abort;
    Carried carried;
    hold(*decoder, &carried);
    abort = true;
    gate.open();
    carried.wait_until_gone();
    EXPECT_TRUE(answers.all().empty());
}

TEST_F(FFDecoderAsyncTest, AnswersARequestWithAFlagOfTheHostAfterAReopen) {
    ff::FFDecoder decoder;
    std::atomic<bool> abort{false};
    ff::RequireVideoFrame req = picture(3);
    req.abort_flag = &abort;
    ASSERT_TRUE(decoder.open(video()));
    decoder.close();
    EXPECT_FALSE(abort) << "the host's flag is the host's";
    ASSERT_TRUE(decoder.reopen());
    decoder.getVideoFrameAsync(req, answer());
    EXPECT_EQ(answers.wait_for(1), std::vector<int>{3});
}

TEST_F(FFDecoderAsyncTest, UsesOneRecordWithManyDecoders) {
    const ff::RequireVideoFrame req = picture(5);
    for (std::size_t i = 1; i <= 3; ++i) {
        ff::FFDecoder decoder;
        ASSERT_TRUE(decoder.open(video()));
        decoder.getVideoFrameAsync(req, answer());
        (void)answers.wait_for(i);
        decoder.close();  // sets the flag whose address is now in the record
    }
    EXPECT_EQ(answers.all(), (std::vector<int>{5, 5, 5}));
}

TEST_F(FFDecoderAsyncTest, CallsNothingWhenThereIsNoResult) {
    ff::FFDecoder pictures;
    ASSERT_TRUE(pictures.open(video()));
    ff::RequireVideoFrame seek = picture(30);
    seek.format = ff::PixelFormat::SeekOnly;
    Carried carried;
    pictures.getVideoFrameAsync(seek, answer(&carried));
    carried.wait_until_gone();
    EXPECT_EQ(log.count("Video: seek... pos="), 1U);
    pictures.getAudioFrameAsync(
        tenth(1), [this, thing = carried.make()](const auto&) { answers.add(*thing); });
    carried.wait_until_gone();

    ff::FFDecoder samples;
    ASSERT_TRUE(samples.open(sound()));
    samples.getAudioFrameAsync(tenth(1000), [this, thing = carried.make()](const auto&) {
        answers.add(*thing);  // far past the end
    });
    carried.wait_until_gone();
    EXPECT_TRUE(answers.all().empty());
}

TEST_F(FFDecoderAsyncTest, ReplacesAPictureThatWaitsByARequestForSound) {
    const std::unique_ptr<WatchedDecoder> decoder = gated();
    ASSERT_TRUE(decoder->open(video()));
    hold(*decoder);
    Carried waiting;
    decoder->getVideoFrameAsync(picture(1), answer(&waiting));
    decoder->getAudioFrameAsync(tenth(1), nullptr);
    EXPECT_TRUE(waiting.is_gone());
    gate.open();
    EXPECT_EQ(answers.wait_for(1), std::vector<int>{0});
    decoder->close();
    EXPECT_EQ(answers.all(), std::vector<int>{0});
}

TEST_F(FFDecoderAsyncTest, OnlyMovesForAnEmptyCallback) {
    Answers<ff::PixelFormat> formats;
    WatchedDecoder decoder([&](const ff::RequireVideoFrame& req, int) { formats.add(req.format); });
    ASSERT_TRUE(decoder.open(video()));
    decoder.getVideoFrameAsync(picture(1), nullptr);
    (void)formats.wait_for(1);
    decoder.getVideoFrameAsync(picture(2), ff::FFDecoder::VideoCallback());
    (void)formats.wait_for(2);
    decoder.pri_seek({1, 1}, true);
    EXPECT_EQ(formats.wait_for(3),
              (std::vector<ff::PixelFormat>{ff::PixelFormat::Yuv420p, ff::PixelFormat::Yuv420p,
                                            ff::PixelFormat::SeekOnly}));
    decoder.close();
}

TEST_F(FFDecoderAsyncTest, LogsWhatACallbackThrowsAndGoesOn) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(video()));
    Carried carried;
    decoder.getVideoFrameAsync(picture(1), [thing = carried.make()](const auto&) {
        throw std::runtime_error("no more tea");
    });
    carried.wait_until_gone();
    EXPECT_EQ(log.count_exactly("a callback has thrown: no more tea"), 1U);
    decoder.getVideoFrameAsync(picture(2), answer());
    EXPECT_EQ(answers.wait_for(1), std::vector<int>{2});
}

// Closing

TEST_F(FFDecoderAsyncTest, LetsEveryThreadThatClosesWaitForTheRunningCallback) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(video()));
    std::atomic<bool> callback_ended{false};
    const ff::RequireVideoFrame req = picture(1);
    decoder.getVideoFrameAsync(req, [&](const auto&) {
        gate.pass();
        callback_ended = true;
    });
    gate.wait_for(1);
    std::atomic<int> waited{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            decoder.close();
            waited += callback_ended ? 1 : 0;
        });
    }
    fw_test::wait_until([&] { return req.abort_flag->load(); });  // a close has begun
    gate.open();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(waited, 4);
}

TEST_F(FFDecoderAsyncTest, ClosesInACallbackWhileOthersClose) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(video()));
    const ff::RequireVideoFrame req = picture(1);
    decoder.getVideoFrameAsync(req, [&](const auto&) {
        gate.pass();
        decoder.close();
        answers.add(1);
    });
    gate.wait_for(1);
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] { decoder.close(); });
    }
    fw_test::wait_until([&] { return req.abort_flag->load(); });
    gate.open();
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(answers.all(), std::vector<int>{1}) << "a close did not wait for the callback";
}

TEST_F(FFDecoderAsyncTest, DropsARequestThatWasMadeBeforeACloseAfterAnotherOpen) {
    std::atomic<bool> reopened{false};
    WatchedDecoder* self = nullptr;
    WatchedDecoder decoder([&](const ff::RequireVideoFrame&, int serial) {
        if (!reopened.exchange(true)) {
            EXPECT_EQ(serial, 0);
            self->close();
            EXPECT_TRUE(self->reopen());
        }
    });
    self = &decoder;
    ASSERT_TRUE(decoder.open(video()));
    Carried carried;
    decoder.getVideoFrameAsync(picture(7), answer(&carried));
    carried.wait_until_gone();
    EXPECT_EQ(log.count_exactly("> 异步取画面，已过时： 7 (serials=0)"), 1U);
    EXPECT_TRUE(answers.all().empty());
    decoder.getVideoFrameAsync(picture(8), answer());
    EXPECT_EQ(answers.wait_for(1), std::vector<int>{8});
}

TEST_F(FFDecoderAsyncTest, DropsSoundThatWasAskedForBeforeAClose) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(sound()));
    decoder.close();
    ASSERT_TRUE(decoder.reopen());
    EXPECT_FALSE(decoder.pri_getAudioFrame(tenth(7), 0));
    EXPECT_TRUE(decoder.pri_getAudioFrame(tenth(7), 1));
    EXPECT_EQ(log.count_exactly("> 异步取音频，已过时： 7 (serials=0)"), 1U);
    EXPECT_EQ(log.find("> 异步取音频")->level, 5);
}

TEST_F(FFDecoderAsyncTest, NeverAnswersARequestThatAClosedDecoderTook) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(video()));
    decoder.close();
    Carried carried;
    decoder.getVideoFrameAsync(picture(1), answer(&carried));
    carried.wait_until_gone();
    ASSERT_TRUE(decoder.reopen());
    decoder.getVideoFrameAsync(picture(2), answer());
    EXPECT_EQ(answers.wait_for(1), std::vector<int>{2});
    decoder.close();
    EXPECT_EQ(answers.all(), std::vector<int>{2});
}

TEST_F(FFDecoderAsyncTest, TakesRequestsBeforeItIsOpened) {
    ff::FFDecoder decoder;
    Carried carried;
    decoder.getVideoFrameAsync(picture(1), answer(&carried));
    carried.wait_until_gone();
    decoder.pri_seek({1, 1}, true);
    EXPECT_FALSE(decoder.open(nullptr));
    decoder.getVideoFrameAsync(picture(1), answer(&carried));
    carried.wait_until_gone();
    ASSERT_TRUE(decoder.open(video()));
    decoder.getVideoFrameAsync(picture(2), answer());
    EXPECT_EQ(answers.wait_for(1), std::vector<int>{2});
}

TEST_F(FFDecoderAsyncTest, EndsItsThreadWithoutEverHavingBeenOpen) {
    for (int i = 0; i < 20; ++i) {
        ff::FFDecoder never_opened;
        never_opened.getVideoFrameAsync(picture(1), answer());
        ff::FFDecoder failed;
        EXPECT_FALSE(failed.open(nullptr));
        failed.getAudioFrameAsync(tenth(1), [this](const auto&) { answers.add(-1); });
        ff::FFDecoder closed;
        EXPECT_TRUE(closed.open(video()));
        closed.close();
        closed.getVideoFrameAsync(picture(1), answer());
    }
    EXPECT_TRUE(answers.all().empty());
}

TEST_F(FFDecoderAsyncTest, MakesOneThreadForTwoFirstRequestsAtTheSameMoment) {
    for (int round = 0; round < 50; ++round) {
        ff::FFDecoder decoder;
        ASSERT_TRUE(decoder.open(sound()));
        Answers<std::thread::id> ids;
        std::atomic<int> ready{0};
        std::vector<std::thread> threads;
        Carried carried[2];
        for (Carried& mine : carried) {
            threads.emplace_back([&, thing = mine.make()]() mutable {
                auto callback = [&ids, kept = std::move(thing)](const auto&) {
                    ids.add(std::this_thread::get_id());
                };
                ++ready;
                while (ready < 2) {
                }
                decoder.getAudioFrameAsync(tenth(1), std::move(callback));
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        carried[0].wait_until_gone();
        carried[1].wait_until_gone();
        const std::size_t so_far = ids.all().size();
        decoder.getAudioFrameAsync(tenth(2),
                                   [&](const auto&) { ids.add(std::this_thread::get_id()); });
        const std::vector<std::thread::id> all = ids.wait_for(so_far + 1);
        EXPECT_EQ(std::set<std::thread::id>(all.begin(), all.end()).size(), 1U);
        decoder.close();
    }
}

}  // namespace
