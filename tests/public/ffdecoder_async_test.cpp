// Background requests of a decoder: which of them are answered, and that closing, reopening and
// destroying work at any moment and from anywhere.

#include "tests/support/async_scene.h"
#include "tests/support/log_capture.h"
#include "tests/support/media.h"
#include "tests/support/streams.h"

#include <framewell/framewell.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

namespace {

using fw_test::Answers;
using fw_test::Carried;
using fw_test::Gate;
using fw_test::LogCapture;
using fw_test::stream_of;
using fw_test::Watchdog;
using fw_test::WatchedDecoder;

const ff::StreamCtx* video() {
    return stream_of(fw_test::clip_h264(), ff::StreamType::Video);
}

const ff::StreamCtx* sound() {
    return stream_of(fw_test::clip_pcm(), ff::StreamType::Audio);
}

/// The request for picture `number` of a clip with 30 pictures per second.
ff::RequireVideoFrame picture(int number) {
    ff::RequireVideoFrame req;
    req.time = {number, 30};
    req.format = ff::PixelFormat::Yuv420p;
    return req;
}

ff::RequireAudioFrame tenth(int number) {
    ff::RequireAudioFrame req;
    req.range = {{number, 10}, {number + 1, 10}};
    return req;
}

int number_of(const ff::VFrameCtx& picture) {
    return static_cast<int>((picture.pts * 30 + 500000) / 1000000);
}

class FFDecoderAsyncTest : public ::testing::Test {
protected:
    /// A callback that adds the number of the picture to `answers`, and carries something.
    ff::FFDecoder::VideoCallback answer(Carried* carried = nullptr) {
        return [this, thing = carried != nullptr ? carried->make() : nullptr](
                   const std::shared_ptr<ff::VFrameCtx>& got) { answers.add(number_of(*got)); };
    }

    /// A decoder whose first request waits in `gate`, and whose requests are counted.
    std::unique_ptr<WatchedDecoder> gated() {
        return std::make_unique<WatchedDecoder>([this](const ff::RequireVideoFrame&, int) {
            if (visits++ == 0) {
                gate.pass();
            }
        });
    }

    /// Asks for picture 0 and returns when the background thread is held with it.
    void hold(ff::FFDecoder& decoder, Carried* carried = nullptr) {
        decoder.getVideoFrameAsync(held, answer(carried));
        gate.wait_for(1);
    }

    Watchdog watchdog{"FFDecoderAsyncTest"};
    LogCapture log;
    Gate gate;
    std::atomic<int> visits{0};
    Answers<int> answers;
    ff::RequireVideoFrame held = picture(0);
};

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

// From inside a callback

TEST_F(FFDecoderAsyncTest, AnswersRequestsOfACallback) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(video()));
    decoder.getVideoFrameAsync(picture(1), [&](const auto&) {
        answers.add(number_of(*decoder.getVideoFrame(picture(2))));
        decoder.getVideoFrameAsync(picture(3), answer());
        decoder.getVideoFrameAsync(picture(4), answer());
        EXPECT_TRUE(decoder.isOpened());
    });
    EXPECT_EQ(answers.wait_for(2), (std::vector<int>{2, 4}));
}

TEST_F(FFDecoderAsyncTest, ClosesInACallback) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(video()));
    decoder.getVideoFrameAsync(picture(1), [&](const auto&) {
        decoder.getVideoFrameAsync(picture(2), answer());
        decoder.close();
        EXPECT_FALSE(decoder.getVideoFrame(picture(3)));
        answers.add(-1);
    });
    EXPECT_EQ(answers.wait_for(1), std::vector<int>{-1});
    EXPECT_FALSE(decoder.isOpened());
    decoder.close();
    EXPECT_EQ(answers.all(), std::vector<int>{-1});
}

TEST_F(FFDecoderAsyncTest, ReopensInACallback) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(video()));
    decoder.getVideoFrameAsync(picture(1), [&](const auto&) {
        decoder.close();
        EXPECT_TRUE(decoder.reopen());
        answers.add(number_of(*decoder.getVideoFrame(picture(2))));
        decoder.getVideoFrameAsync(picture(3), answer());
    });
    EXPECT_EQ(answers.wait_for(2), (std::vector<int>{2, 3}));
}

TEST_F(FFDecoderAsyncTest, ReopensInEveryCallbackOfALongChain) {
    constexpr int kLength = 40;
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(video()));
    std::function<void(int)> ask = [&](int number) {
        decoder.getVideoFrameAsync(picture(number), [&, number](const auto& got) {
            decoder.close();
            EXPECT_TRUE(decoder.reopen());
            answers.add(number_of(*got));
            if (number + 1 < kLength) {
                ask(number + 1);
            }
        });
    };
    ask(0);
    EXPECT_EQ(answers.wait_for(kLength).back(), kLength - 1);
    decoder.close();
}

TEST_F(FFDecoderAsyncTest, DoesNotLetTwoCallbacksThatCloseWaitForEachOther) {
    for (std::size_t round = 1; round <= 20; ++round) {  // which of them closes first is chance
        ff::FFDecoder decoder;
        ASSERT_TRUE(decoder.open(video()));
        Gate second_runs;
        second_runs.open();
        decoder.getVideoFrameAsync(picture(1), [&](const auto&) {
            decoder.close();
            EXPECT_TRUE(decoder.reopen());
            decoder.getVideoFrameAsync(picture(2), [&](const auto&) {
                second_runs.pass();
                decoder.close();
                answers.add(2);
            });
            second_runs.wait_for(1);
            decoder.close();
            answers.add(1);
        });
        EXPECT_EQ(answers.wait_for(2 * round).size(), 2 * round);
    }
}

TEST_F(FFDecoderAsyncTest, IsDestroyedInACallback) {
    auto decoder = std::make_unique<ff::FFDecoder>();
    ASSERT_TRUE(decoder->open(video()));
    Carried carried;
    Carried waiting;
    decoder->getVideoFrameAsync(picture(1), [&, thing = carried.make()](const auto&) {
        decoder->getVideoFrameAsync(picture(2), answer(&waiting));
        decoder.reset();
        EXPECT_TRUE(waiting.is_gone());
        answers.add(-1);
    });
    (void)answers.wait_for(1);
    carried.wait_until_gone();
    EXPECT_EQ(answers.all(), std::vector<int>{-1});
    EXPECT_FALSE(decoder);
}

TEST_F(FFDecoderAsyncTest, IsDestroyedInACallbackThatReopenedIt) {
    auto decoder = std::make_unique<ff::FFDecoder>();
    ASSERT_TRUE(decoder->open(video()));
    Gate second_runs;
    second_runs.open();
    Carried carried;
    decoder->getVideoFrameAsync(picture(1), [&, thing = carried.make()](const auto&) {
        decoder->close();
        EXPECT_TRUE(decoder->reopen());
        decoder->getVideoFrameAsync(picture(2), [&](const auto&) {
            second_runs.pass();
            answers.add(2);
        });
        second_runs.wait_for(1);
        decoder.reset();  // waits for the other callback
        answers.add(1);
    });
    EXPECT_EQ(answers.wait_for(2), (std::vector<int>{2, 1}));
    carried.wait_until_gone();
}

TEST_F(FFDecoderAsyncTest, LivesAsLongAsACallbackThatHoldsItsLastReference) {
    std::atomic<bool> is_gone{false};
    std::shared_ptr<ff::FFDecoder> decoder(new ff::FFDecoder, [&](const ff::FFDecoder* last) {
        delete last;
        is_gone = true;
    });
    ASSERT_TRUE(decoder->open(video()));
    ff::FFDecoder& raw = *decoder;
    raw.getVideoFrameAsync(picture(1), [this, keep = decoder](const auto& got) {
        gate.pass();
        answers.add(number_of(*got));
    });
    gate.wait_for(1);
    decoder.reset();
    EXPECT_FALSE(is_gone);
    gate.open();
    EXPECT_EQ(answers.wait_for(1), std::vector<int>{1});
    fw_test::wait_until([&] { return is_gone.load(); });
}

// What callbacks carry

/// Asks a decoder for everything when it is destroyed.
struct AsksAtItsEnd {
    explicit AsksAtItsEnd(ff::FFDecoder* asked, Answers<int>* all) : decoder(asked), ends(all) {}

    AsksAtItsEnd(const AsksAtItsEnd&) = delete;
    AsksAtItsEnd& operator=(const AsksAtItsEnd&) = delete;

    ~AsksAtItsEnd() {
        decoder->getVideoFrameAsync(picture(8), nullptr);
        ends->add(decoder->isOpened() ? 1 : 0);
        (void)decoder->getVideoFrame(picture(9));
    }

    ff::FFDecoder* decoder;
    Answers<int>* ends;
};

TEST_F(FFDecoderAsyncTest, MayBeCalledByWhatADiscardedCallbackCarries) {
    const std::unique_ptr<WatchedDecoder> decoder = gated();
    ASSERT_TRUE(decoder->open(video()));
    hold(*decoder);
    Answers<int> ends;
    decoder->getVideoFrameAsync(
        picture(1), [carried = std::make_shared<AsksAtItsEnd>(decoder.get(), &ends)](const auto&) {
            ADD_FAILURE() << "was replaced";
        });
    decoder->getVideoFrameAsync(picture(2), nullptr);
    EXPECT_EQ(ends.all(), std::vector<int>{1});
    gate.open();
}

TEST_F(FFDecoderAsyncTest, MayBeCalledByWhatAWaitingCallbackCarriesWhenItIsDestroyed) {
    std::unique_ptr<WatchedDecoder> decoder = gated();
    ASSERT_TRUE(decoder->open(video()));
    hold(*decoder);
    Answers<int> ends;
    decoder->getVideoFrameAsync(
        picture(1), [carried = std::make_shared<AsksAtItsEnd>(decoder.get(), &ends)](const auto&) {
            ADD_FAILURE() << "the decoder is gone";
        });
    std::thread destroyer([&] { decoder.reset(); });
    EXPECT_EQ(ends.wait_for(1), std::vector<int>{0});
    gate.open();
    destroyer.join();
    EXPECT_TRUE(answers.all().empty());
}

TEST_F(FFDecoderAsyncTest, MayBeCalledByWhatAWaitingCallbackCarriesWhenACallbackDestroysIt) {
    auto decoder = std::make_unique<ff::FFDecoder>();
    ASSERT_TRUE(decoder->open(video()));
    Answers<int> ends;
    Carried running;
    decoder->getVideoFrameAsync(picture(1), [&, thing = running.make()](const auto&) {
        decoder->getVideoFrameAsync(
            picture(2), [carried = std::make_shared<AsksAtItsEnd>(decoder.get(), &ends)](
                            const auto&) { ADD_FAILURE() << "the decoder is gone"; });
        decoder.reset();
        EXPECT_EQ(ends.all().size(), 1U) << "it must not outlive the decoder";
    });
    EXPECT_EQ(ends.wait_for(1), std::vector<int>{0});
    running.wait_until_gone();
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
