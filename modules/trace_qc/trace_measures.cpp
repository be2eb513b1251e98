#include "trace_measures.h"

#include "transform_memory.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <string>

namespace {

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

// Far above all that is two to four samples away, and the highest of its neighbours.
bool standsAlone(std::span<const float> samples, int at, double mean)
{
    constexpr double ratio = 4;
    constexpr int farthest = 4;
    const int count = static_cast<int>(samples.size());
    const auto distance = [&](int i) {
        const double value = samples[static_cast<std::size_t>(i)];
        return std::isfinite(value) ? std::fabs(value - mean) : 0;
    };
    const double height = distance(at);
    if (height <= 0)
        return false;
    // Of two equal samples side by side the first one counts.
    if ((at > 0 && distance(at - 1) >= height) || (at + 1 < count && distance(at + 1) > height))
        return false;
    for (int step = 2; step <= farthest; ++step) {
        if (at >= step && distance(at - step) * ratio >= height)
            return false;
        if (at + step < count && distance(at + step) * ratio >= height)
            return false;
    }
    return true;
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
    TraceLevels levels;
    double squares = 0;
    double sum = 0;
    int used = 0;
    float first = 0;
    for (const float sample : samples) {
        if (!std::isfinite(sample)) {
            ++levels.invalid;
            continue;
        }
        if (used++ == 0)
            first = sample;
        levels.isConstant = levels.isConstant && sample == first;
        levels.peak = std::max(levels.peak, std::fabs(static_cast<double>(sample)));
        squares += static_cast<double>(sample) * sample;
        sum += sample;
    }
    if (used > 0) {
        levels.rms = std::sqrt(squares / used);
        levels.mean = sum / used;
    }
    return levels;
}

int longestRunAtTheLimit(std::span<const float> samples)
{
    float least = 0;
    float greatest = 0;
    for (const float sample : samples) {
        if (std::isfinite(sample)) {
            least = std::min(least, sample);
            greatest = std::max(greatest, sample);
        }
    }
    int longest = 0;
    int run = 0;
    bool isConstant = true;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const float sample = samples[i];
        isConstant = isConstant && sample == samples[0];
        const bool atLimit = sample != 0 && (sample == least || sample == greatest);
        const bool goesOn = run > 0 && sample == samples[i - 1];
        run = atLimit ? (goesOn ? run + 1 : 1) : 0;
        longest = std::max(longest, run);
    }
    return isConstant ? 0 : longest;
}

std::vector<int> findSpikes(std::span<const float> samples, double mean, double threshold,
                            int window)
{
    std::vector<int> spikes;
    for (int i = 0; i < static_cast<int>(samples.size()); ++i) {
        // The cheap rule first: few samples pass it.
        if (std::isfinite(samples[static_cast<std::size_t>(i)]) && standsAlone(samples, i, mean) &&
            isSpike(samples, i, threshold, window))
            spikes.push_back(i);
    }
    return spikes;
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
}

DominantFrequency FrequencyMeter::measure(std::span<const float> samples, double mean)
{
    DominantFrequency dominant;
    if (!transform)
        return dominant;
    // Scaled to 1, so that no square overflows or underflows.
    double greatest = 0;
    for (const float sample : samples) {
        if (std::isfinite(sample))
            greatest = std::max(greatest, std::fabs(sample - mean));
    }
    if (greatest <= 0)
        return dominant;
    float* const buffer = transform.data();
    std::fill(buffer, buffer + length, 0.0f);
    for (std::size_t i = 0; i < samples.size(); ++i)
        buffer[i] =
            std::isfinite(samples[i]) ? static_cast<float>((samples[i] - mean) / greatest) : 0.0f;
    transform.forward();

    const int bins = length / 2 + 1;
    const auto energy = [&](int bin) {
        const float* value = buffer + 2 * static_cast<std::ptrdiff_t>(bin);
        const double re = value[0];
        const double im = value[1];
        return re * re + im * im;
    };
    const auto count = static_cast<double>(samples.size());
    const int lowest = std::max(1, static_cast<int>(std::floor(length / count)));
    int top = lowest;
    for (int bin = lowest; bin < bins; ++bin) {
        if (energy(bin) > energy(top))
            top = bin;
    }
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
    double near = 0;
    double total = 0;
    for (int bin = 0; bin < bins; ++bin) {
        // All but the first and the last one stand for two frequencies, one below 0.
        const double here = energy(bin) * (bin == 0 || bin == bins - 1 ? 1 : 2);
        total += here;
        if (std::fabs(bin - place) <= reach)
            near += here;
    }
    dominant.share = near / total;
    return dominant;
}
