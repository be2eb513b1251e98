/* Prints the samples of each trace. */
#include "knl.h"

#include <stdio.h>

int preprocess_(void)
{
    return 0;
}

int process_(void)
{
    void* in;
    float* samples;
    char text[1024];
    int used;

    knl_getInputTraceBuffer(&in, 0);
    knl_getTraceSamples(in, &samples, 0);
    used = snprintf(text, sizeof text, "trace:");
    for (int s = 0; s < knl_getTraceLength(in) && used < (int)sizeof text - 32; ++s)
        used += snprintf(text + used, sizeof text - (size_t)used, " %g", samples[s]);
    knl_sendMessage(1, text);
    return 0;
}

int postprocess_(void)
{
    return 0;
}
