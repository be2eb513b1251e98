#include "window_math.h"

#include <algorithm>
#include <cmath>

std::int64_t samplesBetween(double start, double end, int interval)
{
    if (end < start)
        return 0;
    // A window of one sample less for lack of a rounding error would surprise.
    return static_cast<std::int64_t>(std::floor((end - start) / interval + 1e-6)) + 1;
}

std::int64_t nearestSample(double time, std::int64_t delay, int interval)
{
    return std::llround((time - static_cast<double>(delay)) / interval);
}

int copyWindow(const float* in, int inCount, std::int64_t first, float* out, int outCount)
{
    const std::int64_t from = std::clamp<std::int64_t>(-first, 0, outCount);
    const std::int64_t to = std::clamp<std::int64_t>(inCount - first, from, outCount);
    std::fill(out, out + from, 0.0F);
    if (to > from)
        std::copy(in + first + from, in + first + to, out + from);
    std::fill(out + to, out + outCount, 0.0F);
    return static_cast<int>(to - from);
}
