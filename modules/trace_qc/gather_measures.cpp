#include "gather_measures.h"

#include "trace_measures.h"
#include "transform_memory.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <deque>

namespace {

// Polarities of the pairs that are at most `reach` traces apart; nothing where one of the two takes
// no part.
class PairTable
{
public:
    PairTable(int traces, int reach)
        : reachOfPairs(reach),
          values(static_cast<std::size_t>(traces) * static_cast<std::size_t>(reach))
    {
    }

    std::optional<double>& at(int a, int b)
    {
        const int first = std::min(a, b);
        const int apart = std::max(a, b) - first;
        return values[static_cast<std::size_t>(first) * static_cast<std::size_t>(reachOfPairs) +
                      static_cast<std::size_t>(apart) - 1];
    }

private:
    int reachOfPairs;
    std::vector<std::optional<double>> values;
};

struct Mean
{
    double sum = 0;
    int count = 0;

    void add(double value)
    {
        sum += value;
        ++count;
    }
    double value() const { return count > 0 ? sum / count : 0; }
};

PolarityVerdict judgeTrace(int trace, int traces, PairTable& pairs, const PolarityRule& rule)
{
    Mean toNeighbours;
    Mean among;
    const int first = std::max(0, trace - rule.neighbours);
    const int last = std::min(traces - 1, trace + rule.neighbours);
    for (int a = first; a <= last; ++a) {
        if (a == trace || !pairs.at(trace, a))
            continue;
        toNeighbours.add(*pairs.at(trace, a));
        for (int b = a + 1; b <= last; ++b) {
            if (b != trace && pairs.at(a, b))
                among.add(*pairs.at(a, b));
        }
    }
    PolarityVerdict verdict;
    verdict.toNeighbours = toNeighbours.value();
    verdict.among = among.value();
    verdict.isReversed = among.count > 0 && verdict.toNeighbours <= -rule.threshold &&
                         verdict.among >= rule.threshold;
    return verdict;
}

} // namespace

std::vector<double> runningMedian(const std::vector<double>& values, int window)
{
    const auto half = static_cast<std::ptrdiff_t>(window / 2);
    const auto count = static_cast<std::ptrdiff_t>(values.size());
    std::vector<double> medians(values.size(), 0.0);
    std::vector<double> near;
    for (std::ptrdiff_t i = 0; i < count; ++i) {
        near.clear();
        for (std::ptrdiff_t j = std::max<std::ptrdiff_t>(0, i - half);
             j <= std::min(count - 1, i + half); ++j)
        {
            if (values[static_cast<std::size_t>(j)] > 0)
                near.push_back(values[static_cast<std::size_t>(j)]);
        }
        if (near.empty())
            continue;
        const auto middle = near.begin() + static_cast<std::ptrdiff_t>(near.size() / 2);
        std::nth_element(near.begin(), middle, near.end());
        const double below =
            near.size() % 2 == 0 ? *std::max_element(near.begin(), middle) : *middle;
        medians[static_cast<std::size_t>(i)] = (below + *middle) / 2;
    }
    return medians;
}

int64_t measuringBytes(int samples, int neighbours, int traces)
{
    if (samples < 1)
        return 0;
    const int64_t length = boundedTransformLength(samples);
    const int64_t reach = int64_t{2} * neighbours;
    // Of the meter, with its energies, and of the correlator.
    constexpr int64_t bytesEach = 2 * sizeof(float) + sizeof(double) / 2;
    const int64_t buffers = bytesEach * length;
    const int64_t spectra = (reach + 1) * static_cast<int64_t>(sizeof(float)) * length;
    const int64_t pairs = traces * reach * static_cast<int64_t>(sizeof(std::optional<double>));
    return buffers + transform_plan_bytes(length, 3) + spectra + pairs;
}

Correlator::Correlator(int samples) : count(samples)
{
    if (samples < 1)
        return;
    // Twice the length: no lag wraps around.
    length = boundedTransformLength(samples);
    fourier = RealTransform(length, RealTransform::Directions::both);
}

Correlator::Spectrum Correlator::transform(std::span<const float> samples)
{
    const double mean = levelsOf(samples).mean;
    double energy = 0;
    for (const float sample : samples) {
        if (std::isfinite(sample))
            energy += (sample - mean) * (sample - mean);
    }
    if (!fourier || energy <= 0)
        return {};
    const double scale = 1 / std::sqrt(energy);
    float* const buffer = fourier.data();
    std::fill(buffer, buffer + length, 0.0f);
    for (std::size_t i = 0; i < samples.size(); ++i)
        buffer[i] =
            std::isfinite(samples[i]) ? static_cast<float>((samples[i] - mean) * scale) : 0.0f;
    fourier.forward();
    return {buffer, buffer + length + 2};
}

double Correlator::polarity(const Spectrum& a, const Spectrum& b, int lag)
{
    if (a.empty() || b.empty())
        return 0;
    float* const buffer = fourier.data();
    for (std::size_t i = 0; i + 1 < a.size(); i += 2) {
        buffer[i] = a[i] * b[i] + a[i + 1] * b[i + 1];
        buffer[i + 1] = a[i + 1] * b[i] - a[i] * b[i + 1];
    }
    fourier.backward();
    const int farthest = std::clamp(lag, 0, count - 1);
    double least = buffer[0];
    double greatest = buffer[0];
    for (int i = 1; i <= farthest; ++i) {
        const auto [low, high] = std::minmax(buffer[i], buffer[length - i]);
        least = std::min<double>(least, low);
        greatest = std::max<double>(greatest, high);
    }
    return (least + greatest) / 2 / length;
}

std::vector<PolarityVerdict> judgePolarity(
    int traces, const std::function<std::optional<std::span<const float>>(int)>& samplesOf,
    const PolarityRule& rule, Correlator& correlator, const std::function<bool(int)>& isInQuestion)
{
    const int reach = 2 * rule.neighbours; // how far neighbours of one trace are apart
    // How many of the traces before each one are in question.
    std::vector<int> questions(static_cast<std::size_t>(traces) + 1, 0);
    for (int trace = 0; trace < traces; ++trace)
        questions[static_cast<std::size_t>(trace) + 1] =
            questions[static_cast<std::size_t>(trace)] +
            (!isInQuestion || isInQuestion(trace) ? 1 : 0);
    const auto isNeeded = [&](int first, int second) {
        const int from = std::max(0, second - rule.neighbours);
        const int end = std::min(traces, first + rule.neighbours + 1);
        return from < end &&
               questions[static_cast<std::size_t>(end)] > questions[static_cast<std::size_t>(from)];
    };
    PairTable pairs(traces, reach);
    std::deque<Correlator::Spectrum> before; // of the traces before this one, the nearest first
    for (int trace = 0; trace < traces; ++trace) {
        Correlator::Spectrum spectrum;
        if (isNeeded(trace, trace)) {
            if (const auto samples = samplesOf(trace))
                spectrum = correlator.transform(*samples);
        }
        for (int apart = 1; apart <= static_cast<int>(before.size()); ++apart) {
            const Correlator::Spectrum& other = before[static_cast<std::size_t>(apart) - 1];
            if (!spectrum.empty() && !other.empty() && isNeeded(trace - apart, trace))
                pairs.at(trace - apart, trace) =
                    correlator.polarity(other, spectrum, rule.lag * apart);
        }
        before.push_front(std::move(spectrum));
        if (static_cast<int>(before.size()) > reach)
            before.pop_back();
    }
    std::vector<PolarityVerdict> verdicts(static_cast<std::size_t>(traces));
    for (int trace = 0; trace < traces; ++trace) {
        if (!isInQuestion || isInQuestion(trace))
            verdicts[static_cast<std::size_t>(trace)] = judgeTrace(trace, traces, pairs, rule);
    }
    return verdicts;
}
