#include "value/table.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "value/array_storage.h"

namespace {

Shared<TableStorage> tableWith(const std::vector<std::string>& keys) {
    auto table = Shared<TableStorage>::make();
    for (const std::string& key : keys) (*table)[key] = Variable::makeInt(1);
    return table;
}

std::vector<std::string> textsOf(const TableSnapshot& snapshot) {
    std::vector<std::string> texts;
    for (const Text& key : snapshot.keys) texts.push_back(key->text);
    return texts;
}

std::vector<std::string> keysOf(const Shared<TableStorage>& table) {
    return textsOf(*table->snapshot());
}

std::string kindsAndTexts(const std::vector<Variable>& values) {
    std::string text;
    for (const Variable& value : values) {
        text += typeName(value.type) + " " + value.toString() + "; ";
    }
    return text;
}

TEST(Table, AnEmptyTableHasAnEmptySnapshot) {
    const TableStorage table;
    ASSERT_NE(table.snapshot(), nullptr);
    EXPECT_TRUE(table.snapshot()->keys.empty());
    EXPECT_EQ(table.border(), 0);
}

TEST(Table, ASnapshotIsSortedByBytes) {
    const auto table = tableWith({"b", "10", "2", "", "1", "\xff", "Z", "a"});
    const auto snapshot = table->snapshot();
    EXPECT_EQ(textsOf(*snapshot),
              (std::vector<std::string>{"", "1", "10", "2", "Z", "a", "b", "\xff"}));
    for (std::size_t i = 0; i < snapshot->keys.size(); ++i) {
        EXPECT_EQ(snapshot->positionOf(snapshot->keys[i]->text), i);
    }
    EXPECT_EQ(snapshot->positionOf("no such key"), snapshot->keys.size());
}

TEST(Table, KeysAreReadBackAsValues) {
    const auto table = tableWith({"", "007", "-5", "+5", " 5", "5 ", "1.500000", "1e3", "1e99",
                                  "99999999999", "true", "x", "-2147483648", "2147483648"});
    EXPECT_EQ(kindsAndTexts(table->snapshot()->keyValues),
              "string ; float 5.000000; float 5.000000; int -2147483648; int -5; int 7; "
              "float 1.500000; float 1000.000000; string 1e99; float 2147483648.000000; "
              "string 5 ; float 99999997952.000000; string true; string x; ");
}

TEST(Table, ASnapshotStandsUntilTheKeysChange) {
    const auto table = tableWith({"a", "b"});
    const auto first = table->snapshot();
    (*table)["a"] = Variable("another value");
    EXPECT_EQ(table->snapshot(), first);
    EXPECT_FALSE(table->erase("no such key"));
    EXPECT_EQ(table->snapshot(), first);

    (*table)["c"] = Variable();
    const auto second = table->snapshot();
    EXPECT_NE(second, first);
    EXPECT_EQ(textsOf(*second), (std::vector<std::string>{"a", "b", "c"}));
    // Whoever walks by the old one keeps it.
    EXPECT_EQ(textsOf(*first), (std::vector<std::string>{"a", "b"}));

    EXPECT_TRUE(table->erase("a"));
    EXPECT_EQ(keysOf(table), (std::vector<std::string>{"b", "c"}));
    table->clear();
    EXPECT_TRUE(keysOf(table).empty());
    table->emplace("d", Variable());
    EXPECT_EQ(keysOf(table), std::vector<std::string>{"d"});
}

TEST(Table, TheBorderIsTheFirstMissingNumber) {
    EXPECT_EQ(tableWith({})->border(), 0);
    EXPECT_EQ(tableWith({"2", "3"})->border(), 0);
    EXPECT_EQ(tableWith({"1", "2", "4", "0", "-1", "x"})->border(), 2);
    EXPECT_EQ(tableWith({"01", "1.0", "1.000000"})->border(), 0);
    std::vector<std::string> many;
    for (int i = 1; i <= 3000; ++i) many.push_back(std::to_string(i));
    EXPECT_EQ(tableWith(many)->border(), 3000);
}

TEST(Table, TheBorderFollowsTheKeys) {
    const auto table = tableWith({"1", "2", "4"});
    EXPECT_EQ(table->border(), 2);
    (*table)["3"] = Variable();
    EXPECT_EQ(table->border(), 4);
    (*table)["x"] = Variable();
    EXPECT_EQ(table->border(), 4);
    table->erase("2");
    EXPECT_EQ(table->border(), 1);
    (*table)["2"] = Variable();
    EXPECT_EQ(table->border(), 4);
    table->erase("x");
    EXPECT_EQ(table->border(), 4);
    table->clear();
    EXPECT_EQ(table->border(), 0);
}

TEST(Table, TheBorderFallsByOneWithItsLastKey) {
    const auto table = tableWith({"1", "2", "3", "5"});
    const auto removeLast = [&](const std::string& key) {
        table->erase(key);
        return table->border();
    };
    EXPECT_EQ(table->border(), 3);
    EXPECT_EQ(removeLast("3"), 2);
    EXPECT_EQ(keysOf(table), (std::vector<std::string>{"1", "2", "5"}));
    (*table)["3"] = Variable();
    (*table)["4"] = Variable();
    // Not measured in between: the border that is known is still an older one.
    EXPECT_EQ(removeLast("5"), 4);
    EXPECT_EQ(removeLast("4"), 3);
    EXPECT_EQ(removeLast("3"), 2);
    EXPECT_EQ(removeLast("2"), 1);
    EXPECT_EQ(removeLast("1"), 0);
}

// Only the plain decimal text of a number is a position.
TEST(Table, ALookalikeOfAPositionLeavesTheBorder) {
    const auto table = tableWith({"1", "2", "3", "02", "+2", " 2", "2.000000", "4294967298"});
    EXPECT_EQ(table->border(), 3);
    for (const char* key : {"02", "+2", " 2", "2.000000", "4294967298"}) {
        EXPECT_TRUE(table->erase(key));
        EXPECT_EQ(table->border(), 3) << key;
    }
}

TEST(Table, EachKindOfKeyFindsItsText) {
    TableStorage table;
    for (const int number : {0, 1, 1023, 1024, 2000000000, -1, -2147483647 - 1}) {
        table[intKeyText(number)] = Variable::makeInt(number);
        const std::string text = std::to_string(number);
        EXPECT_EQ(intKeyText(number)->text, text);
        ASSERT_NE(table.findInt(number), nullptr);
        EXPECT_EQ(table.findInt(number), table.find(text));
        EXPECT_EQ(table.findInt(number), table.find(makeText(text)));
        EXPECT_EQ(table.findInt(number), table.findValue(Variable(text)));
        EXPECT_EQ(table.findInt(number), table.findValue(Variable::makeInt(number)));
        EXPECT_EQ(&table[text], table.findInt(number));
        EXPECT_EQ(table.findInt(number)->asInt(), number);
    }
    table["true"] = Variable::makeInt(1);
    table["1.500000"] = Variable::makeInt(2);
    EXPECT_EQ(table.findValue(Variable::makeBool(true)), table.find("true"));
    EXPECT_EQ(table.findValue(Variable::makeFloat(1.5F)), table.find("1.500000"));
    EXPECT_EQ(table.findValue(Variable::makeFloat(2.0F)), nullptr);
    EXPECT_EQ(keyText(Variable::makeFloat(1.5F))->text, "1.500000");
    EXPECT_EQ(keyText(Variable::makeBool(false))->text, "false");
    const Variable text("shared");
    EXPECT_EQ(keyText(text), text.asText());
}

TEST(Table, TakesTheConstantThatItIsAskedFor) {
    TableStorage table{{"one", Variable::makeInt(1)}, {"two", Variable::makeInt(2)}};
    const Text constant = makeText("two");
    constant->isConstant = true;
    const Text other = makeText("two");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(table.find(constant)->asInt(), 2);
        EXPECT_EQ(table.find(other)->asInt(), 2);
        EXPECT_EQ(table.find(makeText("three")), nullptr);
    }
    const auto has = [&](const Text& text) {
        for (const auto& entry : table) {
            if (entry.first == text) return true;
        }
        return false;
    };
    EXPECT_TRUE(has(constant));
    EXPECT_FALSE(has(other));
    EXPECT_TRUE(table.erase("two"));
    EXPECT_EQ(table.find(constant), nullptr);
}

TEST(Table, TheGenerationTellsWhetherAddressesHold) {
    TableStorage table;
    Variable* const first = &table["first"];
    const std::uint64_t before = table.generation();
    for (int i = 0; i < 10000; ++i) table[intKeyText(i)] = Variable::makeInt(i);
    EXPECT_EQ(table.generation(), before);
    EXPECT_EQ(table.find("first"), first);
    table.erase("no such key");
    EXPECT_EQ(table.generation(), before);
    table.erase("5");
    const std::uint64_t afterErasure = table.generation();
    EXPECT_NE(afterErasure, before);
    table.clear();
    EXPECT_NE(table.generation(), afterErasure);

    TableStorage source;
    source["k"] = Variable();
    const std::uint64_t sourceBefore = source.generation();
    const TableStorage copy(source);
    const TableStorage moved(std::move(source));
    EXPECT_NE(source.generation(), sourceBefore);
    EXPECT_NE(moved.generation(), sourceBefore);
    EXPECT_NE(copy.generation(), sourceBefore);
    EXPECT_TRUE(source.empty());
    EXPECT_EQ(source.border(), 0);
    EXPECT_TRUE(moved.contains("k"));
    EXPECT_TRUE(copy.contains("k"));
}

// A value that owns the text of its own key, or the table, goes behind everything else.
TEST(Table, AnErasedKeyMayStandInItsOwnValue) {
    const auto table = Shared<TableStorage>::make();
    (*table)["k"] = Variable::makeArray(ArrayStorage{Variable("k")});
    const std::string& key = (*table->find("k")->asArray())[0].asString();
    EXPECT_TRUE(table->erase(key));
    EXPECT_TRUE(table->empty());
}

/// Scripts see in which order a table walks: that of the standard map, by its whole history.
TEST(Table, WalksAsTheStandardMapDoes) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        std::mt19937 random(seed);
        auto table = std::make_unique<TableStorage>();
        std::unordered_map<std::string, Variable> reference;
        const auto keyCount = 1 + random() % 400;
        const auto someKey = [&] {
            const auto number = random() % keyCount;
            return number % 3 == 0 ? "name" + std::to_string(number) : std::to_string(number);
        };
        for (int step = 0; step < 600; ++step) {
            const std::string key = someKey();
            const Variable value = Variable::makeInt(step);
            switch (random() % 40) {
                case 0:
                    table = std::make_unique<TableStorage>(*table);
                    reference = std::unordered_map<std::string, Variable>(reference);
                    break;
                case 1: table = std::make_unique<TableStorage>(std::move(*table)); break;
                case 2:
                    if (random() % 10 == 0) {
                        table->clear();
                        reference.clear();
                    }
                    break;
                case 3:
                    table->emplace(key, value);
                    reference.emplace(key, value);
                    break;
                case 4:
                    (*table)[makeText(key)] = value;
                    reference[key] = value;
                    break;
                default:
                    if (random() % 3 == 0) {
                        EXPECT_EQ(table->erase(key), reference.erase(key) != 0);
                    } else {
                        (*table)[key] = value;
                        reference[key] = value;
                    }
            }
        }
        ASSERT_EQ(table->size(), reference.size());
        auto expected = reference.begin();
        for (const auto& [key, value] : *table) {
            ASSERT_EQ(key->text, expected->first) << "seed " << seed;
            ASSERT_EQ(value.asInt(), expected->second.asInt());
            ASSERT_EQ(key->hash(), std::hash<std::string>()(key->text));
            ++expected;
        }
        int border = 0;
        while (reference.contains(std::to_string(border + 1))) ++border;
        EXPECT_EQ(table->border(), border);
        std::vector<std::string> sorted;
        for (const auto& entry : reference) sorted.push_back(entry.first);
        std::sort(sorted.begin(), sorted.end());
        EXPECT_EQ(textsOf(*table->snapshot()), sorted);
    }
}

/// The same with the border asked for all the time, so that what is remembered is used.
TEST(Table, RemembersTheBorderRightly) {
    for (unsigned seed = 0; seed < 200; ++seed) {
        std::mt19937 random(seed);
        TableStorage table;
        std::vector<bool> there(32, false);
        for (int step = 0; step < 300; ++step) {
            const std::size_t position = 1 + random() % 30;
            if (random() % 3 == 0) {
                table.erase(std::to_string(position));
                there[position] = false;
            } else {
                table[std::to_string(position)] = Variable();
                there[position] = true;
            }
            if (random() % 2 == 0) {
                const auto missing = std::find(there.begin() + 1, there.end(), false);
                ASSERT_EQ(table.border(), missing - there.begin() - 1) << seed << ", " << step;
            }
        }
    }
}

TEST(Table, ManyTablesKeepTheirSnapshots) {
    std::vector<Shared<TableStorage>> tables;
    std::vector<std::shared_ptr<const TableSnapshot>> snapshots;
    for (int i = 0; i < 2000; ++i) {
        tables.push_back(tableWith({std::to_string(i)}));
        snapshots.push_back(tables.back()->snapshot());
    }
    for (std::size_t i = 0; i < tables.size(); ++i) {
        ASSERT_EQ(tables[i]->snapshot(), snapshots[i]);
    }
}

}  // namespace
