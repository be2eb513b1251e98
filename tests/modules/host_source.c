/* A source for tests of the command: traces of rising numbers, with pauses and faults on demand. */
#include "knl.h"

#include <stddef.h>
#include <time.h>

enum
{
    INFORMATION = 1,
    END_OF_DATA = 3
};

struct state
{
    int traces;
    int samples;
    int announce;
    int burst;    /* traces of one call */
    int end;      /* 0: the end of the data is never told */
    double pause; /* seconds before each trace */
    int made;
};

static struct state* kept_state(void)
{
    void* state = NULL;

    knl_getModuleResource("state", &state);
    return state;
}

static void sleep_for(double seconds)
{
    struct timespec pause;

    pause.tv_sec = (time_t)seconds;
    pause.tv_nsec = (long)((seconds - (double)pause.tv_sec) * 1e9);
    nanosleep(&pause, NULL);
}

int preprocess_(void)
{
    void* out;
    struct state* state = knl_allocateResource((int)sizeof *state);

    if (state == NULL || knl_getOutputTraceBuffer(&out, 0) != 0)
        return 1;
    *state = (struct state){.traces = 3, .samples = 4, .announce = 1, .burst = 1, .end = 1};
    knl_getI32ModuleParameter("traces", &state->traces);
    knl_getI32ModuleParameter("samples", &state->samples);
    knl_getI32ModuleParameter("announce", &state->announce);
    knl_getI32ModuleParameter("burst", &state->burst);
    knl_getI32ModuleParameter("end", &state->end);
    knl_getF64ModuleParameter("pause", &state->pause);
    knl_setModuleResource("state", state);
    if (state->announce)
        knl_informTotalTracesNumber(out, state->traces);
    knl_sendMessage(INFORMATION, "ready");
    return knl_bldOutputTraceBuffer(0, state->samples, 2000, NULL);
}

static void make_trace(struct state* state, void* out)
{
    const int number = knl_getNumberOfTraces(out);
    float* samples;
    int i;

    if (state->pause > 0)
        sleep_for(state->pause);
    ++state->made;
    /* The set's own attribute functions write trace 0; a trace behind others gets its numbers as
     * samples alone. */
    if (knl_getTraceSamples(out, &samples, number) == 1) {
        for (i = 0; i < state->samples; ++i)
            samples[i] = (float)state->made;
    }
    if (number == 0) {
        knl_setI32TraceAttribute(out, "tracl", state->made);
        knl_setI32TraceAttribute(out, "fldr", 100 + state->made / 2);
    }
}

int process_(void)
{
    void* out;
    int i;
    struct state* state = kept_state();

    if (state == NULL || knl_getOutputTraceBuffer(&out, 0) != 0)
        return 1;
    for (i = 0; i < state->burst && state->made < state->traces; ++i)
        make_trace(state, out);
    if (state->made >= state->traces && state->end)
        knl_setDataChannelFlag(out, END_OF_DATA);
    return 0;
}

int postprocess_(void)
{
    return knl_freeResource(kept_state());
}
