#include "value/array_storage.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <new>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace {

using Model = std::vector<Variable>;

std::ptrdiff_t offset(std::size_t place) { return static_cast<std::ptrdiff_t>(place); }

void expectSame(const ArrayStorage& array, const Model& model) {
    ASSERT_EQ(array.size(), model.size());
    ASSERT_EQ(array.capacity(), model.capacity());
    for (std::size_t i = 0; i < model.size(); ++i) {
        ASSERT_EQ(array[i].toString(), model[i].toString()) << "at " << i;
    }
}

/// One step at random, on both. `front` is how often of ten times it is at the front.
void change(ArrayStorage& array, Model& model, std::mt19937& random, unsigned front) {
    const auto below = [&](std::size_t limit) { return random() % limit; };
    const Variable value = below(2) == 0 ? Variable::makeInt(static_cast<int>(below(1000)))
                                         : Variable("text " + std::to_string(below(1000)));
    const auto place = [&](std::size_t limit) { return below(10) < front ? 0 : below(limit); };
    switch (below(20)) {
        case 0: {
            const std::size_t wanted = below(2 * model.size() + 2);
            array.reserve(wanted);
            model.reserve(wanted);
            break;
        }
        case 1: {
            const std::size_t wanted = model.size() + below(4) - (model.size() > 3 ? 2 : 0);
            array.resize(wanted);
            model.resize(wanted);
            break;
        }
        case 2:
            if (below(20) == 0) {
                array.clear();
                model.clear();
            }
            break;
        case 3:
            if (!model.empty()) {
                array.pop_back();
                model.pop_back();
            }
            break;
        case 4:
            if (!model.empty()) {
                // One of its own elements.
                const std::size_t chosen = below(model.size());
                array.push_back(array[chosen]);
                model.push_back(Variable(model[chosen]));
            }
            break;
        case 5:
        case 6:
        case 7:
        case 8: {
            const std::size_t at = place(model.size() + 1);
            array.insert(array.begin() + at, value);
            model.insert(model.begin() + offset(at), value);
            break;
        }
        case 9:
        case 10:
        case 11:
        case 12:
        case 13:
            if (!model.empty()) {
                const std::size_t at = place(model.size());
                array.erase(array.begin() + at);
                model.erase(model.begin() + offset(at));
            }
            break;
        default:
            array.push_back(value);
            model.push_back(value);
            break;
    }
}

TEST(ArrayStorage, IsAVectorInContentAndCapacity) {
    std::mt19937 random(7);
    for (unsigned front = 0; front <= 10; front += 2) {
        ArrayStorage array;
        Model model;
        for (int step = 0; step < 4000; ++step) {
            change(array, model, random, front);
            expectSame(array, model);
            if (testing::Test::HasFatalFailure()) return;
        }
    }
}

TEST(ArrayStorage, CopiesAreExact) {
    ArrayStorage array{Variable::makeInt(1), Variable("two"), Variable::makeInt(3)};
    array.reserve(100);
    array.erase(array.begin());
    const ArrayStorage copy(array);
    EXPECT_EQ(copy.capacity(), 2U);
    array[0] = Variable("other");
    EXPECT_EQ(copy[0].toString(), "two");
    const ArrayStorage taken(std::move(array));
    EXPECT_EQ(taken.size(), 2U);
    EXPECT_EQ(taken[0].toString(), "other");
}

/// How often the elements move, with `steps` additions and removals in turn at `length` elements.
template <class Step>
std::size_t movesOf(std::size_t length, std::size_t room, std::size_t steps, Step step) {
    ArrayStorage array;
    array.reserve(length + room);
    for (std::size_t i = 0; i < length; ++i) array.push_back(Variable::makeInt(0));
    std::size_t moves = 0;
    for (std::size_t i = 0; i < steps; ++i) {
        // An element in the middle, which nothing but a move of all gives another address.
        const std::size_t middle = length / 2;
        const Variable* const before = &array[middle];
        const std::ptrdiff_t shift = step(array, i);
        if (&array[middle] + shift != before) ++moves;
    }
    return moves;
}

TEST(ArrayStorage, AQueueMovesItsElementsSeldom) {
    const auto queue = [](ArrayStorage& array, std::size_t i) {
        array.push_back(Variable::makeInt(static_cast<int>(i)));
        array.erase(array.begin());
        return std::ptrdiff_t{-1};
    };
    // However full the array is.
    for (const std::size_t room : {std::size_t{1}, std::size_t{20}, std::size_t{500}}) {
        EXPECT_LE(movesOf(1000, room, 10000, queue), 25U) << room;
    }
}

TEST(ArrayStorage, AStackAtTheFrontMovesItsElementsSeldom) {
    for (const std::size_t room : {std::size_t{0}, std::size_t{1}, std::size_t{500}}) {
        EXPECT_LE(movesOf(1000, room, 10000,
                          [](ArrayStorage& array, std::size_t i) {
                              array.insert(array.begin(), Variable::makeInt(static_cast<int>(i)));
                              return std::ptrdiff_t{1};
                          }),
                  25U)
            << room;
    }
}

TEST(ArrayStorage, RefusesWhatNoMemoryHas) {
    ArrayStorage array{Variable::makeInt(1)};
    EXPECT_THROW(array.reserve(ArrayStorage::max_size() + 1), std::bad_alloc);
    EXPECT_THROW(array.resize(ArrayStorage::max_size() + 1), std::bad_alloc);
    EXPECT_EQ(array.size(), 1U);
    EXPECT_EQ(array[0].toString(), "1");
}

}  // namespace
