/* Hands on all traces without the mark of the last one; says only afterwards, when it is called
 * without input, that there are no more. A module that leaves traces out may end so. */
#include "knl.h"

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

    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    if (knl_getNumberOfTraces(in) == 0) {
        knl_setDataChannelFlag(out, 3);
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
