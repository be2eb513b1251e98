/* gain: changes the amplitudes of traces. The steps have a fixed order: with time (power, then
 * exponential), balance, factor, clip. */
#include "gain_math.h"
#include "knl.h"

#include <limits.h>
#include <math.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

enum
{
    FATAL = 4,       /* type of a message */
    END_OF_DATA = 3, /* flag of an output: no more traces will come */
    JOB = 0,         /* scopes of metadata */
    MODULE = 1
};

typedef struct settings
{
    double time_power;
    double exponent; /* 1/s */
    gain_level balance;
    double factor;
    double clip; /* 0: none */
} settings;

/* What the module keeps from one call to the next. */
typedef struct state
{
    settings set;
    double interval; /* seconds */
    int length;      /* samples of each trace */
    double* curve;   /* the factors with time; null when there are none */
    int delay;       /* of the trace that the curve was made for, milliseconds */
} state;

static state* find_state(void);
static int read_settings(settings* read);
static int keep_state(const settings* read, int length, int interval);
static void apply(state* kept, void* traces, int number);
static void write_history(const settings* read);
static void fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* ---- Entry points ---- */

int preprocess_(void)
{
    settings read;
    void* in;
    int length, interval;

    if (knl_getInputTraceBuffer(&in, 0) != 0) {
        fail("the module has no input; connect one");
        return 0;
    }
    /* The modules before this one have described their outputs by now. */
    length = knl_getTraceLength(in);
    interval = knl_getTraceSampleInterval(in);
    if (knl_bldOutputTraceBuffer(0, length, interval, in) != 0) {
        fail("the module has no output; connect one");
        return 0;
    }
    if (read_settings(&read) && keep_state(&read, length, interval))
        write_history(&read);
    return 0;
}

/* One trace in, one trace out. */
int process_(void)
{
    state* kept = find_state();
    void* in;
    void* out;
    int number;

    if (knl_getOutputTraceBuffer(&out, 0) != 0)
        return 0;
    if (kept == NULL) {
        knl_setDataChannelFlag(out, END_OF_DATA); /* preprocess_ has failed: do not ask again */
        return 0;
    }
    knl_getInputTraceBuffer(&in, 0);
    number = knl_getNumberOfTraces(out);
    /* Header, samples, and the flag that says whether this is the last trace. */
    knl_mcopyTraceToTrace(in, out, 1, 1, 0, number);
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
    return 0;
}

int postprocess_(void)
{
    state* kept = find_state();

    if (kept == NULL)
        return 0;
    knl_freeResource(kept->curve);
    knl_freeResource(kept);
    knl_setModuleResource("state", NULL);
    return 0;
}

/* ---- Parameters. Each function gives 1, or 0 after a message. ---- */

static int is_finite(const char* name, double value)
{
    if (isfinite(value))
        return 1;
    fail("%s is %g; give a finite number", name, value);
    return 0;
}

static int read_balance(gain_level* balance)
{
    static const char* const names[] = {"none", "rms", "max", "mean"}; /* as in gain_level */
    char text[4096] = "none"; /* the kernel copies whatever the job has, unchecked */
    int i;

    knl_getStrModuleParameter("balance", text);
    for (i = 0; i < 4; ++i) {
        if (strcmp(text, names[i]) == 0) {
            *balance = (gain_level)i;
            return 1;
        }
    }
    fail("balance is \"%.40s\"; give none, rms, max or mean", text);
    return 0;
}

static int read_settings(settings* read)
{
    read->time_power = 0;
    read->exponent = 0;
    read->factor = 1;
    read->clip = 0;
    knl_getF64ModuleParameter("time_power", &read->time_power);
    knl_getF64ModuleParameter("exponent", &read->exponent);
    knl_getF64ModuleParameter("factor", &read->factor);
    if (knl_getF64ModuleParameter("clip", &read->clip) == 1 && !(read->clip > 0)) {
        fail("clip is %g; give an amplitude above 0", read->clip);
        return 0;
    }
    return is_finite("time_power", read->time_power) && is_finite("exponent", read->exponent) &&
           is_finite("factor", read->factor) && read_balance(&read->balance);
}

/* ---- What the entry points are made of ---- */

static state* find_state(void)
{
    void* kept = NULL;

    knl_getModuleResource("state", &kept);
    return kept;
}

/* Interval in microseconds. 1, or 0 after a message. */
static int keep_state(const settings* read, int length, int interval)
{
    const int depends_on_time = read->time_power != 0 || read->exponent != 0;
    state* kept;
    char cause[2];

    if (depends_on_time && interval <= 0) {
        /* After a failure upstream there is nothing here to complain about. */
        if (knl_getMetaDataValue(JOB, "vorn.failed", cause, sizeof cause) == 0)
            fail("the input has no sample interval; the module before this one has to set it");
        return 0;
    }
    if (length > INT_MAX / (int)sizeof *kept->curve) {
        fail("traces of %d samples are too long", length);
        return 0;
    }
    kept = knl_allocateResource((int)sizeof *kept);
    if (kept == NULL)
        return 0; /* the kernel has said so */
    kept->set = *read;
    kept->length = length;
    kept->interval = interval * 1e-6;
    if (depends_on_time && length > 0) {
        kept->curve = knl_allocateResource(length * (int)sizeof *kept->curve);
        if (kept->curve == NULL) {
            knl_freeResource(kept);
            return 0;
        }
        gain_curve(0, kept->interval, read->time_power, read->exponent, kept->curve, length);
    }
    knl_setModuleResource("state", kept);
    return 1;
}

static void apply(state* kept, void* traces, int number)
{
    float* samples;
    double level;

    if (knl_getTraceSamples(traces, &samples, number) != 1)
        return;
    if (kept->curve != NULL)
        gain_apply_curve(kept->curve, samples, kept->length);
    level = gain_level_of(kept->set.balance, samples, kept->length);
    /* A dead trace has no level to balance and stays dead. */
    gain_scale(level > 0 ? kept->set.factor / level : kept->set.factor, kept->set.clip, samples,
               kept->length);
}

static void append(char* text, size_t size, const char* format, double value)
{
    const size_t used = strlen(text);

    snprintf(text + used, size - used, format, value);
}

static void write_history(const settings* read)
{
    static const char* const balances[] = {"", " balance=rms", " balance=max", " balance=mean"};
    char text[240] = "gain";

    if (read->time_power != 0)
        append(text, sizeof text, " time_power=%g", read->time_power);
    if (read->exponent != 0)
        append(text, sizeof text, " exponent=%g 1/s", read->exponent);
    strncat(text, balances[read->balance], sizeof text - strlen(text) - 1);
    if (read->factor != 1)
        append(text, sizeof text, " factor=%g", read->factor);
    if (read->clip > 0)
        append(text, sizeof text, " clip=%g", read->clip);
    knl_setMetaDataValue(MODULE, "history$", text);
}

/* Says why the module ends here, to the person and to those who write the job's files. */
static void fail(const char* format, ...)
{
    char text[400];
    char noted[420];
    va_list values;

    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    knl_sendMessage(FATAL, text);
    snprintf(noted, sizeof noted, "gain: %s", text);
    knl_setMetaDataValue(JOB, "vorn.failed", noted);
}
