/** @file spectrum_math.h
 *
 * The mean amplitude spectrum of traces. Independent of the kernel.
 *
 *     spectrum_sum* sum = spectrum_create(500, 0.004, SPECTRUM_COSINE);
 *     spectrum_add(sum, samples, 1500, 250, &odd);      // for each trace
 *     spectrum_mean(sum, amplitudes);                   // spectrum_bins(sum) of them
 *     spectrum_free(sum);
 *
 * Amplitudes are those of the sinusoids that a trace is made of: a sinusoid of amplitude A whose
 * periods fill the window gives A at its frequency. Windows are padded with zeros to twice their
 * length: every second bin is one of the window itself, those between lie half-way.
 */
#ifndef SPECTRUM_MATH_H
#define SPECTRUM_MATH_H

#include "sums/exact_sums.h"

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum spectrum_taper
{
    SPECTRUM_NONE,
    SPECTRUM_COSINE, /**< half a period of a squared sine over a tenth of the window at each end */
    SPECTRUM_HANN    /**< a squared sine over the window */
} spectrum_taper;

/** The weight of sample `i` of a window of `samples` samples, 0 to 1. Weights are symmetric. */
double spectrum_weight(spectrum_taper taper, int i, int samples);

/** Bytes of memory that the sum of spectra of `samples` samples takes, and its mean. */
int64_t spectrum_bytes(int samples);

typedef struct spectrum_sum spectrum_sum;

/** An empty sum for windows of one length.
 *
 * @param samples   samples of the window, at least 1
 * @param interval  sample interval in seconds, above 0
 * @return the sum, which the caller frees with spectrum_free(); null when there is not enough
 * memory
 */
spectrum_sum* spectrum_create(int samples, double interval, spectrum_taper taper);

/** Adds the spectrum of a trace of `count` samples, of which the window begins at sample `first`.
 * What the window has outside the trace counts as 0, and so do samples that are infinite or
 * NaN. A trace that is 0 throughout the window has no spectrum and is not added.
 *
 * @param[out] odd  the number of samples in the window that are infinite or NaN; always
 *                  written
 * @return 1 when added, 0 when not; -1 when there is not enough memory, and the sum is lost
 */
int spectrum_add(spectrum_sum* sum, const float* samples, int count, int64_t first, int* odd);

/** Frequencies from 0 to that of Nyquist: one more than the window has samples. */
int spectrum_bins(const spectrum_sum* sum);

/** Hz from bin to bin. */
double spectrum_step(const spectrum_sum* sum);

/** Traces that were added. */
int64_t spectrum_traces(const spectrum_sum* sum);

/** Samples of the window. */
int spectrum_samples(const spectrum_sum* sum);

/** The sums of all bins, for saving them and for adding those of another sum; null when there is
 * not enough memory. And the traces that come with those. */
exact_sums* spectrum_bin_sums(spectrum_sum* sum);
void spectrum_count(spectrum_sum* sum, int64_t traces);

/** Writes the mean of the amplitudes of all traces that were added, zeros when there are none.
 * Returns 0 when there is not enough memory for that. */
int spectrum_mean(spectrum_sum* sum, double* amplitudes);

/** Null is accepted. */
void spectrum_free(spectrum_sum* sum);

/** Where a spectrum is strong; Hz. */
typedef struct spectrum_band
{
    double peak;      /**< frequency of the greatest amplitude */
    double amplitude; /**< which is this */
    double low;       /**< the lowest frequency within the range of the peak, and the highest: */
    double high;      /**< on straight lines between bins, or the ends of the bins looked at */
} spectrum_band;

/** Looks at the bins `from` to `to`, which lie `step` Hz apart, for the peak and for the outermost
 * frequencies with at least `share` times its amplitude. A notch between them does not count.
 * Requires: 0 <= from <= to, amplitudes not negative. */
spectrum_band spectrum_find_band(const double* amplitudes, int from, int to, double step,
                                 double share);

/** The amplitude in dB relative to `reference`, not below `floor`, which is what stands for an
 * amplitude or a reference of 0. */
double spectrum_decibels(double amplitude, double reference, double floor);

/** The next number from `value` upwards that is 1, 1.2, 1.5, 2, 2.5, 3, 4, 5, 6 or 8 times a power
 * of ten; 1 for what is not above 0. */
double spectrum_round_up(double value);

/** Chooses the bins from `from` to `to` that a line needs in a picture of `columns` columns: all of
 * them, or where they are more than 2 * columns, the smallest and the greatest in each column, and
 * both ends.
 *
 * @param[out] chosen  ascending bins, with room for 2 * columns + 2
 * @return how many were chosen
 */
int spectrum_thin(const double* amplitudes, int from, int to, int columns, int* chosen);

#ifdef __cplusplus
}
#endif

#endif
