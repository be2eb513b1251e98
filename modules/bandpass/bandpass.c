/* bandpass: lets a band of frequencies through, without changing phases. */
#include "bandpass_math.h"
#include "knl.h"

#include <math.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

enum
{
    WARNING = 2, /* types of messages */
    FATAL = 4,
    END_OF_DATA = 3, /* flag of an output: no more traces will come */
    JOB = 0,         /* scopes of metadata */
    MODULE = 1
};

typedef struct design
{
    int is_trapezoid; /* by its corners; else by the band */
    double corners[4];
    bandpass_band band;
} design;

/* What the module keeps from one call to the next. */
typedef struct state
{
    bandpass_filter* filter; /* null when traces have no samples */
    int64_t odd_traces;      /* that hold samples which are no finite numbers */
    int64_t odd_samples;
} state;

static state* find_state(void);
static int read_design(design* read);
static int fits_interval(const design* read, int interval);
static int keep_filter(const design* read, int samples, int interval);
static void write_history(const design* read);
static void fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* ---- Entry points ---- */

int preprocess_(void)
{
    design read;
    void* in;
    int interval;

    if (knl_getInputTraceBuffer(&in, 0) != 0) {
        fail("the module has no input; connect one");
        return 0;
    }
    /* The modules before this one have described their outputs by now. */
    interval = knl_getTraceSampleInterval(in);
    if (knl_bldOutputTraceBuffer(0, knl_getTraceLength(in), interval, in) != 0) {
        fail("the module has no output; connect one");
        return 0;
    }
    if (read_design(&read) && fits_interval(&read, interval) &&
        keep_filter(&read, knl_getTraceLength(in), interval))
        write_history(&read);
    return 0;
}

/* One trace in, one trace out. */
int process_(void)
{
    state* kept = find_state();
    void* in;
    void* out;
    float* samples;
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
    if (kept->filter != NULL && knl_getTraceSamples(out, &samples, number) == 1) {
        const int odd = bandpass_apply(kept->filter, samples);
        kept->odd_samples += odd;
        kept->odd_traces += odd > 0;
    }
    return 0;
}

int postprocess_(void)
{
    state* kept = find_state();
    char text[160];

    if (kept == NULL)
        return 0;
    if (kept->odd_samples > 0) {
        snprintf(
            text, sizeof text,
            "samples that are infinite or no numbers: %lld, in traces: %lld; they stay as they "
            "are and count as 0",
            (long long)kept->odd_samples, (long long)kept->odd_traces);
        knl_sendMessage(WARNING, text);
    }
    bandpass_free(kept->filter);
    knl_freeResource(kept);
    knl_setModuleResource("state", NULL);
    return 0;
}

/* ---- Parameters. Each function gives 1, or 0 after a message. ---- */

static int read_corners(design* read, const double* given, int count)
{
    int i;

    if (given == NULL || count != 4) {
        fail("corners has %d elements; give four frequencies", given == NULL ? 0 : count);
        return 0;
    }
    for (i = 0; i < 4; ++i) {
        read->corners[i] = given[i];
        if (!(isfinite(given[i]) && given[i] >= (i > 0 ? given[i - 1] : 0))) {
            fail("corners are %g, %g, %g and %g Hz; give four frequencies in ascending order",
                 given[0], given[1], given[2], given[3]);
            return 0;
        }
    }
    if (given[0] == given[3]) {
        fail("corners are all %g Hz; give a band", given[0]);
        return 0;
    }
    return 1;
}

static int is_positive(const char* name, double value, const char* unit)
{
    if (isfinite(value) && value > 0)
        return 1;
    fail("%s is %g %s; give a number above 0", name, value, unit);
    return 0;
}

static int read_band(bandpass_band* band, int has_low, int has_high)
{
    if ((has_low && !is_positive("low", band->low, "Hz")) ||
        (has_high && !is_positive("high", band->high, "Hz")))
        return 0;
    if (has_low && has_high && band->low >= band->high) {
        fail("low is %g Hz and high is %g Hz; low must be below high", band->low, band->high);
        return 0;
    }
    band->low_slope = 18;
    band->high_slope = 36;
    knl_getF64ModuleParameter("low_slope", &band->low_slope);
    knl_getF64ModuleParameter("high_slope", &band->high_slope);
    return is_positive("low_slope", band->low_slope, "dB/octave") &&
           is_positive("high_slope", band->high_slope, "dB/octave");
}

static int read_design(design* read)
{
    const design none = {0};
    double* corners = NULL;
    int count = 0;
    int has_low, has_high;

    *read = none;
    read->is_trapezoid = knl_getF64ArrayModuleParameter("corners", &corners, &count);
    has_low = knl_getF64ModuleParameter("low", &read->band.low);
    has_high = knl_getF64ModuleParameter("high", &read->band.high);
    if (read->is_trapezoid == (has_low || has_high)) {
        fail(read->is_trapezoid ? "corners and low or high are given; give one or the other"
                                : "no frequencies are given; give corners, or low, high or both");
        return 0;
    }
    return read->is_trapezoid ? read_corners(read, corners, count)
                              : read_band(&read->band, has_low, has_high);
}

/* Interval in microseconds. Traces without samples need none. */
static int fits_interval(const design* read, int interval)
{
    const double lowest = read->is_trapezoid ? read->corners[0] : read->band.low;
    const double highest = read->is_trapezoid ? read->corners[3] : read->band.high;
    double nyquist;
    char text[160];

    if (interval <= 0) {
        /* After a failure upstream there is nothing here to complain about. */
        if (knl_getMetaDataValue(JOB, "vorn.failed", text, sizeof text) == 0)
            fail("the input has no sample interval; the module before this one has to set it");
        return 0;
    }
    nyquist = 0.5e6 / interval;
    if (lowest >= nyquist) {
        fail("the band begins at %g Hz, and a sample interval of %g ms holds frequencies below %g "
             "Hz only; nothing would pass",
             lowest, interval / 1000.0, nyquist);
        return 0;
    }
    if (highest > nyquist) {
        snprintf(text, sizeof text,
                 "the band ends at %g Hz, above the highest frequency of the data, %g Hz", highest,
                 nyquist);
        knl_sendMessage(WARNING, text);
    }
    return 1;
}

/* ---- What the entry points are made of ---- */

static state* find_state(void)
{
    void* kept = NULL;

    knl_getModuleResource("state", &kept);
    return kept;
}

static double trapezoid_response(const void* chosen, double frequency)
{
    return bandpass_trapezoid(((const design*)chosen)->corners, frequency);
}

static double band_response(const void* chosen, double frequency)
{
    return bandpass_butterworth(&((const design*)chosen)->band, frequency);
}

static int keep_filter(const design* read, int samples, int interval)
{
    state* kept = knl_allocateResource((int)sizeof *kept);

    if (kept == NULL)
        return 0; /* the kernel has said so */
    if (samples > 0) {
        kept->filter =
            bandpass_create(samples, interval * 1e-6,
                            read->is_trapezoid ? trapezoid_response : band_response, read);
        if (kept->filter == NULL) {
            knl_freeResource(kept);
            fail("there is no memory to transform traces of %d samples", samples);
            return 0;
        }
    }
    knl_setModuleResource("state", kept);
    return 1;
}

static void append_side(char* text, size_t size, const char* name, double frequency, double slope)
{
    const size_t used = strlen(text);

    if (frequency > 0)
        snprintf(text + used, size - used, " %s=%g Hz %g dB/octave", name, frequency, slope);
}

static void write_history(const design* read)
{
    const double* corners = read->corners;
    char text[200] = "bandpass";

    if (read->is_trapezoid)
        snprintf(text, sizeof text, "bandpass corners=%g,%g,%g,%g Hz", corners[0], corners[1],
                 corners[2], corners[3]);
    append_side(text, sizeof text, "low", read->band.low, read->band.low_slope);
    append_side(text, sizeof text, "high", read->band.high, read->band.high_slope);
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
    snprintf(noted, sizeof noted, "bandpass: %s", text);
    knl_setMetaDataValue(JOB, "vorn.failed", noted);
}
