/* Asks to be called at the end of its data, but has no output whose end it could mark: the kernel
 * calls it for ever. */
#include "knl.h"
#include "knl_fortran.h"

int preprocess_(void)
{
    knl_setModuleProcessingOption("RespectEOD", 1);
    return 0;
}

int process_(void)
{
    void* in;
    int first_input = 1; /* the Fortran form counts from 1 */
    int keep = 1;

    knl_getInputTraceBuffer(&in, 0);
    if (knl_getNumberOfTraces(in) == 0)
        knl_setinputtracebufferflag_(&first_input, &keep);
    return 0;
}

int postprocess_(void)
{
    return 0;
}
