/* bandpass: a zero-phase band-pass filter. */
#include "bandpass_math.h"
#include "bandpass_parameters.h"
#include "vorn_kit.h"
#include "vorn_parts.h"

#include <stdint.h>
#include <stdio.h>

typedef struct design
{
    bool is_trapezoid; /* by its corners; else by the band */
    double corners[4];
    bandpass_band band;
} design;

/* What the module keeps from one call to the next. */
typedef struct state
{
    bandpass_parameters set;
    bandpass_filter* filter; /* null when traces have no samples */
    int64_t odd_traces;      /* that hold samples that are infinite or NaN */
    int64_t odd_samples;
} state;

static bool choose_design(const bandpass_parameters* set, int interval, design* chosen);
static bool fits_interval(const design* chosen, int interval);
static bool make_filter(state* kept, const design* chosen, int samples, int interval);
static void write_history(const design* chosen);

static bool prepare(state* kept)
{
    void* in = vorn_required_input(0);
    design chosen;
    int interval;

    /* The modules before this one have described their outputs by now. */
    if (in == NULL || vorn_build_required_output(0, in) == NULL ||
        !bandpass_read_parameters(&kept->set))
        return false;
    interval = knl_getTraceSampleInterval(in);
    if (!choose_design(&kept->set, interval, &chosen) || !fits_interval(&chosen, interval) ||
        !make_filter(kept, &chosen, knl_getTraceLength(in), interval))
        return false;
    write_history(&chosen);
    return true;
}

/* One trace in, one trace out. */
static bool process(state* kept)
{
    void* out = vorn_output(0);
    const int number = vorn_pass_trace(vorn_input(0), out);
    float* samples;
    int odd;

    if (kept->filter == NULL)
        return true;
    samples = vorn_required_samples(out, number);
    if (samples == NULL)
        return false;
    odd = bandpass_apply(kept->filter, samples);
    kept->odd_samples += odd;
    kept->odd_traces += odd > 0;
    return true;
}

static void finish(state* kept)
{
    if (kept->odd_samples > 0)
        vorn_message(VORN_WARNING,
                     "samples that are infinite or NaN: %lld, in traces: %lld; they stay as "
                     "they are and count as 0",
                     (long long)kept->odd_samples, (long long)kept->odd_traces);
}

static void release(state* kept)
{
    bandpass_free(kept->filter);
    bandpass_free_parameters(&kept->set);
}

static bool save(state* kept, vorn_state_writer* file)
{
    const int64_t counts[2] = {kept->odd_traces, kept->odd_samples};

    vorn_put_int64s(file, counts, 2);
    return true;
}

static bool merge(state* kept, vorn_state_reader* file)
{
    int64_t counts[2];

    if (!vorn_get_int64s(file, counts, 2))
        return false;
    kept->odd_traces += counts[0];
    kept->odd_samples += counts[1];
    return true;
}

VORN_MODULE(state, prepare, process, finish, release);
VORN_MODULE_IN_PARTS(state, save, merge);

/* ---- The filter. Functions that return bool return false after a message. ---- */

static bool choose_corners(const double* given, design* chosen)
{
    int i;

    for (i = 0; i < 4; ++i) {
        chosen->corners[i] = given[i];
        if (i > 0 && given[i] < given[i - 1]) {
            vorn_fail("corners are %g, %g, %g and %g Hz; give four frequencies in ascending order",
                      given[0], given[1], given[2], given[3]);
            return false;
        }
    }
    if (given[0] == given[3]) {
        vorn_fail("corners are all %g Hz; give a band", given[0]);
        return false;
    }
    return true;
}

/* Interval in microseconds. */
static bool choose_relative(const double* percent, int interval, design* chosen)
{
    double corners[4];
    double nyquist;
    int i;

    if (interval <= 0)
        return vorn_fail_without_interval();
    nyquist = 0.5e6 / interval;
    for (i = 0; i < 4; ++i)
        corners[i] = percent[i] / 100 * nyquist;
    if (!choose_corners(corners, chosen))
        return false;
    vorn_message(
        VORN_INFORMATION,
        "corners are %g, %g, %g and %g Hz, in percent of the Nyquist frequency, %g Hz: %g, "
        "%g, %g and %g",
        corners[0], corners[1], corners[2], corners[3], nyquist, percent[0], percent[1], percent[2],
        percent[3]);
    return true;
}

static bool choose_design(const bandpass_parameters* set, int interval, design* chosen)
{
    const bool has_band = set->has_low || set->has_high;

    memset(chosen, 0, sizeof *chosen);
    chosen->is_trapezoid = set->corners_count > 0 || set->relative_count > 0;
    if (set->corners_count > 0 && set->relative_count > 0) {
        vorn_fail("corners and relative are given; give one or the other");
        return false;
    }
    if (chosen->is_trapezoid == has_band) {
        vorn_fail("%s", has_band ? "corners and low or high are given; give one or the other"
                                 : "no frequencies are given; give corners, or low, high or both");
        return false;
    }
    if (set->relative_count > 0)
        return choose_relative(set->relative, interval, chosen);
    if (chosen->is_trapezoid)
        return choose_corners(set->corners, chosen);
    if (set->has_low && set->has_high && set->low >= set->high) {
        vorn_fail("low is %g Hz and high is %g Hz; low must be below high", set->low, set->high);
        return false;
    }
    chosen->band.low = set->low;
    chosen->band.high = set->high;
    chosen->band.low_slope = set->low_slope;
    chosen->band.high_slope = set->high_slope;
    return true;
}

/* Interval in microseconds. Traces without samples need no interval. */
static bool fits_interval(const design* chosen, int interval)
{
    const double lowest = chosen->is_trapezoid ? chosen->corners[0] : chosen->band.low;
    const double highest = chosen->is_trapezoid ? chosen->corners[3] : chosen->band.high;
    double nyquist;

    if (interval <= 0)
        return vorn_fail_without_interval();
    nyquist = 0.5e6 / interval;
    if (lowest >= nyquist) {
        vorn_fail(
            "the band begins at %g Hz, and a sample interval of %g ms holds frequencies below "
            "%g Hz only; nothing would pass",
            lowest, interval / 1000.0, nyquist);
        return false;
    }
    if (highest > nyquist)
        vorn_message(VORN_WARNING,
                     "the band ends at %g Hz, above the highest frequency of the data, %g Hz",
                     highest, nyquist);
    return true;
}

static double trapezoid_response(const void* chosen, double frequency)
{
    return bandpass_trapezoid(((const design*)chosen)->corners, frequency);
}

static double band_response(const void* chosen, double frequency)
{
    return bandpass_butterworth(&((const design*)chosen)->band, frequency);
}

static bool make_filter(state* kept, const design* chosen, int samples, int interval)
{
    char what[80];

    if (samples <= 0)
        return true;
    if (bandpass_transform_length(samples) == 0) {
        vorn_fail("traces of %d samples are too long to be transformed; give shorter ones",
                  samples);
        return false;
    }
    snprintf(what, sizeof what, "the transform of traces of %d samples", samples);
    if (!vorn_allow_memory(kept->set.memory_limit, bandpass_bytes(samples), what,
                           "shorten the traces"))
        return false;
    kept->filter =
        bandpass_create(samples, interval * 1e-6,
                        chosen->is_trapezoid ? trapezoid_response : band_response, chosen);
    if (kept->filter == NULL)
        vorn_fail("not enough memory to transform traces of %d samples", samples);
    return kept->filter != NULL;
}

static void append_side(char* text, size_t size, const char* name, double frequency, double slope)
{
    if (frequency > 0)
        vorn_append(text, size, " %s=%g Hz %g dB/octave", name, frequency, slope);
}

static void write_history(const design* chosen)
{
    const double* corners = chosen->corners;
    char text[200] = "bandpass";

    if (chosen->is_trapezoid)
        snprintf(text, sizeof text, "bandpass corners=%g,%g,%g,%g Hz", corners[0], corners[1],
                 corners[2], corners[3]);
    append_side(text, sizeof text, "low", chosen->band.low, chosen->band.low_slope);
    append_side(text, sizeof text, "high", chosen->band.high, chosen->band.high_slope);
    vorn_add_history(text);
}
