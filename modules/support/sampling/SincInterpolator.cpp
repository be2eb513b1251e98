#include "sampling/SincInterpolator.h"

#include "sampling/KaiserWindow.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

namespace sampling {

namespace {

constexpr int taps = 2 * SincInterpolator::half;
constexpr int fractions = 1024;
constexpr double attenuation = 80; // dB
constexpr double least = 1e-9;     // a smaller fraction of a sample is none

// Weights of the samples from half - 1 before the one below a position to half behind it, for a
// position that is `fraction` (0 to 1) above that sample. Their sum is 1: a constant stays
// constant.
void makeWeights(const KaiserWindow& window, double fraction, double* weights)
{
    double sum = 0;
    for (int k = 0; k < taps; ++k) {
        const double distance = k - (SincInterpolator::half - 1) - fraction;
        weights[k] = sinc(distance) * window.at(distance / SincInterpolator::half);
        sum += weights[k];
    }
    for (int k = 0; k < taps; ++k)
        weights[k] /= sum;
}

// The part of the taps that meets a sample.
struct Reach
{
    std::int64_t first; // sample of tap 0, may be negative
    int from;           // first tap
    int to;             // behind the last tap
};

Reach reachOf(std::int64_t below, int count)
{
    const std::int64_t first = below - (SincInterpolator::half - 1);
    const auto from = std::clamp<std::int64_t>(-first, 0, taps);
    const auto to = std::clamp<std::int64_t>(count - first, from, taps);
    return {first, static_cast<int>(from), static_cast<int>(to)};
}

} // namespace

SincInterpolator::SincInterpolator() : table(static_cast<std::size_t>(fractions + 1) * taps)
{
    const KaiserWindow window(attenuation);
    for (int i = 0; i <= fractions; ++i)
        makeWeights(window, static_cast<double>(i) / fractions,
                    &table[static_cast<std::size_t>(i) * taps]);
}

double SincInterpolator::at(const double* samples, int count, double position) const
{
    if (!(position > -half && position < static_cast<double>(count) + half))
        return 0;
    const double floor = std::floor(position);
    const double fraction = (position - floor) * fractions;
    const auto below = static_cast<std::int64_t>(floor);
    if (fraction < least && below >= 0 && below < count)
        return samples[below];
    const int row = std::min(static_cast<int>(fraction), fractions - 1);
    const double upper = fraction - row;
    const double* weights = &table[static_cast<std::size_t>(row) * taps];
    const Reach reach = reachOf(below, count);
    double low = 0;
    double high = 0;
    for (int k = reach.from; k < reach.to; ++k) {
        low += weights[k] * samples[reach.first + k];
        high += weights[k + taps] * samples[reach.first + k];
    }
    return low + upper * (high - low);
}

void SincInterpolator::shift(const double* samples, int count, double shift, double* moved)
{
    std::fill(moved, moved + count, 0.0);
    if (!(std::fabs(shift) < static_cast<double>(count) + half))
        return;
    const double nearest = std::round(shift);
    if (std::fabs(shift - nearest) < least) {
        const int whole = static_cast<int>(nearest);
        for (int i = std::max(whole, 0);
             i < std::min<std::int64_t>(count, std::int64_t{count} + whole); ++i)
            moved[i] = samples[i - whole];
        return;
    }
    const double floor = std::floor(-shift);
    std::array<double, taps> weights;
    makeWeights(KaiserWindow(attenuation), -shift - floor, weights.data());
    for (int i = 0; i < count; ++i) {
        const Reach reach = reachOf(i + static_cast<std::int64_t>(floor), count);
        double sum = 0;
        for (int k = reach.from; k < reach.to; ++k)
            sum += weights[static_cast<std::size_t>(k)] * samples[reach.first + k];
        moved[i] = sum;
    }
}

} // namespace sampling
