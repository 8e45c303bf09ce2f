#include "tests/support/decoders.h"
#include "tests/support/log_capture.h"
#include "tests/support/temp_folder.h"
#include "tests/support/watchdog.h"

#include <framewell/ffdecoder.h>

#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using ff::PixelFormat;
using ff::StreamType;
using fw_test::LogCapture;
using fw_test::picture_at;
using fw_test::Watchdog;

/// A folder for files that are used once. A path is probed once in the life of the process, so each
/// file gets a name of its own.
class DamagedFiles {
public:
    std::string path(const std::string& name) const { return m_folder.path(name); }

    std::string write(const std::string& extension, const std::string& bytes) {
        const std::string file = path(std::to_string(++m_count) + extension);
        std::ofstream(file, std::ios::binary)
            .write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
        return file;
    }

private:
    fw_test::TemporaryFolder m_folder;
    int m_count = 0;
};

struct Yield {
    bool has_record = false;
    int streams = 0;
    int pictures = 0;
};

/// A damaged header may announce pictures of gigabytes; the scaler fills them, slowly.
int divider_for(const ff::StreamCtx& stream) {
    const double area = static_cast<double>(stream.width) * stream.height;
    return area > 4e6 ? 64 : 1;
}

/// Asks for pictures all over a stream. Returns how many came.
int ask_for_pictures(const ff::StreamCtx& stream) {
    ff::FFDecoder decoder;
    if (!decoder.open(&stream)) {
        return 0;
    }
    const int divider = divider_for(stream);
    int pictures = 0;
    for (const ff::Rational time : {ff::Rational{0, 1}, ff::Rational{3, 2}, ff::Rational{1, 2},
                                    ff::Rational{1000000, 1}, ff::Rational{-1, 1}}) {
        const auto picture = decoder.getVideoFrame(picture_at(time, PixelFormat::Yuv420p, divider));
        if (picture != nullptr) {
            ++pictures;
            EXPECT_GT(picture->width, 0);
            EXPECT_GT(picture->height, 0);
            EXPECT_NE(picture->data[0], nullptr);
        }
    }
    decoder.pri_seek({1, 4}, false);
    return pictures;
}

/// Does with a file all that a host does. What must not happen is a crash, a hang or a leak.
Yield use(const std::string& path) {
    Yield yield;
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(path.c_str());
    yield.has_record = movie != nullptr;
    for (int i = 0; movie != nullptr && i < movie->nb_streams; ++i) {
        ++yield.streams;
        yield.pictures += ask_for_pictures(*movie->streams[i]);
    }
    return yield;
}

/// Expects that a sound file of the same process still gives the right picture.
void expect_others_work() {
    static int s_round = 0;
    const std::int64_t number = ++s_round % 60;
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(fw_test::stream_of(fw_test::clip_small())));
    const auto picture = decoder.getVideoFrame(picture_at({number, 30}));
    ASSERT_NE(picture, nullptr);
    EXPECT_EQ(picture->pts, ff::rescale_q(number, {1, 30}, {1, 1000000}));
}

class BadInputTest : public ::testing::Test {
protected:
    /// What a probe that finds nothing says.
    static void expect_refused(const char* path) {
        LogCapture log;
        EXPECT_EQ(ff::FFDecoder::probe(path), nullptr);
        const std::vector<fw_test::LogLine> lines = log.lines();
        ASSERT_EQ(lines.size(), 1U);
        const std::string text =
            std::string("can't open input file: ") + (path != nullptr ? path : "");
        EXPECT_EQ(lines[0].message.substr(0, 128), fw_test::quoted(text).substr(0, 128));
        EXPECT_EQ(lines[0].level, 2);
        EXPECT_EQ(lines[0].tag, "bg");
        EXPECT_EQ(lines[0].file, "src/ffdec_probe");
    }

    DamagedFiles files;
    Watchdog watchdog{"a test of bad input"};
};

}  // namespace

// Files that are none

TEST_F(BadInputTest, RefusesANullPath) {
    expect_refused(nullptr);
}

TEST_F(BadInputTest, RefusesPathsOfNothing) {
    expect_refused("");
    expect_refused(files.path("missing.mp4").c_str());
    expect_refused(files.path("missing-folder/missing.mp4").c_str());
    expect_refused(files.path("").c_str());
    expect_refused("/dev/null");
    expect_refused("no-such-protocol://host/file");
    expect_others_work();
}

TEST_F(BadInputTest, RefusesAFileWithoutPermission) {
    if (::geteuid() == 0) {
        GTEST_SKIP() << "the user is root, who may read every file";
    }
    const std::string path = files.write(".mp4", fw_test::read_file(fw_test::clip_small()));
    std::filesystem::permissions(path, std::filesystem::perms::none);
    expect_refused(path.c_str());
    // Nothing is remembered of a file that could not be opened.
    std::filesystem::permissions(path, std::filesystem::perms::owner_read);
    EXPECT_NE(ff::FFDecoder::probe(path.c_str()), nullptr);
}

TEST_F(BadInputTest, RefusesFilesWithoutMedia) {
    expect_refused(files.write(".mp4", "").c_str());
    expect_refused(files.write(".mp4", "\n").c_str());
    expect_refused(files.write(".mkv", "This is not a film.\nIt is a text.\n").c_str());
    expect_refused(files.write(".mp4", std::string(100000, '\0')).c_str());
    std::mt19937 random(1);
    std::string noise(100000, '\0');
    for (char& byte : noise) {
        byte = static_cast<char>(random());
    }
    (void)use(files.write(".mp4", noise));  // it may look like something by chance
    expect_others_work();
}

TEST_F(BadInputTest, ProbesAFileThatComesLater) {
    const std::string path = files.path("later.mp4");
    expect_refused(path.c_str());
    std::filesystem::copy_file(fw_test::clip_small(), path);
    EXPECT_EQ(use(path).pictures, 5);
}

TEST_F(BadInputTest, GoesByTheContentAndNotByTheName) {
    const std::string bytes = fw_test::read_file(fw_test::clip_small());
    for (const char* const extension : {".avi", ".mkv", ".mp3", ".txt", ".jpg", ".wav", ".", ""}) {
        EXPECT_EQ(use(files.write(extension, bytes)).pictures, 5) << extension;
    }
    const std::string still = fw_test::read_file(fw_test::clip_png());
    for (const char* const extension : {".mp4", ".jpg", ".txt"}) {
        EXPECT_EQ(use(files.write(extension, still)).pictures, 5) << extension;
    }
}

// Files that change or go after they were probed

TEST_F(BadInputTest, DoesNotOpenAFileThatIsGone) {
    const std::string path = files.write(".mp4", fw_test::read_file(fw_test::clip_small()));
    const ff::StreamCtx* const stream = fw_test::stream_of(path);
    std::filesystem::remove(path);
    ff::FFDecoder decoder;
    LogCapture log;
    EXPECT_FALSE(decoder.open(stream));
    EXPECT_EQ(log.texts(2),
              std::vector<std::string>{"failed to open: " + path + ", No such file or directory"});
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
    EXPECT_FALSE(decoder.reopen());
}

TEST_F(BadInputTest, DoesNotOpenAFileThatHasBecomeAnother) {
    const std::string path = files.write(".mp4", fw_test::read_file(fw_test::clip_small()));
    const ff::StreamCtx* const stream = fw_test::stream_of(path);
    std::ofstream(path, std::ios::binary) << "no film any more";
    ff::FFDecoder decoder;
    LogCapture log;
    EXPECT_FALSE(decoder.open(stream));
    EXPECT_EQ(log.texts(2).size(), 1U);
    EXPECT_EQ(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
}

TEST_F(BadInputTest, SurvivesAFileThatIsCutWhileItIsOpen) {
    const std::string path = files.write(".mp4", fw_test::read_file(fw_test::clip_h264()));
    ff::FFDecoder decoder;
    ASSERT_TRUE(decoder.open(fw_test::stream_of(path)));
    ASSERT_NE(decoder.getVideoFrame(picture_at({0, 1})), nullptr);
    std::filesystem::resize_file(path, 1000);
    for (int second = 3; second >= 0; --second) {
        (void)decoder.getVideoFrame(picture_at({second, 1}));
    }
    decoder.close();
    expect_others_work();
}

// Streams without a decoder

TEST_F(BadInputTest, LeavesOutAStreamWithoutADecoderAndKeepsTheOthers) {
    // The first description of a coded picture is the brand of the file, then come the two streams.
    std::string bytes = fw_test::read_file(fw_test::clip_two_video_two_audio());
    const std::size_t descriptions = bytes.find("stsd");
    ASSERT_NE(descriptions, std::string::npos);
    const std::size_t first = bytes.find("avc1", descriptions);
    ASSERT_NE(first, std::string::npos);
    bytes.replace(first, 4, "zzzz");
    const std::string path = files.write(".mp4", bytes);

    const ff::MovieCtx* const movie = ff::FFDecoder::probe(path.c_str());
    ASSERT_NE(movie, nullptr);
    EXPECT_EQ(movie->nb_streams, 3);
    EXPECT_EQ(movie->nb_video, 1);
    EXPECT_EQ(ff::stream_by_index(movie, 0), nullptr);
    const ff::StreamCtx* const second = ff::stream_by_index(movie, 1);
    ASSERT_NE(second, nullptr);
    EXPECT_EQ(second->width, 160);
    EXPECT_EQ(ask_for_pictures(*second), 5);

    ff::StreamCtx unknown;
    unknown.index = 0;
    unknown.type = StreamType::Video;
    unknown.time_base = second->time_base;
    unknown.movie = second->movie;
    ff::FFDecoder decoder;
    LogCapture log;
    EXPECT_FALSE(decoder.open(&unknown));
    EXPECT_EQ(log.texts(2),
              std::vector<std::string>{"failed to find decoder for: " + path + ", [0], 0"});
}

// Damaged files

namespace {

struct Container {
    const char* name;
    std::string (*make)();
};

/// Two seconds of pictures and, but for the still, sound.
std::string damage_clip(const std::string& name, const std::string& codecs) {
    return fw_test::make_clip(name,
                              "-f lavfi -i testsrc2=size=160x120:rate=15:duration=2,format=yuv420p "
                              "-f lavfi -i sine=frequency=440:duration=2 -map 0:v -map 1:a -g 10 " +
                                  codecs);
}

std::string mp4() {
    return damage_clip("damage.mp4", "-c:v libx264 -preset veryfast -threads 1 -bf 2 -c:a aac");
}

std::string fragmented() {
    return damage_clip("fragmented.mp4",
                       "-c:v libx264 -preset veryfast -threads 1 -c:a aac "
                       "-movflags frag_keyframe+empty_moov");
}

std::string matroska() {
    return damage_clip("damage.mkv",
                       "-c:v libx265 -preset ultrafast -x265-params log-level=error:pools=1 "
                       "-c:a flac");
}

std::string webm() {
    return damage_clip("damage.webm",
                       "-c:v libvpx-vp9 -deadline realtime -cpu-used 8 -threads 1 -b:v 200k "
                       "-c:a libopus");
}

std::string transport() {
    return damage_clip("damage.ts", "-c:v mpeg2video -bf 2 -threads 1 -c:a mp2");
}

std::string avi() {
    return damage_clip("damage.avi", "-c:v mpeg4 -threads 1 -c:a libmp3lame");
}

class DamageTest : public ::testing::TestWithParam<Container> {
protected:
    std::string extension() const {
        return std::filesystem::path(GetParam().make()).extension().string();
    }

    const std::string bytes = fw_test::read_file(GetParam().make());
    DamagedFiles files;
    Watchdog watchdog{"a test of damaged files"};
    LogCapture log;  // hundreds of lines that are as they should be
};

}  // namespace

TEST_P(DamageTest, IsWholeAtFirst) {
    const Yield yield = use(files.write(extension(), bytes));
    EXPECT_TRUE(yield.has_record);
    EXPECT_GT(yield.pictures, 0);
}

TEST_P(DamageTest, IsCutAtAnyLength) {
    std::vector<std::size_t> lengths{1, 2, 3, 4, 7, 8, 12, 16, 31, 32, 33, 100, 188, 189, 500};
    for (std::size_t part = 1; part < 12; ++part) {
        lengths.push_back(bytes.size() * part / 12);
    }
    lengths.push_back(bytes.size() - 1);
    for (const std::size_t length : lengths) {
        const std::string path = files.write(extension(), bytes.substr(0, length));
        watchdog.start(std::string(GetParam().name) + " cut at " + std::to_string(length));
        log.clear();
        const Yield yield = use(path);
        if (!yield.has_record) {
            EXPECT_EQ(log.count_exactly("can't open input file: " + path), 1U) << length;
        } else if (yield.streams > 0 && yield.pictures == 0) {
            EXPECT_FALSE(log.lines().empty()) << length;
        }
    }
    expect_others_work();
}

TEST_P(DamageTest, HasBitsFlippedAnywhere) {
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::mt19937 random(seed);
        std::string damaged = bytes;
        // From a single bit to one in some hundred bytes; every second file only in its first part,
        // where the headers of most containers lie.
        const std::size_t flips = std::size_t{1} << (seed % 10);
        const std::size_t reach =
            seed % 2 == 0 ? std::min<std::size_t>(bytes.size(), 2000) : bytes.size();
        for (std::size_t i = 0; i < flips; ++i) {
            damaged[random() % reach] ^= static_cast<char>(1U << (random() % 8));
        }
        const std::string path = files.write(extension(), damaged);
        watchdog.start(std::string(GetParam().name) + " flipped with seed " + std::to_string(seed));
        log.clear();
        const Yield yield = use(path);
        if (!yield.has_record) {
            EXPECT_EQ(log.count_exactly("can't open input file: " + path), 1U) << seed;
        }
    }
    expect_others_work();
}

TEST_P(DamageTest, HasStretchesLostAndRepeated) {
    for (unsigned seed = 1; seed <= 12; ++seed) {
        std::mt19937 random(seed);
        std::string damaged = bytes;
        for (int i = 0; i < 3; ++i) {
            const std::size_t at = random() % damaged.size();
            const std::size_t length = random() % 3000;
            if (seed % 2 == 0) {
                damaged.erase(at, length);
            } else {
                damaged.insert(at, bytes.substr(random() % bytes.size(), length));
            }
        }
        watchdog.start(std::string(GetParam().name) + " with seed " + std::to_string(seed));
        (void)use(files.write(extension(), damaged));
    }
    expect_others_work();
}

INSTANTIATE_TEST_SUITE_P(Containers, DamageTest,
                         ::testing::Values(Container{"Mp4", mp4},
                                           Container{"FragmentedMp4", fragmented},
                                           Container{"Matroska", matroska}, Container{"Webm", webm},
                                           Container{"Transport", transport}, Container{"Avi", avi},
                                           Container{"RawH264", fw_test::clip_raw_h264},
                                           Container{"Png", fw_test::clip_png},
                                           Container{"Jpeg", fw_test::clip_jpeg}),
                         [](const auto& row) { return std::string(row.param.name); });

// The shared collection

TEST_F(BadInputTest, SurvivesTheBrokenFilesOfTheSharedCollection) {
    const std::vector<std::string> names = fw_test::shared_media_names();
    int broken = 0;
    for (const std::string& name : names) {
        if (name.rfind("broken-", 0) != 0) {
            continue;
        }
        ++broken;
        const std::string path = fw_test::shared_media(name);
        watchdog.start(name);
        LogCapture log;
        const Yield yield = use(path);
        // A file that opens but has no streams has nothing that could fail.
        if (!yield.has_record || (yield.streams > 0 && yield.pictures == 0)) {
            EXPECT_FALSE(log.lines().empty()) << name;
        }
        expect_others_work();
    }
    if (broken == 0) {
        GTEST_SKIP() << "FRAMEWELL_SHARED_MEDIA does not name a collection with broken files";
    }
}
