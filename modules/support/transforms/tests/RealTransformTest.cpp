#include "../RealTransform.h"
#include "KnownPasses.h"

#include <cmath>
#include <complex>
#include <cstring>
#include <gmock/gmock.h>
#include <limits>
#include <numbers>
#include <random>
#include <string>
#include <vector>

namespace {

using testing::Each;
using transforms::Passes;
using transforms::RealTransform;

constexpr double pi = std::numbers::pi;

// Lengths with each radix behind the first pass, groups and strides that fill vectors and do not.
const std::vector<int> lengths = {32,  40,  48,  64,  72,   80,   96,   120,  128,  160,
                                  240, 360, 400, 512, 1000, 1200, 1440, 2000, 3000, 3072};

std::vector<float> noise(int count, unsigned seed)
{
    std::mt19937 random(seed);
    std::vector<float> values(static_cast<std::size_t>(count));
    for (float& value : values)
        value = static_cast<float>(random()) / 2147483648.0F - 1;
    return values;
}

// By its definition.
std::vector<std::complex<double>> spectrumOf(const std::vector<float>& values)
{
    const std::size_t count = values.size();
    std::vector<std::complex<double>> spectrum(count / 2 + 1);
    for (std::size_t k = 0; k < spectrum.size(); ++k)
        for (std::size_t i = 0; i < count; ++i)
            spectrum[k] += static_cast<double>(values[i]) *
                           std::polar(1.0, -2 * pi * static_cast<double>(i * k % count) /
                                               static_cast<double>(count));
    return spectrum;
}

double energyOf(const std::vector<float>& values)
{
    double sum = 0;
    for (const float value : values)
        sum += static_cast<double>(value) * static_cast<double>(value);
    return sum;
}

void fill(RealTransform& transform, const std::vector<float>& values)
{
    std::copy(values.begin(), values.end(), transform.values());
}

std::vector<float> amplitudesOf(RealTransform& transform)
{
    std::vector<float> amplitudes(static_cast<std::size_t>(transform.length()) / 2 + 1);
    transform.amplitudes(amplitudes.data());
    return amplitudes;
}

std::vector<float> filtered(RealTransform& transform, const RealTransform::Gains& gains)
{
    transform.filter(gains);
    return {transform.values(), transform.values() + transform.length()};
}

TEST(RealTransformTest, LengthsAreTheNextThatHaveTheFactors)
{
    const struct
    {
        std::int64_t least;
        int length;
    } rows[] = {{0, 32},
                {32, 32},
                {33, 40},
                {41, 48},
                {49, 64},
                {3000, 3000},
                {3001, 3072},
                {7, 32},
                {1 << 30, 1 << 30},
                {(1 << 30) + 1, 0},
                {std::int64_t{1} << 40, 0}};
    for (const auto& row : rows)
        EXPECT_EQ(RealTransform::lengthFor(row.least), row.length) << row.least;
}

TEST(RealTransformTest, AmplitudesAreThoseOfTheDefinition)
{
    for (const int length : lengths) {
        RealTransform transform(length);
        const std::vector<float> values = noise(length, 1);
        fill(transform, values);

        const std::vector<float> amplitudes = amplitudesOf(transform);

        const auto expected = spectrumOf(values);
        const double tolerance = 1e-6 * std::sqrt(length * energyOf(values) / length);
        for (std::size_t k = 0; k < expected.size(); ++k)
            ASSERT_NEAR(amplitudes[k], std::abs(expected[k]), 3 * tolerance)
                << length << " values, frequency " << k;
        EXPECT_EQ(std::memcmp(transform.values(), values.data(), values.size() * sizeof(float)), 0)
            << "the values stay";
    }
}

TEST(RealTransformTest, FilterMultipliesTheSpectrum)
{
    for (const int length : lengths) {
        RealTransform transform(length);
        const std::vector<float> values = noise(length, 2);
        std::vector<float> gains = noise(length / 2 + 1, 3);
        fill(transform, values);

        const std::vector<float> result =
            filtered(transform, RealTransform::Gains(transform, gains.data()));

        const auto before = spectrumOf(values);
        const auto after = spectrumOf(result);
        for (std::size_t k = 0; k < before.size(); ++k)
            ASSERT_NEAR(std::abs(after[k] - static_cast<double>(length) *
                                                static_cast<double>(gains[k]) * before[k]),
                        0, 2e-6 * length * std::sqrt(energyOf(values)))
                << length << " values, frequency " << k;
    }
}

TEST(RealTransformTest, EqualGainsKeepValues)
{
    RealTransform transform(3000);
    const std::vector<float> values = noise(3000, 4);
    const std::vector<float> gains(1501, 1.0F / 3000);
    fill(transform, values);

    const std::vector<float> result =
        filtered(transform, RealTransform::Gains(transform, gains.data()));

    for (std::size_t i = 0; i < values.size(); ++i)
        ASSERT_NEAR(result[i], values[i], 1e-6) << i;
}

TEST(RealTransformTest, ZerosStayZeros)
{
    RealTransform transform(1000);
    EXPECT_THAT(amplitudesOf(transform), Each(0.0F));
}

TEST(RealTransformTest, AllWidthsOfVectorsGiveTheSameBits)
{
    std::vector<int> many = lengths;
    for (int length = 3080; length < 5000; length += 8)
        if (RealTransform::lengthFor(length) == length)
            many.push_back(length);
    for (const int length : many) {
        std::vector<float> values = noise(length, 5);
        values[3] = 1e30F;
        values[5] = std::numeric_limits<float>::denorm_min();
        const std::vector<float> amplitudes = noise(length / 2 + 1, 6);
        std::vector<float> first[2];
        for (const Passes* passes : knownPasses()) {
            RealTransform transform(length);
            transform.use(*passes);
            const RealTransform::Gains gains(transform, amplitudes.data());
            fill(transform, values);
            const std::vector<float> results[2] = {amplitudesOf(transform),
                                                   filtered(transform, gains)};
            for (int i = 0; i < 2; ++i) {
                if (first[i].empty())
                    first[i] = results[i];
                ASSERT_EQ(std::memcmp(results[i].data(), first[i].data(),
                                      first[i].size() * sizeof(float)),
                          0)
                    << length << " values, result " << i;
            }
        }
    }
}

// FNV-1a of the bits.
std::uint32_t sumOf(const std::vector<float>& values)
{
    std::uint32_t sum = 2166136261U;
    for (const float value : values) {
        std::uint32_t bits = 0;
        std::memcpy(&bits, &value, sizeof bits);
        sum = (sum ^ bits) * 16777619U;
    }
    return sum;
}

TEST(RealTransformTest, BitsAreThoseOfOtherMachines)
{
    RealTransform transform(3000);
    fill(transform, noise(3000, 7));
    const std::vector<float> amplitudes = amplitudesOf(transform);
    const std::vector<float> gains = noise(1501, 8);
    const std::vector<float> result =
        filtered(transform, RealTransform::Gains(transform, gains.data()));
    EXPECT_EQ(sumOf(amplitudes), 4208354880U);
    EXPECT_EQ(sumOf(result), 437414564U);
}

} // namespace
