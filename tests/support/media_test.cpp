#include "tests/support/media.h"

#include <gtest/gtest.h>

#include <set>

namespace {

using fw_test::md5_hex;
using fw_test::reference_frames;

TEST(TestMediaTest, DigestsAreThoseOfMd5) {
    EXPECT_EQ(md5_hex("", 0), "d41d8cd98f00b204e9800998ecf8427e");
    EXPECT_EQ(md5_hex("abc", 3), "900150983cd24fb0d6963f7d28e17f72");
}

TEST(TestMediaTest, ClipIsMadeOnceAndItsPicturesAllDiffer) {
    const std::string path = fw_test::clip_h264();
    EXPECT_EQ(fw_test::clip_h264(), path);
    const auto frames = reference_frames(path, 0);
    ASSERT_EQ(frames.size(), 120U);
    std::set<std::string> digests;
    for (std::size_t i = 0; i < frames.size(); i++) {
        EXPECT_EQ(frames[i].pts, static_cast<std::int64_t>(i) * 512);
        digests.insert(frames[i].md5);
    }
    EXPECT_EQ(digests.size(), frames.size());
}

TEST(TestMediaTest, AFailedClipSaysWhy) {
    try {
        fw_test::make_clip("nothing.mp4", "-i there-is-no-such-file");
        FAIL() << "no exception";
    } catch (const std::exception& error) {
        EXPECT_NE(std::string(error.what()).find("there-is-no-such-file"), std::string::npos);
    }
}

TEST(TestMediaTest, EveryNamedClipCanBeDecoded) {
    for (const std::string& path :
         {fw_test::clip_h264_long_gop(), fw_test::clip_hevc(), fw_test::clip_vp9(),
          fw_test::clip_mpeg2_ts(), fw_test::clip_mpeg4_avi(), fw_test::clip_raw_h264(),
          fw_test::clip_variable_rate(), fw_test::clip_two_video_two_audio(),
          fw_test::clip_subrip(), fw_test::clip_video_audio(), fw_test::clip_aac(),
          fw_test::clip_mp3(), fw_test::clip_flac(), fw_test::clip_opus(), fw_test::clip_pcm(),
          fw_test::clip_png(), fw_test::clip_jpeg()}) {
        EXPECT_FALSE(reference_frames(path, 0).empty()) << path;
    }
}

TEST(TestMediaTest, GroundTruthOfTheSharedFilesCanBeRead) {
    const auto names = fw_test::shared_media_names();
    if (names.empty()) {
        GTEST_SKIP() << "no shared media: set FRAMEWELL_SHARED_MEDIA";
    }
    int video_streams = 0;
    for (const std::string& name : names) {
        const auto truth = fw_test::shared_truth(name);
        ASSERT_TRUE(truth.has_value()) << name;
        for (const auto& stream : truth->streams) {
            if (stream.type == "video") {
                video_streams++;
                EXPECT_LE(static_cast<std::int64_t>(stream.frames.size()), stream.frames_total);
                EXPECT_GT(stream.tb_num, 0) << name;
            }
        }
    }
    EXPECT_GT(video_streams, 0);
}

}  // namespace
