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

} // namespace

TEST(TraceSelectionTest, WithoutAConditionAllTracesAreWanted)
{
    const TraceSelection selection;
    EXPECT_TRUE(selection.isEmpty());
    EXPECT_EQ(selection.text(), "");
    EXPECT_THAT(selection.select(3, wordOf), ElementsAre(0, 1, 2));
}

TEST(TraceSelectionTest, NumbersOfTracesCountFromOne)
{
    TraceSelection selection;
    selection.add("traces", "1:10:4,2");
    EXPECT_THAT(selection.select(traces, wordOf), ElementsAre(0, 1, 4, 8));
}

TEST(TraceSelectionTest, AllConditionsAreMetAtOnce)
{
    TraceSelection selection;
    selection.add("traces", "3:");
    selection.add("fldr", "100");
    selection.add("cdp", "8");
    EXPECT_FALSE(selection.isEmpty());
    EXPECT_EQ(selection.text(), "traces 3:, fldr 100, cdp 8");
    EXPECT_THAT(selection.select(traces, wordOf), ElementsAre(3));
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
    EXPECT_THAT(selection.select(traces, noting), ElementsAre(8));
    EXPECT_THAT(read, ElementsAre(8, 9));
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
