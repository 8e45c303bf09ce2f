// FFmpeg libraries of another major version than the one built against: every door stays closed.
// The test program defines the functions that tell the versions, and answers what a test wants.

#include "ffmpeg_guard.h"

#include "media/ff_handles.h"
#include "media/ffmpeg_report.h"
#include "tests/support/log_capture.h"
#include "tests/support/media.h"

#include <framewell/ff_tools.h>
#include <framewell/ffdecoder2.h>
#include <framewell/frame.h>
#include <framewell/hw/hw_decoder.h>
#include <framewell/movie_info.h>

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

enum Library { kAvcodec, kAvformat, kAvfilter, kAvutil, kSwscale, kSwresample, kNbLibraries };

/// What the libraries claim to be; 0: what they are. Set while no other thread runs.
std::array<unsigned, kNbLibraries> g_claimed{};

template <Library library>
unsigned version_of(const char* function) {
    static auto* const s_real = reinterpret_cast<unsigned (*)()>(dlsym(RTLD_NEXT, function));
    return g_claimed[library] != 0 ? g_claimed[library] : s_real();
}

}  // namespace

extern "C" {

unsigned avcodec_version() {
    return version_of<kAvcodec>("avcodec_version");
}

unsigned avformat_version() {
    return version_of<kAvformat>("avformat_version");
}

unsigned avfilter_version() {
    return version_of<kAvfilter>("avfilter_version");
}

unsigned avutil_version() {
    return version_of<kAvutil>("avutil_version");
}

unsigned swscale_version() {
    return version_of<kSwscale>("swscale_version");
}

unsigned swresample_version() {
    return version_of<kSwresample>("swresample_version");
}

}  // extern "C"

namespace {

using fw_test::clip_h264;
using fw_test::LogCapture;
using Texts = std::vector<std::string>;

std::string version_text(unsigned version) {
    return std::to_string(version >> 16) + "." + std::to_string(version >> 8 & 0xff) + "." +
           std::to_string(version & 0xff);
}

struct LibraryRow {
    const char* name;
    Library kind;
    unsigned built;
};

const LibraryRow kLibraries[] = {
    {"libavcodec", kAvcodec, LIBAVCODEC_VERSION_INT},
    {"libavformat", kAvformat, LIBAVFORMAT_VERSION_INT},
    {"libavfilter", kAvfilter, LIBAVFILTER_VERSION_INT},
    {"libavutil", kAvutil, LIBAVUTIL_VERSION_INT},
    {"libswscale", kSwscale, LIBSWSCALE_VERSION_INT},
    {"libswresample", kSwresample, LIBSWRESAMPLE_VERSION_INT},
};

std::string refusal(const LibraryRow& library, unsigned loaded) {
    return "FFmpeg is refused: " + std::string(library.name) + " " + version_text(loaded) +
           " is loaded, but framewell was built with " + version_text(library.built) +
           ": another major version cannot be used";
}

class FFmpegGuardTest : public testing::Test {
protected:
    void TearDown() override {
        g_claimed.fill(0);
        const LogCapture quiet;
        ff::hw_disable();  // one door chooses a device
    }

    /// Lets libavcodec be the next major version, and returns the line that says so.
    static std::string load_next_major() {
        const unsigned next = LIBAVCODEC_VERSION_INT + (1U << 16);
        g_claimed[kAvcodec] = next;
        return refusal(kLibraries[0], next);
    }
};

TEST_F(FFmpegGuardTest, AcceptsTheLibrariesThatItWasBuiltWith) {
    const LogCapture log;
    EXPECT_TRUE(ff::is_ffmpeg_usable());
    EXPECT_EQ(log.texts(), Texts{});
}

class FFmpegGuardLibraryTest : public FFmpegGuardTest,
                               public testing::WithParamInterface<LibraryRow> {};

TEST_P(FFmpegGuardLibraryTest, RefusesTheMajorVersionsBeforeAndAfter) {
    const LibraryRow& library = GetParam();
    for (const unsigned loaded : {library.built - (1U << 16), library.built + (1U << 16)}) {
        g_claimed[library.kind] = loaded;
        const LogCapture log;
        EXPECT_FALSE(ff::is_ffmpeg_usable());
        EXPECT_EQ(log.texts(2), Texts{refusal(library, loaded)});
    }
}

TEST_P(FFmpegGuardLibraryTest, AcceptsOtherMinorVersions) {
    const LibraryRow& library = GetParam();
    const unsigned major = library.built & ~0xffffU;
    for (const unsigned loaded : {major, major | 0xffffU}) {
        g_claimed[library.kind] = loaded;
        const LogCapture log;
        EXPECT_TRUE(ff::is_ffmpeg_usable());
        EXPECT_EQ(log.texts(), Texts{});
    }
}

INSTANTIATE_TEST_SUITE_P(Of, FFmpegGuardLibraryTest, testing::ValuesIn(kLibraries),
                         [](const auto& row) { return std::string(row.param.name); });

/// A public operation; true if it gave its failure value.
struct DoorRow {
    const char* name;
    std::function<bool()> fails;
};

class FFmpegGuardDoorTest : public FFmpegGuardTest, public testing::WithParamInterface<DoorRow> {};

TEST_P(FFmpegGuardDoorTest, FailsWithOneLine) {
    (void)clip_h264();  // made before, since what makes clips may log
    const std::string line = load_next_major();
    const LogCapture log;
    EXPECT_TRUE(GetParam().fails());
    EXPECT_EQ(log.texts(), Texts{line});
}

TEST_P(FFmpegGuardDoorTest, WorksWithTheLibrariesThatItWasBuiltWith) {
    (void)clip_h264();
    const LogCapture quiet;
    EXPECT_FALSE(GetParam().fails());
}

/// A scaler that can do nothing is what swsNew() gives when it fails: the host's memory stays as it
/// is.
bool sws_leaves_the_result_alone() {
    std::array<std::uint8_t, 16 * 16 * 4 + 64> from{};
    std::array<std::uint8_t, 16 * 16 * 4 + 64> to{};
    from.fill(200);
    const std::uint8_t* source[4] = {from.data()};
    std::uint8_t* result[4] = {to.data()};
    const int strides[4] = {16 * 4};
    void* const scaler = ff::swsNew(ff::PixelFormat::Rgba, ff::PixelFormat::Rgba, 16, 16, 16, 16);
    ff::swsConvert(scaler, source, strides, 0, 16, result, strides);
    ff::swsDestroy(scaler);
    return to[0] == 0;
}

bool linesizes_fail() {
    int linesizes[4] = {};
    return !ff::imageFillLinesizes(linesizes, ff::PixelFormat::Rgba, 16);
}

bool pointers_fail() {
    const int linesizes[4] = {64};
    std::uint8_t* data[4] = {};
    return ff::imageFillPointers(data, ff::PixelFormat::Rgba, 16, nullptr, linesizes) < 0;
}

bool alloc_context_fails() {
    const ff::CodecContextPtr context(
        ff::HWDecoder::instance()->hw_codec_alloc_context3(avcodec_find_decoder(AV_CODEC_ID_H264)));
    return context == nullptr;
}

INSTANTIATE_TEST_SUITE_P(
    Of, FFmpegGuardDoorTest,
    testing::Values(
        DoorRow{"Probe", [] { return ff::FFDecoder::probe(clip_h264().c_str()) == nullptr; }},
        DoorRow{"GetMovieInfo", [] { return ff::getMovieInfo(clip_h264().c_str()) == nullptr; }},
        DoorRow{"GetMovieImage",
                [] { return !ff::getMovieImage(clip_h264().c_str(), {}, nullptr); }},
        DoorRow{"HwEnableDevice", [] { return !ff::hw_enable_device("vaapi"); }},
        DoorRow{"HwEnumDevices", [] { return ff::hw_enum_devices().empty(); }},
        DoorRow{"HwCodecAllocContext3", alloc_context_fails},
        DoorRow{"SwsNew", sws_leaves_the_result_alone},
        DoorRow{"ImageFillLinesizes", linesizes_fail}, DoorRow{"ImageFillPointers", pointers_fail},
        DoorRow{"CreateAvframeWith",
                [] { return !ff::create_avframe_with(2, 48000, AV_SAMPLE_FMT_S16, 16); }}),
    [](const auto& row) { return std::string(row.param.name); });

TEST_F(FFmpegGuardTest, FindsNoFileOfTheCacheEither) {
    const LogCapture quiet;
    ASSERT_NE(ff::getMovieInfo(clip_h264().c_str()), nullptr);
    (void)load_next_major();
    EXPECT_EQ(ff::getMovieInfo(clip_h264().c_str()), nullptr);
}

TEST_F(FFmpegGuardTest, OpensNoStream) {
    LogCapture log;
    const ff::MovieCtx* const movie = ff::getMovieInfo(clip_h264().c_str());
    const ff::StreamCtx* const stream = ff::first_stream(movie, ff::StreamType::Video);
    ff::FFDecoder2 decoder;
    ASSERT_TRUE(decoder.open(stream));
    ASSERT_TRUE(decoder.reopen());
    decoder.close();

    const std::string line = load_next_major();
    log.clear();
    EXPECT_FALSE(decoder.open(stream));
    EXPECT_FALSE(decoder.reopen());
    EXPECT_FALSE(decoder.isOpened());
    EXPECT_FALSE(decoder.setFilters("hflip"));
    EXPECT_EQ(log.texts(2), (Texts{line, line, line}));
}

TEST_F(FFmpegGuardTest, ReceivesAndReleasesNothing) {
    const LogCapture log;
    const ff::CodecContextPtr context(avcodec_alloc_context3(nullptr));
    const ff::FramePtr frame(av_frame_alloc());
    const std::string line = load_next_major();
    EXPECT_LT(ff::HWDecoder::instance()->hw_codec_receive_frame(context.get(), frame.get()), 0);
    ff::hw_codec_release(context.get());
    EXPECT_EQ(log.texts(), (Texts{line, line}));
}

}  // namespace
