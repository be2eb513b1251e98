/// @file combine_math.h
///
/// Traces from traces, sample by sample.
#ifndef COMBINE_MATH_H
#define COMBINE_MATH_H

#include <cstdint>
#include <vector>

struct CombineCounts
{
    std::int64_t samples = 0;   ///< of results
    std::int64_t undivided = 0; ///< of them, without a divisor
    std::int64_t odd = 0;       ///< of them, infinite or NaN
};

/// Each makes `length` samples of `result`, which may be one of the `inputs`, and counts them. Sums
/// are in double precision and rounded once.
/// @{

/// The first input less all others.
void combineDifference(const std::vector<const float*>& inputs, int length, float* result,
                       CombineCounts& counts);
void combineSum(const std::vector<const float*>& inputs, int length, float* result,
                CombineCounts& counts);
/// The first input over the second; 0 where the absolute divisor is 0 or at most `least` times the
/// greatest finite one.
void combineRatio(const std::vector<const float*>& inputs, int length, double least, float* result,
                  CombineCounts& counts);
/// @}

#endif
