#include "../amplitude_spectrum.h"

#include <cmath>
#include <gmock/gmock.h>
#include <memory>
#include <numbers>

namespace {

constexpr double pi = std::numbers::pi;

struct Free
{
    void operator()(amplitude_spectrum* spectrum) const { amplitude_spectrum_free(spectrum); }
};
using Spectrum = std::unique_ptr<amplitude_spectrum, Free>;

// Powers of small factors, twice a prime number, and the shortest lengths.
TEST(AmplitudeSpectrumTest, SinusoidsHaveTheirAmplitudeInAllLengths)
{
    for (const int length : {2, 4, 6, 10, 16, 18, 32, 34, 1502, 3000, 3002, 3072}) {
        const Spectrum spectrum(amplitude_spectrum_create(length));
        ASSERT_NE(spectrum, nullptr) << length;
        const int bin = length / 3;
        float* values = amplitude_spectrum_values(spectrum.get());
        for (int i = 0; i < length; ++i)
            values[i] = static_cast<float>(3 * std::cos(2 * pi * bin * i / length + 0.3));

        const float* amplitudes = amplitude_spectrum_of(spectrum.get());

        const double expected =
            bin == 0 || 2 * bin == length ? 3 * std::cos(0.3) * length : 1.5 * length;
        for (int k = 0; k <= length / 2; ++k)
            ASSERT_NEAR(amplitudes[k], k == bin ? expected : 0, 1e-5 * length)
                << length << " values, frequency " << k;
    }
}

TEST(AmplitudeSpectrumTest, ValuesAreZerosAtFirstAndStay)
{
    for (const int length : {3000, 3002}) {
        const Spectrum spectrum(amplitude_spectrum_create(length));
        ASSERT_NE(spectrum, nullptr);
        float* values = amplitude_spectrum_values(spectrum.get());
        for (int i = 0; i < length; ++i)
            ASSERT_EQ(values[i], 0) << i;
        values[1] = 7;
        EXPECT_FLOAT_EQ(amplitude_spectrum_of(spectrum.get())[5], 7);
        EXPECT_EQ(values[1], 7);
        EXPECT_EQ(values[2], 0);
    }
}

} // namespace
