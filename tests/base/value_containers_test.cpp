#include "tests/support/values.h"

#include <framewell/base/value.h>

#include <gtest/gtest.h>

#include <list>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace {

using fw_test::list_of_three;
using mox::Value;
using mox::ValueArray;
using mox::ValueMap;

constexpr int kManyLevels = 300000;

TEST(ValueTreeTest, HoldsTreesOfAnyDepth) {
    for (Value tree : {fw_test::nested_lists(kManyLevels), fw_test::nested_maps(kManyLevels)}) {
        const Value copy = tree;
        tree.reset();
        int levels = 0;
        const Value* leaf = &copy;
        for (; leaf->array() != nullptr || leaf->map() != nullptr; ++levels) {
            leaf = leaf->array() != nullptr ? &leaf->array()->at(0) : &leaf->map()->at("k");
        }
        EXPECT_EQ(levels, kManyLevels);
        EXPECT_EQ(leaf->asInteger(), 1);
    }
}

TEST(ValueTreeTest, ContainersLetGoOfTreesOfAnyDepth) {
    ValueArray array;
    array.append(Value::integer(1));
    array.items().push_back(fw_test::nested_maps(kManyLevels));
    array.items().push_back(fw_test::nested_lists(kManyLevels));
    const std::unique_ptr<ValueArray> clone(array.clone());
    array.items().clear();
    EXPECT_EQ(clone->items().size(), 3U);
    Value value = std::move(clone->items().back());
    value = Value::integer(2);
    EXPECT_EQ(value.asInteger(), 2);
}

TEST(ValueTreeTest, DestroysWideAndMixedTrees) {
    // What is left behind, AddressSanitizer finds.
    Value tree = Value::string("innermost");
    for (int level = 0; level < 50; ++level) {
        std::map<std::string, Value> entries;
        entries["a"] = level % 3 == 0 ? list_of_three() : Value::map({});
        entries["b"] = level % 2 == 0 ? Value::list({}) : Value::string("text");
        entries["c"] = std::move(tree);
        entries["d"] = Value::error(level, "message");
        std::list<Value> items;
        items.push_back(Value::list({}));
        items.push_back(Value::map(std::move(entries)));
        items.push_back(list_of_three());
        tree = Value::list(std::move(items));
    }
    const Value copy = tree;
    EXPECT_TRUE(fw_test::equal(copy, tree));
    tree.reset();
    EXPECT_EQ(copy.array()->items().size(), 3U);
}

TEST(ValueArrayTest, KeepsTheOrderOfItsElements) {
    ValueArray array;
    array.append(Value::integer(3));
    array.append(Value::integer(1));
    EXPECT_EQ(array.at(0).asInteger(), 3);
    EXPECT_EQ(array.at(1).asInteger(), 1);
    EXPECT_EQ(&array.at(2), &Value::m_invalid);
    array.append(array.at(0));
    EXPECT_EQ(array.at(2).asInteger(), 3);
}

TEST(ValueArrayTest, ClonesDeep) {
    ValueArray array;
    array.append(Value::string("text"));
    const mox::MultiValues& base = array;
    const std::unique_ptr<mox::MultiValues> clone(base.clone());
    array.items().clear();
    const auto* const copy = dynamic_cast<const ValueArray*>(clone.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->at(0).text(), "text");
}

TEST(ValueMapTest, InsertsADeepCopy) {
    ValueMap map;
    Value value = Value::string("text");
    EXPECT_TRUE(map.insert_data("k", value, false));
    value.fastSet("changed");
    EXPECT_EQ(map.at("k").text(), "text");
    EXPECT_EQ(&map.at("missing"), &Value::m_invalid);
}

TEST(ValueMapTest, KeepsTheOldValueUnlessTold) {
    ValueMap map;
    map.insert_data("k", Value::integer(1), false);
    EXPECT_FALSE(map.insert_data("k", Value::integer(2), false));
    EXPECT_EQ(map.at("k").asInteger(), 1);
    EXPECT_TRUE(map.insert_data("k", Value::integer(2), true));
    EXPECT_EQ(map.at("k").asInteger(), 2);
}

TEST(ValueMapTest, OverwritingWithTheStoredValueChangesNothing) {
    ValueMap map;
    map.insert_data("k", Value::string("text"), false);
    const char* const data = map.at("k").data();
    EXPECT_TRUE(map.insert_data("k", map.at("k"), true));
    EXPECT_EQ(map.at("k").data(), data);
}

TEST(ValueMapTest, OverwritesAValueWithAPartOfIt) {
    ValueMap map;
    map.insert_data("k", list_of_three(), false);
    EXPECT_TRUE(map.insert_data("k", map.at("k").array()->at(1), true));
    EXPECT_EQ(map.at("k").text(), "two");
}

TEST(ValueMapTest, RefusesANullKey) {
    ValueMap map;
    EXPECT_FALSE(map.insert_data(nullptr, Value::integer(1), true));
    EXPECT_TRUE(map.items().empty());
    EXPECT_TRUE(map.at(nullptr).isNull());
}

TEST(ValueMapTest, SortsKeysByTheirBytes) {
    ValueMap map;
    for (const char* const key : {"b", "\xC3\xA4", "a", "B", ""}) {
        map.insert_data(key, Value::integer(1), false);
    }
    std::string order;
    for (const auto& entry : map.items()) {
        order += entry.first + ",";
    }
    EXPECT_EQ(order, ",B,a,b,\xC3\xA4,");
}

TEST(ValueMapTest, ClonesDeep) {
    ValueMap map;
    map.insert_data("k", Value::string("text"), false);
    const mox::MultiValues& base = map;
    const std::unique_ptr<mox::MultiValues> clone(base.clone());
    map.items().clear();
    const auto* const copy = dynamic_cast<const ValueMap*>(clone.get());
    ASSERT_NE(copy, nullptr);
    EXPECT_EQ(copy->at("k").text(), "text");
}

}  // namespace
