/* bench_copy: passes traces on by copying them whole. */
#include "knl.h"

int preprocess_(void)
{
    void* in;

    knl_getInputTraceBuffer(&in, 0);
    return knl_bldOutputTraceBuffer(0, knl_getTraceLength(in), knl_getTraceSampleInterval(in), in);
}

int process_(void)
{
    void* in;
    void* out;

    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    knl_copyTraceToTrace(in, out, 1, 1);
    return 0;
}

int postprocess_(void)
{
    return 0;
}
