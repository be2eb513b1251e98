#include "../sample_loops.h"
#include "KnownPasses.h"

#include <cmath>
#include <cstring>
#include <gmock/gmock.h>
#include <limits>
#include <random>

namespace {

using testing::ElementsAre;

constexpr float infinite = std::numeric_limits<float>::infinity();
constexpr float notANumber = std::numeric_limits<float>::quiet_NaN();
constexpr float smallest = std::numeric_limits<float>::denorm_min();
constexpr float largest = std::numeric_limits<float>::max();

TEST(SampleLoopsTest, CopyHasZerosForWhatIsNotFinite)
{
    const std::vector<float> from = {1,        infinite,  -2,      notANumber,
                                     smallest, -infinite, largest, -0.0F};
    std::vector<float> to(from.size(), 9);
    EXPECT_EQ(sample_loops_copy_finite(from.data(), 8, to.data()), 3);
    EXPECT_THAT(to, ElementsAre(1, 0, -2, 0, smallest, 0, largest, 0));
    EXPECT_TRUE(std::signbit(to[7]));
}

TEST(SampleLoopsTest, GreatestIsThatOfAbsoluteValues)
{
    const std::vector<float> values = {1, -3, 2, smallest};
    EXPECT_EQ(sample_loops_greatest(values.data(), 4), 3);
    EXPECT_EQ(sample_loops_greatest(values.data() + 3, 1), smallest);
    EXPECT_EQ(sample_loops_greatest(values.data(), 0), 0);
}

TEST(SampleLoopsTest, WeighMultipliesByBoth)
{
    std::vector<float> values = {1, 2, 3};
    const std::vector<float> weights = {1, 0.5F, 0};
    sample_loops_weigh(values.data(), weights.data(), 4, 3);
    EXPECT_THAT(values, ElementsAre(4, 4, 0));
}

TEST(SampleLoopsTest, SumsGetMultiplesOfTheUnit)
{
    const std::vector<float> values = {1, 2.5F, 0.25F};
    std::vector<double> sums = {10, 20, 30};
    // From 2^52 to 2^53, doubles are whole numbers; halves are rounded to even ones.
    sample_loops_add_rounded(values.data(), 3, 1, 0x1.8p52, sums.data());
    EXPECT_THAT(sums, ElementsAre(11, 22, 30));
}

TEST(SampleLoopsTest, AddCountsWhatIsNotZero)
{
    const std::vector<float> values = {1, 0, -0.0F, smallest, notANumber};
    std::vector<double> sums = {1, 2, 3, 4, 5};
    std::vector<int> live = {0, 1, 2, 3, 4};
    sample_loops_add(values.data(), 5, sums.data(), live.data());
    EXPECT_THAT(live, ElementsAre(1, 1, 2, 4, 5));
    EXPECT_THAT(sums, ElementsAre(2, 2, 3, 4 + static_cast<double>(smallest), testing::IsNan()));
}

TEST(SampleLoopsTest, BeyondCountsWhatIsNotZeroAndOutsideTheRange)
{
    const std::vector<double> values = {0, 1e-31, 1e-30, 1, 1e30, 1.1e30, 5e-324};
    EXPECT_EQ(sample_loops_beyond(values.data(), 7, 1e-30, 1e30), 3);
    EXPECT_EQ(sample_loops_beyond(values.data(), 1, 1e-30, 1e30), 0);
}

TEST(SampleLoopsTest, BalanceDividesByMeansOrTheirRoots)
{
    const std::vector<double> means = {4, 16, 0, 0};
    std::vector<float> samples = {2, 2, 0, infinite};
    sample_loops_balance(samples.data(), means.data(), 4, 3, 1);
    EXPECT_THAT(samples, ElementsAre(3, 1.5F, 0, infinite));
    samples = {2, 2, 0, -infinite};
    sample_loops_balance(samples.data(), means.data(), 4, 3, 0);
    EXPECT_THAT(samples, ElementsAre(1.5F, 0.375F, 0, -infinite));
}

// Any bits, in all numbers of samples that leave a rest.
TEST(SampleLoopsTest, AllWidthsOfVectorsGiveTheSameBits)
{
    std::mt19937 random(1);
    for (int count = 0; count < 300; ++count) {
        const auto size = static_cast<std::size_t>(count);
        std::vector<float> from(size);
        std::vector<float> weights(size);
        for (std::size_t i = 0; i < size; ++i) {
            const auto bits = static_cast<std::uint32_t>(random());
            std::memcpy(&from[i], &bits, sizeof bits);
            weights[i] = static_cast<float>(random()) * 0x1p-32F;
        }
        const auto results = [&](const transforms::Passes& loops) {
            std::vector<float> copy(size);
            std::vector<double> sums(size, 1e9);
            const int others = loops.copyFinite(from.data(), count, copy.data());
            const float most = loops.greatest(copy.data(), count);
            loops.weigh(copy.data(), weights.data(), 0.37F / std::max(most, 1e-30F), count);
            loops.addRounded(copy.data(), count, 1e7 / 3, 0x1.8p42, sums.data());
            std::vector<int> live(size, 7);
            loops.add(copy.data(), count, sums.data(), live.data());
            std::vector<double> means(copy.begin(), copy.end());
            for (double& value : means)
                value = value * value * 0x1p-20 + (value > 0 ? 1e-20 : 0);
            std::vector<double> all(sums);
            all.push_back(loops.beyond(means.data(), count, 1e-10, 1e-7));
            loops.balance(copy.data(), means.data(), count, 1.7F, count % 2 == 0);
            all.insert(all.end(), live.begin(), live.end());
            all.push_back(others);
            all.push_back(static_cast<double>(most));
            all.insert(all.end(), copy.begin(), copy.end());
            return all;
        };
        const std::vector<double> first = results(transforms::passesOfFour);
        for (const transforms::Passes* loops : knownPasses()) {
            const std::vector<double> result = results(*loops);
            ASSERT_EQ(std::memcmp(result.data(), first.data(), first.size() * sizeof(double)), 0)
                << count;
        }
    }
}

} // namespace
