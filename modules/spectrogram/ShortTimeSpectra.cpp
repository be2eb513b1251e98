#include "ShortTimeSpectra.h"

#include "RealPlan.h"
#include "fast_length.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace {

// Zeros interpolate between the frequencies that the window separates, for a smooth picture.
constexpr int padding = 4;

std::int64_t odd(int samples)
{
    return samples % 2 == 0 ? std::int64_t{samples} + 1 : samples;
}

} // namespace

struct ShortTimeSpectra::Transform
{
    explicit Transform(int length) : plan({length}, 1) {}

    transforms::RealPlan<double> plan;
};

ShortTimeSpectra::ShortTimeSpectra(int samples)
    : weights(static_cast<std::size_t>(odd(samples))),
      transformed(static_cast<int>(evenFastLength(padding * odd(samples)))),
      transform(std::make_unique<Transform>(transformed)),
      amplitudes(static_cast<std::size_t>(transformed) / 2 + 1)
{
    const double middle = static_cast<double>(weights.size() - 1) / 2;
    for (std::size_t i = 0; i < weights.size(); ++i) {
        const double cosine = std::cos(std::numbers::pi * (static_cast<double>(i) - middle) /
                                       static_cast<double>(weights.size()));
        weights[i] = cosine * cosine;
        sumOfWeights += weights[i];
    }
}

ShortTimeSpectra::~ShortTimeSpectra() = default;

std::int64_t ShortTimeSpectra::bytesFor(int samples)
{
    if (padding * odd(samples) > TRANSFORM_LONGEST)
        return -1;
    const std::int64_t length = evenFastLength(padding * odd(samples));
    if (length > TRANSFORM_LONGEST)
        return -1;
    // Values, their spectrum, amplitudes, weights.
    return 24 * length + transform_plan_bytes(length, 1);
}

const std::vector<double>& ShortTimeSpectra::at(const double* trace, int count, std::int64_t middle)
{
    const auto size = static_cast<std::int64_t>(weights.size());
    double* const values = transform->plan.values();
    const std::int64_t first = middle - size / 2;
    for (std::int64_t i = 0; i < size; ++i) {
        const std::int64_t sample = first + i;
        const bool isInside = sample >= 0 && sample < count;
        values[i] = isInside ? weights[static_cast<std::size_t>(i)] * trace[sample] : 0;
    }
    std::fill(values + size, values + transformed, 0.0);
    transform->plan.forward();
    const int last = transformed / 2;
    for (int j = 0; j <= last; ++j) {
        const auto& value = transform->plan.spectrum()[j];
        const double factor = j == 0 || j == last ? 1 : 2;
        amplitudes[static_cast<std::size_t>(j)] =
            factor / sumOfWeights * std::hypot(value[0], value[1]);
    }
    return amplitudes;
}
