/** @file bandpass_math.h
 *
 * Zero-phase filtering of traces by real amplitudes in the frequency domain. Knows nothing of the
 * kernel.
 *
 *     bandpass_filter* filter = bandpass_create(1500, 0.002, response, &design);
 *     bandpass_apply(filter, samples);      // for each trace
 *     bandpass_free(filter);
 *
 * Traces are padded with zeros to at least twice their length, so that no sample reaches another
 * one around the end: what comes out is the linear convolution with the filter's impulse response,
 * as far as that is not longer than a trace to either side.
 */
#ifndef BANDPASS_MATH_H
#define BANDPASS_MATH_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Slopes of a band; a cut-off of 0 stands for none. */
typedef struct bandpass_band
{
    double low;        /**< lower half-power frequency, Hz */
    double low_slope;  /**< steepness below it, dB per octave */
    double high;       /**< upper half-power frequency, Hz */
    double high_slope; /**< steepness above it, dB per octave */
} bandpass_band;

/** The amplitude at `frequency` (Hz, not negative) of the trapezoid with the ascending corners: 0
 * up to the first one, a straight line to 1 at the second, 1 to the third, a straight line to 0 at
 * the fourth. Corners that are equal make a step, and what lies on the step passes.
 */
double bandpass_trapezoid(const double corners[4], double frequency);

/** The amplitude at `frequency` (Hz, not negative) of a Butterworth band: 0.7071 at its two
 * frequencies, falling off outside by as many dB per octave as asked. */
double bandpass_butterworth(const bandpass_band* band, double frequency);

/** The amplitude that a design has at a frequency (Hz). */
typedef double (*bandpass_response)(const void* design, double frequency);

/** Samples that a trace of `samples` samples is padded to: at least twice as many, a multiple of 8
 * from 32 on that has no prime factor above 5, which the transform needs. 0 for an empty trace, and
 * where the number would be too large. */
int bandpass_transform_length(int samples);

/** Bytes of memory that a filter for traces of `samples` samples takes; 0 where the transform has
 * no length. */
int64_t bandpass_bytes(int samples);

typedef struct bandpass_filter bandpass_filter;

/** A filter for traces of one length. The amplitudes are taken from `response` once.
 *
 * @param samples   samples of each trace, at least 1
 * @param interval  sample interval in seconds, above 0
 * @return the filter, which the caller frees with bandpass_free(); null when there is not enough
 * memory
 */
bandpass_filter* bandpass_create(int samples, double interval, bandpass_response response,
                                 const void* design);

/** Filters a trace of the filter's length in place. Samples that are infinite or NaN stay as
 * they are, and count as 0 for all others.
 *
 * @return the number of such samples
 */
int bandpass_apply(bandpass_filter* filter, float* samples);

/** Null is accepted. */
void bandpass_free(bandpass_filter* filter);

#ifdef __cplusplus
}
#endif

#endif
