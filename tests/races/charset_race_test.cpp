#include <framewell/utils/charset.h>

#include <gtest/gtest.h>

#include <langinfo.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int kConverters = 4;
constexpr int kRounds = 300;

// U+4E2D U+6587.
constexpr char kGbk[] = "\xD6\xD0\xCE\xC4";
constexpr char kUtf8[] = "\xE4\xB8\xAD\xE6\x96\x87";

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat"  // the flag for grouping is of POSIX, not of C++

/// What this thread prints a number as, with the grouping of its locale, and how it encodes text.
std::string printed() {
    char text[64];
    (void)::snprintf(text, sizeof text, "%'d %.1f ", 1234567, 0.5);
    return std::string(text) + ::nl_langinfo(CODESET) + std::to_string(MB_CUR_MAX);
}

#pragma GCC diagnostic pop

TEST(CharsetRaceTest, ThreadsConvertWhileOthersPrintNumbersAsEver) {
    const std::string before = printed();
    {
        // What would be seen if a conversion changed the locale of the process.
        const locale_t chinese =
            ::newlocale(LC_ALL_MASK, "zh_CN.gbk", static_cast<locale_t>(nullptr));
        ASSERT_NE(chinese, nullptr) << "run scripts/install-deps test";
        const locale_t own = ::uselocale(chinese);
        const std::string changed = printed();
        (void)::uselocale(own);
        ::freelocale(chinese);
        ASSERT_NE(changed, before);
    }

    std::atomic<int> converting{kConverters};
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < kConverters; ++t) {
        threads.emplace_back([&, t] {
            const std::string own(static_cast<std::size_t>(t), 'x');
            for (int i = 0; i < kRounds; ++i) {
                wrong += ut::GBKToUTF8(kGbk + own) == kUtf8 + own ? 0 : 1;
                wrong += ut::UTF8ToGBK(kUtf8 + own) == kGbk + own ? 0 : 1;
                wrong += printed() == before ? 0 : 1;
            }
            --converting;
        });
    }
    for (int t = 0; t < 2; ++t) {
        threads.emplace_back([&] {
            while (converting > 0) {
                wrong += printed() == before ? 0 : 1;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(printed(), before);
}

}  // namespace
