// Where jobs are cut: every case is compared with what a look at all traces at once gives.
#include "parts/Cuts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <random>

using namespace host;
using ::testing::ElementsAre;

namespace {

std::pair<int64_t, int64_t> range(int64_t first, int64_t count)
{
    return {first, count};
}

// Traces with header words, and what is read of them.
class CutsTest : public ::testing::Test
{
protected:
    std::vector<std::pair<int64_t, int64_t>> cut(int64_t parts)
    {
        std::vector<std::pair<int64_t, int64_t>> ranges;
        for (const PlannedPart& part :
             cutsFor(traces(), parts, rules, width,
                     [this](const std::vector<PlannedPart>& wanted) { return read(wanted); }))
            ranges.emplace_back(part.first, part.count);
        return ranges;
    }

    int64_t traces() const { return static_cast<int64_t>(values.size() / width); }

    std::vector<double> read(const std::vector<PlannedPart>& ranges)
    {
        std::vector<double> given;
        int64_t end = -1;
        ++reads;
        for (const PlannedPart& one : ranges) {
            EXPECT_GT(one.first, end) << "ranges ascend and do not touch";
            EXPECT_GT(one.count, 0);
            EXPECT_LE(one.first + one.count, traces());
            end = one.first + one.count;
            tracesRead += one.count;
            const auto begin = values.begin() + one.first * static_cast<int64_t>(width);
            given.insert(given.end(), begin, begin + one.count * static_cast<int64_t>(width));
        }
        return given;
    }

    // Gathers of `length` traces.
    void addGathers(int gathers, int length)
    {
        for (int i = 0; i < gathers * length; ++i)
            values.push_back(i / length + 1.0);
    }

    // The same cuts by the definition: each share's end goes on to the next place that all rules
    // allow, and those that meet are one.
    std::vector<std::pair<int64_t, int64_t>> cutSlowly(int64_t parts) const
    {
        const int64_t all = traces();
        std::vector<bool> isAllowed(static_cast<std::size_t>(all), true);
        for (const CutRule& rule : rules) {
            int64_t run = 0;
            for (int64_t i = 1; i < all; ++i) {
                bool begins = false;
                for (const std::size_t column : rule.columns)
                    begins = begins || values[static_cast<std::size_t>(i) * width + column] !=
                                           values[static_cast<std::size_t>(i - 1) * width + column];
                run = begins ? i : run;
                const bool allowed = begins || (rule.block > 0 && (i - run) % rule.block == 0);
                isAllowed[static_cast<std::size_t>(i)] =
                    isAllowed[static_cast<std::size_t>(i)] && allowed;
            }
        }
        std::vector<std::pair<int64_t, int64_t>> ranges;
        const int64_t shares = std::max<int64_t>(1, std::min(parts, all));
        int64_t first = 0;
        for (int64_t share = 1; share < shares; ++share) {
            int64_t place = share * (all / shares) + std::min(share, all % shares);
            while (place < all && !isAllowed[static_cast<std::size_t>(place)])
                ++place;
            if (place > first && place < all) {
                ranges.emplace_back(first, place - first);
                first = place;
            }
        }
        ranges.emplace_back(first, all - first);
        return ranges;
    }

    std::size_t width = 1;
    std::vector<double> values;
    std::vector<CutRule> rules;
    int64_t reads = 0;
    int64_t tracesRead = 0;
};

} // namespace

TEST_F(CutsTest, SharesAreEqualWhereNothingIsKeptTogether)
{
    values.assign(10, 0);
    EXPECT_THAT(cut(3), ElementsAre(range(0, 4), range(4, 3), range(7, 3)));
    EXPECT_EQ(reads, 0) << "no header is needed";
}

TEST_F(CutsTest, ThereAreNoPartsWithoutTraces)
{
    values.assign(3, 0);
    EXPECT_THAT(cut(7), ElementsAre(range(0, 1), range(1, 1), range(2, 1)));
    values.clear();
    EXPECT_THAT(cut(7), ElementsAre(range(0, 0)));
}

TEST_F(CutsTest, ACutMovesOnToTheNextGather)
{
    addGathers(4, 10);
    rules = {{{0}, 0}};
    EXPECT_THAT(cut(2), ElementsAre(range(0, 20), range(20, 20)));
    EXPECT_THAT(cut(3), ElementsAre(range(0, 20), range(20, 10), range(30, 10)));
}

TEST_F(CutsTest, AGatherLongerThanAShareGivesFewerParts)
{
    addGathers(1, 100);
    values.insert(values.end(), 10, 7.0);
    rules = {{{0}, 0}};
    EXPECT_THAT(cut(5), ElementsAre(range(0, 100), range(100, 10)));
    values.resize(100);
    EXPECT_THAT(cut(5), ElementsAre(range(0, 100)));
}

TEST_F(CutsTest, AGatherIsCutAfterBlocksFromItsFirstTrace)
{
    values.assign(5, 1.0);
    values.insert(values.end(), 1000, 2.0);
    rules = {{{0}, 100}};
    EXPECT_THAT(cut(2), ElementsAre(range(0, 505), range(505, 500)));
    EXPECT_THAT(cut(4),
                ElementsAre(range(0, 305), range(305, 200), range(505, 300), range(805, 200)));
}

TEST_F(CutsTest, BlocksWithoutAWordCountFromTheFirstTraceOfAll)
{
    values.assign(1000, 0);
    rules = {{{}, 300}};
    EXPECT_THAT(cut(2), ElementsAre(range(0, 600), range(600, 400)));
    rules = {{{}, 0}};
    EXPECT_THAT(cut(2), ElementsAre(range(0, 1000))) << "all traces are one gather";
}

TEST_F(CutsTest, ValuesThatAreNotNumbersAreOneGather)
{
    values.assign(100, std::numeric_limits<double>::quiet_NaN());
    rules = {{{0}, 0}};
    EXPECT_THAT(cut(4), ElementsAre(range(0, 100)));
}

TEST_F(CutsTest, OnlyTracesAroundTheEndsOfSharesAreRead)
{
    addGathers(10000, 48);
    rules = {{{0}, 0}};
    const auto ranges = cut(100);
    EXPECT_EQ(ranges.size(), 100u);
    EXPECT_EQ(reads, 1);
    EXPECT_LE(tracesRead, 100 * 65);
}

TEST_F(CutsTest, ALongGatherIsReadOnceHoweverManySharesItHas)
{
    addGathers(1, 300000);
    rules = {{{0}, 1000}};
    EXPECT_EQ(cut(100), cutSlowly(100));
    EXPECT_LE(tracesRead, 330000);
    EXPECT_LE(reads, 20);
    tracesRead = 0;
    rules = {{{0}, 0}};
    EXPECT_THAT(cut(100), ElementsAre(range(0, 300000)));
    EXPECT_LE(tracesRead, 330000);
}

// Gathers of random lengths, up to three rules that look at different words or none.
TEST_F(CutsTest, RandomGathersAreCutAsTheDefinitionSays)
{
    std::mt19937 random(7);
    const auto draw = [&random](int least, int most) {
        return std::uniform_int_distribution<int>(least, most)(random);
    };
    for (int round = 0; round < 3000; ++round) {
        width = static_cast<std::size_t>(draw(1, 3));
        values.clear();
        const int all = draw(1, draw(1, 4) == 1 ? 2000 : 300);
        std::vector<double> current(width, 0);
        std::vector<int> longest(width);
        for (int& one : longest)
            one = draw(1, draw(1, 3) == 1 ? 500 : 20);
        for (int trace = 0; trace < all; ++trace) {
            for (std::size_t i = 0; i < width; ++i) {
                if (draw(1, longest[i]) == 1)
                    current[i] += draw(-1, 2); // which may change nothing
                values.push_back(current[i]);
            }
        }
        rules.clear();
        for (int rule = draw(0, 3); rule > 0; --rule) {
            CutRule one;
            for (std::size_t i = 0; i < width; ++i) {
                if (draw(1, 2) == 1)
                    one.columns.push_back(i);
            }
            if (draw(1, 2) == 1 || one.columns.empty())
                one.block = draw(1, draw(1, 2) == 1 ? 5 : 100);
            rules.push_back(one);
        }
        const int parts = draw(1, 64);
        ASSERT_EQ(cut(parts), cutSlowly(parts)) << "round " << round;
    }
}
