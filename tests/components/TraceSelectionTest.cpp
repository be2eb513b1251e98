#include "segy/TraceSelection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdexcept>
#include <string>
#include <vector>

using namespace VORN;
using ::testing::ElementsAre;

namespace {

// In a file of ten traces, fldr counts from 100 by fives, and cdp is 7 or 8 by turns.
constexpr int64_t traces = 10;

int32_t wordOf(int64_t index, const HeaderWord& word)
{
    const auto number = static_cast<int32_t>(index);
    return word.key == std::string("fldr") ? 100 + number / 5 : 7 + number % 2;
}

// All of them, by walking.
std::vector<int64_t> selected(const TraceSelection& selection, int64_t count,
                              const TraceSelection::WordOf& wordOf)
{
    std::vector<int64_t> indices;
    for (int64_t i = selection.next(0, count, wordOf); i < count;
         i = selection.next(i + 1, count, wordOf))
        indices.push_back(i);
    return indices;
}

} // namespace

TEST(TraceSelectionTest, WithoutAConditionAllTracesAreWanted)
{
    const TraceSelection selection;
    EXPECT_TRUE(selection.isEmpty());
    EXPECT_EQ(selection.text(), "");
    EXPECT_THAT(selected(selection, 3, wordOf), ElementsAre(0, 1, 2));
}

TEST(TraceSelectionTest, NumbersOfTracesCountFromOne)
{
    TraceSelection selection;
    selection.add("traces", "1:10:4,2");
    EXPECT_THAT(selected(selection, traces, wordOf), ElementsAre(0, 1, 4, 8));
}

TEST(TraceSelectionTest, AllConditionsAreMetAtOnce)
{
    TraceSelection selection;
    selection.add("traces", "3:");
    selection.add("fldr", "100");
    selection.add("cdp", "8");
    EXPECT_FALSE(selection.isEmpty());
    EXPECT_EQ(selection.text(), "traces 3:, fldr 100, cdp 8");
    EXPECT_THAT(selected(selection, traces, wordOf), ElementsAre(3));
}

// Reading a header may cost a call of the operating system.
TEST(TraceSelectionTest, WordsOfTracesThatAreExcludedAlreadyAreNotRead)
{
    TraceSelection selection;
    selection.add("traces", "9:");
    selection.add("cdp", "7");
    std::vector<int64_t> read;
    const auto noting = [&](int64_t index, const HeaderWord& word) {
        read.push_back(index);
        return wordOf(index, word);
    };
    EXPECT_THAT(selected(selection, traces, noting), ElementsAre(8));
    EXPECT_THAT(read, ElementsAre(8, 9));
}

TEST(TraceSelectionTest, CountsWhatItWalks)
{
    for (const char* numbers : {"1:10", "1:10:4,2", "3:", "9:,9:", ":4", "11:", "2:8:3,1:9:2"}) {
        TraceSelection selection;
        selection.add("traces", numbers);
        EXPECT_EQ(selection.count(traces, wordOf),
                  static_cast<int64_t>(selected(selection, traces, wordOf).size()))
            << numbers;
        selection.add("cdp", "8");
        EXPECT_EQ(selection.count(traces, wordOf),
                  static_cast<int64_t>(selected(selection, traces, wordOf).size()))
            << numbers << " of cdp 8";
        selection.add("traces", "4:7");
        EXPECT_EQ(selection.count(traces, wordOf),
                  static_cast<int64_t>(selected(selection, traces, wordOf).size()))
            << numbers << " of cdp 8 and traces 4 to 7";
    }
    TraceSelection several;
    several.add("traces", "1:10:2");
    several.add("traces", "3:8");
    EXPECT_THAT(selected(several, traces, wordOf), ElementsAre(2, 4, 6));
}

// Of 10^15 traces, which no list would hold.
TEST(TraceSelectionTest, AnyNumberOfTracesIsCountedAtOnce)
{
    constexpr int64_t many = 1000000000000000;
    TraceSelection selection;
    selection.add("traces", "1:1000000000000,2000000000000::1000,7");
    EXPECT_EQ(selection.count(many, wordOf), 1000000000000 + 998000000001);
    EXPECT_EQ(selection.next(1000000000000, many, wordOf), 1999999999999);
    EXPECT_EQ(selection.next(many - 1, many, wordOf), many - 1);
}

TEST(TraceSelectionTest, SkippingIsWalkingManyTimes)
{
    for (const char* kind : {"", "traces", "both", "word"}) {
        TraceSelection selection;
        const std::string which = kind;
        if (which == "traces" || which == "both")
            selection.add("traces", "2:10");
        if (which == "both")
            selection.add("traces", "1:9:3,8");
        if (which == "word")
            selection.add("cdp", "8");
        const std::vector<int64_t> walked = selected(selection, traces, wordOf);
        ASSERT_GE(walked.size(), 3U) << kind;
        for (std::size_t from = 0; from < walked.size(); ++from) {
            for (std::size_t steps = 0; steps < 12; ++steps)
                EXPECT_EQ(selection.skip(walked[from], static_cast<int64_t>(steps), traces, wordOf),
                          from + steps < walked.size() ? walked[from + steps] : traces)
                    << kind << " " << from << " " << steps;
        }
    }
}

// Walking one by one would take hours.
TEST(TraceSelectionTest, TwoConditionsOnNumbersAreWalkedAsOne)
{
    constexpr int64_t many = 1000000000000;
    TraceSelection selection;
    selection.add("traces", "1:1000000000000:2");
    selection.add("traces", "1:1000000000000:3");
    EXPECT_EQ(selection.count(many, wordOf), 166666666667);
    EXPECT_EQ(selection.skip(0, 100000000000, many, wordOf), 600000000000);
    EXPECT_EQ(selection.text(), "traces 1:1000000000000:2, traces 1:1000000000000:3");
}

TEST(TraceSelectionTest, AnErrorNamesTheKeyAndAddsNothing)
{
    TraceSelection selection;
    try {
        selection.add("cdp", "5:x");
        ADD_FAILURE() << "it was accepted";
    } catch (const std::invalid_argument& error) {
        EXPECT_STREQ(error.what(),
                     "cdp: \"x\" in \"5:x\" is not a number; write numbers and ranges "
                     "as in 1:100:2,200");
    }
    EXPECT_TRUE(selection.isEmpty());
    EXPECT_EQ(selection.text(), "");
}
