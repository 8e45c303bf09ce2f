#include "tests/support/sanitized.h"
#include "tests/support/temp_file.h"

#include <framewell/utils/digest.h>

#include <gtest/gtest.h>

#include <stdio.h>
#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using fw_test::TempFile;

/// The text of a result that is the caller's to free; nothing for null.
std::optional<std::string> taken(char* text) {
    const std::unique_ptr<char, decltype(&std::free)> owner(text, &std::free);
    return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

const std::uint8_t* bytes_of(const std::string& text) {
    return reinterpret_cast<const std::uint8_t*>(text.data());
}

std::string bin_digest(const std::string& bytes) {
    return taken(ut::MD5BinData(bytes_of(bytes), bytes.size())).value_or("none");
}

/// What a command prints.
std::string output_of(const std::string& command) {
    std::string text;
    FILE* const pipe = ::popen(command.c_str(), "r");
    if (pipe == nullptr) {
        throw std::runtime_error("cannot run " + command);
    }
    char part[4096];
    while (const std::size_t size = std::fread(part, 1, sizeof part, pipe)) {
        text.append(part, size);
    }
    if (::pclose(pipe) != 0) {
        throw std::runtime_error("failed: " + command);
    }
    return text;
}

/// Bytes without a pattern, the same in every run.
std::string noise(std::size_t size) {
    std::string bytes;
    std::uint32_t state = 12345;
    while (bytes.size() < size) {
        state = state * 1664525U + 1013904223U;
        bytes += static_cast<char>(state >> 24);
    }
    return bytes;
}

struct SuiteCase {
    const char* text;
    const char* digest;
};

class Md5SuiteTest : public testing::TestWithParam<SuiteCase> {};

TEST_P(Md5SuiteTest, GivesThePublishedDigestByEveryRoad) {
    const auto& [text, digest] = GetParam();
    EXPECT_EQ(taken(ut::MD5String(text)), digest);
    EXPECT_EQ(bin_digest(text), digest);
    const TempFile file("digest.txt", text);
    EXPECT_EQ(taken(ut::MD5File(file.path().c_str())), digest);
}

// The test suite of RFC 1321, appendix A.5.
INSTANTIATE_TEST_SUITE_P(
    Digest, Md5SuiteTest,
    testing::Values(
        SuiteCase{"", "d41d8cd98f00b204e9800998ecf8427e"},
        SuiteCase{"a", "0cc175b9c0f1b6a831c399e269772661"},
        SuiteCase{"abc", "900150983cd24fb0d6963f7d28e17f72"},
        SuiteCase{"message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
        SuiteCase{"abcdefghijklmnopqrstuvwxyz", "c3fcd3d76192e4007dfb496cca67e13b"},
        SuiteCase{"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
                  "d174ab98d277d9f5a5611c2c9f419d9f"},
        SuiteCase{"1234567890123456789012345678901234567890123456789012345678901234567890123456789"
                  "0",
                  "57edf4a22be3c955ac49da2e2107b67a"}));

TEST(DigestTest, EqualsMd5sumAtEveryLengthAroundBlocksAndChunks) {
    std::vector<std::size_t> lengths;
    for (std::size_t length = 0; length <= 200; ++length) {
        lengths.push_back(length);
    }
    for (const std::size_t border : {1024U, 10240U, 20480U, 65536U}) {
        for (std::size_t length = border - 2; length <= border + 2; ++length) {
            lengths.push_back(length);
        }
    }
    lengths.push_back(1000003);
    const std::string bytes = noise(1000003);
    std::vector<std::unique_ptr<TempFile>> files;
    std::string command = "md5sum --";
    for (const std::size_t length : lengths) {
        files.push_back(std::make_unique<TempFile>("len", bytes.substr(0, length)));
        command += " '" + files.back()->path() + "'";
    }
    const std::string expected = output_of(command);
    std::size_t at = 0;
    for (std::size_t i = 0; i < lengths.size(); ++i) {
        const std::string digest = expected.substr(at, 32);
        at = expected.find('\n', at) + 1;
        EXPECT_EQ(bin_digest(bytes.substr(0, lengths[i])), digest) << lengths[i];
        EXPECT_EQ(taken(ut::MD5File(files[i]->path().c_str())), digest) << lengths[i];
    }
    EXPECT_EQ(at, expected.size());
}

// The examples of the header.
TEST(DigestTest, CanBeUsedAsItsDocumentationShows) {
    const TempFile clip("clip.mp4", "message digest");
    const std::string path = clip.path();
    char* const id = ut::MD5File(path.c_str());
    EXPECT_STREQ(id, "f96b697d7cb7938d525a2f31aaf161d0");
    std::free(id);

    const std::uint8_t head[] = {'m', 'e', 's', 's', 'a', 'g', 'e'};
    const std::uint8_t body[] = {' ', 'd', 'i', 'g', 'e', 's', 't'};
    ut::md5 digest;
    digest.Update(head, sizeof head);
    digest.Update(body, sizeof body);
    digest.Finalize();
    char* const text = ut::PrintMD5(digest.Digest());
    EXPECT_STREQ(text, "f96b697d7cb7938d525a2f31aaf161d0");
    std::free(text);
}

TEST(DigestTest, PiecesOfAnySizeMakeTheSameDigest) {
    const std::string bytes = noise(1000);
    const std::string whole = bin_digest(bytes);
    for (unsigned piece = 1; piece <= 200; ++piece) {
        ut::md5 digest;
        for (unsigned at = 0; at < bytes.size(); at += piece) {
            digest.Update(bytes_of(bytes) + at,
                          std::min(piece, static_cast<unsigned>(bytes.size()) - at));
            digest.Update(bytes_of(bytes), 0);
        }
        digest.Finalize();
        EXPECT_EQ(taken(ut::PrintMD5(digest.Digest())), whole) << piece;
    }
}

TEST(DigestTest, AnObjectServesOneMessageAfterAnother) {
    ut::md5 digest;
    EXPECT_EQ(taken(ut::PrintMD5(digest.Digest())), std::string(32, '0'));
    const std::string text = "abc";
    digest.Update(bytes_of(text), 3);
    digest.Finalize();
    EXPECT_EQ(taken(ut::PrintMD5(digest.Digest())), "900150983cd24fb0d6963f7d28e17f72");
    digest.Update(bytes_of(text), 1);
    EXPECT_EQ(taken(ut::PrintMD5(digest.Digest())), "900150983cd24fb0d6963f7d28e17f72");
    digest.Init();
    digest.Update(bytes_of(text), 1);
    digest.Finalize();
    EXPECT_EQ(taken(ut::PrintMD5(digest.Digest())), "0cc175b9c0f1b6a831c399e269772661");
    digest.Finalize();
    EXPECT_EQ(taken(ut::PrintMD5(digest.Digest())), "d41d8cd98f00b204e9800998ecf8427e");
}

// The length is counted in two words: here the lower one overflows, at 2^32 bits, and one message
// takes more bytes than Update() can count. Digests by `head -c N /dev/zero | md5sum`.
TEST(DigestTest, CountsMessagesThatAreLongerThanOneWordOfBits) {
    const std::vector<std::uint8_t> zeros(std::size_t{1} << 24);
    ut::md5 digest;
    for (int i = 0; i < 32; ++i) {
        digest.Update(zeros.data(), static_cast<unsigned>(zeros.size()));
    }
    digest.Update(zeros.data(), 5);
    digest.Finalize();
    EXPECT_EQ(taken(ut::PrintMD5(digest.Digest())), "53f83c490b7435d7e205466bfd984882");
}

TEST(DigestTest, TakesMoreThan4GiBOfMemoryAtOnce) {
#ifndef __OPTIMIZE__
    GTEST_SKIP() << "4 GiB take minutes without optimisation";
#endif
    if (fw_test::kSanitized) {
        GTEST_SKIP() << "4 GiB take minutes under a sanitizer";
    }
    const std::size_t size = (std::size_t{4} << 30) + 5;
    // Pages that are never written share one page of zeros.
    void* const zeros =
        ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    ASSERT_NE(zeros, MAP_FAILED);
    EXPECT_EQ(taken(ut::MD5BinData(static_cast<const std::uint8_t*>(zeros), size)),
              "968a8809aa0886d87f385d88733a98d2");
    EXPECT_EQ(::munmap(zeros, size), 0);
}

TEST(DigestTest, PrintsEveryByteInTwoLowerCaseDigits) {
    constexpr char digits[] = "0123456789abcdef";
    for (unsigned first = 0; first < 256; first += 16) {
        std::uint8_t digest[16];
        std::string expected;
        std::string expected_masked;
        for (unsigned i = 0; i < 16; ++i) {
            const unsigned byte = first + i;
            digest[i] = static_cast<std::uint8_t>(byte);
            expected += {digits[byte / 16], digits[byte % 16]};
            expected_masked += {digits[byte / 16], digits[byte % 16 / 4 * 4]};
        }
        EXPECT_EQ(taken(ut::PrintMD5(digest)), expected);
        EXPECT_EQ(taken(ut::PrintMD5_Vokt(digest)), expected_masked);
    }
}

TEST(DigestTest, TheOtherIdentifierClearsTwoBitsOfEveryByte) {
    // Of d41d8cd98f00b204e9800998ecf8427e, byte by byte.
    EXPECT_EQ(taken(ut::MD5String_Vokt("")), "d41c8cd88c00b004e8800898ecf8407c");
    for (int i = 0; i < 500; ++i) {
        const std::string text = taken(ut::MD5String_Vokt(std::to_string(i).c_str())).value();
        ASSERT_EQ(text.size(), 32U);
        for (std::size_t low = 1; low < 32; low += 2) {
            EXPECT_NE(std::strchr("048c", text[low]), nullptr) << text;
        }
    }
}

TEST(DigestTest, ShortensToTheMiddleInPlace) {
    char text[] = "d41d8cd98f00b204e9800998ecf8427e";
    EXPECT_EQ(ut::MD5_32_to_16(text), text);
    EXPECT_STREQ(text, "8f00b204e9800998");
}

TEST(DigestTest, ShorteningWhatIsTooShortGivesAnEmptyText) {
    char just_enough[] = "0123456789abcdefghijklmn";
    EXPECT_STREQ(ut::MD5_32_to_16(just_enough), "89abcdefghijklmn");
    char too_short[] = "0123456789abcdefghijklm";
    EXPECT_STREQ(ut::MD5_32_to_16(too_short), "");
    char empty[] = "";
    EXPECT_STREQ(ut::MD5_32_to_16(empty), "");
    EXPECT_EQ(ut::MD5_32_to_16(nullptr), nullptr);
}

TEST(DigestTest, NullGivesNull) {
    EXPECT_EQ(ut::PrintMD5(nullptr), nullptr);
    EXPECT_EQ(ut::PrintMD5_Vokt(nullptr), nullptr);
    EXPECT_EQ(ut::MD5String(nullptr), nullptr);
    EXPECT_EQ(ut::MD5String_Vokt(nullptr), nullptr);
    EXPECT_EQ(ut::MD5File(nullptr), nullptr);
    EXPECT_EQ(ut::MD5BinData(nullptr, 1), nullptr);
    EXPECT_EQ(taken(ut::MD5BinData(nullptr, 0)), "d41d8cd98f00b204e9800998ecf8427e");
    ut::md5 digest;
    digest.Update(nullptr, 100);
    digest.Transform(nullptr);
    digest.Finalize();
    EXPECT_EQ(taken(ut::PrintMD5(digest.Digest())), "d41d8cd98f00b204e9800998ecf8427e");
    std::uint32_t words[1] = {7};
    std::uint8_t bytes[4] = {7};
    ut::md5::Encode(nullptr, words, 4);
    ut::md5::Encode(bytes, nullptr, 4);
    ut::md5::Decode(nullptr, bytes, 4);
    ut::md5::Decode(words, nullptr, 4);
    EXPECT_EQ(words[0], 7U);
    EXPECT_EQ(bytes[0], 7);
}

TEST(DigestTest, FilesThatCannotBeReadHaveNoDigest) {
    EXPECT_EQ(ut::MD5File("/nowhere/at/all"), nullptr);
    EXPECT_EQ(ut::MD5File(""), nullptr);
    EXPECT_EQ(ut::MD5File("/tmp"), nullptr);  // opens, but is a folder
}

TEST(DigestTest, FilesAreFoundInDoubleQuotes) {
    const TempFile file("quoted.bin", "abc");
    EXPECT_EQ(taken(ut::MD5File(('"' + file.path() + '"').c_str())),
              "900150983cd24fb0d6963f7d28e17f72");
}

TEST(DigestTest, WordsAreLittleEndian) {
    const std::uint32_t words[2] = {0x04030201, 0xF8F7F6F5};
    std::uint8_t bytes[9] = {0, 0, 0, 0, 0, 0, 0, 0, 99};
    ut::md5::Encode(bytes, words, 8);
    const std::uint8_t expected[9] = {1, 2, 3, 4, 0xF5, 0xF6, 0xF7, 0xF8, 99};
    EXPECT_EQ(std::memcmp(bytes, expected, sizeof bytes), 0);
    std::uint32_t back[3] = {0, 0, 99};
    ut::md5::Decode(back, bytes, 8);
    EXPECT_EQ(back[0], words[0]);
    EXPECT_EQ(back[1], words[1]);
    EXPECT_EQ(back[2], 99U);
    std::uint8_t cut[4] = {9, 9, 9, 9};
    ut::md5::Encode(cut, words, 3);
    EXPECT_EQ(cut[0], 9);
    ut::md5::Decode(back, bytes, 7);
    EXPECT_EQ(back[1], words[1]);
}

// The digest of a message whose first block is not counted, from a program written apart.
TEST(DigestTest, ABlockCanBeMixedInWithoutBeingCounted) {
    std::uint8_t block[64];
    for (std::size_t i = 0; i < sizeof block; ++i) {
        block[i] = static_cast<std::uint8_t>(i);
    }
    ut::md5 digest;
    digest.Transform(block);
    digest.Finalize();
    EXPECT_EQ(taken(ut::PrintMD5(digest.Digest())), "eb55f2485c1c25f306cc89b61d684de6");
}

TEST(DigestTest, ThreadsDigestIndependently) {
    std::array<std::string, 4> results;
    std::vector<std::thread> threads;
    const std::string bytes = noise(300000);
    for (std::string& result : results) {
        threads.emplace_back([&] { result = bin_digest(bytes); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::string& result : results) {
        EXPECT_EQ(result, bin_digest(bytes));
    }
}

}  // namespace
