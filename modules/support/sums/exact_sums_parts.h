/** @file exact_sums_parts.h
 *
 * Saves exact sums in a part of a job, and merges them, for modules in C: see vorn_parts.h.
 */
#ifndef EXACT_SUMS_PARTS_H
#define EXACT_SUMS_PARTS_H

#include "exact_sums.h"
#include "vorn_parts.h"

/** Writes the sums, which are flushed. */
static inline void exact_sums_put(vorn_state_writer* file, const exact_sums* sums)
{
    const int end = EXACT_SUMS_ROWS;
    int row;

    for (row = 0; row < EXACT_SUMS_ROWS; ++row) {
        if (sums->rows[row] == NULL)
            continue;
        vorn_put_ints(file, &row, 1);
        vorn_put_int64s(file, sums->rows[row], sums->count);
    }
    vorn_put_ints(file, &end, 1);
}

/** Adds sums that were written, of which there are as many as `sums` has. False after a fatal
 * message. */
static inline bool exact_sums_get(vorn_state_reader* file, exact_sums* sums)
{
    int64_t* limbs = (int64_t*)malloc((sums->count > 0 ? sums->count : 1) * sizeof *limbs);
    bool good = limbs != NULL;
    int row = 0;

    while (good) {
        good = vorn_get_ints(file, &row, 1);
        if (!good || row == EXACT_SUMS_ROWS) {
            free(limbs);
            return good;
        }
        if (row < 0 || row > EXACT_SUMS_ROWS) {
            free(limbs);
            return vorn_refuse_state(file, "it has a row that sums do not have");
        }
        if (!vorn_get_int64s(file, limbs, sums->count)) {
            free(limbs);
            return false;
        }
        good = exact_sums_merge_row(sums, row, limbs);
    }
    free(limbs);
    return vorn_refuse_state(file, "there is not enough memory to read it");
}

#endif
