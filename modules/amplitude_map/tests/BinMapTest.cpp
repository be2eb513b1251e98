// The bins of a map, against sums over all positions.
#include "../BinMap.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <stdexcept>

namespace {

using testing::DoubleEq;
using testing::HasSubstr;
using testing::ThrowsMessage;

using Pair = std::array<double, 2>;

constexpr auto coordinates = BinMap::Choice::coordinates;
constexpr auto numbers = BinMap::Choice::numbers;

void allowAll(std::int64_t) {}

TEST(BinMapTest, BinsSumWhatLiesWithinTheirEdges)
{
    std::mt19937 random(3);
    std::uniform_real_distribution<double> place(-50, 80);
    std::vector<Pair> places;
    BinMap map(coordinates, Pair{7, 3}, Pair{1.5, -2});
    for (int i = 0; i < 2000; ++i) {
        places.push_back({place(random), place(random)});
        ASSERT_TRUE(map.add(places.back()[0], places.back()[1], i, 2));
    }

    const BinGrid grid = map.grid(1000, allowAll);

    std::int64_t total = 0;
    for (std::int64_t column = 0; column < grid.count[0]; ++column) {
        for (std::int64_t row = 0; row < grid.count[1]; ++row) {
            const double x = grid.axes[0].origin + 7.0 * static_cast<double>(column);
            const double y = grid.axes[1].origin + 3.0 * static_cast<double>(row);
            std::int64_t traces = 0;
            double sum = 0;
            double least = 1e9;
            double greatest = -1e9;
            for (int i = 0; i < 2000; ++i) {
                const Pair& one = places[static_cast<std::size_t>(i)];
                if (one[0] < x - 3.5 || one[0] >= x + 3.5 || one[1] < y - 1.5 || one[1] >= y + 1.5)
                    continue;
                ++traces;
                sum += i;
                least = std::min<double>(least, i);
                greatest = std::max<double>(greatest, i);
            }
            const Bin* bin = grid.at(column, row);
            ASSERT_EQ(bin != nullptr, traces > 0) << column << ' ' << row;
            if (bin == nullptr)
                continue;
            EXPECT_EQ(bin->traces, traces);
            EXPECT_DOUBLE_EQ(bin->mean(), sum / (2 * static_cast<double>(traces)));
            EXPECT_EQ(bin->least, least);
            EXPECT_EQ(bin->greatest, greatest);
            total += bin->traces;
        }
    }
    EXPECT_EQ(total, 2000);
    EXPECT_DOUBLE_EQ(std::remainder(grid.axes[0].origin - 1.5, 7), 0);
    EXPECT_DOUBLE_EQ(std::remainder(grid.axes[1].origin + 2, 3), 0);
}

TEST(BinMapTest, WithoutAnOriginTheFirstPositionIsAMiddle)
{
    BinMap map(coordinates, Pair{10, 10}, {});
    map.add(104, 57, 1, 1);
    map.add(99.5, 57, 1, 1); // within half a bin
    map.add(98.9, 57, 1, 1); // not any more

    const BinGrid grid = map.grid(100, allowAll);

    ASSERT_EQ(grid.count[0], 2);
    EXPECT_EQ(grid.axes[0].origin, 94);
    EXPECT_EQ(grid.at(0, 0)->traces, 1);
    EXPECT_EQ(grid.at(1, 0)->traces, 2);
}

TEST(BinMapTest, NumbersGetABinForEachOfTheirSteps)
{
    BinMap map(numbers, {}, {});
    for (const int inlineNumber : {108, 100, 102, 106})
        for (const int crossline : {-6, 3, 0, 9})
            map.add(crossline, inlineNumber, 1, 1);

    const BinGrid grid = map.grid(100, allowAll);

    EXPECT_EQ(grid.axes[0].size, 3);
    EXPECT_EQ(grid.axes[0].origin, -6);
    EXPECT_EQ(grid.count[0], 6);
    EXPECT_EQ(grid.axes[1].size, 2);
    EXPECT_EQ(grid.count[1], 5);
    EXPECT_EQ(grid.at(1, 0), nullptr); // crossline -3
    EXPECT_EQ(grid.at(5, 4)->traces, 1);
}

TEST(BinMapTest, NumbersBeyondThePictureShareBins)
{
    BinMap map(numbers, {}, {});
    for (int i = 0; i < 1000; ++i)
        map.add(i, 1, 1, 1);

    const BinGrid grid = map.grid(300, allowAll);

    EXPECT_EQ(grid.axes[0].size, 4);
    EXPECT_LE(grid.count[0], 300);
    EXPECT_EQ(grid.at(1, 0)->traces, 4);
}

TEST(BinMapTest, ChosenBinsOfNumbersNeverExceedThePicture)
{
    for (int last = 0; last < 60; ++last) {
        BinMap map(numbers, {}, {});
        for (int i = 0; i <= last; ++i)
            map.add(i, 1, 1, 1);
        const BinGrid grid = map.grid(10, allowAll);
        EXPECT_LE(grid.count[0], 10) << last;
        EXPECT_EQ(grid.axes[0].size, last < 10 ? 1 : std::ceil((last + 0.5) / 9.5)) << last;
    }
}

TEST(BinMapTest, CoordinatesGetSquareBinsOfARoundSize)
{
    BinMap map(coordinates, {}, {});
    for (int i = 0; i <= 1700; ++i)
        map.add(600000 + i, 6000000 + i / 10.0, 1, 1);

    const BinGrid grid = map.grid(1000, allowAll);

    EXPECT_EQ(grid.axes[0].size, 20);
    EXPECT_EQ(grid.axes[1].size, 20);
    EXPECT_EQ(grid.count[0], 86);
    EXPECT_EQ(grid.count[1], 10);
}

// A grid of 25 m would have holes in bins of a hundredth of the map, which is 9 m.
TEST(BinMapTest, ARegularGridOfCoordinatesHasNoHoles)
{
    BinMap map(coordinates, {}, {});
    for (int i = 0; i < 20; ++i)
        for (int j = 0; j < 36; ++j)
            map.add(25 * i, 25 * j, 1, 1);

    const BinGrid grid = map.grid(1000, allowAll);

    EXPECT_EQ(grid.axes[0].size, 50);
    EXPECT_EQ(static_cast<std::int64_t>(grid.bins.size()), grid.count[0] * grid.count[1]);
}

TEST(BinMapTest, AlonePositionIsAMapOfOneBin)
{
    BinMap map(coordinates, {}, {});
    map.add(5, 6, 2, 1);
    const BinGrid grid = map.grid(10, allowAll);
    EXPECT_EQ(grid.count, (std::array<std::int64_t, 2>{1, 1}));
    EXPECT_EQ(grid.at(0, 0)->mean(), 2);
}

TEST(BinMapTest, StepsAndRoundSizes)
{
    EXPECT_EQ(commonStep({10, 4, 22}), 6);
    EXPECT_EQ(commonStep({7, 7}), 1);
    EXPECT_EQ(commonStep({1, 2.5}), 0);
    EXPECT_EQ(commonStep({1, 1e17}), 0);
    const double rows[][2] = {{1, 1},       {1.01, 2}, {2.1, 5}, {5.1, 10},
                              {0.03, 0.05}, {0, 1},    {-2, 1}};
    for (const auto& row : rows)
        EXPECT_DOUBLE_EQ(roundUp(row[0]), row[1]) << row[0];
}

TEST(BinMapTest, PositionsWithoutANumberAreRefused)
{
    BinMap map(coordinates, Pair{1, 1}, {});
    EXPECT_TRUE(map.add(0, 0, 1, 1));
    EXPECT_FALSE(map.add(2e9, 0, 1, 1));
    EXPECT_FALSE(map.add(NAN, 0, 1, 1));
    EXPECT_EQ(map.size(), 1U);
}

TEST(BinMapTest, TooManyBinsAreNamed)
{
    BinMap map(coordinates, Pair{1, 2}, {});
    map.add(0, 0, 1, 1);
    map.add(500, 30, 1, 1);
    EXPECT_THAT([&] { map.grid(100, allowAll); },
                ThrowsMessage<std::runtime_error>(
                    HasSubstr("with bins of 1 by 2, the map has 501 by 16 of them, and at most "
                              "100 are drawn")));
}

TEST(BinMapTest, MemoryIsAskedForWhileBinsAreMade)
{
    BinMap map(numbers, {}, {});
    for (int i = 0; i < 3000; ++i)
        map.add(i, 1, 1, 1);
    std::int64_t greatest = 0;
    map.grid(4000, [&](std::int64_t bytes) { greatest = std::max(greatest, bytes); });
    EXPECT_GE(greatest, 2048 * 96 + 3000 * 32);
}

} // namespace
