#include "Autocorrelator.h"

#include "RealPlan.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

// The next product of powers of 2, 3 and 5, whose transforms are fast.
int fastLength(int least)
{
    for (int length = std::max(least, 1);; ++length) {
        int rest = length;
        for (const int factor : {2, 3, 5})
            while (rest % factor == 0)
                rest /= factor;
        if (rest == 1)
            return length;
    }
}

// Zeros behind the samples, as far as lags reach.
int transformLength(int samples, int lags)
{
    return fastLength(samples + std::min(lags, samples));
}

} // namespace

struct Autocorrelator::Transform
{
    explicit Transform(int size) : length(size), plan({size}, 2) {}

    int length;
    transforms::RealPlan<double> plan; // there and back
};

Autocorrelator::Autocorrelator(int samples, int lags)
    : transform(std::make_unique<Transform>(transformLength(samples, lags))),
      result(static_cast<std::size_t>(lags) + 1)
{
}

Autocorrelator::~Autocorrelator() = default;

std::int64_t Autocorrelator::bytesFor(int samples, int lags)
{
    const std::int64_t length = transformLength(samples, lags);
    return transforms::RealPlan<double>::bytesFor(length, 2) +
           std::int64_t{8} * (std::int64_t{samples} + lags + 1);
}

const std::vector<double>& Autocorrelator::of(const double* samples, int count)
{
    Transform& work = *transform;
    std::fill(result.begin(), result.end(), 0.0);
    // Scaled to 1, or the power of great amplitudes would lose the small ones to rounding at the
    // limits of the range.
    double scale = 0;
    for (int i = 0; i < count; ++i)
        scale = std::max(scale, std::fabs(samples[i]));
    if (scale == 0)
        return result;
    double* const values = work.plan.values();
    for (int i = 0; i < count; ++i)
        values[i] = samples[i] / scale;
    std::fill(values + count, values + work.length, 0.0);
    work.plan.forward();
    for (int k = 0; k < work.length / 2 + 1; ++k) {
        auto& bin = work.plan.spectrum()[k];
        bin[0] = bin[0] * bin[0] + bin[1] * bin[1];
        bin[1] = 0;
    }
    work.plan.backward();
    const auto lags = std::min<std::size_t>(result.size(), static_cast<std::size_t>(count));
    for (std::size_t k = 0; k < lags; ++k)
        result[k] = values[k] / work.length * scale * scale;
    return result;
}
