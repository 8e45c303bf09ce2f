// A machine in trouble: no memory, no threads, no place for log lines. What a host gets is the
// failure value and a line of the log, and the same request is answered when the trouble is over.

#include "tests/support/async_scene.h"
#include "tests/support/decoders.h"
#include "tests/support/demux_hooks.h"
#include "tests/support/engine.h"
#include "tests/support/processor.h"
#include "tests/support/system_faults.h"
#include "tests/support/temp_file.h"
#include "tests/support/watchdog.h"
#include "tools/framewell/on_threads.h"

#include <framewell/audio_mixer.h>
#include <framewell/base/tracer.h>
#include <framewell/ff_tools.h>
#include <framewell/ffdecoder.h>
#include <framewell/ffdecoder2.h>
#include <framewell/utils/mempool.h>
#include <framewell/utils/wave_files.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

fw_test::SystemFaults fw_test::g_system_faults;

using fw_test::g_system_faults;
using fw_test::SystemFaults;

#if FW_TEST_CAN_REFUSE
namespace {

/// The library is linked into this program, FFmpeg is not: its own allocations go on.
bool is_of_this_program(const void* code) {
    Dl_info caller{};
    Dl_info here{};
    return dladdr(code, &caller) != 0 && dladdr(&g_system_faults, &here) != 0 &&
           caller.dli_fbase == here.dli_fbase;
}

}  // namespace

extern "C" {

int posix_memalign(void** block, size_t alignment, size_t size) noexcept {
    static auto* const s_real =
        reinterpret_cast<int (*)(void**, size_t, size_t)>(dlsym(RTLD_NEXT, "posix_memalign"));
    if (g_system_faults.refuse_memory && is_of_this_program(__builtin_return_address(0))) {
        ++g_system_faults.refused;
        return ENOMEM;
    }
    return s_real(block, alignment, size);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) noexcept {
    static auto* const s_real =
        reinterpret_cast<int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>(
            dlsym(RTLD_NEXT, "pthread_create"));
    if (g_system_faults.refuse_threads) {
        ++g_system_faults.refused;
        return EAGAIN;
    }
    return s_real(thread, attributes, run, argument);
}

}  // extern "C"
#endif

namespace {

using fw_test::Carried;
using fw_test::HookScope;
using fw_test::kCannotRefuse;
using fw_test::kCanRefuse;
using fw_test::LogCapture;
using fw_test::luma_of;
using fw_test::picture_at;
using fw_test::Refusal;
using fw_test::sound_of;
using fw_test::stream_of;
using fw_test::TempFile;
using fw_test::Watchdog;
using Flag = std::atomic<bool>;
using Texts = std::vector<std::string>;

constexpr int kRate = 44100;

const ff::StreamCtx* video() {
    return stream_of(fw_test::clip_h264());
}

const ff::StreamCtx* sound() {
    return stream_of(fw_test::clip_pcm(), ff::StreamType::Audio);
}

template <class Decoder>
std::shared_ptr<Decoder> opened(const ff::StreamCtx* stream) {
    auto decoder = std::make_shared<Decoder>();
    if (!decoder->open(stream)) {
        throw std::runtime_error("the clip cannot be opened");
    }
    return decoder;
}

// No memory

/// One way to ask for something that takes memory of the pool. What prepare() returns asks, and
/// tells whether there was a result.
struct Taker {
    const char* name;
    std::function<bool()> (*prepare)();
    int nb_lines;  ///< that the log has of the failure
};

std::function<bool()> picture() {
    return [decoder = opened<ff::FFDecoder>(video())] {
        return decoder->getVideoFrame(picture_at({1, 1})) != nullptr;
    };
}

std::function<bool()> still() {
    return [decoder = opened<ff::FFDecoder>(stream_of(fw_test::clip_png()))] {
        return decoder->getVideoFrame(picture_at({0, 1})) != nullptr;
    };
}

std::function<bool()> filtered_picture() {
    auto decoder = opened<ff::FFDecoder2>(video());
    (void)decoder->setFilters("hflip");
    (void)decoder->setSpeed(2.0);
    return [decoder] { return decoder->getVideoFrame(picture_at({1, 1})) != nullptr; };
}

std::function<bool()> background_picture() {
    return [decoder = opened<ff::FFDecoder>(video())] {
        Carried carried;
        const auto called = std::make_shared<Flag>(false);
        decoder->getVideoFrameAsync(
            picture_at({1, 1}), [called, thing = carried.make()](const auto&) { *called = true; });
        carried.wait_until_gone();
        return called->load();
    };
}

std::function<bool()> span() {
    return [decoder = opened<ff::FFDecoder>(sound())] {
        return decoder->getAudioFrame(sound_of({{1, 1}, {2, 1}})) != nullptr;
    };
}

std::function<bool()> filtered_span() {
    auto decoder = opened<ff::FFDecoder2>(sound());
    (void)decoder->setFilters("volume=0.5");
    return [decoder] { return decoder->getAudioFrame(sound_of({{1, 1}, {2, 1}})) != nullptr; };
}

std::function<bool()> cover() {
    (void)video();
    return [] {
        ff::RequireMvImage request;
        request.time = {1, 1};
        request.format = ff::PixelFormat::Rgba;
        ff::Rational duration;
        const auto picture = ff::getMovieImage(fw_test::clip_h264().c_str(), request, &duration);
        EXPECT_EQ(duration.num, 4000000);
        return picture != nullptr;
    };
}

std::function<bool()> block_of_a_mixer() {
    return [] {
        ff::AudioMixer mixer(kRate, 2, ff::SampleFormat::S16);
        mixer.begin({{0, 1}, {1, 1}});
        const auto block = mixer.end();
        return block != nullptr && block->data != nullptr && block->size > 0;
    };
}

std::function<bool()> record_of_sound() {
    return [] {
        const auto record = ff::create_audioframe_ctx(sound_of({{0, 1}, {1, 1}}), 1000);
        EXPECT_NE(record, nullptr);
        return record->buffer != nullptr && record->nb_samples == 1000;
    };
}

std::function<bool()> plain_buffer() {
    return [] {
        void* const buffer = ff::mem_malloc(1000, 16);
        const bool has_buffer = buffer != nullptr;
        if (has_buffer) {
            ff::mem_free(buffer);
        }
        return has_buffer;
    };
}

class NoMemoryTest : public testing::TestWithParam<Taker> {
protected:
    Watchdog watchdog{"a request without memory"};
};

TEST_P(NoMemoryTest, GivesTheFailureValueAndOneLineAndRecovers) {
    if (!kCanRefuse) {
        GTEST_SKIP() << kCannotRefuse;
    }
    {
        const LogCapture quiet;
        const auto ask = GetParam().prepare();
        (void)ff::mem_collection(0);  // or a buffer that lies idle is used
        for (int i = 0; i < 2; ++i) {
            const Refusal refusal(&SystemFaults::refuse_memory);
            const LogCapture log;
            EXPECT_FALSE(ask());
            EXPECT_GT(refusal.count(), 0);
            EXPECT_EQ(log.texts(2).size(), static_cast<std::size_t>(GetParam().nb_lines))
                << testing::PrintToString(log.texts(2));
        }
        EXPECT_EQ(ff::mem_collection(0), 0U) << "a buffer of a failed request";
        EXPECT_TRUE(ask());
    }
    EXPECT_EQ(ff::mem_collection(0), 1U) << "a buffer is lost, or given back twice";
}

INSTANTIATE_TEST_SUITE_P(Takers, NoMemoryTest,
                         testing::Values(Taker{"Picture", picture, 1}, Taker{"Still", still, 1},
                                         Taker{"FilteredPicture", filtered_picture, 1},
                                         Taker{"BackgroundPicture", background_picture, 1},
                                         Taker{"Sound", span, 1},
                                         Taker{"FilteredSound", filtered_span, 1},
                                         Taker{"Cover", cover, 1},
                                         Taker{"BlockOfAMixer", block_of_a_mixer, 1},
                                         Taker{"RecordOfSound", record_of_sound, 0},
                                         Taker{"PlainBuffer", plain_buffer, 0}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST(NoMemoryMixerTest, AQueueThatCannotBeMixedIsAFailedWrite) {
    if (!kCanRefuse) {
        GTEST_SKIP() << kCannotRefuse;
    }
    ff::AudioMixer mixer(kRate, 2, ff::SampleFormat::S16);
    const auto half = ff::create_audioframe_ctx(sound_of({{0, 1}, {1, 2}}), 60);
    mixer.begin({{0, 1}, {100, kRate}});
    const auto writer = mixer.getBuffer(nullptr);
    mixer.begin({{100, kRate}, {150, kRate}});
    ASSERT_TRUE(writer->write(half, 100));  // 50 of the 60 samples; 10 wait
    mixer.begin({{150, kRate}, {250, kRate}});
    (void)ff::mem_collection(0);
    const LogCapture log;
    {
        const Refusal refusal(&SystemFaults::refuse_memory);
        EXPECT_FALSE(writer->write(half, 100));
        EXPECT_GT(refusal.count(), 0);
    }
    EXPECT_EQ(log.texts(2), Texts{"[mixer] no memory for 400 bytes"});
    EXPECT_TRUE(writer->write(half, 100));
}

// No threads

class NoThreadsTest : public testing::Test {
protected:
    void SetUp() override {
        if (!kCanRefuse) {
            GTEST_SKIP() << kCannotRefuse;
        }
    }

    HookScope hooks;
    Watchdog watchdog{"a request without threads"};
};

TEST_F(NoThreadsTest, ABackgroundRequestIsDroppedWithALine) {
    const auto pictures = opened<ff::FFDecoder>(video());
    const auto sounds = opened<ff::FFDecoder>(sound());
    Carried carried;
    Flag called{false};
    {
        const LogCapture log;
        const Refusal refusal(&SystemFaults::refuse_threads);
        pictures->getVideoFrameAsync(
            picture_at({1, 1}), [&called, thing = carried.make()](const auto&) { called = true; });
        sounds->getAudioFrameAsync(sound_of({{0, 1}, {1, 1}}), [&called, thing = carried.make()](
                                                                   const auto&) { called = true; });
        EXPECT_EQ(refusal.count(), 2);
        EXPECT_EQ(log.count("no thread for requests in the background: "), 2U);
        EXPECT_EQ(log.texts(2).size(), 2U);
    }
    EXPECT_TRUE(carried.is_gone());
    EXPECT_NE(pictures->getVideoFrame(picture_at({1, 1})), nullptr) << "nobody else is hit";
    EXPECT_FALSE(called);

    fw_test::Answers<std::int64_t> answers;
    pictures->getVideoFrameAsync(picture_at({2, 1}),
                                 [&](const auto& picture) { answers.add(picture->pts); });
    EXPECT_EQ(answers.wait_for(1), std::vector<std::int64_t>{2000000});
    pictures->close();
}

TEST_F(NoThreadsTest, ADecoderThatNeedsThreadsDoesNotOpen) {
    const ff::StreamCtx* const stream = video();
    ff::FFDecoder decoder;
    // One processor is decoded on without threads.
    if (fw_test::Reader(fw_test::clip_h264(), 0).instance.codec_context()->thread_count < 2) {
        GTEST_SKIP() << "this machine decodes with one thread";
    }
    {
        const LogCapture log;
        const Refusal refusal(&SystemFaults::refuse_threads);
        EXPECT_FALSE(decoder.open(stream));
        EXPECT_GT(refusal.count(), 0);
        EXPECT_EQ(log.texts(2).size(), 1U);
        EXPECT_TRUE(log.contains("failed to open codec: ")) << log.texts(2).front();
        EXPECT_EQ(decoder.getVideoFrame(picture_at({1, 1})), nullptr);
        EXPECT_FALSE(decoder.isOpened());
    }
    ASSERT_TRUE(decoder.reopen());
    EXPECT_NE(decoder.getVideoFrame(picture_at({1, 1})), nullptr);
}

TEST_F(NoThreadsTest, AProbeStillGivesARecord) {
    const TempFile file("no_threads.mp4", fw_test::read_file(fw_test::clip_video_audio()));
    const LogCapture log;
    const Refusal refusal(&SystemFaults::refuse_threads);
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(file.path().c_str());
    ASSERT_NE(movie, nullptr);
    EXPECT_EQ(movie->nb_streams, 2);
    EXPECT_EQ(movie->streams[0]->width, 320);
}

TEST_F(NoThreadsTest, TheToolDoesTheWorkOfMissingThreadsItself) {
    std::vector<int> done(4, 0);
    const Refusal refusal(&SystemFaults::refuse_threads);
    run_on_threads(4, [&done](unsigned number) { ++done.at(number); });
    EXPECT_EQ(done, std::vector<int>(4, 1));
    EXPECT_GT(refusal.count(), 0);
    EXPECT_THROW(run_on_threads(2, [](unsigned) { throw std::runtime_error("no"); }),
                 std::runtime_error);
}

// No place for log lines

/// Prints on standard error in every way that the library has, and decodes. Returns 0 if the
/// picture is the right one and the samples on disk are what was written.
int use_library(const std::string& expected_luma, const std::string& sample_file) {
    mox::Logger::instance()->setLevel(mox::MoxLogVerbose);
    mox::Func_Tracer::instance()->setEnabled(true);
    ff::mem_free(nullptr);
    if (ff::FFDecoder::probe(fw_test::no_file().c_str()) != nullptr) {
        return 2;
    }
    ff::WaveFiles store;
    if (!store.open({sample_file}, "wb")) {
        return 3;
    }
    ff::FFDecoder2 decoder;
    (void)decoder.open(nullptr);
    if (!decoder.open(video()) || !decoder.setFilters("null")) {
        return 4;
    }
    const std::string block(10000, 'x');
    const auto* plane = reinterpret_cast<const std::uint8_t*>(block.data());
    for (int i = 0; i < 3; ++i) {
        const auto picture = decoder.getVideoFrame(picture_at({1, 1}));
        if (picture == nullptr || luma_of(*picture) != expected_luma) {
            return 5;
        }
        if (store.write(&plane, 10000) != 10000) {
            return 6;
        }
    }
    store.close();
    return fw_test::read_file(sample_file) == block + block + block ? 0 : 7;
}

class NoLogDeathTest : public testing::Test {
protected:
    void SetUp() override {
        if (fw_test::kEmulated) {
            GTEST_SKIP() << fw_test::kCannotStartAnew;
        }
        testing::GTEST_FLAG(death_test_style) = "threadsafe";
        const auto picture = opened<ff::FFDecoder>(video())->getVideoFrame(picture_at({1, 1}));
        ASSERT_NE(picture, nullptr);
        luma = luma_of(*picture);
    }

    std::string luma;
    const TempFile samples{"samples.pcm"};
};

TEST_F(NoLogDeathTest, AFullStreamLosesLinesAndNothingElse) {
    EXPECT_EXIT(
        {
            const int full = ::open("/dev/full", O_WRONLY);
            (void)::dup2(full, STDERR_FILENO);
            ::_exit(use_library(luma, samples.path()));
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(NoLogDeathTest, AClosedStreamLosesLinesAndNothingElse) {
    // What is opened next takes the place of standard error; the lines must not get into it.
    EXPECT_EXIT(
        {
            (void)::close(STDERR_FILENO);
            ::_exit(use_library(luma, samples.path()));
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(NoLogDeathTest, AStreamThatWasOpenedForReadingLosesLinesAndNothingElse) {
    EXPECT_EXIT(
        {
            std::FILE* const file = std::fopen("/dev/null", "rb");
            mox::Logger::instance()->setStream(file);
            mox::Func_Tracer::instance()->setStream(file);
            ::_exit(use_library(luma, samples.path()));
        },
        testing::ExitedWithCode(0), "");
}

TEST(NoLogTest, ACallbackThatThrowsStopsNoRequest) {
    mox::Logger* const before = mox::Logger::instance();
    mox::Logger logger;
    int calls = 0;
    logger.setCallback([&calls](auto...) {
        ++calls;
        throw std::runtime_error("the host's log is broken");
    });
    mox::Logger::instance(&logger);
    EXPECT_EQ(ff::FFDecoder::probe(fw_test::no_file().c_str()), nullptr);
    EXPECT_NE(opened<ff::FFDecoder>(video())->getVideoFrame(picture_at({1, 1})), nullptr);
    EXPECT_NE(opened<ff::FFDecoder>(sound())->getAudioFrame(sound_of({{1, 1}, {2, 1}})), nullptr);
    EXPECT_GT(calls, 3);
    mox::Logger::instance(before);
}

}  // namespace
