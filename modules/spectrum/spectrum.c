/* spectrum: draws the mean amplitude spectrum of selected traces, of one input or of
 * several, overlaid. */
#include "spectrum_math.h"
#include "spectrum_parameters.h"
#include "sums/exact_sums_parts.h"
#include "vorn_kit.h"
#include "vorn_parts.h"

#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

enum
{
    INPUTS = 4,    /* at most */
    COLUMNS = 1000 /* of a picture: lines have no more detail */
};

static const double band_share = 0.1; /* of the peak: -20 dB */

/* One input and its curve. */
typedef struct curve
{
    spectrum_sum* sum;  /* null until a trace has come that is chosen */
    double begin, end;  /* of the window, seconds */
    double nyquist;     /* Hz */
    double interval;    /* seconds */
    double* amplitudes; /* of all bins, in the end */
    int from, to;       /* bins in the picture */
    spectrum_band band;
    double first, last; /* times of the first trace that was chosen; seconds */
    bool has_record;    /* there was one, with samples */
    int64_t taken;      /* traces */
    int64_t outside;    /* traces that end before the window or begin behind it */
    int64_t dead;       /* that are zero throughout it */
    int64_t odd_traces;
    int64_t odd_samples;
} curve;

/* What the module keeps from one call to the next. */
typedef struct state
{
    spectrum_parameters set;
    int inputs;
    curve curves[INPUTS];
} state;

static bool check_parameters(const spectrum_parameters* set);
static bool check_inputs(state* kept);
static bool any_input(const state* kept, bool is_empty);
static bool take_traces(state* kept);
static void end_inputs(void);
static bool refuse_uneven_inputs(const state* kept);
static bool take_trace(state* kept, void* in, int input);
static bool finish_curves(state* kept);
static void report(const state* kept);
static void draw(const state* kept);
static bool save_curve(curve* one, vorn_state_writer* file);
static bool merge_curve(const spectrum_parameters* set, curve* one, vorn_state_reader* file);

static bool prepare(state* kept)
{
    void* in = vorn_required_input(0);

    if (in == NULL)
        return false;
    /* The traces of the first input pass to the output, if there is one. */
    vorn_build_output(0, in);
    if (!spectrum_read_parameters(&kept->set) || !check_parameters(&kept->set) ||
        !check_inputs(kept))
        return false;
    /* Of several inputs, one that ends before the others is seen in a further call. */
    if (kept->inputs > 1)
        knl_setModuleProcessingOption("RespectEOD", 1);
    return true;
}

/* One trace of each input. */
static bool process(state* kept)
{
    void* out = vorn_output(0);

    vorn_keep_empty_inputs();
    if (any_input(kept, true)) {
        if (any_input(kept, false))
            return refuse_uneven_inputs(kept);
        end_inputs();
        return true;
    }
    if (!take_traces(kept))
        return false;
    if (out == NULL)
        return true;
    vorn_pass_trace(vorn_input(0), out);
    /* Of several inputs, the last trace is the one after which none has another. */
    if (kept->inputs > 1)
        knl_setDataChannelFlag(out, 0);
    return true;
}

static void finish(state* kept)
{
    /* An input whose end is not marked ends the module without a further call. */
    if (any_input(kept, true) && any_input(kept, false) && !refuse_uneven_inputs(kept))
        return;
    if (finish_curves(kept)) {
        report(kept);
        draw(kept);
    }
}

static void release(state* kept)
{
    int i;

    for (i = 0; i < kept->inputs; ++i) {
        spectrum_free(kept->curves[i].sum);
        free(kept->curves[i].amplitudes);
    }
    spectrum_free_parameters(&kept->set);
}

/* In a part that ends, as in finish, inputs may be uneven. */
static bool save(state* kept, vorn_state_writer* file)
{
    int i;

    if (any_input(kept, true) && any_input(kept, false) && !refuse_uneven_inputs(kept))
        return false;
    for (i = 0; i < kept->inputs; ++i) {
        if (!save_curve(&kept->curves[i], file))
            return false;
    }
    return true;
}

static bool merge(state* kept, vorn_state_reader* file)
{
    int i;

    for (i = 0; i < kept->inputs; ++i) {
        if (!merge_curve(&kept->set, &kept->curves[i], file))
            return false;
    }
    return true;
}

VORN_MODULE(state, prepare, process, finish, release);
VORN_MODULE_IN_PARTS(state, save, merge);

/* ---- Parameters. Each function returns false after a message. ---- */

static bool check_selection(const spectrum_parameters* set)
{
    const bool has_word = set->word[0] != '\0';

    if (has_word != (set->has_first || set->has_last)) {
        if (has_word)
            vorn_fail("word is %.100s without a range; give first, last or both", set->word);
        else
            vorn_fail("first or last is given without word; name the header word that they are of");
        return false;
    }
    if (set->has_first && set->has_last && set->first > set->last) {
        vorn_fail("first is %g and last is %g; first must not be above last", set->first,
                  set->last);
        return false;
    }
    return true;
}

static bool check_parameters(const spectrum_parameters* set)
{
    if (set->has_tmin && set->has_tmax && set->tmin >= set->tmax) {
        vorn_fail("tmin is %g s and tmax is %g s; tmin must be below tmax", set->tmin, set->tmax);
        return false;
    }
    if (set->has_fmax && set->fmax <= set->fmin) {
        vorn_fail("fmax is %g Hz; give a frequency above that of fmin, %g Hz", set->fmax,
                  set->fmin);
        return false;
    }
    return check_selection(set);
}

static bool check_inputs(state* kept)
{
    const spectrum_parameters* set = &kept->set;
    double highest = 0;
    void* in;

    for (; kept->inputs < INPUTS && knl_getInputTraceBuffer(&in, kept->inputs) == 0; ++kept->inputs)
    {
        curve* one = &kept->curves[kept->inputs];
        const int interval = knl_getTraceSampleInterval(in); /* microseconds */
        if (interval <= 0) {
            if (!vorn_job_has_failed())
                vorn_fail(
                    "input %d has no sample interval; the module before this one has to set it",
                    kept->inputs + 1);
            return false;
        }
        one->interval = interval * 1e-6;
        one->nyquist = 0.5e6 / interval;
        highest = fmax(highest, one->nyquist);
    }
    if (knl_getInputTraceBuffer(&in, INPUTS) == 0) {
        vorn_fail("the module has more than %d inputs; connect fewer", INPUTS);
        return false;
    }
    if (set->fmin >= highest) {
        vorn_fail("fmin is %g Hz, and the data end at %g Hz; give a lower one", set->fmin, highest);
        return false;
    }
    if (set->has_fmax && set->fmax > highest)
        vorn_message(VORN_WARNING, "fmax is %g Hz, above the highest frequency of the data, %g Hz",
                     set->fmax, highest);
    return true;
}

/* ---- Traces ---- */

/* 1 or 0; -1 after a message. */
static int is_chosen(const spectrum_parameters* set, void* in)
{
    double value;

    if (set->word[0] == '\0')
        return 1;
    if (knl_getF64TraceAttribute(in, set->word, &value) == 0) {
        vorn_fail("the traces have no header word \"%.100s\"; name one that they have with word",
                  set->word);
        return -1;
    }
    return (!set->has_first || value >= set->first) && (!set->has_last || value <= set->last);
}

static spectrum_taper taper_of(enum spectrum_taper_choice taper)
{
    switch (taper) {
    case SPECTRUM_TAPER_NONE:
        return SPECTRUM_NONE;
    case SPECTRUM_TAPER_HANN:
        return SPECTRUM_HANN;
    default:
        return SPECTRUM_COSINE;
    }
}

/* Makes the sum for the window. Returns 0 after a message. */
static int create_sum(const spectrum_parameters* set, curve* one)
{
    char what[80];
    int count = (int)floor((one->end - one->begin) / one->interval + 1e-6) + 1;
    if (count < 1) /* tmin lies on the last sample, or next to nothing behind it */
        count = 1;
    snprintf(what, sizeof what, "the spectrum of %d samples", count);
    if (!vorn_allow_memory(set->memory_limit, spectrum_bytes(count), what,
                           "choose a shorter window with tmin and tmax"))
        return 0;
    one->sum = spectrum_create(count, one->interval, taper_of(set->taper));
    if (one->sum != NULL)
        return 1;
    vorn_fail("not enough memory for the spectrum of %d samples", count);
    return 0;
}

/* Begins the sum with a window that reaches no further than this trace; `start` is the time of its
 * first sample. Returns 0 after a message. */
static int begin_curve(const spectrum_parameters* set, curve* one, double start, int samples)
{
    const double end = start + (samples - 1) * one->interval;

    one->begin = set->has_tmin && set->tmin > start ? set->tmin : start;
    one->end = set->has_tmax && set->tmax < end ? set->tmax : end;
    return create_sum(set, one);
}

/* Whether an input is empty, or whether one is not. */
static bool any_input(const state* kept, bool is_empty)
{
    int i;

    for (i = 0; i < kept->inputs; ++i) {
        if ((knl_getNumberOfTraces(vorn_input(i)) == 0) == is_empty)
            return true;
    }
    return false;
}

/* One trace of each input. False after a message. */
static bool take_traces(state* kept)
{
    int i;

    for (i = 0; i < kept->inputs; ++i) {
        if (!take_trace(kept, vorn_input(i), i))
            return false;
    }
    return true;
}

/* All inputs have ended. */
static void end_inputs(void)
{
    knl_setModuleProcessingOption("RespectEOD", 0); /* or a last module is called for ever */
    vorn_end_outputs();
}

/* One input has ended, and another one has not. False after a message; a failure before this module
 * explains it. */
static bool refuse_uneven_inputs(const state* kept)
{
    const int64_t before = vorn_part_first();
    long long taken, left;
    int ended = -1;
    int longer = -1;
    int i;

    if (vorn_job_has_failed())
        return true;
    for (i = kept->inputs - 1; i >= 0; --i) {
        if (knl_getNumberOfTraces(vorn_input(i)) == 0)
            ended = i;
        else
            longer = i;
    }
    taken = before + kept->curves[ended].taken;
    left = before + kept->curves[longer].taken;
    vorn_fail("input %d has ended after %lld traces, and input %d has more than %lld; give inputs "
              "with as many traces each, or each input a module of its own",
              ended + 1, taken, longer + 1, left);
    return false;
}

/* False after a message. */
static bool take_trace(state* kept, void* in, int input)
{
    const spectrum_parameters* set = &kept->set;
    curve* one = &kept->curves[input];
    const int samples = knl_getTraceLength(in);
    const int chosen = is_chosen(set, in);
    const double slack = 1e-6 * one->interval;
    float* values;
    double start, end;
    int delay = 0; /* milliseconds */
    int added, odd;

    ++one->taken;
    if (chosen != 1)
        return chosen == 0;
    knl_getI32TraceAttribute(in, "delrt", &delay);
    start = delay * 1e-3;
    end = start + (samples - 1) * one->interval;
    if (samples > 0 && !one->has_record) {
        one->has_record = true;
        one->first = start;
        one->last = end;
    }
    if (samples < 1 || knl_getTraceSamples(in, &values, 0) == 0 ||
        (set->has_tmin && set->tmin > end + slack) || (set->has_tmax && set->tmax < start - slack))
    {
        ++one->outside;
        return 1;
    }
    if (one->sum == NULL && !begin_curve(set, one, start, samples))
        return 0;
    added = spectrum_add(one->sum, values, samples, llround((one->begin - start) / one->interval),
                         &odd);
    if (added < 0) {
        vorn_fail("not enough memory for the spectrum of %d samples", spectrum_samples(one->sum));
        return 0;
    }
    one->dead += added == 0;
    one->odd_samples += odd;
    one->odd_traces += odd > 0;
    return 1;
}

/* ---- Parts. Each function returns false after a message. ---- */

static bool save_curve(curve* one, vorn_state_writer* file)
{
    const int64_t counts[] = {one->taken,       one->outside,    one->dead,       one->odd_traces,
                              one->odd_samples, one->has_record, one->sum != NULL};
    const double times[] = {one->first, one->last, one->begin, one->end};
    exact_sums* sums;
    int64_t traces;

    vorn_put_int64s(file, counts, sizeof counts / sizeof counts[0]);
    vorn_put_doubles(file, times, sizeof times / sizeof times[0]);
    if (one->sum == NULL)
        return true;
    sums = spectrum_bin_sums(one->sum);
    if (sums == NULL) {
        vorn_fail("not enough memory for the spectrum of %d samples", spectrum_samples(one->sum));
        return false;
    }
    traces = spectrum_traces(one->sum);
    vorn_put_int64s(file, &traces, 1);
    exact_sums_put(file, sums);
    return true;
}

/* Whether the traces of a part had the window of those before. A window reaches no further than the
 * first trace, and that of a part may begin at another time than that of the job. */
static bool check_window(const curve* one, double begin, double end)
{
    if (one->begin == begin && one->end == end)
        return true;
    vorn_fail("the first traces of two parts have the window from %g to %g s and from %g to %g s; "
              "give tmin and tmax within all traces, or run the job in one process",
              one->begin, one->end, begin, end);
    return false;
}

static bool merge_curve(const spectrum_parameters* set, curve* one, vorn_state_reader* file)
{
    int64_t counts[7];
    double times[4];
    int64_t traces;

    if (!vorn_get_int64s(file, counts, 7) || !vorn_get_doubles(file, times, 4))
        return false;
    one->taken += counts[0];
    one->outside += counts[1];
    one->dead += counts[2];
    one->odd_traces += counts[3];
    one->odd_samples += counts[4];
    if (counts[5] != 0 && !one->has_record) {
        one->has_record = true;
        one->first = times[0];
        one->last = times[1];
    }
    if (counts[6] == 0)
        return true;
    if (one->sum == NULL) {
        one->begin = times[2];
        one->end = times[3];
        if (!create_sum(set, one))
            return false;
    }
    if (!check_window(one, times[2], times[3]) || !vorn_get_int64s(file, &traces, 1) ||
        !exact_sums_get(file, spectrum_bin_sums(one->sum)))
        return false;
    spectrum_count(one->sum, traces);
    return true;
}

/* ---- Results ---- */

static double upper_frequency(const state* kept)
{
    double highest = 0;
    int i;

    for (i = 0; i < kept->inputs; ++i)
        highest = fmax(highest, kept->curves[i].nyquist);
    return kept->set.has_fmax && kept->set.fmax < highest ? kept->set.fmax : highest;
}

/* Says what is wrong with an input, by its number where there are several. */
static void warn(const state* kept, int input, const char* text)
{
    char line[340];

    if (kept->inputs == 1)
        snprintf(line, sizeof line, "%s", text);
    else
        snprintf(line, sizeof line, "input %d: %s", input + 1, text);
    knl_sendMessage(VORN_WARNING, line);
}

static void warn_of_odd_samples(const state* kept, int input)
{
    const curve* one = &kept->curves[input];
    char text[160];

    if (one->odd_samples == 0)
        return;
    snprintf(text, sizeof text,
             "samples that are infinite or NaN: %lld, in traces: %lld; they count as 0",
             (long long)one->odd_samples, (long long)one->odd_traces);
    warn(kept, input, text);
}

/* Appends the window, where one is given, and the record that it is to be in. */
static void append_window(const state* kept, const curve* one, char* text, size_t size)
{
    const spectrum_parameters* set = &kept->set;

    if (!one->has_record || (!set->has_tmin && !set->has_tmax))
        return;
    vorn_append(text, size, "; the window is");
    if (set->has_tmin)
        vorn_append(text, size, " from %g s", set->tmin);
    if (set->has_tmax)
        vorn_append(text, size, " to %g s", set->tmax);
    vorn_append(text, size, ", and the traces are from %g to %g s", one->first, one->last);
}

/* Returns 1 when the input has a curve, 0 when no trace arrived, and -1 after a message. */
static int finish_curve(const state* kept, int input, curve* one)
{
    const double upper = upper_frequency(kept);
    char text[300];
    int bins;

    warn_of_odd_samples(kept, input);
    if (one->sum == NULL || spectrum_traces(one->sum) == 0) {
        snprintf(text, sizeof text,
                 "no trace has a spectrum: %lld are chosen and zero, %lld have no sample in the "
                 "window, the others are not chosen",
                 (long long)one->dead, (long long)one->outside);
        append_window(kept, one, text, sizeof text);
        if (!vorn_job_has_failed())
            warn(kept, input, text);
        return 0;
    }
    bins = spectrum_bins(one->sum);
    one->from = (int)ceil(kept->set.fmin / spectrum_step(one->sum) - 1e-6);
    one->to = (int)fmin(bins - 1, floor(upper / spectrum_step(one->sum) + 1e-6));
    if (one->from > one->to) {
        snprintf(text, sizeof text,
                 "no frequency of the spectrum lies between fmin and fmax; it has one every %.4g "
                 "Hz up to %.4g Hz",
                 spectrum_step(one->sum), one->nyquist);
        warn(kept, input, text);
        return 0;
    }
    one->amplitudes = malloc((size_t)bins * sizeof *one->amplitudes);
    if (one->amplitudes == NULL || !spectrum_mean(one->sum, one->amplitudes)) {
        vorn_fail("not enough memory for a spectrum of %d frequencies", bins);
        return -1;
    }
    one->band = spectrum_find_band(one->amplitudes, one->from, one->to, spectrum_step(one->sum),
                                   band_share);
    return 1;
}

/* Returns 1 when there is a curve to draw. */
static bool finish_curves(state* kept)
{
    int curves = 0;
    int i;

    for (i = 0; i < kept->inputs; ++i) {
        const int result = finish_curve(kept, i, &kept->curves[i]);
        if (result < 0)
            return 0;
        curves += result;
    }
    return curves > 0;
}

/* The label of an input; the empty text for the only one without a label. Labels end where they
 * would look like the next entry of a legend or the next line of a title. */
static void write_label(const state* kept, int input, char* label, size_t size)
{
    const char* given = input < kept->set.labels_count ? kept->set.labels[input] : "";
    const size_t length = strcspn(given, ",\r\n");

    if (length > 0)
        snprintf(label, size, "%.*s", (int)length, given);
    else if (kept->inputs > 1)
        snprintf(label, size, "input %d", input + 1);
    else
        label[0] = '\0';
}

static void note_number(const char* name, int input, double value)
{
    char key[60];
    char text[40];

    if (input == 0)
        snprintf(key, sizeof key, "qc.spectrum.%s", name);
    else
        snprintf(key, sizeof key, "qc.spectrum.%s.%d", name, input + 1);
    snprintf(text, sizeof text, "%.6g", value);
    knl_setMetaDataValue(VORN_SCOPE_MODULE, key, text);
}

static void report_curve(const state* kept, int input)
{
    const curve* one = &kept->curves[input];
    const long long traces = spectrum_traces(one->sum);
    char label[80];
    char text[400];

    write_label(kept, input, label, sizeof label);
    snprintf(
        text, sizeof text,
        "%s%speak at %.4g Hz, amplitude %.4g; within 20 dB of it from %.4g to %.4g Hz; mean of "
        "%lld trace%s, %lld of zeros left out",
        label, label[0] != '\0' ? ": " : "", one->band.peak, one->band.amplitude, one->band.low,
        one->band.high, traces, traces == 1 ? "" : "s", (long long)one->dead);
    knl_sendMessage(VORN_INFORMATION, text);
    note_number("peak_hz", input, one->band.peak);
    note_number("peak_amplitude", input, one->band.amplitude);
    note_number("low_hz", input, one->band.low);
    note_number("high_hz", input, one->band.high);
    note_number("traces", input, (double)traces);
}

static void report(const state* kept)
{
    int i;

    for (i = 0; i < kept->inputs; ++i)
        if (kept->curves[i].amplitudes != NULL)
            report_curve(kept, i);
}

/* ---- Picture ---- */

/* The greatest amplitude of all curves. */
static double reference_of(const state* kept)
{
    double greatest = 0;
    int i;

    for (i = 0; i < kept->inputs; ++i)
        if (kept->curves[i].amplitudes != NULL)
            greatest = fmax(greatest, kept->curves[i].band.amplitude);
    return greatest;
}

/* "1=before (240 traces), 2=after (240 traces)" */
static void write_legend(const state* kept, char* text, size_t size)
{
    int i;

    vorn_append(text, size, "\nlegend: ");
    for (i = 0; i < kept->inputs; ++i) {
        const curve* one = &kept->curves[i];
        char label[80];
        long long traces;
        if (one->amplitudes == NULL)
            continue;
        traces = spectrum_traces(one->sum);
        write_label(kept, i, label, sizeof label);
        vorn_append(text, size, label[0] != '\0' ? "%d=%s (%lld trace%s)," : "%d=%s%lld trace%s,",
                    i + 1, label, traces, traces == 1 ? "" : "s");
    }
}

static void write_note(const state* kept, char* text, size_t size)
{
    static const char* const tapers[] = {"no taper", "cosine taper", "Hann taper"};
    int i;

    vorn_append(text, size, "\nnote: ");
    for (i = 0; i < kept->inputs; ++i) {
        const curve* one = &kept->curves[i];
        if (one->amplitudes == NULL)
            continue;
        if (kept->inputs > 1) {
            char label[80];
            write_label(kept, i, label, sizeof label);
            vorn_append(text, size, "%s: ", label);
        }
        vorn_append(text, size, "peak %.4g Hz, -20 dB %.4g to %.4g Hz; ", one->band.peak,
                    one->band.low, one->band.high);
    }
    for (i = 0; i < kept->inputs && kept->curves[i].amplitudes == NULL; ++i)
        ;
    vorn_append(text, size, "%.4g to %.4g s, %s", kept->curves[i].begin, kept->curves[i].end,
                tapers[kept->set.taper]);
}

static int create_pad(const state* kept, double bottom, double top)
{
    const spectrum_parameters* set = &kept->set;
    char title[2000];

    snprintf(title, sizeof title, "%.*s", (int)fmin(strcspn(set->title, "\r\n"), 500), set->title);
    vorn_append(
        title, sizeof title, "\nx: frequency (Hz)\nxrange: %.9g %.9g\ny: %s\nyrange: %.9g %.9g",
        set->fmin, upper_frequency(kept),
        set->scale == SPECTRUM_SCALE_DB ? "amplitude (dB relative to the maximum)" : "amplitude",
        bottom, top);
    write_legend(kept, title, sizeof title);
    write_note(kept, title, sizeof title);
    return knl_createPad(VORN_PAD_GRAPH, 0, 1, title);
}

static void draw_curve(const state* kept, int pad, int input, double reference, double floor)
{
    const curve* one = &kept->curves[input];
    int chosen[2 * COLUMNS + 2];
    const int count = spectrum_thin(one->amplitudes, one->from, one->to, COLUMNS, chosen);
    int i;

    knl_newpen(pad, input + 1);
    for (i = 0; i < count; ++i) {
        const double amplitude = one->amplitudes[chosen[i]];
        const double height = (kept->set.scale == SPECTRUM_SCALE_DB)
                                  ? spectrum_decibels(amplitude, reference, floor)
                                  : amplitude;
        knl_plot(pad, (float)(chosen[i] * spectrum_step(one->sum)), (float)height,
                 i == 0 ? VORN_MOVE : VORN_DRAW);
    }
}

static void draw(const state* kept)
{
    const double above = 5; /* dB, so that peaks do not touch the frame */
    const double reference = reference_of(kept);
    const double floor = -kept->set.db_range;
    const int pad = (kept->set.scale == SPECTRUM_SCALE_DB)
                        ? create_pad(kept, floor, above)
                        : create_pad(kept, 0, spectrum_round_up(1.02 * reference));
    int i;

    if (pad < 0)
        return; /* the host has none */
    for (i = 0; i < kept->inputs; ++i)
        if (kept->curves[i].amplitudes != NULL)
            draw_curve(kept, pad, i, reference, floor);
}
