/** @file vorn_parameters.h
 *
 * Reads parameters of the running module and checks them against what its manifest states. The
 * functions are called by the code that is made from manifests (NAME_parameters), in C and C++.
 *
 * The `vorn` command has checked the job file against the manifest; hosts that do not are refused
 * here, with one wording for all modules: "window is 0 s; give a number above 0".
 */
#ifndef VORN_PARAMETERS_H
#define VORN_PARAMETERS_H

/* C++ modules include this too; it stays C. */
/* NOLINTBEGIN(modernize-use-nullptr,bugprone-macro-parentheses) */

#include "vorn_kit.h"

#include <math.h>
#include <stdint.h>

/** What the manifest states about a parameter. */
typedef struct vorn_parameter
{
    const char* name;
    const char* unit;     /**< with a blank before it, or empty */
    const char* expected; /**< for messages: "a number above 0" */
    bool is_required;
    double least;    /**< of numbers, and of the elements of a list */
    double greatest; /**< likewise */
    bool excludes_least;
    bool excludes_greatest;
    int least_count;          /**< elements of a list */
    int greatest_count;       /**< likewise */
    const char* const* words; /**< of a choice; null for any text */
    int word_count;
} vorn_parameter;

/** Memory of the texts and lists of a set of parameters; zero-filled before the first use. */
typedef struct vorn_memory
{
    void* last; /**< each block begins with the address of the one before */
} vorn_memory;

/** `count` elements of `size` bytes for as long as `memory` is not freed; null, after a message of
 * the kernel's, when there is not enough memory. */
static inline void* vorn_take_memory(vorn_memory* memory, int count, size_t size)
{
    /* The address of the block before takes the room of two, which keeps the elements aligned. */
    const size_t before = 2 * sizeof(void*);
    void** block;

    if ((size_t)count > ((size_t)INT_MAX - before) / size)
        return knl_allocateResource(-1);
    block = (void**)knl_allocateResource((int)(before + (size_t)count * size));
    if (block == NULL)
        return NULL;
    block[0] = memory->last;
    memory->last = block;
    return block + 2;
}

static inline void vorn_free_memory(vorn_memory* memory)
{
    while (memory->last != NULL) {
        void* before = *(void**)memory->last;
        knl_freeResource(memory->last);
        memory->last = before;
    }
}

/* ---- Refusals: always false, after a fatal message. ---- */

static inline bool vorn_refuse_missing(const vorn_parameter* p)
{
    vorn_fail("%s is missing; give %s", p->name, p->expected);
    return false;
}

static inline bool vorn_refuse_number(const vorn_parameter* p, double value)
{
    vorn_fail("%s is %g%s; give %s", p->name, value, p->unit, p->expected);
    return false;
}

static inline bool vorn_refuse_integer(const vorn_parameter* p, int64_t value)
{
    vorn_fail("%s is %lld%s; give %s", p->name, (long long)value, p->unit, p->expected);
    return false;
}

static inline bool vorn_refuse_text(const vorn_parameter* p, const char* value)
{
    vorn_fail("%s is \"%.40s\"; give %s", p->name, value, p->expected);
    return false;
}

static inline bool vorn_refuse_count(const vorn_parameter* p, int count)
{
    if (count == 0 && p->is_required)
        return vorn_refuse_missing(p);
    vorn_fail("%s has %d element%s; give %s", p->name, count, count == 1 ? "" : "s", p->expected);
    return false;
}

/* ---- Scalars. `*given` says whether the job has the parameter; `*value` is untouched if not. ----
 */

static inline bool vorn_check_absent(const vorn_parameter* p, bool given)
{
    return given || !p->is_required || vorn_refuse_missing(p);
}

static inline bool vorn_is_within(const vorn_parameter* p, double value)
{
    return isfinite(value) && value >= p->least && value <= p->greatest &&
           !(p->excludes_least && value == p->least) &&
           !(p->excludes_greatest && value == p->greatest);
}

static inline bool vorn_read_double(const vorn_parameter* p, double* value, bool* given)
{
    *given = knl_getF64ModuleParameter(p->name, value) == 1;
    if (!*given)
        return vorn_check_absent(p, false);
    return vorn_is_within(p, *value) || vorn_refuse_number(p, *value);
}

static inline bool vorn_read_int64(const vorn_parameter* p, int64_t* value, bool* given)
{
    *given = knl_getI64ModuleParameter(p->name, value) == 1;
    if (!*given)
        return vorn_check_absent(p, false);
    return vorn_is_within(p, (double)*value) || vorn_refuse_integer(p, *value);
}

/* A value that the bounds allow and an int does not hold. The message has the bounds where they are
 * narrower than an int. */
static inline bool vorn_refuse_wide(const vorn_parameter* p, int64_t value)
{
    double least = INT_MIN;
    double greatest = INT_MAX;

    if (p->least >= least)
        least = -floor(-p->least) + (p->excludes_least && p->least == floor(p->least) ? 1 : 0);
    if (p->greatest <= greatest)
        greatest = floor(p->greatest) -
                   (p->excludes_greatest && p->greatest == floor(p->greatest) ? 1 : 0);
    vorn_fail("%s is %lld%s; give a number from %.0f to %.0f", p->name, (long long)value, p->unit,
              least, greatest);
    return false;
}

static inline bool vorn_read_int(const vorn_parameter* p, int* value, bool* given)
{
    int64_t wide = *value;

    if (!vorn_read_int64(p, &wide, given))
        return false;
    if (wide < INT_MIN || wide > INT_MAX)
        return vorn_refuse_wide(p, wide);
    *value = (int)wide;
    return true;
}

static inline bool vorn_read_bool(const vorn_parameter* p, bool* value, bool* given)
{
    int64_t number = *value;

    *given = knl_getI64ModuleParameter(p->name, &number) == 1;
    if (!*given)
        return vorn_check_absent(p, false);
    if (number != 0 && number != 1)
        return vorn_refuse_integer(p, number);
    *value = number != 0;
    return true;
}

/** A text of any length; an empty one counts as missing where the parameter is required. */
static inline bool vorn_read_text(const vorn_parameter* p, vorn_memory* memory, const char** value,
                                  bool* given)
{
    const int length = knl_getStrModuleParameterN(p->name, NULL, 0);
    char* text;

    *given = length >= 0;
    if (length < 0 || (length == 0 && p->is_required))
        return vorn_check_absent(p, false);
    text = (char*)vorn_take_memory(memory, length + 1, 1);
    if (text == NULL)
        return false;
    knl_getStrModuleParameterN(p->name, text, length + 1);
    *value = text;
    return true;
}

/** Number of the word in p->words, from 0. */
static inline bool vorn_read_choice(const vorn_parameter* p, int* value, bool* given)
{
    char text[256];
    const int length = knl_getStrModuleParameterN(p->name, text, (int)sizeof text);
    int i;

    *given = length >= 0;
    if (!*given)
        return vorn_check_absent(p, false);
    for (i = 0; i < p->word_count; ++i) {
        if (strcmp(text, p->words[i]) == 0) {
            *value = i;
            return true;
        }
    }
    return vorn_refuse_text(p, text);
}

/* ---- Lists. `*values` is untouched when the job has no such parameter. ---- */

static inline bool vorn_check_count(const vorn_parameter* p, int count)
{
    return (count >= p->least_count && count <= p->greatest_count) || vorn_refuse_count(p, count);
}

/** The elements as doubles, whatever kind of numbers they are; null, after a message, when they are
 * none. `*count` is -1 when the job has no such parameter. */
static inline const double* vorn_number_list(const vorn_parameter* p, vorn_memory* memory,
                                             int* count)
{
    double* f64 = NULL;
    float* f32 = NULL;
    int64_t* i64 = NULL;
    int* i32 = NULL;
    double* values;
    int i;

    if (knl_getF64ArrayModuleParameter(p->name, &f64, count) == 0) {
        *count = -1;
        return NULL;
    }
    if (f64 == NULL)
        knl_getF32ArrayModuleParameter(p->name, &f32, count);
    if (f64 == NULL && f32 == NULL)
        knl_getI64ArrayModuleParameter(p->name, &i64, count);
    if (f64 == NULL && f32 == NULL && i64 == NULL)
        knl_getI32ArrayModuleParameter(p->name, &i32, count);
    if (f64 == NULL && f32 == NULL && i64 == NULL && i32 == NULL && *count > 0) {
        vorn_fail("%s is not a list of numbers; give %s", p->name, p->expected);
        return NULL;
    }
    values = (double*)vorn_take_memory(memory, *count > 0 ? *count : 1, sizeof *values);
    for (i = 0; values != NULL && i < *count; ++i)
        values[i] = f64 != NULL   ? f64[i]
                    : f32 != NULL ? (double)f32[i]
                    : i64 != NULL ? (double)i64[i]
                                  : (double)i32[i];
    return values;
}

static inline bool vorn_read_doubles(const vorn_parameter* p, vorn_memory* memory,
                                     const double** values, int* count)
{
    int found;
    int i;
    const double* list = vorn_number_list(p, memory, &found);

    if (found < 0)
        return vorn_check_absent(p, false);
    if (list == NULL || !vorn_check_count(p, found))
        return false;
    for (i = 0; i < found; ++i) {
        if (!vorn_is_within(p, list[i])) {
            vorn_fail("%s holds %g%s; give %s", p->name, list[i], p->unit, p->expected);
            return false;
        }
    }
    *values = list;
    *count = found;
    return true;
}

/** Whole numbers; those of other kinds are refused where they are not whole. */
static inline bool vorn_read_int64s(const vorn_parameter* p, vorn_memory* memory,
                                    const int64_t** values, int* count)
{
    int64_t* i64 = NULL;
    int64_t* list;
    const double* numbers = NULL;
    int found;
    int i;

    /* 64-bit elements do not take the way over doubles, which have 53 bits. */
    if (knl_getI64ArrayModuleParameter(p->name, &i64, &found) == 0)
        return vorn_check_absent(p, false);
    if (i64 == NULL) {
        numbers = vorn_number_list(p, memory, &found);
        if (numbers == NULL)
            return false;
    }
    if (!vorn_check_count(p, found))
        return false;
    list = (int64_t*)vorn_take_memory(memory, found > 0 ? found : 1, sizeof *list);
    if (list == NULL)
        return false;
    for (i = 0; i < found; ++i) {
        const double number = i64 != NULL ? (double)i64[i] : numbers[i];
        /* The range of 64 bits ends at 2 to the power of 63, which is the next double. */
        const bool fits = number >= -9223372036854775808.0 && number < 9223372036854775808.0;
        if (!vorn_is_within(p, number) || number != floor(number) || (i64 == NULL && !fits)) {
            vorn_fail("%s holds %.17g%s; give %s", p->name, number, p->unit, p->expected);
            return false;
        }
        list[i] = i64 != NULL ? i64[i] : (int64_t)number;
    }
    *values = list;
    *count = found;
    return true;
}

static inline bool vorn_read_ints(const vorn_parameter* p, vorn_memory* memory, const int** values,
                                  int* count)
{
    const int64_t* wide = NULL;
    int* list;
    int found = -1;
    int i;

    if (!vorn_read_int64s(p, memory, &wide, &found))
        return false;
    if (found < 0)
        return true;
    list = (int*)vorn_take_memory(memory, found > 0 ? found : 1, sizeof *list);
    if (list == NULL)
        return false;
    for (i = 0; i < found; ++i) {
        if (wide[i] < INT_MIN || wide[i] > INT_MAX)
            return vorn_refuse_wide(p, wide[i]);
        list[i] = (int)wide[i];
    }
    *values = list;
    *count = found;
    return true;
}

static inline bool vorn_check_words(const vorn_parameter* p, const char* const* texts, int count)
{
    int i, k;

    for (i = 0; i < count; ++i) {
        for (k = 0; k < p->word_count && strcmp(texts[i], p->words[k]) != 0; ++k)
            ;
        if (p->word_count > 0 && k == p->word_count) {
            vorn_fail("%s holds \"%.40s\"; give %s", p->name, texts[i], p->expected);
            return false;
        }
    }
    return true;
}

/** The lines of the parameter's text; an empty text is a list without elements. */
static inline bool vorn_read_texts(const vorn_parameter* p, vorn_memory* memory,
                                   const char* const** values, int* count)
{
    const int length = knl_getStrModuleParameterN(p->name, NULL, 0);
    const char** list;
    char* text;
    int found, i, k;

    if (length < 0)
        return vorn_check_absent(p, false);
    text = (char*)vorn_take_memory(memory, length + 1, 1);
    if (text == NULL)
        return false;
    knl_getStrModuleParameterN(p->name, text, length + 1);
    found = text[0] != '\0' ? 1 : 0;
    for (i = 0; text[i] != '\0'; ++i)
        found += text[i] == '\n' ? 1 : 0;
    if (!vorn_check_count(p, found))
        return false;
    list = (const char**)vorn_take_memory(memory, found > 0 ? found : 1, sizeof *list);
    if (list == NULL)
        return false;
    for (i = 0, k = 0; k < found; ++k) {
        list[k] = text + i;
        while (text[i] != '\n' && text[i] != '\0')
            ++i;
        text[i++] = '\0';
    }
    if (!vorn_check_words(p, list, found))
        return false;
    *values = list;
    *count = found;
    return true;
}

/* NOLINTEND(modernize-use-nullptr,bugprone-macro-parentheses) */

#endif
