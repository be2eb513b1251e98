#include "sampling/SincInterpolator.h"

#include <cmath>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <numbers>
#include <vector>

namespace {

using sampling::SincInterpolator;
using testing::Each;
using testing::ElementsAre;

// A pulse that is nearly band-limited below half of the Nyquist frequency and zero at its ends, as
// it is at any time in samples.
double pulse(double position)
{
    const double from = position - 100.3;
    return std::exp(-from * from / 200) * std::cos(0.25 * std::numbers::pi * from + 0.4);
}

std::vector<double> pulses(int count)
{
    std::vector<double> samples;
    for (int i = 0; i < count; ++i)
        samples.push_back(pulse(i));
    return samples;
}

std::vector<double> shifted(const std::vector<double>& samples, double shift)
{
    std::vector<double> moved(samples.size(), 77);
    SincInterpolator::shift(samples.data(), static_cast<int>(samples.size()), shift, moved.data());
    return moved;
}

TEST(SincInterpolatorTest, AShiftedPulseIsThePulseAtOtherTimes)
{
    const std::vector<double> samples = pulses(201);
    for (const double shift : {0.5, -0.5, 0.001, 3.3, -7.75, 40.2, -40.9}) {
        const std::vector<double> moved = shifted(samples, shift);
        for (int i = 0; i < 201; ++i)
            EXPECT_NEAR(moved[static_cast<std::size_t>(i)], pulse(i - shift), 2e-4)
                << "sample " << i << " shifted by " << shift;
    }
}

TEST(SincInterpolatorTest, ShiftsByWholeSamplesCopy)
{
    const std::vector<double> samples = {1, 2, 3, 4};

    EXPECT_THAT(shifted(samples, 0), ElementsAre(1, 2, 3, 4));
    EXPECT_THAT(shifted(samples, 1), ElementsAre(0, 1, 2, 3));
    EXPECT_THAT(shifted(samples, -3), ElementsAre(4, 0, 0, 0));
    EXPECT_THAT(shifted(samples, 4), Each(0));
    EXPECT_THAT(shifted(samples, -5), Each(0));
    EXPECT_THAT(shifted(samples, 2 + 1e-12), ElementsAre(0, 0, 1, 2));
}

TEST(SincInterpolatorTest, NothingWrapsAround)
{
    std::vector<double> samples(200, 0);
    samples[198] = 1;

    const std::vector<double> later = shifted(samples, 60.5);
    const std::vector<double> earlier = shifted(samples, -0.5);

    EXPECT_THAT(later, Each(0));
    for (int i = 0; i < 150; ++i)
        EXPECT_EQ(earlier[static_cast<std::size_t>(i)], 0);
}

TEST(SincInterpolatorTest, ShiftsBeyondTheTraceLeaveZeros)
{
    for (const double shift : {1e3, -1e3, 1e300, -1e300, HUGE_VAL, std::nan("")})
        EXPECT_THAT(shifted({1, 2, 3}, shift), Each(0)) << shift;
}

TEST(SincInterpolatorTest, ShiftAndItsReverseGiveThePulseBack)
{
    const std::vector<double> samples = pulses(201);
    const std::vector<double> back = shifted(shifted(samples, 5.37), -5.37);
    for (std::size_t i = 0; i < samples.size(); ++i)
        EXPECT_NEAR(back[i], samples[i], 2e-4);
}

TEST(SincInterpolatorTest, WavesUpTo90PercentOfNyquistAreInterpolated)
{
    const SincInterpolator interpolator;
    for (const double part : {0.0, 0.1, 0.5, 0.8, 0.9}) {
        std::vector<double> samples;
        for (int i = 0; i < 400; ++i)
            samples.push_back(std::cos(part * std::numbers::pi * i + 0.2));
        for (double position = 60; position < 340; position += 0.137)
            EXPECT_NEAR(interpolator.at(samples.data(), 400, position),
                        std::cos(part * std::numbers::pi * position + 0.2), 3e-4)
                << position << " of " << part;
    }
}

TEST(SincInterpolatorTest, AtASampleTheValueIsThatSample)
{
    const SincInterpolator interpolator;
    const std::vector<double> samples = {3, -1, 4};

    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(interpolator.at(samples.data(), 3, i), samples[static_cast<std::size_t>(i)]);
}

TEST(SincInterpolatorTest, FarFromTheTraceThereIsNothing)
{
    const SincInterpolator interpolator;
    const std::vector<double> samples = {3, -1, 4};

    for (const double position : {-30.0, 40.0, 1e300, -1e300, std::nan("")})
        EXPECT_EQ(interpolator.at(samples.data(), 3, position), 0) << position;
}

} // namespace
