#include "../distributions.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <gmock/gmock.h>
#include <random>

namespace {

using testing::Each;
using testing::ElementsAre;

// Of both signs and of all magnitudes that floats have.
std::vector<float> manySamples()
{
    std::mt19937 numbers(7);
    std::vector<float> samples;
    for (int i = 0; i < 20001; ++i) {
        const int exponent = static_cast<int>(numbers() % 250) - 126;
        const float mantissa = 1 + static_cast<float>(numbers() % 8388608) / 8388608;
        samples.push_back(std::ldexp(numbers() % 2 == 0 ? mantissa : -mantissa, exponent));
    }
    return samples;
}

TEST(DistributionsTest, PercentilesOfSamplesAreThoseOfTheSortedOnes)
{
    SampleDistribution distribution;
    std::vector<double> sorted;
    for (const float sample : manySamples()) {
        distribution.add(sample);
        sorted.push_back(std::abs(sample));
    }
    std::sort(sorted.begin(), sorted.end());
    for (const double percent : {0.0, 0.1, 25.0, 50.0, 99.0, 99.9, 99.99, 100.0}) {
        const double exact = sorted[static_cast<std::size_t>(std::lround(200 * percent))];
        EXPECT_NEAR(distribution.percentile(percent), exact, exact / 4096) << percent;
    }
    EXPECT_EQ(distribution.percentile(100), sorted.back());
}

TEST(DistributionsTest, ExtremeSamplesAreCounted)
{
    SampleDistribution distribution;
    for (const float sample : {FLT_MAX, -FLT_MAX, FLT_TRUE_MIN, -FLT_TRUE_MIN, 0.0F, -0.0F})
        distribution.add(sample);

    EXPECT_EQ(distribution.percentile(0), 0);
    EXPECT_EQ(distribution.percentile(100), FLT_MAX);
    EXPECT_EQ(distribution.statistics().least, -FLT_MAX);
    Bars bars = {-4e38, 4e38, std::vector<double>(2)};
    distribution.fill(bars);
    EXPECT_NEAR(bars.heights[0] + bars.heights[1], 6, 1e-9);
}

TEST(DistributionsTest, StatisticsAreThoseOfTheDefinition)
{
    ValueDistribution distribution;
    for (const double value : {3.0, -5.0, 4.0}) {
        distribution.add(value);
        distribution.endTrace();
    }

    const Statistics& all = distribution.statistics();
    EXPECT_EQ(all.count, 3);
    EXPECT_EQ(all.least, -5);
    EXPECT_EQ(all.greatest, 4);
    EXPECT_DOUBLE_EQ(all.mean(), 2.0 / 3);
    EXPECT_DOUBLE_EQ(all.rms(), std::sqrt(50.0 / 3));
    EXPECT_TRUE(all.areWhole);
    distribution.add(0.5);
    EXPECT_FALSE(distribution.statistics().areWhole);
    distribution.add(1e200);
    distribution.endTrace();
    EXPECT_EQ(all.rms(), HUGE_VAL);
}

TEST(DistributionsTest, BarsHoldTheSamplesBetweenTheirEdges)
{
    SampleDistribution distribution;
    std::mt19937 numbers(3);
    std::normal_distribution<float> normal(0, 1);
    std::vector<double> expected(40);
    double inside = 0;
    for (int i = 0; i < 100000; ++i) {
        const float sample = normal(numbers);
        distribution.add(sample);
        if (sample < -2 || sample >= 2)
            continue;
        ++expected[static_cast<std::size_t>((sample + 2) * 10)];
        ++inside;
    }
    Bars bars = {-2, 2, std::vector<double>(40)};

    distribution.fill(bars);

    // A class at an edge, of a width of 2 / 4096 at most, has about 20 samples here.
    double sum = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_NEAR(bars.heights[i], expected[i], 25) << i;
        sum += bars.heights[i];
    }
    EXPECT_NEAR(sum, inside, 5);
}

TEST(DistributionsTest, WholeNumbersAreCountedExactly)
{
    SampleDistribution samples;
    ValueDistribution values;
    for (const int value : {-3, -2, -2, 0, 1, 1, 1, 4}) {
        samples.add(static_cast<float>(value));
        values.add(value);
    }
    for (const Distribution* distribution :
         {static_cast<const Distribution*>(&samples), static_cast<const Distribution*>(&values)})
    {
        Bars bars = emptyBars(-3, 4, 100, true);
        distribution->fill(bars);
        EXPECT_THAT(bars.heights, ElementsAre(1, 2, 0, 1, 3, 0, 0, 1));
        bars = emptyBars(-3, 4, 3, true);
        distribution->fill(bars);
        EXPECT_THAT(bars.heights, ElementsAre(3, 4, 1));
    }
    EXPECT_EQ(values.percentile(50), 1) << "place 3.5 of 7, rounded up";
    EXPECT_EQ(values.percentile(0), -3);
}

TEST(DistributionsTest, WholeNumbersGetBarsOfWholeNumbers)
{
    const Bars bars = emptyBars(10, 19, 4, true);

    EXPECT_EQ(bars.left, 9.5);
    EXPECT_EQ(bars.right, 21.5);
    EXPECT_EQ(bars.heights.size(), 4U);
    EXPECT_EQ(emptyBars(7, 7, 100, true).heights.size(), 1U);
    EXPECT_EQ(emptyBars(7, 7, 100, true).width(), 1);
}

TEST(DistributionsTest, OneValueHasAPictureToo)
{
    const Bars bars = emptyBars(0.5, 0.5, 10, false);

    EXPECT_LT(bars.left, 0.5);
    EXPECT_GT(bars.right, 0.5);
    EXPECT_THAT(bars.heights, Each(0));
    EXPECT_EQ(emptyBars(0, 0, 10, false).right, 1);
}

} // namespace
