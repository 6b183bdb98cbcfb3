#include "value/value_storage.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <functional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "value/array_storage.h"
#include "value/script_callable.h"
#include "value/table.h"
#include "value/variable.h"

namespace {

int pointerTarget = 0;

/// One content of each alternative; the shared ones count their owners.
std::vector<ValueStorage> eachAlternative() {
    std::vector<ValueStorage> all;
    all.emplace_back(42);
    all.emplace_back(1.5F);
    all.emplace_back(true);
    all.emplace_back(static_cast<void*>(&pointerTarget));
    all.emplace_back(makeText("short"));
    all.emplace_back(makeText(std::string(100, 'x')));
    all.emplace_back(std::vector<char>{'a', 'b'});
    all.emplace_back(Shared<ArrayStorage>::make());
    all.emplace_back(Shared<TableStorage>::make());
    all.emplace_back(Shared<ScriptCallable>::make());
    all.emplace_back(Shared<MultiResult>::make());
    return all;
}

/// What is active in `value`, by what the checked accesses let through.
std::vector<Alternative> readable(const Variable& value) {
    std::vector<Alternative> read;
    const auto tryIt = [&](Alternative alternative, auto access) {
        try {
            static_cast<void>(access());
            read.push_back(alternative);
        } catch (const std::exception& error) {
            EXPECT_STREQ(error.what(), "bad_variant_access");
        }
    };
    tryIt(Alternative::Int, [&] { return value.asInt(); });
    tryIt(Alternative::Float, [&] { return value.asFloat(); });
    tryIt(Alternative::Bool, [&] { return value.asBool(); });
    tryIt(Alternative::Pointer, [&] { return value.asPointer(); });
    tryIt(Alternative::String, [&] { return value.asString(); });
    tryIt(Alternative::Array, [&] { return value.asArray(); });
    tryIt(Alternative::Table, [&] { return value.asTable(); });
    tryIt(Alternative::Callable, [&] { return value.asFunction(); });
    tryIt(Alternative::Multi, [&] { return value.asMulti(); });
    return read;
}

TEST(ValueStorage, IsTwoWords) {
    EXPECT_EQ(sizeof(ValueStorage), 16U);
    EXPECT_EQ(sizeof(Variable), 16U);
}

TEST(ValueStorage, StartsAsTheIntZero) {
    const ValueStorage content;
    EXPECT_EQ(content.alternative(), Alternative::Int);
    EXPECT_TRUE(content.sameContent(ValueStorage(0)));
}

TEST(ValueStorage, GivesTheActiveAlternativeOnly) {
    for (const ValueStorage& content : eachAlternative()) {
        const Variable value(content.type, content);
        if (content.alternative() == Alternative::Raw) {
            EXPECT_TRUE(readable(value).empty());
        } else {
            EXPECT_EQ(readable(value), std::vector<Alternative>{content.alternative()});
        }
    }
    EXPECT_EQ(Variable(VarType::Int, ValueStorage(42)).asInt(), 42);
    EXPECT_EQ(Variable(VarType::String, ValueStorage(makeText("abc"))).asString(), "abc");
}

TEST(ValueStorage, TheTagTellsKindAndContent) {
    EXPECT_EQ(Variable().tag(), Variable::kNilTag);
    EXPECT_EQ(Variable::makeInt(1).tag(), Variable::kIntTag);
    EXPECT_EQ(Variable::makeFloat(1).tag(), Variable::kFloatTag);
    EXPECT_EQ(Variable::makeBool(true).tag(), Variable::kBoolTag);
    EXPECT_EQ(Variable("text").tag(), Variable::kStringTag);
    EXPECT_EQ(Variable::makeArray().tag(), Variable::kArrayTag);
    EXPECT_EQ(Variable::makeTable().tag(), Variable::kTableTag);
    EXPECT_EQ(Variable::makeFunction(Shared<ScriptCallable>::make()).tag(), Variable::kFunctionTag);
    Variable damaged = Variable::makeInt(1);
    damaged.type = VarType::Float;
    EXPECT_EQ(damaged.tag(), ValueStorage::tagOf(VarType::Float, Alternative::Int));
    const Variable copy = damaged;
    EXPECT_EQ(copy.tag(), damaged.tag());
    for (const ValueStorage& a : eachAlternative()) {
        for (const ValueStorage& b : eachAlternative()) {
            EXPECT_EQ(a.tag() == b.tag(), a.alternative() == b.alternative());
        }
    }
}

TEST(ValueStorage, UncheckedAccessReadsTheSame) {
    EXPECT_EQ(Variable::makeInt(-5).rawInt(), -5);
    EXPECT_EQ(Variable::makeFloat(-0.5F).rawFloat(), -0.5F);
    EXPECT_TRUE(Variable::makeBool(true).rawBool());
    EXPECT_FALSE(Variable::makeBool(false).rawBool());
    const Variable text("abc");
    EXPECT_EQ(&text.rawText(), text.asText().get());
    const Variable array = Variable::makeArray();
    EXPECT_EQ(&array.rawArray(), array.asArray().get());
    const Variable table = Variable::makeTable();
    EXPECT_EQ(&table.rawTable(), table.asTable().get());
    const Variable function = Variable::makeFunction(Shared<ScriptCallable>::make());
    EXPECT_EQ(function.rawFunction(), function.asFunction().get());
}

TEST(ValueStorage, CopiesAreEqualForEachPair) {
    const std::vector<ValueStorage> all = eachAlternative();
    for (std::size_t i = 0; i < all.size(); ++i) {
        const ValueStorage constructed(all[i]);
        EXPECT_TRUE(constructed.sameContent(all[i])) << i;
        for (std::size_t j = 0; j < all.size(); ++j) {
            ValueStorage target(all[j]);
            target = all[i];
            EXPECT_TRUE(target.sameContent(all[i])) << i << ", " << j;
            EXPECT_EQ(target.sameContent(all[j]), i == j) << i << ", " << j;
        }
    }
}

TEST(ValueStorage, MovesForEachPair) {
    const std::vector<ValueStorage> all = eachAlternative();
    for (std::size_t i = 0; i < all.size(); ++i) {
        for (std::size_t j = 0; j < all.size(); ++j) {
            ValueStorage source(all[i]);
            ValueStorage constructed(std::move(source));
            EXPECT_TRUE(constructed.sameContent(all[i])) << i;
            ValueStorage target(all[j]);
            target = std::move(constructed);
            EXPECT_TRUE(target.sameContent(all[i])) << i << ", " << j;
        }
    }
}

TEST(ValueStorage, SwapsForEachPair) {
    const std::vector<ValueStorage> all = eachAlternative();
    for (const ValueStorage& first : all) {
        for (const ValueStorage& second : all) {
            ValueStorage a(first);
            ValueStorage b(second);
            a.swap(b);
            EXPECT_TRUE(a.sameContent(second));
            EXPECT_TRUE(b.sameContent(first));
        }
    }
}

TEST(ValueStorage, ReleasesWhatItOwned) {
    const auto array = Shared<ArrayStorage>::make();
    {
        Variable content(VarType::Array, ValueStorage(array));
        EXPECT_EQ(array.useCount(), 2U);
        const Variable copy(content);
        EXPECT_EQ(array.useCount(), 3U);
        content.setInt(1);
        EXPECT_EQ(array.useCount(), 2U);
    }
    EXPECT_EQ(array.useCount(), 1U);
    const Variable holder(VarType::Array, ValueStorage(array));
    const auto expectReleased = [&](auto overwrite) {
        Variable content = holder;
        EXPECT_EQ(array.useCount(), 3U);
        overwrite(content);
        EXPECT_EQ(array.useCount(), 2U);
        return content;
    };
    expectReleased([](Variable& content) { content = Variable("text"); });
    expectReleased([](Variable& content) { content.setFloat(0.5F); });
    EXPECT_FALSE(expectReleased([](Variable& content) { content.setBool(false); }).asBool());
    expectReleased([](Variable& content) { content.setNil(); });
    expectReleased([](Variable& content) { content.overwriteInt(1); });
    expectReleased([](Variable& content) { content.overwriteFloat(1); });
    expectReleased([](Variable& content) { content.overwriteBool(true); });
    expectReleased([](Variable& content) { content.overwriteNil(); });
    expectReleased([](Variable& content) { const Variable taken = std::move(content); });
}

// Whatever is overwritten, by whatever: the count of a block is that of the values that hold it.
TEST(ValueStorage, CountsRightlyInRandomHistories) {
    std::mt19937 random(1);
    std::vector<ValueStorage> blocks = eachAlternative();
    const auto array = Shared<ArrayStorage>::make();
    blocks.emplace_back(array);
    std::vector<ValueStorage> places(8);
    for (int step = 0; step < 20000; ++step) {
        ValueStorage& a = places[random() % places.size()];
        ValueStorage& b = places[random() % places.size()];
        switch (random() % 4) {
            case 0: a = b; break;
            case 1: a = std::move(b); break;
            case 2: a.swap(b); break;
            default: a = blocks[random() % blocks.size()]; break;
        }
        const auto holders = std::count_if(places.begin(), places.end(), [&](const auto& place) {
            return place.sameContent(ValueStorage(array));
        });
        ASSERT_EQ(array.useCount(), 2U + static_cast<std::size_t>(holders));
    }
}

TEST(ValueStorage, ATextIsSharedUntilItIsWritten) {
    Variable first("a text that is long enough to stand apart from its record");
    const Variable second = first;
    EXPECT_EQ(first.asText(), second.asText());
    EXPECT_EQ(first.asText().useCount(), 2U);
    first.mutableString()[0] = 'A';
    EXPECT_NE(first.asText(), second.asText());
    EXPECT_EQ(second.asString()[0], 'a');
    const TextBlock* const alone = first.asText().get();
    first.mutableString()[1] = '-';
    EXPECT_EQ(first.asText().get(), alone);
    EXPECT_EQ(first.asString().substr(0, 2), "A-");
}

TEST(ValueStorage, AWrittenTextForgetsItsHash) {
    Variable text("ab");
    EXPECT_EQ(text.asText()->hash(), std::hash<std::string>()("ab"));
    text.mutableString() += "c";
    EXPECT_EQ(text.asText()->hash(), std::hash<std::string>()("abc"));
    const TextBlock known("xy", std::hash<std::string>()("xy"));
    EXPECT_EQ(known.text, "xy");
    EXPECT_EQ(known.hash(), std::hash<std::string>()("xy"));
}

TEST(ValueStorage, SurvivesAssignmentToItself) {
    for (ValueStorage& content : eachAlternative()) {
        const ValueStorage before(content);
        const ValueStorage& itself = content;
        content = itself;
        EXPECT_TRUE(content.sameContent(before));
    }
}

// `a = a[1]` with the only reference to the array: the element dies with the array unless it has
// been copied before.
TEST(ValueStorage, TakesAValueFromInsideItsOwnContainer) {
    Variable array = Variable::makeArray();
    array.asArray()->push_back(Variable("inner text that is too long to stand in the record"));
    array = (*array.asArray())[0];
    EXPECT_EQ(array.asString(), "inner text that is too long to stand in the record");

    Variable table = Variable::makeTable();
    (*table.asTable())["k"] = Variable::makeArray(ArrayStorage{Variable("deep")});
    table = std::move((*table.asTable())["k"]);
    EXPECT_EQ(table.toString(), "[deep]");
}

TEST(ValueStorage, EqualityIsByContentOrByIdentity) {
    const auto same = [](const ValueStorage& a, const ValueStorage& b) { return a.sameContent(b); };
    EXPECT_TRUE(same(ValueStorage(makeText("ab")), ValueStorage(makeText("ab"))));
    EXPECT_FALSE(same(ValueStorage(makeText("ab")), ValueStorage(makeText("ac"))));
    EXPECT_TRUE(same(ValueStorage(std::vector<char>{'a'}), ValueStorage(std::vector<char>{'a'})));
    EXPECT_FALSE(same(ValueStorage(Shared<ArrayStorage>::make()),
                      ValueStorage(Shared<ArrayStorage>::make())));
    EXPECT_FALSE(same(ValueStorage(1), ValueStorage(true)));
    EXPECT_FALSE(same(ValueStorage(0), ValueStorage(0.0F)));
}

}  // namespace
