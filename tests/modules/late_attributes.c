/* Writes attributes that its output did not have before: "zulu" from the second trace on, "alpha"
 * from the fourth. Both hold the trace's number, from 1. */
#include "knl.h"

#include <stddef.h>

int preprocess_(void)
{
    void* in;

    knl_getInputTraceBuffer(&in, 0);
    knl_bldOutputTraceBuffer(0, knl_getTraceLength(in), knl_getTraceSampleInterval(in), in);
    knl_setModuleResource("CALLS", knl_allocateResource((int)sizeof(int)));
    return 0;
}

int process_(void)
{
    void* in;
    void* out;
    void* calls = NULL;
    int number;

    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    knl_getModuleResource("CALLS", &calls);
    number = ++*(int*)calls;
    knl_copyTraceToTrace(in, out, 1, 1);
    if (number >= 2)
        knl_setI32TraceAttribute(out, "zulu", number);
    if (number >= 4)
        knl_setI32TraceAttribute(out, "alpha", number);
    return 0;
}

int postprocess_(void)
{
    void* calls = NULL;

    knl_getModuleResource("CALLS", &calls);
    knl_freeResource(calls);
    return 0;
}
