/* Counts its calls in a static variable, which all modules of the job share that use this library,
 * and in a resource, which is the module's own; writes both into the traces. */
#include "knl.h"

#include <stddef.h>

static int shared;

int preprocess_(void)
{
    void* in;

    knl_getInputTraceBuffer(&in, 0);
    knl_bldOutputTraceBuffer(0, knl_getTraceLength(in), knl_getTraceSampleInterval(in), in);
    knl_setModuleResource("CALLS", knl_allocateResource((int)sizeof(int)));
    shared = 0;
    return 0;
}

int process_(void)
{
    void* in;
    void* out;
    void* calls = NULL;

    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    knl_copyTraceToTrace(in, out, 1, 1);
    knl_getModuleResource("CALLS", &calls);
    knl_setI32TraceAttribute(out, "shared", ++shared);
    knl_setI32TraceAttribute(out, "own", ++*(int*)calls);
    return 0;
}

int postprocess_(void)
{
    void* calls = NULL;

    knl_getModuleResource("CALLS", &calls);
    knl_freeResource(calls);
    return 0;
}
