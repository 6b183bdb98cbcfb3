#include "value/shared.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

/// Tells when it goes.
struct Witness {
    explicit Witness(int& ends) : ends_(ends) {}
    Witness(const Witness&) = delete;
    Witness& operator=(const Witness&) = delete;
    ~Witness() { ++ends_; }

private:
    int& ends_;
};

TEST(Shared, IsOneWord) { EXPECT_EQ(sizeof(Shared<std::string>), sizeof(void*)); }

TEST(Shared, StartsAsNull) {
    const Shared<std::string> none;
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(none.get(), nullptr);
    EXPECT_FALSE(none);
    EXPECT_EQ(none.useCount(), 0U);
    EXPECT_EQ(none, Shared<std::string>(nullptr));
}

TEST(Shared, MakesItsContent) {
    const auto text = Shared<std::string>::make(3U, 'x');
    EXPECT_TRUE(text);
    EXPECT_EQ(*text, "xxx");
    EXPECT_EQ(text->size(), 3U);
    EXPECT_EQ(text.get(), &*text);
    EXPECT_NE(text, Shared<std::string>::make("xxx"));
}

TEST(Shared, CountsItsOwners) {
    int ends = 0;
    {
        auto first = Shared<Witness>::make(ends);
        EXPECT_EQ(first.useCount(), 1U);
        Shared<Witness> second(first);
        EXPECT_EQ(first.useCount(), 2U);
        EXPECT_EQ(first, second);
        Shared<Witness> third(std::move(second));
        EXPECT_EQ(second, nullptr);
        EXPECT_EQ(first.useCount(), 2U);
        second = third;
        EXPECT_EQ(first.useCount(), 3U);
        second = std::move(third);
        EXPECT_EQ(first.useCount(), 2U);
        const Shared<Witness>& itself = second;
        second = itself;
        EXPECT_EQ(first.useCount(), 2U);
        second.reset();
        EXPECT_EQ(first.useCount(), 1U);
        EXPECT_EQ(ends, 0);
        first = Shared<Witness>::make(ends);
        EXPECT_EQ(ends, 1);
        first.swap(second);
        EXPECT_EQ(first, nullptr);
        EXPECT_EQ(second.useCount(), 1U);
    }
    EXPECT_EQ(ends, 2);
}

// Values raise and lower the count without knowing what is shared.
TEST(Shared, TheCountStandsInFront) {
    struct alignas(16) Wide {
        long double content = 0;
    };
    const auto wide = Shared<Wide>::make();
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(wide.get()) % alignof(Wide), 0U);
    SharedCount* front = nullptr;
    std::memcpy(&front, &wide, sizeof(front));
    EXPECT_EQ(front->count, 1U);
    const auto copy = wide;
    EXPECT_EQ(front->count, 2U);
}

struct Node {
    Shared<Node> next;
};

TEST(Shared, TakesOverFromInsideItsOwnContent) {
    auto list = Shared<Node>::make();
    list->next = Shared<Node>::make();
    list->next->next = Shared<Node>::make();
    list = list->next;
    EXPECT_NE(list->next, nullptr);
    list = std::move(list->next);
    EXPECT_EQ(list->next, nullptr);
}

#ifdef DOVREL_KEEPS_BLOCKS
TEST(SpareBlocks, GoToTheNextOfTheirSize) {
    struct Content {
        long numbers[7] = {};
    };
    auto first = Shared<Content>::make();
    auto second = Shared<Content>::make();
    const void* const place = first.get();
    const void* const otherPlace = second.get();
    first.reset();
    second.reset();
    // The one that has gone last comes first: it is the one that is in the cache.
    first = Shared<Content>::make();
    second = Shared<Content>::make();
    EXPECT_EQ(first.get(), otherPlace);
    EXPECT_EQ(second.get(), place);
}

TEST(SpareBlocks, AreKeptUpToABound) {
    struct Content {
        long numbers[11] = {};
    };
    std::vector<Shared<Content>> many;
    for (int i = 0; i < 2000; ++i) many.push_back(Shared<Content>::make());
    for (Shared<Content>& one : many) one->numbers[0] = 1;
    many.clear();
    for (int i = 0; i < 2000; ++i) {
        many.push_back(Shared<Content>::make());
        ASSERT_EQ(many.back()->numbers[0], 0);
    }
}
#endif

}  // namespace
