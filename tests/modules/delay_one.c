/* Emits each trace one call after it has come in, as a module does that looks ahead. At the end of
 * the data one trace is left: the option RespectEOD brings a call without input, in which it goes
 * out. */
#include "knl.h"
#include "knl_fortran.h"

#include <stddef.h>

int preprocess_(void)
{
    void* in;
    void* out;
    int length, interval;

    knl_getInputTraceBuffer(&in, 0);
    length = knl_getTraceLength(in);
    interval = knl_getTraceSampleInterval(in);
    knl_bldOutputTraceBuffer(0, length, interval, in);
    knl_getOutputTraceBuffer(&out, 0);
    knl_bldWorkTraceBufferLike(0, out);
    knl_setModuleResource("HELD", knl_allocateResource((int)sizeof(int)));
    knl_setModuleProcessingOption("RespectEOD", 1);
    return 0;
}

int process_(void)
{
    void* in;
    void* out;
    void* held;
    void* is_held = NULL;
    int first_input = 1; /* the Fortran form counts from 1 */
    int keep = 1;

    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    knl_getWorkTraceBuffer(&held, 0);
    knl_getModuleResource("HELD", &is_held);

    if (*(int*)is_held) {
        /* Behind what the next module has not read yet; the trace itself, not a copy. */
        knl_transferTraceToTrace(held, out, 0, knl_getNumberOfTraces(out));
        knl_removeTrace(held, 0);
        *(int*)is_held = 0;
    }
    if (knl_getNumberOfTraces(in) == 0) {
        /* Until this flag is seen, there is one call after the other: each may only repeat it. */
        knl_setDataChannelFlag(out, 3);
        /* Nothing was taken from the input: without this, the kernel would make a trace to remove.
         */
        knl_setinputtracebufferflag_(&first_input, &keep);
        return 0;
    }
    knl_transferTraceToTrace(in, held, 0, 0);
    /* The last trace came with the end of the data; it goes on with the flag set above. */
    knl_setDataChannelFlag(held, 0);
    *(int*)is_held = 1;
    return 0;
}

int postprocess_(void)
{
    void* is_held = NULL;

    knl_getModuleResource("HELD", &is_held);
    knl_freeResource(is_held);
    knl_removeWorkTraces();
    return 0;
}
