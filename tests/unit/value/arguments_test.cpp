#include "value/arguments.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

namespace {

TEST(Arguments, AreEmptyByDefault) {
    const Arguments none;
    EXPECT_TRUE(none.empty());
    EXPECT_EQ(none.size(), 0U);
    EXPECT_TRUE(none.from(0).empty());
    EXPECT_TRUE(none.from(3).empty());
}

TEST(Arguments, FromGivesTheRest) {
    const std::vector<Variable> values = {Variable::makeInt(1), Variable::makeInt(2),
                                          Variable::makeInt(3)};
    const Arguments all(values);
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(all[2].asInt(), 3);
    ASSERT_EQ(all.from(0).size(), 3U);
    ASSERT_EQ(all.from(1).size(), 2U);
    EXPECT_EQ(all.from(1)[0].asInt(), 2);
    EXPECT_EQ(all.from(1).from(1)[0].asInt(), 3);
    EXPECT_TRUE(all.from(3).empty());
    EXPECT_TRUE(all.from(99).empty());
}

TEST(Arguments, ReferToTheValues) {
    const std::vector<Variable> values(2);
    const Arguments one(values.data(), 1);
    ASSERT_EQ(one.size(), 1U);
    EXPECT_EQ(&one[0], values.data());
    EXPECT_EQ(&Arguments(values)[1], &values[1]);
}

TEST(ArgumentFrame, StartsAsNil) {
    ArgumentStack stack;
    {
        ArgumentFrame first(stack, 3);
        for (std::size_t i = 0; i < first.size(); ++i) first[i] = Variable("used");
    }
    const ArgumentFrame second(stack, 3);
    for (std::size_t i = 0; i < second.size(); ++i) EXPECT_TRUE(second.view()[i].isNil());
}

TEST(ArgumentFrame, MayBeEmpty) {
    ArgumentStack stack;
    const ArgumentFrame none(stack, 0);
    EXPECT_TRUE(none.view().empty());
    EXPECT_TRUE(none.values().empty());
    ArgumentFrame one(stack, 1);
    one[0] = Variable::makeInt(5);
    EXPECT_EQ(one.view()[0].asInt(), 5);
    ASSERT_EQ(one.values().size(), 1U);
    EXPECT_EQ(one.values()[0].asInt(), 5);
}

TEST(ArgumentFrame, ReleasesItsValuesAtItsEnd) {
    ArgumentStack stack;
    Shared<ArrayStorage> array;
    {
        ArgumentFrame frame(stack, 2);
        frame[1] = Variable::makeArray();
        array = frame[1].asArray();
        EXPECT_EQ(array.useCount(), 2U);
    }
    EXPECT_EQ(array.useCount(), 1U);
}

// Calls nest while their arguments wait, so values and views must not move for any number of inner
// frames.
TEST(ArgumentFrame, NeverMovesWhileOthersCome) {
    ArgumentStack stack;
    ArgumentFrame outer(stack, 3);
    outer[0] = Variable("first");
    outer[2] = Variable("last");
    const Arguments view = outer.view();
    const Variable* const place = &view[0];
    {
        std::vector<std::unique_ptr<ArgumentFrame>> inner;
        for (int i = 0; i < 5000; ++i) {
            inner.push_back(std::make_unique<ArgumentFrame>(stack, 7));
            (*inner.back())[6] = Variable::makeInt(i);
        }
        for (int i = 0; i < 5000; ++i) {
            EXPECT_EQ(inner[static_cast<std::size_t>(i)]->view()[6].asInt(), i);
        }
        while (!inner.empty()) inner.pop_back();
    }
    EXPECT_EQ(&view[0], place);
    EXPECT_EQ(view[0].asString(), "first");
    EXPECT_EQ(view[2].asString(), "last");
}

TEST(ArgumentFrame, HoldsVeryLongLists) {
    ArgumentStack stack;
    const ArgumentFrame before(stack, 1000);
    for (const std::size_t count : {std::size_t{100000}, std::size_t{10}, std::size_t{200000}}) {
        ArgumentFrame frame(stack, count);
        ASSERT_EQ(frame.view().size(), count);
        frame[count - 1] = Variable::makeInt(static_cast<int>(count));
        const ArgumentFrame after(stack, 2000);
        EXPECT_TRUE(after.view()[1999].isNil());
        EXPECT_EQ(frame.view()[count - 1].asInt(), static_cast<int>(count));
        EXPECT_TRUE(frame.view()[0].isNil());
    }
    EXPECT_TRUE(before.view()[999].isNil());
}

}  // namespace
