/* A sink for tests of the command that draws: one pad with a line through the first samples. */
#include "knl.h"

#include <stddef.h>

int preprocess_(void)
{
    static const char title[] = "first samples\nname: first\nxrange: 0 10\nyrange: 0 10\n"
                                "x: trace\ny: amplitude";
    int* pad = knl_allocateResource((int)sizeof *pad);

    if (pad == NULL)
        return 1;
    *pad = knl_createPad(2, 0, 1, title);
    knl_setModuleResource("pad", pad);
    knl_plot(*pad, 0, 0, 3);
    return 0;
}

int process_(void)
{
    void* in;
    void* pad = NULL;
    float* samples;
    int number = 0;

    knl_getModuleResource("pad", &pad);
    if (pad == NULL || knl_getInputTraceBuffer(&in, 0) != 0)
        return 1;
    knl_getI32TraceAttribute(in, "tracl", &number);
    if (knl_getTraceSamples(in, &samples, 0) == 1)
        knl_plot(*(int*)pad, (float)number, samples[0], 2);
    return 0;
}

int postprocess_(void)
{
    void* pad = NULL;

    knl_getModuleResource("pad", &pad);
    return knl_freeResource(pad);
}
