#include "frontend/scratch_list.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

TEST(ScratchList, KeepsItsElementsWhenItGrows) {
    ScratchList<std::string, 2> list;
    EXPECT_TRUE(list.empty());
    std::vector<std::string> wanted;
    for (int i = 0; i < 100; ++i) {
        const std::string text(static_cast<std::size_t>(i), 'x');
        list.push_back(text);
        wanted.push_back(text);
        ASSERT_EQ(std::vector<std::string>(list.begin(), list.end()), wanted);
    }
    EXPECT_EQ(list.size(), 100U);
    EXPECT_EQ(list[99], wanted[99]);
}

TEST(ScratchList, LetsGoOfItsElements) {
    const auto counted = std::make_shared<int>(1);
    for (const int count : {1, 2, 3, 50}) {
        {
            ScratchList<std::shared_ptr<int>, 2> list;
            for (int i = 0; i < count; ++i) list.push_back(counted);
            EXPECT_EQ(counted.use_count(), count + 1);
        }
        EXPECT_EQ(counted.use_count(), 1);
    }
}

}  // namespace
