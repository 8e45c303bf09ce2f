// Callbacks of background requests: what they may do to the decoder that calls them, and to what
// they carry.

#include "tests/public/async_fixture.h"

#include <framewell/framewell.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

namespace {

using fw_test::Answers;
using fw_test::Carried;
using fw_test::FFDecoderAsyncTest;
using fw_test::Gate;
using fw_test::number_of;
using fw_test::picture;
using fw_test::video;
using fw_test::wait_until;
using fw_test::WatchedDecoder;

using FFDecoderCallbackTest = FFDecoderAsyncTest;

// From inside a callback

TEST_F(FFDecoderCallbackTest, AnswersRequestsOfACallback) {
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

TEST_F(FFDecoderCallbackTest, ClosesInACallback) {
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

TEST_F(FFDecoderCallbackTest, ReopensInACallback) {
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

TEST_F(FFDecoderCallbackTest, ReopensInEveryCallbackOfALongChain) {
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

TEST_F(FFDecoderCallbackTest, DoesNotLetTwoCallbacksThatCloseWaitForEachOther) {
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

TEST_F(FFDecoderCallbackTest, IsDestroyedInACallback) {
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

TEST_F(FFDecoderCallbackTest, IsDestroyedInACallbackThatReopenedIt) {
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

TEST_F(FFDecoderCallbackTest, LivesAsLongAsACallbackThatHoldsItsLastReference) {
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

TEST_F(FFDecoderCallbackTest, MayBeCalledByWhatADiscardedCallbackCarries) {
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

TEST_F(FFDecoderCallbackTest, MayBeCalledByWhatAWaitingCallbackCarriesWhenItIsDestroyed) {
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

TEST_F(FFDecoderCallbackTest, MayBeCalledByWhatAWaitingCallbackCarriesWhenACallbackDestroysIt) {
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

}  // namespace
