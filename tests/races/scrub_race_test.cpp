// Many threads that open, ask, close, reopen and destroy, and a close during a long decode. Worth
// running under ThreadSanitizer; a deadlock ends with a message, not with a timeout.

#include "media/ff_compat.h"
#include "tests/support/async_scene.h"
#include "tests/support/log_capture.h"
#include "tests/support/media.h"

#include <framewell/ffdecoder2.h>
#include <framewell/framewell.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

std::atomic<int> g_decoded{0};                             // pictures since the program began
std::atomic<const std::function<void()>*> g_on_decoded{};  // called after each of them

}  // namespace

extern "C" {

// Comes before FFmpeg's own, and counts.
int avcodec_receive_frame(AVCodecContext* codec, AVFrame* frame) {
    using Function = int(AVCodecContext*, AVFrame*);
    static auto* const s_real =
        reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "avcodec_receive_frame"));
    const int result = s_real(codec, frame);
    if (result >= 0) {
        ++g_decoded;
        if (const auto* const call = g_on_decoded.load()) {
            (*call)();
        }
    }
    return result;
}

}  // extern "C"

namespace {

using fw_test::Answers;
using fw_test::Gate;
using fw_test::LogCapture;
using fw_test::Watchdog;

constexpr int kThreads = 8;

const ff::StreamCtx* stream_of(const std::string& path, ff::StreamType type) {
    const ff::StreamCtx* const stream =
        ff::first_stream(ff::FFDecoder::probe(path.c_str(), nullptr), type);
    if (stream == nullptr) {
        throw std::runtime_error("nothing to decode in " + path);
    }
    return stream;
}

/// Calls a function after each decoded picture, on the thread that decodes.
class OnDecoded {
public:
    explicit OnDecoded(std::function<void()> call) : m_call(std::move(call)) {
        g_on_decoded = &m_call;
    }

    OnDecoded(const OnDecoded&) = delete;
    OnDecoded& operator=(const OnDecoded&) = delete;

    ~OnDecoded() { g_on_decoded = nullptr; }

private:
    const std::function<void()> m_call;
};

/// Starts `count` threads, each with its number and random numbers of its own, and waits for them.
void in_threads(int count, const std::function<void(int number, std::mt19937& random)>& body) {
    std::vector<std::thread> threads;
    for (int number = 0; number < count; ++number) {
        threads.emplace_back([&body, number] {
            std::mt19937 random(static_cast<unsigned>(number) + 20261121U);
            body(number, random);
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

class ScrubRaceTest : public ::testing::Test {
protected:
    Watchdog watchdog{"ScrubRaceTest"};
    LogCapture quiet;
    const ff::StreamCtx* const long_gop =
        stream_of(fw_test::clip_h264_long_gop(), ff::StreamType::Video);
    const ff::StreamCtx* const short_gop = stream_of(fw_test::clip_h264(), ff::StreamType::Video);
    const ff::StreamCtx* const sound = stream_of(fw_test::clip_pcm(), ff::StreamType::Audio);
};

// One key picture in 250: a request late in the group decodes more than 200 pictures.
const ff::Rational kLateInGroup{240, 30};

TEST_F(ScrubRaceTest, EndsALongDecodeAtTheNextPictureWhenItIsClosed) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(long_gop));
    ff::RequireVideoFrame req;
    req.time = kLateInGroup;
    Gate fifth_picture;
    std::atomic<int> pictures{0};
    std::atomic<int> after_close{0};
    const OnDecoded watch([&] {
        if (++pictures == 5) {
            fifth_picture.pass();  // the close begins meanwhile
        } else if (pictures > 5) {
            ++after_close;
        }
    });
    std::atomic<bool> answered{false};
    decoder.getVideoFrameAsync(req, [&](const auto&) { answered = true; });
    fifth_picture.wait_for(1);
    std::thread closer([&] { decoder.close(); });
    fw_test::wait_until([&] { return req.abort_flag->load(); });
    fifth_picture.open();
    closer.join();
    EXPECT_FALSE(answered);
    EXPECT_LE(after_close, 1) << "the decode that was running may still give its picture";
}

TEST_F(ScrubRaceTest, EndsALongDecodeAtTheNextPictureWhenItIsDestroyed) {
    auto decoder = std::make_unique<ff::FFDecoder2>();
    ASSERT_TRUE(decoder->open(long_gop));
    ff::RequireVideoFrame req;
    req.time = kLateInGroup;
    Gate fifth_picture;
    std::atomic<int> pictures{0};
    const OnDecoded watch([&] {
        if (++pictures == 5) {
            fifth_picture.pass();
        }
    });
    decoder->getVideoFrameAsync(req, [&](const auto&) { ADD_FAILURE() << "answered"; });
    fifth_picture.wait_for(1);
    std::thread destroyer([&] { decoder.reset(); });
    fw_test::wait_until([&] { return req.abort_flag->load(); });
    fifth_picture.open();
    destroyer.join();
    EXPECT_LE(pictures, 6);
}

TEST_F(ScrubRaceTest, TakesRequestsWithoutWaitingForTheRunningDecode) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(long_gop));
    ff::RequireVideoFrame req;
    req.time = kLateInGroup;
    Gate fifth_picture;
    std::atomic<int> pictures{0};
    Answers<std::int64_t> answers;
    const auto answer = [&](const std::shared_ptr<ff::VFrameCtx>& got) { answers.add(got->pts); };
    {
        const OnDecoded watch([&] {
            if (++pictures == 5) {
                fifth_picture.pass();
            }
        });
        decoder.getVideoFrameAsync(req, answer);
        fifth_picture.wait_for(1);
        for (int i = 0; i < 100; ++i) {  // each would wait for ever if it waited for the decode
            req.time = {i, 30};
            decoder.getVideoFrameAsync(req, answer);
        }
        fifth_picture.open();
        (void)answers.wait_for(2);
        decoder.close();
    }
    EXPECT_EQ(answers.all(), (std::vector<std::int64_t>{8000000, 3300000}));
}

/// A decoder that the threads of the test share, and lose to each other.
class Slots {
public:
    std::shared_ptr<ff::FFDecoder2> get(std::size_t at) {
        const std::lock_guard<std::mutex> lock(m_mutex);
        if (!m_decoders[at]) {
            ++m_alive;
            m_decoders[at] = {new ff::FFDecoder2, [this](const ff::FFDecoder2* decoder) {
                                  delete decoder;
                                  --m_alive;
                              }};
        }
        return m_decoders[at];
    }

    /// Takes the decoder away from the others, if it is still there. It is destroyed by the last
    /// one that uses it, be that one a callback of its own.
    void drop(const ff::FFDecoder2* decoder) {
        std::shared_ptr<ff::FFDecoder2> dropped;
        const std::lock_guard<std::mutex> lock(m_mutex);
        for (std::shared_ptr<ff::FFDecoder2>& mine : m_decoders) {
            if (mine.get() == decoder) {
                dropped.swap(mine);
                return;
            }
        }
    }

    /// Lets go of all decoders and waits until they are gone: the last one to use a decoder may be
    /// its own thread, which nobody waits for.
    void clear() {
        for (std::size_t at = 0; at < kCount; ++at) {
            drop(get(at).get());
        }
        fw_test::wait_until([this] { return m_alive == 0; });
    }

    static constexpr std::size_t kCount = 3;

private:
    std::atomic<int> m_alive{0};
    std::mutex m_mutex;
    std::array<std::shared_ptr<ff::FFDecoder2>, kCount> m_decoders;  // guarded by m_mutex
};

/// What a callback does to its own decoder.
void misbehave(ff::FFDecoder2* decoder, Slots* slots, unsigned how) {
    ff::RequireVideoFrame req;
    req.time = {static_cast<int>(how % 100), 30};
    switch (how % 6) {
        case 0:
            decoder->close();
            break;
        case 1:
            decoder->close();
            (void)decoder->reopen();
            break;
        case 2:
            slots->drop(decoder);
            break;
        case 3:
            decoder->getVideoFrameAsync(req, nullptr);
            break;
        case 4:
            (void)decoder->getVideoFrame(req);
            break;
        default:
            break;
    }
}

class Scrubber {
public:
    Scrubber(Slots* slots, std::vector<const ff::StreamCtx*> streams, std::mt19937* random)
        : m_slots(*slots), m_streams(std::move(streams)), m_random(*random) {}

    void step() {
        const std::shared_ptr<ff::FFDecoder2> decoder = m_slots.get(m_random() % Slots::kCount);
        switch (m_random() % 12) {
            case 0:
            case 1:
            case 2:
                if (!decoder->isOpened()) {  // else each open would add a worker that stays
                    (void)decoder->open(m_streams[m_random() % m_streams.size()]);
                }
                break;
            case 3:
                decoder->close();
                break;
            case 4:
                decoder->close();
                (void)decoder->reopen();
                break;
            case 5:
                m_slots.drop(decoder.get());
                break;
            case 6:
                (void)decoder->getVideoFrame(picture());
                break;
            case 7:
                (void)decoder->getAudioFrame(span());
                break;
            case 8:
                ask_for_sound(decoder);
                break;
            default:
                ask_for_picture(decoder);
                break;
        }
    }

    int answers() const { return *m_answers; }

private:
    ff::RequireVideoFrame picture() {
        ff::RequireVideoFrame req;
        req.time = {static_cast<int>(m_random() % 120), 30};
        req.divider = 4;
        return req;
    }

    ff::RequireAudioFrame span() {
        ff::RequireAudioFrame req;
        const int tenth = static_cast<int>(m_random() % 30);
        req.range = {{tenth, 10}, {tenth + 1, 10}};
        return req;
    }

    void ask_for_picture(const std::shared_ptr<ff::FFDecoder2>& decoder) {
        decoder->getVideoFrameAsync(
            picture(), [weak = std::weak_ptr<ff::FFDecoder2>(decoder), slots = &m_slots,
                        answers = m_answers, how = m_random()](const auto&) {
                ++*answers;
                if (const std::shared_ptr<ff::FFDecoder2> own = weak.lock()) {
                    misbehave(own.get(), slots, static_cast<unsigned>(how));
                }
            });
    }

    void ask_for_sound(const std::shared_ptr<ff::FFDecoder2>& decoder) {
        decoder->getAudioFrameAsync(span(), [own = decoder, answers = m_answers](const auto&) {
            ++*answers;  // and may destroy the decoder, by holding it last
        });
    }

    Slots& m_slots;
    const std::vector<const ff::StreamCtx*> m_streams;
    std::mt19937& m_random;
    const std::shared_ptr<std::atomic<int>> m_answers = std::make_shared<std::atomic<int>>(0);
};

TEST_F(ScrubRaceTest, SurvivesThreadsThatOpenAskCloseReopenAndDestroy) {
    Slots slots;
    std::atomic<int> answers{0};
    in_threads(kThreads, [&](int, std::mt19937& random) {
        Scrubber scrubber(&slots, {short_gop, sound}, &random);
        for (int i = 0; i < 100; ++i) {
            scrubber.step();
        }
        answers += scrubber.answers();
    });
    slots.clear();
    // A picture after all that is still the right one.
    ff::FFDecoder2 decoder;
    ASSERT_TRUE(decoder.open(short_gop));
    ff::RequireVideoFrame req;
    req.time = {47, 30};
    const std::shared_ptr<ff::VFrameCtx> picture = decoder.getVideoFrame(req);
    ASSERT_TRUE(picture);
    EXPECT_EQ((picture->pts * 30 + 500000) / 1000000, 47);
    EXPECT_GT(answers, 0) << "nothing was ever answered: the test has tested nothing";
}

TEST_F(ScrubRaceTest, IsDestroyedByItsOwnCallbacksOnManyThreads) {
    std::atomic<int> destroyed{0};
    in_threads(kThreads, [&](int, std::mt19937& random) {
        for (int round = 0; round < 12; ++round) {
            auto* const decoder = new ff::FFDecoder2;  // its callback deletes it
            EXPECT_TRUE(decoder->open(short_gop));
            ff::RequireVideoFrame req;
            req.time = {static_cast<int>(random() % 120), 30};
            fw_test::Carried carried;
            decoder->getVideoFrameAsync(req, [&, thing = carried.make()](const auto&) {
                decoder->getVideoFrameAsync(req, [](const auto&) { ADD_FAILURE() << "is gone"; });
                delete decoder;
                ++destroyed;
            });
            carried.wait_until_gone();
        }
    });
    EXPECT_EQ(destroyed, kThreads * 12);
}

TEST_F(ScrubRaceTest, ClosesAndReopensFromManyThreadsWhileCallbacksDoTheSame) {
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(short_gop));
    in_threads(kThreads, [&](int number, std::mt19937& random) {
        for (int i = 0; i < 40; ++i) {
            ff::RequireVideoFrame req;
            req.time = {static_cast<int>(random() % 120), 30};
            if (number % 2 == 0) {
                decoder.getVideoFrameAsync(req, [&](const auto&) {
                    decoder.close();
                    (void)decoder.reopen();
                });
            } else if (random() % 2 == 0) {
                decoder.close();
            } else if (!decoder.isOpened()) {  // else each would add a worker that stays
                (void)decoder.reopen();
            }
        }
    });
    decoder.close();
    EXPECT_FALSE(decoder.isOpened());
}

TEST_F(ScrubRaceTest, ChangesSettingsWhileRequestsRun) {
    ff::FFDecoder2 pictures;
    ff::FFDecoder2 samples;
    ASSERT_TRUE(pictures.open(short_gop));
    ASSERT_TRUE(samples.open(sound));
    std::atomic<int> answers{0};
    const int level = av_log_get_level();
    av_log_set_level(AV_LOG_QUIET);
    testing::internal::CaptureStderr();  // one line for each change
    in_threads(6, [&](int number, std::mt19937& random) {
        for (int i = 0; i < 30; ++i) {
            ff::RequireVideoFrame picture;
            picture.time = {i, 30};
            ff::RequireAudioFrame span;
            span.range = {{i, 30}, {i + 1, 30}};
            const double speed = 0.5 + static_cast<double>(random() % 250) / 100;
            if (number < 2) {
                (void)pictures.setSpeed(speed);
                pictures.setRevert(random() % 2 == 0);
                (void)pictures.setFilters(random() % 2 == 0 ? "hflip" : nullptr);
                (void)samples.setSpeed(speed);
                (void)samples.setFilters(random() % 2 == 0 ? "volume=0.5" : "nosuchfilter");
            } else if (number < 4) {
                answers += pictures.getVideoFrame(picture) ? 1 : 0;
                answers += samples.getAudioFrame(span) ? 1 : 0;
            } else {
                pictures.getVideoFrameAsync(picture, [&](const auto&) {
                    ++answers;
                    (void)pictures.setSpeed(1.5);
                });
                samples.getAudioFrameAsync(span, [&](const auto&) { ++answers; });
                (void)samples.speed();
            }
        }
    });
    pictures.close();
    samples.close();
    (void)testing::internal::GetCapturedStderr();
    av_log_set_level(level);
    EXPECT_GT(answers, 0);
}

TEST_F(ScrubRaceTest, LetsOneOfTwoThreadsThatSetTheSpeedWinInTimesAndFilters) {
    ff::FFDecoder2 decoder;
    ASSERT_TRUE(decoder.open(sound));
    for (int round = 0; round < 30; ++round) {
        testing::internal::CaptureStderr();
        const double speeds[] = {1.25, 2.5};
        in_threads(
            2, [&](int number, std::mt19937&) { EXPECT_TRUE(decoder.setSpeed(speeds[number])); });
        const std::string printed = testing::internal::GetCapturedStderr();
        const std::string opened = printed.substr(printed.rfind("open filter: atempo="));
        EXPECT_EQ(opened.substr(0, 24), decoder.speed() == 1.25 ? "open filter: atempo=1.25"
                                                                : "open filter: atempo=2.50");
    }
}

}  // namespace
