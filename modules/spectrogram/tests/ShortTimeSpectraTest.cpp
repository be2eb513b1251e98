// Spectra of the moving window, against sums of the definition.
#include "../ShortTimeSpectra.h"

#include <cmath>
#include <complex>
#include <gtest/gtest.h>
#include <numbers>
#include <random>

namespace {

constexpr double twoPi = 2 * std::numbers::pi;

TEST(ShortTimeSpectraTest, AmplitudesAreThoseOfTheDefinition)
{
    std::mt19937 random(5);
    std::normal_distribution<double> normal;
    std::vector<double> trace(90);
    for (double& sample : trace)
        sample = normal(random);
    for (const int window : {1, 2, 3, 17, 40}) {
        ShortTimeSpectra spectra(window);
        const int size = spectra.window();
        ASSERT_EQ(size, window + (window + 1) % 2);
        ASSERT_GE(spectra.length(), 4 * size);
        for (const int middle : {-3, 0, 44, 89, 95}) {
            const std::vector<double>& found = spectra.at(trace.data(), 90, middle);
            ASSERT_EQ(found.size(), static_cast<std::size_t>(spectra.length()) / 2 + 1);
            for (int j = 0; j < spectra.frequencies(); ++j) {
                std::complex<double> sum = 0;
                double weights = 0;
                for (int i = -size / 2; i <= size / 2; ++i) {
                    const double weight = 0.5 + 0.5 * std::cos(twoPi * i / size);
                    weights += weight;
                    if (middle + i < 0 || middle + i >= 90)
                        continue;
                    sum += weight * trace[static_cast<std::size_t>(middle + i)] *
                           std::polar(1.0, -twoPi * j * i / spectra.length());
                }
                const bool isEnd = j == 0 || 2 * j == spectra.length();
                EXPECT_NEAR(found[static_cast<std::size_t>(j)],
                            (isEnd ? 1 : 2) * std::abs(sum) / weights, 1e-12)
                    << window << ' ' << middle << ' ' << j;
            }
        }
    }
}

TEST(ShortTimeSpectraTest, ASinusoidHasItsAmplitude)
{
    ShortTimeSpectra spectra(99);
    std::vector<double> trace;
    const int j = spectra.length() / 8;
    for (int i = 0; i < 400; ++i)
        trace.push_back(7 * std::sin(twoPi * i * j / spectra.length() + 0.4));
    EXPECT_NEAR(spectra.at(trace.data(), 400, 200)[static_cast<std::size_t>(j)], 7, 0.01);
}

TEST(ShortTimeSpectraTest, SizesAreKnownBeforehand)
{
    EXPECT_GT(ShortTimeSpectra::bytesFor(1000), 4000 * 24);
    EXPECT_LT(ShortTimeSpectra::bytesFor(1000), 4000 * 40);
    EXPECT_EQ(ShortTimeSpectra::bytesFor(1 << 30), -1);
}

} // namespace
