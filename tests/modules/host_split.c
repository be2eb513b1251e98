/* Two outputs for tests of the command: traces with odd numbers to the first, with even numbers to
 * the second. */
#include "knl.h"

#include <stddef.h>

enum
{
    END_OF_DATA = 3
};

int preprocess_(void)
{
    void* in;
    int i;

    if (knl_getInputTraceBuffer(&in, 0) != 0)
        return 1;
    for (i = 0; i < 2; ++i)
        knl_bldOutputTraceBuffer(i, knl_getTraceLength(in), knl_getTraceSampleInterval(in), in);
    return 0;
}

int process_(void)
{
    void* in;
    void* out;
    int number = 0;
    int i;
    int last;

    if (knl_getInputTraceBuffer(&in, 0) != 0)
        return 1;
    knl_getI32TraceAttribute(in, "tracl", &number);
    last = knl_getDataChannelFlag(in) == END_OF_DATA;
    for (i = 0; i < 2; ++i) {
        if (knl_getOutputTraceBuffer(&out, i) != 0)
            continue;
        if ((number + 1) % 2 == i)
            knl_mcopyTraceToTrace(in, out, 1, 1, 0, knl_getNumberOfTraces(out));
        if (last)
            knl_setDataChannelFlag(out, END_OF_DATA);
    }
    return 0;
}

int postprocess_(void)
{
    return 0;
}
