/* source: makes synthetic traces, a wave that passes one receiver after another.
 *
 * Parameters: TRACES     number of traces
 *             SAMPLES    samples per trace
 *             INTERVAL   sample interval in microseconds
 *             FREQUENCY  of the wave, in hertz
 *             VELOCITY   of the wave, in metres per second
 */
#include "knl.h"

#define END_OF_DATA 3

static const int spacing = 50; /* metres from one receiver to the next */

/* Kept with the module, not in a global: two modules of a job can share this library. */
struct state
{
    int traces;
    int samples;
    int interval;
    int made;
    float frequency;
    float velocity;
};

static struct state* kept_state(void)
{
    void* state = 0;
    knl_getModuleResource("STATE", &state);
    return state;
}

/* One upward arch of 1/FREQUENCY seconds around the time at which the wave passes. */
static void draw_wave(float* samples, const struct state* state, int offset)
{
    const float arrival = (float)offset / state->velocity;
    for (int i = 0; i < state->samples; ++i) {
        const float time = (float)i * (float)state->interval * 1e-6f;
        const float x = 2 * state->frequency * (time - arrival);
        samples[i] = x * x < 1 ? 1 - x * x : 0;
    }
}

/* Accessing trace 0 creates it. It is the only one: the kernel calls a source when its channel is
 * empty. */
static void make_trace(void* out, struct state* state)
{
    float* samples;
    const int offset = state->made * spacing;
    if (knl_getTraceSamples(out, &samples, 0) != 0)
        draw_wave(samples, state, offset);
    ++state->made;
    knl_setI32TraceAttribute(out, "tracl", state->made);
    knl_setI32TraceAttribute(out, "offset", offset);
}

int preprocess_(void)
{
    void* out;
    if (knl_getOutputTraceBuffer(&out, 0) != 0)
        return 1;
    struct state* state = knl_allocateResource(sizeof *state);
    if (state == 0)
        return 1;
    *state = (struct state){
        .traces = 10, .samples = 101, .interval = 4000, .frequency = 30, .velocity = 2000};
    knl_getI32ModuleParameter("TRACES", &state->traces);
    knl_getI32ModuleParameter("SAMPLES", &state->samples);
    knl_getI32ModuleParameter("INTERVAL", &state->interval);
    knl_getF32ModuleParameter("FREQUENCY", &state->frequency);
    knl_getF32ModuleParameter("VELOCITY", &state->velocity);
    knl_setModuleResource("STATE", state);

    knl_informTotalTracesNumber(out, state->traces); /* so that the host can show progress */
    return knl_bldOutputTraceBuffer(0, state->samples, state->interval, 0);
}

/* The kernel calls a source until it marks its end of data, also one that has no traces. The mark
 * goes to the last trace, or to the channel when that holds none. */
int process_(void)
{
    void* out;
    struct state* state = kept_state();
    if (knl_getOutputTraceBuffer(&out, 0) != 0)
        return 1;
    if (state != 0 && state->made < state->traces)
        make_trace(out, state);
    if (state == 0 || state->made >= state->traces)
        knl_setDataChannelFlag(out, END_OF_DATA);
    return 0;
}

int postprocess_(void)
{
    return knl_freeResource(kept_state());
}
