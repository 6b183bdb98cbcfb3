#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <string>
#include <vector>

#include "eval/scope.h"

namespace {

class ScopeStackSearches : public testing::Test {
protected:
    /// What `find` gives, by looking into every scope.
    static EntryPlace walk(const ScopeStack& stack, Name name, std::size_t floor,
                           std::size_t ceiling) {
        for (std::size_t i = ceiling; i-- > floor;) {
            const std::size_t entry = stack[i].find(name);
            if (entry < stack[i].size()) return {i, entry};
        }
        return {};
    }
    static void expectAsWalked(const ScopeStack& stack, Name name, std::size_t floor,
                               std::size_t ceiling) {
        const EntryPlace found = stack.find(name, floor, ceiling);
        const EntryPlace wanted = walk(stack, name, floor, ceiling);
        ASSERT_EQ(found.scope, wanted.scope)
            << name->text << " from " << floor << " to " << ceiling;
        if (!wanted.isFound()) return;
        ASSERT_EQ(found.entry, wanted.entry) << name->text;
    }

    NamePool names_;
};

TEST_F(ScopeStackSearches, FindWhatAWalkFinds) {
    std::minstd_rand random(1);
    const auto below = [&](std::size_t count) { return random() % count; };
    std::vector<Name> all;
    for (int i = 0; i < 6; ++i) all.push_back(names_.intern("name" + std::to_string(i)));
    std::array<Variable, 2> registers;
    ScopeStack stack;
    ScopeStack other;
    for (int step = 0; step < 40000; ++step) {
        switch (below(12)) {
            case 0:
            case 1:
            case 2: {
                // Seldom with an entry, so that there is something to go far for.
                for (std::size_t count = below(40) + 1; count-- > 0;) {
                    Scope& scope = stack.push(1);
                    if (below(60) == 0) scope.append(all[below(all.size())]);
                }
                break;
            }
            case 3: {
                const std::array<Name, 2> two = {all[below(6)], all[below(6)]};
                stack.pushWindow().openWindow(two.data(), registers.data(), 1, 2);
                if (below(2) == 0) stack.back().declareNext();
                for (std::size_t i = 0; i < all.size(); ++i) {
                    expectAsWalked(stack, all[i], 0, stack.size());
                }
                stack.pop();  // its names go
                break;
            }
            case 4:
            case 5: stack.popTo(stack.size() - std::min(stack.size(), below(60))); break;
            case 6:
                if (!stack.empty()) stack.back().set(all[below(all.size())], Variable());
                break;
            case 7:
                if (below(20) == 0) stack.swap(other);
                break;
            case 8:
                if (below(50) == 0) static_cast<void>(stack.giveBack());
                break;
            default: {
                const std::size_t ceiling = below(3) == 0 ? below(stack.size() + 1) : stack.size();
                const std::size_t floor = below(3) == 0 ? below(ceiling + 1) : 0;
                expectAsWalked(stack, all[below(all.size())], floor, ceiling);
                break;
            }
        }
        if (HasFatalFailure()) return;
    }
}

// A search at each level, going down and coming back, looks into a bounded number of scopes.
TEST_F(ScopeStackSearches, DoNotCostTheDepth) {
    const Name name = names_.intern("name");
    const Name none = names_.intern("none");
    constexpr std::size_t kDepth = 20000;
    for (const bool down : {true, false}) {
        ScopeStack stack;
        stack.push(1).append(name);
        for (std::size_t i = 0; i < kDepth; ++i) {
            stack.push(0);
            if (down) {
                ASSERT_EQ(stack.find(name, 0, stack.size()).scope, 0U);
                ASSERT_FALSE(stack.find(none, 0, stack.size()).isFound());
            }
        }
        while (stack.size() > 1) {
            ASSERT_EQ(stack.find(name, 0, stack.size()).scope, 0U);
            ASSERT_EQ(stack.find(name, 0, stack.size() - 1).scope, 0U);
            ASSERT_FALSE(stack.find(name, 1, stack.size()).isFound());
            ASSERT_FALSE(stack.find(none, 0, stack.size()).isFound());
            stack.pop();
        }
        EXPECT_LE(stack.farScopesSearched(), 6 * kDepth * FarSearches::kStride);
        EXPECT_GT(stack.farScopesSearched(), kDepth);
    }
}

TEST_F(ScopeStackSearches, NearOnesRememberNothing) {
    const Name name = names_.intern("name");
    ScopeStack stack;
    stack.push(1).append(name);
    for (int i = 0; i < 15; ++i) stack.push(0);
    EXPECT_EQ(stack.find(name, 0, stack.size()).scope, 0U);
    EXPECT_EQ(stack.farScopesSearched(), 0U);
    stack.push(0);
    EXPECT_EQ(stack.find(name, 0, stack.size()).scope, 0U);
    EXPECT_EQ(stack.farScopesSearched(), 1U);
}

// The slot caches compare addresses, and what the compiled form has put off needs no room anew.
TEST(ScopeStackMemory, GivingBackMovesNoScope) {
    NamePool names;
    const Name name = names.intern("name");
    constexpr std::size_t kMany = 100000;
    ScopeStack stack;
    for (std::size_t i = 0; i < kMany; ++i) stack.push(1).append(name, Variable::makeInt(7));
    const Scope* const first = &stack[0];
    EXPECT_FALSE(stack.giveBack());
    stack.popTo(kMany / 2);
    EXPECT_FALSE(stack.giveBack()) << "half of it is no more than may come again";
    stack.popTo(10);
    EXPECT_FALSE(stack.giveBack(kMany / 2)) << "so many are about to come";
    EXPECT_TRUE(stack.giveBack());
    EXPECT_FALSE(stack.giveBack());
    EXPECT_EQ(stack[9][0].value.asInt(), 7);
    EXPECT_EQ(name->scopeEntries, 10U);
    while (stack.size() < kMany) stack.push(1).append(name, Variable::makeInt(8));
    EXPECT_EQ(&stack[0], first);
    EXPECT_EQ(stack[9][0].value.asInt(), 7);
    EXPECT_EQ(stack[kMany - 1][0].value.asInt(), 8);
}

}  // namespace
