#include "mains_hum.h"

#include "neighbourhood.h"
#include "trace_measures.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

HumMeter::HumMeter(int samples, double interval)
{
    constexpr double shortest = 0.2; // seconds
    const double duration = samples * interval;
    if (samples < 8 || duration < shortest)
        return;
    length = boundedTransformLength(samples);
    step = 1 / (length * interval);
    finest = 1 / duration;
    nyquist = 0.5 / interval;
    for (int i = 0; i < samples; ++i)
        taper.push_back(
            static_cast<float>(0.5 - 0.5 * std::cos(2 * std::numbers::pi * (i + 0.5) / samples)));
    energies.resize(static_cast<std::size_t>(length) / 2 + 1);
    transform = RealTransform(length, RealTransform::Directions::forward);
}

double HumMeter::lineEnergy(double frequency, double drift) const
{
    constexpr double lobe = 2;       // steps of the resolution
    constexpr double leastSide = 6;  // Hz
    constexpr double sideSteps = 8;  // steps of the resolution
    constexpr double leastRatio = 4; // of the line to its background
    const double half = drift + lobe * finest;
    const double far = half + std::max(leastSide, sideSteps * finest);
    if (frequency + half >= nyquist || frequency - half <= finest)
        return 0;
    const auto binsOf = [&](double from, double to) {
        const auto last = static_cast<double>(energies.size());
        const double a = std::clamp(std::ceil(from / step), 0.0, last);
        const double b = std::clamp(std::floor(to / step) + 1, a, last);
        return std::span(energies).subspan(static_cast<std::size_t>(a),
                                           static_cast<std::size_t>(b - a));
    };
    double line = 0;
    const auto bins = binsOf(frequency - half, frequency + half);
    for (const double energy : bins)
        line += energy;
    const auto sides = {binsOf(frequency - far, frequency - half),
                        binsOf(frequency + half, frequency + far)};
    double floor = 0;
    for (const auto& side : sides) {
        // Most lines are no stronger than their background: counting shows it, without the median.
        const double drowned =
            line * std::numbers::ln2 / (leastRatio * static_cast<double>(bins.size()));
        const auto above = std::count_if(side.begin(), side.end(),
                                         [&](double energy) { return energy > drowned; });
        if (2 * above > static_cast<std::ptrdiff_t>(side.size()))
            return 0;
        floor = std::max(floor, medianOf({side.begin(), side.end()}) / std::numbers::ln2);
    }
    const double below = floor * static_cast<double>(bins.size());
    return line > leastRatio * below ? line - below : 0;
}

Hum HumMeter::measure(std::span<const float> samples, double mean)
{
    constexpr double drift = 0.5; // Hz
    Hum hum;
    if (!transform || samples.size() != taper.size())
        return hum;
    float* const buffer = transform.data();
    if (!copyScaled(samples, mean, buffer))
        return hum;
    for (std::size_t i = 0; i < samples.size(); ++i)
        buffer[i] *= taper[i];
    std::fill(buffer + samples.size(), buffer + length, 0.0f);
    transform.forward();
    for (std::size_t bin = 0; bin < energies.size(); ++bin) {
        const double re = buffer[2 * bin];
        const double im = buffer[2 * bin + 1];
        energies[bin] = re * re + im * im;
    }
    const double total = sumOf(energies);
    if (total <= 0)
        return hum;
    for (const double mains : {50.0, 60.0}) {
        double lines = 0;
        for (int harmonic = 1; harmonic * mains < nyquist; ++harmonic)
            lines += lineEnergy(harmonic * mains, harmonic * drift);
        if (lines / total > hum.share)
            hum = {lines / total, mains};
    }
    return hum;
}
