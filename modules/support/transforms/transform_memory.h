/** @file transform_memory.h
 *
 * What a Fourier transform of a long trace takes, for the modules that transform. FFTW ends the
 * process where it finds no memory for a plan: so its size is known, and tried, beforehand.
 */
#ifndef TRANSFORM_MEMORY_H
#define TRANSFORM_MEMORY_H

#ifdef __cplusplus
#include <cstdint>
#include <cstdlib>
#else
#include <stdint.h>
#include <stdlib.h>
#endif

/** The longest transform, in samples: it has small factors only, and FFTW counts in int. */
enum
{
    TRANSFORM_LONGEST = 1 << 30
};

/** Bytes that FFTW takes for `plans` estimated plans of real transforms of `length` samples: tables
 * and work space, beside the caller's buffer. Measured with lengths of 10^6 to 3 10^7: 4.4 to 7.7
 * bytes per sample for the first plan, up to 5 for the second. */
static inline int64_t transform_plan_bytes(int64_t length, int plans)
{
    return 6 * length * plans;
}

/** Whether so much memory is there now. Nothing is kept. */
static inline int transform_has_room(int64_t length, int plans)
{
    /* Volatile: the compiler would leave out a block that nobody uses. */
    void* volatile block = malloc((size_t)transform_plan_bytes(length, plans));
    const int is_there = block ? 1 : 0;

    free(block);
    return is_there;
}

#endif
