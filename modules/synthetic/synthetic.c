/* synthetic: makes shot gathers, one trace per call. */
#include "knl.h"
#include "synthetic_math.h"

#include <limits.h>
#include <math.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

enum
{
    DETAIL = 0, /* types of messages */
    FATAL = 4,
    END_OF_DATA = 3, /* flag of an output: no more traces will come */
    JOB = 0,         /* scopes of metadata */
    MODULE = 1,
    SURFACE_WAVES = 2,       /* the direct wave and the ground roll */
    COORDINATE_SCALAR = -100 /* coordinates in headers are centimetres */
};

/* Lists of the kernel's, or defaults. */
typedef struct floats
{
    const double* values;
    int count;
} floats;

typedef struct integers
{
    int* values;
    int count;
} integers;

typedef struct settings
{
    int shots;
    int channels;
    int samples;
    int interval;                               /* microseconds */
    double spacing, first_offset, shot_spacing; /* metres */
    floats times, velocities, amplitudes;       /* of the reflections */
    double frequency;
    double direct_velocity, direct_amplitude;
    double roll_velocity, roll_amplitude, roll_frequency;
    double noise;
    int64_t seed;
    int bad;
    integers lists[SYNTHETIC_SPIKY + 1]; /* channels with each defect; the first is not used */
} settings;

/* What the module keeps from one call to the next: `set` without its lists, which live only as long
 * as an entry point runs. */
typedef struct state
{
    settings set;
    int shot;     /* of the next trace, from 0 */
    int channel;  /* likewise */
    double level; /* that damage is measured by */
    double first_midpoint;
    int event_count;
    synthetic_event* events;
    synthetic_defect* chosen; /* of the current shot's channels, from the seed */
    synthetic_defect* listed; /* of every shot's channels, from the lists */
} state;

static state* find_state(void);
static int read_settings(settings* read);
static int positions_fit(const settings* set);
static state* new_state(const settings* set);
static void free_state(state* kept);
static void describe_output(const settings* set, void* out);
static void emit(state* kept, void* out);
static void fail(const char* format, ...) __attribute__((format(printf, 1, 2)));

/* ---- Entry points ---- */

int preprocess_(void)
{
    settings read;
    state* kept;
    void* out;
    char text[120];

    if (knl_getOutputTraceBuffer(&out, 0) != 0) {
        fail("the module has no output; connect one");
        return 0;
    }
    if (!read_settings(&read) || !positions_fit(&read))
        return 0;
    kept = new_state(&read);
    if (kept == NULL)
        return 0; /* the kernel has said so */
    knl_setModuleResource("state", kept);
    describe_output(&read, out);
    snprintf(text, sizeof text, "synthetic shots=%d channels=%d seed=%lld", read.shots,
             read.channels, (long long)read.seed);
    knl_setMetaDataValue(MODULE, "history$", text);
    return 0;
}

int process_(void)
{
    state* kept = find_state();
    void* out;

    if (knl_getOutputTraceBuffer(&out, 0) != 0)
        return 0;
    if (kept != NULL && kept->shot < kept->set.shots)
        emit(kept, out);
    if (kept == NULL || kept->shot == kept->set.shots)
        knl_setDataChannelFlag(out, END_OF_DATA); /* on the last trace, or else on the channel */
    return 0;
}

int postprocess_(void)
{
    free_state(find_state());
    knl_setModuleResource("state", NULL);
    return 0;
}

/* ---- Parameters. Each function gives 1, or 0 after a message. ---- */

static int read_count(const char* name, int* value, int least)
{
    knl_getI32ModuleParameter(name, value);
    if (*value >= least)
        return 1;
    fail("%s is %d; give a number of at least %d", name, *value, least);
    return 0;
}

static int read_number(const char* name, double* value)
{
    knl_getF64ModuleParameter(name, value);
    if (isfinite(*value))
        return 1;
    fail("%s is %g; give a finite number", name, *value);
    return 0;
}

static int read_positive(const char* name, double* value)
{
    if (!read_number(name, value))
        return 0;
    if (*value > 0)
        return 1;
    fail("%s is %g; give a number above 0", name, *value);
    return 0;
}

static int read_interval(int* interval)
{
    double seconds = 0.004;

    if (!read_positive("interval", &seconds))
        return 0;
    if (seconds < 0.5e-6 || seconds > 2000) {
        fail("interval is %g s; give a time from 1 microsecond to 2000 seconds", seconds);
        return 0;
    }
    *interval = (int)lround(seconds * 1e6);
    return 1;
}

static int read_floats(const char* name, floats* list, const double* standard, int count)
{
    double* values = NULL;
    int i;

    list->values = standard;
    list->count = count;
    if (knl_getF64ArrayModuleParameter(name, &values, &list->count) == 1) {
        list->values = values;
        if (values == NULL && list->count > 0) {
            fail("%s is no list of numbers", name);
            return 0;
        }
    }
    for (i = 0; i < list->count; ++i) {
        if (!isfinite(list->values[i])) {
            fail("%s holds %g; give finite numbers", name, list->values[i]);
            return 0;
        }
    }
    return 1;
}

static int read_reflections(settings* read)
{
    static const double times[] = {0.4, 0.8, 1.3, 1.9};
    static const double velocities[] = {1800, 2000, 2300, 2700};
    static const double amplitudes[] = {1, -0.7, 0.5, 0.35};
    int i;

    if (!read_floats("times", &read->times, times, 4) ||
        !read_floats("velocities", &read->velocities, velocities, 4) ||
        !read_floats("amplitudes", &read->amplitudes, amplitudes, 4))
        return 0;
    if (read->times.count != read->velocities.count || read->times.count != read->amplitudes.count)
    {
        fail("times, velocities and amplitudes have %d, %d and %d elements; give as many of each",
             read->times.count, read->velocities.count, read->amplitudes.count);
        return 0;
    }
    for (i = 0; i < read->times.count; ++i) {
        if (read->times.values[i] < 0 || read->velocities.values[i] <= 0) {
            fail("the reflection at %g s has a velocity of %g m/s; give times of at least 0 and "
                 "velocities above 0",
                 read->times.values[i], read->velocities.values[i]);
            return 0;
        }
    }
    return 1;
}

static int read_surface_waves(settings* read)
{
    read->direct_velocity = 1600;
    read->direct_amplitude = 0.7;
    read->roll_velocity = 500;
    read->roll_amplitude = 1.5;
    read->roll_frequency = 9;
    return read_positive("direct_velocity", &read->direct_velocity) &&
           read_number("direct_amplitude", &read->direct_amplitude) &&
           read_positive("roll_velocity", &read->roll_velocity) &&
           read_number("roll_amplitude", &read->roll_amplitude) &&
           read_positive("roll_frequency", &read->roll_frequency);
}

static int read_channels(const char* name, integers* list, int channels)
{
    int i;

    list->values = NULL;
    list->count = 0;
    knl_getI32ArrayModuleParameter(name, &list->values, &list->count);
    if (list->values == NULL && list->count > 0) {
        fail("%s is no list of whole numbers", name);
        return 0;
    }
    for (i = 0; i < list->count; ++i) {
        if (list->values[i] < 1 || list->values[i] > channels) {
            fail("%s names channel %d; the channels are 1 to %d", name, list->values[i], channels);
            return 0;
        }
    }
    return 1;
}

static int read_defects(settings* read)
{
    read->bad = 0;
    if (!read_count("bad", &read->bad, 0))
        return 0;
    if (read->bad > read->channels) {
        fail("bad is %d; a shot has %d channels", read->bad, read->channels);
        return 0;
    }
    return read_channels("dead", &read->lists[SYNTHETIC_DEAD], read->channels) &&
           read_channels("noisy", &read->lists[SYNTHETIC_NOISY], read->channels) &&
           read_channels("reversed", &read->lists[SYNTHETIC_REVERSED], read->channels) &&
           read_channels("spiky", &read->lists[SYNTHETIC_SPIKY], read->channels);
}

static int read_settings(settings* read)
{
    read->shots = 4;
    read->channels = 48;
    read->samples = 750;
    read->spacing = 25;
    read->first_offset = 100;
    read->shot_spacing = 50;
    read->frequency = 30;
    read->noise = 0.05;
    read->seed = 1;
    knl_getI64ModuleParameter("seed", &read->seed);
    if (!read_count("shots", &read->shots, 0) || !read_count("channels", &read->channels, 1) ||
        !read_count("samples", &read->samples, 1) || !read_interval(&read->interval) ||
        !read_number("spacing", &read->spacing) ||
        !read_number("first_offset", &read->first_offset) ||
        !read_number("shot_spacing", &read->shot_spacing) || !read_reflections(read) ||
        !read_positive("frequency", &read->frequency) || !read_surface_waves(read) ||
        !read_number("noise", &read->noise) || !read_defects(read))
        return 0;
    if (read->noise < 0) {
        fail("noise is %g; give a level of at least 0", read->noise);
        return 0;
    }
    if ((int64_t)read->shots * read->channels > INT_MAX) {
        fail("%d shots of %d channels are more traces than headers can number", read->shots,
             read->channels);
        return 0;
    }
    return 1;
}

/* ---- Geometry ---- */

static double source_position(const settings* set, int shot)
{
    return shot * set->shot_spacing;
}

/* Of a receiver, from the source. */
static double offset_of(const settings* set, int channel)
{
    return set->first_offset + channel * set->spacing;
}

static double midpoint(const settings* set, int shot, int channel)
{
    return source_position(set, shot) + offset_of(set, channel) / 2;
}

/* Positions are linear in shot and channel: the ends of both hold the extremes. */
static double lowest_midpoint(const settings* set)
{
    return fmin(midpoint(set, 0, 0), midpoint(set, set->shots - 1, 0)) +
           fmin(0, (set->channels - 1) * set->spacing / 2);
}

static int positions_fit(const settings* set)
{
    const double greatest = INT_MAX / -(double)COORDINATE_SCALAR;
    const double extent = fabs(set->shots * set->shot_spacing) + fabs(set->first_offset) +
                          fabs(set->channels * set->spacing);

    if (extent <= greatest)
        return 1;
    fail("the line is about %g m long; headers hold positions up to %.0f m", extent, greatest);
    return 0;
}

/* Common midpoints lie half a channel spacing apart and count from 1 at the line's beginning. */
static int cdp_number(const state* kept)
{
    const settings* set = &kept->set;
    const double apart = set->spacing != 0 ? fabs(set->spacing) / 2 : fabs(set->shot_spacing);
    const double along = midpoint(set, kept->shot, kept->channel) - kept->first_midpoint;
    double number;

    if (apart == 0)
        return 1;
    number = 1 + round(along / apart);
    return number < INT_MAX ? (int)number : INT_MAX;
}

static int coordinate(double metres)
{
    return (int)lround(metres * -COORDINATE_SCALAR);
}

/* ---- What is kept ---- */

static state* find_state(void)
{
    void* kept = NULL;

    knl_getModuleResource("state", &kept);
    return kept;
}

static void add_event(state* kept, double time, double velocity, double amplitude, double frequency)
{
    synthetic_event* event = &kept->events[kept->event_count++];

    event->time = time;
    event->velocity = velocity;
    event->amplitude = amplitude;
    event->frequency = frequency;
    kept->level = fmax(kept->level, fabs(amplitude));
}

static void list_events(state* kept, const settings* set)
{
    int i;

    for (i = 0; i < set->times.count; ++i)
        add_event(kept, set->times.values[i], set->velocities.values[i], set->amplitudes.values[i],
                  set->frequency);
    add_event(kept, 0, set->direct_velocity, set->direct_amplitude, set->frequency);
    add_event(kept, 0, set->roll_velocity, set->roll_amplitude, set->roll_frequency);
    if (kept->level == 0)
        kept->level = set->noise > 0 ? set->noise : 1;
}

/* Of a channel in two lists, the first kind of defect holds. */
static void list_defects(state* kept, const settings* set)
{
    int defect, i;

    for (defect = SYNTHETIC_SPIKY; defect >= SYNTHETIC_DEAD; --defect)
        for (i = 0; i < set->lists[defect].count; ++i)
            kept->listed[set->lists[defect].values[i] - 1] = (synthetic_defect)defect;
}

/* Null after the kernel's message. */
static state* new_state(const settings* set)
{
    const int defect_bytes = (int)sizeof(synthetic_defect);
    state* kept = knl_allocateResource((int)sizeof *kept);

    if (kept == NULL)
        return NULL;
    kept->set = *set;
    kept->first_midpoint = lowest_midpoint(set);
    kept->events =
        knl_allocateResource((set->times.count + SURFACE_WAVES) * (int)sizeof *kept->events);
    kept->chosen = knl_allocateResource(set->channels * defect_bytes);
    kept->listed = knl_allocateResource(set->channels * defect_bytes);
    if (kept->events == NULL || kept->chosen == NULL || kept->listed == NULL) {
        free_state(kept);
        return NULL;
    }
    list_events(kept, set);
    list_defects(kept, set);
    return kept;
}

static void free_state(state* kept)
{
    if (kept == NULL)
        return;
    knl_freeResource(kept->events);
    knl_freeResource(kept->chosen);
    knl_freeResource(kept->listed);
    knl_freeResource(kept);
}

/* ---- Traces ---- */

/* Header words that are the same in all traces stay in the one trace of a work buffer, of which
 * only the header is used. */
static void describe_output(const settings* set, void* out)
{
    static const char* const varying[] = {"tracl", "tracr", "fldr",   "tracf", "ep",
                                          "cdp",   "sx",    "offset", "gx"};
    void* work;
    size_t i;

    knl_bldWorkTraceBuffer(0, 1, set->interval, 1, NULL);
    knl_getWorkTraceBuffer(&work, 0);
    for (i = 0; i < sizeof varying / sizeof varying[0]; ++i)
        knl_defineTraceAttribute(work, varying[i]);
    knl_setI32TraceAttribute(work, "trid", 1);   /* seismic data; bad traces say so, too */
    knl_setI32TraceAttribute(work, "nvs", 1);    /* summed vertically: one */
    knl_setI32TraceAttribute(work, "nhs", 1);    /* stacked: one */
    knl_setI32TraceAttribute(work, "duse", 2);   /* test data */
    knl_setI32TraceAttribute(work, "scalel", 1); /* elevations are metres */
    knl_setI32TraceAttribute(work, "scalco", COORDINATE_SCALAR);
    knl_setI32TraceAttribute(work, "counit", 1); /* coordinates are lengths */
    knl_setI32TraceAttribute(work, "delrt", 0);
    knl_setI32TraceAttribute(work, "ns", set->samples);
    knl_setI32TraceAttribute(work, "dt", set->interval);

    knl_bldOutputTraceBuffer(0, set->samples, set->interval, work);
    knl_informTotalTracesNumber(out, (int64_t)set->shots * set->channels);
}

static void write_header(const state* kept, void* work)
{
    const settings* set = &kept->set;
    const double source = source_position(set, kept->shot);
    const double offset = offset_of(set, kept->channel);
    const int number = kept->shot * set->channels + kept->channel + 1;

    knl_setI32TraceAttribute(work, "tracl", number);
    knl_setI32TraceAttribute(work, "tracr", number);
    knl_setI32TraceAttribute(work, "fldr", kept->shot + 1);
    knl_setI32TraceAttribute(work, "tracf", kept->channel + 1);
    knl_setI32TraceAttribute(work, "ep", kept->shot + 1);
    knl_setI32TraceAttribute(work, "cdp", cdp_number(kept));
    knl_setI32TraceAttribute(work, "offset", (int)lround(offset));
    knl_setI32TraceAttribute(work, "sx", coordinate(source));
    knl_setI32TraceAttribute(work, "gx", coordinate(source + offset));
}

static synthetic_defect defect_of(const state* kept)
{
    const synthetic_defect listed = kept->listed[kept->channel];

    return listed != SYNTHETIC_GOOD ? listed : kept->chosen[kept->channel];
}

static void report_defect(const state* kept, synthetic_defect defect)
{
    static const char* const names[] = {"good", "dead", "noisy", "reversed", "spiky"};
    char text[80];

    if (defect == SYNTHETIC_GOOD)
        return;
    snprintf(text, sizeof text, "shot %d, channel %d is %s", kept->shot + 1, kept->channel + 1,
             names[defect]);
    knl_sendMessage(DETAIL, text);
}

static void fill(const state* kept, float* samples)
{
    const settings* set = &kept->set;
    const double interval = set->interval * 1e-6;
    const double offset = offset_of(set, kept->channel);
    const uint64_t seed =
        synthetic_trace_seed((uint64_t)set->seed, kept->shot + 1, kept->channel + 1);
    const synthetic_defect defect = defect_of(kept);
    int i;

    for (i = 0; i < kept->event_count; ++i)
        synthetic_add_event(&kept->events[i], offset, interval, samples, set->samples);
    if (set->noise > 0)
        synthetic_add_noise(seed, set->noise, samples, set->samples);
    synthetic_damage(defect, seed, kept->level, samples, set->samples);
    report_defect(kept, defect);
}

static void emit(state* kept, void* out)
{
    const int number = knl_getNumberOfTraces(out);
    void* work;
    float* samples;

    if (kept->channel == 0)
        synthetic_choose_defects(synthetic_trace_seed((uint64_t)kept->set.seed, kept->shot + 1, 0),
                                 kept->set.bad, kept->chosen, kept->set.channels);
    knl_getWorkTraceBuffer(&work, 0);
    write_header(kept, work);
    knl_mcopyTraceToTrace(work, out, 1, 0, 0, number);
    if (knl_getTraceSamples(out, &samples, number) == 1)
        fill(kept, samples);
    if (++kept->channel == kept->set.channels) {
        kept->channel = 0;
        ++kept->shot;
    }
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
    snprintf(noted, sizeof noted, "synthetic: %s", text);
    knl_setMetaDataValue(JOB, "vorn.failed", noted);
}
