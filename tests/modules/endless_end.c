/* Hands on all traces without the mark of the last one, and does not mark the end when it is called
 * without input either: the kernel calls it for ever. */
#include "knl.h"
#include "knl_fortran.h"

int preprocess_(void)
{
    void* in;

    knl_getInputTraceBuffer(&in, 0);
    knl_bldOutputTraceBuffer(0, knl_getTraceLength(in), knl_getTraceSampleInterval(in), in);
    knl_setModuleProcessingOption("RespectEOD", 1);
    return 0;
}

int process_(void)
{
    void* in;
    void* out;
    int first_input = 1; /* the Fortran form counts from 1 */
    int keep = 1;

    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    if (knl_getNumberOfTraces(in) == 0) {
        knl_setinputtracebufferflag_(&first_input, &keep);
        return 0;
    }
    knl_mcopyTraceToTrace(in, out, 1, 1, 0, knl_getNumberOfTraces(out));
    knl_setDataChannelFlag(out, 0);
    return 0;
}

int postprocess_(void)
{
    return 0;
}
