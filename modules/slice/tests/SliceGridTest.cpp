// What slices keep of traces.
#include "../SliceGrid.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

TEST(SliceGridTest, NumbersHaveTheStepThatTheyShare)
{
    const LineNumbers numbers = LineNumbers::of({130, 100, 112});
    EXPECT_EQ(numbers.first, 100);
    EXPECT_EQ(numbers.step, 6);
    EXPECT_EQ(numbers.count, 6);
    EXPECT_EQ(numbers.at(5), 130);
    const LineNumbers one = LineNumbers::of({-7, -7});
    EXPECT_EQ(one.first, -7);
    EXPECT_EQ(one.step, 1);
    EXPECT_EQ(one.count, 1);
}

TEST(SliceGridTest, ALineKeepsTheFirstTraceOfANumber)
{
    LineSlice line;
    EXPECT_TRUE(line.isEmpty());
    EXPECT_TRUE(line.add(9, std::vector<float>{1, 2}));
    EXPECT_TRUE(line.add(3, std::vector<float>{3, 4}));
    EXPECT_FALSE(line.add(9, std::vector<float>{5, 6}));
    EXPECT_THAT(*line.trace(9), ElementsAre(1, 2));
    EXPECT_EQ(line.trace(6), nullptr);
    EXPECT_EQ(line.numbers().step, 6);
    EXPECT_THAT(line.values(), UnorderedElementsAre(1, 2, 3, 4));
}

TEST(SliceGridTest, TimesKeepTheirSamplesByPlace)
{
    TimeSlices slices(2);
    for (int i = 0; i < 50; ++i)
        for (int x = -20; x < 20; ++x)
            ASSERT_TRUE(slices.add(2 * i, 5 * x,
                                   {static_cast<float>(100 * i + x), static_cast<float>(-i)}));
    EXPECT_FALSE(slices.add(0, 0, {1, 1}));
    EXPECT_EQ(slices.traces(), 2000U);
    EXPECT_EQ(slices.inlines().step, 2);
    EXPECT_EQ(slices.inlines().count, 50);
    EXPECT_EQ(slices.crosslines().first, -100);
    EXPECT_EQ(slices.crosslines().count, 40);
    for (int i = 0; i < 50; ++i) {
        for (int x = -20; x < 20; ++x) {
            ASSERT_EQ(slices.at(0, 2 * i, 5 * x), static_cast<float>(100 * i + x));
            ASSERT_EQ(slices.at(1, 2 * i, 5 * x), static_cast<float>(-i));
        }
    }
    EXPECT_TRUE(std::isnan(slices.at(0, 1, 0)));
    EXPECT_EQ(slices.valuesOf(1).size(), 2000U);
}

} // namespace
