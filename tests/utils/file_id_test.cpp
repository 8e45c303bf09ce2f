#include "tests/support/temp_file.h"

#include <framewell/utils/file_id.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <locale.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

namespace {

using fw_test::TempFile;

/// The digest of `text` by the md5sum program.
std::string md5sum(const std::string& text) {
    const TempFile file("text", text);
    FILE* const pipe = ::popen(("md5sum < '" + file.path() + "'").c_str(), "r");
    char digest[33] = "";
    if (pipe == nullptr || std::fread(digest, 1, 32, pipe) != 32 || ::pclose(pipe) != 0) {
        throw std::runtime_error("cannot run md5sum");
    }
    return digest;
}

/// `number` right-aligned in 64 characters.
std::string wide(const std::string& number) {
    return std::string(64 - number.size(), ' ') + number;
}

/// Sets size and time of last change.
void shape(const TempFile& file, long long size, long long mtime) {
    ASSERT_EQ(::truncate(file.path().c_str(), size), 0);
    const timespec times[2] = {{0, UTIME_OMIT}, {mtime, 999999999}};
    ASSERT_EQ(::utimensat(AT_FDCWD, file.path().c_str(), times, 0), 0);
}

struct StateCase {
    const char* name;
    long long size;
    long long mtime;
    const char* printed_size;
    const char* printed_mtime;
};

class FileIdTest : public testing::TestWithParam<StateCase> {};

TEST_P(FileIdTest, IsTheDigestOfPathSizeAndSecond) {
    const StateCase& c = GetParam();
    const TempFile file("state.bin");
    shape(file, c.size, c.mtime);
    if (testing::Test::HasFatalFailure()) {
        return;
    }
    EXPECT_EQ(fs::file_unique_id(file.path().c_str()),
              md5sum(file.path() + "_" + wide(c.printed_size) + "_" + wide(c.printed_mtime)));
}

// Numbers of more than 31 bits lose the upper ones.
INSTANTIATE_TEST_SUITE_P(FileId, FileIdTest,
                         testing::Values(StateCase{"Empty", 0, 0, "0", "0"},
                                         StateCase{"Usual", 123456, 1600000000, "123456",
                                                   "1600000000"},
                                         StateCase{"TwoGiB", 2147483648, 1, "-2147483648", "1"},
                                         StateCase{"FiveBillion", 5000000000, 1, "705032704", "1"},
                                         StateCase{"BeforeTheEpoch", 7, -86400, "7", "-86400"},
                                         StateCase{"After2038", 7, 4294967297, "7", "1"}),
                         [](const auto& row) { return row.param.name; });

TEST(FileIdTest, OfAMissingFileIsTheDigestOfItsPathAndZeros) {
    EXPECT_EQ(fs::file_unique_id("/nowhere/at/all"), md5sum("/nowhere/at/all_0_0"));
    EXPECT_EQ(fs::file_unique_id(""), md5sum("_0_0"));
    EXPECT_EQ(fs::file_unique_id("C:\\clips\\\\a.mp4"), md5sum("C:/clips/a.mp4_0_0"));
}

TEST(FileIdTest, DoesNotDependOnTheKindAndNumberOfSlashes) {
    const TempFile file("slashes.bin", "123");
    std::string doubled;
    for (const char c : file.path()) {
        doubled += c == '/' ? std::string("/\\/") : std::string(1, c);
    }
    EXPECT_EQ(fs::file_unique_id(doubled.c_str()), fs::file_unique_id(file.path().c_str()));
}

TEST(FileIdTest, ChangesWithSizeAndTimeAndNothingElse) {
    const TempFile file("changes.bin");
    shape(file, 100, 1000);
    const std::string before = fs::file_unique_id(file.path().c_str());
    EXPECT_EQ(before.size(), 32U);
    EXPECT_EQ(fs::file_unique_id(file.path().c_str()), before);
    shape(file, 101, 1000);
    EXPECT_NE(fs::file_unique_id(file.path().c_str()), before);
    shape(file, 100, 1001);
    EXPECT_NE(fs::file_unique_id(file.path().c_str()), before);
    file.write(std::string(100, 'x'));
    shape(file, 100, 1000);
    EXPECT_EQ(fs::file_unique_id(file.path().c_str()), before);
}

TEST(FileIdTest, DigestsAtMost510Characters) {
    const std::string missing = "/nowhere/" + std::string(600, 'x');
    EXPECT_EQ(fs::file_unique_id(missing.c_str()), md5sum(missing.substr(0, 510)));
    const std::string just_fits = "/nowhere/" + std::string(497, 'x');
    EXPECT_EQ(fs::file_unique_id(just_fits.c_str()), md5sum(just_fits + "_0_0"));
    const std::string one_more = just_fits + "y";
    EXPECT_EQ(fs::file_unique_id(one_more.c_str()), md5sum(one_more + "_0_"));
}

TEST(FileIdTest, LongPathsLoseSizeAndTime) {
    const TempFile folder("deep");
    folder.remove();
    const std::string deep =
        folder.path() + "/" + std::string(250, 'a') + "/" + std::string(250, 'b');
    ASSERT_TRUE(std::filesystem::create_directories(deep));
    const std::string path = deep + "/clip";
    std::ofstream(path) << "x";
    EXPECT_EQ(fs::file_unique_id(path.c_str()), md5sum(path.substr(0, 510)));
    std::filesystem::remove_all(folder.path());
}

TEST(FileIdTest, OfNoPathIsEmpty) {
    EXPECT_EQ(fs::file_unique_id(nullptr), "");
}

TEST(FileIdTest, OfAFolderIsAKeyToo) {
    EXPECT_EQ(fs::file_unique_id("/tmp").size(), 32U);
}

}  // namespace
