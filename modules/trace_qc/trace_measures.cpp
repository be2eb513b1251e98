#include "trace_measures.h"

#include "transform_memory.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <stdexcept>
#include <string>

namespace {

constexpr std::size_t ways = 4;

template <typename Value>
double inFourWays(std::size_t count, const Value& value)
{
    std::array<double, ways> sums{};
    std::size_t i = 0;
    for (; i + ways <= count; i += ways) {
        for (std::size_t way = 0; way < ways; ++way)
            sums[way] += value(i + way);
    }
    for (; i < count; ++i)
        sums[0] += value(i);
    return (sums[0] + sums[1]) + (sums[2] + sums[3]);
}

double medianOf(std::vector<double>& values)
{
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    if (values.size() % 2 == 1)
        return *middle;
    return (*middle + *std::max_element(values.begin(), middle)) / 2;
}

// Samples on one side of a place, as far as they are finite.
std::vector<double> finiteSamples(std::span<const float> samples, int from, int to)
{
    const int first = std::max(from, 0);
    const int last = std::min(to, static_cast<int>(samples.size()));
    std::vector<double> side;
    for (int i = first; i < last; ++i) {
        if (std::isfinite(samples[static_cast<std::size_t>(i)]))
            side.push_back(samples[static_cast<std::size_t>(i)]);
    }
    return side;
}

enum class Verdict
{
    outlier,
    ordinary,
    unknown
};

Verdict judge(double value, std::vector<double> side, double threshold)
{
    constexpr std::size_t fewest = 8;
    // The standard deviation of a normal distribution, over its median absolute deviation.
    constexpr double deviations = 1.4826;
    if (side.size() < fewest)
        return Verdict::unknown;
    const double middle = medianOf(side);
    for (double& one : side)
        one = std::fabs(one - middle);
    const double limit = threshold * deviations * medianOf(side);
    return std::fabs(value - middle) > limit ? Verdict::outlier : Verdict::ordinary;
}

constexpr std::size_t margin = 4; // samples that a spike is compared with, to each side

// Distances of the samples from `mean`, 0 for those that are infinite or NaN and for the margins
// before and after them.
std::vector<double> distancesFrom(std::span<const float> samples, double mean)
{
    std::vector<double> distances(samples.size() + 2 * margin, 0.0);
    double* to = distances.data() + margin;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double distance = std::fabs(samples[i] - mean);
        to[i] = distance <= std::numeric_limits<double>::max() ? distance : 0;
    }
    return distances;
}

// Far above all that is two to four samples away, and the highest of its neighbours; of two equal
// samples side by side the first one.
bool standsAlone(const double* distance)
{
    constexpr double ratio = 4;
    const double height = distance[0];
    return height > distance[-1] && height >= distance[1] &&
           height > ratio * std::max({distance[-2], distance[2], distance[-3], distance[3],
                                      distance[-4], distance[4]});
}

bool isSpike(std::span<const float> samples, int at, double threshold, int window)
{
    constexpr int guard = 2; // what is beside a spike may belong to it
    const double value = samples[static_cast<std::size_t>(at)];
    const Verdict before =
        judge(value, finiteSamples(samples, at - guard + 1 - window, at - guard + 1), threshold);
    if (before == Verdict::ordinary)
        return false;
    const Verdict after =
        judge(value, finiteSamples(samples, at + guard, at + guard + window), threshold);
    return after != Verdict::ordinary && (before == Verdict::outlier || after == Verdict::outlier);
}

} // namespace

TraceLevels levelsOf(std::span<const float> samples)
{
    // Side by side, so that no addition waits for the one before it.
    std::array<double, ways> squares{};
    std::array<double, ways> sums{};
    std::array<float, ways> least;
    std::array<float, ways> greatest;
    std::array<int, ways> used{};
    least.fill(INFINITY);
    greatest.fill(-INFINITY);
    const auto take = [&](std::size_t way, float sample) {
        const bool isFinite = std::fabs(sample) <= std::numeric_limits<float>::max();
        const double value = isFinite ? sample : 0.0f;
        squares[way] += value * value;
        sums[way] += value;
        used[way] += isFinite ? 1 : 0;
        least[way] = isFinite && sample < least[way] ? sample : least[way];
        greatest[way] = isFinite && sample > greatest[way] ? sample : greatest[way];
    };
    std::size_t i = 0;
    for (; i + ways <= samples.size(); i += ways) {
        for (std::size_t way = 0; way < ways; ++way)
            take(way, samples[i + way]);
    }
    for (; i < samples.size(); ++i)
        take(0, samples[i]);

    TraceLevels levels;
    const int finite = used[0] + used[1] + used[2] + used[3];
    levels.invalid = static_cast<int>(samples.size()) - finite;
    if (finite == 0)
        return levels;
    const float low = *std::min_element(least.begin(), least.end());
    const float high = *std::max_element(greatest.begin(), greatest.end());
    levels.isConstant = low == high;
    levels.peak = std::max(std::fabs(low), std::fabs(high));
    levels.rms = std::sqrt(((squares[0] + squares[1]) + (squares[2] + squares[3])) / finite);
    levels.mean = ((sums[0] + sums[1]) + (sums[2] + sums[3])) / finite;
    return levels;
}

int longestRunAtTheLimit(std::span<const float> samples)
{
    float least = 0;
    float greatest = 0;
    for (const float sample : samples) {
        const float value = std::fabs(sample) <= std::numeric_limits<float>::max() ? sample : 0.0f;
        least = value < least ? value : least;
        greatest = value > greatest ? value : greatest;
    }
    int longest = 0;
    for (std::size_t i = 0; i < samples.size();) {
        const float sample = samples[i];
        std::size_t end = i + 1;
        if ((sample == least || sample == greatest) && sample != 0) {
            while (end < samples.size() && samples[end] == sample)
                ++end;
            if (end - i == samples.size())
                return 0;
            longest = std::max(longest, static_cast<int>(end - i));
        }
        i = end;
    }
    return longest;
}

std::vector<int> findSpikes(std::span<const float> samples, double mean, double threshold,
                            int window)
{
    std::vector<int> spikes;
    const std::vector<double> distances = distancesFrom(samples, mean);
    for (std::size_t i = 0; i < samples.size(); ++i) {
        // The cheap rule first: few samples pass it.
        const int at = static_cast<int>(i);
        if (standsAlone(distances.data() + margin + i) && isSpike(samples, at, threshold, window))
            spikes.push_back(at);
    }
    return spikes;
}

bool copyScaled(std::span<const float> samples, double mean, float* to)
{
    // Scaled to 1, so that no square overflows or underflows.
    double greatest = 0;
    for (const float sample : samples) {
        const double distance = std::fabs(sample - mean);
        greatest = distance > greatest && distance <= std::numeric_limits<double>::max() ? distance
                                                                                         : greatest;
    }
    if (greatest <= 0)
        return false;
    const double scale = 1 / greatest;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const double distance = samples[i] - mean;
        const double finite =
            std::fabs(distance) <= std::numeric_limits<double>::max() ? distance : 0;
        to[i] = static_cast<float>(finite * scale);
    }
    return true;
}

double sumOf(std::span<const double> values)
{
    return inFourWays(values.size(), [&](std::size_t i) { return values[i]; });
}

double productOf(std::span<const float> a, std::span<const float> b)
{
    return inFourWays(a.size(), [&](std::size_t i) { return static_cast<double>(a[i]) * b[i]; });
}

int64_t transformLength(int64_t least)
{
    const auto isGood = [](int64_t number) {
        for (const int factor : {2, 3, 5}) {
            while (number % factor == 0)
                number /= factor;
        }
        return number == 1;
    };
    int64_t length = std::max<int64_t>(2, least + least % 2);
    while (!isGood(length))
        length += 2;
    return length;
}

int boundedTransformLength(int samples)
{
    if (samples > TRANSFORM_LONGEST / 2)
        throw std::length_error("traces of " + std::to_string(samples) +
                                " samples are too long to be transformed; give shorter ones");
    // Does not exceed the longest, which is a power of two.
    return static_cast<int>(transformLength(int64_t{2} * samples));
}

FrequencyMeter::FrequencyMeter(int samples)
{
    if (samples < 2)
        return;
    length = boundedTransformLength(samples);
    transform = RealTransform(length, RealTransform::Directions::forward);
    energies.resize(static_cast<std::size_t>(length) / 2 + 1);
}

DominantFrequency FrequencyMeter::measure(std::span<const float> samples, double mean)
{
    DominantFrequency dominant;
    if (!transform)
        return dominant;
    float* const buffer = transform.data();
    if (!copyScaled(samples, mean, buffer))
        return dominant;
    std::fill(buffer + samples.size(), buffer + length, 0.0f);
    transform.forward();

    const int bins = length / 2 + 1;
    for (std::size_t bin = 0; bin < energies.size(); ++bin) {
        const double re = buffer[2 * bin];
        const double im = buffer[2 * bin + 1];
        energies[bin] = re * re + im * im;
    }
    const auto energy = [&](int bin) { return energies[static_cast<std::size_t>(bin)]; };
    const auto count = static_cast<double>(samples.size());
    const int lowest = std::max(1, static_cast<int>(std::floor(length / count)));
    const int top = static_cast<int>(std::max_element(energies.begin() + lowest, energies.end()) -
                                     energies.begin());
    const double peak = energy(top);
    if (peak <= 0)
        return dominant;

    double place = top;
    const double left = energy(top - 1);
    const double right = top + 1 < bins ? energy(top + 1) : 0;
    if (left > 0 && right > 0 && left <= peak && right <= peak) {
        // Logarithms of energies are twice those of amplitudes, which the quotient does not see.
        const double a = std::log(left);
        const double b = std::log(peak);
        const double c = std::log(right);
        if (a - 2 * b + c < 0)
            place += 0.5 * (a - c) / (a - 2 * b + c);
    }
    dominant.frequency = std::clamp(place / length, 0.0, 0.5);

    const double reach = 2 * length / count;
    // All but the first and the last one stand for two frequencies, one below 0.
    const auto share = [&](int from, int to) {
        double sum = 0;
        for (int bin = from; bin <= to; ++bin)
            sum += energy(bin) * (bin == 0 || bin == bins - 1 ? 1 : 2);
        return sum;
    };
    const int first = std::max(0, static_cast<int>(std::ceil(place - reach)));
    const int last = std::min(bins - 1, static_cast<int>(std::floor(place + reach)));
    const double near = share(first, last);
    const double total = 2 * sumOf(energies) - energies.front() - energies.back();
    dominant.share = near / total;
    return dominant;
}
