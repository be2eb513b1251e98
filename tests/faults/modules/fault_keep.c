/* Keeps all traces in a work buffer and gives them out from the last to the first, every other one
 * moved and the others copied: with few traces in memory, each goes to the scratch file and back
 * more than once. */
#include "knl.h"

#include <stddef.h>

enum
{
    FATAL = 4,
    END_OF_DATA = 3
};

struct state
{
    int kept;
};

static struct state* kept_state(void)
{
    void* state = NULL;

    knl_getModuleResource("state", &state);
    return state;
}

int preprocess_(void)
{
    void* in;
    struct state* state = knl_allocateResource((int)sizeof *state);

    if (state == NULL || knl_getInputTraceBuffer(&in, 0) != 0)
        return 1;
    knl_setModuleResource("state", state);
    knl_bldWorkTraceBuffer(0, knl_getTraceLength(in), knl_getTraceSampleInterval(in), 0, in);
    return knl_bldOutputTraceBuffer(0, knl_getTraceLength(in), knl_getTraceSampleInterval(in), in);
}

static int give_out(struct state* state, void* work, void* out)
{
    int i;

    for (i = state->kept - 1; i >= 0; --i) {
        const int to = knl_getNumberOfTraces(out);
        const int done = i % 2 == 0 ? knl_moveTraceToTrace(work, out, i, to)
                                    : knl_mcopyTraceToTrace(work, out, 1, 1, i, to);
        if (done != 1)
            return 0;
        /* The mark of the end came with the trace that goes out first. */
        knl_setDataChannelFlag(out, i == 0 ? END_OF_DATA : 0);
    }
    return 1;
}

int process_(void)
{
    void* in;
    void* out;
    void* work;
    float* samples;
    int last;
    struct state* state = kept_state();

    if (knl_getInputTraceBuffer(&in, 0) != 0 || knl_getOutputTraceBuffer(&out, 0) != 0)
        return 1;
    last = knl_getDataChannelFlag(in) == END_OF_DATA;
    if (state != NULL) {
        const int good = knl_getWorkTraceBuffer(&work, 0) == 0 &&
                         knl_mcopyTraceToTrace(in, work, 1, 1, 0, state->kept) == 1 &&
                         knl_getTraceSamples(work, &samples, state->kept) == 1;
        if (good)
            ++state->kept;
        else
            knl_sendMessage(FATAL, "a trace cannot be kept");
        if (last && !give_out(state, work, out))
            knl_sendMessage(FATAL, "a trace cannot be given out");
    }
    if (last && knl_getNumberOfTraces(out) == 0)
        knl_setDataChannelFlag(out, END_OF_DATA);
    return 0;
}

int postprocess_(void)
{
    return knl_freeResource(kept_state());
}
