#include "tests/support/temp_file.h"

#include <framewell/utils/files.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

using fw_test::TempFile;

struct PathCase {
    const char* path;
    const char* native;
};

class NativePathTest : public testing::TestWithParam<PathCase> {};

TEST_P(NativePathTest, TurnsEveryRunOfSlashesIntoOne) {
    EXPECT_EQ(fs::to_native_filepath(GetParam().path), GetParam().native);
}

INSTANTIATE_TEST_SUITE_P(Files, NativePathTest,
                         testing::Values(PathCase{"", ""}, PathCase{"a\\\\b//c/", "a/b/c/"},
                                         PathCase{"/", "/"}, PathCase{"\\", "/"},
                                         PathCase{"\\/\\//", "/"}, PathCase{"plain", "plain"},
                                         PathCase{"C:\\clips\\a.mp4", "C:/clips/a.mp4"},
                                         PathCase{"//server//share", "/server/share"},
                                         PathCase{"./../a", "./../a"},
                                         PathCase{"a/\\/b\\c", "a/b/c"}));

TEST(FilesTest, NativePathKeepsBytesAboveAsciiAndNul) {
    EXPECT_EQ(fs::to_native_filepath("\xE4\xB8\xAD//\xFF"), "\xE4\xB8\xAD/\xFF");
    EXPECT_EQ(fs::to_native_filepath(std::string("a\0//b", 5)), std::string("a\0/b", 4));
}

// The first bytes of a file that is opened for reading; nothing if it cannot be.
std::optional<std::string> opened(const std::string& path) {
    std::FILE* const file = fs::ut_fopen(path.c_str(), "rb");
    if (file == nullptr) {
        return std::nullopt;
    }
    char bytes[16];
    const std::size_t size = std::fread(bytes, 1, sizeof bytes, file);
    (void)std::fclose(file);
    return std::string(bytes, size);
}

TEST(FilesTest, OpensPathsInDoubleQuotes) {
    const TempFile file("quoted.txt", "inside");
    EXPECT_EQ(opened(file.path()), "inside");
    EXPECT_EQ(opened('"' + file.path() + '"'), "inside");
    EXPECT_EQ(opened("\"\"" + file.path() + "\"\"\""), "inside");
    EXPECT_EQ(opened('"' + file.path()), "inside");
    EXPECT_EQ(opened(" " + file.path()), std::nullopt);
}

TEST(FilesTest, OpeningChangesNothingInThePath) {
    const TempFile file("const.txt", "x");
    const std::string path = '"' + file.path() + '"';
    const std::string copy = path;
    EXPECT_TRUE(opened(path));
    EXPECT_EQ(path, copy);
}

TEST(FilesTest, OpensForWriting) {
    const TempFile file("written.txt");
    std::FILE* const out = fs::ut_fopen(('"' + file.path() + '"').c_str(), "wb");
    ASSERT_NE(out, nullptr);
    EXPECT_EQ(std::fputs("text", out) < 0, false);
    EXPECT_EQ(std::fclose(out), 0);
    EXPECT_EQ(opened(file.path()), "text");
}

TEST(FilesTest, OpeningWhatIsNoPathOrModeGivesNull) {
    const TempFile file("there.txt");
    for (const char* const path :
         {static_cast<const char*>(nullptr), "", "\"", "\"\"", "\"\"\"\"", "/nowhere/at/all"}) {
        EXPECT_EQ(fs::ut_fopen(path, "rb"), nullptr);
    }
    EXPECT_EQ(fs::ut_fopen(file.path().c_str(), nullptr), nullptr);
    EXPECT_EQ(fs::ut_fopen(file.path().c_str(), ""), nullptr);
    EXPECT_EQ(fs::ut_fopen(file.path().c_str(), "?"), nullptr);
}

TEST(FilesTest, StatTellsSizeAndKind) {
    const TempFile file("stat.txt", "12345");

    struct stat st {};

    ASSERT_TRUE(fs::ut_file_stat(file.path().c_str(), st));
    EXPECT_EQ(st.st_size, 5);
    EXPECT_TRUE(S_ISREG(st.st_mode));
    EXPECT_FALSE(fs::ut_file_stat("/nowhere/at/all", st));
    EXPECT_FALSE(fs::ut_file_stat("", st));
    EXPECT_FALSE(fs::ut_file_stat(nullptr, st));
}

TEST(FilesTest, RenamesAndReplaces) {
    const TempFile from("from.txt", "new");
    const TempFile to("to.txt", "old");
    EXPECT_EQ(fs::ut_rename(from.path().c_str(), to.path().c_str()), 0);
    EXPECT_EQ(opened(from.path()), std::nullopt);
    EXPECT_EQ(opened(to.path()), "new");
    EXPECT_EQ(fs::ut_rename(from.path().c_str(), to.path().c_str()), -1);
    EXPECT_EQ(opened(to.path()), "new");
    EXPECT_EQ(fs::ut_rename(nullptr, to.path().c_str()), -1);
    EXPECT_EQ(fs::ut_rename(to.path().c_str(), nullptr), -1);
    EXPECT_EQ(opened(to.path()), "new");
}

/// A path where nothing is yet; what is there at the end is removed.
class FoldersTest : public testing::Test {
protected:
    FoldersTest() { place.remove(); }

    ~FoldersTest() override {
        std::error_code ignored;
        std::filesystem::remove_all(place.path(), ignored);
    }

    const TempFile place{"folder"};
    const std::string path = place.path();
};

TEST_F(FoldersTest, MakesAFolderWithItsMode) {
    const mode_t before = ::umask(0);
    EXPECT_TRUE(fs::make_dir(path.c_str(), 0750));
    (void)::umask(before);

    struct stat st {};

    ASSERT_TRUE(fs::ut_file_stat(path.c_str(), st));
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(st.st_mode & 07777U, 0750U);
}

TEST_F(FoldersTest, AFolderThatIsThereIsMade) {
    EXPECT_FALSE(fs::is_dir_exist(path.c_str()));
    EXPECT_TRUE(fs::make_dir(path.c_str(), 0755));
    EXPECT_TRUE(fs::is_dir_exist(path.c_str()));
    EXPECT_TRUE(fs::make_dir(path.c_str(), 0755));
    EXPECT_TRUE(fs::make_dir((path + "/").c_str(), 0755));
}

TEST_F(FoldersTest, NoFolderIsMadeWhereAFileIsOrAParentIsMissing) {
    EXPECT_FALSE(fs::make_dir((path + "/a/b").c_str(), 0755));
    place.write("a file");
    EXPECT_FALSE(fs::make_dir(path.c_str(), 0755));
    EXPECT_FALSE(fs::is_dir_exist(path.c_str()));
    EXPECT_FALSE(fs::make_dir((path + "/a").c_str(), 0755));
}

TEST_F(FoldersTest, NullAndEmptyAreNoFolders) {
    EXPECT_FALSE(fs::make_dir(nullptr, 0755));
    EXPECT_FALSE(fs::make_dir("", 0755));
    EXPECT_FALSE(fs::is_dir_exist(nullptr));
    EXPECT_FALSE(fs::is_dir_exist(""));
}

TEST_F(FoldersTest, AskingKeepsNoFileOpen) {
    ASSERT_TRUE(fs::make_dir(path.c_str(), 0755));
    const int before = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_GE(before, 0);
    (void)::close(before);
    for (int i = 0; i < 10; ++i) {
        EXPECT_TRUE(fs::is_dir_exist(path.c_str()));
    }
    const int after = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    (void)::close(after);
    EXPECT_EQ(after, before);  // the lowest free number
}

TEST_F(FoldersTest, ThreadsThatMakeOneFolderAllSucceed) {
    for (int round = 0; round < 50; ++round) {
        std::atomic<int> made{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t) {
            threads.emplace_back([&] { made += fs::make_dir(path.c_str(), 0755) ? 1 : 0; });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
        ASSERT_EQ(made, 4);
        ASSERT_EQ(::rmdir(path.c_str()), 0);
    }
}

/// Gives the variable back its value at the end.
class TmpDirTest : public testing::Test {
protected:
    TmpDirTest() {
        if (const char* const value = ::getenv("TMPDIR")) {
            m_before = value;
        }
    }

    ~TmpDirTest() override {
        if (m_before) {
            (void)::setenv("TMPDIR", m_before->c_str(), 1);
        } else {
            (void)::unsetenv("TMPDIR");
        }
    }

private:
    std::optional<std::string> m_before;
};

TEST_F(TmpDirTest, IsTheVariableInNativeForm) {
    (void)::setenv("TMPDIR", "/var\\\\tmp//x/", 1);
    EXPECT_EQ(fs::tmp_dir(), "/var/tmp/x/");
}

TEST_F(TmpDirTest, IsTmpWithoutTheVariable) {
    (void)::setenv("TMPDIR", "", 1);
    EXPECT_EQ(fs::tmp_dir(), "/tmp");
    (void)::unsetenv("TMPDIR");
    EXPECT_EQ(fs::tmp_dir(), "/tmp");
}

}  // namespace
