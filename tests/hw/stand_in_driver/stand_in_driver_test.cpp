// The whole road of hardware decoding, from the choice of a device to pictures in system memory,
// with the driver that stands in for a real one.

#include "hw/hw_decoder.h"
#include "tests/hw/hw_decode.h"
#include "tests/hw/stand_in_driver/stand_in.h"
#include "tests/support/log_capture.h"
#include "tests/support/media.h"

#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>
#include <vector>

std::atomic<bool> fw_test::g_fail_transfer{false};

using fw_test::g_fail_transfer;

// Comes before libavutil's. The driver cannot fail at this step alone: before 6.0 libavutil does
// not look at the result of the copy, and every earlier call of it serves decoding as well.
extern "C" int av_hwframe_transfer_data(AVFrame* to, const AVFrame* from, int flags) {
    using Function = int(AVFrame*, const AVFrame*, int);
    static auto* const s_real =
        reinterpret_cast<Function*>(dlsym(RTLD_NEXT, "av_hwframe_transfer_data"));
    return g_fail_transfer ? AVERROR(EIO) : s_real(to, from, flags);
}

namespace {

using fw_test::clip_h264;
using fw_test::decode_clip;
using fw_test::DecodedPicture;
using fw_test::DecodeRun;
using fw_test::kStandInLuma;
using fw_test::LogCapture;
using fw_test::make_clip;
using Texts = std::vector<std::string>;

constexpr char kRefused[] = "Failed to get HW surface format. 当前硬解码不支持该像素格式";
constexpr char kConfirmed[] = "[hwdec] device 'cuda' is OK for 'h264'";

class StandInDriverTest : public fw_test::StandInFixture {
protected:
    /// The same clip without a device.
    static DecodeRun decode_in_software(const std::string& path) {
        const LogCapture quiet;
        ff::hw_disable();
        DecodeRun run = decode_clip(path);
        EXPECT_TRUE(ff::hw_enable_device("cuda"));
        return run;
    }
};

/// Software answered in place of the device: the same pictures, and no error.
void expect_same_pictures(const DecodeRun& run, const DecodeRun& software) {
    EXPECT_TRUE(run.receive_errors.empty());
    EXPECT_TRUE(run.send_errors.empty());
    ASSERT_EQ(run.pictures.size(), software.pictures.size());
    for (std::size_t i = 0; i < run.pictures.size(); ++i) {
        EXPECT_EQ(run.pictures[i].format, software.pictures[i].format) << i;
        EXPECT_EQ(run.pictures[i].pts, software.pictures[i].pts) << i;
        EXPECT_EQ(run.pictures[i].luma, software.pictures[i].luma) << i;
    }
}

TEST_F(StandInDriverTest, DecodesOnTheDeviceIntoSystemMemory) {
    const DecodeRun software = decode_in_software(clip_h264());
    const LogCapture log;
    const DecodeRun run = decode_clip(clip_h264());
    EXPECT_TRUE(run.had_device);
    EXPECT_EQ(run.final_state, 2);
    EXPECT_TRUE(run.receive_errors.empty());
    ASSERT_EQ(run.pictures.size(), software.pictures.size());
    for (std::size_t i = 0; i < run.pictures.size(); ++i) {
        const DecodedPicture& picture = run.pictures[i];
        const DecodedPicture& expected = software.pictures[i];
        EXPECT_EQ(picture.format, AV_PIX_FMT_NV12) << i;
        EXPECT_EQ(picture.luma, kStandInLuma) << i;
        EXPECT_EQ(picture.width, expected.width) << i;
        EXPECT_EQ(picture.height, expected.height) << i;
        EXPECT_EQ(picture.pts, expected.pts) << i;
        EXPECT_EQ(picture.duration, expected.duration) << i;
        EXPECT_EQ(picture.aspect.num, expected.aspect.num) << i;
        EXPECT_EQ(picture.aspect.den, expected.aspect.den) << i;
    }
    EXPECT_EQ(log.texts(2), Texts{kConfirmed});
}

TEST_F(StandInDriverTest, DecodesInSoftwareWithoutADevice) {
    const DecodeRun software = decode_in_software(clip_h264());
    fail_at("init");
    const LogCapture log;
    const DecodeRun run = decode_clip(clip_h264());
    EXPECT_FALSE(run.had_device);
    expect_same_pictures(run, software);
    EXPECT_EQ(log.texts(2), Texts{"Failed to create specified HW device. ==> cuda"});
}

TEST_F(StandInDriverTest, DecodesInSoftwareWhereTheDeviceRefusesTheStream) {
    const DecodeRun software = decode_in_software(clip_h264());
    fail_at("create");
    const LogCapture log;
    const DecodeRun run = decode_clip(clip_h264());
    EXPECT_TRUE(run.had_device);
    EXPECT_EQ(run.final_state, 0);
    expect_same_pictures(run, software);
    // The decoder goes through the other devices that it knows before it comes to software.
    EXPECT_GE(log.count_exactly(kRefused), 1U);
    EXPECT_EQ(log.texts(2).size(), log.count_exactly(kRefused));
}

TEST_F(StandInDriverTest, DecodesInSoftwareWhereTheDeviceDoesNotHaveTheFormat) {
    const std::string clip = make_clip("h264-444.mp4",
                                       "-f lavfi -i testsrc2=size=320x240:rate=30:duration=1 "
                                       "-c:v libx264 -pix_fmt yuv444p");
    const DecodeRun software = decode_in_software(clip);
    const LogCapture log;
    const DecodeRun run = decode_clip(clip);
    EXPECT_TRUE(run.had_device);
    EXPECT_EQ(run.final_state, 0);
    expect_same_pictures(run, software);
    ASSERT_FALSE(run.pictures.empty());
    EXPECT_EQ(run.pictures.front().format, AV_PIX_FMT_YUV444P);
    EXPECT_GE(log.count_exactly(kRefused), 1U);
}

TEST_F(StandInDriverTest, LosesOnlyThePicturesThatCannotBeCopied) {
    const DecodeRun software = decode_in_software(clip_h264());
    g_fail_transfer = true;
    const LogCapture log;
    const DecodeRun run = decode_clip(clip_h264());
    EXPECT_TRUE(run.pictures.empty());
    EXPECT_EQ(run.receive_errors, std::vector<int>(software.pictures.size(), AVERROR(EIO)));
    EXPECT_EQ(log.count_exactly("[hwdec] error transferring the data to system memory"),
              software.pictures.size());
    EXPECT_EQ(log.count_exactly(kConfirmed), 1U);
}

class LostDeviceTest : public StandInDriverTest, public testing::WithParamInterface<const char*> {};

TEST_P(LostDeviceTest, IsAnErrorLikeAnyOther) {
    fail_at(GetParam());
    const LogCapture quiet;
    const DecodeRun run = decode_clip(clip_h264());
    EXPECT_TRUE(run.had_device);
    EXPECT_FALSE(run.send_errors.empty() && run.receive_errors.empty());
    // The decoder may still put out pictures that it had begun.
    for (const DecodedPicture& picture : run.pictures) {
        EXPECT_EQ(picture.format, AV_PIX_FMT_NV12);
    }
}

INSTANTIATE_TEST_SUITE_P(At, LostDeviceTest, testing::Values("decode", "map"),
                         [](const auto& row) { return std::string(row.param); });

TEST_F(StandInDriverTest, ServesManyDecodersAtOnce) {
    const std::string clip = clip_h264();
    const std::size_t nb_pictures = decode_in_software(clip).pictures.size();
    const LogCapture log;
    std::vector<DecodeRun> runs(6);
    std::vector<std::thread> threads;
    for (DecodeRun& run : runs) {
        threads.emplace_back([&run, &clip] { run = decode_clip(clip, 2); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const DecodeRun& run : runs) {
        EXPECT_EQ(run.final_state, 2);
        ASSERT_EQ(run.pictures.size(), nb_pictures);
        EXPECT_EQ(run.pictures.back().luma, kStandInLuma);
    }
    EXPECT_EQ(log.count_exactly(kConfirmed), runs.size());
}

TEST_F(StandInDriverTest, DecodersThatAreOpenOutliveTheChoice) {
    const std::string clip = clip_h264();
    // Chosen anew and turned off all the time while others decode.
    std::atomic<bool> stop{false};
    const LogCapture log;
    std::thread host([&stop] {
        while (!stop) {
            ff::hw_disable();
            (void)ff::hw_enable_device("cuda");
            std::this_thread::yield();
        }
    });
    for (int i = 0; i < 4; ++i) {
        const DecodeRun run = decode_clip(clip);
        EXPECT_EQ(run.pictures.size(), 120U);
        const int expected = run.had_device ? AV_PIX_FMT_NV12 : AV_PIX_FMT_YUV420P;
        for (const DecodedPicture& picture : run.pictures) {
            ASSERT_EQ(picture.format, expected);
        }
    }
    stop = true;
    host.join();
}

}  // namespace
