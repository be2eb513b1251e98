#include "Velocities.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

std::string text(double value)
{
    std::array<char, 40> written;
    std::snprintf(written.data(), written.size(), "%.9g", value);
    return written.data();
}

// One location needs no name.
std::string nameOf(const VelocityPick& pick, bool isAlone)
{
    return (isAlone ? std::string() : "at location " + text(pick.location) + ", ") + "time " +
           text(pick.time) + " s";
}

} // namespace

VelocityFunction::VelocityFunction(std::vector<double> times, std::vector<double> velocities)
    : knots(std::move(times)), values(std::move(velocities))
{
}

double VelocityFunction::at(double time) const
{
    const auto above = std::upper_bound(knots.begin(), knots.end(), time);
    if (above == knots.begin())
        return values.front();
    if (above == knots.end())
        return values.back();
    const auto i = static_cast<std::size_t>(above - knots.begin());
    const double part = (time - knots[i - 1]) / (knots[i] - knots[i - 1]);
    return values[i - 1] + part * (values[i] - values[i - 1]);
}

Velocities::Velocities(const std::vector<VelocityPick>& picks)
{
    if (picks.empty())
        throw std::runtime_error("there are no velocities; give one at least");
    const bool isAlone = std::all_of(picks.begin(), picks.end(), [&](const VelocityPick& pick) {
        return pick.location == picks.front().location;
    });
    std::map<double, std::pair<std::vector<double>, std::vector<double>>> byPlace;
    least = greatest = picks.front().velocity;
    for (const VelocityPick& pick : picks) {
        if (!std::isfinite(pick.location) || !std::isfinite(pick.time) ||
            !std::isfinite(pick.velocity))
            throw std::runtime_error(nameOf(pick, isAlone) + ": the velocity is " +
                                     text(pick.velocity) + " m/s; give finite numbers");
        if (pick.velocity <= 0)
            throw std::runtime_error(nameOf(pick, isAlone) + ": the velocity is " +
                                     text(pick.velocity) + " m/s; give one above 0");
        auto& [times, velocities] = byPlace[pick.location];
        if (!times.empty() && pick.time <= times.back())
            throw std::runtime_error(nameOf(pick, isAlone) + " comes after " + text(times.back()) +
                                     " s; give the times of a location in ascending order");
        times.push_back(pick.time);
        velocities.push_back(pick.velocity);
        least = std::min(least, pick.velocity);
        greatest = std::max(greatest, pick.velocity);
    }
    for (auto& [place, function] : byPlace) {
        places.push_back(place);
        functions.emplace_back(std::move(function.first), std::move(function.second));
    }
}

VelocityFunction Velocities::at(double location) const
{
    const auto above = std::upper_bound(places.begin(), places.end(), location);
    if (above == places.begin())
        return functions.front();
    if (above == places.end())
        return functions.back();
    const auto i = static_cast<std::size_t>(above - places.begin());
    const double part = (location - places[i - 1]) / (places[i] - places[i - 1]);
    const VelocityFunction& before = functions[i - 1];
    const VelocityFunction& after = functions[i];
    // The sum of both is straight between the picks of either.
    std::vector<double> times;
    std::set_union(before.times().begin(), before.times().end(), after.times().begin(),
                   after.times().end(), std::back_inserter(times));
    std::vector<double> values;
    values.reserve(times.size());
    for (const double time : times)
        values.push_back((1 - part) * before.at(time) + part * after.at(time));
    return {std::move(times), std::move(values)};
}

double Velocities::firstTime() const
{
    double first = HUGE_VAL;
    for (const VelocityFunction& function : functions)
        for (const double time : function.times())
            if (time > 0)
                first = std::min(first, time);
    return std::isinf(first) ? 0 : first;
}
