// Requests whose flag is set while they decode, while they wait for another request, and before
// they begin: every way into the decoder, measured in calls of libav, not in time.

#include "tests/hw/libav_hooks.h"
#include "tests/support/async_scene.h"
#include "tests/support/decoders.h"
#include "tests/support/demux_hooks.h"
#include "tests/support/engine.h"
#include "tests/support/temp_file.h"
#include "tests/support/watchdog.h"

#include <framewell/ff_tools.h>
#include <framewell/ffdecoder.h>
#include <framewell/ffdecoder2.h>
#include <framewell/movie_info.h>

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using fw_test::Answers;
using fw_test::Carried;
using fw_test::g_demux_hooks;
using fw_test::Gate;
using fw_test::HookScope;
using fw_test::LogCapture;
using fw_test::picture_at;
using fw_test::stream_of;
using fw_test::Watchdog;
using Flag = std::atomic<bool>;

constexpr ff::Rational kLate{16, 1};  // hundreds of pictures behind a key picture

/// Counts the packets that are given to decoders and read from files. With `set_at`, a thread of
/// its own sets the flag in the middle of that call.
class CallCounter {
public:
    explicit CallCounter(Flag* flag, int set_at = 0) : m_flag(flag), m_set_at(set_at) {
        g_demux_hooks.send_packet = [this](const AVPacket* packet) {
            if (packet != nullptr) {
                count_packet();
            }
            return std::optional<int>();
        };
        g_demux_hooks.read_packet = [this](AVPacket*) {
            m_reads_after += *m_flag ? 1 : 0;
            return std::optional<int>();
        };
    }

    CallCounter(const CallCounter&) = delete;
    CallCounter& operator=(const CallCounter&) = delete;

    ~CallCounter() { g_demux_hooks = fw_test::DemuxHooks(); }

    int packets() const { return m_packets; }

    /// Those that came after the flag was set.
    int packets_after() const { return m_packets_after; }

    int reads_after() const { return m_reads_after; }

private:
    void count_packet() {
        m_packets_after += *m_flag ? 1 : 0;
        if (++m_packets == m_set_at) {
            std::thread([this] { *m_flag = true; }).join();
        }
    }

    Flag* const m_flag;
    const int m_set_at;
    std::atomic<int> m_packets{0};
    std::atomic<int> m_packets_after{0};
    std::atomic<int> m_reads_after{0};
};

ff::RequireVideoFrame late_picture(Flag* flag, const ff::Rational& time = kLate) {
    ff::RequireVideoFrame request = picture_at(time);
    request.abort_flag = flag;
    return request;
}

ff::RequireAudioFrame late_sound(Flag* flag) {
    ff::RequireAudioFrame request;
    request.range = {{1, 1}, {3, 1}};
    request.format = ff::SampleFormat::S16;
    request.sample_rate = 44100;
    request.channels = 2;
    request.abort_flag = flag;
    return request;
}

const ff::StreamCtx* long_gop() {
    return stream_of(fw_test::clip_h264_long_gop());
}

const ff::StreamCtx* sound() {
    return stream_of(fw_test::clip_aac(), ff::StreamType::Audio);
}

/// One way to ask: prepares what it needs, and returns what asks. That returns whether there was a
/// result.
struct EntryPoint {
    const char* name;
    std::function<bool(Flag*)> (*prepare)();
};

template <class Decoder>
std::shared_ptr<Decoder> opened(const ff::StreamCtx* stream) {
    auto decoder = std::make_shared<Decoder>();
    if (!decoder->open(stream)) {
        throw std::runtime_error("the clip cannot be opened");
    }
    return decoder;
}

template <class Decoder>
std::function<bool(Flag*)> asks_for_picture(std::shared_ptr<Decoder> decoder,
                                            const ff::Rational& time = kLate) {
    return [decoder, time](Flag* flag) {
        return decoder->getVideoFrame(late_picture(flag, time)) != nullptr;
    };
}

template <class Decoder>
std::function<bool(Flag*)> asks_for_sound(std::shared_ptr<Decoder> decoder) {
    return [decoder](Flag* flag) {
        const auto sound = decoder->getAudioFrame(late_sound(flag));
        return sound != nullptr && sound->nb_samples > 0;
    };
}

std::function<bool(Flag*)> picture() {
    return asks_for_picture(opened<ff::FFDecoder>(long_gop()));
}

std::function<bool(Flag*)> span() {
    return asks_for_sound(opened<ff::FFDecoder>(sound()));
}

/// The result of a background request: whether its callback was called before the request was over.
template <class Ask>
bool answered(const Ask& ask) {
    Carried carried;
    const auto called = std::make_shared<Flag>(false);
    ask([called, thing = carried.make()](const auto&) { *called = true; });
    carried.wait_until_gone();
    return *called;
}

std::function<bool(Flag*)> background_picture() {
    return [decoder = opened<ff::FFDecoder>(long_gop())](Flag* flag) {
        return answered(
            [&](auto callback) { decoder->getVideoFrameAsync(late_picture(flag), callback); });
    };
}

std::function<bool(Flag*)> background_span() {
    return [decoder = opened<ff::FFDecoder>(sound())](Flag* flag) {
        return answered(
            [&](auto callback) { decoder->getAudioFrameAsync(late_sound(flag), callback); });
    };
}

std::function<bool(Flag*)> reversed_picture() {
    auto decoder = opened<ff::FFDecoder2>(long_gop());
    decoder->setRevert(true);
    return asks_for_picture(decoder, {4, 1});
}

std::function<bool(Flag*)> fast_picture() {
    auto decoder = opened<ff::FFDecoder2>(long_gop());
    (void)decoder->setSpeed(2.0);
    return asks_for_picture(decoder, {8, 1});
}

std::function<bool(Flag*)> filtered_picture() {
    auto decoder = opened<ff::FFDecoder2>(long_gop());
    if (!decoder->setFilters("hflip")) {
        throw std::runtime_error("no filter");
    }
    return asks_for_picture(decoder);
}

std::function<bool(Flag*)> filtered_span() {
    auto decoder = opened<ff::FFDecoder2>(sound());
    if (!decoder->setFilters("volume=0.5")) {
        throw std::runtime_error("no filter");
    }
    return asks_for_sound(decoder);
}

std::function<bool(Flag*)> cover() {
    (void)long_gop();  // probed, so that the decode of the picture is what is cancelled
    return [](Flag* flag) {
        ff::RequireMvImage request;
        request.time = kLate;
        request.format = ff::PixelFormat::Rgba;
        request.abort_flag = flag;
        return ff::getMovieImage(fw_test::clip_h264_long_gop().c_str(), request, nullptr) !=
               nullptr;
    };
}

class CancelTest : public testing::TestWithParam<EntryPoint> {
protected:
    HookScope hooks;
    const LogCapture quiet;
    Watchdog watchdog{"a cancelled request"};
    Flag flag{false};
};

TEST_P(CancelTest, DecodesNothingMoreOnceTheFlagIsSet) {
    for (const int at : {1, 2, 9, 30}) {
        flag = false;
        const auto ask = GetParam().prepare();
        const CallCounter calls(&flag, at);
        EXPECT_FALSE(ask(&flag)) << at;
        EXPECT_EQ(calls.packets(), at) << "the request ended before its flag was set";
        EXPECT_EQ(calls.packets_after(), 0) << at;
        EXPECT_EQ(calls.reads_after(), 0) << at;
    }
}

TEST_P(CancelTest, DecodesNothingWhenTheFlagIsSetBefore) {
    flag = true;
    const auto ask = GetParam().prepare();
    const CallCounter calls(&flag);
    EXPECT_FALSE(ask(&flag));
    EXPECT_EQ(calls.packets(), 0);
}

TEST_P(CancelTest, AnswersTheSameRequestAfterwards) {
    const auto ask = GetParam().prepare();
    {
        const CallCounter calls(&flag, 5);
        EXPECT_FALSE(ask(&flag));
    }
    flag = false;
    EXPECT_TRUE(ask(&flag));
}

TEST_P(CancelTest, SaysNothingOfErrors) {
    const auto ask = GetParam().prepare();
    const CallCounter calls(&flag, 3);
    const LogCapture log;
    EXPECT_FALSE(ask(&flag));
    EXPECT_EQ(log.texts(2), std::vector<std::string>());
}

INSTANTIATE_TEST_SUITE_P(EntryPoints, CancelTest,
                         testing::Values(EntryPoint{"Picture", picture}, EntryPoint{"Sound", span},
                                         EntryPoint{"BackgroundPicture", background_picture},
                                         EntryPoint{"BackgroundSound", background_span},
                                         EntryPoint{"ReversedPicture", reversed_picture},
                                         EntryPoint{"FastPicture", fast_picture},
                                         EntryPoint{"FilteredPicture", filtered_picture},
                                         EntryPoint{"FilteredSound", filtered_span},
                                         EntryPoint{"Cover", cover}),
                         [](const auto& row) { return std::string(row.param.name); });

/// Sends the thread to sleep in front of the next packet, and counts those of one other thread.
class HeldDecode {
public:
    HeldDecode() {
        g_demux_hooks.send_packet = [this](const AVPacket*) {
            if (std::this_thread::get_id() == m_waiting) {
                ++m_packets_of_waiting;
            } else {
                m_gate.pass();
            }
            return std::optional<int>();
        };
    }

    HeldDecode(const HeldDecode&) = delete;
    HeldDecode& operator=(const HeldDecode&) = delete;

    ~HeldDecode() { g_demux_hooks.send_packet = nullptr; }

    void wait_until_held() { m_gate.wait_for(1); }

    void let_go() { m_gate.open(); }

    /// To be called on the thread that is about to wait.
    void name_this_thread() { m_waiting = std::this_thread::get_id(); }

    int packets_of_waiting() const { return m_packets_of_waiting; }

private:
    Gate m_gate;
    std::atomic<std::thread::id> m_waiting{};
    std::atomic<int> m_packets_of_waiting{0};
};

/// True once the system says that the thread sleeps, as it does when it waits for a lock.
bool sleeps(long thread_id) {
    std::ifstream stat("/proc/self/task/" + std::to_string(thread_id) + "/stat");
    std::string text;
    std::getline(stat, text);
    const std::size_t end_of_name = text.rfind(')');
    return end_of_name != std::string::npos && text.compare(end_of_name, 3, ") S") == 0;
}

class CancelWaitTest : public testing::TestWithParam<bool> {
protected:
    HookScope hooks;
    const LogCapture quiet;
    Watchdog watchdog{"a request that is cancelled while it waits"};
};

TEST_P(CancelWaitTest, DecodesNothingWhenItsTurnComes) {
    const bool same_decoder = GetParam();
    const auto first = opened<ff::FFDecoder>(long_gop());
    const auto second = same_decoder ? first : opened<ff::FFDecoder>(long_gop());
    Flag flag{false};
    std::shared_ptr<ff::VFrameCtx> answer;
    std::shared_ptr<ff::VFrameCtx> cancelled;
    HeldDecode held;
    std::thread decoding([&] { answer = first->getVideoFrame(picture_at({1, 1})); });
    held.wait_until_held();
    std::atomic<long> waiting_id{0};
    std::thread waiting([&] {
        held.name_this_thread();
        waiting_id = ::syscall(SYS_gettid);
        cancelled = second->getVideoFrame(late_picture(&flag));
    });
    fw_test::wait_until([&] { return waiting_id != 0 && sleeps(waiting_id); });
    flag = true;
    held.let_go();
    decoding.join();
    waiting.join();
    ASSERT_NE(answer, nullptr);
    EXPECT_EQ(answer->pts, 1000000);
    EXPECT_EQ(cancelled, nullptr);
    EXPECT_EQ(held.packets_of_waiting(), 0);
}

INSTANTIATE_TEST_SUITE_P(For, CancelWaitTest, testing::Values(false, true), [](const auto& row) {
    return std::string(row.param ? "ItsOwnDecoder" : "AnotherDecoderOfTheStream");
});

class CancelProbeTest : public testing::Test {
protected:
    HookScope hooks;
    const LogCapture quiet;
    Watchdog watchdog{"a probe that is cancelled"};
    Flag flag{false};
    // It tells no duration: the probe decodes all of it.
    const fw_test::TempFile file{
        "live.mkv", fw_test::read_file(fw_test::make_clip(
                        "live.mkv", fw_test::small_video("8") + fw_test::kSmallH264 + "-live 1"))};
};

TEST_F(CancelProbeTest, CountsNoMorePicturesOnceTheFlagIsSet) {
    const CallCounter calls(&flag, 40);
    const ff::MovieCtx* const movie = ff::getMovieInfo(file.path().c_str(), &flag);
    ASSERT_NE(movie, nullptr);
    EXPECT_EQ(movie->nb_streams, 1);
    EXPECT_GT(movie->streams[0]->width, 0);
    EXPECT_EQ(calls.packets(), 40);
    EXPECT_EQ(calls.packets_after(), 0);
    EXPECT_EQ(calls.reads_after(), 0);
}

TEST_F(CancelProbeTest, LooksAtTheFirstTwoPicturesWhenTheFlagIsSetBefore) {
    flag = true;
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(file.path().c_str(), &flag);
    ASSERT_NE(movie, nullptr);
    EXPECT_GE(movie->streams[0]->codec_pix_fmt, 0);  // what a decoder needs is there
}

TEST_F(CancelProbeTest, GivesNoCoverOnceTheFlagIsSet) {
    const CallCounter calls(&flag, 40);
    ff::RequireMvImage request;
    request.time = {1, 1};
    request.format = ff::PixelFormat::Rgba;
    request.abort_flag = &flag;
    EXPECT_EQ(ff::getMovieImage(file.path().c_str(), request, nullptr), nullptr);
    EXPECT_EQ(calls.packets_after(), 0);
}

TEST_F(CancelProbeTest, ASearchForAKeyPictureEndsToo) {
    // Transport streams are searched by time, so that reading begins between two key pictures, and
    // what lies before the next one is read and not decoded.
    const std::string clip = fw_test::make_clip(
        "one_key.ts", fw_test::small_video("20") +
                          "-c:v libx264 -preset veryfast -threads 1 -bf 0 -g 1000 -sc_threshold 0");
    const auto decoder = opened<ff::FFDecoder>(stream_of(clip));
    ASSERT_NE(decoder->getVideoFrame(picture_at({0, 1})), nullptr);
    int reads_in_a_row = 0;
    int reads_after = 0;
    g_demux_hooks.send_packet = [&](const AVPacket*) {
        reads_in_a_row = 0;
        return std::optional<int>();
    };
    g_demux_hooks.read_packet = [&](AVPacket*) {
        reads_after += flag ? 1 : 0;
        flag = flag || ++reads_in_a_row == 10;
        return std::optional<int>();
    };
    EXPECT_EQ(decoder->getVideoFrame(late_picture(&flag)), nullptr);
    ASSERT_TRUE(flag) << "no search for a key picture";
    EXPECT_EQ(reads_after, 0);
}

}  // namespace
