#include "base/trace.h"

#include <framewell/base/statics.h>
#include <framewell/base/tracer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr char kLogSource[] = "src/some_module";

bool is_time_of_day(const std::string& text) {
    const std::string shape = "00:00:00";
    return text.size() == shape.size() &&
           std::equal(text.begin(), text.end(), shape.begin(),
                      [](char c, char s) { return s == '0' ? c >= '0' && c <= '9' : c == s; });
}

// The line with TIME in place of the time of day and US in place of the elapsed time.
std::string without_times(std::string line) {
    const std::size_t colon = line.find(':');
    if (colon != std::string::npos && colon >= 2 && is_time_of_day(line.substr(colon - 2, 8))) {
        line.replace(colon - 2, 8, "TIME");
    }
    const std::size_t elapsed = line.find("]@ (");
    const std::size_t end = line.find("us)");
    if (elapsed != std::string::npos && end != std::string::npos && end >= elapsed + 9 &&
        line[end - 4] == '.') {
        line.replace(elapsed + 4, end + 2 - (elapsed + 4), "US");
    }
    return line;
}

// A tracer that draws into a file, whose lines can be read back.
class FileTracer {
public:
    FileTracer() : m_file(std::tmpfile()) {
        tracer.setStream(m_file);
        tracer.setEnabled(true);
    }

    FileTracer(const FileTracer&) = delete;
    FileTracer& operator=(const FileTracer&) = delete;

    ~FileTracer() {
        if (m_file != nullptr) {
            (void)std::fclose(m_file);
        }
    }

    std::string text() const {
        std::string text(static_cast<std::size_t>(std::ftell(m_file)), '\0');
        std::rewind(m_file);
        text.resize(std::fread(text.data(), 1, text.size(), m_file));
        return text;
    }

    // The lines, with TIME in place of the time of day and US in place of the elapsed time.
    std::vector<std::string> lines() const {
        std::vector<std::string> lines;
        const std::string all = text();
        for (std::size_t start = 0; start < all.size();) {
            const std::size_t end = std::min(all.find('\n', start), all.size());
            lines.push_back(without_times(all.substr(start, end - start)));
            start = end + 1;
        }
        return lines;
    }

    mox::Func_Tracer tracer;

private:
    std::FILE* m_file;
};

// Keeps the process's tracer over a test that installs its own.
class TracerTest : public testing::Test {
protected:
    ~TracerTest() override { mox::Func_Tracer::instance(m_before); }

private:
    mox::Func_Tracer* const m_before = mox::Func_Tracer::instance();
};

TEST_F(TracerTest, IsDisabledByDefault) {
    mox::Func_Tracer tracer;
    EXPECT_FALSE(tracer.enabled());
    EXPECT_EQ(tracer.deep_in(1, "f", "src/x", 1, nullptr), 0);
    EXPECT_FALSE(mox::Func_Tracer::instance()->enabled());
}

TEST_F(TracerTest, DrawsNothingWhileDisabled) {
    FileTracer out;
    out.tracer.setEnabled(false);
    EXPECT_EQ(out.tracer.deep_in(1, "f", "src/x", 1, nullptr), 0);
    out.tracer.deep_out(1, 1, 5);
    EXPECT_EQ(out.text(), "");
}

TEST_F(TracerTest, DrawsNestedCalls) {
    FileTracer out;
    const long long outer = out.tracer.deep_in(7, "add_worker", "src/scheduler", 88, nullptr);
    const long long inner = out.tracer.deep_in(123456, "seek", "src/x", 9, "del wk");
    EXPECT_GE(outer, 1);
    EXPECT_GE(inner, outer);
    out.tracer.deep_out(123456, 9, inner);
    out.tracer.deep_out(7, 88, outer);
    EXPECT_EQ(out.lines(), (std::vector<std::string>{
                               "7      TIME|__[88]add_worker src/scheduler ",
                               "123456 TIME|   |__[9]seek src/x del wk",
                               "123456 TIME|   |__[9]@ (US)",
                               "7      TIME|__[88]@ (US)",
                           }));
}

TEST_F(TracerTest, ShowsThreadIdsAbove31BitsAsNegative) {
    FileTracer out;
    out.tracer.deep_in(0xFFFFFFFFU, "f", "s", 1, "n");
    EXPECT_EQ(out.lines()[0], "-1     TIME|__[1]f s n");
}

TEST_F(TracerTest, TakesNullTextsAsEmpty) {
    FileTracer out;
    out.tracer.deep_in(1, nullptr, nullptr, 2, nullptr);
    EXPECT_EQ(out.lines()[0], "1      TIME|__[2]  ");
}

TEST_F(TracerTest, DrawsNoElapsedTimeWithoutAStart) {
    FileTracer out;
    out.tracer.deep_out(1, 2, 0);
    out.tracer.deep_out(1, 2, -5);
    const std::string text = out.text();
    const std::size_t first_end = text.find('\n');
    ASSERT_NE(first_end, std::string::npos);
    const std::string expected = "|__[2]@ (0.000us)";
    const std::size_t start = std::string("1      00:00:00").size();
    EXPECT_EQ(text.substr(start, first_end - start), expected);
    EXPECT_EQ(text.substr(first_end + 1 + start), expected + "\n");
}

TEST_F(TracerTest, StopsIndentingAfterFortyLevels) {
    FileTracer out;
    std::string bars;
    for (int depth = 0; depth < 40; ++depth) {
        out.tracer.deep_in(1, "f", "s", 1, "n");
        bars += "|   ";
    }
    out.tracer.deep_in(1, "at40", "s", 1, "n");
    out.tracer.deep_in(1, "at41", "s", 1, "n");
    const std::vector<std::string> lines = out.lines();
    ASSERT_EQ(lines.size(), 42U);
    EXPECT_EQ(lines[39], "1      TIME" + bars.substr(0, 156) + "|__[1]f s n");
    EXPECT_EQ(lines[40], "1      TIME" + bars + "|__[1]at40 s n");
    EXPECT_EQ(lines[41], "1      TIME" + bars + "..|__[1]at41 s n");
}

TEST_F(TracerTest, Draws160CharactersOfIndentationAtDepth45) {
    FileTracer out;
    for (int depth = 0; depth < 45; ++depth) {
        out.tracer.deep_in(1, "f", "s", 1, "n");
    }
    out.tracer.deep_in(1, "deep", "s", 1, "n");
    const std::string line = out.lines().back();
    const std::size_t start = std::string("1      TIME").size();
    EXPECT_EQ(line.find("..|__"), start + 160);
}

TEST_F(TracerTest, StaysAtTheRootWhenACallEndsThatBeganWhileItWasOff) {
    FileTracer out;
    out.tracer.deep_out(1, 5, 0);
    out.tracer.deep_in(1, "f", "s", 6, "n");
    EXPECT_EQ(out.lines()[0], "1      TIME|__[5]@ (US)");
    EXPECT_EQ(out.lines()[1], "1      TIME|__[6]f s n");
}

TEST_F(TracerTest, BeginsAtTheRootWhenTurnedOnAnew) {
    FileTracer out;
    const long long start = out.tracer.deep_in(1, "f", "s", 1, "n");
    out.tracer.setEnabled(false);
    out.tracer.deep_out(1, 1, start);
    out.tracer.setEnabled(true);
    out.tracer.deep_in(1, "g", "s", 1, "n");
    out.tracer.setEnabled(true);  // no change: the depth stays
    out.tracer.deep_in(1, "h", "s", 1, "n");
    ASSERT_EQ(out.lines().size(), 3U);
    EXPECT_EQ(out.lines()[1], "1      TIME|__[1]g s n");
    EXPECT_EQ(out.lines()[2], "1      TIME|   |__[1]h s n");
}

TEST_F(TracerTest, CutsALineAt511Characters) {
    FileTracer out;
    const std::string name(1000, 'x');
    out.tracer.deep_in(1, name.c_str(), "s", 1, "n");
    EXPECT_EQ(out.text().size(), 511U);
}

TEST_F(TracerTest, InstallsTheHostsTracer) {
    mox::Func_Tracer* own_address = nullptr;
    {
        mox::Func_Tracer own;
        own_address = mox::Func_Tracer::instance(&own);
        EXPECT_EQ(own_address, &own);
        EXPECT_EQ(mox::Func_Tracer::instance(), &own);
    }
    EXPECT_NE(mox::Func_Tracer::instance(), nullptr);
    EXPECT_NE(mox::Func_Tracer::instance(), own_address);
}

TEST_F(TracerTest, MacroDrawsTheScopeWithThisThreadsId) {
    FileTracer out;
    mox::Func_Tracer::instance(&out.tracer);
    const int line = __LINE__ + 2;
    {
        FW_TRACE("seek", nullptr);
        FW_TRACE("inner", "del wk");
    }
    const std::string id = std::to_string(mox::current_thread_id());
    const std::string begin = id + std::string(id.size() < 6 ? 7 - id.size() : 1, ' ') + "TIME";
    const std::string at = "|__[" + std::to_string(line) + "]";
    const std::string next = "|__[" + std::to_string(line + 1) + "]";
    EXPECT_EQ(out.lines(), (std::vector<std::string>{
                               begin + at + "seek src/some_module ",
                               begin + "|   " + next + "inner src/some_module del wk",
                               begin + "|   " + next + "@ (US)",
                               begin + at + "@ (US)",
                           }));
}

TEST_F(TracerTest, CellDrawsOnTheTracerThatItBeganWith) {
    FileTracer first;
    FileTracer second;
    mox::Func_Tracer::instance(&first.tracer);
    {
        FW_TRACE("f", nullptr);
        mox::Func_Tracer::instance(&second.tracer);
    }
    EXPECT_EQ(first.lines().size(), 2U);
    EXPECT_EQ(second.text(), "");
}

TEST_F(TracerTest, CellWithoutATracerDrawsNothing) {
    const mox::TCell cell(nullptr, 1, 1, 0);
    SUCCEED();
}

TEST_F(TracerTest, GivesEveryThreadAnIdOfItsOwn) {
    const unsigned int mine = mox::current_thread_id();
    unsigned int other = mine;
    std::thread([&] { other = mox::current_thread_id(); }).join();
    EXPECT_NE(mine, other);
    EXPECT_EQ(mine, mox::current_thread_id());
}

TEST_F(TracerTest, KeepsLinesOfManyThreadsWhole) {
    FileTracer out;
    mox::Func_Tracer::instance(&out.tracer);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([] {
            for (int i = 0; i < 50; ++i) {
                FW_TRACE("f", "n");
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const std::vector<std::string> lines = out.lines();
    EXPECT_EQ(lines.size(), 400U);
    std::size_t begun = 0;
    for (const std::string& text : lines) {
        const std::size_t call = text.find("|__[");
        ASSERT_NE(call, std::string::npos) << text;
        const std::size_t bracket = text.find(']', call);
        ASSERT_NE(bracket, std::string::npos) << text;
        const std::string rest = text.substr(bracket + 1);
        begun += rest == "f src/some_module n" ? 1U : 0U;
        EXPECT_TRUE(rest == "f src/some_module n" || rest == "@ (US)") << text;
    }
    EXPECT_EQ(begun, 200U);
}

TEST_F(TracerTest, TakesNewSettingsWhileThreadsDraw) {
    FileTracer out;
    mox::Func_Tracer::instance(&out.tracer);
    std::thread drawer([] {
        for (int i = 0; i < 500; ++i) {
            FW_TRACE("f", nullptr);
        }
    });
    for (int i = 0; i < 100; ++i) {
        out.tracer.setEnabled(i % 2 == 0);
    }
    drawer.join();
    EXPECT_FALSE(out.tracer.enabled());
}

TEST_F(TracerTest, FormatsTheTimeInATextOfItsOwn) {
    EXPECT_TRUE(is_time_of_day(mox::now("%H:%M:%S")));
    const char* const text = mox::now("first");
    EXPECT_STREQ(mox::now(nullptr), "");
    EXPECT_STREQ(text, "");
}

TEST(DeferTest, CallsTheActionWhenTheScopeEnds) {
    int calls = 0;
    {
        const mox::Defer defer([&] { ++calls; });
        EXPECT_EQ(calls, 0);
    }
    EXPECT_EQ(calls, 1);
}

TEST(DeferTest, CallsTheActionWhenAnExceptionPasses) {
    int calls = 0;
    try {
        const mox::Defer defer([&] { ++calls; });
        throw std::runtime_error("passing");
    } catch (const std::runtime_error&) {
        EXPECT_EQ(calls, 1);
    }
}

TEST(DeferTest, RunsSeveralInReverseOrder) {
    std::vector<int> order;
    {
        const mox::Defer first([&] { order.push_back(1); });
        const mox::Defer second([&] { order.push_back(2); });
    }
    EXPECT_EQ(order, (std::vector<int>{2, 1}));
}

TEST(DeferTest, DoesNothingWithoutAnAction) {
    EXPECT_NO_THROW({ const mox::Defer defer(nullptr); });
}

TEST(DeferDeathTest, EndsTheProcessWhenTheActionThrows) {
    EXPECT_DEATH({ const mox::Defer defer([] { throw std::runtime_error("loose"); }); }, "loose");
}

TEST(StaticsTest, KeepsWhatAHostPutsThere) {
    mox::g_statics.values["k"] = "v";
    mox::g_statics.text = "t";
    int calls = 0;
    mox::g_statics.actions.emplace_back([&] { ++calls; });
    mox::g_statics.actions.front()();
    EXPECT_EQ(mox::g_statics.values.at("k"), "v");
    EXPECT_EQ(mox::g_statics.text, "t");
    EXPECT_EQ(calls, 1);
    mox::g_statics = {};
}

}  // namespace
