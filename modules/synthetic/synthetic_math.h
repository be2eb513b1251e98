/** @file synthetic_math.h
 *
 * The components of synthetic shot gathers. Independent of the kernel.
 */
#ifndef SYNTHETIC_MATH_H
#define SYNTHETIC_MATH_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** A wave on its hyperbola; with a time of 0, a wave along the surface. */
typedef struct synthetic_event
{
    double time;      /**< at offset 0, seconds */
    double velocity;  /**< m/s */
    double amplitude; /**< of the wavelet's peak */
    double frequency; /**< at which the wavelet's spectrum is greatest, Hz */
} synthetic_event;

/** What can be wrong with a trace. */
typedef enum synthetic_defect
{
    SYNTHETIC_GOOD,
    SYNTHETIC_DEAD,     /**< all samples are 0 */
    SYNTHETIC_NOISY,    /**< noise that buries the signal */
    SYNTHETIC_REVERSED, /**< the other polarity */
    SYNTHETIC_SPIKY     /**< some samples far too large */
} synthetic_defect;

/** The Ricker wavelet, 1 at time 0 (seconds). */
double synthetic_ricker(double time, double frequency);

/** Traveltime in seconds to an offset in metres (of either sign). */
double synthetic_traveltime(const synthetic_event* event, double offset);

/** Adds an event to a trace whose first sample is at time 0. Where the wavelet is smaller than
 * 1e-8 of its peak, 1.5 periods away from it, it is left out. */
void synthetic_add_event(const synthetic_event* event, double offset, double interval,
                         float* samples, int count);

/** A number that seeds what is random in a trace, and differs from trace to trace. */
uint64_t synthetic_trace_seed(uint64_t seed, int shot, int channel);

/** Adds white noise of a root mean square of `rms`: each sample is the sum of four numbers that are
 * uniformly distributed, which is nearly normal and never greater than 3.47 `rms`. */
void synthetic_add_noise(uint64_t seed, double rms, float* samples, int count);

/** Damages a complete trace.
 *
 * @param level  amplitude to compare with, such as that of the strongest event
 */
void synthetic_damage(synthetic_defect defect, uint64_t seed, double level, float* samples,
                      int count);

/** Chooses `bad` of `channels` channels (all when there are no more) and what is wrong with each;
 * the others are good. */
void synthetic_choose_defects(uint64_t seed, int bad, synthetic_defect* defects, int channels);

#ifdef __cplusplus
}
#endif

#endif
