#include "exact_sums.h"

#include <math.h>
#include <stdlib.h>

static const int64_t limb_mask = 0xffffffff;

int64_t exact_sums_bytes(int64_t count, int rows)
{
    return (int64_t)sizeof(exact_sums) + count * rows * (int64_t)sizeof(int64_t);
}

exact_sums* exact_sums_create(size_t count)
{
    exact_sums* sums = calloc(1, sizeof *sums);

    if (sums != NULL)
        sums->count = count;
    return sums;
}

void exact_sums_free(exact_sums* sums)
{
    int batch;
    int row;

    if (sums == NULL)
        return;
    for (batch = 0; batch < EXACT_SUMS_BATCHES; ++batch)
        free(sums->batches[batch]);
    for (row = 0; row < EXACT_SUMS_ROWS; ++row)
        free(sums->rows[row]);
    free(sums);
}

static void clear_batch(exact_sums* sums, int batch)
{
    memset(sums->batches[batch], 0, sums->count * sizeof *sums->batches[batch]);
    sums->batch_terms[batch] = 0;
}

void exact_sums_clear(exact_sums* sums)
{
    int batch;
    int row;

    for (batch = 0; batch < EXACT_SUMS_BATCHES; ++batch) {
        if (sums->batches[batch] != NULL)
            clear_batch(sums, batch);
    }
    for (row = 0; row < EXACT_SUMS_ROWS; ++row) {
        if (sums->rows[row] != NULL)
            memset(sums->rows[row], 0, sums->count * sizeof *sums->rows[row]);
    }
}

int64_t* exact_sums_row(exact_sums* sums, int row)
{
    if (sums->rows[row] == NULL)
        sums->rows[row] = calloc(sums->count > 0 ? sums->count : 1, sizeof *sums->rows[row]);
    return sums->rows[row];
}

/* The limb keeps 0 to 2^32 - 1, and its excess, of either sign, goes to the next. */
bool exact_sums_carry(exact_sums* sums, size_t sum, int row)
{
    const int64_t most = INT64_C(1) << 62;

    for (; row + 1 < EXACT_SUMS_ROWS; ++row) {
        int64_t* limb = &sums->rows[row][sum];
        int64_t* next;
        if (*limb<most&& * limb> - most)
            return true;
        next = exact_sums_row(sums, row + 1);
        if (next == NULL)
            return false;
        next[sum] += (*limb - (*limb & limb_mask)) / (limb_mask + 1);
        *limb &= limb_mask;
    }
    return true; /* more terms than can be counted would be needed to come here */
}

static bool flush_batch(exact_sums* sums, int batch)
{
    size_t i;

    for (i = 0; i < sums->count; ++i) {
        if (sums->batches[batch][i] != 0 && !exact_sums_add_whole(sums, i, sums->batches[batch][i]))
            return false;
    }
    clear_batch(sums, batch);
    return true;
}

bool exact_sums_begin(exact_sums* sums, double bound, exact_batch* to)
{
    const int step = 8; /* of exponents, from batch to batch */
    const int least = -920;
    int exponent;
    int batch;

    frexp(bound, &exponent); /* the bound is below 2^exponent */
    batch = (exponent - least + step - 1) / step;
    exponent = least + batch * step;
    if (sums->batches[batch] == NULL) {
        const size_t count = sums->count > 0 ? sums->count : 1;
        sums->batches[batch] = calloc(count, sizeof *sums->batches[batch]);
    }
    if (sums->batches[batch] == NULL)
        return false;
    if (sums->batch_terms[batch] == EXACT_SUMS_BATCH_TERMS && !flush_batch(sums, batch))
        return false;
    ++sums->batch_terms[batch];
    to->sums = sums->batches[batch];
    to->rounding = ldexp(1.5, 52 + exponent - EXACT_SUMS_BATCH_BITS);
    return true;
}

bool exact_sums_flush(exact_sums* sums)
{
    int batch;

    for (batch = 0; batch < EXACT_SUMS_BATCHES; ++batch) {
        if (sums->batch_terms[batch] > 0 && !flush_batch(sums, batch))
            return false;
    }
    return true;
}

/* Writes the limbs of the absolute value, each from 0 to 2^32 - 1; whether the sum is negative. */
static bool load(const exact_sums* sums, size_t sum, int64_t* limbs)
{
    int64_t carry = 0;
    bool is_negative;
    int row;

    for (row = 0; row < EXACT_SUMS_ROWS; ++row) {
        carry += sums->rows[row] != NULL ? sums->rows[row][sum] : 0;
        limbs[row] = carry & limb_mask;
        carry = (carry - limbs[row]) / (limb_mask + 1);
    }
    is_negative = carry < 0;
    if (!is_negative)
        return false;
    carry = 1; /* of the two's complement */
    for (row = 0; row < EXACT_SUMS_ROWS; ++row) {
        carry += ~limbs[row] & limb_mask;
        limbs[row] = carry & limb_mask;
        carry = carry > limb_mask;
    }
    return true;
}

double exact_sums_value(const exact_sums* sums, size_t sum)
{
    int64_t limbs[EXACT_SUMS_ROWS];
    const bool is_negative = load(sums, sum, limbs);
    uint64_t leading;
    uint64_t below;
    int shift = 0;
    int top = EXACT_SUMS_ROWS - 1;
    int row;
    double value;

    while (top > 1 && limbs[top] == 0)
        --top;
    /* The highest 64 bits that are not 0, the lowest of which stands for all that follow: they
     * decide only whether a value half-way between two doubles is just above it. */
    leading = (uint64_t)limbs[top] << 32 | (uint64_t)limbs[top - 1];
    below = top > 1 ? (uint64_t)limbs[top - 2] : 0;
    while (top > 1 && leading >> 63 == 0) {
        leading = leading << 1 | (below >> 31 & 1);
        below = below << 1 & (uint64_t)limb_mask;
        ++shift;
    }
    for (row = 0; row < top - 2; ++row)
        below |= (uint64_t)limbs[row];
    if (leading >> 53 != 0) {
        int dropped = 0;
        uint64_t rest;
        while (leading >> dropped >> 53 != 0)
            ++dropped;
        rest = leading & ((UINT64_C(1) << dropped) - 1);
        leading >>= dropped;
        if (rest > UINT64_C(1) << (dropped - 1) ||
            (rest == UINT64_C(1) << (dropped - 1) && (below != 0 || (leading & 1) != 0)))
            ++leading;
        shift -= dropped;
    }
    value = ldexp((double)leading, 32 * (top - 1) - shift - 1074);
    return is_negative ? -value : value;
}

bool exact_sums_merge_row(exact_sums* sums, int row, const int64_t* limbs)
{
    int64_t* own = exact_sums_row(sums, row);
    size_t i;

    if (own == NULL)
        return false;
    for (i = 0; i < sums->count; ++i) {
        /* Both are below 2^62. */
        own[i] += limbs[i];
        if (!exact_sums_carry(sums, i, row))
            return false;
    }
    return true;
}

bool exact_sums_merge(exact_sums* sums, const exact_sums* other)
{
    int row;

    for (row = 0; row < EXACT_SUMS_ROWS; ++row) {
        if (other->rows[row] != NULL && !exact_sums_merge_row(sums, row, other->rows[row]))
            return false;
    }
    return true;
}
