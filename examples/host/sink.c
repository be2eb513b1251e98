/* sink: reports the greatest amplitude of each trace. */
#include "knl.h"

#include <math.h>
#include <stdio.h>

#define INFORMATION 1

static int largest_sample(const float* samples, int count)
{
    int largest = 0;
    for (int i = 1; i < count; ++i) {
        if (fabsf(samples[i]) > fabsf(samples[largest]))
            largest = i;
    }
    return largest;
}

int preprocess_(void)
{
    return 0;
}

int process_(void)
{
    void* in;
    float* samples;
    char text[120];
    int number = 0;
    int offset = 0;
    if (knl_getInputTraceBuffer(&in, 0) != 0)
        return 1;
    knl_getI32TraceAttribute(in, "tracl", &number);
    knl_getI32TraceAttribute(in, "offset", &offset);
    if (knl_getTraceSamples(in, &samples, 0) == 0 || knl_getTraceLength(in) < 1)
        return 1;

    const int peak = largest_sample(samples, knl_getTraceLength(in));
    const double time = peak * (double)knl_getTraceSampleInterval(in) / 1000;
    snprintf(text, sizeof text, "trace %d at %d m: amplitude %.3f at %.0f ms", number, offset,
             (double)samples[peak], time);
    knl_sendMessage(INFORMATION, text);
    return 0;
}

int postprocess_(void)
{
    return 0;
}
