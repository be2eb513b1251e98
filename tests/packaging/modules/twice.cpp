// Doubles every sample.
#include "knl.h"

extern "C" int preprocess_()
{
    void* in;
    knl_getInputTraceBuffer(&in, 0);
    return knl_bldOutputTraceBuffer(0, knl_getTraceLength(in), knl_getTraceSampleInterval(in), in);
}

extern "C" int process_()
{
    void* in;
    void* out;
    float* samples;

    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    knl_copyTraceToTrace(in, out, 1, 1);
    knl_getTraceSamples(out, &samples, 0);
    for (int s = 0; s < knl_getTraceLength(out); ++s)
        samples[s] *= 2.0f;
    return 0;
}

extern "C" int postprocess_()
{
    return 0;
}
