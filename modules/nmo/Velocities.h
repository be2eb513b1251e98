/// @file Velocities.h
///
/// Velocities by location and time. Independent of the kernel.
#ifndef VELOCITIES_H
#define VELOCITIES_H

#include <cstddef>
#include <vector>

/// A velocity given at a time at zero offset.
struct VelocityPick
{
    double location; ///< such as a CDP number
    double time;     ///< seconds
    double velocity; ///< metres per second
};

/// The velocity at one location: straight lines between picks, constant before the first and after
/// the last one.
class VelocityFunction
{
public:
    /// Times ascend; at least one.
    VelocityFunction(std::vector<double> times, std::vector<double> velocities);

    double at(double time) const;
    const std::vector<double>& times() const { return knots; }

private:
    std::vector<double> knots;
    std::vector<double> values;
};

/// Velocity functions at locations: at a location between two of them, the velocity at each time is
/// interpolated linearly; before the first and after the last one it is theirs.
class Velocities
{
public:
    /// Picks in any order of their locations; those of one location in ascending time. Throws
    /// std::runtime_error that names the pick and what was expected.
    explicit Velocities(const std::vector<VelocityPick>& picks);

    std::size_t locations() const { return places.size(); }
    VelocityFunction at(double location) const;
    double slowest() const { return least; }
    double fastest() const { return greatest; }
    /// The first time, above 0, at which a velocity is given; 0 when there is none.
    double firstTime() const;

private:
    std::vector<double> places; // ascending
    std::vector<VelocityFunction> functions;
    double least;
    double greatest;
};

#endif
