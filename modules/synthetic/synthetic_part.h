/** @file synthetic_part.h
 *
 * Which of the traces of a line are given: all of them, or ranges of their numbers.
 */
#ifndef SYNTHETIC_PART_H
#define SYNTHETIC_PART_H

#include <stdbool.h>
#include <stdint.h>

/** Numbers of traces, from 1, both ends included. */
typedef struct synthetic_range
{
    int64_t first;
    int64_t last;
} synthetic_range;

/** Ranges in ascending order that do not overlap. */
typedef struct synthetic_part
{
    synthetic_range* ranges;
    int range_count;
    int64_t count; /**< traces in all ranges */
    int64_t last;  /**< number of the last one; 0 when there is none */
} synthetic_part;

/** Reads "1:100,201:300" into `part`, as far as it lies within the numbers 1 to `traces`; `text`
 * may be null for all of them. False after a message, for a text that is not such a list, for
 * ranges out of order and for a part without a trace of the line. The part is freed with
 * synthetic_free_part() in any case. */
bool synthetic_read_part(synthetic_part* part, const char* text, int64_t traces);

/** The least number of the part from `number` on; one behind its last when there is none. */
int64_t synthetic_next_of_part(const synthetic_part* part, int64_t number);

void synthetic_free_part(synthetic_part* part);

#endif
