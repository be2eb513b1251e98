/** @file sample_loops.h
 *
 * Loops over samples with the widest vectors that the processor has, and with the same results on
 * all processors; for C.
 */
#ifndef SAMPLE_LOOPS_H
#define SAMPLE_LOOPS_H

#ifdef __cplusplus
extern "C" {
#endif

/** Copies samples, with 0 in place of those that are infinite or NaN. The arrays do not overlap.
 *
 * @return the number of such samples
 */
int sample_loops_copy_finite(const float* from, int count, float* to);

/** The greatest absolute value of finite values; 0 of none. */
float sample_loops_greatest(const float* values, int count);

/** Multiplies each value by the factor, and the product by the weight. */
void sample_loops_weigh(float* values, const float* weights, float factor, int count);

/** Adds to each sum the value times the factor, rounded as exact_batch_add() does: `rounding` and
 * `sums` are those of an exact_batch. */
void sample_loops_add_rounded(const float* values, int count, double factor, double rounding,
                              double* sums);

/** Adds each value to its sum, and 1 to its number in `live` where it is not 0; NaN is not. */
void sample_loops_add(const float* values, int count, double* sums, int* live);

/** How many values are above 0 and below `least`, or above `most`. None is NaN. */
int sample_loops_beyond(const double* values, int count, double least, double most);

/** Multiplies each sample by `level` over its mean, or over the root of it; where the mean is 0, by
 * `level`. In single precision.
 *
 * Requires: means are 0 or within the range of single precision, and so are the factors. */
void sample_loops_balance(float* samples, const double* means, int count, float level,
                          int has_root);

#ifdef __cplusplus
}
#endif

#endif
