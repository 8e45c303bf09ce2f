#include "media/ff_compat.h"

#include <framewell/media/ffmpeg_error.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace {

TEST(FfmpegErrorTest, GivesTheTextOfFfmpeg) {
    EXPECT_STREQ(ff::ffmpeg_error(AVERROR_EOF), "End of file");
    EXPECT_STREQ(ff::ffmpeg_error(AVERROR(EINVAL)), "Invalid argument");
}

TEST(FfmpegErrorTest, GivesTheNumberOfAnUnknownCode) {
    EXPECT_STREQ(ff::ffmpeg_error(-123456789), "Error number -123456789 occurred");
}

TEST(FfmpegErrorTest, TenTextsStayAsTheyAre) {
    std::vector<const char*> texts;
    for (int i = 0; i < 10; ++i) {
        texts.push_back(ff::ffmpeg_error(-700000 - i));
    }
    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(std::string(texts[static_cast<std::size_t>(i)]),
                  "Error number " + std::to_string(-700000 - i) + " occurred");
    }
    EXPECT_EQ(ff::ffmpeg_error(AVERROR_EOF), texts[0]);  // the eleventh takes the first place
}

TEST(FfmpegErrorTest, ThreadsDoNotWriteOverEachOther) {
    const char* const mine = ff::ffmpeg_error(AVERROR_EOF);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 1000; ++i) {
                const int code = -1000000 * (t + 1) - i;
                EXPECT_EQ(std::string(ff::ffmpeg_error(code)),
                          "Error number " + std::to_string(code) + " occurred");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_STREQ(mine, "End of file");
}

}  // namespace
