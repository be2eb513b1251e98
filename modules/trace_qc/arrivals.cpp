#include "arrivals.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <limits>
#include <vector>

namespace {

double finiteOr0(float sample)
{
    return std::fabs(sample) <= std::numeric_limits<float>::max() ? static_cast<double>(sample) : 0;
}

double rmsOf(std::span<const float> samples, double mean)
{
    double sum = 0;
    int used = 0;
    for (const float sample : samples) {
        if (!std::isfinite(sample))
            continue;
        sum += (sample - mean) * (sample - mean);
        ++used;
    }
    return used > 0 ? std::sqrt(sum / used) : 0;
}

} // namespace

std::optional<int> firstArrival(std::span<const float> samples, int window, double ratio)
{
    constexpr double leastEnergy = 1e-4;
    constexpr double clear = 0.1;
    constexpr int windowsBefore = 6; // noise of low frequency is not an onset
    const auto count = static_cast<int>(samples.size());
    if (window < 1 || count < 2 * window)
        return std::nullopt;
    std::vector<double> sums(static_cast<std::size_t>(count) + 1, 0.0);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double sample = finiteOr0(samples[i]);
        sums[i + 1] = sums[i] + sample * sample;
    }
    const auto place = [](int i) { return static_cast<std::size_t>(i); };
    const auto energy = [&](int from, int end) {
        return (sums[place(end)] - sums[place(from)]) / (end - from);
    };
    double greatest = 0; // sum of a window
    for (std::size_t i = 0; i + place(window) < sums.size(); ++i)
        greatest = std::max(greatest, sums[i + place(window)] - sums[i]);
    if (greatest <= 0)
        return std::nullopt;
    const double least = leastEnergy * greatest / window;

    // Half a window of quiet is enough to tell that something begins.
    const int first = std::max(1, window / 2);
    std::vector<double> weights(static_cast<std::size_t>(count), 0.0);
    for (int i = first; i + window <= count; ++i) {
        const double after = energy(i, i + window);
        const double before = std::max(energy(std::max(0, i - windowsBefore * window), i), least);
        if (after < ratio * before)
            continue;
        const double own = finiteOr0(samples[place(i)]);
        weights[place(i)] = after / before * std::min(1.0, own * own / std::max(after, 1e-300));
    }
    const double best = *std::max_element(weights.begin(), weights.end());
    if (best <= 0)
        return std::nullopt;
    // Later onsets may be as clear: the first one counts that is not far below the clearest.
    int onset = first;
    while (weights[place(onset)] < clear * best)
        ++onset;
    const int end = std::min(onset + window, count);
    return static_cast<int>(std::max_element(weights.begin() + onset, weights.begin() + end) -
                            weights.begin());
}

NoiseWindows noiseWindows(std::span<const float> samples, double mean, std::optional<int> arrival,
                          int window)
{
    constexpr int fewest = 10;
    NoiseWindows result;
    const auto count = static_cast<int>(samples.size());
    const int late = count / 5;
    result.late = rmsOf(samples.last(static_cast<std::size_t>(late)), mean);
    if (!arrival)
        return result;
    const int quiet = *arrival - window;
    if (quiet >= fewest)
        result.before = rmsOf(samples.first(static_cast<std::size_t>(quiet)), mean);
    const int end = std::min(count, *arrival + 5 * window);
    result.signal = rmsOf(samples.subspan(static_cast<std::size_t>(*arrival),
                                          static_cast<std::size_t>(end - *arrival)),
                          mean);
    result.ratio = result.before > 0 ? result.signal / result.before : 0;
    return result;
}

double roughness(std::span<const float> samples, double mean)
{
    double steps = 0;
    int used = 0;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        if (!std::isfinite(samples[i]) || !std::isfinite(samples[i - 1]))
            continue;
        const double step = static_cast<double>(samples[i]) - samples[i - 1];
        steps += step * step;
        ++used;
    }
    const double level = rmsOf(samples, mean);
    return used > 0 && level > 0 ? std::sqrt(steps / used) / level : 0;
}

std::vector<float> interpolationErrors(std::span<const float> samples)
{
    std::vector<float> errors(samples.size(), 0.0f);
    constexpr std::size_t edge = 8; // the ends of a record are often filtered or tapered badly
    for (std::size_t i = edge; i + edge < samples.size(); ++i) {
        const float near = (samples[i - 1] + samples[i + 1]) * (2.0f / 3);
        const float far = (samples[i - 2] + samples[i + 2]) / 6;
        const float error = samples[i] - near + far;
        errors[i] = std::isfinite(error) ? error : 0;
    }
    return errors;
}
