/// @file nmo_math.h
///
/// The hyperbolic moveout of reflections. Independent of the kernel.
#ifndef NMO_MATH_H
#define NMO_MATH_H

#include "Velocities.h"
#include "sampling/SincInterpolator.h"

#include <vector>

/// t(t0) = sqrt(t0^2 + (x / v(t0))^2): when a reflection with the time t0 at zero offset arrives at
/// the offset x. Seconds, metres.
double arrivalTime(const VelocityFunction& velocity, double offset, double zeroOffsetTime);

/// The time at zero offset of what arrives at `time`. Requires: it lies between `low`, of which
/// what arrives is not after `time`, and `high`, of which it is not before it.
double zeroOffsetTime(const VelocityFunction& velocity, double offset, double time, double low,
                      double high);

/// Where the samples of a trace lie.
struct TraceGrid
{
    double start;    ///< of the first sample, seconds after the shot
    double interval; ///< seconds
    int count;
};

/// How much stretch is accepted.
struct StretchMute
{
    double limit; ///< the largest (t - t0) / t0
    double taper; ///< seconds; the amplitude rises as (1 - cos) / 2 behind the last muted sample
};

/// Writes the corrected trace to `out`. Samples before the time 0 are zeros, and all up to the last
/// one that is stretched too much or, where the velocity grows fast, arrives after its successor.
/// An offset of 0 copies the trace. Returns how many samples were muted.
int correctMoveout(const sampling::SincInterpolator& interpolator, const VelocityFunction& velocity,
                   double offset, const TraceGrid& grid, const StretchMute& mute, const double* in,
                   double* out);

/// Writes the trace before the correction to `out`: zeros before the time at which reflections
/// begin to arrive.
void undoMoveout(const sampling::SincInterpolator& interpolator, const VelocityFunction& velocity,
                 double offset, const TraceGrid& grid, const double* in, double* out);

#endif
