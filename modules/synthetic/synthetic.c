/* synthetic: generates shot gathers, one trace per call. */
#include "synthetic_math.h"
#include "synthetic_parameters.h"
#include "synthetic_part.h"
#include "vorn_kit.h"

#include <limits.h>
#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

enum
{
    SURFACE_WAVES = 2,       /* the direct wave and the ground roll */
    COORDINATE_SCALAR = -100 /* coordinates in headers are centimetres */
};

/* What the module keeps from one call to the next. */
typedef struct state
{
    synthetic_parameters set;
    int interval; /* microseconds */
    int64_t next; /* number of the next trace, from 1; behind the last one when there is none */
    int shot;     /* of that trace, from 0 */
    int channel;  /* likewise */
    int drawn;    /* shot, from 1, whose defects `chosen` holds; 0 for none */
    synthetic_part part;
    bool headers_only; /* nobody looks at the samples */
    double level;      /* that damage is measured by */
    double first_midpoint;
    int event_count;
    synthetic_event* events;
    synthetic_defect* chosen; /* of the current shot's channels, from the seed */
    synthetic_defect* listed; /* of every shot's channels, from the lists */
} state;

static bool check_parameters(const synthetic_parameters* set);
static bool positions_fit(const synthetic_parameters* set);
static bool make_tables(state* kept);
static void seek(state* kept, int64_t number);
static void describe_output(const state* kept, void* out);
static bool emit(state* kept, void* out);

static bool prepare(state* kept)
{
    synthetic_parameters* set = &kept->set;
    void* out = vorn_output(0);
    char text[120];

    if (out == NULL) {
        vorn_fail("the module has no output; connect one");
        return false;
    }
    if (!synthetic_read_parameters(set) || !check_parameters(set) || !positions_fit(set) ||
        !synthetic_read_part(&kept->part, set->has_part ? set->part : NULL,
                             (int64_t)set->shots * set->channels) ||
        !make_tables(kept))
        return false;
    kept->headers_only = knl_getMetaDataValue(VORN_SCOPE_JOB, "vorn.headers", NULL, 0) > 0;
    seek(kept, 1);
    kept->interval = (int)lround(set->interval * 1e6);
    describe_output(kept, out);
    snprintf(text, sizeof text, "synthetic shots=%d channels=%d seed=%lld", set->shots,
             set->channels, (long long)set->seed);
    vorn_add_history(text);
    return true;
}

static bool process(state* kept)
{
    void* out = vorn_output(0);

    if (kept->next <= kept->part.last && !emit(kept, out))
        return false;
    if (kept->next > kept->part.last)
        knl_setDataChannelFlag(out, VORN_END_OF_DATA); /* on the last trace, or on the channel */
    return true;
}

static void release(state* kept)
{
    knl_freeResource(kept->events);
    free(kept->chosen);
    free(kept->listed);
    synthetic_free_part(&kept->part);
    synthetic_free_parameters(&kept->set);
}

VORN_MODULE(state, prepare, process, VORN_NOTHING, release);

/* ---- Parameters. Each function returns false after a message. ---- */

static bool check_channels(const char* name, const int* list, int count, int channels)
{
    int i;

    for (i = 0; i < count; ++i) {
        if (list[i] > channels) {
            vorn_fail("%s names channel %d; the channels are 1 to %d", name, list[i], channels);
            return false;
        }
    }
    return true;
}

static bool check_parameters(const synthetic_parameters* set)
{
    if (set->times_count != set->velocities_count || set->times_count != set->amplitudes_count) {
        vorn_fail("times, velocities and amplitudes have %d, %d and %d elements; give the same "
                  "number of each",
                  set->times_count, set->velocities_count, set->amplitudes_count);
        return false;
    }
    if (set->bad > set->channels) {
        vorn_fail("bad is %d; a shot has %d channels", set->bad, set->channels);
        return false;
    }
    if ((int64_t)set->shots * set->channels > INT_MAX) {
        vorn_fail("%d shots of %d channels are more traces than headers can number", set->shots,
                  set->channels);
        return false;
    }
    return check_channels("dead", set->dead, set->dead_count, set->channels) &&
           check_channels("noisy", set->noisy, set->noisy_count, set->channels) &&
           check_channels("reversed", set->reversed, set->reversed_count, set->channels) &&
           check_channels("spiky", set->spiky, set->spiky_count, set->channels);
}

/* ---- Geometry ---- */

static double source_position(const synthetic_parameters* set, int shot)
{
    return shot * set->shot_spacing;
}

/* Of a receiver, from the source. */
static double offset_of(const synthetic_parameters* set, int channel)
{
    return set->first_offset + channel * set->spacing;
}

static double midpoint(const synthetic_parameters* set, int shot, int channel)
{
    return source_position(set, shot) + offset_of(set, channel) / 2;
}

/* Positions are linear in shot and channel: the ends of both hold the extremes. */
static double lowest_midpoint(const synthetic_parameters* set)
{
    return fmin(midpoint(set, 0, 0), midpoint(set, set->shots - 1, 0)) +
           fmin(0, (set->channels - 1) * set->spacing / 2);
}

static bool positions_fit(const synthetic_parameters* set)
{
    const double greatest = INT_MAX / -(double)COORDINATE_SCALAR;
    const double extent = fabs(set->shots * set->shot_spacing) + fabs(set->first_offset) +
                          fabs(set->channels * set->spacing);

    if (extent <= greatest)
        return true;
    vorn_fail("the line is about %g m long; headers hold positions up to %.0f m", extent, greatest);
    return false;
}

/* Common midpoints lie half a channel spacing apart and count from 1 at the line's beginning. */
static int cdp_number(const state* kept)
{
    const synthetic_parameters* set = &kept->set;
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

/* ---- State ---- */

static void add_event(state* kept, double time, double velocity, double amplitude, double frequency)
{
    synthetic_event* event = &kept->events[kept->event_count++];

    event->time = time;
    event->velocity = velocity;
    event->amplitude = amplitude;
    event->frequency = frequency;
    kept->level = fmax(kept->level, fabs(amplitude));
}

static void list_events(state* kept)
{
    const synthetic_parameters* set = &kept->set;
    int i;

    for (i = 0; i < set->times_count; ++i)
        add_event(kept, set->times[i], set->velocities[i], set->amplitudes[i], set->frequency);
    add_event(kept, 0, set->direct_velocity, set->direct_amplitude, set->frequency);
    add_event(kept, 0, set->roll_velocity, set->roll_amplitude, set->roll_frequency);
    if (kept->level == 0)
        kept->level = set->noise > 0 ? set->noise : 1;
}

static void list_defect(state* kept, synthetic_defect defect, const int* channels, int count)
{
    int i;

    for (i = 0; i < count; ++i)
        kept->listed[channels[i] - 1] = defect;
}

/* Of a channel in two lists, the first kind of defect applies. */
static void list_defects(state* kept)
{
    const synthetic_parameters* set = &kept->set;

    list_defect(kept, SYNTHETIC_SPIKY, set->spiky, set->spiky_count);
    list_defect(kept, SYNTHETIC_REVERSED, set->reversed, set->reversed_count);
    list_defect(kept, SYNTHETIC_NOISY, set->noisy, set->noisy_count);
    list_defect(kept, SYNTHETIC_DEAD, set->dead, set->dead_count);
}

/* False after a message. */
static bool make_tables(state* kept)
{
    const synthetic_parameters* set = &kept->set;
    const int64_t bytes = set->samples * (int64_t)sizeof(float) +
                          2 * (set->channels * (int64_t)sizeof(synthetic_defect));
    char what[80];

    snprintf(what, sizeof what, "shots of %d channels with %d samples", set->channels,
             set->samples);
    if (!vorn_allow_memory(set->memory_limit, bytes, what, "lower channels or samples"))
        return false;
    kept->first_midpoint = lowest_midpoint(set);
    kept->events =
        knl_allocateResource((set->times_count + SURFACE_WAVES) * (int)sizeof *kept->events);
    /* Not the kernel's blocks: their sizes have 32 bits. */
    kept->chosen = calloc((size_t)set->channels, sizeof *kept->chosen);
    kept->listed = calloc((size_t)set->channels, sizeof *kept->listed);
    if (kept->events == NULL)
        return false; /* the kernel has said so */
    if (kept->chosen == NULL || kept->listed == NULL) {
        vorn_fail("not enough memory for %s", what);
        return false;
    }
    list_events(kept);
    list_defects(kept);
    return true;
}

/* ---- Traces ---- */

/* Header words that are the same in all traces stay in the one trace of a work buffer, of which
 * only the header is used. */
static void describe_output(const state* kept, void* out)
{
    const synthetic_parameters* set = &kept->set;
    static const char* const varying[] = {"tracl", "tracr", "fldr",   "tracf", "ep",
                                          "cdp",   "sx",    "offset", "gx"};
    void* work;
    size_t i;

    knl_bldWorkTraceBuffer(0, 1, kept->interval, 1, NULL);
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
    knl_setI32TraceAttribute(work, "dt", kept->interval);

    knl_bldOutputTraceBuffer(0, set->samples, kept->interval, work);
    knl_informTotalTracesNumber(out, kept->part.count);
}

static void write_header(const state* kept, void* work)
{
    const synthetic_parameters* set = &kept->set;
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

    if (defect != SYNTHETIC_GOOD)
        vorn_message(VORN_DETAIL, "shot %d, channel %d is %s", kept->shot + 1, kept->channel + 1,
                     names[defect]);
}

static void fill(const state* kept, float* samples)
{
    const synthetic_parameters* set = &kept->set;
    const double interval = kept->interval * 1e-6;
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

/* Goes to the first trace of the part from `number` on. */
static void seek(state* kept, int64_t number)
{
    kept->next = synthetic_next_of_part(&kept->part, number);
    kept->shot = (int)((kept->next - 1) / kept->set.channels);
    kept->channel = (int)((kept->next - 1) % kept->set.channels);
}

/* False after a message. */
static bool emit(state* kept, void* out)
{
    const int number = knl_getNumberOfTraces(out);
    void* work;
    float* samples;

    if (kept->drawn != kept->shot + 1)
        synthetic_choose_defects(synthetic_trace_seed((uint64_t)kept->set.seed, kept->shot + 1, 0),
                                 kept->set.bad, kept->chosen, kept->set.channels);
    kept->drawn = kept->shot + 1;
    knl_getWorkTraceBuffer(&work, 0);
    write_header(kept, work);
    knl_mcopyTraceToTrace(work, out, 1, 0, 0, number);
    samples = vorn_required_samples(out, number);
    if (samples == NULL)
        return false;
    if (kept->headers_only)
        report_defect(kept, defect_of(kept));
    else
        fill(kept, samples);
    seek(kept, kept->next + 1);
    return true;
}
