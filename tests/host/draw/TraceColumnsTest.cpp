// Where traces stand across a section, with gaps between gathers.
#include "draw/TraceColumns.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace host;

namespace {

std::vector<double> lefts(const TraceColumns& columns, std::size_t traces)
{
    std::vector<double> places;
    for (std::size_t i = 0; i < traces; ++i)
        places.push_back(columns.left(i));
    return places;
}

} // namespace

TEST(TraceColumnsTest, WithoutGathersTracesShareTheWidth)
{
    const TraceColumns columns(100, 4);
    EXPECT_EQ(columns.spacing(), 25);
    EXPECT_EQ(columns.gathers(), 1u);
    EXPECT_THAT(lefts(columns, 4), testing::ElementsAre(0, 25, 50, 75));
    EXPECT_EQ(columns.centre(3), 87.5);
    EXPECT_EQ(columns.traceAt(0), 0u);
    EXPECT_EQ(columns.traceAt(74.9), 2u);
    EXPECT_EQ(columns.traceAt(75), 3u);
    EXPECT_EQ(columns.traceAt(100), 3u);
}

TEST(TraceColumnsTest, GathersStandApart)
{
    const TraceColumns columns(116, 5, {2, 3}); // two gaps of 8 points
    EXPECT_EQ(columns.spacing(), 20);
    EXPECT_EQ(columns.gap(), 8);
    EXPECT_THAT(lefts(columns, 5), testing::ElementsAre(0, 20, 48, 76, 96));
    EXPECT_EQ(columns.gathers(), 3u);
    EXPECT_EQ(columns.begin(1), 2u);
    EXPECT_EQ(columns.end(1), 3u);
    EXPECT_EQ(columns.end(2), 5u);
    EXPECT_EQ(columns.gatherOf(1), 0u);
    EXPECT_EQ(columns.gatherOf(2), 1u);
    EXPECT_EQ(columns.gatherOf(4), 2u);
}

TEST(TraceColumnsTest, NoTraceIsInAGap)
{
    const TraceColumns columns(116, 5, {2, 3});
    const struct
    {
        double x;
        std::optional<std::size_t> trace;
    } rows[] = {{39.9, 1}, {40.1, {}}, {47.9, {}}, {48.1, 2},
                {67.9, 2}, {72, {}},   {76.1, 3},  {115.9, 4}};
    for (const auto& row : rows)
        EXPECT_EQ(columns.traceAt(row.x), row.trace) << row.x;
}

TEST(TraceColumnsTest, GapsTakeAQuarterOfTheWidthAtMost)
{
    std::vector<std::size_t> starts;
    for (std::size_t i = 1; i < 51; ++i)
        starts.push_back(i * 2);
    const TraceColumns columns(400, 102, starts);
    EXPECT_EQ(columns.gap(), 2);
    EXPECT_DOUBLE_EQ(columns.spacing() * 102, 300);
}

TEST(TraceColumnsTest, GapsThatNobodyWouldSeeAreLeftOut)
{
    std::vector<std::size_t> starts;
    for (std::size_t i = 1; i < 1000; ++i)
        starts.push_back(i);
    const TraceColumns columns(800, 1000, starts);
    EXPECT_EQ(columns.gap(), 0);
    EXPECT_DOUBLE_EQ(columns.spacing(), 0.8);
    EXPECT_EQ(columns.gathers(), 1000u);
    EXPECT_EQ(columns.traceAt(799.9), 999u);
}
