#include "FrontArray.h"

#include "TraceVerbs.h"

#include <deque>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

std::vector<int> elementsOf(const FrontArray<int>& array)
{
    return {array.begin(), array.end()};
}

FrontArray<int> arrayOf(int n)
{
    FrontArray<int> array;
    for (int i = 0; i < n; ++i)
        array.push_back(i);
    return array;
}

TEST(FrontArrayTest, NewArrayIsEmpty)
{
    const FrontArray<int> array;
    EXPECT_TRUE(array.empty());
    EXPECT_EQ(array.size(), 0u);
    EXPECT_TRUE(array.begin() == array.end());
}

TEST(FrontArrayTest, ElementsStandInTheOrderOfAppending)
{
    const FrontArray<int> array = arrayOf(4);
    EXPECT_THAT(elementsOf(array), ElementsAre(0, 1, 2, 3));
    EXPECT_EQ(array.front(), 0);
    EXPECT_EQ(array.back(), 3);
    EXPECT_EQ(array[2], 2);
    EXPECT_EQ(array.at(3), 3);
}

TEST(FrontArrayTest, CheckedAccessThrowsOutsideTheElements)
{
    FrontArray<int> array = arrayOf(3);
    array.pop_front();
    EXPECT_EQ(array.at(1), 2);
    EXPECT_THROW(array.at(2), std::out_of_range);
    EXPECT_THROW(array.at(static_cast<size_t>(-1)), std::out_of_range);
}

TEST(FrontArrayTest, ElementsAreCopiedAndComparedAsAVector)
{
    FrontArray<int> array = arrayOf(4);
    array.pop_front();
    const std::vector<int> copy = array;
    EXPECT_THAT(copy, ElementsAre(1, 2, 3));
    EXPECT_EQ(array, copy);
    EXPECT_NE(array, (std::vector<int>{1, 2}));
    EXPECT_NE(array, (std::vector<int>{1, 2, 4}));
    EXPECT_EQ(FrontArray<int>(), std::vector<int>());
    EXPECT_EQ(array, FrontArray<int>(array));
    EXPECT_NE(array, arrayOf(3));
}

TEST(FrontArrayTest, FirstElementLeavesAndIndexesMoveDown)
{
    FrontArray<int> array = arrayOf(3);
    array.pop_front();
    EXPECT_THAT(elementsOf(array), ElementsAre(1, 2));
    EXPECT_EQ(array[0], 1);
    array[0] = 9;
    EXPECT_EQ(array.front(), 9);
}

TEST(FrontArrayTest, ElementPutInFrontIsTheFirst)
{
    FrontArray<int> array;
    array.push_front(1);
    array.push_front(2);
    EXPECT_THAT(elementsOf(array), ElementsAre(2, 1));
    array.pop_front();
    array.push_front(3);
    EXPECT_THAT(elementsOf(array), ElementsAre(3, 1)) << "into the room that was left";
}

TEST(FrontArrayTest, AnyElementCanBeTakenOut)
{
    for (int taken = 0; taken < 4; ++taken) {
        SCOPED_TRACE(taken);
        FrontArray<int> array = arrayOf(5);
        array.pop_front();
        std::vector<int> expected = {1, 2, 3, 4};
        expected.erase(expected.begin() + taken);
        array.erase(array.begin() + taken);
        EXPECT_EQ(elementsOf(array), expected);
    }
}

TEST(FrontArrayTest, ClearedArrayIsUsableAgain)
{
    FrontArray<int> array = arrayOf(100);
    for (int i = 0; i < 40; ++i)
        array.pop_front();
    array.clear();
    EXPECT_TRUE(array.empty());
    array.push_back(7);
    EXPECT_THAT(elementsOf(array), ElementsAre(7));
}

TEST(FrontArrayTest, CopyIsIndependent)
{
    FrontArray<int> array = arrayOf(3);
    array.pop_front();
    FrontArray<int> copy = array;
    array.push_back(9);
    EXPECT_THAT(elementsOf(copy), ElementsAre(1, 2));
}

TEST(FrontArrayTest, AssignedArrayIsIndependent)
{
    FrontArray<int> array = arrayOf(3);
    FrontArray<int> copy = arrayOf(20);
    copy = array;
    array.pop_front();
    EXPECT_THAT(elementsOf(copy), ElementsAre(0, 1, 2));
}

TEST(FrontArrayTest, ElementOfTheArrayItselfCanBeAppended)
{
    FrontArray<int> array = arrayOf(1);
    for (int i = 0; i < 100; ++i)
        array.push_back(array.front());
    EXPECT_THAT(elementsOf(array), testing::Each(0));
    EXPECT_EQ(array.size(), 101u);
}

TEST(FrontArrayTest, BehavesLikeADequeUnderRandomOperations)
{
    for (unsigned seed = 1; seed <= 20; ++seed) {
        Dice dice(seed);
        FrontArray<int> array;
        std::deque<int> model;
        // Phases of growing and of draining, so that all lengths occur.
        for (int step = 0; step < 5000; ++step) {
            const bool growing = step / 500 % 2 == 0;
            const int what = dice.below(10);
            if (model.empty() || what < (growing ? 6 : 2)) {
                array.push_back(step);
                model.push_back(step);
            } else if (what == 6) {
                array.push_front(step);
                model.push_front(step);
            } else if (what == 7) {
                const int at = dice.below(static_cast<int>(model.size()));
                array.erase(array.begin() + at);
                model.erase(model.begin() + at);
            } else {
                array.pop_front();
                model.pop_front();
            }
            ASSERT_EQ(array.size(), model.size()) << "seed " << seed << ", step " << step;
            ASSERT_TRUE(std::equal(array.begin(), array.end(), model.begin(), model.end()))
                << "seed " << seed << ", step " << step;
            if (!model.empty()) {
                const int at = dice.below(static_cast<int>(model.size()));
                ASSERT_EQ(array[static_cast<size_t>(at)], model[static_cast<size_t>(at)]);
                ASSERT_EQ(array.front(), model.front());
                ASSERT_EQ(array.back(), model.back());
            }
        }
    }
}

TEST(FrontArrayTest, DrainingFromTheFrontCostsTheSameAmongMany)
{
    const auto costPerElement = [](int n) {
        FrontArray<int> array;
        return fastestRun([&] { array = arrayOf(n); },
                          [&] {
                              while (!array.empty())
                                  array.pop_front();
                          }) /
               n;
    };
    const double few = costPerElement(20000);
    const double many = costPerElement(2000000);
    EXPECT_LT(many, few * flatCost) << few << " s and " << many << " s";
}

// A queue that is never empty must not keep the room of all that went through it.
TEST(FrontArrayTest, PassingManyThroughCostsTheSameAsFew)
{
    const auto costPerElement = [](int waiting) {
        constexpr int passed = 1000000;
        FrontArray<int> array;
        return fastestRun([&] { array = arrayOf(waiting); },
                          [&] {
                              for (int i = 0; i < passed; ++i) {
                                  array.push_back(i);
                                  array.pop_front();
                              }
                          });
    };
    const double few = costPerElement(100);
    const double many = costPerElement(100000);
    EXPECT_LT(many, few * flatCost) << few << " s and " << many << " s";
}

} // namespace
