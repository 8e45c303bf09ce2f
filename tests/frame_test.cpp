#include "export_size.h"
#include "media/ff_compat.h"

#include <framewell/frame.h>
#include <framewell/utils/mempool.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <limits>
#include <string>
#include <type_traits>

namespace {

using ff::MemoryMode;

constexpr int kMaxInt = std::numeric_limits<int>::max();

static_assert(!std::is_copy_constructible_v<ff::VFrameCtx> &&
                  !std::is_copy_assignable_v<ff::VFrameCtx>,
              "two records must not own one buffer");
static_assert(!std::is_copy_constructible_v<ff::AFrameCtx> &&
              !std::is_copy_assignable_v<ff::AFrameCtx>);
static_assert(!std::is_polymorphic_v<ff::VFrameCtx> && !std::is_polymorphic_v<ff::AFrameCtx>);
static_assert(std::is_standard_layout_v<ff::VFrameCtx> && std::is_standard_layout_v<ff::AFrameCtx>);

struct DividerRow {
    const char* name;
    MemoryMode mode;
    int width;
    int height;
    int divider;
};

class ImageDividerTest : public testing::TestWithParam<DividerRow> {};

TEST_P(ImageDividerTest, FollowsTheArea) {
    const DividerRow& row = GetParam();
    EXPECT_EQ(ff::getImageDivider(row.mode, row.width, row.height), row.divider);
}

INSTANTIATE_TEST_SUITE_P(
    Table, ImageDividerTest,
    testing::Values(DividerRow{"Full", MemoryMode::Full, 7680, 4320, 1},
                    DividerRow{"UnknownMode", static_cast<MemoryMode>(3), 7680, 4320, 1},
                    DividerRow{"NegativeMode", static_cast<MemoryMode>(-1), 7680, 4320, 1},
                    DividerRow{"Uhd", MemoryMode::ByResolution, 3840, 2160, 4},
                    DividerRow{"BelowUhd", MemoryMode::ByResolution, 3839, 2160, 2},
                    DividerRow{"FullHd", MemoryMode::ByResolution, 1920, 1080, 2},
                    DividerRow{"FullHdUpright", MemoryMode::ByResolution, 1080, 1920, 2},
                    DividerRow{"BelowFullHd", MemoryMode::ByResolution, 1919, 1080, 1},
                    DividerRow{"Nothing", MemoryMode::ByResolution, 0, 0, 1},
                    DividerRow{"WrapsToAPositiveArea", MemoryMode::ByResolution, 80000, 80000, 4},
                    DividerRow{"WrapsToZero", MemoryMode::ByResolution, 65536, 65536, 1},
                    DividerRow{"WrapsToANegativeArea", MemoryMode::ByResolution, 50000, 50000, 1},
                    DividerRow{"LargestSides", MemoryMode::ByResolution, kMaxInt, kMaxInt, 1}),
    [](const testing::TestParamInfo<DividerRow>& row) { return row.param.name; });

struct ExportRow {
    const char* name;
    int export_area;
    int width;
    int height;
    int divider;
};

class ExportDividerTest : public testing::TestWithParam<ExportRow> {
protected:
    ~ExportDividerTest() override { ff::g_w_h_multi = 0; }
};

TEST_P(ExportDividerTest, FollowsTheRatioOfTheAreas) {
    const ExportRow& row = GetParam();
    ff::g_w_h_multi = row.export_area;
    EXPECT_EQ(ff::getImageDivider(MemoryMode::ByExportSize, row.width, row.height), row.divider);
}

INSTANTIATE_TEST_SUITE_P(Table, ExportDividerTest,
                         testing::Values(ExportRow{"NotSet", 0, 7680, 4320, 1},
                                         ExportRow{"Negative", -5, 7680, 4320, 1},
                                         ExportRow{"TinyExport", 1000, 1920, 1080, 2074},
                                         ExportRow{"SameArea", 1920 * 1080, 1920, 1080, 1},
                                         ExportRow{"SmallerPicture", 1920 * 1080, 320, 240, 1},
                                         ExportRow{"RatioOf1Point4", 100000, 1400, 100, 1},
                                         ExportRow{"RatioOf1Point5", 100000, 1500, 100, 2},
                                         ExportRow{"RatioOf1Point6", 100000, 1600, 100, 2},
                                         ExportRow{"RatioOf3", 100000, 3000, 100, 3},
                                         ExportRow{"LargestRatio", 1, kMaxInt, 1, kMaxInt}),
                         [](const testing::TestParamInfo<ExportRow>& row) {
                             return row.param.name;
                         });

TEST(FrameTest, RecordsKeepTheOrderOfTheirFields) {
    EXPECT_LT(offsetof(ff::RequireVideoFrame, time), offsetof(ff::RequireVideoFrame, format));
    EXPECT_LT(offsetof(ff::RequireVideoFrame, format), offsetof(ff::RequireVideoFrame, divider));
    EXPECT_LT(offsetof(ff::RequireVideoFrame, divider),
              offsetof(ff::RequireVideoFrame, abort_flag));
    EXPECT_LT(offsetof(ff::VFrameCtx, linesize), offsetof(ff::VFrameCtx, src_width));
    EXPECT_LT(offsetof(ff::VFrameCtx, divider), offsetof(ff::VFrameCtx, pts));
    EXPECT_LT(offsetof(ff::AFrameCtx, linesize), offsetof(ff::AFrameCtx, nb_samples));
    EXPECT_LT(offsetof(ff::AFrameCtx, buffer), offsetof(ff::AFrameCtx, size));
}

TEST(FrameTest, RecordsGiveTheirBufferBackToThePool) {
    (void)ff::mem_collection(0);
    {
        ff::VFrameCtx picture;
        picture.buffer = static_cast<std::uint8_t*>(ff::mem_malloc(1000, 16));
        ff::AFrameCtx sound;
        sound.buffer = static_cast<std::uint8_t*>(ff::mem_malloc(2000, 16));
        EXPECT_EQ(ff::mem_collection(0), 0U);
    }
    EXPECT_EQ(ff::mem_collection(0), 2U);
}

TEST(FrameTest, RecordsWithoutABufferGiveNothingBack) {
    testing::internal::CaptureStderr();
    { const ff::VFrameCtx picture; }
    { const ff::AFrameCtx sound; }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(FrameTest, MakesAFrameOfParametersOnly) {
    for (const int nb_samples : {0, -3}) {
        const auto frame = ff::create_avframe_with(2, 44100, AV_SAMPLE_FMT_S16, nb_samples);
        ASSERT_NE(frame, nullptr);
        EXPECT_EQ(frame->sample_rate, 44100);
        EXPECT_EQ(frame->format, AV_SAMPLE_FMT_S16);
        EXPECT_EQ(frame->nb_samples, nb_samples);
        EXPECT_EQ(ff::compat::channel_count(*frame), 2);
        EXPECT_EQ(ff::compat::channel_mask(*frame), std::uint64_t{AV_CH_LAYOUT_STEREO});
        EXPECT_EQ(frame->buf[0], nullptr);
        EXPECT_EQ(frame->data[0], nullptr);
    }
}

// Returns true if every byte of every plane is `value`.
bool is_filled_with(const AVFrame& frame, int planes, std::size_t size, std::uint8_t value) {
    for (int i = 0; i < planes; ++i) {
        const std::uint8_t* const plane = frame.extended_data[i];
        if (!std::all_of(plane, plane + size, [value](std::uint8_t b) { return b == value; })) {
            return false;
        }
    }
    return true;
}

TEST(FrameTest, MakesASilentFrame) {
    const auto frame = ff::create_avframe_with(2, 48000, AV_SAMPLE_FMT_FLTP, 100);
    ASSERT_NE(frame, nullptr);
    ASSERT_NE(frame->buf[0], nullptr);
    EXPECT_EQ(frame->nb_samples, 100);
    EXPECT_TRUE(is_filled_with(*frame, 2, 400, 0));
}

TEST(FrameTest, SilenceOfUnsignedSamplesIsTheirMiddle) {
    const auto frame = ff::create_avframe_with(1, 8000, AV_SAMPLE_FMT_U8, 50);
    ASSERT_NE(frame, nullptr);
    ASSERT_NE(frame->buf[0], nullptr);
    EXPECT_TRUE(is_filled_with(*frame, 1, 50, 0x80));
}

TEST(FrameTest, MakesASilentFrameOfMoreChannelsThanPlanePointers) {
    const auto frame = ff::create_avframe_with(12, 48000, AV_SAMPLE_FMT_S16P, 10);
    ASSERT_NE(frame, nullptr);
    ASSERT_NE(frame->buf[0], nullptr);
    EXPECT_EQ(ff::compat::channel_count(*frame), 12);
    EXPECT_TRUE(is_filled_with(*frame, 12, 20, 0));
}

TEST(FrameTest, AFrameThatHasNoSizeComesWithoutData) {
    struct Row {
        int channels, format, nb_samples;
    };

    for (const Row& row : {Row{0, AV_SAMPLE_FMT_S16, 10}, Row{-1, AV_SAMPLE_FMT_S16, 10},
                           Row{2, AV_SAMPLE_FMT_NONE, 10}, Row{2, AV_SAMPLE_FMT_S16, kMaxInt}}) {
        const auto frame = ff::create_avframe_with(row.channels, 48000, row.format, row.nb_samples);
        ASSERT_NE(frame, nullptr);
        EXPECT_EQ(frame->buf[0], nullptr);
        EXPECT_EQ(frame->nb_samples, 0);
    }
}

ff::RequireAudioFrame stereo_request() {
    ff::RequireAudioFrame req;
    req.range = {{1, 2}, {3, 4}};
    req.format = ff::SampleFormat::S16;
    req.sample_rate = 48000;
    req.channels = 2;
    return req;
}

TEST(FrameTest, MakesARecordOfSilenceInTheFormAskedFor) {
    const auto ctx = ff::create_audioframe_ctx(stereo_request(), 12000);
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(ctx->channels, 2);
    EXPECT_EQ(ctx->sample_rate, 48000);
    EXPECT_EQ(ctx->format, AV_SAMPLE_FMT_S16);
    EXPECT_EQ(ctx->planar, 0);
    EXPECT_EQ(ctx->nb_samples, 12000);
    EXPECT_EQ(ctx->size, 48000);
    EXPECT_EQ(ctx->linesize[0], 48000);
    EXPECT_EQ(ctx->pts, 500000);
    ASSERT_NE(ctx->buffer, nullptr);
    EXPECT_EQ(ctx->data[0], ctx->buffer);
    EXPECT_EQ(ctx->data[1], nullptr);
    EXPECT_TRUE(bg::mem::is_aligned(ctx->buffer, 16));
    EXPECT_TRUE(std::all_of(ctx->buffer, ctx->buffer + 48000, [](int b) { return b == 0; }));
}

TEST(FrameTest, ClearsABufferThatHeldOtherSound) {
    (void)ff::mem_collection(0);
    const std::uint8_t* first = nullptr;
    {
        const auto loud = ff::create_audioframe_ctx(stereo_request(), 64);
        std::fill(loud->buffer, loud->buffer + loud->size, std::uint8_t{9});
        first = loud->buffer;
    }
    const auto again = ff::create_audioframe_ctx(stereo_request(), 64);
    ASSERT_EQ(again->buffer, first);
    EXPECT_TRUE(
        std::all_of(again->buffer, again->buffer + again->size, [](int b) { return b == 0; }));
}

void expect_no_samples(const ff::RequireAudioFrame& req, int nb_samples) {
    const auto ctx = ff::create_audioframe_ctx(req, nb_samples);
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(ctx->nb_samples, 0);
    EXPECT_EQ(ctx->size, 0);
    EXPECT_EQ(ctx->buffer, nullptr);
    EXPECT_EQ(ctx->data[0], nullptr);
    EXPECT_EQ(ctx->sample_rate, req.sample_rate);
    EXPECT_EQ(ctx->channels, req.channels);
    EXPECT_EQ(ctx->pts, 500000);
}

TEST(FrameTest, ARecordOfNoSamplesHasNoBuffer) {
    expect_no_samples(stereo_request(), 0);
    expect_no_samples(stereo_request(), -1);
}

TEST(FrameTest, ARecordInAnImpossibleFormHasNoBuffer) {
    ff::RequireAudioFrame req = stereo_request();
    req.format = ff::SampleFormat::None;
    expect_no_samples(req, 100);
    req.format = ff::SampleFormat::SeekOnly;
    expect_no_samples(req, 100);
    req = stereo_request();
    req.channels = 0;
    expect_no_samples(req, 100);
    req.channels = -2;
    expect_no_samples(req, 100);
    expect_no_samples(stereo_request(), kMaxInt);
}

TEST(FrameTest, ManyInterleavedChannelsNeedOnePlane) {
    ff::RequireAudioFrame req = stereo_request();
    req.channels = 24;
    const auto ctx = ff::create_audioframe_ctx(req, 10);
    EXPECT_EQ(ctx->nb_samples, 10);
    EXPECT_EQ(ctx->size, 24 * 10 * 2);
    EXPECT_EQ(ctx->data[0], ctx->buffer);
    EXPECT_EQ(ctx->data[1], nullptr);
}

}  // namespace
