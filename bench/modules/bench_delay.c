/* bench_delay: keeps traces back, as modules that work on gathers do: the oldest one goes on when
 * another arrives, all of them at the end of the data.
 *
 * Parameter: DELAY  traces that are kept back
 *
 * Modules of one job share the globals; each finds its own state by its output.
 */
#include "knl.h"

#define END_OF_DATA 3
#define MOST_MODULES 64

static struct state
{
    void* out;
    int delay;
    int kept;   /* traces in the work buffer */
    int oldest; /* place of the one that came first, once all places are taken */
} states[MOST_MODULES];

static struct state* state_of(void* out)
{
    struct state* state = states;

    while (state < states + MOST_MODULES - 1 && state->out != out && state->out != 0)
        ++state;
    return state;
}

int preprocess_(void)
{
    void* in;
    void* out;
    struct state* state;
    int length;
    int interval;

    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    length = knl_getTraceLength(in);
    interval = knl_getTraceSampleInterval(in);
    state = state_of(out);
    state->out = out;
    state->delay = 1;
    state->kept = state->oldest = 0;
    knl_getI32ModuleParameter("DELAY", &state->delay);
    knl_bldWorkTraceBuffer(0, length, interval, 0, in);
    return knl_bldOutputTraceBuffer(0, length, interval, in);
}

int process_(void)
{
    void* in;
    void* out;
    void* work;
    struct state* state;
    int last;

    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    knl_getWorkTraceBuffer(&work, 0);
    state = state_of(out);
    last = knl_getDataChannelFlag(in) == END_OF_DATA;
    if (!last && state->kept < state->delay) {
        knl_moveTraceToTrace(in, work, 0, state->kept++);
        return 0;
    }
    if (!last) {
        knl_moveTraceToTrace(work, out, state->oldest, 0);
        knl_moveTraceToTrace(in, work, 0, state->oldest);
        state->oldest = (state->oldest + 1) % state->delay;
        return 0;
    }
    for (int i = 0; i < state->kept; ++i)
        knl_moveTraceToTrace(work, out, (state->oldest + i) % state->kept, i);
    knl_moveTraceToTrace(in, out, 0, state->kept);
    state->kept = 0;
    return 0;
}

/* The next job may have its channels elsewhere. */
int postprocess_(void)
{
    for (int i = 0; i < MOST_MODULES; ++i)
        states[i].out = 0;
    return 0;
}
