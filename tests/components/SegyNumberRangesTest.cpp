#include "segy/NumberRanges.h"

#include <gtest/gtest.h>
#include <stdexcept>

using VORN::NumberRanges;

namespace {

// The numbers from -3 to 12 that a selection contains.
std::string contained(const std::string& text)
{
    const NumberRanges ranges(text);
    std::string numbers;
    for (int i = -3; i <= 12; ++i) {
        if (ranges.contains(i))
            numbers += (numbers.empty() ? "" : " ") + std::to_string(i);
    }
    return numbers;
}

} // namespace

TEST(SegyNumberRangesTest, ListsAndRangesContainWhatTheySay)
{
    struct Row
    {
        const char* text;
        const char* contains;
    };
    const Row rows[] = {{"5", "5"},
                        {"1:4", "1 2 3 4"},
                        {"1:10:3", "1 4 7 10"},
                        {"1:9:3", "1 4 7"},
                        {"1:3,8,10:11", "1 2 3 8 10 11"},
                        {"3:5,4:6", "3 4 5 6"},
                        {"10:", "10 11 12"},
                        {"8::2", "8 10 12"},
                        {":-2", "-3 -2"},
                        {"-2:1", "-2 -1 0 1"},
                        {" 1 : 2 , 4 ", "1 2 4"},
                        {"4:4", "4"},
                        {"9000000000:", ""}};
    for (const Row& row : rows)
        EXPECT_EQ(contained(row.text), row.contains) << row.text;
}

TEST(SegyNumberRangesTest, NothingAboveTheGreatestIsContained)
{
    EXPECT_EQ(NumberRanges("5").greatest(), 5);
    EXPECT_EQ(NumberRanges("8:9,1:4").greatest(), 9);
    EXPECT_GT(NumberRanges("10:").greatest(), 1000000000000);
    EXPECT_LT(NumberRanges().greatest(), 0);
}

TEST(SegyNumberRangesTest, NothingAtAllContainsNothing)
{
    EXPECT_FALSE(NumberRanges().contains(0));
}

// Against `contains`, number by number.
TEST(SegyNumberRangesTest, WalkingMeetsEachNumberOnce)
{
    for (const char* text :
         {"5", "1:20", "3:40:7", "1:30:4,2", "1:30:4,2:30:6", "10:20,15:40", "30:,1:9:3", ":12",
          "1:50:5,20:30,48:49", "-5:5:5", "7,7,7", "1:40:3,1:40:3"})
    {
        SCOPED_TRACE(text);
        const NumberRanges ranges(text);
        std::vector<int64_t> expected;
        for (int64_t number = -10; number <= 60; ++number) {
            if (ranges.contains(number))
                expected.push_back(number);
        }
        std::vector<int64_t> walked;
        for (auto number = ranges.next(-10); number && *number <= 60;
             number = ranges.next(*number + 1))
            walked.push_back(*number);
        EXPECT_EQ(walked, expected);
        EXPECT_EQ(ranges.count(-10, 60), static_cast<int64_t>(expected.size()));
        for (std::size_t i = 0; i < expected.size(); ++i) {
            EXPECT_EQ(ranges.count(expected[i], expected.back()),
                      static_cast<int64_t>(expected.size() - i));
            for (std::size_t k = i; k < expected.size(); ++k)
                EXPECT_EQ(ranges.skip(expected[i], static_cast<int64_t>(k - i)), expected[k]);
        }
    }
    EXPECT_EQ(NumberRanges("3:9:3").next(10), std::nullopt);
    EXPECT_EQ(NumberRanges("3:9:3").skip(6, 2), std::nullopt);
    EXPECT_EQ(NumberRanges().next(0), std::nullopt);
    EXPECT_EQ(NumberRanges("5:").next(INT64_MAX), INT64_MAX);
    EXPECT_EQ(NumberRanges("5:").skip(INT64_MAX, 1), std::nullopt);
    EXPECT_EQ(NumberRanges("5::10").next(INT64_MAX), std::nullopt);
    EXPECT_EQ(NumberRanges("1:9223372036854775807").count(1, INT64_MAX), INT64_MAX);
}

TEST(SegyNumberRangesTest, CommonNumbersAreThoseOfBoth)
{
    const char* lists[] = {
        "1:40",   "5:",        ":17",           "1:40:3",  "2:60:5",
        "3,9,27", "4:20:2,31", "1:60:6,2:60:9", "10:50:7", "0:9223372036854775807:4",
        "90:100"};
    for (const char* one : lists) {
        for (const char* other : lists) {
            const NumberRanges a{std::string(one)};
            const NumberRanges b{std::string(other)};
            const NumberRanges both = a.common(b);
            int64_t expected = 0;
            for (int64_t number = -5; number < 70; ++number) {
                const bool isBoth = a.contains(number) && b.contains(number);
                EXPECT_EQ(both.contains(number), isBoth)
                    << one << " and " << other << ": " << number;
                expected += isBoth ? 1 : 0;
            }
            EXPECT_EQ(both.count(-5, 69), expected) << one << " and " << other;
        }
    }
}

TEST(SegyNumberRangesTest, CommonNumbersOfLongStepsAreFoundAtOnce)
{
    const NumberRanges a{std::string("1:9223372036854775807:1000000007")};
    const NumberRanges b{std::string("1:9223372036854775807:998244353")};
    const NumberRanges both = a.common(b);
    EXPECT_EQ(both.next(0), 1);
    EXPECT_EQ(both.next(2), 1 + int64_t{1000000007} * 998244353);
    const NumberRanges wide{std::string("1:9223372036854775807:4611686018427387905")};
    EXPECT_EQ(wide.common(NumberRanges(std::string("1::3"))).count(0, 4611686018427387904), 1);
}

TEST(SegyNumberRangesTest, WhatCannotBeReadIsNamed)
{
    struct Row
    {
        const char* text;
        const char* says;
    };
    const Row rows[] = {{"", "\"\" in \"\" is not a number"},
                        {"1,,2", "is not a number"},
                        {"x", "\"x\" in \"x\" is not a number"},
                        {"1:2x", "\"2x\" in \"1:2x\" is not a number"},
                        {"1.5", "is not a number"},
                        {"99999999999999999999", "is not a number"},
                        {"1:2:3:4", "\"1:2:3:4\" has more than FIRST:LAST:STEP"},
                        {"1:9:0", "the step of \"1:9:0\" is below 1"},
                        {"1:9:-1", "the step of \"1:9:-1\" is below 1"},
                        {":9:2", "\":9:2\" has a step and no first number"},
                        {"9:1", "\"9:1\" ends before it begins"}};
    for (const Row& row : rows) {
        try {
            NumberRanges ranges{std::string(row.text)};
            ADD_FAILURE() << row.text << " is taken";
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find(row.says), std::string::npos) << error.what();
        }
    }
}
