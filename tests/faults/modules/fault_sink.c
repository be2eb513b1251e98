/* Compares every trace that arrives with what its number says that it must be, and writes what it
 * finds into the record of the test. */
#include "../fault_record.h"
#include "knl.h"

#include <stddef.h>
#include <string.h>

int preprocess_(void)
{
    return 0;
}

static int is_good_header(void* in, int number)
{
    double weight = -1;
    int extra = -1;
    char label[256] = "";

    return knl_getF64TraceAttribute(in, "weight", &weight) == 1 && weight == 0.5 * number &&
           knl_getI32TraceAttribute(in, "extra", &extra) == 1 && extra == 3 * number &&
           knl_getStrTraceAttribute(in, "label", label) == 1 &&
           strcmp(label, "a label of a trace") == 0;
}

static int are_good_samples(const float* samples, int count, int number)
{
    int i;

    for (i = 0; i < count; ++i) {
        if (samples[i] != (float)(2 * (1000 * number + i)))
            return 0;
    }
    return count > 0;
}

int process_(void)
{
    void* record = NULL;
    void* in;
    float* samples;
    fault_record* told;
    fault_trace trace = {-1, 0, 0, 0};

    if (knl_getModuleResource("record", &record) != 1 || record == NULL ||
        knl_getInputTraceBuffer(&in, 0) != 0)
        return 1;
    told = record;
    trace.hasSamples = knl_getTraceSamples(in, &samples, 0) == 1;
    knl_getI32TraceAttribute(in, "tracl", &trace.number);
    trace.goodHead = is_good_header(in, trace.number);
    if (trace.hasSamples)
        trace.goodData = are_good_samples(samples, knl_getTraceLength(in), trace.number);
    if (told->traces < FAULT_MOST_TRACES)
        told->trace[told->traces] = trace;
    ++told->traces;
    return 0;
}

int postprocess_(void)
{
    return 0;
}
