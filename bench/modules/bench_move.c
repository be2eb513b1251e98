/* bench_move: passes the traces themselves on. */
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
    knl_moveTraceToTrace(in, out, 0, 0);
    return 0;
}

int postprocess_(void)
{
    return 0;
}
