#include "tests/support/processor.h"
#include "tests/support/sanitized.h"

#include <framewell/utils/charset.h>

#include <gtest/gtest.h>

#include <iconv.h>
#include <locale.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

constexpr char kBadLocale[] = "Bad Parameter\n";
constexpr char kBadText[] = "Can not Transfer!!!\n";

/// The iconv of the system, from one encoding to another.
class Iconv {
public:
    Iconv(const char* to, const char* from) : m_handle(iconv_open(to, from)) {
        if (m_handle == reinterpret_cast<iconv_t>(-1)) {
            throw std::runtime_error(std::string("iconv cannot do ") + from + " -> " + to);
        }
    }

    Iconv(const Iconv&) = delete;
    Iconv& operator=(const Iconv&) = delete;

    ~Iconv() { (void)iconv_close(m_handle); }

    /// The bytes of `from` in the other encoding; nothing if it cannot all be converted, or to
    /// nothing (iconv drops the characters for language tags, U+E0000 to U+E007F).
    std::optional<std::string> operator()(std::string from) const {
        std::string to(from.size() * 8 + 16, '\0');
        char* in = from.data();
        char* out = to.data();
        std::size_t in_left = from.size();
        std::size_t out_left = to.size();
        (void)iconv(m_handle, nullptr, nullptr, nullptr, nullptr);
        if (iconv(m_handle, &in, &in_left, &out, &out_left) != 0 || in_left != 0) {
            return std::nullopt;
        }
        to.resize(to.size() - out_left);
        return to.empty() ? std::nullopt : std::optional<std::string>(to);
    }

private:
    iconv_t m_handle;
};

std::string bytes_of(const std::wstring& wide) {
    return {reinterpret_cast<const char*>(wide.data()), wide.size() * sizeof(wchar_t)};
}

/// What `action` writes to standard output.
std::string output_of(const std::function<void()>& action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

std::string repeated(const std::string& text, std::size_t count) {
    std::string all;
    for (std::size_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

/// The two locales must be there.
class CharsetTest : public testing::Test {
protected:
    void SetUp() override {
        for (const char* const name : {"zh_CN.utf8", "zh_CN.gbk"}) {
            const locale_t locale = newlocale(LC_ALL_MASK, name, static_cast<locale_t>(nullptr));
            ASSERT_NE(locale, nullptr) << name << " is missing: run scripts/install-deps test";
            freelocale(locale);
        }
    }
};

// U+4E2D U+6587 and "mp4".
constexpr char kGbk[] = "\xD6\xD0\xCE\xC4mp4";
constexpr char kUtf8[] = "\xE4\xB8\xAD\xE6\x96\x87mp4";
constexpr wchar_t kWide[] = L"\u4E2D\u6587mp4";

TEST_F(CharsetTest, ConvertsBothWays) {
    for (const bool utf8 : {false, true}) {
        const char* const narrow = utf8 ? kUtf8 : kGbk;
        bool ok = false;
        EXPECT_EQ(ut::multiByte2WideChar(narrow, utf8, ok), kWide);
        EXPECT_TRUE(ok);
        ok = false;
        EXPECT_EQ(ut::wideChar2MultiByte(kWide, utf8, ok), narrow);
        EXPECT_TRUE(ok);
        EXPECT_EQ(ut::ASCII2Unicode(narrow, utf8), kWide);
        EXPECT_EQ(ut::Unicode2ACSII(kWide, utf8), narrow);
    }
    EXPECT_EQ(ut::GBKToUTF8(kGbk), kUtf8);
    EXPECT_EQ(ut::UTF8ToGBK(kUtf8), kGbk);
}

TEST_F(CharsetTest, ConvertsLongTexts) {
    const std::string gbk = repeated(kGbk, 100000);
    const std::string utf8 = repeated(kUtf8, 100000);
    EXPECT_EQ(ut::GBKToUTF8(gbk), utf8);
    EXPECT_EQ(ut::UTF8ToGBK(utf8), gbk);
}

TEST_F(CharsetTest, EveryCodeOfOneOrTwoBytesIsReadAsIconvReadsIt) {
    const Iconv to_wide("WCHAR_T", "GBK");
    const Iconv to_utf8("UTF-8", "GBK");
    std::size_t failures = 0;
    std::size_t valid_pairs = 0;
    const std::string output = output_of([&] {
        for (unsigned first = 1; first < 256; ++first) {
            // Pairs of two one-byte codes say nothing that the codes alone do not.
            for (unsigned second = 0; second < (first < 0x80 ? 1U : 256U); ++second) {
                std::string code(1, static_cast<char>(first));
                if (second != 0) {
                    code += static_cast<char>(second);
                }
                const std::optional<std::string> expected = to_wide(code);
                bool ok = !expected;
                EXPECT_EQ(bytes_of(ut::multiByte2WideChar(code, false, ok)), expected.value_or(""))
                    << first << ' ' << second;
                EXPECT_EQ(ok, expected.has_value()) << first << ' ' << second;
                EXPECT_EQ(ut::GBKToUTF8(code), to_utf8(code).value_or(""));
                failures += expected ? 0U : 2U;
                valid_pairs += expected && code.size() == 2 ? 1U : 0U;
            }
        }
    });
    // Not by EXPECT_EQ, which would work for minutes on showing how two long texts differ.
    EXPECT_TRUE(output == repeated(kBadText, failures)) << output;
    EXPECT_GT(valid_pairs, 21000U);  // the characters of GBK
}

TEST_F(CharsetTest, EveryCharacterIsWrittenAsIconvWritesIt) {
    const Iconv to_gbk("GBK", "WCHAR_T");
    const Iconv to_utf8("UTF-8", "WCHAR_T");
    std::size_t failures = 0;
    const std::string output = output_of([&] {
        for (unsigned long code = 1; code < 0x110100; code += code < 0x10000 ? 1 : 127) {
            const std::wstring wide(1, static_cast<wchar_t>(code));
            for (const bool utf8 : {false, true}) {
                const std::optional<std::string> expected =
                    (utf8 ? to_utf8 : to_gbk)(bytes_of(wide));
                bool ok = !expected;
                EXPECT_EQ(ut::wideChar2MultiByte(wide, utf8, ok), expected.value_or(""))
                    << std::hex << code;
                EXPECT_EQ(ok, expected.has_value()) << std::hex << code;
                failures += expected ? 0U : 1U;
            }
        }
    });
    // Not by EXPECT_EQ, which would work for minutes on showing how two long texts differ.
    EXPECT_TRUE(output == repeated(kBadText, failures)) << output;
    EXPECT_GT(failures, 0U);
}

struct BadCase {
    const char* name;
    const char* text;
    bool utf8;
};

class BadCharsetTest : public CharsetTest, public testing::WithParamInterface<BadCase> {};

TEST_P(BadCharsetTest, IsRefusedWithOneLineOnStandardOutput) {
    const std::string text = GetParam().text;
    const bool utf8 = GetParam().utf8;
    bool ok = true;
    std::wstring wide = L"x";
    EXPECT_EQ(output_of([&] { wide = ut::multiByte2WideChar(text, utf8, ok); }), kBadText);
    EXPECT_FALSE(ok);
    EXPECT_EQ(wide, L"");
    EXPECT_EQ(output_of([&] { EXPECT_EQ(ut::ASCII2Unicode(text.c_str(), utf8), L""); }), kBadText);
    EXPECT_EQ(output_of([&] { EXPECT_EQ(utf8 ? ut::UTF8ToGBK(text) : ut::GBKToUTF8(text), ""); }),
              kBadText);
}

INSTANTIATE_TEST_SUITE_P(Charset, BadCharsetTest,
                         testing::Values(BadCase{"GbkLeadAlone", "\xD6", false},
                                         BadCase{"GbkLeadAtTheEnd", "abc\xD6", false},
                                         BadCase{"GbkBadTrail", "\xD6\x20", false},
                                         BadCase{"GbkFF", "\xFF\xFF", false},
                                         BadCase{"Utf8StrayTrail", "\x80", true},
                                         BadCase{"Utf8CutShort", "ab\xE4\xB8", true},
                                         BadCase{"Utf8Overlong", "\xC0\xAF", true},
                                         BadCase{"Utf8Surrogate", "\xED\xA0\x80", true},
                                         BadCase{"Utf8FF", "\xFF", true},
                                         BadCase{"GbkAsUtf8", kGbk, true}),
                         [](const auto& row) { return row.param.name; });

TEST_F(CharsetTest, CharactersThatGbkLacksAreRefused) {
    EXPECT_EQ(output_of([] { EXPECT_EQ(ut::UTF8ToGBK("\xF0\x9F\x98\x80"), ""); }), kBadText);
    EXPECT_EQ(output_of([] { EXPECT_EQ(ut::Unicode2ACSII(L"a\U0001F600", false), ""); }), kBadText);
}

TEST_F(CharsetTest, EmptyTextsConvertToEmptyOnesAndLeaveOkAlone) {
    const std::string output = output_of([] {
        for (const bool utf8 : {false, true}) {
            for (const bool before : {false, true}) {
                bool ok = before;
                EXPECT_EQ(ut::multiByte2WideChar("", utf8, ok), L"");
                EXPECT_EQ(ok, before);
                EXPECT_EQ(ut::wideChar2MultiByte(L"", utf8, ok), "");
                EXPECT_EQ(ok, before);
            }
            EXPECT_EQ(ut::ASCII2Unicode("", utf8), L"");
            EXPECT_EQ(ut::Unicode2ACSII(L"", utf8), "");
            EXPECT_EQ(ut::ASCII2Unicode(nullptr, utf8), L"");
            EXPECT_EQ(ut::Unicode2ACSII(nullptr, utf8), "");
        }
        EXPECT_EQ(ut::GBKToUTF8(""), "");
        EXPECT_EQ(ut::UTF8ToGBK(""), "");
    });
    EXPECT_EQ(output, "");
}

TEST_F(CharsetTest, ANulEndsTheText) {
    bool ok = false;
    EXPECT_EQ(ut::multiByte2WideChar(std::string("ab\0cd", 5), true, ok), L"ab");
    EXPECT_TRUE(ok);
    EXPECT_EQ(ut::wideChar2MultiByte(std::wstring(L"ab\0cd", 5), false, ok), "ab");
    EXPECT_TRUE(ok);
    const std::string output = output_of([&ok] {
        EXPECT_EQ(ut::multiByte2WideChar(std::string("\0cd", 3), true, ok), L"");
        EXPECT_FALSE(ok);
    });
    EXPECT_EQ(output, kBadText);
}

TEST_F(CharsetTest, LeavesTheLocalesOfProcessAndThread) {
    const std::string process = ::setlocale(LC_ALL, nullptr);
    const locale_t thread = ::uselocale(static_cast<locale_t>(nullptr));
    bool ok = false;
    (void)ut::multiByte2WideChar(kGbk, false, ok);
    (void)output_of([&ok] { (void)ut::multiByte2WideChar("\xFF", true, ok); });
    EXPECT_EQ(::setlocale(LC_ALL, nullptr), process);
    EXPECT_EQ(::uselocale(static_cast<locale_t>(nullptr)), thread);

    const locale_t own = ::newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    (void)::uselocale(own);
    EXPECT_EQ(ut::GBKToUTF8(kGbk), kUtf8);
    EXPECT_EQ(::uselocale(thread), own);
    ::freelocale(own);
}

/// How a process of its own ended, and what it wrote to standard output.
struct ChildEnd {
    bool succeeded = false;
    std::string output;
};

/// Runs `action` in a process of its own, where it may change what the tests after it need.
ChildEnd run_in_child(const std::function<bool()>& action) {
    ChildEnd end;
    int ends[2];
    if (::pipe(ends) != 0) {
        return end;
    }
    const pid_t child = ::fork();
    if (child == 0) {
        (void)::dup2(ends[1], STDOUT_FILENO);
        const bool succeeded = action();
        (void)std::fflush(stdout);
        ::_exit(succeeded ? 0 : 1);
    }
    (void)::close(ends[1]);
    char part[256];
    for (ssize_t size = 1; size > 0;) {
        size = ::read(ends[0], part, sizeof part);
        end.output.append(part, static_cast<std::size_t>(size > 0 ? size : 0));
    }
    (void)::close(ends[0]);
    int status = -1;
    end.succeeded = child > 0 && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
                    WEXITSTATUS(status) == 0;
    return end;
}

TEST(CharsetWithoutLocalesTest, EveryConversionFailsWithOneLine) {
    const ChildEnd end = run_in_child([] {
        // Where the system then looks for locales, and finds none.
        (void)::setenv("LOCPATH", "/nowhere/at/all", 1);
        bool wide_ok = true;
        bool narrow_ok = true;
        const bool nothing = ut::multiByte2WideChar("a", true, wide_ok).empty() &&
                             ut::wideChar2MultiByte(L"a", false, narrow_ok).empty() &&
                             ut::GBKToUTF8("a").empty() && ut::UTF8ToGBK("a").empty() &&
                             ut::GBKToUTF8("").empty();
        return nothing && !wide_ok && !narrow_ok;
    });
    EXPECT_TRUE(end.succeeded);
    EXPECT_EQ(end.output, repeated(kBadLocale, 4));
}

/// Lets the process have `bytes` more of address space than now.
bool limit_memory(std::size_t bytes) {
    std::size_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    const rlim_t limit = pages * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE)) + bytes;
    const rlimit both{limit, limit};
    return pages != 0 && ::setrlimit(RLIMIT_AS, &both) == 0;
}

TEST_F(CharsetTest, MemoryThatRunsOutIsToldAndNotThrown) {
    if (fw_test::kSanitized) {
        GTEST_SKIP() << "sanitizers need more address space than there is";
    }
    if (fw_test::kEmulated) {
        GTEST_SKIP() << "the emulator needs address space of its own";
    }
    const std::string text(std::size_t{64} << 20, 'a');  // 256 MiB of wide characters
    const ChildEnd end = run_in_child([&text] {
        bool ok = true;
        return limit_memory(std::size_t{128} << 20) &&
               ut::multiByte2WideChar(text, true, ok).empty() && !ok;
    });
    EXPECT_TRUE(end.succeeded);
    EXPECT_EQ(end.output, "calloc failed..\n");
}

}  // namespace
