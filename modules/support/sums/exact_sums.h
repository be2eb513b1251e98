/** @file exact_sums.h
 *
 * Sums that do not depend on the order of their terms, nor on how they are split into partial sums:
 * a job that runs in parts gives the same bits as one process. Independent of the kernel.
 *
 *     exact_sums* sums = exact_sums_create(bins);
 *     exact_sums_add(sums, bin, amplitude);       // for each trace and bin
 *     mean = exact_sums_value(sums, bin) / traces;
 *     exact_sums_free(sums);
 *
 * A sum is an integer, in units of the smallest double: limbs of 32 bits in integers of 64, which
 * leaves room for carries to wait. A term is added to one limb. The limbs of all sums for one range
 * of exponents are a row, which is there when a term has needed it: values of similar size take two
 * or three rows.
 *
 * A term is rounded to 28 bits, 2e-9 of itself, and the rest of the way is exact; floats are added
 * as they are. exact_sums_add_whole() adds all bits of a double. Of either, bits below 2^-1049 are
 * rounded off.
 *
 * After R. M. Neal: Fast exact summation using small and large superaccumulators.
 * arXiv:1505.05571, 2015.
 */
#ifndef EXACT_SUMS_H
#define EXACT_SUMS_H

/* C++ modules include this too; it stays C. */
/* NOLINTBEGIN(modernize-use-nullptr) */

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <string.h>

#ifdef __cplusplus
extern "C" {
#endif

enum
{
    EXACT_SUMS_ROWS = 68,     /**< 64 for the exponents of doubles, and those that carries reach */
    EXACT_SUMS_BATCHES = 232, /**< of bounds from 2^-920 to 2^928, each 2^8 times the one before */
    EXACT_SUMS_BATCH_BITS = 40,   /**< of a term in a batch */
    EXACT_SUMS_BATCH_TERMS = 8191 /**< that a double can sum of them without rounding */
};

/** Sums that belong together. The fields are for the functions here and for saving. */
typedef struct exact_sums
{
    size_t count; /**< of sums */
    /** By the exponent of its lowest bit; null until it is needed. */
    int64_t* rows[EXACT_SUMS_ROWS];
    /** Sums of batches by the exponent of their bound, multiples of a unit that are below 2^53 of
     * it; null until they are needed. */
    double* batches[EXACT_SUMS_BATCHES];
    int batch_terms[EXACT_SUMS_BATCHES]; /**< how many a sum can have, at most */
} exact_sums;

/** Bytes that `count` sums take in a number of rows. */
int64_t exact_sums_bytes(int64_t count, int rows);

/** `count` sums without terms; null when there is not enough memory. */
exact_sums* exact_sums_create(size_t count);

/** Null is accepted. */
void exact_sums_free(exact_sums* sums);

/** Forgets all terms; keeps the rows. */
void exact_sums_clear(exact_sums* sums);

/** The row `row`, which is made where it is not there; null when there is not enough memory. */
int64_t* exact_sums_row(exact_sums* sums, int row);

/** Passes on what a limb has in excess of 32 bits. False when there is not enough memory. */
bool exact_sums_carry(exact_sums* sums, size_t sum, int row);

/** Adds a finite value to a sum. False when there is not enough memory; the sum is then lost. */
static inline bool exact_sums_add(exact_sums* sums, size_t sum, double value)
{
    const uint64_t hidden = UINT64_C(1) << 52;
    const int dropped = 25; /* bits */
    const int64_t most = INT64_C(1) << 62;
    uint64_t bits;
    uint64_t mantissa;
    int exponent;
    int place;
    int64_t* row;
    int64_t term;

    memcpy(&bits, &value, sizeof bits);
    bits += UINT64_C(1) << (dropped - 1); /* what is rounded up may carry into the exponent */
    exponent = (int)(bits >> 52) & 0x7ff;
    mantissa = bits & (hidden - 1);
    if (exponent > 0)
        mantissa |= hidden;
    else
        exponent = 1;
    place = exponent - 1 + dropped;
    row = sums->rows[place / 32];
    if (row == NULL) {
        if (mantissa >> dropped == 0)
            return true; /* a sum of zeros needs no row */
        row = exact_sums_row(sums, place / 32);
        if (row == NULL)
            return false;
    }
    term = (int64_t)((mantissa >> dropped) << (place % 32));
    row[sum] += (bits >> 63) != 0 ? -term : term;
    if (row[sum] < most && row[sum] > -most)
        return true;
    return exact_sums_carry(sums, sum, place / 32);
}

/** Adds a finite value with all its bits. */
static inline bool exact_sums_add_whole(exact_sums* sums, size_t sum, double value)
{
    uint64_t bits;
    double high;

    /* The leading 27 bits and the others: both are terms of at most 28. */
    memcpy(&bits, &value, sizeof bits);
    bits &= ~((UINT64_C(1) << 26) - 1);
    memcpy(&high, &bits, sizeof high);
    return exact_sums_add(sums, sum, high) && exact_sums_add(sums, sum, value - high);
}

/** Where the terms of a batch go. */
typedef struct exact_batch
{
    double* sums;
    double rounding; /**< what added and taken away rounds a term to the unit */
} exact_batch;

/** Begins a batch of terms that are not above `bound` in size, and at most one for each sum. It is
 * over when something else is called for the sums. Terms are rounded to 2^-40 of the bound, or to
 * 2^-32 where the bound is just above a power of 256, and the rest is exact: for arrays, this takes
 * half of the time of adding term by term. False when there is not enough memory.
 *
 * Requires: bound is from 2^-900 to 2^900. */
bool exact_sums_begin(exact_sums* sums, double bound, exact_batch* batch);

/** Adds a term of a batch. */
static inline void exact_batch_add(const exact_batch* batch, size_t sum, double value)
{
    batch->sums[sum] += (value + batch->rounding) - batch->rounding;
}

/** Brings the terms of all batches into the rows, before these are read by others. False when there
 * is not enough memory. */
bool exact_sums_flush(exact_sums* sums);

/** The sum, rounded to the nearest double, infinite where it is beyond all of them. Requires: no
 * batch since the last flush. */
double exact_sums_value(const exact_sums* sums, size_t sum);

/** Adds the sums of `other`, of which there are as many; it is flushed. False when there is not
 * enough memory. */
bool exact_sums_merge(exact_sums* sums, const exact_sums* other);

/** Adds to each sum its limb of a row. False when there is not enough memory. */
bool exact_sums_merge_row(exact_sums* sums, int row, const int64_t* limbs);

#ifdef __cplusplus
}
#endif

/* NOLINTEND(modernize-use-nullptr) */

#endif
