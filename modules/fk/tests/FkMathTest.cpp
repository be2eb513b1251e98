// The transform and the fan, against sums of the definition.
#include "../FkSpectrum.h"
#include "../FkTransform.h"
#include "../dip_fan.h"
#include "fast_length.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits>
#include <numbers>
#include <random>
#include <vector>

namespace {

constexpr double twoPi = 2 * std::numbers::pi;
constexpr double unlimited = std::numeric_limits<double>::infinity();

std::vector<double> noise(int count)
{
    std::mt19937 random(8);
    std::normal_distribution<double> normal;
    std::vector<double> values(static_cast<std::size_t>(count));
    std::generate(values.begin(), values.end(), [&] { return normal(random); });
    return values;
}

double energyOf(const std::vector<double>& values)
{
    double sum = 0;
    for (const double value : values)
        sum += value * value;
    return sum;
}

TEST(FastLengthTest, LengthsAreEvenAndHaveSmallFactors)
{
    const std::int64_t rows[][2] = {{0, 2},   {1, 2},   {2, 2},     {3, 4},       {7, 8},
                                    {11, 12}, {13, 16}, {101, 108}, {1025, 1080}, {15625, 16000}};
    for (const auto& row : rows)
        EXPECT_EQ(evenFastLength(row[0]), row[1]) << row[0];
}

TEST(FkTransformTest, ValuesAreThoseOfTheDefinition)
{
    const int traces = 5;
    const int samples = 11;
    const std::vector<double> gather = noise(traces * samples);
    FkTransform transform(traces, samples);
    ASSERT_GE(transform.columns(), 10);
    ASSERT_GE(transform.rows(), 16);

    transform.forward(gather.data(), traces);

    for (int m = -transform.columns() / 2; m < transform.columns() / 2; ++m) {
        for (int j = 0; j < transform.frequencies(); ++j) {
            std::complex<double> sum = 0;
            for (int i = 0; i < traces; ++i)
                for (int n = 0; n < samples; ++n)
                    sum += gather[static_cast<std::size_t>(i * samples + n)] *
                           std::polar(1.0,
                                      -twoPi * (static_cast<double>(j * n) / transform.rows() -
                                                static_cast<double>(m * i) / transform.columns()));
            EXPECT_NEAR(std::abs(transform.at(j, m) - sum), 0, 1e-11) << j << ' ' << m;
        }
    }
}

TEST(FkTransformTest, EnergyIsThatOfTheSamples)
{
    for (const int traces : {3, 4, 17, 60}) {
        for (const int samples : {1, 2, 50, 333}) {
            const std::vector<double> gather = noise(traces * samples);
            FkTransform transform(traces, samples);
            transform.forward(gather.data(), traces);
            EXPECT_NEAR(transform.energy() / energyOf(gather), 1, 1e-12)
                << traces << " traces of " << samples;
        }
    }
}

TEST(FkTransformTest, ThereAndBackNothingChanges)
{
    std::vector<double> gather = noise(7 * 40);
    const std::vector<double> before = gather;
    FkTransform transform(9, 40); // wider than it has to be

    transform.forward(gather.data(), 7);
    std::fill(gather.begin(), gather.end(), 0.0);
    transform.backward(gather.data(), 7);

    for (std::size_t i = 0; i < gather.size(); ++i)
        ASSERT_NEAR(gather[i], before[i], 1e-13) << i;
}

TEST(FkTransformTest, SizesAreKnownBeforehand)
{
    EXPECT_GT(FkTransform::bytesFor(100, 1000), 200 * 1500 * 8);
    EXPECT_LT(FkTransform::bytesFor(100, 1000), 200 * 1500 * 40);
    EXPECT_EQ(FkTransform::bytesFor(1 << 20, 1 << 20), -1);
}

TEST(DipFanTest, WeightsFollowTheDip)
{
    const DipFan pass{0.002, 0.004, 0.5, DipFan::Side::both, false};
    const struct
    {
        double dip;
        double weight;
    } rows[] = {{0, 0},     {0.001, 0},   {0.0015, 0.5}, {0.002, 1}, {0.003, 1},
                {0.004, 1}, {0.005, 0.5}, {0.006, 0},    {1, 0}};
    for (const auto& row : rows) {
        for (const double f : {10.0, 60.0}) {
            EXPECT_NEAR(pass.weight(f, row.dip * f), row.weight, 1e-12) << row.dip;
            EXPECT_NEAR(pass.weight(f, -row.dip * f), row.weight, 1e-12) << row.dip;
            DipFan reject = pass;
            reject.rejects = true;
            EXPECT_NEAR(reject.weight(f, row.dip * f), 1 - row.weight, 1e-12) << row.dip;
        }
    }
}

TEST(DipFanTest, SidesAndOpenEnds)
{
    const DipFan positive{0, 0.004, 0, DipFan::Side::positive, false};
    EXPECT_EQ(positive.weight(10, 0.03), 1);
    EXPECT_EQ(positive.weight(10, -0.03), 0);
    EXPECT_EQ(positive.weight(10, 0), 1);
    EXPECT_EQ(positive.weight(0, 0), 1);
    EXPECT_EQ(positive.weight(0, 0.1), 0);
    const DipFan slow{0.004, unlimited, 0.2, DipFan::Side::negative, false};
    EXPECT_EQ(slow.weight(10, -0.3), 1);
    EXPECT_EQ(slow.weight(0, -0.1), 1);
    EXPECT_EQ(slow.weight(10, 0.3), 0);
    EXPECT_EQ(slow.weight(0, 0), 0);
}

// A cosine of one frequency and wavenumber that the transform has.
TEST(FkSpectrumTest, AnEventIsOnItsSideAtItsFrequency)
{
    const int traces = 32;
    const int samples = 80;
    FkTransform transform(traces, samples); // 64 by 120
    ASSERT_EQ(transform.columns(), 64);
    ASSERT_EQ(transform.rows(), 120);
    std::vector<double> gather;
    for (int i = 0; i < traces; ++i)
        for (int n = 0; n < samples; ++n) // 30 Hz, 4 ms later from trace to trace
            gather.push_back(std::cos(twoPi * 30 * (n * 0.004 - i * 0.004)));
    transform.forward(gather.data(), traces);
    FkSpectrum spectrum(transform, 0.004, unlimited);
    spectrum.add(transform);

    double best = -1;
    double f = 0;
    double k = 0;
    const double width = (spectrum.right() - spectrum.left()) / spectrum.columns();
    const double height = (spectrum.top() - spectrum.bottom()) / spectrum.rows();
    for (int column = 0; column < spectrum.columns(); ++column) {
        for (int row = 0; row < spectrum.rows(); ++row) {
            if (spectrum.amplitude(column, row) <= best)
                continue;
            best = spectrum.amplitude(column, row);
            k = spectrum.left() + (column + 0.5) * width;
            f = spectrum.bottom() + (row + 0.5) * height;
        }
    }

    EXPECT_NEAR(f, 30, height / 2);
    EXPECT_NEAR(k, 0.12, width / 2);
    EXPECT_EQ(best, spectrum.greatest());
    EXPECT_NEAR(best, traces * samples / 2, 0.15 * traces * samples / 2);
}

TEST(FkSpectrumTest, CellsHaveTheRootOfTheMeanPowerOfAllGathers)
{
    FkTransform narrow(600, 3);
    FkTransform wide(700, 3);
    ASSERT_GT(narrow.columns(), 1024);
    std::vector<double> spike(700 * 3, 0.0);
    spike[0] = 3;
    narrow.forward(spike.data(), 600);
    FkSpectrum spectrum(narrow, 0.002, unlimited);
    EXPECT_LE(spectrum.columns(), 1024);
    spectrum.add(narrow);
    spike[0] = 4;
    wide.forward(spike.data(), 700);
    spectrum.add(wide);
    spectrum.add(wide);

    // 9 once, 16 twice, by the number of wavenumbers.
    for (int column = 0; column < spectrum.columns(); ++column)
        for (int row = 0; row < spectrum.rows(); ++row) {
            ASSERT_GT(spectrum.amplitude(column, row), std::sqrt(12.0)) << column;
            ASSERT_LT(spectrum.amplitude(column, row), std::sqrt(15.0)) << column;
        }
}

TEST(FkSpectrumTest, FrequenciesEndWhereTheyShould)
{
    FkTransform transform(4, 100); // 150 rows of 4 ms: 1.67 Hz
    const FkSpectrum spectrum(transform, 0.004, 50);
    EXPECT_EQ(spectrum.rows(), 31);
    EXPECT_NEAR(spectrum.top(), 50 + 0.5 / 0.6, 1e-9);
    EXPECT_NEAR(spectrum.bottom(), -0.5 / 0.6, 1e-9);
    EXPECT_NEAR(spectrum.left(), -0.5 - 0.5 / 8, 1e-12);
}

} // namespace
