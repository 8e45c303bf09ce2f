#include "ff_tools.h"

#include "decoder_mgr.h"
#include "export_size.h"
#include "media/ff_handles.h"
#include "tests/support/log_capture.h"
#include "tests/support/media.h"

#include <framewell/ff_tools.h>
#include <framewell/ffdecoder.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace {

using ff::PixelFormat;
using fw_test::LogCapture;

constexpr int kMaxInt = std::numeric_limits<int>::max();
constexpr int kMinInt = std::numeric_limits<int>::min();
constexpr std::int64_t kMaxTime = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kMinTime = std::numeric_limits<std::int64_t>::min();
constexpr auto kNoFormat = static_cast<PixelFormat>(77);

// The divider

struct BoxRow {
    const char* name;
    int width, height;
    int max_width, max_height;
    int divider;
};

class CoverDividerTest : public testing::TestWithParam<BoxRow> {};

TEST_P(CoverDividerTest, FitsTheBox) {
    const BoxRow& row = GetParam();
    EXPECT_EQ(ff::cover_divider(row.width, row.height, row.max_width, row.max_height), row.divider);
}

INSTANTIATE_TEST_SUITE_P(
    Table, CoverDividerTest,
    testing::Values(
        BoxRow{"FullHd", 1920, 1080, 320, 240, 6}, BoxRow{"NoHeightLimit", 1000, 500, 400, 0, 3},
        BoxRow{"FlatPictureStepsBack", 1920, 200, 320, 240, 5},
        BoxRow{"FlatPictureStepsBackOnce", 4000, 100, 400, 300, 9},
        BoxRow{"HeightGoesOnFromTheWidth", 100, 1000, 50, 50, 20},
        BoxRow{"OnlyAHeight", 1920, 1080, 0, 1, 541},
        BoxRow{"NegativeBoxIsNoLimit", 1920, 1080, -320, kMinInt, 1},
        BoxRow{"NoBox", 1920, 1080, 0, 0, 1}, BoxRow{"FitsAlready", 320, 240, 320, 240, 1},
        BoxRow{"SmallPictureIsNotEnlarged", 16, 16, 1000, 1000, 1},
        BoxRow{"OneTooWide", 321, 10, 320, 0, 2}, BoxRow{"NoPicture", 0, 0, 320, 240, 1},
        BoxRow{"NegativePicture", -5, kMinInt, 320, 240, 1},
        BoxRow{"HalfOfAnOddBoxIsCut", 28, 14, 4, 5, 6},
        BoxRow{"LargestPictureInTheSmallestBox", kMaxInt, 1, 1, 0, 1073741824},
        BoxRow{"LargestBox", kMaxInt, kMaxInt, kMaxInt, kMaxInt, 1}),
    [](const testing::TestParamInfo<BoxRow>& row) { return row.param.name; });

// The rule as one would count it out by hand.
int counted_divider(int width, int height, int max_width, int max_height) {
    int k = 1;
    if (max_width > 0) {
        while (width / k > max_width) {
            ++k;
        }
        k -= width / k < max_width / 2 && k >= 2 ? 1 : 0;
    }
    if (max_height > 0) {
        while (height / k > max_height) {
            ++k;
        }
        k -= height / k < max_height / 2 && k >= 2 ? 1 : 0;
    }
    return k;
}

TEST(FfToolsTest, DividerIsTheOneThatCountingFinds) {
    for (int width = 0; width <= 60; width += 3) {
        for (int height = 0; height <= 60; ++height) {
            for (int max_width = -1; max_width <= 20; ++max_width) {
                for (int max_height = -1; max_height <= 20; ++max_height) {
                    ASSERT_EQ(ff::cover_divider(width, height, max_width, max_height),
                              counted_divider(width, height, max_width, max_height))
                        << width << "x" << height << " in " << max_width << "x" << max_height;
                }
            }
        }
    }
}

// The time

struct TimeRow {
    const char* name;
    double ratio;
    ff::Rational time;
    std::int64_t duration_us;
    ff::Rational result;
};

class CoverTimeTest : public testing::TestWithParam<TimeRow> {};

TEST_P(CoverTimeTest, IsTheGivenOneOrAPartOfTheDuration) {
    const TimeRow& row = GetParam();
    ff::RequireMvImage request;
    request.ratio = row.ratio;
    request.time = row.time;
    const ff::Rational time = ff::cover_time(request, row.duration_us);
    EXPECT_EQ(time.num, row.result.num);
    EXPECT_EQ(time.den, row.result.den);
}

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNan = std::numeric_limits<double>::quiet_NaN();

INSTANTIATE_TEST_SUITE_P(
    Table, CoverTimeTest,
    testing::Values(TimeRow{"Half", 0.5, {0, 0}, 3000001, {1500000, 1000000}},
                    TimeRow{"Start", 0, {0, 0}, 3000000, {0, 1000000}},
                    TimeRow{"CutNotRounded", 0.1, {5, 0}, 19, {1, 1000000}},
                    TimeRow{"CutTowardsZero", -0.1, {0, 0}, 19, {-1, 1000000}},
                    TimeRow{"GivenTimeCounts", 0.5, {7, 3}, 3000000, {7, 3}},
                    TimeRow{"GivenZeroCounts", 0.5, {0, 1}, 3000000, {0, 1}},
                    TimeRow{"NegativeDenominatorIsATime", 0.5, {7, -3}, 3000000, {7, -3}},
                    TimeRow{"UnknownDuration", 0.5, {0, 0}, kMinTime, {0, 1000000}},
                    TimeRow{
                        "UnknownDurationAndInfinity", kInfinity, {0, 0}, kMinTime, {0, 1000000}},
                    TimeRow{"NoNumber", kNan, {0, 0}, 3000000, {0, 1000000}},
                    TimeRow{"InfinityTimesNothing", kInfinity, {0, 0}, 0, {0, 1000000}},
                    TimeRow{"Infinity", kInfinity, {0, 0}, 3000000, {kMaxTime, 1000000}},
                    TimeRow{"MinusInfinity", -kInfinity, {0, 0}, 3000000, {kMinTime, 1000000}},
                    TimeRow{"LargestDuration", 1, {0, 0}, kMaxTime, {kMaxTime, 1000000}},
                    TimeRow{"FarBeyondTheEnd", 1e300, {0, 0}, 3000000, {kMaxTime, 1000000}},
                    TimeRow{"FarBeforeTheStart", -1e300, {0, 0}, 3000000, {kMinTime, 1000000}}),
    [](const testing::TestParamInfo<TimeRow>& row) { return row.param.name; });

// The stream

TEST(FfToolsTest, CoverStreamUsesTheNumberInTheFileAsAPosition) {
    std::array<ff::StreamCtx, 2> records;
    ff::MovieCtx movie;
    movie.streams[0] = records.data();
    movie.streams[1] = &records[1];
    movie.nb_streams = 2;
    movie.nb_video = 4;
    movie.video_index[0] = 1;
    movie.video_index[1] = 0;
    movie.video_index[2] = 2;    // the record of a file whose first stream has none
    movie.video_index[3] = 255;  // far beyond the 32 places
    EXPECT_EQ(ff::cover_stream(movie, 0), &records[1]);
    EXPECT_EQ(ff::cover_stream(movie, 1), records.data());
    EXPECT_EQ(ff::cover_stream(movie, 2), nullptr);
    EXPECT_EQ(ff::cover_stream(movie, 3), nullptr);
    EXPECT_EQ(ff::cover_stream(movie, 4), nullptr);
    EXPECT_EQ(ff::cover_stream(movie, -1), nullptr);
    movie.nb_video = 1000;
    EXPECT_EQ(ff::cover_stream(movie, 8), nullptr);
}

std::size_t workers_of(const ff::StreamCtx* stream) {
    return ff::g_decoder_mgr().scheduler_of(stream).m_workers.size();
}

TEST(FfToolsTest, DecodersOfEarlierStreamsStayOpenButNotWithoutEnd) {
    const std::string path = fw_test::clip_two_video_two_audio();
    const ff::MovieCtx* const movie = ff::getMovieInfo(path.c_str());
    ASSERT_NE(movie, nullptr);
    ASSERT_EQ(movie->nb_video, 2);
    const ff::StreamCtx* const first = ff::cover_stream(*movie, 0);
    const ff::StreamCtx* const last = ff::cover_stream(*movie, 1);
    const std::size_t before = workers_of(first);
    for (std::size_t i = 1; i <= 20; ++i) {
        ASSERT_NE(ff::getMovieImage(path.c_str(), {}, nullptr), nullptr);
        EXPECT_EQ(workers_of(last), 0U);
        if (before == 0) {
            EXPECT_EQ(workers_of(first), std::min<std::size_t>(i, 16));
        }
    }
    EXPECT_LE(workers_of(first), 16U);
    EXPECT_GE(workers_of(first), 1U);
}

// The size of exports

TEST(FfToolsTest, ExportSizeIsKeptWithItsArea) {
    ff::setExportMVSize(1280, 720);
    EXPECT_EQ(ff::g_export_width, 1280);
    EXPECT_EQ(ff::g_export_height, 720);
    EXPECT_EQ(ff::g_w_h_multi, 921600);
    EXPECT_EQ(ff::getImageDivider(ff::MemoryMode::ByExportSize, 2560, 1440), 4);
    ff::setExportMVSize(kMaxInt, kMaxInt);  // (2^31 - 1)^2 is 1 modulo 2^32
    EXPECT_EQ(ff::g_w_h_multi, 1);
    ff::setExportMVSize(-3, 5);
    EXPECT_EQ(ff::g_w_h_multi, -15);
    ff::setExportMVSize(0, 0);
    EXPECT_EQ(ff::g_w_h_multi, 0);
    EXPECT_EQ(ff::getImageDivider(ff::MemoryMode::ByExportSize, 2560, 1440), 1);
}

// The scaler

// Room behind a picture for what swscale's vector code writes too much.
constexpr std::size_t kRoom = 64;

/// A picture of RGBA pixels that all have one colour.
class RgbaPicture {
public:
    RgbaPicture(int width, int height, std::uint8_t value)
        : m_bytes(static_cast<std::size_t>(width * height) * 4 + kRoom, value),
          m_planes{m_bytes.data(), nullptr, nullptr, nullptr},
          m_strides{width * 4, 0, 0, 0} {}

    std::uint8_t* const* planes() const { return m_planes; }

    const std::uint8_t* const* read_planes() const { return m_planes; }

    const int* strides() const { return m_strides; }

    /// Whether every byte of the picture is `value`, or at most `tolerance` off; the room behind it
    /// does not count.
    bool is_all(int value, int tolerance = 0) const {
        const auto end = m_bytes.end() - static_cast<std::ptrdiff_t>(kRoom);
        return std::all_of(m_bytes.begin(), end,
                           [&](std::uint8_t b) { return std::abs(b - value) <= tolerance; });
    }

private:
    std::vector<std::uint8_t> m_bytes;
    std::uint8_t* m_planes[4];
    int m_strides[4];
};

SwsContext* scaler_in(void* handle) {
    return *static_cast<SwsContext**>(handle);
}

TEST(FfToolsTest, ScalerFillsAPictureOfAnotherSize) {
    void* const handle = ff::swsNew(PixelFormat::Rgba, PixelFormat::Rgba, 32, 16, 64, 48);
    ASSERT_NE(handle, nullptr);
    const RgbaPicture from(32, 16, 200);
    const RgbaPicture to(64, 48, 0);
    ff::swsConvert(handle, from.read_planes(), from.strides(), 0, 16, to.planes(), to.strides());
    // Pixels that are scaled go through luma and chroma of 8 bits, each rounded once.
    EXPECT_TRUE(to.is_all(200, 2));
    ff::swsDestroy(handle);
}

TEST(FfToolsTest, ScalerTakesAPictureInSlices) {
    void* const handle = ff::swsNew(PixelFormat::Rgba, PixelFormat::Rgba, 32, 16, 32, 16);
    ASSERT_NE(handle, nullptr);
    const RgbaPicture from(32, 16, 90);
    const RgbaPicture to(32, 16, 0);
    for (const int y : {0, 8}) {
        const std::uint8_t* const rows[4] = {from.planes()[0] + y * from.strides()[0]};
        ff::swsConvert(handle, rows, from.strides(), y, 8, to.planes(), to.strides());
    }
    EXPECT_TRUE(to.is_all(90));
    ff::swsDestroy(handle);
}

TEST(FfToolsTest, ScalerHandleTellsItsShape) {
    void* const handle = ff::swsNew(PixelFormat::Rgba, PixelFormat::Nv12, 32, 16, 64, 48);
    ASSERT_NE(handle, nullptr);
    EXPECT_NE(scaler_in(handle), nullptr);
    const int* const numbers =
        reinterpret_cast<const int*>(static_cast<const char*>(handle) + sizeof(SwsContext*));
    EXPECT_EQ(std::vector<int>(numbers, numbers + 6),
              (std::vector<int>{32, 16, 64, 48, AV_PIX_FMT_RGBA, AV_PIX_FMT_NV12}));
    ff::swsDestroy(handle);
}

TEST(FfToolsTest, ScalerOutlivesItsHandle) {
    void* const handle = ff::swsNew(PixelFormat::Rgba, PixelFormat::Rgba, 32, 16, 32, 16);
    ASSERT_NE(handle, nullptr);
    SwsContext* const scaler = scaler_in(handle);
    ff::swsDestroy(handle);
    const RgbaPicture from(32, 16, 70);
    const RgbaPicture to(32, 16, 0);
    EXPECT_EQ(
        sws_scale(scaler, from.read_planes(), from.strides(), 0, 16, to.planes(), to.strides()),
        16);
    EXPECT_TRUE(to.is_all(70));
    for (int i = 0; i < 40; ++i) {  // more than are kept
        ff::swsDestroy(ff::swsNew(PixelFormat::Rgba, PixelFormat::Rgba, 32, 16, 32, 16));
    }
}

struct RefusedRow {
    const char* name;
    PixelFormat src, dst;
    int src_w, src_h, dst_w, dst_h;
};

class RefusedScalerTest : public testing::TestWithParam<RefusedRow> {};

TEST_P(RefusedScalerTest, GivesAHandleThatConvertsNothing) {
    const RefusedRow& row = GetParam();
    const LogCapture log;
    void* const handle = ff::swsNew(row.src, row.dst, row.src_w, row.src_h, row.dst_w, row.dst_h);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(scaler_in(handle), nullptr);
    ASSERT_EQ(log.texts(2).size(), 1U);
    EXPECT_EQ(log.lines()[0].tag, "bg");
    EXPECT_EQ(log.lines()[0].file, "src/ff_tools");
    const RgbaPicture from(32, 16, 200);
    const RgbaPicture to(32, 16, 3);
    ff::swsConvert(handle, from.read_planes(), from.strides(), 0, 16, to.planes(), to.strides());
    EXPECT_TRUE(to.is_all(3));
    ff::swsDestroy(handle);
}

INSTANTIATE_TEST_SUITE_P(
    Table, RefusedScalerTest,
    testing::Values(RefusedRow{"NoSource", PixelFormat::None, PixelFormat::Rgba, 8, 8, 8, 8},
                    RefusedRow{"NoResult", PixelFormat::Rgba, PixelFormat::None, 8, 8, 8, 8},
                    RefusedRow{"SeekOnly", PixelFormat::SeekOnly, PixelFormat::Rgba, 8, 8, 8, 8},
                    RefusedRow{"Unmapped", kNoFormat, kNoFormat, 8, 8, 8, 8},
                    RefusedRow{"NoWidth", PixelFormat::Rgba, PixelFormat::Rgba, 0, 8, 8, 8},
                    RefusedRow{"NegativeHeight", PixelFormat::Rgba, PixelFormat::Rgba, 8, -8, 8, 8},
                    RefusedRow{"ResultOfNothing", PixelFormat::Rgba, PixelFormat::Rgba, 8, 8, 8, 0},
                    RefusedRow{"Smallest", PixelFormat::Rgba, PixelFormat::Rgba, kMinInt, kMinInt,
                               kMinInt, kMinInt},
                    RefusedRow{"Largest", PixelFormat::Rgba, PixelFormat::Yuv420p, kMaxInt, kMaxInt,
                               kMaxInt, kMaxInt},
                    RefusedRow{"LargestResultWidth", PixelFormat::Rgba, PixelFormat::Rgba, 8, 8,
                               kMaxInt, 1}),
    [](const testing::TestParamInfo<RefusedRow>& row) { return row.param.name; });

TEST(FfToolsTest, ScalerTakesNoRowsOutsideThePictureAndNoNullArrays) {
    void* const handle = ff::swsNew(PixelFormat::Rgba, PixelFormat::Rgba, 32, 16, 32, 16);
    ASSERT_NE(handle, nullptr);
    const RgbaPicture from(32, 16, 200);
    const RgbaPicture to(32, 16, 3);
    const LogCapture log;
    const std::vector<std::pair<int, int>> rows{{0, 17},      {-2, 18},     {0, -1},
                                                {16, 2},      {kMaxInt, 1}, {1, kMaxInt},
                                                {kMinInt, 1}, {0, kMinInt}, {17, 0}};
    for (const auto& [y, h] : rows) {
        ff::swsConvert(handle, from.read_planes(), from.strides(), y, h, to.planes(), to.strides());
    }
    ff::swsConvert(handle, nullptr, from.strides(), 0, 16, to.planes(), to.strides());
    ff::swsConvert(handle, from.read_planes(), nullptr, 0, 16, to.planes(), to.strides());
    ff::swsConvert(handle, from.read_planes(), from.strides(), 0, 16, nullptr, to.strides());
    ff::swsConvert(handle, from.read_planes(), from.strides(), 0, 16, to.planes(), nullptr);
    EXPECT_EQ(log.texts(2).size(), rows.size() + 4);
    EXPECT_TRUE(to.is_all(3));
    ff::swsConvert(handle, from.read_planes(), from.strides(), 0, 16, to.planes(), to.strides());
    EXPECT_TRUE(to.is_all(200));
    ff::swsDestroy(handle);
}

TEST(FfToolsTest, NullHandlesAreAllowed) {
    const RgbaPicture from(32, 16, 200);
    const RgbaPicture to(32, 16, 3);
    ff::swsConvert(nullptr, from.read_planes(), from.strides(), 0, 16, to.planes(), to.strides());
    EXPECT_TRUE(to.is_all(3));
    ff::swsDestroy(nullptr);
}

// Planes

TEST(FfToolsTest, RowSizesAreThoseOfTheFormat) {
    const auto sizes = [](PixelFormat format, int width) {
        std::vector<int> result(4, -1);
        EXPECT_TRUE(ff::imageFillLinesizes(result.data(), format, width));
        return result;
    };
    EXPECT_EQ(sizes(PixelFormat::Rgba, 161), (std::vector<int>{644, 0, 0, 0}));
    EXPECT_EQ(sizes(PixelFormat::Yuv420p, 161), (std::vector<int>{161, 81, 81, 0}));
    EXPECT_EQ(sizes(PixelFormat::Nv12, 161), (std::vector<int>{161, 162, 0, 0}));
    EXPECT_EQ(sizes(PixelFormat::Bgra64be, 161), (std::vector<int>{1288, 0, 0, 0}));
    EXPECT_EQ(sizes(PixelFormat::Bgra64le, 0), (std::vector<int>{0, 0, 0, 0}));
}

TEST(FfToolsTest, RowSizesAreRefusedForNoFormatAndNoWidth) {
    const LogCapture log;
    int sizes[4] = {};
    EXPECT_FALSE(ff::imageFillLinesizes(sizes, PixelFormat::None, 16));
    EXPECT_FALSE(ff::imageFillLinesizes(sizes, PixelFormat::SeekOnly, 16));
    EXPECT_FALSE(ff::imageFillLinesizes(sizes, kNoFormat, 16));
    EXPECT_FALSE(ff::imageFillLinesizes(sizes, PixelFormat::Rgba, -1));
    EXPECT_FALSE(ff::imageFillLinesizes(sizes, PixelFormat::Rgba, kMaxInt));
    EXPECT_FALSE(ff::imageFillLinesizes(nullptr, PixelFormat::Rgba, 16));
    EXPECT_EQ(log.texts(2).size(), 6U);
}

TEST(FfToolsTest, PlanesLieBehindEachOther) {
    std::vector<std::uint8_t> buffer(16 * 16 * 2);
    std::uint8_t* planes[4] = {};
    const int sizes[4] = {20, 12, 12, 0};
    EXPECT_EQ(ff::imageFillPointers(planes, PixelFormat::Yuv420p, 15, buffer.data(), sizes),
              20 * 15 + 2 * 12 * 8);
    EXPECT_EQ(planes[0], buffer.data());
    EXPECT_EQ(planes[1] - planes[0], 20 * 15);
    EXPECT_EQ(planes[2] - planes[1], 12 * 8);
    EXPECT_EQ(planes[3], nullptr);
}

TEST(FfToolsTest, PlanesCanBeMeasuredWithoutABuffer) {
    std::uint8_t* planes[4] = {};
    const int sizes[4] = {64, 0, 0, 0};
    EXPECT_EQ(ff::imageFillPointers(planes, PixelFormat::Rgba, 16, nullptr, sizes), 1024);
    EXPECT_EQ(planes[0], nullptr);
}

TEST(FfToolsTest, PlanesAreRefusedForWhatIsNoPicture) {
    const LogCapture log;
    std::uint8_t buffer[64] = {};
    std::uint8_t* planes[4] = {};
    const int sizes[4] = {16, 0, 0, 0};
    const int negative[4] = {-16, 0, 0, 0};
    EXPECT_LT(ff::imageFillPointers(planes, PixelFormat::None, 4, buffer, sizes), 0);
    EXPECT_LT(ff::imageFillPointers(planes, kNoFormat, 4, buffer, sizes), 0);
    EXPECT_LT(ff::imageFillPointers(planes, PixelFormat::Rgba, 0, buffer, sizes), 0);
    EXPECT_LT(ff::imageFillPointers(planes, PixelFormat::Rgba, kMinInt, buffer, sizes), 0);
    EXPECT_LT(ff::imageFillPointers(planes, PixelFormat::Rgba, kMaxInt, buffer, sizes), 0);
    EXPECT_LT(ff::imageFillPointers(planes, PixelFormat::Rgba, 4, buffer, negative), 0);
    EXPECT_LT(ff::imageFillPointers(nullptr, PixelFormat::Rgba, 4, buffer, sizes), 0);
    EXPECT_LT(ff::imageFillPointers(planes, PixelFormat::Rgba, 4, buffer, nullptr), 0);
    EXPECT_EQ(log.texts(2).size(), 8U);
}

}  // namespace
