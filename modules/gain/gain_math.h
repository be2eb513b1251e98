/** @file gain_math.h
 *
 * Amplitudes of traces: with time, as a whole, and at most. Independent of the kernel.
 */
#ifndef GAIN_MATH_H
#define GAIN_MATH_H

#ifdef __cplusplus
extern "C" {
#endif

/** What a trace is divided by to balance it. */
typedef enum gain_level
{
    GAIN_LEVEL_NONE, /**< nothing: every trace has the level 1 */
    GAIN_LEVEL_RMS,  /**< root of the mean square */
    GAIN_LEVEL_MAX,  /**< greatest absolute amplitude */
    GAIN_LEVEL_MEAN  /**< mean absolute amplitude */
} gain_level;

/** The factor time^power * exp(exponent * time), never infinite. Times below 0 count as 0. For
 * negative powers, times below `interval` count as `interval`.
 *
 * @param time, interval  seconds; the interval is above 0
 * @param exponent        1/s
 */
double gain_at(double time, double interval, double power, double exponent);

/** gain_at() for the `count` samples of a trace whose first one is at `start` (seconds). */
void gain_curve(double start, double interval, double power, double exponent, double* curve,
                int count);

/** Multiplies each sample by its element of `curve`. */
void gain_apply_curve(const double* curve, float* samples, int count);

/** The level of a trace. Samples that are infinite or NaN are left out; 0 when no other is
 * left, and 1 for GAIN_LEVEL_NONE. */
double gain_level_of(gain_level kind, const float* samples, int count);

/** Multiplies the samples by `factor`, and clips absolute amplitudes above `clip` to it;
 * a clip of 0 stands for none. A NaN stays NaN. */
void gain_scale(double factor, double clip, float* samples, int count);

#ifdef __cplusplus
}
#endif

#endif
