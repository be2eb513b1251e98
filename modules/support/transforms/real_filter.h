/** @file real_filter.h
 *
 * RealTransform for C: filters traces by real gains in the frequency domain.
 *
 *     real_filter* filter = real_filter_create(real_filter_length(3000), gains);
 *     float* values = real_filter_values(filter);
 *     ... fill all of them ...
 *     real_filter_apply(filter);
 *     real_filter_free(filter);
 */
#ifndef REAL_FILTER_H
#define REAL_FILTER_H

#ifdef __cplusplus
#include <cstdint>

extern "C" {
#else
#include <stdint.h>
#endif

typedef struct real_filter real_filter;

/** The shortest length from `least` on that a filter can have: a multiple of 8 from 32 on without
 * factors but 2, 3 and 5. 0 where that is above 2^30. */
int real_filter_length(int64_t least);

/** Bytes that a filter of such a length takes. */
int64_t real_filter_bytes(int length);

/** A filter with the amplitudes `gains` for the frequencies 0 to length / 2, in units of 1 /
 * length; they need not be kept.
 *
 * @param length  one that real_filter_length() gives
 * @return the filter, which the caller frees with real_filter_free(); null when there is not enough
 * memory
 */
real_filter* real_filter_create(int length, const float* gains);

/** The signal, as many floats as the filter is long: it repeats after them. */
float* real_filter_values(real_filter* filter);

/** Filters the signal, multiplied by the length. */
void real_filter_apply(real_filter* filter);

/** Null is accepted. */
void real_filter_free(real_filter* filter);

#ifdef __cplusplus
}
#endif

#endif
