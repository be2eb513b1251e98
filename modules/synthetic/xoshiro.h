/** @file xoshiro.h
 *
 * The random numbers of synthetic data: xoshiro256** 1.0 of D. Blackman and S. Vigna, seeded
 * through SplitMix64. Integer arithmetic only, so that a seed gives the same numbers on every
 * machine.
 */
#ifndef XOSHIRO_H
#define XOSHIRO_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct xoshiro
{
    uint64_t state[4];
} xoshiro;

/** Steps `*state` on and gives the next number of SplitMix64. */
uint64_t splitmix64_next(uint64_t* state);

/** The generator of a seed; any seed is valid. */
xoshiro xoshiro_seeded(uint64_t seed);

/** The next number, 64 random bits. */
uint64_t xoshiro_next(xoshiro* generator);

/** A random number from 0 to below `bound`, which is at least 1. Some numbers are more likely than
 * others by one part in 2^32 / bound. */
uint32_t xoshiro_below(xoshiro* generator, uint32_t bound);

#ifdef __cplusplus
}
#endif

#endif
