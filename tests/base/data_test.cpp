#include "tests/support/processor.h"

#include <framewell/base/data.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using mox::Data;
using mox::Value;

// Keeps the process's store over a test that installs its own.
class DataTest : public testing::Test {
protected:
    ~DataTest() override { Data::instance(m_before); }

private:
    Data* const m_before = Data::instance();
};

TEST_F(DataTest, GivesACopyOfTheFallbackForAMissingKey) {
    const Data data;
    const Value fallback = Value::string("fallback");
    const Value value = data.data("missing", fallback);
    EXPECT_EQ(value.text(), "fallback");
    EXPECT_NE(value.data(), fallback.data());
    EXPECT_EQ(data.data(nullptr, fallback).text(), "fallback");
}

TEST_F(DataTest, GivesACopyThatOutlivesAChange) {
    Data data;
    EXPECT_TRUE(data.set("k", Value::string("first")));
    const Value value = data.data("k", Value());
    EXPECT_TRUE(data.set("k", Value::string("second")));
    EXPECT_EQ(value.text(), "first");
    EXPECT_EQ(data.data("k", Value()).text(), "second");
    EXPECT_TRUE(data.remove("k"));
    EXPECT_EQ(value.text(), "first");
}

TEST_F(DataTest, StoresADeepCopy) {
    Data data;
    Value value = Value::list({});
    value.array()->append(Value::integer(1));
    data.set("k", value);
    value.array()->items().clear();
    const Value stored = data.data("k", Value());
    ASSERT_NE(stored.array(), nullptr);
    EXPECT_EQ(stored.array()->at(0).asInteger(), 1);
}

TEST_F(DataTest, TellsWhetherThereWasAnythingToRemove) {
    Data data;
    data.set("k", Value::integer(1));
    EXPECT_TRUE(data.remove("k"));
    EXPECT_FALSE(data.remove("k"));
    EXPECT_FALSE(data.remove(nullptr));
    EXPECT_EQ(data.integer("k", 5), 5);
}

TEST_F(DataTest, RefusesToStoreUnderANullKey) {
    Data data;
    EXPECT_FALSE(data.set(nullptr, Value::integer(1)));
}

TEST_F(DataTest, AStoredNullIsNoMissingKey) {
    Data data;
    data.set("k", Value());
    EXPECT_TRUE(data.data("k", Value::integer(1)).isNull());
    EXPECT_TRUE(data.remove("k"));
}

TEST_F(DataTest, ConvertsToIntegers) {
    Data data;
    data.set("int", Value::integer(-3));
    data.set("double", Value::number(8.9));
    data.set("bool", Value::boolean(true));
    data.set("text", Value::string("12"));
    data.set("word", Value::string("many"));
    data.set("null", Value());
    EXPECT_EQ(data.integer("int", 5), -3);
    EXPECT_EQ(data.integer("double", 5), 8);
    EXPECT_EQ(data.integer("bool", 5), 1);
    EXPECT_EQ(data.integer("text", 5), 12);
    EXPECT_EQ(data.integer("word", 5), 5);
    EXPECT_EQ(data.integer("null", 5), 5);
    EXPECT_EQ(data.integer("missing", 5), 5);
    EXPECT_EQ(data.integer(nullptr, 5), 5);
}

TEST_F(DataTest, KeepsManyKeysApart) {
    Data data;
    for (int i = 0; i < 500; ++i) {
        data.set(std::to_string(i).c_str(), Value::integer(i));
    }
    for (int i = 0; i < 500; i += 2) {
        data.remove(std::to_string(i).c_str());
    }
    for (int i = 0; i < 500; ++i) {
        EXPECT_EQ(data.integer(std::to_string(i).c_str(), -1), i % 2 == 0 ? -1 : i);
    }
}

TEST_F(DataTest, InstallsTheHostsStore) {
    Data* own_address = nullptr;
    {
        Data own;
        own_address = Data::instance(&own);
        EXPECT_EQ(own_address, &own);
        own.set("mine", Value::integer(1));
        EXPECT_EQ(Data::instance()->integer("mine", 0), 1);
    }
    EXPECT_NE(Data::instance(), nullptr);
    EXPECT_NE(Data::instance(), own_address);
    EXPECT_EQ(Data::instance()->integer("mine", 0), 0);
}

TEST_F(DataTest, NeverShowsAHalfWrittenValue) {
    Data data;
    const std::string texts[] = {std::string(40, 'a'), std::string(90, 'b')};
    data.set("k", Value::string(texts[0]));
    std::atomic<bool> stop{false};
    std::atomic<int> wrong{0};
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i) {
        readers.emplace_back([&] {
            while (!stop) {
                const Value value = data.data("k", Value::m_invalid);
                if (value.text() != texts[0] && value.text() != texts[1] && !value.isNull()) {
                    ++wrong;
                }
            }
        });
    }
    for (int i = 0; i < 500; ++i) {
        data.set("k", Value::string(texts[i % 2]));
        if (i % 10 == 0) {
            data.remove("k");
        }
    }
    stop = true;
    for (std::thread& reader : readers) {
        reader.join();
    }
    EXPECT_EQ(wrong, 0);
}

// Counts the values that leave a map.
struct CountingRelease {
    void operator()(Value& value) const {
        if (!value.isNull()) {
            ++count;
        }
    }

    static inline int count = 0;
};

TEST(ReadWriteMapTest, ReleasesEveryValueThatLeaves) {
    CountingRelease::count = 0;
    {
        mox::ReadWriteMap<Value, CountingRelease> map;
        map.set("a", Value::integer(1));
        EXPECT_EQ(CountingRelease::count, 0);
        map.set("a", Value::integer(2));
        EXPECT_EQ(CountingRelease::count, 1);
        map.set("b", Value::integer(3));
        map.remove("b");
        EXPECT_EQ(CountingRelease::count, 2);
    }
    EXPECT_EQ(CountingRelease::count, 3);
}

// Uses the store when the process ends.
struct ReadsAtExit {
    ReadsAtExit() = default;
    ReadsAtExit(const ReadsAtExit&) = delete;
    ReadsAtExit& operator=(const ReadsAtExit&) = delete;

    ~ReadsAtExit() {
        if (enabled && Data::instance()->integer("k", 0) != 4) {
            std::_Exit(3);
        }
    }

    bool enabled = false;
};

ReadsAtExit g_reads_at_exit;

TEST(DataDeathTest, ServesDestructorsOfStaticObjects) {
    if (fw_test::kEmulated) {
        GTEST_SKIP() << fw_test::kCannotStartAnew;
    }
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(
        {
            Data::instance()->set("k", Value::integer(4));
            g_reads_at_exit.enabled = true;
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

}  // namespace
