/* Makes numbered traces whose samples and header follow from the number; a trace that the kernel
 * has no memory for ends the data. */
#include "knl.h"

#include <stddef.h>

enum
{
    FATAL = 4,
    END_OF_DATA = 3
};

struct state
{
    int traces;
    int samples;
    int made;
    int ended;
};

static struct state* kept_state(void)
{
    void* state = NULL;

    knl_getModuleResource("state", &state);
    return state;
}

int preprocess_(void)
{
    void* out;
    struct state* state = knl_allocateResource((int)sizeof *state);

    if (state == NULL)
        return 1;
    knl_setModuleResource("state", state);
    knl_getI32ModuleParameter("traces", &state->traces);
    knl_getI32ModuleParameter("samples", &state->samples);
    knl_getOutputTraceBuffer(&out, 0);
    knl_informTotalTracesNumber(out, state->traces);
    return knl_bldOutputTraceBuffer(0, state->samples, 2000, NULL);
}

static int make_trace(struct state* state, void* out)
{
    const int number = state->made + 1;
    float* samples;
    int i;

    if (knl_getTraceSamples(out, &samples, 0) != 1)
        return 0;
    for (i = 0; i < state->samples; ++i)
        samples[i] = (float)(1000 * number + i);
    state->made = number;
    return knl_setI32TraceAttribute(out, "tracl", number) == 1 &&
           knl_setF64TraceAttribute(out, "weight", 0.5 * number) == 1 &&
           knl_setStrTraceAttribute(out, "label", "a label of a trace") == 1;
}

int process_(void)
{
    void* out;
    struct state* state = kept_state();

    if (knl_getOutputTraceBuffer(&out, 0) != 0)
        return 1;
    if (state != NULL && !state->ended && state->made < state->traces && !make_trace(state, out)) {
        state->ended = 1;
        knl_sendMessage(FATAL, "a trace cannot be made");
    }
    if (state == NULL || state->ended || state->made == state->traces)
        knl_setDataChannelFlag(out, END_OF_DATA);
    return 0;
}

int postprocess_(void)
{
    return knl_freeResource(kept_state());
}
