#include "media/frame_shelf.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <set>
#include <thread>
#include <vector>

namespace ff {
namespace {

constexpr int kSize = 64;

std::shared_ptr<AVFrame> take_picture() {
    std::shared_ptr<AVFrame> frame = take_avframe_ptr();
    frame->format = AV_PIX_FMT_GRAY8;
    frame->width = frame->height = kSize;
    frame->pts = 7;
    EXPECT_GE(av_frame_get_buffer(frame.get(), 0), 0);
    return frame;
}

TEST(FrameShelfTest, GivesAFrameWithoutAnythingInIt) {
    take_picture().reset();
    const std::shared_ptr<AVFrame> frame = take_avframe_ptr();
    ASSERT_NE(frame, nullptr);
    EXPECT_EQ(frame->buf[0], nullptr);
    EXPECT_EQ(frame->data[0], nullptr);
    EXPECT_EQ(frame->width, 0);
    EXPECT_EQ(frame->pts, AV_NOPTS_VALUE);
}

TEST(FrameShelfTest, ReleasesTheContentsWithTheLastHandle) {
    std::shared_ptr<AVFrame> frame = take_picture();
    const FramePtr second(av_frame_clone(frame.get()));
    ASSERT_NE(second, nullptr);
    std::shared_ptr<AVFrame> other_handle = frame;
    frame.reset();
    EXPECT_EQ(av_frame_is_writable(second.get()), 0) << "a handle is left";
    other_handle.reset();
    EXPECT_EQ(av_frame_is_writable(second.get()), 1);
}

TEST(FrameShelfTest, UsesARecordAgain) {
    std::shared_ptr<AVFrame> first = take_avframe_ptr();
    const AVFrame* const record = first.get();
    first.reset();
    EXPECT_EQ(take_avframe_ptr().get(), record);
}

TEST(FrameShelfTest, NeverGivesOneRecordToTwo) {
    std::vector<std::shared_ptr<AVFrame>> taken;
    std::set<const AVFrame*> records;
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 100; ++i) {
            taken.push_back(take_avframe_ptr());
            records.insert(taken.back().get());
        }
        EXPECT_EQ(records.size(), taken.size());
        taken.clear();
        records.clear();
    }
}

TEST(FrameShelfTest, ServesManyThreads) {
    std::atomic<int> bad{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&bad, t] {
            for (int i = 0; i < 1000; ++i) {
                const std::shared_ptr<AVFrame> frame = take_avframe_ptr();
                bad += frame->pts != AV_NOPTS_VALUE ? 1 : 0;
                frame->pts = t;
                const std::shared_ptr<AVFrame> other = take_avframe_ptr();
                bad += other.get() == frame.get() ? 1 : 0;
                bad += frame->pts != t ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(bad.load(), 0);
}

}  // namespace
}  // namespace ff
