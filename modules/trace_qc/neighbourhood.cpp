#include "neighbourhood.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

struct Point
{
    double x;
    double y;
};

// The line of Theil and Sen at `x`. Points at one place have no slope to each other.
double lineAt(const std::vector<Point>& points, double x)
{
    std::vector<double> slopes;
    for (std::size_t a = 0; a < points.size(); ++a) {
        for (std::size_t b = a + 1; b < points.size(); ++b) {
            if (points[a].x != points[b].x)
                slopes.push_back((points[b].y - points[a].y) / (points[b].x - points[a].x));
        }
    }
    const double slope = medianOf(std::move(slopes));
    std::vector<double> intercepts;
    intercepts.reserve(points.size());
    for (const Point& point : points)
        intercepts.push_back(point.y - slope * (point.x - x));
    return medianOf(std::move(intercepts));
}

// Of distances from 0. Where a few are far larger than the median lets expect, they tell: picks
// that jump from one period to the next are close together but for the jumps.
double spreadWithTails(std::vector<double> distances)
{
    constexpr double share = 0.85;
    constexpr double deviationsOfShare = 1.44; // of a normal distribution
    if (distances.empty())
        return 0;
    const double spread = robustSpread(distances, 0);
    for (double& distance : distances)
        distance = std::fabs(distance);
    const auto place = distances.begin() +
                       static_cast<std::ptrdiff_t>(share * static_cast<double>(distances.size()));
    std::nth_element(distances.begin(), place, distances.end());
    return std::max(spread, *place / deviationsOfShare);
}

} // namespace

double medianOf(std::vector<double> values)
{
    if (values.empty())
        return 0;
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    if (values.size() % 2 == 1)
        return *middle;
    return (*middle + *std::max_element(values.begin(), middle)) / 2;
}

double robustSpread(std::vector<double> values, double centre)
{
    // The standard deviation of a normal distribution, over its median absolute deviation.
    constexpr double deviationsPerMedian = 1.4826;
    for (double& value : values)
        value = std::fabs(value - centre);
    return deviationsPerMedian * medianOf(std::move(values));
}

std::vector<Deviation> deviations(const std::vector<double>& places,
                                  const std::vector<std::optional<double>>& values,
                                  const Neighbourhood& around)
{
    constexpr std::size_t fewest = 4;
    std::vector<std::size_t> valued; // the traces that have a value
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (values[i])
            valued.push_back(i);
    }
    const auto slice = [&](std::size_t at, int reach) {
        const auto far = static_cast<std::size_t>(std::max(reach, 0));
        return std::pair{at - std::min(at, far), std::min(valued.size(), at + far + 1)};
    };

    std::vector<Deviation> results(values.size());
    for (std::size_t v = 0; v < valued.size(); ++v) {
        std::vector<Point> points;
        const auto [first, end] = slice(v, around.reach);
        for (std::size_t w = first; w < end; ++w) {
            if (w != v)
                points.push_back({places[valued[w]], *values[valued[w]]});
        }
        if (points.size() < fewest)
            continue;
        Deviation& result = results[valued[v]];
        result.isKnown = true;
        result.isAtEnd = v - first < 2 || end - v - 1 < 2;
        result.expected = lineAt(points, places[valued[v]]);
        result.distance = *values[valued[v]] - result.expected;
    }
    for (std::size_t v = 0; v < valued.size(); ++v) {
        std::vector<double> distances;
        const auto [first, end] = slice(v, around.window / 2);
        for (std::size_t w = first; w < end; ++w) {
            if (w != v && results[valued[w]].isKnown)
                distances.push_back(results[valued[w]].distance);
        }
        double& spread = results[valued[v]].spread;
        if (around.countTails)
            spread = spreadWithTails(std::move(distances));
        else
            spread = robustSpread(std::move(distances), 0);
    }
    return results;
}
