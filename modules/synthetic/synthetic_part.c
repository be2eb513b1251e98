/* synthetic: ranges of the traces that are given. */
#include "synthetic_part.h"

#include "vorn_kit.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

/* A number at `*text`, which moves behind it; `missing` where another character stands there. */
static int64_t read_number(const char** text, int64_t missing)
{
    char* end;
    int64_t number;

    if (**text < '0' || **text > '9')
        return missing;
    errno = 0;
    number = strtoll(*text, &end, 10);
    *text = end;
    return errno == 0 ? number : INT64_MAX;
}

/* One range at `*text`, which moves behind it. */
static bool read_range(const char** text, synthetic_range* range)
{
    const char* const start = *text;
    const bool has_first = *start >= '0' && *start <= '9';

    range->first = read_number(text, 1);
    range->last = range->first;
    if (**text == ':') {
        ++*text;
        range->last = read_number(text, INT64_MAX);
    } else if (!has_first) {
        return false;
    }
    return **text == ',' || **text == '\0';
}

static void skip_blanks(const char* from, char* to)
{
    for (; *from != '\0'; ++from) {
        if (strchr(" \t\n", *from) == NULL)
            *to++ = *from;
    }
    *to = '\0';
}

/* Adds what of the range lies within the line. */
static bool add_range(synthetic_part* part, synthetic_range range, int64_t former, int64_t traces)
{
    if (range.first > range.last || range.first <= former || range.first < 1)
        return false;
    if (range.last > traces)
        range.last = traces;
    if (range.first > range.last)
        return true;
    part->ranges[part->range_count++] = range;
    part->count += range.last - range.first + 1;
    part->last = range.last;
    return true;
}

static bool read_ranges(synthetic_part* part, const char* text, int64_t traces)
{
    int64_t former = 0;

    for (;; ++text) {
        synthetic_range range;

        if (!read_range(&text, &range) || !add_range(part, range, former, traces))
            return false;
        former = range.last;
        if (*text == '\0')
            return true;
    }
}

bool synthetic_read_part(synthetic_part* part, const char* text, int64_t traces)
{
    const char* const given = text != NULL ? text : "1:";
    const size_t length = strlen(given);
    char* plain = malloc(length + 1);
    bool good;

    memset(part, 0, sizeof *part);
    part->ranges = calloc(length + 1, sizeof *part->ranges); /* as many as there are characters */
    good = plain != NULL && part->ranges != NULL;
    if (!good) {
        vorn_fail("not enough memory for the ranges of part");
    } else {
        skip_blanks(given, plain);
        good = read_ranges(part, plain, traces);
        if (!good)
            vorn_fail("part \"%s\" is not a list of ranges in ascending order, as in "
                      "1:100,201:300",
                      given);
        else if (text != NULL && part->count == 0 && traces > 0) {
            vorn_fail("part \"%s\" has none of the %lld traces of the line", given,
                      (long long)traces);
            good = false;
        }
    }
    free(plain);
    return good;
}

int64_t synthetic_next_of_part(const synthetic_part* part, int64_t number)
{
    int low = 0;
    int high = part->range_count;

    while (low < high) { /* to the first range that does not end before the number */
        const int middle = low + (high - low) / 2;

        if (part->ranges[middle].last < number)
            low = middle + 1;
        else
            high = middle;
    }
    if (low == part->range_count)
        return part->last + 1;
    return part->ranges[low].first > number ? part->ranges[low].first : number;
}

void synthetic_free_part(synthetic_part* part)
{
    free(part->ranges);
    part->ranges = NULL;
}
