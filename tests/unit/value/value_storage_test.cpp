#include "value/value_storage.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "value/script_callable.h"
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
    all.emplace_back(std::string("short"));
    all.emplace_back(std::string(100, 'x'));
    all.emplace_back(std::vector<char>{'a', 'b'});
    all.emplace_back(std::make_shared<ArrayStorage>());
    all.emplace_back(std::make_shared<TableStorage>());
    all.emplace_back(std::make_shared<ScriptCallable>());
    all.emplace_back(std::make_shared<MultiResult>());
    return all;
}

TEST(ValueStorage, StartsAsTheIntZero) {
    const ValueStorage content;
    ASSERT_NE(content.get<int>(), nullptr);
    EXPECT_EQ(*content.get<int>(), 0);
}

TEST(ValueStorage, GivesTheActiveAlternativeOnly) {
    const ValueStorage number(42);
    EXPECT_EQ(*number.get<int>(), 42);
    EXPECT_EQ(number.get<float>(), nullptr);
    EXPECT_EQ(number.get<bool>(), nullptr);
    EXPECT_EQ(number.get<void*>(), nullptr);
    EXPECT_EQ(number.get<std::string>(), nullptr);
    EXPECT_EQ(number.get<std::vector<char>>(), nullptr);
    EXPECT_EQ(number.get<std::shared_ptr<ArrayStorage>>(), nullptr);
    EXPECT_EQ(number.get<std::shared_ptr<TableStorage>>(), nullptr);
    EXPECT_EQ(number.get<std::shared_ptr<ScriptCallable>>(), nullptr);
    EXPECT_EQ(number.get<std::shared_ptr<MultiResult>>(), nullptr);
    const ValueStorage text(std::string("abc"));
    EXPECT_EQ(*text.get<std::string>(), "abc");
    EXPECT_EQ(text.get<int>(), nullptr);
}

TEST(ValueStorage, CopiesAreEqualForEachPair) {
    const std::vector<ValueStorage> all = eachAlternative();
    for (std::size_t i = 0; i < all.size(); ++i) {
        const ValueStorage constructed(all[i]);
        EXPECT_TRUE(constructed == all[i]) << i;
        for (std::size_t j = 0; j < all.size(); ++j) {
            ValueStorage target(all[j]);
            target = all[i];
            EXPECT_TRUE(target == all[i]) << i << ", " << j;
            EXPECT_EQ(target == all[j], i == j) << i << ", " << j;
        }
    }
}

TEST(ValueStorage, MovesForEachPair) {
    const std::vector<ValueStorage> all = eachAlternative();
    for (std::size_t i = 0; i < all.size(); ++i) {
        for (std::size_t j = 0; j < all.size(); ++j) {
            ValueStorage source(all[i]);
            ValueStorage constructed(std::move(source));
            EXPECT_TRUE(constructed == all[i]) << i;
            ValueStorage target(all[j]);
            target = std::move(constructed);
            EXPECT_TRUE(target == all[i]) << i << ", " << j;
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
            EXPECT_TRUE(a == second);
            EXPECT_TRUE(b == first);
        }
    }
}

TEST(ValueStorage, ReleasesWhatItOwned) {
    const auto array = std::make_shared<ArrayStorage>();
    {
        ValueStorage content(array);
        EXPECT_EQ(array.use_count(), 2);
        const ValueStorage copy(content);
        EXPECT_EQ(array.use_count(), 3);
        content.setInt(1);
        EXPECT_EQ(array.use_count(), 2);
    }
    EXPECT_EQ(array.use_count(), 1);
    ValueStorage content(array);
    content = ValueStorage(std::string("text"));
    EXPECT_EQ(array.use_count(), 1);
    content = ValueStorage(array);
    content.setFloat(0.5F);
    EXPECT_EQ(array.use_count(), 1);
    content = ValueStorage(array);
    content.setBool(false);
    EXPECT_EQ(array.use_count(), 1);
    EXPECT_FALSE(*content.get<bool>());
}

TEST(ValueStorage, SurvivesAssignmentToItself) {
    for (ValueStorage& content : eachAlternative()) {
        const ValueStorage before(content);
        const ValueStorage& itself = content;
        content = itself;
        EXPECT_TRUE(content == before);
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
    EXPECT_TRUE(ValueStorage(std::string("ab")) == ValueStorage(std::string("ab")));
    EXPECT_FALSE(ValueStorage(std::string("ab")) == ValueStorage(std::string("ac")));
    EXPECT_TRUE(ValueStorage(std::vector<char>{'a'}) == ValueStorage(std::vector<char>{'a'}));
    EXPECT_FALSE(ValueStorage(std::make_shared<ArrayStorage>()) ==
                 ValueStorage(std::make_shared<ArrayStorage>()));
    EXPECT_FALSE(ValueStorage(1) == ValueStorage(true));
    EXPECT_FALSE(ValueStorage(0) == ValueStorage(0.0F));
}

}  // namespace
