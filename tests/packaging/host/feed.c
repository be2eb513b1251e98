/* Emits three traces of four samples; sample s (from 0) of trace t (from 1) is 10 t + s. */
#include "knl.h"

static int emitted;

int preprocess_(void)
{
    emitted = 0;
    return knl_bldOutputTraceBuffer(0, 4, 2000, 0);
}

int process_(void)
{
    void* out;
    float* samples;

    knl_getOutputTraceBuffer(&out, 0);
    knl_getTraceSamples(out, &samples, 0);
    ++emitted;
    for (int s = 0; s < 4; ++s)
        samples[s] = 10.0f * (float)emitted + (float)s;
    if (emitted == 3)
        knl_setDataChannelFlag(out, 3);
    return 0;
}

int postprocess_(void)
{
    return 0;
}
