/** @file plan_flags.h
 *
 * How transforms are planned.
 */
#ifndef PLAN_FLAGS_H
#define PLAN_FLAGS_H

/* C++ modules include this too; it stays C. */
/* NOLINTBEGIN(modernize-use-nullptr) */

#include <fftw3.h>
#include <stdlib.h>

/** Flags for the planners of FFTW: no measuring, which would give other results each time.
 *
 * FFTW chooses its code by the instructions of the processor, and the last digits differ between
 * vector instructions of different widths. Where the job is to have the same result on every
 * machine (the environment has VORN_PORTABLE, as "vorn run --portable" sets it), it uses none. */
static inline unsigned transforms_plan_flags(void)
{
    return getenv("VORN_PORTABLE") != NULL ? FFTW_ESTIMATE | FFTW_NO_SIMD : FFTW_ESTIMATE;
}

/* NOLINTEND(modernize-use-nullptr) */

#endif
