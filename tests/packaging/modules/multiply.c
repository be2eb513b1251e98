/* Multiplies every sample by a parameter, with the kit. */
#include "only_parameters.h"
#include "vorn_kit.h"

typedef struct state
{
    only_parameters set;
} state;

static bool prepare(state* s)
{
    void* in = vorn_required_input(0);

    return in != NULL && vorn_build_required_output(0, in) != NULL && only_read_parameters(&s->set);
}

static bool process(state* s)
{
    void* out = vorn_output(0);
    const int number = vorn_pass_trace(vorn_input(0), out);
    const double sign = s->set.mode == ONLY_MODE_NEGATIVE ? -1 : 1;
    float* samples;
    int i;

    knl_getTraceSamples(out, &samples, number);
    for (i = 0; i < knl_getTraceLength(out); ++i)
        samples[i] *= (float)(sign * s->set.factor);
    return true;
}

static void release(state* s)
{
    only_free_parameters(&s->set);
}

VORN_MODULE(state, prepare, process, VORN_NOTHING, release);
