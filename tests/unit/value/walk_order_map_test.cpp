// What stands in for parts of the standard library must agree with those parts.
#include "value/walk_order_map.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "value/text_hash.h"

namespace {

struct KeyHash {
    // Not declared noexcept, as that of the tables.
    std::size_t operator()(std::string_view key) const { return writtenOutTextHash(key); }
};

using Written = WalkOrderMap<std::string, int, KeyHash, std::equal_to<>>;
using Standard = std::unordered_map<std::string, int, KeyHash, std::equal_to<>>;

template <class Map>
std::vector<std::pair<std::string, int>> walked(const Map& map) {
    std::vector<std::pair<std::string, int>> entries;
    for (const auto& [key, value] : map) entries.emplace_back(key, value);
    return entries;
}

TEST(TextHash, IsTheStandardOne) {
    std::mt19937 random(1);
    std::string text;
    for (int length = 0; length < 200; ++length) {
        EXPECT_EQ(writtenOutTextHash(text), std::hash<std::string>()(text)) << length;
        text += static_cast<char>(random());
    }
}

TEST(WalkOrderMap, WalksAsTheStandardMapDoes) {
    std::mt19937 random(2);
    // Up to a few entries there are no buckets.
    for (const unsigned range : {3U, 8U, 9U, 12U, 14U, 20U, 300U, 5000U}) {
        Written written;
        Standard standard;
        for (unsigned step = 0; step < 4 * range + 100; ++step) {
            const std::string key = std::to_string(random() % range);
            if (random() % 3 != 0) {
                const auto [place, isNew] = written.try_emplace(key);
                EXPECT_EQ(isNew, standard.try_emplace(key).second);
                place->second = standard[key] = static_cast<int>(step);
            } else if (const auto found = written.find(key); found != written.end()) {
                const auto taken = written.extract(found);
                EXPECT_EQ(standard.erase(key), 1U);
            } else {
                EXPECT_EQ(standard.count(key), 0U);
            }
            if (step % (range / 4 + 1) == 0) {
                ASSERT_EQ(walked(written), walked(standard)) << step;
            }
        }
        EXPECT_EQ(written.size(), standard.size());
        EXPECT_EQ(walked(written), walked(standard));
    }
}

TEST(WalkOrderMap, KeepsItsOrderWhenItIsCopiedMovedAndCleared) {
    Written written;
    Standard standard;
    const auto add = [&](Written& one, Standard& other, int first, int last) {
        for (int i = first; i < last; ++i) {
            one.try_emplace("key " + std::to_string(i)).first->second = i;
            other["key " + std::to_string(i)] = i;
        }
    };
    add(written, standard, 0, 50);

    Written copy(written);
    Standard standardCopy(standard);
    EXPECT_EQ(walked(copy), walked(standardCopy));
    add(copy, standardCopy, 50, 200);
    EXPECT_EQ(walked(copy), walked(standardCopy));

    Written moved(std::move(written));
    Standard standardMoved(std::move(standard));
    EXPECT_EQ(walked(moved), walked(standardMoved));
    add(moved, standardMoved, 50, 70);
    EXPECT_EQ(walked(moved), walked(standardMoved));

    // What it was moved from, and one that is empty again.
    written.clear();
    standard.clear();
    add(written, standard, 0, 10);
    EXPECT_EQ(walked(written), walked(standard));
    moved.clear();
    standardMoved.clear();
    EXPECT_TRUE(moved.empty());
    EXPECT_EQ(moved.begin(), moved.end());
    add(moved, standardMoved, 0, 10);
    EXPECT_EQ(walked(moved), walked(standardMoved));
}

TEST(WalkOrderMap, WalksAsTheStandardMapDoesWhenItBeginsWithALayout) {
    std::mt19937 random(3);
    for (std::size_t count = 1; count <= Written::Layout::kMostKeys; ++count) {
        for (int repeat = 0; repeat < 50; ++repeat) {
            std::vector<std::string> keys;
            while (keys.size() < count) {
                const std::string key = std::to_string(random() % 100000);
                if (std::find(keys.begin(), keys.end(), key) == keys.end()) keys.push_back(key);
            }
            Written written;
            written.fill(Written::Layout(keys),
                         [](std::size_t i, int& value) { value = static_cast<int>(i); });
            Standard standard;
            for (const std::string& key : keys) {
                standard.try_emplace(key, static_cast<int>(standard.size()));
            }
            ASSERT_EQ(walked(written), walked(standard));
            Written copy(written);
            ASSERT_EQ(walked(copy), walked(standard));
            for (int more = 0; more < 30; ++more) {
                const std::string key = "more " + std::to_string(more);
                written.try_emplace(key).first->second = standard[key] = more;
                if (more == 3) {
                    const auto taken = written.extract(written.find(keys.front()));
                    standard.erase(keys.front());
                }
                ASSERT_EQ(walked(written), walked(standard));
            }
        }
    }
}

TEST(WalkOrderMap, FindsAnEntryAtItsPlaceAsLongAsItIsThere) {
    std::mt19937 random(4);
    Written map;
    std::unordered_map<std::string, Written::Place> places;
    int found = 0;
    for (int step = 0; step < 5000; ++step) {
        const std::string key = std::to_string(random() % 12);
        const auto entry = map.find(key);
        if (const auto known = places.find(key); known != places.end()) {
            // Another key may have come there, but never another value for this one.
            if (const int* value = map.valueAt(known->second, key)) {
                ++found;
                ASSERT_NE(entry, map.end());
                ASSERT_EQ(value, &entry->second);
            }
        }
        if (entry == map.end()) {
            map.try_emplace(key).first->second = step;
        } else if (random() % 4 == 0) {
            const auto taken = map.extract(entry);
        } else {
            Written::Place& place = places[key];
            map.notePlace(entry, place);
        }
        if (step % 1000 == 999) map.clear();
    }
    EXPECT_GT(found, 1000);
}

}  // namespace
