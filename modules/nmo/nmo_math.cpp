#include "nmo_math.h"

#include <algorithm>
#include <cmath>
#include <numbers>

double arrivalTime(const VelocityFunction& velocity, double offset, double zeroOffsetTime)
{
    return std::hypot(zeroOffsetTime, offset / velocity.at(zeroOffsetTime));
}

namespace {

double timeOf(const TraceGrid& grid, int sample)
{
    return grid.start + sample * grid.interval;
}

std::vector<double> arrivalsOf(const VelocityFunction& velocity, double offset,
                               const TraceGrid& grid)
{
    std::vector<double> arrivals;
    arrivals.reserve(static_cast<std::size_t>(grid.count));
    for (int i = 0; i < grid.count; ++i)
        arrivals.push_back(arrivalTime(velocity, offset, timeOf(grid, i)));
    return arrivals;
}

// The first sample from which on, to the end of the trace, reflections arrive in their order.
int firstInOrder(const std::vector<double>& arrivals, const TraceGrid& grid)
{
    int first = grid.count - 1;
    while (first > 0 && timeOf(grid, first - 1) >= 0 &&
           arrivals[static_cast<std::size_t>(first) - 1] <
               arrivals[static_cast<std::size_t>(first)])
        --first;
    return first;
}

} // namespace

// The Illinois variant of the regula falsi: the root stays between two times, and a side that has
// been kept counts half, so that it comes nearer.
double zeroOffsetTime(const VelocityFunction& velocity, double offset, double time, double low,
                      double high)
{
    constexpr double accurate = 1e-10; // seconds
    constexpr int mostSteps = 100;
    double atLow = arrivalTime(velocity, offset, low) - time;
    double atHigh = arrivalTime(velocity, offset, high) - time;
    int kept = 0;
    for (int i = 0; i < mostSteps && high - low > accurate && atHigh - atLow > 0; ++i) {
        const double middle = low - atLow * (high - low) / (atHigh - atLow);
        const double there = arrivalTime(velocity, offset, middle) - time;
        if (std::fabs(there) < accurate)
            return middle;
        if (there < 0) {
            low = middle;
            atLow = there;
            atHigh *= kept == -1 ? 0.5 : 1;
            kept = -1;
        } else {
            high = middle;
            atHigh = there;
            atLow *= kept == 1 ? 0.5 : 1;
            kept = 1;
        }
    }
    return low;
}

int correctMoveout(const sampling::SincInterpolator& interpolator, const VelocityFunction& velocity,
                   double offset, const TraceGrid& grid, const StretchMute& mute, const double* in,
                   double* out)
{
    if (offset == 0) {
        std::copy(in, in + grid.count, out);
        return 0;
    }
    const std::vector<double> arrivals = arrivalsOf(velocity, offset, grid);
    int muted = firstInOrder(arrivals, grid);
    for (int i = 0; i < grid.count; ++i) {
        const double time = timeOf(grid, i);
        const double arrival = arrivals[static_cast<std::size_t>(i)];
        out[i] = interpolator.at(in, grid.count, (arrival - grid.start) / grid.interval);
        if (time <= 0 || arrival - time > mute.limit * time)
            muted = std::max(muted, i + 1);
    }
    std::fill(out, out + muted, 0.0);
    if (muted == 0)
        return 0; // the trace begins behind the mute
    for (int i = muted; i < grid.count; ++i) {
        const double distance = (i - muted + 1) * grid.interval;
        if (distance >= mute.taper)
            break;
        out[i] *= 0.5 * (1 - std::cos(std::numbers::pi * distance / mute.taper));
    }
    return muted;
}

void undoMoveout(const sampling::SincInterpolator& interpolator, const VelocityFunction& velocity,
                 double offset, const TraceGrid& grid, const double* in, double* out)
{
    if (offset == 0) {
        std::copy(in, in + grid.count, out);
        return;
    }
    const std::vector<double> arrivals = arrivalsOf(velocity, offset, grid);
    const auto arrivalOf = [&](int i) { return arrivals[static_cast<std::size_t>(i)]; };
    // The last sample that arrives at the time or before it.
    int below = firstInOrder(arrivals, grid);
    for (int i = 0; i < grid.count; ++i) {
        const double time = timeOf(grid, i);
        out[i] = 0;
        if (time < arrivalOf(below))
            continue;
        while (below + 1 < grid.count && arrivalOf(below + 1) <= time)
            ++below;
        // Nothing arrives before its time at zero offset: behind the last sample comes no time.
        const double origin = below + 1 < grid.count
                                  ? zeroOffsetTime(velocity, offset, time, timeOf(grid, below),
                                                   timeOf(grid, below + 1))
                                  : timeOf(grid, below);
        out[i] = interpolator.at(in, grid.count, (origin - grid.start) / grid.interval);
    }
}
