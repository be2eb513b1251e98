/* A sink for tests of the command: writes the first sample of each trace as a line of `file`, under
 * a temporary name until the job has ended well. With two inputs it takes a trace of each. */
#include "knl.h"

#include <stddef.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

enum
{
    INFORMATION = 1
};

struct state
{
    FILE* file;
    int traces;
    char path[1024];
    char temporary[1040];
};

static struct state* kept_state(void)
{
    void* state = NULL;

    knl_getModuleResource("state", &state);
    return state;
}

int preprocess_(void)
{
    struct state* state = knl_allocateResource((int)sizeof *state);

    if (state == NULL)
        return 1;
    knl_setModuleResource("state", state);
    if (knl_getStrModuleParameter("file", state->path) == 0)
        return 0;
    snprintf(state->temporary, sizeof state->temporary, "%s.part", state->path);
    state->file = fopen(state->temporary, "w");
    return 0;
}

int process_(void)
{
    void* in;
    float* samples;
    int number = 0;
    int channel;
    struct state* state = kept_state();

    if (state == NULL)
        return 1;
    ++state->traces;
    for (channel = 0; knl_getInputTraceBuffer(&in, channel) == 0; ++channel) {
        knl_getI32TraceAttribute(in, "tracl", &number);
        if (state->file != NULL && knl_getTraceSamples(in, &samples, 0) == 1)
            fprintf(state->file, "%d %d %g\n", channel + 1, number, (double)samples[0]);
    }
    if (state->file != NULL)
        fflush(state->file);
    return 0;
}

int postprocess_(void)
{
    char text[100];
    char failed[2];
    struct state* state = kept_state();

    if (state == NULL)
        return 1;
    snprintf(text, sizeof text, "%d calls", state->traces);
    knl_sendMessage(INFORMATION, text);
    if (state->file != NULL) {
        fclose(state->file);
        if (knl_getMetaDataValue(0, "vorn.failed", failed, (int)sizeof failed) > 0)
            unlink(state->temporary);
        else
            rename(state->temporary, state->path);
    }
    return knl_freeResource(state);
}
