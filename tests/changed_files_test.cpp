// Files that become shorter, or others, or nothing at all while somebody holds on to them, and
// paths that are no ordinary ones.

#include "tests/support/decoders.h"
#include "tests/support/engine.h"
#include "tests/support/temp_file.h"
#include "tests/support/watchdog.h"

#include <framewell/ff_tools.h>
#include <framewell/ffdecoder.h>
#include <framewell/utils/digest.h>
#include <framewell/utils/wave_files.h>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

using ff::StreamType;
using fw_test::LogCapture;
using fw_test::luma_of;
using fw_test::picture_at;
using fw_test::read_file;
using fw_test::stream_of;
using fw_test::TempFile;
using fw_test::Watchdog;
using Texts = std::vector<std::string>;

const fw_test::QuietFfmpeg& hush_ffmpeg() {
    static const fw_test::QuietFfmpeg s_quiet;
    return s_quiet;
}

class ChangedFileTest : public testing::Test {
protected:
    ChangedFileTest() { (void)hush_ffmpeg(); }

    Watchdog watchdog{"a file that changes"};
};

// Files that are cut while they are open

struct CutClip {
    const char* name;
    const char* extension;
    std::string (*make)();
};

std::string index_first() {
    return fw_test::make_clip("index_first.mp4", fw_test::small_video("4") + fw_test::kSmallH264 +
                                                     "-movflags +faststart");
}

std::string matroska() {
    return fw_test::make_clip("cut.mkv", fw_test::small_video("4") + fw_test::kSmallH264);
}

std::string transport() {
    return fw_test::small_mpeg2("m2.ts");
}

std::string avi() {
    return fw_test::make_clip("cut.avi",
                              fw_test::small_video("4") + "-c:v mpeg4 -threads 1 -g 10 -q:v 4");
}

class CutFileTest : public testing::TestWithParam<CutClip> {
protected:
    CutFileTest() { (void)hush_ffmpeg(); }

    const LogCapture quiet;
    Watchdog watchdog{"a file that is cut while it is open"};
};

TEST_P(CutFileTest, GivesTheExactPicturesOfThePartThatIsStillThere) {
    const std::string bytes = read_file(GetParam().make());
    const TempFile file(std::string("cut") + GetParam().extension, bytes);
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream_of(file.path())));
    std::map<int, std::string> expected;  // by number, 25 a second
    for (const int number : {90, 20, 45, 0, 10}) {
        const auto picture = decoder.getVideoFrame(picture_at({number, 25}));
        ASSERT_NE(picture, nullptr) << number;
        expected[number] = luma_of(*picture);
    }
    std::filesystem::resize_file(file.path(), bytes.size() * 6 / 10);
    for (const int number : {20, 90, 10, 99, 0, 70, 20}) {
        const auto picture = decoder.getVideoFrame(picture_at({number, 25}));
        if (number <= 20) {
            ASSERT_NE(picture, nullptr) << number;
            EXPECT_TRUE(luma_of(*picture) == expected[number]) << number;
        } else if (picture != nullptr) {
            // The last one before the cut, or one that is still in a buffer of the demuxer.
            EXPECT_LT(picture->pts, 4000000) << number;
        }
    }
}

TEST_P(CutFileTest, AnswersAllRequestsOfAFileOfNothing) {
    const std::string bytes = read_file(GetParam().make());
    const TempFile file(std::string("gone") + GetParam().extension, bytes);
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream_of(file.path())));
    const auto first = decoder.getVideoFrame(picture_at({0, 1}));
    ASSERT_NE(first, nullptr);
    std::filesystem::resize_file(file.path(), 0);
    for (const int second : {3, 1, 2, 0}) {
        (void)decoder.getVideoFrame(picture_at({second, 1}));
    }
    file.write(bytes);
    decoder.close();
    ASSERT_TRUE(decoder.reopen());
    const auto again = decoder.getVideoFrame(picture_at({0, 1}));
    ASSERT_NE(again, nullptr);
    EXPECT_TRUE(luma_of(*again) == luma_of(*first));
}

INSTANTIATE_TEST_SUITE_P(Containers, CutFileTest,
                         testing::Values(CutClip{"Mp4", ".mp4", index_first},
                                         CutClip{"Matroska", ".mkv", matroska},
                                         CutClip{"Transport", ".ts", transport},
                                         CutClip{"Avi", ".avi", avi}),
                         [](const auto& row) { return std::string(row.param.name); });

std::string samples_of(ff::FFDecoder* decoder, const ff::Range& range) {
    ff::RequireAudioFrame request;
    request.range = range;
    request.format = ff::SampleFormat::S16;
    request.sample_rate = 44100;
    request.channels = 2;
    const auto sound = decoder->getAudioFrame(request);
    return sound == nullptr ? ""
                            : std::string(reinterpret_cast<const char*>(sound->buffer),
                                          static_cast<std::size_t>(sound->size));
}

class CutSoundTest : public CutFileTest {};

TEST_P(CutSoundTest, GivesTheExactSamplesOfThePartThatIsStillThere) {
    const std::string bytes = read_file(GetParam().make());
    const TempFile file(std::string("cut") + GetParam().extension, bytes);
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream_of(file.path(), StreamType::Audio)));
    const std::string before = samples_of(&decoder, {{1, 2}, {1, 1}});
    ASSERT_EQ(before.size(), 22050U * 4);
    ASSERT_FALSE(samples_of(&decoder, {{5, 2}, {11, 4}}).empty());
    std::filesystem::resize_file(file.path(), bytes.size() / 2);
    for (int round = 0; round < 2; ++round) {
        // A worker remembers some seconds, so the end may still be in its memory.
        EXPECT_LE(samples_of(&decoder, {{5, 2}, {11, 4}}).size(), 11025U * 4);
        EXPECT_TRUE(samples_of(&decoder, {{1, 2}, {1, 1}}) == before) << round;
        decoder.close();
        ASSERT_TRUE(decoder.reopen());
    }
    EXPECT_TRUE(samples_of(&decoder, {{5, 2}, {11, 4}}).empty());
}

INSTANTIATE_TEST_SUITE_P(Containers, CutSoundTest,
                         testing::Values(CutClip{"Wave", ".wav", fw_test::clip_pcm},
                                         CutClip{"Flac", ".flac", fw_test::clip_flac}),
                         [](const auto& row) { return std::string(row.param.name); });

// Files that are replaced between probe and open

TEST_F(ChangedFileTest, AShorterFileEndsEarlier) {
    const TempFile file("shorter.mp4", read_file(fw_test::clip_h264()));
    const ff::StreamCtx* const stream = stream_of(file.path());
    file.write(read_file(fw_test::small_mp4()));  // half as long, another size, another rate
    ff::FFDecoder decoder;
    const LogCapture quiet;
    ASSERT_TRUE(decoder.open(stream));
    const auto picture = decoder.getVideoFrame(picture_at({3, 1}));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->width, stream->width) << "the record still says so";
    EXPECT_EQ(picture->height, stream->height);
    EXPECT_LT(picture->pts, 3000000);
}

TEST_F(ChangedFileTest, AnotherCodecAndContainerIsDecodedAsWhatItIs) {
    const TempFile file("codec.mp4", read_file(fw_test::clip_h264()));
    const ff::StreamCtx* const stream = stream_of(file.path());
    file.write(read_file(fw_test::clip_vp9()));
    ff::FFDecoder decoder;
    const LogCapture quiet;
    ASSERT_TRUE(decoder.open(stream));
    EXPECT_NE(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
}

TEST_F(ChangedFileTest, AStreamThatIsNoLongerThereDoesNotOpen) {
    const TempFile file("streams.mp4", read_file(fw_test::clip_two_video_two_audio()));
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(file.path().c_str());
    ASSERT_NE(movie, nullptr);
    const ff::StreamCtx* const last = movie->streams[movie->nb_streams - 1];
    file.write(read_file(fw_test::clip_h264()));
    ff::FFDecoder decoder;
    const LogCapture log;
    EXPECT_FALSE(decoder.open(last));
    EXPECT_EQ(log.texts(2), Texts{"no such stream: " + file.path() + ", [3]"});
}

TEST_F(ChangedFileTest, SoundInPlaceOfPicturesDoesNotOpen) {
    const TempFile file("kind.mp4", read_file(fw_test::clip_h264()));
    const ff::StreamCtx* const stream = stream_of(file.path());
    file.write(read_file(fw_test::clip_pcm()));
    ff::FFDecoder decoder;
    const LogCapture log;
    EXPECT_FALSE(decoder.open(stream));
    EXPECT_EQ(log.texts(2), Texts{"stream 0 is of another kind by now: " + file.path()});
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
}

TEST_F(ChangedFileTest, PicturesInPlaceOfSoundDoNotOpen) {
    const TempFile file("kind.wav", read_file(fw_test::clip_pcm()));
    const ff::StreamCtx* const stream = stream_of(file.path(), StreamType::Audio);
    file.write(read_file(fw_test::clip_h264()));
    ff::FFDecoder decoder;
    const LogCapture log;
    EXPECT_FALSE(decoder.open(stream));
    EXPECT_EQ(log.texts(2), Texts{"stream 0 is of another kind by now: " + file.path()});
    EXPECT_TRUE(samples_of(&decoder, {{0, 1}, {1, 1}}).empty());
}

TEST_F(ChangedFileTest, AFolderInPlaceOfTheFileDoesNotOpen) {
    const TempFile file("folder.mp4", read_file(fw_test::clip_h264()));
    const ff::StreamCtx* const stream = stream_of(file.path());
    file.remove();
    ASSERT_TRUE(std::filesystem::create_directory(file.path()));
    ff::FFDecoder decoder;
    {
        const LogCapture log;
        EXPECT_FALSE(decoder.open(stream));
        EXPECT_EQ(log.texts(2), Texts{"failed to open: " + file.path() + ", Is a directory"});
    }
    std::filesystem::remove(file.path());
}

TEST_F(ChangedFileTest, AFileThatMayNotBeReadAnyMoreDoesNotOpen) {
    if (::geteuid() == 0) {
        GTEST_SKIP() << "the user is root, who may read every file";
    }
    const TempFile file("secret.mp4", read_file(fw_test::clip_h264()));
    const ff::StreamCtx* const stream = stream_of(file.path());
    std::filesystem::permissions(file.path(), std::filesystem::perms::none);
    ff::FFDecoder decoder;
    const LogCapture log;
    EXPECT_FALSE(decoder.open(stream));
    EXPECT_EQ(log.texts(2), Texts{"failed to open: " + file.path() + ", Permission denied"});
}

TEST_F(ChangedFileTest, AnOpenDecoderGoesOnWithTheFileThatItHas) {
    const TempFile file("renamed.mp4", read_file(fw_test::clip_h264()));
    const TempFile other("other.mp4", read_file(fw_test::small_mp4()));
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(stream_of(file.path())));
    std::filesystem::rename(other.path(), file.path());
    ff::FFDecoder untouched;
    ASSERT_TRUE(untouched.open(stream_of(fw_test::clip_h264())));
    for (const int second : {3, 1, 0, 2}) {
        const auto picture = decoder.getVideoFrame(picture_at({second, 1}));
        ASSERT_NE(picture, nullptr) << second;
        EXPECT_TRUE(luma_of(*picture) == luma_of(*untouched.getVideoFrame(picture_at({second, 1}))))
            << second;
    }
}

// What can be read only once

class PipeTest : public ChangedFileTest {
protected:
    void make_pipe() { ASSERT_EQ(::mkfifo(place.path().c_str(), 0600), 0); }

    const TempFile place{"pipe.mp4", read_file(fw_test::clip_h264())};
};

TEST_F(PipeTest, IsNotProbed) {
    place.remove();
    make_pipe();
    for (const std::string& path : {place.path(), "file:" + place.path()}) {
        const LogCapture log;
        EXPECT_EQ(ff::FFDecoder::probe(path.c_str()), nullptr);
        EXPECT_EQ(log.texts(2), Texts{"can't open input file: " + path});
        EXPECT_EQ(ff::getMovieImage(path.c_str(), {}, nullptr), nullptr);
    }
}

TEST_F(PipeTest, IsNotOpenedInPlaceOfAFile) {
    const ff::StreamCtx* const stream = stream_of(place.path());
    place.remove();
    make_pipe();
    ff::FFDecoder decoder;
    const LogCapture log;
    EXPECT_FALSE(decoder.open(stream));
    EXPECT_EQ(log.texts(2), Texts{"failed to open: " + place.path() + ", Illegal seek"});
}

TEST_F(ChangedFileTest, DevicesAreNotProbed) {
    for (const char* const path : {"/dev/zero", "/dev/tty", "/dev/full"}) {
        const LogCapture log;
        EXPECT_EQ(ff::FFDecoder::probe(path), nullptr) << path;
    }
}

// Paths

std::vector<std::string> odd_paths() {
    return {"",
            "/" + std::string(5000, 'a'),
            std::string(5000, '/') + "none",
            std::string(300, 'b') + ".mp4",
            "%s%n%d%99999d.mp4",
            "line\nbreak\r.mp4",
            "\xff\xfe\x80.mp4",
            "\"quoted\".mp4",
            "file:",
            "file:/no/such/file",
            ":",
            "concat:",
            "\t ",
            "."};
}

TEST_F(ChangedFileTest, OddPathsOfNothingAreRefusedWithALine) {
    for (const std::string& path : odd_paths()) {
        const LogCapture log;
        EXPECT_EQ(ff::FFDecoder::probe(path.c_str()), nullptr) << path;
        ASSERT_EQ(log.texts(2).size(), 1U) << path;
        const std::string text = "\"can't open input file: " + path;
        EXPECT_EQ(log.lines().back().message.substr(0, text.size()), text.substr(0, 510)) << path;
        EXPECT_EQ(ff::getMovieImage(path.c_str(), {}, nullptr), nullptr);
        ff::WaveFiles store;
        EXPECT_FALSE(store.open({path}, "rb")) << path;
    }
}

TEST_F(ChangedFileTest, OddNamesOfFilesAreNamesLikeOthers) {
    for (const std::string& name :
         {std::string("%s%n%d.mp4"), std::string("line\nbreak\r.mp4"),
          std::string("\xff\xfe\x80.mp4"), std::string("a\"b'c\\.mp4"), std::string(200, 'x')}) {
        const TempFile file(name, read_file(fw_test::small_mp4()));
        const LogCapture quiet;
        ff::FFDecoder decoder;
        ASSERT_TRUE(decoder.open(stream_of(file.path()))) << name;
        EXPECT_NE(decoder.getVideoFrame(picture_at({1, 1})), nullptr) << name;
        EXPECT_EQ(stream_of(file.path())->movie->path, file.path());
    }
}

}  // namespace
