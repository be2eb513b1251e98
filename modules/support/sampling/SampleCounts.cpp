#include "sampling/SampleCounts.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace sampling {

const double* FiniteSamples::of(const float* samples, int count)
{
    values.resize(static_cast<std::size_t>(count));
    std::int64_t lost = 0;
    for (std::size_t i = 0; i < values.size(); ++i) {
        const bool isFinite = std::isfinite(samples[i]);
        values[i] = isFinite ? samples[i] : 0;
        lost += isFinite ? 0 : 1;
    }
    samplesLost += lost;
    traces += lost > 0 ? 1 : 0;
    return values.data();
}

std::string FiniteSamples::warning() const
{
    if (samplesLost == 0)
        return "";
    return "samples that are infinite or NaN: " + std::to_string(samplesLost) +
           ", in traces: " + std::to_string(traces) + "; they count as 0";
}

float toSample(double value)
{
    return static_cast<float>(
        std::clamp(value, -static_cast<double>(FLT_MAX), static_cast<double>(FLT_MAX)));
}

} // namespace sampling
