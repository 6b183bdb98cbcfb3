// SharedArray: what its copies share, and when its elements go.
#include "frontend/shared_array.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

TEST(SharedArray, IsEmptyByDefault) {
    const SharedArray<int> array;
    EXPECT_TRUE(array.empty());
    EXPECT_EQ(array.size(), 0U);
    EXPECT_EQ(array.begin(), array.end());
}

TEST(SharedArray, OfNothingIsEmpty) {
    const std::vector<int> nothing;
    EXPECT_TRUE(SharedArray<int>::copyOf(nothing).empty());
}

TEST(SharedArray, HoldsItsElementsInOrder) {
    const SharedArray<int> array = {3, 1, 2};
    EXPECT_FALSE(array.empty());
    EXPECT_EQ(std::vector<int>(array.begin(), array.end()), (std::vector<int>{3, 1, 2}));
    EXPECT_EQ(array[1], 1);
    EXPECT_EQ(array.data(), &array[0]);
}

TEST(SharedArray, TakesElementsOver) {
    std::vector<std::string> texts = {"a text that is too long to stand in the object itself"};
    const char* const characters = texts[0].data();
    const auto array = SharedArray<std::string>::movedFrom(texts);
    EXPECT_EQ(array[0].data(), characters);
}

TEST(SharedArray, SharesElementsWithItsCopies) {
    const SharedArray<int> array = {1, 2};
    const SharedArray<int> copy = array;  // NOLINT: the copy is what is tested
    EXPECT_EQ(copy.data(), array.data());
}

TEST(SharedArray, DestroysElementsWithTheLastCopy) {
    const auto element = std::make_shared<int>(1);
    std::vector<std::shared_ptr<int>> elements = {element, element};
    {
        SharedArray<std::shared_ptr<int>> array;
        {
            auto first = SharedArray<std::shared_ptr<int>>::movedFrom(elements);
            elements.clear();
            array = first;
            const SharedArray<std::shared_ptr<int>> moved = std::move(first);
            EXPECT_EQ(moved.size(), 2U);
        }
        EXPECT_EQ(element.use_count(), 3);
    }
    EXPECT_EQ(element.use_count(), 1);
}

TEST(SharedArray, LetsGoOfWhatItHeldWhenItIsAssigned) {
    const auto element = std::make_shared<int>(1);
    std::vector<std::shared_ptr<int>> elements = {element};
    auto array = SharedArray<std::shared_ptr<int>>::copyOf(elements);
    elements.clear();
    EXPECT_EQ(element.use_count(), 2);
    array = {};
    EXPECT_EQ(element.use_count(), 1);
}

TEST(SharedArray, TakesPassingMemoryWhileItIsInUse) {
    const auto element = std::make_shared<int>(1);
    PassingMemory memory;
    const auto made = [&](std::size_t count) {
        std::vector<std::shared_ptr<int>> elements(count, element);
        return SharedArray<std::shared_ptr<int>>::movedFrom(elements);
    };
    const auto isInside = [&](const auto& array) {
        const auto* const at = reinterpret_cast<const std::byte*>(array.data());
        const auto* const first = reinterpret_cast<const std::byte*>(&memory);
        return std::less_equal<>()(first, at) && std::less<>()(at, first + sizeof(memory));
    };
    for (int turn = 0; turn < 3; ++turn) {
        {
            const auto before = made(2);
            const PassingMemory::Use use(memory);
            const auto array = made(3);
            const auto copy = array;
            const auto large = made(1000);  // more than there is
            const auto small = made(1);
            EXPECT_EQ(element.use_count(), 1 + 2 + 3 + 1000 + 1);
            EXPECT_FALSE(isInside(before));
            EXPECT_TRUE(isInside(array));
            EXPECT_TRUE(isInside(small));
            EXPECT_FALSE(isInside(large));
            EXPECT_NE(array.data(), small.data());
        }
        EXPECT_EQ(element.use_count(), 1);
        EXPECT_FALSE(isInside(made(1)));
        memory.reset();
    }
}

TEST(SharedRecord, IsSharedByItsCopies) {
    SharedRecord<std::string> record;
    EXPECT_TRUE(record == nullptr);
    record = SharedRecord<std::string>::of("text");
    const SharedRecord<std::string> copy = record;
    EXPECT_EQ(&*copy, &*record);
    record.reset();
    EXPECT_TRUE(record == nullptr);
    EXPECT_EQ(*copy, "text");
    EXPECT_EQ(copy->size(), 4U);
}

}  // namespace
