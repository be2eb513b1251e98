#include "combine_math.h"

#include <algorithm>
#include <cfloat>
#include <cmath>

namespace {

// Beyond the greatest float, a conversion is undefined.
float toSample(double value)
{
    if (value > FLT_MAX)
        return INFINITY;
    return value < -FLT_MAX ? -INFINITY : static_cast<float>(value);
}

void store(double value, float& sample, CombineCounts& counts)
{
    sample = toSample(value);
    ++counts.samples;
    if (!std::isfinite(sample))
        ++counts.odd;
}

void add(const std::vector<const float*>& inputs, double sign, int length, float* result,
         CombineCounts& counts)
{
    for (int k = 0; k < length; ++k) {
        double value = inputs[0][k];
        for (std::size_t i = 1; i < inputs.size(); ++i)
            value += sign * inputs[i][k];
        store(value, result[k], counts);
    }
}

} // namespace

void combineDifference(const std::vector<const float*>& inputs, int length, float* result,
                       CombineCounts& counts)
{
    add(inputs, -1, length, result, counts);
}

void combineSum(const std::vector<const float*>& inputs, int length, float* result,
                CombineCounts& counts)
{
    add(inputs, 1, length, result, counts);
}

void combineRatio(const std::vector<const float*>& inputs, int length, double least, float* result,
                  CombineCounts& counts)
{
    const float* divisor = inputs[1];
    double greatest = 0;
    for (int k = 0; k < length; ++k)
        if (std::isfinite(divisor[k]))
            greatest = std::max(greatest, std::fabs(static_cast<double>(divisor[k])));
    for (int k = 0; k < length; ++k) {
        const double below = divisor[k];
        if (std::fabs(below) <= least * greatest || below == 0) {
            store(0, result[k], counts);
            ++counts.undivided;
            continue;
        }
        store(static_cast<double>(inputs[0][k]) / below, result[k], counts);
    }
}
