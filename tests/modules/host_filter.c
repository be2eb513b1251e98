/* A filter for tests of the command: multiplies by `factor`, passes on one trace of `every`, and
 * from trace `fault_at` on misbehaves as `fault` says. */
#include "knl.h"

#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum
{
    END_OF_DATA = 3,
    WARNING = 2,
    ERROR = 3,
    FATAL = 4
};

struct state
{
    double factor;
    int every;
    int fault_at;
    char fault[32];
    int seen;
    int ended;
};

static struct state* kept_state(void)
{
    void* state = NULL;

    knl_getModuleResource("state", &state);
    return state;
}

/* Declared for the checks of jobs. */
static void read_unused(void)
{
    double corners[4];
    char words[256];

    knl_copyF64ModuleParameter("corners", corners, 4);
    knl_getStrModuleParameterN("words", words, (int)sizeof words);
}

static void read_fault(struct state* state)
{
    char text[1024] = "none";

    knl_getStrModuleParameter("fault", text);
    snprintf(state->fault, sizeof state->fault, "%.31s", text);
}

int preprocess_(void)
{
    void* in;
    struct state* state = knl_allocateResource((int)sizeof *state);

    if (state == NULL || knl_getInputTraceBuffer(&in, 0) != 0)
        return 1;
    *state = (struct state){.factor = 1, .every = 1, .fault_at = 1};
    knl_getF64ModuleParameter("factor", &state->factor);
    knl_getI32ModuleParameter("every", &state->every);
    knl_getI32ModuleParameter("fault_at", &state->fault_at);
    read_fault(state);
    read_unused();
    knl_setModuleResource("state", state);
    if (strcmp(state->fault, "refuse") == 0)
        knl_sendMessage(FATAL, "this module does not want to begin");
    if (strcmp(state->fault, "endless") == 0)
        knl_setModuleProcessingOption("RespectEOD", 1);
    return knl_bldOutputTraceBuffer(0, knl_getTraceLength(in), knl_getTraceSampleInterval(in), in);
}

static void misbehave(struct state* state, void* out)
{
    char text[100];

    if (state->seen < state->fault_at)
        return;
    snprintf(text, sizeof text, "trace %d is \x1b[31mbad\x1b[0m", state->seen);
    if (strcmp(state->fault, "warning") == 0)
        knl_sendMessage(WARNING, text);
    if (strcmp(state->fault, "error") == 0)
        knl_sendMessage(ERROR, text);
    if (strcmp(state->fault, "command") == 0 && state->seen == state->fault_at)
        knl_execAppliCmd("rm -r everything");
    if (strcmp(state->fault, "crash") == 0)
        abort();
    if (strcmp(state->fault, "fatal") == 0) {
        knl_sendMessage(FATAL, text);
        knl_setMetaDataValue(0, "vorn.failed", text);
        knl_setDataChannelFlag(out, END_OF_DATA);
        state->ended = 1;
    }
}

int process_(void)
{
    void* in;
    void* out;
    float* samples;
    int i;
    int last;
    struct state* state = kept_state();

    if (state == NULL || knl_getInputTraceBuffer(&in, 0) != 0 ||
        knl_getOutputTraceBuffer(&out, 0) != 0 || state->ended)
        return 1;
    ++state->seen;
    misbehave(state, out);
    if (state->ended)
        return 1;
    if (strcmp(state->fault, "endless") == 0 && knl_getNumberOfTraces(in) == 0)
        return 0;
    last = knl_getDataChannelFlag(in) == END_OF_DATA;
    if (state->seen % state->every == 0) {
        const int number = knl_getNumberOfTraces(out);

        knl_mcopyTraceToTrace(in, out, 1, 1, 0, number);
        if (knl_getTraceSamples(out, &samples, number) == 1) {
            for (i = 0; i < knl_getTraceLength(out); ++i)
                samples[i] *= (float)state->factor;
        }
    }
    if (last || strcmp(state->fault, "endless") == 0)
        knl_setDataChannelFlag(out, strcmp(state->fault, "endless") == 0 ? 0 : END_OF_DATA);
    return 0;
}

int postprocess_(void)
{
    struct state* state = kept_state();

    if (state != NULL && strcmp(state->fault, "leak") == 0)
        return 0;
    return knl_freeResource(state);
}
