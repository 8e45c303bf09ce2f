#include "tests/support/log_capture.h"
#include "tests/support/temp_file.h"

#include <framewell/utils/wave_files.h>

#include <climits>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string>
#include <type_traits>
#include <vector>

namespace {

using fw_test::LogCapture;
using fw_test::TempFile;

static_assert(!std::is_copy_constructible_v<ff::WaveFiles>, "a file has one owner");

constexpr char kSource[] = "src/utils/wave_files";

std::string content(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The lowest number that the next opened file would get: it rises with every file left open.
int next_descriptor() {
    const int number = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    (void)::close(number);
    return number;
}

/// Two files, and planes that tell which bytes went where.
class WaveFilesTest : public testing::Test {
protected:
    static std::vector<std::uint8_t> pattern(std::size_t size, unsigned seed) {
        std::vector<std::uint8_t> bytes(size);
        for (std::size_t i = 0; i < size; ++i) {
            bytes[i] = static_cast<std::uint8_t>(i * 7 + i / 256 + seed);
        }
        return bytes;
    }

    static std::string text(const std::vector<std::uint8_t>& bytes, std::size_t size) {
        return {bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(size)};
    }

    int write(int bytes) {
        const std::uint8_t* planes[] = {left.data(), right.data()};
        return store.write(planes, bytes);
    }

    int read(int offset, int bytes) {
        std::uint8_t* planes[] = {left_out.data(), right_out.data()};
        return store.read(planes, offset, bytes);
    }

    const TempFile left_file{"left.pcm"};
    const TempFile right_file{"right.pcm"};
    const std::vector<std::string> paths{left_file.path(), right_file.path()};
    const std::vector<std::uint8_t> left = pattern(8192, 1);
    const std::vector<std::uint8_t> right = pattern(8192, 2);
    std::vector<std::uint8_t> left_out = std::vector<std::uint8_t>(16384, 0xEE);
    std::vector<std::uint8_t> right_out = std::vector<std::uint8_t>(16384, 0xEE);
    LogCapture log;
    ff::WaveFiles store;
};

TEST_F(WaveFilesTest, WritesBareSamplesOfOnePlanePerFile) {
    ASSERT_TRUE(store.open(paths, "wb"));
    EXPECT_TRUE(store.is_opened());
    EXPECT_EQ(store.size(), 0);
    EXPECT_EQ(write(4096), 4096);
    EXPECT_EQ(store.size(), 4096);
    store.close();
    EXPECT_FALSE(store.is_opened());
    EXPECT_EQ(content(paths[0]), text(left, 4096));
    EXPECT_EQ(content(paths[1]), text(right, 4096));
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(WaveFilesTest, ReadsBackUpToTheEnd) {
    ASSERT_TRUE(store.open(paths, "wb"));
    ASSERT_EQ(write(4096), 4096);
    ASSERT_TRUE(store.open(paths, "rb"));
    EXPECT_EQ(store.size(), 4096);
    EXPECT_EQ(read(0, 8192), 4096);
    EXPECT_EQ(text(left_out, 4096), text(left, 4096));
    EXPECT_EQ(text(right_out, 4096), text(right, 4096));
    EXPECT_EQ(left_out[4096], 0xEE);
    EXPECT_EQ(read(0, 8192), 0);
    EXPECT_EQ(store.size(), 4096);
    EXPECT_TRUE(log.lines().empty());
}

// The example of the header.
TEST_F(WaveFilesTest, CanBeUsedAsItsDocumentationShows) {
    const std::string& left_path = paths[0];
    const std::string& right_path = paths[1];
    if (store.open({left_path, right_path}, "wb")) {
        const std::uint8_t* planes[] = {left.data(), right.data()};
        (void)store.write(planes, 4096);
    }
    store.open({left_path, right_path}, "rb");
    std::uint8_t* buffers[] = {left_out.data(), right_out.data()};
    const int bytes = store.read(buffers, 0, 8192);
    EXPECT_EQ(bytes, 4096);
    EXPECT_EQ(text(right_out, 4096), text(right, 4096));
}

TEST_F(WaveFilesTest, FillsABufferInSeveralReads) {
    ASSERT_TRUE(store.open(paths, "wb"));
    ASSERT_EQ(write(1000), 1000);
    ASSERT_TRUE(store.open(paths, "rb"));
    EXPECT_EQ(read(0, 300), 300);
    EXPECT_EQ(read(300, 300), 300);
    EXPECT_EQ(read(600, 1000), 400);
    EXPECT_EQ(text(left_out, 1000), text(left, 1000));
    EXPECT_EQ(text(right_out, 1000), text(right, 1000));
    EXPECT_EQ(right_out[1000], 0xEE);
}

TEST_F(WaveFilesTest, SeeksEveryFile) {
    ASSERT_TRUE(store.open(paths, "wb"));
    ASSERT_EQ(write(1000), 1000);
    ASSERT_TRUE(store.open(paths, "rb"));
    ASSERT_EQ(read(0, 1000), 1000);
    store.seek(0, SEEK_SET);
    EXPECT_EQ(read(0, 100), 100);
    EXPECT_EQ(text(left_out, 100), text(left, 100));
    EXPECT_EQ(text(right_out, 100), text(right, 100));
    store.seek(50, SEEK_CUR);
    EXPECT_EQ(read(0, 1), 1);
    EXPECT_EQ(left_out[0], left[150]);
    EXPECT_EQ(right_out[0], right[150]);
    store.seek(-1, SEEK_END);
    EXPECT_EQ(read(0, 10), 1);
    EXPECT_EQ(left_out[0], left[999]);
    EXPECT_EQ(right_out[0], right[999]);
}

TEST_F(WaveFilesTest, SeeksThatAreNotPossibleLeaveThePosition) {
    ASSERT_TRUE(store.open(paths, "wb"));
    ASSERT_EQ(write(100), 100);
    store.seek(-1, SEEK_SET);
    store.seek(LLONG_MIN, SEEK_CUR);
    store.seek(5, 99);
    EXPECT_EQ(store.size(), 100);
    EXPECT_EQ(write(100), 100);
    EXPECT_EQ(store.size(), 200);
}

TEST_F(WaveFilesTest, ClosedStoresTransferNothing) {
    EXPECT_FALSE(store.is_opened());
    EXPECT_EQ(write(10), -1);
    EXPECT_EQ(read(0, 10), -1);
    EXPECT_EQ(store.write(nullptr, 0), -1);
    EXPECT_EQ(store.read(nullptr, -1, -1), -1);
    EXPECT_EQ(store.size(), 0);
    store.seek(10, SEEK_SET);
    store.close();
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(WaveFilesTest, OpensAllFilesOrNone) {
    const int free_before = next_descriptor();
    const std::string missing = paths[0] + "/none.pcm";
    EXPECT_FALSE(store.open({paths[0], missing, paths[1]}, "rb"));
    EXPECT_FALSE(store.is_opened());
    EXPECT_EQ(next_descriptor(), free_before);
    const std::vector<fw_test::LogLine> lines = log.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].tag, "bg");
    EXPECT_EQ(lines[0].level, 2);
    EXPECT_EQ(lines[0].file, kSource);
    EXPECT_EQ(lines[0].line, 18);
    EXPECT_EQ(lines[0].message, fw_test::quoted("[wave files] can't open (mode=rb): " + missing));
}

TEST_F(WaveFilesTest, NoPathsOpenNothingAndLogNothing) {
    EXPECT_FALSE(store.open({}, "rb"));
    EXPECT_FALSE(store.open({}, "wb"));
    EXPECT_FALSE(store.open({}, nullptr));
    EXPECT_FALSE(store.is_opened());
    EXPECT_EQ(store.size(), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(WaveFilesTest, ModesThatAreNoneOpenNothing) {
    EXPECT_FALSE(store.open(paths, nullptr));
    EXPECT_FALSE(store.open(paths, ""));
    EXPECT_FALSE(store.open(paths, "?"));
    const std::string no_mode = "[wave files] can't open (mode=): " + paths[0];
    EXPECT_EQ(log.texts(2),
              (std::vector<std::string>{no_mode, no_mode,
                                        "[wave files] can't open (mode=?): " + paths[0]}));
}

TEST_F(WaveFilesTest, FoldersAreNoFiles) {
    for (const char* const mode : {"rb", "wb"}) {
        log.clear();
        EXPECT_FALSE(store.open({"/tmp"}, mode));
        EXPECT_EQ(log.texts(2),
                  std::vector<std::string>{std::string("[wave files] can't open (mode=") + mode +
                                           "): /tmp"});
    }
    EXPECT_EQ(store.size(), 0);
}

TEST_F(WaveFilesTest, OpensPathsInDoubleQuotes) {
    ASSERT_TRUE(store.open({'"' + paths[0] + '"', '"' + paths[1]}, "wb"));
    ASSERT_EQ(write(10), 10);
    store.close();
    EXPECT_EQ(content(paths[0]).size(), 10U);
    EXPECT_EQ(content(paths[1]).size(), 10U);
}

TEST_F(WaveFilesTest, OpeningAgainClosesWhatWasOpen) {
    ASSERT_TRUE(store.open(paths, "wb"));
    ASSERT_EQ(write(64), 64);
    const int free_before = next_descriptor();
    ASSERT_TRUE(store.open(paths, "rb"));
    EXPECT_EQ(next_descriptor(), free_before);
    EXPECT_EQ(store.size(), 64);
    EXPECT_FALSE(store.open({"/nowhere/at/all"}, "rb"));
    EXPECT_FALSE(store.is_opened());
    EXPECT_LT(next_descriptor(), free_before);
}

TEST_F(WaveFilesTest, TheDestructorCloses) {
    const int free_before = next_descriptor();
    {
        ff::WaveFiles own;
        ASSERT_TRUE(own.open(paths, "wb"));
        const std::uint8_t* planes[] = {left.data(), right.data()};
        ASSERT_EQ(own.write(planes, 77), 77);
    }
    EXPECT_EQ(next_descriptor(), free_before);
    EXPECT_EQ(content(paths[1]).size(), 77U);
}

TEST_F(WaveFilesTest, TheMeasuredLengthOutlivesTheReadOnlyOpen) {
    left_file.write(std::string(500, 'x'));
    right_file.write(std::string(300, 'x'));
    ASSERT_TRUE(store.open(paths, "rb"));
    EXPECT_EQ(store.size(), 500);
    store.close();
    EXPECT_EQ(store.size(), 500);
    ASSERT_TRUE(store.open(paths, "wb"));
    ASSERT_EQ(write(100), 100);
    EXPECT_EQ(store.size(), 500);
    ASSERT_TRUE(store.open(paths, "rb"));
    EXPECT_EQ(store.size(), 100);
}

struct ModeCase {
    const char* name;
    const char* mode;
    long long size;        // right after opening files of 500 bytes
    long long size_after;  // after reading or writing 10 bytes
    bool writes;
};

class WaveFilesModeTest : public WaveFilesTest, public testing::WithParamInterface<ModeCase> {};

TEST_P(WaveFilesModeTest, DecidesWhatTheSizeMeans) {
    const ModeCase& c = GetParam();
    left_file.write(std::string(500, 'x'));
    right_file.write(std::string(500, 'x'));
    ASSERT_TRUE(store.open(paths, c.mode));
    EXPECT_EQ(store.size(), c.size);
    EXPECT_EQ(c.writes ? write(10) : read(0, 10), 10);
    EXPECT_EQ(store.size(), c.size_after);
}

INSTANTIATE_TEST_SUITE_P(WaveFiles, WaveFilesModeTest,
                         testing::Values(ModeCase{"Read", "r", 500, 500, false},
                                         ModeCase{"ReadBinary", "rb", 500, 500, false},
                                         ModeCase{"Update", "r+", 0, 10, true},
                                         ModeCase{"UpdateBinary", "rb+", 0, 10, false},
                                         ModeCase{"Write", "w", 0, 10, true},
                                         ModeCase{"WriteAndRead", "w+b", 0, 10, true},
                                         ModeCase{"Append", "ab", 500, 510, true}),
                         [](const auto& row) { return row.param.name; });

TEST_F(WaveFilesTest, AReadOnlyStoreTakesNothing) {
    left_file.write("abc");
    right_file.write("abc");
    ASSERT_TRUE(store.open(paths, "rb"));
    EXPECT_EQ(write(10), 0);
    EXPECT_EQ(read(0, 10), 3);
    store.close();
    EXPECT_EQ(content(paths[0]), "abc");
}

TEST_F(WaveFilesTest, ReadingAndWritingTakeTurns) {
    ASSERT_TRUE(store.open(paths, "wb+"));
    ASSERT_EQ(write(100), 100);
    EXPECT_EQ(read(0, 10), 0);
    EXPECT_EQ(write(100), 100);
    store.seek(0, SEEK_SET);
    EXPECT_EQ(read(0, 50), 50);
    EXPECT_EQ(write(50), 50);
    EXPECT_EQ(read(0, 200), 100);
    EXPECT_EQ(text(left_out, 100), text(left, 100));
    store.close();
    EXPECT_EQ(content(paths[0]), text(left, 50) + text(left, 50) + text(left, 100));
    EXPECT_EQ(content(paths[1]), text(right, 50) + text(right, 50) + text(right, 100));
}

TEST_F(WaveFilesTest, TheCountIsThatOfTheLastFileAndAllAreServed) {
    left_file.write(std::string(10, 'l'));
    right_file.write(std::string(20, 'r'));
    ASSERT_TRUE(store.open(paths, "rb"));
    EXPECT_EQ(read(0, 30), 20);
    EXPECT_EQ(text(left_out, 10), std::string(10, 'l'));
    EXPECT_EQ(left_out[10], 0xEE);
    EXPECT_EQ(text(right_out, 20), std::string(20, 'r'));
    ASSERT_TRUE(store.open({paths[1], paths[0]}, "rb"));
    EXPECT_EQ(store.size(), 20);
    EXPECT_EQ(read(0, 30), 10);
}

TEST_F(WaveFilesTest, AFullDiskShowsInTheCount) {
    ASSERT_TRUE(store.open({paths[0], "/dev/full"}, "wb"));
    const std::vector<std::uint8_t> much(1 << 20);
    const std::uint8_t* planes[] = {much.data(), much.data()};
    EXPECT_LT(store.write(planes, 1 << 20), 1 << 20);
    store.close();
    EXPECT_EQ(content(paths[0]).size(), std::size_t{1} << 20);
}

TEST_F(WaveFilesTest, RefusesNegativeCountsAndOffsets) {
    ASSERT_TRUE(store.open(paths, "wb+"));
    ASSERT_EQ(write(100), 100);
    store.seek(0, SEEK_SET);
    EXPECT_EQ(write(-1), -1);
    EXPECT_EQ(write(INT_MIN), -1);
    EXPECT_EQ(read(0, -1), -1);
    EXPECT_EQ(read(-5, 10), -1);
    EXPECT_EQ(log.texts(2),
              (std::vector<std::string>{"[wave files] bad range: offset=0, bytes=-1",
                                        "[wave files] bad range: offset=0, bytes=-2147483648",
                                        "[wave files] bad range: offset=0, bytes=-1",
                                        "[wave files] bad range: offset=-5, bytes=10"}));
    EXPECT_EQ(read(0, 200), 100);
    EXPECT_EQ(text(left_out, 100), text(left, 100));
}

TEST_F(WaveFilesTest, RefusesMissingPlanes) {
    ASSERT_TRUE(store.open(paths, "wb+"));
    EXPECT_EQ(store.write(nullptr, 10), -1);
    EXPECT_EQ(store.read(nullptr, 0, 10), -1);
    const std::uint8_t* one_to_write[] = {left.data(), nullptr};
    EXPECT_EQ(store.write(one_to_write, 10), -1);
    std::uint8_t* one_to_read[] = {nullptr, right_out.data()};
    EXPECT_EQ(store.read(one_to_read, 0, 10), -1);
    EXPECT_EQ(log.texts(2), std::vector<std::string>(4, "[wave files] missing plane: 2 files"));
    EXPECT_EQ(log.lines()[0].file, kSource);
    EXPECT_EQ(store.size(), 0);
}

TEST_F(WaveFilesTest, NoBytesNeedNoPlanes) {
    ASSERT_TRUE(store.open(paths, "wb+"));
    EXPECT_EQ(store.write(nullptr, 0), 0);
    EXPECT_EQ(store.read(nullptr, 0, 0), 0);
    EXPECT_TRUE(log.lines().empty());
}

TEST_F(WaveFilesTest, HoldsMoreThan4GiBPerPlane) {
    constexpr long long far = 5000000000;  // the files are sparse: they take no room
    ASSERT_TRUE(store.open(paths, "wb"));
    store.seek(far, SEEK_SET);
    EXPECT_EQ(write(4096), 4096);
    EXPECT_EQ(store.size(), far + 4096);
    ASSERT_TRUE(store.open(paths, "rb"));
    EXPECT_EQ(store.size(), far + 4096);
    store.seek(far - 10, SEEK_SET);
    EXPECT_EQ(read(0, 8192), 4106);
    EXPECT_EQ(text(left_out, 10), std::string(10, '\0'));
    EXPECT_EQ(text({left_out.begin() + 10, left_out.end()}, 4096), text(left, 4096));
    EXPECT_EQ(text({right_out.begin() + 10, right_out.end()}, 4096), text(right, 4096));
    store.seek(-4096 - far, SEEK_CUR);
    EXPECT_EQ(read(0, 1), 1);
    EXPECT_EQ(right_out[0], 0);
    for (const std::string& path : paths) {
        struct stat st {};

        ASSERT_EQ(::stat(path.c_str(), &st), 0);
        EXPECT_EQ(st.st_size, far + 4096);
    }
}

TEST_F(WaveFilesTest, WhatCannotBeMeasuredHasNoSize) {
    left_file.remove();
    ASSERT_EQ(::mkfifo(paths[0].c_str(), 0600), 0);
    const int other_end = ::open(paths[0].c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(other_end, 0);
    ASSERT_EQ(::write(other_end, "abc", 3), 3);
    ASSERT_TRUE(store.open({paths[0]}, "rb"));
    EXPECT_EQ(store.size(), 0);
    std::uint8_t* planes[] = {left_out.data()};
    EXPECT_EQ(store.read(planes, 0, 3), 3);
    (void)::close(other_end);
}

TEST_F(WaveFilesTest, HoldsAsManyPlanesAsThereArePaths) {
    std::vector<std::string> many;
    std::vector<const std::uint8_t*> planes;
    for (std::size_t i = 0; i < 8; ++i) {
        many.push_back(paths[0] + "." + std::to_string(i));
        planes.push_back(left.data() + i);
    }
    ASSERT_TRUE(store.open(many, "wb"));
    EXPECT_EQ(store.write(planes.data(), 100), 100);
    store.close();
    for (std::size_t i = 0; i < many.size(); ++i) {
        EXPECT_EQ(content(many[i]),
                  text({left.begin() + static_cast<std::ptrdiff_t>(i), left.end()}, 100));
        (void)std::remove(many[i].c_str());
    }
}

}  // namespace
