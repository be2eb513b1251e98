/// @file window_math.h
///
/// Cutting and extending traces. Independent of the kernel.
#ifndef WINDOW_MATH_H
#define WINDOW_MATH_H

#include <cstdint>

/// Samples from `start` to `end`, both included, every `interval`; all in microseconds. 0 where the
/// end is before the start.
std::int64_t samplesBetween(double start, double end, int interval);

/// The sample, from 0, that is nearest to `time` in a trace that begins at `delay`; negative before
/// it. Microseconds.
std::int64_t nearestSample(double time, std::int64_t delay, int interval);

/// Copies `outCount` samples of `in` from sample `first` on, zeros where `in` has none. Returns how
/// many samples of `in` there were.
int copyWindow(const float* in, int inCount, std::int64_t first, float* out, int outCount);

#endif
