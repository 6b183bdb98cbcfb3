#include "eval/scope.h"

#include <gtest/gtest.h>

#include <memory>
#include <utility>
#include <vector>

namespace {

class ScopeTest : public testing::Test {
protected:
    NamePool names_;
    const Name x_ = names_.intern("x");
    const Name y_ = names_.intern("y");
};

using Names = ScopeTest;
using ScopeStackTest = ScopeTest;

TEST_F(Names, EachTextStandsOnce) {
    EXPECT_EQ(names_.intern("x"), x_);
    EXPECT_NE(x_, y_);
    EXPECT_EQ(x_->text, "x");
    // Records stay in place however many come.
    for (int i = 0; i < 10000; ++i) static_cast<void>(names_.intern("n" + std::to_string(i)));
    EXPECT_EQ(names_.intern("x"), x_);
}

TEST_F(ScopeTest, ANameWrittenTwiceKeepsItsFirstPlace) {
    Scope scope;
    scope.set(x_, Variable::makeInt(1));
    scope.set(y_, Variable::makeInt(2));
    scope.set(x_, Variable::makeInt(3));
    ASSERT_EQ(scope.size(), 2U);
    EXPECT_EQ(scope[0].name, x_);
    EXPECT_EQ(scope[0].value.asInt(), 3);
    EXPECT_EQ(scope.find(y_), 1U);
    EXPECT_EQ(scope.find(names_.intern("z")), scope.size());
}

TEST_F(ScopeTest, AppendingLooksForNothing) {
    Scope scope;
    scope.append(x_, Variable::makeInt(1));
    scope.append(x_, Variable::makeInt(2));
    ASSERT_EQ(scope.size(), 2U);
    EXPECT_EQ(scope.find(x_), 0U);
    scope.set(x_, Variable::makeInt(3));
    EXPECT_EQ(scope[0].value.asInt(), 3);
    EXPECT_EQ(scope[1].value.asInt(), 2);
}

TEST_F(ScopeTest, ACachedEntryIsCheckedByName) {
    Scope scope;
    scope.append(x_, Variable::makeInt(1));
    ASSERT_NE(getCachedScopeValue(scope, x_, 0), nullptr);
    EXPECT_EQ(getCachedScopeValue(scope, x_, 0)->asInt(), 1);
    EXPECT_EQ(getCachedScopeValue(scope, y_, 0), nullptr);
    EXPECT_EQ(getCachedScopeValue(scope, x_, 1), nullptr);
}

// The count lets a search be left out, so it must be right at every moment.
TEST_F(ScopeTest, NamesCountTheirEntries) {
    {
        Scope scope;
        scope.append(x_, Variable());
        scope.append(x_, Variable());
        scope.set(x_, Variable::makeInt(1));
        scope.set(y_, Variable());
        EXPECT_EQ(x_->scopeEntries, 2U);
        EXPECT_EQ(y_->scopeEntries, 1U);
        {
            const Scope moved(std::move(scope));
            EXPECT_EQ(x_->scopeEntries, 2U);
        }
        EXPECT_EQ(x_->scopeEntries, 0U);
        EXPECT_EQ(y_->scopeEntries, 0U);
        scope.append(x_);
        EXPECT_EQ(x_->scopeEntries, 1U);
    }
    EXPECT_EQ(x_->scopeEntries, 0U);
}

TEST_F(ScopeTest, EntriesAreNilAgainBehindAClear) {
    Scope scope;
    for (int i = 0; i < 5; ++i) scope.append(i % 2 == 0 ? x_ : y_, Variable::makeInt(i));
    ASSERT_EQ(scope.size(), 5U);
    EXPECT_EQ(scope[4].value.asInt(), 4);
    scope.clear();
    EXPECT_TRUE(scope.empty());
    EXPECT_EQ(scope.size(), 0U);
    EXPECT_TRUE(scope.append(y_).isNil());
    EXPECT_EQ(scope.find(y_), 0U);
}

TEST_F(ScopeStackTest, PushesEmptyScopes) {
    ScopeStack stack;
    EXPECT_TRUE(stack.empty());
    stack.push(2).append(x_, Variable::makeInt(1));
    stack.push(0).append(y_, Variable::makeInt(2));
    ASSERT_EQ(stack.size(), 2U);
    EXPECT_EQ(stack.back().find(y_), 0U);
    EXPECT_EQ(stack.fromTop(1).find(x_), 0U);
    EXPECT_EQ(&stack.fromTop(0), &stack[1]);
    stack.pop();
    EXPECT_EQ(y_->scopeEntries, 0U);
    EXPECT_TRUE(stack.push(1).empty());
    stack.popTo(0);
    EXPECT_TRUE(stack.empty());
    EXPECT_EQ(x_->scopeEntries, 0U);
}

TEST_F(ScopeStackTest, APoppedScopeReleasesItsValues) {
    ScopeStack stack;
    Variable array = Variable::makeArray();
    const Shared<ArrayStorage> alive = array.asArray();
    stack.push(1).append(x_, std::move(array));
    array = Variable();
    EXPECT_EQ(alive.useCount(), 2U);
    stack.pop();
    EXPECT_EQ(alive.useCount(), 1U);
}

// The slot caches compare addresses: a scope pushed where another stood has its address, and the
// addresses change only where a vector that doubles would have moved them.
TEST_F(ScopeStackTest, AddressesAreThoseOfAVector) {
    ScopeStack stack;
    std::vector<std::unique_ptr<int>> model;
    const auto pushBoth = [&] {
        const bool grows = model.size() == model.capacity();
        const Scope* const before = model.empty() ? nullptr : &stack[0];
        model.push_back(nullptr);
        stack.push(0);
        if (before == nullptr) return;
        EXPECT_EQ(&stack[0] != before, grows) << model.size();
    };
    for (int i = 0; i < 100; ++i) pushBoth();
    const Scope* const first = &stack[0];
    for (int i = 0; i < 90; ++i) {
        model.pop_back();
        stack.pop();
    }
    EXPECT_EQ(&stack[0], first);
    for (int i = 0; i < 100; ++i) pushBoth();
}

TEST_F(ScopeStackTest, SwapsAsAWhole) {
    ScopeStack a;
    ScopeStack b;
    a.push(1).append(x_, Variable::makeInt(1));
    const Scope* const place = &a[0];
    a.swap(b);
    EXPECT_TRUE(a.empty());
    ASSERT_EQ(b.size(), 1U);
    EXPECT_EQ(&b[0], place);
    EXPECT_EQ(b[0][0].value.asInt(), 1);
}

}  // namespace
