#include "../normal_equations.h"

#include <cmath>
#include <complex>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

constexpr std::size_t frequencies = 6; // of two quads; the rest is not used
constexpr int spectrumWindows = 3;

using Complex = std::complex<double>;
using Spectrum = std::vector<Complex>; // of all windows

std::vector<Spectrum> randomSpectra(int traces)
{
    std::mt19937 random(900);
    std::normal_distribution<float> normal;
    std::vector<Spectrum> made;
    for (int trace = 0; trace < traces; ++trace) {
        Spectrum spectrum;
        for (std::size_t i = 0; i < frequencies * spectrumWindows; ++i) {
            const float re = normal(random);
            spectrum.emplace_back(re, normal(random));
        }
        made.push_back(spectrum);
    }
    return made;
}

SpectraCache cacheOf(const std::vector<Spectrum>& spectra)
{
    constexpr std::size_t quads = (frequencies + Quad::width - 1) / Quad::width;
    SpectraCache cache;
    for (std::size_t trace = 0; trace < spectra.size(); ++trace) {
        Spectra one;
        one.trace = static_cast<int>(trace);
        one.takesPart = true;
        one.values.resize(quads * spectrumWindows);
        for (std::size_t i = 0; i < spectra[trace].size(); ++i) {
            const std::size_t frequency = i % frequencies;
            Quad& quad = one.values[i / frequencies * quads + frequency / Quad::width];
            quad.re[frequency % Quad::width] = static_cast<float>(spectra[trace][i].real());
            quad.im[frequency % Quad::width] = static_cast<float>(spectra[trace][i].imag());
        }
        cache.push_back(one);
    }
    return cache;
}

// The minimum of the damped misfit, by descent along each coefficient in turn.
std::vector<Complex> bestCoefficients(const std::vector<Spectrum>& spectra, std::size_t place,
                                      const std::vector<int>& offsets, const std::vector<int>& rows)
{
    const auto value = [&](int trace) { return spectra[static_cast<std::size_t>(trace)][place]; };
    double damping = 0;
    for (const int row : rows) {
        for (const int offset : offsets)
            damping += 0.05 * std::norm(value(row + offset)) / static_cast<double>(offsets.size());
    }
    std::vector<Complex> found(offsets.size());
    for (int round = 0; round < 3000; ++round) {
        const std::size_t j = static_cast<std::size_t>(round) % offsets.size();
        Complex along = 0;
        double energy = damping;
        for (const int row : rows) {
            Complex rest = value(row);
            for (std::size_t k = 0; k < offsets.size(); ++k)
                rest -= k == j ? 0 : found[k] * value(row + offsets[k]);
            along += std::conj(value(row + offsets[j])) * rest;
            energy += std::norm(value(row + offsets[j]));
        }
        found[j] = along / energy;
    }
    return found;
}

// With runs of four rows and more, single rows, gaps, near and far neighbours, on both sides and on
// one.
TEST(NormalEquationsTest, ThePredictionHasTheLeastDampedMisfit)
{
    struct Case
    {
        int trace;
        std::vector<int> offsets;
        std::vector<int> rows;
    };
    const std::vector<Case> cases = {
        {10, {-1, -2, 1, 2}, {4, 5, 6, 7, 13, 14, 15, 16}},
        {10, {-1, -2, 1, 2}, {3, 4, 5, 6, 7, 13, 15, 16, 17}},
        {2, {1, 2, 3, 4}, {3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}},
        {19, {-1, -3, -5}, {5, 6, 7, 8, 9, 10, 12}},
        {10, {-5, 5}, {5, 6, 7, 8, 9, 11, 12}},
    };
    const std::vector<Spectrum> spectra = randomSpectra(22);
    NormalEquations equations(2, spectrumWindows);
    SpectraCache cache = cacheOf(spectra);
    for (const Case& one : cases) {
        Agreement found;
        equations.agree(cache, one.trace, one.offsets, one.rows, found);
        double own = 0;
        double predicted = 0;
        std::vector<Complex> cross(frequencies);
        for (std::size_t place = 0; place < spectra[0].size(); ++place) {
            const std::vector<Complex> best =
                bestCoefficients(spectra, place, one.offsets, one.rows);
            Complex prediction = 0;
            for (std::size_t j = 0; j < best.size(); ++j)
                prediction +=
                    best[j] * spectra[static_cast<std::size_t>(one.trace + one.offsets[j])][place];
            const Complex value = spectra[static_cast<std::size_t>(one.trace)][place];
            const std::size_t frequency = place % frequencies;
            const double weight = frequency == 0 ? 1 : 2;
            own += weight * std::norm(value);
            predicted += weight * std::norm(prediction);
            cross[frequency] += value * std::conj(prediction);
        }
        EXPECT_NEAR(found.own, own, 1e-5 * own);
        EXPECT_NEAR(found.predicted, predicted, 1e-4 * predicted);
        for (std::size_t i = 0; i < frequencies; ++i) {
            const Quad& quad = found.cross[i / Quad::width];
            EXPECT_NEAR(quad.re[i % Quad::width], cross[i].real(), 1e-4 * own) << i;
            EXPECT_NEAR(quad.im[i % Quad::width], cross[i].imag(), 1e-4 * own) << i;
        }
    }
}

TEST(NormalEquationsTest, FrequenciesWithoutEnergyAreLeftOut)
{
    std::vector<Spectrum> spectra = randomSpectra(22);
    for (Spectrum& spectrum : spectra) {
        for (std::size_t i = 5; i < spectrum.size(); i += frequencies)
            spectrum[i] *= 1e-3;
    }
    NormalEquations equations(2, spectrumWindows);
    SpectraCache cache = cacheOf(spectra);
    Agreement found;
    equations.agree(cache, 10, {-1, -2, 1, 2}, {4, 5, 6, 7, 13, 14, 15, 16}, found);
    EXPECT_NE(found.cross[1].re[0], 0);
    EXPECT_EQ(found.cross[1].re[1], 0);
    EXPECT_EQ(found.cross[1].im[1], 0);
    EXPECT_EQ(found.cross[1].re[2], 0) << "beyond the last frequency";
}

// Sums that were dropped are made again, in room that was used before.
TEST(NormalEquationsTest, DroppedSumsDoNotChangeTheResult)
{
    const std::vector<Spectrum> spectra = randomSpectra(30);
    const std::vector<int> offsets = {-1, -2, 1, 2};
    NormalEquations equations(2, spectrumWindows);
    SpectraCache cache = cacheOf(spectra);
    for (int trace = 8; trace < 22; ++trace) {
        std::vector<int> rows;
        for (int row = trace - 6; row <= trace + 6; ++row) {
            if (std::abs(row - trace) > 2)
                rows.push_back(row);
        }
        equations.drop(cache, trace - 8);
        Agreement found;
        equations.agree(cache, trace, offsets, rows, found);
        NormalEquations fresh(2, spectrumWindows);
        SpectraCache ownCache = cacheOf(spectra);
        Agreement wanted;
        fresh.agree(ownCache, trace, offsets, rows, wanted);
        EXPECT_EQ(found.own, wanted.own);
        EXPECT_EQ(found.predicted, wanted.predicted) << trace;
    }
}

} // namespace
