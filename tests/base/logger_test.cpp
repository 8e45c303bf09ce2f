#include "base/log.h"
#include "tests/support/log_capture.h"
#include "tests/support/processor.h"

#include <framewell/base/logger.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr char kLogSource[] = "src/some_module";

using fw_test::LogCapture;
using fw_test::quoted;

// A stream in memory-like storage whose text can be read back.
class TextFile {
public:
    TextFile() : m_file(std::tmpfile()) {}

    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;

    ~TextFile() {
        if (m_file != nullptr) {
            (void)std::fclose(m_file);
        }
    }

    std::FILE* get() const { return m_file; }

    std::string text() const {
        std::string text(static_cast<std::size_t>(std::ftell(m_file)), '\0');
        std::rewind(m_file);
        const std::size_t length = std::fread(text.data(), 1, text.size(), m_file);
        text.resize(length);
        return text;
    }

private:
    std::FILE* m_file;
};

// The text with every digit replaced by '0'.
std::string without_digits(std::string text) {
    for (char& c : text) {
        c = c >= '0' && c <= '9' ? '0' : c;
    }
    return text;
}

constexpr char kTimeShape[] = "0000-00:00:00";
constexpr std::size_t kTimeLength = sizeof kTimeShape - 1;

// A logger that writes to a file instead of standard error.
struct FileLogger {
    FileLogger() { logger.setStream(file.get()); }

    // What follows the date and time, which are checked to be there.
    std::string rest_of_line() const {
        const std::string line = file.text();
        if (without_digits(line.substr(0, kTimeLength)) != kTimeShape) {
            return "no time: " + line;
        }
        return line.substr(kTimeLength);
    }

    TextFile file;
    mox::Logger logger;
};

// Keeps the process's logger over a test that installs its own.
class LoggerTest : public testing::Test {
protected:
    ~LoggerTest() override { mox::Logger::instance(m_before); }

private:
    mox::Logger* const m_before = mox::Logger::instance();
};

// Writes with nothing but null texts, through the form with a list.
void write_nulls(mox::Logger* logger, ...) {
    std::va_list args;
    va_start(args, logger);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-extra-args"  // that there is no format is the point
    logger->write2(nullptr, 2, nullptr, 1, nullptr, args);
#pragma GCC diagnostic pop
    va_end(args);
}

TEST_F(LoggerTest, PrintsPrefixAndMessage) {
    FileLogger out;
    out.logger.write("bg", 2, "src/media/reader", 122, "%s, %d\n", "text", 7);
    EXPECT_EQ(out.rest_of_line(), "[E][bg] reader 122 : text, 7\n");
}

TEST_F(LoggerTest, AddsNoNewline) {
    FileLogger out;
    out.logger.write("bg", 2, "f", 1, "a");
    out.logger.write("bg", 2, "f", 1, "b");
    const std::string text = out.file.text();
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_NE(text.find(": a"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 3), ": b");
}

TEST_F(LoggerTest, PrintsWideLineNumbersInFull) {
    FileLogger out;
    out.logger.write("bg", 2, "f", 123456, "m");
    EXPECT_EQ(out.rest_of_line(), "[E][bg] f 123456: m");
}

struct LevelRow {
    int level;
    char letter;
};

class LoggerLevelTest : public testing::TestWithParam<LevelRow> {};

TEST_P(LoggerLevelTest, ShowsItsLetter) {
    FileLogger out;
    out.logger.setLevel(mox::MoxLogVerbose);
    out.logger.write("t", GetParam().level, "f", 1, "m");
    EXPECT_EQ(out.rest_of_line(), std::string("[") + GetParam().letter + "][t] f 1   : m");
}

INSTANTIATE_TEST_SUITE_P(AllLevels, LoggerLevelTest,
                         testing::Values(LevelRow{-3, '-'}, LevelRow{-2147483647 - 1, '-'},
                                         LevelRow{0, '-'}, LevelRow{1, 'F'}, LevelRow{2, 'E'},
                                         LevelRow{3, 'W'}, LevelRow{4, 'I'}, LevelRow{5, 'D'},
                                         LevelRow{6, '='}, LevelRow{7, '='}, LevelRow{9, '='},
                                         LevelRow{2147483647, '='}),
                         [](const testing::TestParamInfo<LevelRow>& row) {
                             const int level = row.param.level;
                             return (level < 0 ? "Minus" : "Level") +
                                    std::to_string(std::abs(static_cast<long long>(level)));
                         });

TEST_F(LoggerTest, DropsWhatIsAboveTheLevelOfTheDefaults) {
    FileLogger out;
    EXPECT_EQ(out.logger.level(), 2);
    for (const int level : {3, 4, 5, 6, 9}) {
        out.logger.write("bg", level, "f", 1, "dropped");
        EXPECT_FALSE(out.logger.wants(level)) << level;
    }
    EXPECT_EQ(out.file.text(), "");
    for (const int level : {-3, 0, 1, 2}) {
        EXPECT_TRUE(out.logger.wants(level)) << level;
    }
}

TEST_F(LoggerTest, FiltersAlsoInTheListForm) {
    FileLogger out;
    out.logger.setLevel(1);
    write_nulls(&out.logger);
    EXPECT_EQ(out.file.text(), "");
}

TEST_F(LoggerTest, DropsEverythingBelowLevelZero) {
    FileLogger out;
    out.logger.setLevel(-1);
    out.logger.write("bg", -3, "f", 1, "m");
    EXPECT_EQ(out.file.text(), "");
}

TEST_F(LoggerTest, PassesEverythingFromLevelSixOn) {
    FileLogger out;
    out.logger.setLevel(6);
    EXPECT_TRUE(out.logger.wants(9));
}

TEST_F(LoggerTest, WritesToStandardErrorByDefault) {
    const mox::Logger logger;
    EXPECT_EQ(logger.stream(), stderr);
}

TEST_F(LoggerTest, TakesNullStreamAsStandardError) {
    FileLogger out;
    out.logger.setStream(nullptr);
    EXPECT_EQ(out.logger.stream(), stderr);
}

struct PathRow {
    const char* path;
    const char* shown;
};

class LoggerPathTest : public testing::TestWithParam<PathRow> {};

TEST_P(LoggerPathTest, ShowsTheLastComponent) {
    FileLogger out;
    out.logger.write("t", 2, GetParam().path, 1, "m");
    EXPECT_EQ(out.rest_of_line(), std::string("[E][t] ") + GetParam().shown + " 1   : m");
}

INSTANTIATE_TEST_SUITE_P(Paths, LoggerPathTest,
                         testing::Values(PathRow{"reader", "reader"}, PathRow{"a/b", "b"},
                                         PathRow{"C:\\x\\y", "y"}, PathRow{"a\\b/c", "c"},
                                         PathRow{"a/b\\c", "c"}, PathRow{"a/", ""}, PathRow{"", ""},
                                         PathRow{nullptr, ""}));

TEST_F(LoggerTest, TakesNullTextsAsEmpty) {
    FileLogger out;
    write_nulls(&out.logger);
    EXPECT_EQ(out.rest_of_line(), "[E][]  1   : ");
}

TEST_F(LoggerTest, CutsALongMessageAt510Characters) {
    FileLogger out;
    const std::string message(2000, 'x');
    out.logger.write("bg", 2, "f", 1, "%s", message.c_str());
    const std::string line = out.file.text();
    EXPECT_EQ(line.size(), 510U);
    EXPECT_EQ(line.back(), 'x');
}

TEST_F(LoggerTest, CutsALongPrefixAt127Characters) {
    FileLogger out;
    const std::string tag(300, 't');
    const std::string file(300, 'f');
    out.logger.write(tag.c_str(), 2, file.c_str(), 1, "message");
    const std::string line = out.file.text();
    EXPECT_EQ(line.size(), 127U + 7U);
    EXPECT_EQ(line.substr(125), "ttmessage");
}

TEST_F(LoggerTest, LeavesRoomForTheMessageAfterALongPrefix) {
    FileLogger out;
    const std::string tag(300, 't');
    const std::string message(2000, 'x');
    out.logger.write(tag.c_str(), 2, "f", 1, "%s", message.c_str());
    EXPECT_EQ(out.file.text().size(), 510U);
}

TEST_F(LoggerTest, MakesAPrefixOnlyAsLongAsTheBuffer) {
    char buf[8] = "1234567";
    EXPECT_EQ(mox::Logger::make_prefix(buf, 8, "t", mox::MoxLogError, "f", 1), 7);
    EXPECT_EQ(std::strlen(buf), 7U);
    EXPECT_EQ(mox::Logger::make_prefix(buf, 1, "t", mox::MoxLogError, "f", 1), 0);
    EXPECT_STREQ(buf, "");
}

TEST_F(LoggerTest, MakesNoPrefixWithoutABuffer) {
    char buf[] = "old";
    EXPECT_EQ(mox::Logger::make_prefix(nullptr, 100, "t", mox::MoxLogError, "f", 1), 0);
    EXPECT_EQ(mox::Logger::make_prefix(buf, 0, "t", mox::MoxLogError, "f", 1), 0);
    EXPECT_EQ(mox::Logger::make_prefix(buf, -5, "t", mox::MoxLogError, "f", 1), 0);
    EXPECT_STREQ(buf, "old");
}

TEST_F(LoggerTest, FormatsTheTime) {
    EXPECT_EQ(without_digits(mox::Logger::now("%m%d-%H:%M:%S")), kTimeShape);
    EXPECT_STREQ(mox::Logger::now("fixed"), "fixed");
    EXPECT_STREQ(mox::Logger::now(""), "");
}

TEST_F(LoggerTest, FormatsAtMost63CharactersOfTime) {
    const std::string fits(63, 'x');
    EXPECT_EQ(mox::Logger::now(fits.c_str()), fits);
    EXPECT_STREQ(mox::Logger::now((fits + "x").c_str()), "");
    const char* const none = nullptr;
    EXPECT_STREQ(mox::Logger::now(none), "");
}

TEST_F(LoggerTest, HandsEveryLevelToTheCallbackWithTheFullPath) {
    const LogCapture log;
    mox::Logger::instance()->write("hw", 6, "src/hw/some", 9, "%d\n", 5);
    ASSERT_EQ(log.lines().size(), 1U);
    const fw_test::LogLine line = log.lines()[0];
    EXPECT_EQ(line.tag, "hw");
    EXPECT_EQ(line.level, 6);
    EXPECT_EQ(line.file, "src/hw/some");
    EXPECT_EQ(line.line, 9);
    EXPECT_EQ(line.message, "5\n");
}

TEST_F(LoggerTest, HandsClampedLevelsToTheCallback) {
    const LogCapture log;
    mox::Logger::instance()->write("t", -3, "f", 1, "low");
    mox::Logger::instance()->write("t", 9, "f", 1, "high");
    ASSERT_EQ(log.lines().size(), 2U);
    EXPECT_EQ(log.lines()[0].level, 0);
    EXPECT_EQ(log.lines()[1].level, 6);
}

TEST_F(LoggerTest, HandsEmptyTextsToTheCallbackInPlaceOfNull) {
    const LogCapture log;
    write_nulls(mox::Logger::instance());
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].tag, "");
    EXPECT_EQ(log.lines()[0].file, "");
    EXPECT_EQ(log.lines()[0].message, "");
}

TEST_F(LoggerTest, CutsTheCallbacksMessageAt510Characters) {
    const LogCapture log;
    const std::string message(2000, 'x');
    mox::Logger::instance()->write("t", 2, "f", 1, "%s", message.c_str());
    EXPECT_EQ(log.lines()[0].message, std::string(510, 'x'));
}

TEST_F(LoggerTest, PrintsNothingWhileACallbackIsSet) {
    FileLogger out;
    int calls = 0;
    out.logger.setCallback([&](const char*, int, const char*, int, const char*) { ++calls; });
    out.logger.write("t", 2, "f", 1, "m");
    EXPECT_EQ(calls, 1);
    EXPECT_EQ(out.file.text(), "");
}

TEST_F(LoggerTest, ReturnsToTheStreamWithAnEmptyCallback) {
    FileLogger out;
    int calls = 0;
    out.logger.setCallback([&](const char*, int, const char*, int, const char*) { ++calls; });
    out.logger.setCallback(nullptr);
    out.logger.write("t", 2, "f", 1, "m");
    out.logger.write("t", 3, "f", 1, "dropped");
    EXPECT_EQ(calls, 0);
    EXPECT_EQ(out.rest_of_line(), "[E][t] f 1   : m");
}

TEST_F(LoggerTest, SwallowsWhatTheCallbackThrows) {
    mox::Logger logger;
    logger.setCallback([](const char*, int, const char*, int, const char*) {
        throw std::runtime_error("no disk");
    });
    EXPECT_NO_THROW(logger.write("t", 2, "f", 1, "m"));
}

TEST_F(LoggerTest, DestroysTheCallbackWithTheLogger) {
    const auto held = std::make_shared<int>(1);
    {
        mox::Logger logger;
        logger.setCallback([held](const char*, int, const char*, int, const char*) {});
        logger.setCallback(nullptr);
        EXPECT_EQ(held.use_count(), 2);  // it might still be running
    }
    EXPECT_EQ(held.use_count(), 1);
}

TEST_F(LoggerTest, InstallsTheHostsLogger) {
    mox::Logger* const before = mox::Logger::instance();
    mox::Logger own;
    EXPECT_EQ(mox::Logger::instance(&own), &own);
    EXPECT_EQ(mox::Logger::instance(), &own);
    EXPECT_EQ(mox::Logger::instance(before), before);
    EXPECT_EQ(mox::Logger::instance(), before);
}

TEST_F(LoggerTest, FallsBackToTheDefaultWhenTheInstalledLoggerIsDestroyed) {
    mox::Logger* own_address = nullptr;
    {
        mox::Logger own;
        own_address = mox::Logger::instance(&own);
    }
    mox::Logger* const now = mox::Logger::instance();
    ASSERT_NE(now, nullptr);
    EXPECT_NE(now, own_address);
    EXPECT_EQ(now->stream(), stderr);
    EXPECT_EQ(now->level(), 2);
}

TEST_F(LoggerTest, KeepsTheInstalledLoggerWhenAnotherIsDestroyed) {
    mox::Logger own;
    mox::Logger::instance(&own);
    { const mox::Logger other; }
    EXPECT_EQ(mox::Logger::instance(), &own);
}

TEST_F(LoggerTest, MacroQuotesTheMessageAndNamesTheModule) {
    const LogCapture log;
    const int line = __LINE__ + 1;
    FW_LOG(2, "bg", "failed to open: %s, %d", "x", 4);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].message, "\"failed to open: x, 4\"\n");
    EXPECT_EQ(log.lines()[0].message, quoted("failed to open: x, 4"));
    EXPECT_EQ(log.lines()[0].text(), "failed to open: x, 4");
    EXPECT_EQ(log.lines()[0].file, "src/some_module");
    EXPECT_EQ(log.lines()[0].line, line);
}

TEST_F(LoggerTest, MacroTakesAMessageWithoutArguments) {
    const LogCapture log;
    FW_LOG(5, "bg", "worker-list empty");
    EXPECT_EQ(log.texts(), std::vector<std::string>{"worker-list empty"});
}

TEST_F(LoggerTest, MacroShowsEscapesAsTyped) {
    const LogCapture log;
    FW_LOG(5, "bg", "two\nlines and a \"quote\"");
    EXPECT_EQ(log.texts(), std::vector<std::string>{R"(two\nlines and a \"quote\")"});
}

TEST_F(LoggerTest, MacroTakesALineOfItsOwn) {
    const LogCapture log;
    FW_LOG_AT(143, 2, "bg", "m %d", 1);
    ASSERT_EQ(log.lines().size(), 1U);
    EXPECT_EQ(log.lines()[0].line, 143);
    EXPECT_EQ(log.lines()[0].text(), "m 1");
}

TEST_F(LoggerTest, MacroEvaluatesNoArgumentOfADroppedMessage) {
    FileLogger out;
    mox::Logger::instance(&out.logger);
    int evaluated = 0;
    FW_LOG(5, "bg", "%d", ++evaluated);
    EXPECT_EQ(evaluated, 0);
    FW_LOG(2, "bg", "%d", ++evaluated);
    EXPECT_EQ(evaluated, 1);
}

TEST_F(LoggerTest, KeepsLinesOfManyThreadsWhole) {
    FileLogger out;
    constexpr int kThreads = 4;
    constexpr int kLines = 200;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&out, t] {
            for (int i = 0; i < kLines; ++i) {
                out.logger.write("bg", 2, "f", t, "m\n");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::string text = out.file.text();
    std::size_t whole_lines = 0;
    std::size_t start = 0;
    for (std::size_t end = 0; (end = text.find('\n', start)) != std::string::npos;
         start = end + 1, ++whole_lines) {
        EXPECT_EQ(without_digits(text.substr(start, end - start)),
                  std::string(kTimeShape) + "[E][bg] f 0   : m");
    }
    EXPECT_EQ(whole_lines, static_cast<std::size_t>(kThreads * kLines));
    EXPECT_EQ(start, text.size());
}

TEST_F(LoggerTest, TakesNewSettingsWhileThreadsWrite) {
    mox::Logger logger;
    const TextFile file;
    logger.setStream(file.get());
    std::atomic<int> calls{0};
    std::thread writer([&] {
        for (int i = 0; i < 2000; ++i) {
            logger.write("bg", 2, "f", 1, "m\n");
        }
    });
    for (int i = 0; i < 200; ++i) {
        logger.setCallback([&](const char*, int, const char*, int, const char*) { ++calls; });
        logger.setLevel(i % 7);
        logger.setCallback(nullptr);
    }
    logger.setCallback([&](const char*, int, const char*, int, const char*) { ++calls; });
    writer.join();
    logger.write("bg", 6, "f", 1, "m\n");
    EXPECT_GE(calls.load(), 1);
}

TEST_F(LoggerTest, GivesEachThreadItsOwnTimeText) {
    const char* const mine = mox::Logger::now("mine");
    std::thread([] { EXPECT_STREQ(mox::Logger::now("other"), "other"); }).join();
    EXPECT_STREQ(mine, "mine");
}

// Logs when the process ends, after the logger's own statics would have been destroyed.
struct LogsAtExit {
    LogsAtExit() = default;
    LogsAtExit(const LogsAtExit&) = delete;
    LogsAtExit& operator=(const LogsAtExit&) = delete;

    ~LogsAtExit() {
        if (enabled) {
            mox::Logger::instance()->write("bg", 2, "f", 1, "still here\n");
        }
    }

    bool enabled = false;
};

LogsAtExit g_logs_at_exit;

TEST(LoggerDeathTest, LogsInDestructorsOfStaticObjects) {
    if (fw_test::kEmulated) {
        GTEST_SKIP() << fw_test::kCannotStartAnew;
    }
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            g_logs_at_exit.enabled = true;
            std::exit(0);
        },
        testing::ExitedWithCode(0), "\\[E\\]\\[bg\\] f 1   : still here");
}

TEST(LogCaptureTest, AnswersQuestionsAboutWhatWasLogged) {
    LogCapture log;
    FW_LOG(2, "bg", "one");
    FW_LOG(5, "dec_1", "one and two");
    EXPECT_EQ(log.count("one"), 2U);
    EXPECT_EQ(log.count_exactly("one"), 1U);
    EXPECT_TRUE(log.contains("two"));
    EXPECT_FALSE(log.contains("three"));
    EXPECT_EQ(log.texts(5), std::vector<std::string>{"one and two"});
    ASSERT_TRUE(log.find("two").has_value());
    EXPECT_EQ(log.find("two")->tag, "dec_1");
    EXPECT_FALSE(log.find("three").has_value());
    log.clear();
    EXPECT_TRUE(log.lines().empty());
}

TEST(LogCaptureTest, RestoresTheLoggerBefore) {
    mox::Logger* const before = mox::Logger::instance();
    {
        const LogCapture outer;
        mox::Logger* const outer_logger = mox::Logger::instance();
        {
            const LogCapture inner;
            FW_LOG(2, "bg", "to the inner one");
            EXPECT_EQ(inner.lines().size(), 1U);
        }
        EXPECT_EQ(mox::Logger::instance(), outer_logger);
        EXPECT_TRUE(outer.lines().empty());
    }
    EXPECT_EQ(mox::Logger::instance(), before);
}

}  // namespace
