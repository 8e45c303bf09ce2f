#include "ffdecoder_private.h"
#include "tests/support/decoders.h"
#include "tests/support/log_capture.h"
#include "tests/support/watchdog.h"

#include <framewell/ffdecoder.h>
#include <framewell/utils/mempool.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using ff::PixelFormat;
using fw_test::picture_at;
using fw_test::stream_of;

constexpr int kThreads = 8;
constexpr int kRounds = 12;
constexpr int kPictures = 60;

/// Runs `work(thread, random)` on eight threads; equal seeds, equal decisions.
void run_threads(const std::function<void(int, std::mt19937*)>& work) {
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&work, i] {
            std::mt19937 random(static_cast<unsigned>(i) + 1);
            work(i, &random);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

int below(std::mt19937* random, int end) {
    return static_cast<int>((*random)() % static_cast<unsigned>(end));
}

/// A time, and the time of the picture that covers it in every file of these tests.
struct Question {
    ff::Rational time;
    std::int64_t pts = 0;  // microseconds

    explicit Question(std::mt19937* random) {
        const int picture = below(random, kPictures);
        time = {2 * picture + below(random, 2), 60};
        pts = ff::rescale_q(picture, {1, 30}, {1, 1000000});
    }
};

/// Asks for a picture. A result must be the right one; `must_come` says whether there must be one.
void ask(ff::FFDecoder* decoder, std::mt19937* random, bool must_come) {
    const Question question(random);
    const PixelFormat format = below(random, 2) == 0 ? PixelFormat::Yuv420p : PixelFormat::Rgba;
    const auto picture = decoder->getVideoFrame(picture_at(question.time, format));
    if (picture != nullptr) {
        EXPECT_EQ(picture->pts, question.pts);
        EXPECT_EQ(picture->width, 160);
        EXPECT_EQ(picture->height, 120);
    } else {
        EXPECT_FALSE(must_come);
    }
}

class FFDecoderRaceTest : public ::testing::Test {
protected:
    FFDecoderRaceTest() {
        const std::string bytes = fw_test::read_file(fw_test::clip_small());
        const std::string test = ::testing::UnitTest::GetInstance()->current_test_info()->name();
        for (int i = 0; i < 3; ++i) {
            const std::string name = test + std::to_string(i) + ".mp4";
            streams.push_back(stream_of(fw_test::make_file(name, bytes)));
        }
    }

    const ff::StreamCtx* any_stream(std::mt19937* random) const {
        return streams[static_cast<std::size_t>(below(random, 3))];
    }

    fw_test::Watchdog watchdog{"a test of threads", std::chrono::seconds(600)};
    fw_test::LogCapture log;  // what is said when decoders are closed under requests
    std::vector<const ff::StreamCtx*> streams;  // of one content, but each with a pool of its own
};

}  // namespace

TEST_F(FFDecoderRaceTest, OneDecoderServesAllThreads) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(streams[0]));
    run_threads([&](int, std::mt19937* random) {
        for (int round = 0; round < kRounds; ++round) {
            ask(&decoder, random, true);
            EXPECT_TRUE(decoder.isOpened());
            EXPECT_EQ(decoder.streamContex(), streams[0]);
            EXPECT_EQ(decoder.getImageDivider(ff::MemoryMode::ByResolution), 1);
        }
    });
}

TEST_F(FFDecoderRaceTest, EachThreadHasADecoderOnOneStream) {
    run_threads([&](int, std::mt19937* random) {
        ff::FFDecoder decoder;
        ASSERT_TRUE(decoder.open(streams[0]));
        for (int round = 0; round < kRounds; ++round) {
            ask(&decoder, random, true);
        }
    });
}

TEST_F(FFDecoderRaceTest, EachThreadMovesFromStreamToStream) {
    run_threads([&](int, std::mt19937* random) {
        ff::FFDecoder decoder;
        for (int round = 0; round < kRounds; ++round) {
            ASSERT_TRUE(decoder.open(any_stream(random)));
            ask(&decoder, random, true);
            if (below(random, 4) == 0) {
                decoder.close();
                ask(&decoder, random, false);
                ASSERT_TRUE(decoder.reopen());
            }
            ask(&decoder, random, true);
        }
    });
}

TEST_F(FFDecoderRaceTest, DecodersComeAndGoOnOneStream) {
    run_threads([&](int, std::mt19937* random) {
        for (int round = 0; round < kRounds; ++round) {
            const auto decoder = std::make_unique<ff::FFDecoder>();
            ASSERT_TRUE(decoder->open(streams[0]));
            ask(decoder.get(), random, true);
        }
    });
}

TEST_F(FFDecoderRaceTest, ResultsOutliveTheDecodersOfOtherThreads) {
    std::mutex mutex;
    std::vector<std::shared_ptr<ff::VFrameCtx>> results;
    run_threads([&](int, std::mt19937* random) {
        for (int round = 0; round < kRounds; ++round) {
            std::shared_ptr<ff::VFrameCtx> picture;
            {
                ff::FFDecoder decoder;
                ASSERT_TRUE(decoder.open(streams[0]));
                picture = decoder.getVideoFrame(picture_at(Question(random).time));
            }
            ASSERT_NE(picture, nullptr);
            const std::lock_guard<std::mutex> lock(mutex);
            results.push_back(std::move(picture));
            std::shuffle(results.begin(), results.end(), *random);
            results.resize(std::min<std::size_t>(results.size(), 5));  // frees another thread's
        }
    });
    for (const auto& picture : results) {
        EXPECT_EQ(picture->data[0], picture->buffer);
    }
}

TEST_F(FFDecoderRaceTest, OneDecoderIsOpenedClosedAndAskedByAll) {
    ff::FFDecoder decoder;
    run_threads([&](int thread, std::mt19937* random) {
        for (int round = 0; round < kRounds; ++round) {
            switch ((thread + below(random, 3)) % 8) {
                case 0:
                    decoder.close();
                    break;
                case 1:
                    (void)decoder.reopen();  // false before the first open
                    break;
                case 2:
                    EXPECT_TRUE(decoder.open(any_stream(random)));
                    break;
                case 3:
                    decoder.pri_seek(Question(random).time, false);
                    break;
                default:
                    ask(&decoder, random, false);
                    break;
            }
            (void)decoder.isOpened();
            (void)decoder.streamContex();
            (void)decoder.getImageDivider(ff::MemoryMode::ByResolution);
        }
    });
    ASSERT_TRUE(decoder.open(streams[1]));
    std::mt19937 random(99);
    ask(&decoder, &random, true);
}

TEST_F(FFDecoderRaceTest, RequestsMadeBeforeACloseAreStale) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(streams[0]));
    run_threads([&](int thread, std::mt19937* random) {
        for (int round = 0; round < kRounds; ++round) {
            if (thread == 0) {
                decoder.close();
                EXPECT_TRUE(decoder.reopen());
            } else if (thread == 1) {
                EXPECT_EQ(decoder.pri_getVideoFrame(picture_at({1, 1}), -1), nullptr);
            } else {
                ask(&decoder, random, false);
            }
        }
    });
    EXPECT_EQ(decoder.pri_getVideoFrame(picture_at({1, 1}), kRounds - 1), nullptr);
    EXPECT_NE(decoder.pri_getVideoFrame(picture_at({1, 1}), kRounds), nullptr);
}

TEST_F(FFDecoderRaceTest, FlagsOfTheHostAreSetAtAnyTime) {
    std::atomic<bool> flags[kThreads] = {};
    std::atomic<int> busy{kThreads};
    std::thread setter([&] {
        for (unsigned i = 0; busy > 0; ++i) {
            flags[i % kThreads] = (i / kThreads) % 2 == 0;
            std::this_thread::yield();
        }
    });
    run_threads([&](int thread, std::mt19937* random) {
        ff::FFDecoder decoder;
        EXPECT_TRUE(decoder.open(thread % 2 == 0 ? streams[0] : streams[1]));
        for (int round = 0; round < kRounds; ++round) {
            const Question question(random);
            ff::RequireVideoFrame request = picture_at(question.time);
            request.abort_flag = &flags[thread];
            const auto picture = decoder.getVideoFrame(request);
            EXPECT_EQ(request.abort_flag, &flags[thread]);
            if (picture != nullptr) {
                EXPECT_EQ(picture->pts, question.pts);
            }
        }
        // What was given up leaves the stream's workers in order.
        ask(&decoder, random, true);
        --busy;
    });
    setter.join();
}

TEST_F(FFDecoderRaceTest, OneRequestGoesToManyDecoders) {
    const ff::RequireVideoFrame request = picture_at({1, 1});
    run_threads([&](int, std::mt19937* random) {
        for (int round = 0; round < kRounds / 2; ++round) {
            ff::FFDecoder decoder;
            ASSERT_TRUE(decoder.open(any_stream(random)));
            for (int i = 0; i < 3; ++i) {
                const auto picture = decoder.getVideoFrame(request);
                ASSERT_NE(picture, nullptr);
                EXPECT_EQ(picture->pts, 1000000);
            }
        }
    });
}

TEST_F(FFDecoderRaceTest, FilesAreProbedWhileOthersDecode) {
    const std::string bytes = fw_test::read_file(fw_test::clip_small());
    std::vector<std::string> paths;
    for (int i = 0; i < 4; ++i) {
        paths.push_back(fw_test::make_file("probed" + std::to_string(i) + ".mp4", bytes));
    }
    run_threads([&](int thread, std::mt19937* random) {
        for (std::size_t round = 0; round < paths.size(); ++round) {
            const std::string& path = paths[thread % 2 == 0 ? round : paths.size() - 1 - round];
            const ff::MovieCtx* const movie = ff::FFDecoder::probe(path.c_str());
            ASSERT_NE(movie, nullptr);
            ASSERT_EQ(movie->nb_streams, 1);
            EXPECT_EQ(ff::FFDecoder::probe((path + ".missing").c_str()), nullptr);
            ff::FFDecoder decoder;
            ASSERT_TRUE(decoder.open(movie->streams[0]));
            ask(&decoder, random, true);
        }
    });
}

TEST_F(FFDecoderRaceTest, AStillIsAskedForByAll) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream_of(fw_test::clip_png())));
    run_threads([&](int thread, std::mt19937* random) {
        for (int round = 0; round < kRounds; ++round) {
            if (thread == 0 && round % 4 == 0) {
                decoder.close();
                ASSERT_TRUE(decoder.reopen());
            }
            const int divider = 1 + below(random, 2);
            const auto picture =
                decoder.getVideoFrame(picture_at({round, 1}, PixelFormat::Rgba, divider));
            if (picture != nullptr) {
                EXPECT_EQ(picture->divider, divider);
                EXPECT_EQ(picture->width, 320 / divider);
            }
        }
    });
}

TEST_F(FFDecoderRaceTest, FiltersComeAndGoWhileOthersAsk) {
    class FilteringDecoder final : public ff::FFDecoder {
    public:
        ff::FFDecoderPrivate* state() const { return d(); }
    };

    FilteringDecoder decoder;
    ASSERT_TRUE(decoder.open(streams[0]));
    run_threads([&](int thread, std::mt19937* random) {
        for (int round = 0; round < kRounds; ++round) {
            if (thread == 0) {
                EXPECT_TRUE(decoder.state()->open_filter(round % 2 == 0 ? "hflip" : "scale=80:60"));
            } else if (thread == 1) {
                decoder.state()->close_filter();
            } else {
                ask(&decoder, random, true);
            }
        }
    });
}

TEST_F(FFDecoderRaceTest, ThePoolIsEmptiedWhileOthersAsk) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(streams[0]));
    run_threads([&](int thread, std::mt19937* random) {
        for (int round = 0; round < kRounds; ++round) {
            if (thread == 0) {
                (void)ff::FFDecoder::memCollection(0);
            } else {
                ask(&decoder, random, true);
            }
        }
    });
}
