/* spectrum: draws the mean amplitude spectrum of chosen traces, of one input or of several over
 * each other. */
#include "knl.h"
#include "knl_fortran.h"
#include "spectrum_math.h"

#include <math.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum
{
    INFORMATION = 1, /* types of messages */
    WARNING = 2,
    FATAL = 4,
    END_OF_DATA = 3, /* flag of an output: no more traces will come */
    KEEP_TRACE = 1,  /* flag of an input: the trace is not taken */
    JOB = 0,         /* scopes of metadata */
    MODULE = 1,
    GRAPH = 2, /* type of a pad */
    MOVE = 3,  /* codes of the pen */
    DRAW = 2,
    INPUTS = 4,      /* at most */
    COLUMNS = 1000,  /* of a picture: lines have no more detail */
    TEXT_ROOM = 4096 /* the kernel copies whatever the job has, unchecked */
};

static const double band_share = 0.1; /* of the peak: -20 dB */

typedef struct settings
{
    int has_tmin, has_tmax, has_first, has_last, has_fmax;
    double tmin, tmax; /* seconds */
    double first, last;
    double fmin, fmax; /* Hz */
    double db_range;
    int decibels;
    spectrum_taper taper;
    char word[TEXT_ROOM];
    char title[TEXT_ROOM];
    char labels[TEXT_ROOM]; /* separated by line feeds */
} settings;

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
    int64_t taken;   /* traces */
    int64_t outside; /* traces that end before the window or begin behind it */
    int64_t dead;    /* that are zero throughout it */
    int64_t odd_traces;
    int64_t odd_samples;
} curve;

/* What the module keeps from one call to the next. */
typedef struct state
{
    settings set;
    int failed;
    int inputs;
    curve curves[INPUTS];
} state;

static state* find_state(void);
static int read_settings(settings* set);
static int look_at_inputs(state* kept);
static int any_input(const state* kept, int is_empty);
static int take_traces(state* kept);
static void refuse_uneven_inputs(state* kept);
static int take_trace(state* kept, void* in, int input);
static int finish_curves(state* kept);
static void report(const state* kept);
static void draw(const state* kept);
static void release(state* kept);
static int job_has_failed(void);
static void fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* ---- Entry points ---- */

int preprocess_(void)
{
    state* kept;
    void* in;

    if (knl_getInputTraceBuffer(&in, 0) != 0) {
        fail("the module has no input; connect one");
        return 0;
    }
    /* Whoever wants them finds the traces of the first input at an output; none need be there. */
    knl_bldOutputTraceBuffer(0, knl_getTraceLength(in), knl_getTraceSampleInterval(in), in);

    kept = knl_allocateResource((int)sizeof *kept);
    if (kept == NULL)
        return 0; /* the kernel has said so */
    if (!read_settings(&kept->set) || !look_at_inputs(kept)) {
        knl_freeResource(kept);
        return 0;
    }
    knl_setModuleResource("state", kept);
    /* Of several inputs, one that ends before the others is seen in a further call. */
    if (kept->inputs > 1)
        knl_setModuleProcessingOption("RespectEOD", 1);
    return 0;
}

/* One trace of each input. */
int process_(void)
{
    state* kept = find_state();
    const int have_ended = kept != NULL && !take_traces(kept);
    void* out;
    void* in;

    if (knl_getOutputTraceBuffer(&out, 0) != 0)
        return 0;
    if (kept == NULL || kept->failed || have_ended) {
        knl_setDataChannelFlag(out, END_OF_DATA); /* do not ask again */
        return 0;
    }
    knl_getInputTraceBuffer(&in, 0);
    /* Header, samples, and the flag that says whether this is the last trace; of several inputs, it
     * is when none has another one. */
    knl_mcopyTraceToTrace(in, out, 1, 1, 0, knl_getNumberOfTraces(out));
    if (kept->inputs > 1)
        knl_setDataChannelFlag(out, 0);
    return 0;
}

int postprocess_(void)
{
    state* kept = find_state();

    if (kept == NULL)
        return 0;
    /* An input whose end is not marked ends the module without a further call. */
    if (any_input(kept, 1) && any_input(kept, 0))
        refuse_uneven_inputs(kept);
    if (!kept->failed && finish_curves(kept)) {
        report(kept);
        draw(kept);
    }
    release(kept);
    knl_freeResource(kept);
    knl_setModuleResource("state", NULL);
    return 0;
}

/* ---- Parameters. Each function gives 1, or 0 after a message. ---- */

static int is_finite(const char* name, int given, double value)
{
    if (!given || isfinite(value))
        return 1;
    fail("%s is %g; give a finite number", name, value);
    return 0;
}

static int read_window(settings* set)
{
    set->has_tmin = knl_getF64ModuleParameter("tmin", &set->tmin);
    set->has_tmax = knl_getF64ModuleParameter("tmax", &set->tmax);
    if (!is_finite("tmin", set->has_tmin, set->tmin) ||
        !is_finite("tmax", set->has_tmax, set->tmax))
        return 0;
    if (set->has_tmin && set->has_tmax && set->tmin >= set->tmax) {
        fail("tmin is %g s and tmax is %g s; tmin must be below tmax", set->tmin, set->tmax);
        return 0;
    }
    return 1;
}

static int read_selection(settings* set)
{
    int has_word;

    knl_getStrModuleParameter("word", set->word);
    has_word = set->word[0] != '\0';
    set->has_first = knl_getF64ModuleParameter("first", &set->first);
    set->has_last = knl_getF64ModuleParameter("last", &set->last);
    if (has_word != (set->has_first || set->has_last)) {
        if (has_word)
            fail("word is %.100s without a range; give first, last or both", set->word);
        else
            fail("first or last is given without word; name the header word that they are of");
        return 0;
    }
    if (!is_finite("first", set->has_first, set->first) ||
        !is_finite("last", set->has_last, set->last))
        return 0;
    if (set->has_first && set->has_last && set->first > set->last) {
        fail("first is %g and last is %g; first must not be above last", set->first, set->last);
        return 0;
    }
    return 1;
}

static int read_axes(settings* set)
{
    set->db_range = 60;
    knl_getF64ModuleParameter("fmin", &set->fmin);
    set->has_fmax = knl_getF64ModuleParameter("fmax", &set->fmax);
    knl_getF64ModuleParameter("db_range", &set->db_range);
    if (!(isfinite(set->fmin) && set->fmin >= 0)) {
        fail("fmin is %g Hz; give a frequency of at least 0", set->fmin);
        return 0;
    }
    if (set->has_fmax && !(isfinite(set->fmax) && set->fmax > set->fmin)) {
        fail("fmax is %g Hz; give a frequency above that of fmin, %g Hz", set->fmax, set->fmin);
        return 0;
    }
    if (!(isfinite(set->db_range) && set->db_range > 0)) {
        fail("db_range is %g dB; give a number above 0", set->db_range);
        return 0;
    }
    return 1;
}

static int read_words(settings* set)
{
    char taper[TEXT_ROOM] = "cosine";
    char scale[TEXT_ROOM] = "linear";

    knl_getStrModuleParameter("taper", taper);
    knl_getStrModuleParameter("scale", scale);
    if (strcmp(taper, "none") == 0)
        set->taper = SPECTRUM_NONE;
    else if (strcmp(taper, "cosine") == 0)
        set->taper = SPECTRUM_COSINE;
    else if (strcmp(taper, "hann") == 0)
        set->taper = SPECTRUM_HANN;
    else {
        fail("taper is \"%.40s\"; give none, cosine or hann", taper);
        return 0;
    }
    set->decibels = strcmp(scale, "db") == 0;
    if (!set->decibels && strcmp(scale, "linear") != 0) {
        fail("scale is \"%.40s\"; give linear or db", scale);
        return 0;
    }
    return 1;
}

static int read_settings(settings* set)
{
    strcpy(set->title, "Mean amplitude spectrum");
    knl_getStrModuleParameter("title", set->title);
    knl_getStrModuleParameter("labels", set->labels);
    return read_window(set) && read_selection(set) && read_axes(set) && read_words(set);
}

/* Counts the inputs and reads their sample intervals. */
static int look_at_inputs(state* kept)
{
    const settings* set = &kept->set;
    double highest = 0;
    char text[160];
    void* in;

    for (; kept->inputs < INPUTS && knl_getInputTraceBuffer(&in, kept->inputs) == 0; ++kept->inputs)
    {
        curve* one = &kept->curves[kept->inputs];
        const int interval = knl_getTraceSampleInterval(in); /* microseconds */
        if (interval <= 0) {
            if (!job_has_failed())
                fail("input %d has no sample interval; the module before this one has to set it",
                     kept->inputs + 1);
            return 0;
        }
        one->interval = interval * 1e-6;
        one->nyquist = 0.5e6 / interval;
        highest = fmax(highest, one->nyquist);
    }
    if (knl_getInputTraceBuffer(&in, INPUTS) == 0) {
        fail("the module has more than %d inputs; connect fewer", INPUTS);
        return 0;
    }
    if (set->fmin >= highest) {
        fail("fmin is %g Hz, and the data end at %g Hz; give a lower one", set->fmin, highest);
        return 0;
    }
    if (set->has_fmax && set->fmax > highest) {
        snprintf(text, sizeof text, "fmax is %g Hz, above the highest frequency of the data, %g Hz",
                 set->fmax, highest);
        knl_sendMessage(WARNING, text);
    }
    return 1;
}

/* ---- Traces ---- */

/* 1 or 0; -1 after a message. */
static int is_chosen(const settings* set, void* in)
{
    double value;

    if (set->word[0] == '\0')
        return 1;
    if (knl_getF64TraceAttribute(in, set->word, &value) == 0) {
        fail("the traces have no header word \"%.100s\"; name one that they have with word",
             set->word);
        return -1;
    }
    return (!set->has_first || value >= set->first) && (!set->has_last || value <= set->last);
}

/* Begins the sum with a window that reaches no further than this trace; `start` is the time of its
 * first sample. Gives 0 after a message. */
static int begin_curve(const settings* set, curve* one, double start, int samples)
{
    const double end = start + (samples - 1) * one->interval;
    int count;

    one->begin = set->has_tmin && set->tmin > start ? set->tmin : start;
    one->end = set->has_tmax && set->tmax < end ? set->tmax : end;
    count = (int)floor((one->end - one->begin) / one->interval + 1e-6) + 1;
    if (count < 1) /* tmin lies on the last sample, or next to nothing behind it */
        count = 1;
    one->sum = spectrum_create(count, one->interval, set->taper);
    if (one->sum != NULL)
        return 1;
    fail("there is no memory for the spectrum of %d samples", count);
    return 0;
}

/* Whether an input is empty, or whether one is not. */
static int any_input(const state* kept, int is_empty)
{
    void* in;
    int i;

    for (i = 0; i < kept->inputs; ++i) {
        knl_getInputTraceBuffer(&in, i);
        if ((knl_getNumberOfTraces(in) == 0) == is_empty)
            return 1;
    }
    return 0;
}

/* One trace of each input. Gives 0 when all have ended. */
static int take_traces(state* kept)
{
    int keep = KEEP_TRACE;
    void* in;
    int i;

    if (!any_input(kept, 1)) {
        for (i = 0; !kept->failed && i < kept->inputs; ++i) {
            knl_getInputTraceBuffer(&in, i);
            kept->failed = !take_trace(kept, in, i);
        }
        return 1;
    }
    /* Taking a trace from an empty channel would make one there, for other modules to find. The C
     * form of the interface has no function that prevents it. */
    for (i = 0; i < kept->inputs; ++i) {
        int channel = i + 1;
        knl_getInputTraceBuffer(&in, i);
        if (knl_getNumberOfTraces(in) == 0)
            knl_setinputtracebufferflag_(&channel, &keep);
    }
    if (any_input(kept, 0)) {
        refuse_uneven_inputs(kept);
        return 1;
    }
    knl_setModuleProcessingOption("RespectEOD", 0); /* or a last module is called for ever */
    return 0;
}

/* One input has ended, and another one has not. */
static void refuse_uneven_inputs(state* kept)
{
    int ended = -1;
    int longer = -1;
    void* in;
    int i;

    if (kept->failed || job_has_failed())
        return;
    for (i = kept->inputs - 1; i >= 0; --i) {
        knl_getInputTraceBuffer(&in, i);
        if (knl_getNumberOfTraces(in) == 0)
            ended = i;
        else
            longer = i;
    }
    fail("input %d has ended after %lld traces, and input %d has more than %lld; give inputs with "
         "as many traces each, or each input a module of its own",
         ended + 1, (long long)kept->curves[ended].taken, longer + 1,
         (long long)kept->curves[longer].taken);
    kept->failed = 1;
}

/* Gives 0 after a message. */
static int take_trace(state* kept, void* in, int input)
{
    const settings* set = &kept->set;
    curve* one = &kept->curves[input];
    const int samples = knl_getTraceLength(in);
    const int chosen = is_chosen(set, in);
    const double slack = 1e-6 * one->interval;
    float* values;
    double start, end;
    int delay = 0; /* milliseconds */
    int odd;

    ++one->taken;
    if (chosen != 1)
        return chosen == 0;
    knl_getI32TraceAttribute(in, "delrt", &delay);
    start = delay * 1e-3;
    end = start + (samples - 1) * one->interval;
    if (samples < 1 || knl_getTraceSamples(in, &values, 0) == 0 ||
        (set->has_tmin && set->tmin > end + slack) || (set->has_tmax && set->tmax < start - slack))
    {
        ++one->outside;
        return 1;
    }
    if (one->sum == NULL && !begin_curve(set, one, start, samples))
        return 0;
    if (spectrum_add(one->sum, values, samples, llround((one->begin - start) / one->interval),
                     &odd) == 0)
        ++one->dead;
    one->odd_samples += odd;
    one->odd_traces += odd > 0;
    return 1;
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
    char line[300];

    if (kept->inputs == 1)
        snprintf(line, sizeof line, "%s", text);
    else
        snprintf(line, sizeof line, "input %d: %s", input + 1, text);
    knl_sendMessage(WARNING, line);
}

static void warn_of_odd_samples(const state* kept, int input)
{
    const curve* one = &kept->curves[input];
    char text[160];

    if (one->odd_samples == 0)
        return;
    snprintf(text, sizeof text,
             "samples that are infinite or no numbers: %lld, in traces: %lld; they count as 0",
             (long long)one->odd_samples, (long long)one->odd_traces);
    warn(kept, input, text);
}

/* Gives 1 when the input has a curve, 0 when nothing came, and -1 after a message. */
static int finish_curve(const state* kept, int input, curve* one)
{
    const double upper = upper_frequency(kept);
    char text[200];
    int bins;

    warn_of_odd_samples(kept, input);
    if (one->sum == NULL || spectrum_traces(one->sum) == 0) {
        snprintf(text, sizeof text,
                 "no trace has a spectrum: %lld are chosen and zero, %lld have no sample in the "
                 "window, the others are not chosen",
                 (long long)one->dead, (long long)one->outside);
        if (!job_has_failed())
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
    if (one->amplitudes == NULL) {
        fail("there is no memory for a spectrum of %d frequencies", bins);
        return -1;
    }
    spectrum_mean(one->sum, one->amplitudes);
    one->band = spectrum_find_band(one->amplitudes, one->from, one->to, spectrum_step(one->sum),
                                   band_share);
    return 1;
}

/* Gives 1 when there is a curve to draw. */
static int finish_curves(state* kept)
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

/* What the person calls the input; the empty text for the only one without a label. Texts end where
 * they would look like the next entry of a legend or the next line of a title. */
static void write_label(const state* kept, int input, char* label, size_t size)
{
    const char* from = kept->set.labels;
    size_t length;
    int i;

    for (i = 0; i < input && from != NULL; ++i) {
        from = strchr(from, '\n');
        from = from != NULL ? from + 1 : NULL;
    }
    length = from != NULL ? strcspn(from, ",\r\n") : 0;
    if (length > 0)
        snprintf(label, size, "%.*s", (int)length, from);
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
    knl_setMetaDataValue(MODULE, key, text);
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
    knl_sendMessage(INFORMATION, text);
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

static void append(char* text, size_t size, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

static void append(char* text, size_t size, const char* format, ...)
{
    const size_t used = strlen(text);
    va_list values;

    va_start(values, format);
    vsnprintf(text + used, size - used, format, values);
    va_end(values);
}

/* "1=before (240 traces), 2=after (240 traces)" */
static void write_legend(const state* kept, char* text, size_t size)
{
    int i;

    append(text, size, "\nlegend: ");
    for (i = 0; i < kept->inputs; ++i) {
        const curve* one = &kept->curves[i];
        char label[80];
        long long traces;
        if (one->amplitudes == NULL)
            continue;
        traces = spectrum_traces(one->sum);
        write_label(kept, i, label, sizeof label);
        append(text, size, label[0] != '\0' ? "%d=%s (%lld trace%s)," : "%d=%s%lld trace%s,", i + 1,
               label, traces, traces == 1 ? "" : "s");
    }
}

static void write_note(const state* kept, char* text, size_t size)
{
    static const char* const tapers[] = {"no taper", "cosine taper", "Hann taper"};
    int i;

    append(text, size, "\nnote: ");
    for (i = 0; i < kept->inputs; ++i) {
        const curve* one = &kept->curves[i];
        if (one->amplitudes == NULL)
            continue;
        if (kept->inputs > 1) {
            char label[80];
            write_label(kept, i, label, sizeof label);
            append(text, size, "%s: ", label);
        }
        append(text, size, "peak %.4g Hz, -20 dB %.4g to %.4g Hz; ", one->band.peak, one->band.low,
               one->band.high);
    }
    for (i = 0; i < kept->inputs && kept->curves[i].amplitudes == NULL; ++i)
        ;
    append(text, size, "%.4g to %.4g s, %s", kept->curves[i].begin, kept->curves[i].end,
           tapers[kept->set.taper]);
}

static int create_pad(const state* kept, double bottom, double top)
{
    const settings* set = &kept->set;
    char title[2000];

    snprintf(title, sizeof title, "%.*s", (int)fmin(strcspn(set->title, "\r\n"), 500), set->title);
    append(title, sizeof title, "\nx: frequency (Hz)\nxrange: %.9g %.9g\ny: %s\nyrange: %.9g %.9g",
           set->fmin, upper_frequency(kept),
           set->decibels ? "amplitude (dB relative to the maximum)" : "amplitude", bottom, top);
    write_legend(kept, title, sizeof title);
    write_note(kept, title, sizeof title);
    return knl_createPad(GRAPH, 0, 1, title);
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
        const double height =
            kept->set.decibels ? spectrum_decibels(amplitude, reference, floor) : amplitude;
        knl_plot(pad, (float)(chosen[i] * spectrum_step(one->sum)), (float)height,
                 i == 0 ? MOVE : DRAW);
    }
}

static void draw(const state* kept)
{
    const double above = 5; /* dB, so that peaks do not touch the frame */
    const double reference = reference_of(kept);
    const double floor = -kept->set.db_range;
    const int pad = kept->set.decibels ? create_pad(kept, floor, above)
                                       : create_pad(kept, 0, spectrum_round_up(1.02 * reference));
    int i;

    if (pad < 0)
        return; /* the host has none */
    for (i = 0; i < kept->inputs; ++i)
        if (kept->curves[i].amplitudes != NULL)
            draw_curve(kept, pad, i, reference, floor);
}

/* ---- Helpers ---- */

static state* find_state(void)
{
    void* kept = NULL;

    knl_getModuleResource("state", &kept);
    return kept;
}

static void release(state* kept)
{
    int i;

    for (i = 0; i < kept->inputs; ++i) {
        spectrum_free(kept->curves[i].sum);
        free(kept->curves[i].amplitudes);
    }
}

/* After a failure upstream there is nothing here to complain about. */
static int job_has_failed(void)
{
    return knl_getMetaDataValue(JOB, "vorn.failed", NULL, 0) > 0;
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
    snprintf(noted, sizeof noted, "spectrum: %s", text);
    knl_setMetaDataValue(JOB, "vorn.failed", noted);
}
