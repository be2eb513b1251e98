#include "Resampler.h"

#include "sampling/SampleCounts.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace {

constexpr std::int64_t mostWeights = std::int64_t{1} << 22; // kept, 32 MB
// A longer filter does not see more of any trace.
constexpr double mostHalf = 1U << 30;

} // namespace

Resampler::Resampler(int fromInterval, int toInterval, double pass, double attenuation, int samples)
    : from(fromInterval), to(toInterval), count(samples), window(attenuation)
{
    stopFrequency = 0.5e6 / static_cast<double>(std::max(from, to));
    passFrequency = pass * stopFrequency;
    const double perSample = static_cast<double>(from) * 1e-6;
    cut = 0.5 * (passFrequency + stopFrequency) * perSample;
    const double transition = (stopFrequency - passFrequency) * perSample;
    half = static_cast<std::int64_t>(
        std::clamp(std::ceil(sampling::kaiserHalfLength(attenuation, transition)), 1.0, mostHalf));
    phases = from / std::gcd(from, to);
    isTabulated = phases * 2 * half <= mostWeights;
    if (!isTabulated)
        return;
    table.reserve(static_cast<std::size_t>(phases * 2 * half));
    for (std::int64_t phase = 0; phase < phases; ++phase) {
        makeWeights(static_cast<double>(phase) / static_cast<double>(phases), 1 - half, half, row);
        table.insert(table.end(), row.begin(), row.end());
    }
}

std::int64_t Resampler::samplesFor(int from, int to, int samples)
{
    return samples < 1 ? 0 : (std::int64_t{samples} - 1) * from / to + 1;
}

// Weights of the input samples `first` to `last`, counted from the one at or before the output
// sample, which is `fraction` of an interval behind it. They are parts of a whole whose sum is 1.
void Resampler::makeWeights(double fraction, std::int64_t first, std::int64_t last,
                            std::vector<double>& weights) const
{
    weights.clear();
    double sum = 0;
    for (std::int64_t i = 1 - half; i <= half; ++i) {
        const double distance = static_cast<double>(i) - fraction;
        const double weight = 2 * cut * sampling::sinc(2 * cut * distance) *
                              window.at(distance / static_cast<double>(half));
        sum += weight;
        if (i >= first && i <= last)
            weights.push_back(weight);
    }
    for (double& weight : weights)
        weight /= sum;
}

void Resampler::apply(const double* in, float* out)
{
    const std::int64_t outCount = samplesFor(static_cast<int>(from), static_cast<int>(to), count);
    for (std::int64_t j = 0; j < outCount; ++j) {
        const std::int64_t below = j * to / from; // the input sample at or before
        const std::int64_t rest = j * to % from;  // microseconds behind it
        const std::int64_t first = std::max(1 - half, -below);
        const std::int64_t last = std::min(half, count - 1 - below);
        const double* weights;
        if (isTabulated) {
            const std::int64_t phase = rest / (from / phases);
            weights = &table[static_cast<std::size_t>(phase * 2 * half + first + half - 1)];
        } else {
            makeWeights(static_cast<double>(rest) / static_cast<double>(from), first, last, row);
            weights = row.data();
        }
        double sum = 0;
        for (std::int64_t i = first; i <= last; ++i)
            sum += weights[i - first] * in[below + i];
        out[j] = sampling::toSample(sum);
    }
}
