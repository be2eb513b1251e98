/* gain: changes the amplitudes of traces. The steps have a fixed order: with time (power, then
 * exponential), balance, factor, clip. */
#include "gain_math.h"
#include "gain_parameters.h"
#include "vorn_kit.h"

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

/* What the module keeps from one call to the next. */
typedef struct state
{
    gain_parameters set;
    double interval; /* seconds */
    int length;      /* samples of each trace */
    double* curve;   /* the factors with time; null when there are none */
    int delay;       /* of the trace that the curve was made for, milliseconds */
} state;

static bool make_curve(state* kept, void* in);
static bool apply(state* kept, void* traces, int number);
static void write_history(const gain_parameters* set);

static bool prepare(state* kept)
{
    void* in = vorn_required_input(0);

    /* The modules before this one have described their outputs by now. */
    if (in == NULL || vorn_build_required_output(0, in) == NULL ||
        !gain_read_parameters(&kept->set) || !make_curve(kept, in))
        return false;
    write_history(&kept->set);
    return true;
}

/* One trace in, one trace out. */
static bool process(state* kept)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    const int number = vorn_pass_trace(in, out);

    if (kept->curve != NULL) {
        int delay = 0;
        knl_getI32TraceAttribute(in, "delrt", &delay);
        if (delay != kept->delay) {
            gain_curve(delay * 1e-3, kept->interval, kept->set.time_power, kept->set.exponent,
                       kept->curve, kept->length);
            kept->delay = delay;
        }
    }
    return apply(kept, out, number);
}

static void release(state* kept)
{
    free(kept->curve);
    gain_free_parameters(&kept->set);
}

VORN_MODULE(state, prepare, process, VORN_NOTHING, release);

/* ---- Steps of the entry points ---- */

/* False after a message. */
static bool make_curve(state* kept, void* in)
{
    const gain_parameters* set = &kept->set;
    const bool depends_on_time = set->time_power != 0 || set->exponent != 0;
    const int interval = knl_getTraceSampleInterval(in); /* microseconds */
    char what[80];

    if (depends_on_time && interval <= 0)
        return vorn_fail_without_interval();
    kept->length = knl_getTraceLength(in);
    kept->interval = interval * 1e-6;
    if (!depends_on_time || kept->length <= 0)
        return true;
    snprintf(what, sizeof what, "a curve for traces of %d samples", kept->length);
    if (!vorn_allow_memory(set->memory_limit, kept->length * (int64_t)sizeof *kept->curve, what,
                           "shorten the traces"))
        return false;
    /* Not the kernel's blocks: their sizes have 32 bits. */
    kept->curve = malloc((size_t)kept->length * sizeof *kept->curve);
    if (kept->curve == NULL) {
        vorn_fail("not enough memory for %s", what);
        return false;
    }
    gain_curve(0, kept->interval, set->time_power, set->exponent, kept->curve, kept->length);
    return true;
}

static gain_level level_of(enum gain_balance_choice balance)
{
    switch (balance) {
    case GAIN_BALANCE_RMS:
        return GAIN_LEVEL_RMS;
    case GAIN_BALANCE_MAX:
        return GAIN_LEVEL_MAX;
    case GAIN_BALANCE_MEAN:
        return GAIN_LEVEL_MEAN;
    default:
        return GAIN_LEVEL_NONE;
    }
}

/* False after a message. */
static bool apply(state* kept, void* traces, int number)
{
    const gain_parameters* set = &kept->set;
    float* samples;
    double level;

    if (kept->length <= 0)
        return true;
    samples = vorn_required_samples(traces, number);
    if (samples == NULL)
        return false;
    if (kept->curve != NULL)
        gain_apply_curve(kept->curve, samples, kept->length);
    level = gain_level_of(level_of(set->balance), samples, kept->length);
    /* A dead trace has no level to balance and stays dead. */
    gain_scale(level > 0 ? set->factor / level : set->factor, set->clip, samples, kept->length);
    return true;
}

static void write_history(const gain_parameters* set)
{
    char text[240] = "gain";

    if (set->time_power != 0)
        vorn_append(text, sizeof text, " time_power=%g", set->time_power);
    if (set->exponent != 0)
        vorn_append(text, sizeof text, " exponent=%g 1/s", set->exponent);
    if (set->balance != GAIN_BALANCE_NONE)
        vorn_append(text, sizeof text, " balance=%s", gain_balance_word(set->balance));
    if (set->factor != 1)
        vorn_append(text, sizeof text, " factor=%g", set->factor);
    if (set->has_clip)
        vorn_append(text, sizeof text, " clip=%g", set->clip);
    vorn_add_history(text);
}
