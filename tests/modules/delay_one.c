/* Emits each trace one call after it has come in, as a module does that looks ahead. At the end of
 * the data one trace is left: the option RespectEOD brings a call without input, in which it goes
 * out. */
#include "knl.h"
#include "knl_fortran.h"

#include <stddef.h>

int preprocess_(void)
{
    void* in;
    int length, interval;

    knl_getInputTraceBuffer(&in, 0);
    length = knl_getTraceLength(in);
    interval = knl_getTraceSampleInterval(in);
    knl_bldOutputTraceBuffer(0, length, interval, in);
    knl_bldWorkTraceBuffer(0, length, interval, 1, in);
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

    if (*(int*)is_held)
        knl_copyTraceToTrace(held, out, 1, 1);
    if (knl_getNumberOfTraces(in) == 0) {
        /* Until this flag is seen, there is one call after the other. */
        knl_setDataChannelFlag(out, 3);
        /* Nothing was taken from the input: without this, the kernel would make a trace to remove.
         */
        knl_setinputtracebufferflag_(&first_input, &keep);
        return 0;
    }
    knl_copyTraceToTrace(in, held, 1, 1);
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
    return 0;
}
