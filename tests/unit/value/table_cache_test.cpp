#include "value/table_cache.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

std::shared_ptr<TableStorage> tableWith(const std::vector<std::string>& keys) {
    auto table = std::make_shared<TableStorage>();
    for (const std::string& key : keys) (*table)[key] = Variable::makeInt(1);
    return table;
}

std::string kindsAndTexts(const std::vector<Variable>& values) {
    std::string text;
    for (const Variable& value : values) {
        text += typeName(value.type) + " " + value.toString() + "; ";
    }
    return text;
}

TEST(TableCache, ANullTableIsEmpty) {
    TableCache cache;
    ASSERT_NE(cache.snapshot(nullptr), nullptr);
    EXPECT_TRUE(cache.snapshot(nullptr)->keys.empty());
    EXPECT_TRUE(cache.snapshot(nullptr)->keys.empty());
    EXPECT_EQ(cache.numericLength(nullptr), 0);
    cache.markMutated(nullptr, TableChange::KeysRemoved);
    EXPECT_EQ(cache.size(), 0U);
}

TEST(TableCache, ASnapshotIsSortedByBytes) {
    TableCache cache;
    const auto table = tableWith({"b", "10", "2", "", "1", "\xff", "Z", "a"});
    const auto snapshot = cache.snapshot(table);
    EXPECT_EQ(snapshot->keys,
              (std::vector<std::string>{"", "1", "10", "2", "Z", "a", "b", "\xff"}));
    for (std::size_t i = 0; i < snapshot->keys.size(); ++i) {
        EXPECT_EQ(snapshot->positionOf(snapshot->keys[i]), i);
    }
    EXPECT_EQ(snapshot->positionOf("no such key"), snapshot->keys.size());
}

TEST(TableCache, KeysAreReadBackAsValues) {
    TableCache cache;
    const auto table = tableWith({"", "007", "-5", "+5", " 5", "5 ", "1.500000", "1e3", "1e99",
                                  "99999999999", "true", "x", "-2147483648", "2147483648"});
    EXPECT_EQ(kindsAndTexts(cache.snapshot(table)->keyValues),
              "string ; float 5.000000; float 5.000000; int -2147483648; int -5; int 7; "
              "float 1.500000; float 1000.000000; string 1e99; float 2147483648.000000; "
              "string 5 ; float 99999997952.000000; string true; string x; ");
}

TEST(TableCache, ASnapshotStandsUntilTheKeysChange) {
    TableCache cache;
    const auto table = tableWith({"a", "b"});
    const auto first = cache.snapshot(table);
    (*table)["a"] = Variable("another value");
    EXPECT_EQ(cache.snapshot(table), first);

    (*table)["c"] = Variable();
    cache.markMutated(table, TableChange::KeyAdded);
    const auto second = cache.snapshot(table);
    EXPECT_NE(second, first);
    EXPECT_EQ(second->keys, (std::vector<std::string>{"a", "b", "c"}));
    // Whoever walks by the old one keeps it.
    EXPECT_EQ(first->keys, (std::vector<std::string>{"a", "b"}));

    table->erase("a");
    cache.markMutated(table, TableChange::KeysRemoved);
    EXPECT_EQ(cache.snapshot(table)->keys, (std::vector<std::string>{"b", "c"}));
}

TEST(TableCache, TheBorderIsTheFirstMissingNumber) {
    TableCache cache;
    EXPECT_EQ(cache.numericLength(tableWith({})), 0);
    EXPECT_EQ(cache.numericLength(tableWith({"2", "3"})), 0);
    EXPECT_EQ(cache.numericLength(tableWith({"1", "2", "4", "0", "-1", "x"})), 2);
    EXPECT_EQ(cache.numericLength(tableWith({"01", "1.0", "1.000000"})), 0);
    std::vector<std::string> many;
    for (int i = 1; i <= 1000; ++i) many.push_back(std::to_string(i));
    EXPECT_EQ(cache.numericLength(tableWith(many)), 1000);
}

TEST(TableCache, TheBorderFollowsMarkedChanges) {
    TableCache cache;
    const auto table = tableWith({"1", "2", "4"});
    EXPECT_EQ(cache.numericLength(table), 2);
    (*table)["3"] = Variable();
    cache.markMutated(table, TableChange::KeyAdded);
    EXPECT_EQ(cache.numericLength(table), 4);
    (*table)["x"] = Variable();
    cache.markMutated(table, TableChange::KeyAdded);
    EXPECT_EQ(cache.numericLength(table), 4);
    table->erase("2");
    cache.markMutated(table, TableChange::KeysRemoved);
    EXPECT_EQ(cache.numericLength(table), 1);
    (*table)["2"] = Variable();
    cache.markMutated(table, TableChange::KeyAdded);
    EXPECT_EQ(cache.numericLength(table), 4);
    table->clear();
    cache.markMutated(table, TableChange::KeysRemoved);
    EXPECT_EQ(cache.numericLength(table), 0);
}

TEST(TableCache, TheBorderFallsByOneWithItsLastKey) {
    TableCache cache;
    const auto table = tableWith({"1", "2", "3", "5"});
    const auto removeLast = [&](const std::string& key) {
        table->erase(key);
        cache.markMutated(table, TableChange::LastKeyRemoved);
        return cache.numericLength(table);
    };
    EXPECT_EQ(cache.numericLength(table), 3);
    EXPECT_EQ(removeLast("3"), 2);
    EXPECT_EQ(cache.snapshot(table)->keys, (std::vector<std::string>{"1", "2", "5"}));
    (*table)["3"] = Variable();
    (*table)["4"] = Variable();
    cache.markMutated(table, TableChange::KeyAdded);
    // Not measured in between: the border known to the cache is still an older one.
    EXPECT_EQ(removeLast("5"), 4);
    EXPECT_EQ(removeLast("4"), 3);
    EXPECT_EQ(removeLast("3"), 2);
    EXPECT_EQ(removeLast("2"), 1);
    EXPECT_EQ(removeLast("1"), 0);
}

TEST(TableCache, TheBorderIsCachedUntilAChangeIsMarked) {
    TableCache cache;
    const auto table = tableWith({"1"});
    EXPECT_EQ(cache.numericLength(table), 1);
    // Nobody may do this without marking it: the cache is asked, not the table.
    (*table)["2"] = Variable();
    EXPECT_EQ(cache.numericLength(table), 1);
    cache.markMutated(table, TableChange::KeyAdded);
    EXPECT_EQ(cache.numericLength(table), 2);
}

// A table that dies leaves its entry behind; another one may come to live at its address.
TEST(TableCache, AnotherTableAtTheSameAddressStartsAfresh) {
    TableCache cache;
    TableStorage storage;
    const auto own = [&storage] {
        return std::shared_ptr<TableStorage>(&storage, [](TableStorage* dead) { dead->clear(); });
    };
    {
        const auto first = own();
        (*first)["1"] = Variable();
        (*first)["old"] = Variable();
        EXPECT_EQ(cache.snapshot(first)->keys, (std::vector<std::string>{"1", "old"}));
        EXPECT_EQ(cache.numericLength(first), 1);
    }
    const auto second = own();
    EXPECT_EQ(cache.numericLength(second), 0);
    EXPECT_TRUE(cache.snapshot(second)->keys.empty());
    (*second)["new"] = Variable();
    cache.markMutated(second, TableChange::KeyAdded);
    EXPECT_EQ(cache.snapshot(second)->keys, (std::vector<std::string>{"new"}));
}

TEST(TableCache, AChangeOfAnotherTableAtTheSameAddressIsSeen) {
    TableCache cache;
    TableStorage storage;
    const auto own = [&storage] {
        return std::shared_ptr<TableStorage>(&storage, [](TableStorage* dead) { dead->clear(); });
    };
    {
        const auto first = own();
        (*first)["old"] = Variable();
        static_cast<void>(cache.snapshot(first));
    }
    const auto second = own();
    (*second)["1"] = Variable();
    cache.markMutated(second, TableChange::KeyAdded);
    EXPECT_EQ(cache.snapshot(second)->keys, (std::vector<std::string>{"1"}));
    EXPECT_EQ(cache.numericLength(second), 1);
}

TEST(TableCache, AnEntryKeepsNoTableAlive) {
    TableCache cache;
    auto table = tableWith({"a"});
    const std::weak_ptr<TableStorage> alive = table;
    static_cast<void>(cache.snapshot(table));
    static_cast<void>(cache.numericLength(table));
    cache.markMutated(table, TableChange::KeyAdded);
    table.reset();
    EXPECT_TRUE(alive.expired());
}

TEST(TableCache, ASweepDropsTheDeadOnly) {
    TableCache cache;
    const auto living = tableWith({"1"});
    const auto snapshot = cache.snapshot(living);
    std::vector<std::shared_ptr<TableStorage>> dying;
    for (int i = 0; i < 100; ++i) {
        dying.push_back(tableWith({"k"}));
        static_cast<void>(cache.numericLength(dying.back()));
    }
    EXPECT_EQ(cache.size(), 101U);
    cache.sweep();
    EXPECT_EQ(cache.size(), 101U);
    dying.clear();
    cache.sweep();
    EXPECT_EQ(cache.size(), 1U);
    EXPECT_EQ(cache.snapshot(living), snapshot);
}

TEST(TableCache, DeadTablesAreSweptInTime) {
    TableCache cache;
    std::vector<std::shared_ptr<TableStorage>> window(100);
    for (std::size_t i = 0; i < 20000; ++i) {
        // The window keeps addresses from being used again at once.
        auto& table = window[i % window.size()];
        table = tableWith({"1"});
        EXPECT_EQ(cache.numericLength(table), 1);
        ASSERT_LE(cache.size(), 320U);
    }
}

TEST(TableCache, ManyLivingTablesAreAllKept) {
    TableCache cache;
    std::vector<std::shared_ptr<TableStorage>> tables;
    std::vector<std::shared_ptr<const TableSnapshot>> snapshots;
    for (int i = 0; i < 2000; ++i) {
        tables.push_back(tableWith({std::to_string(i)}));
        snapshots.push_back(cache.snapshot(tables.back()));
    }
    EXPECT_EQ(cache.size(), 2000U);
    for (std::size_t i = 0; i < tables.size(); ++i) {
        ASSERT_EQ(cache.snapshot(tables[i]), snapshots[i]);
    }
}

}  // namespace
