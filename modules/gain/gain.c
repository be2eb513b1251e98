/* gain: changes the amplitudes of traces. The steps have a fixed order: with time (power, then
 * exponential), balance, factor, clip. */
#include "gain_math.h"
#include "gain_parameters.h"
#include "vorn_kit.h"

#include <limits.h>

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
static void apply(state* kept, void* traces, int number);
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
    apply(kept, out, number);
    return true;
}

static void release(state* kept)
{
    knl_freeResource(kept->curve);
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

    if (depends_on_time && interval <= 0)
        return vorn_fail_without_interval();
    kept->length = knl_getTraceLength(in);
    if (kept->length > INT_MAX / (int)sizeof *kept->curve) {
        vorn_fail("traces of %d samples are too long", kept->length);
        return false;
    }
    kept->interval = interval * 1e-6;
    if (!depends_on_time || kept->length <= 0)
        return true;
    kept->curve = knl_allocateResource(kept->length * (int)sizeof *kept->curve);
    if (kept->curve == NULL)
        return false; /* the kernel has said so */
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

static void apply(state* kept, void* traces, int number)
{
    const gain_parameters* set = &kept->set;
    float* samples;
    double level;

    if (knl_getTraceSamples(traces, &samples, number) != 1)
        return;
    if (kept->curve != NULL)
        gain_apply_curve(kept->curve, samples, kept->length);
    level = gain_level_of(level_of(set->balance), samples, kept->length);
    /* A dead trace has no level to balance and stays dead. */
    gain_scale(level > 0 ? set->factor / level : set->factor, set->clip, samples, kept->length);
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
