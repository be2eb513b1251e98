/* The first module of a ModuleHarness's job: emits the traces that the test has prepared. */
#include "../support/harness_data.h"
#include "knl.h"

#include <stddef.h>

static harness_source* prepared(void)
{
    void* source = NULL;
    knl_getModuleResource("HARNESS", &source);
    return source;
}

static void set_attribute(void* set, const harness_attribute* attribute)
{
    const char* name = attribute->name;
    const void* value = attribute->value;
    const int count = attribute->count;

    switch (attribute->type) {
    case 1:
        knl_setStrTraceAttribute(set, name, value);
        break;
    case 2:
        knl_setI32TraceAttribute(set, name, *(const int*)value);
        break;
    case 3:
        knl_setI64TraceAttribute(set, name, *(const int64_t*)value);
        break;
    case 4:
        knl_setF32TraceAttribute(set, name, *(const float*)value);
        break;
    case 5:
        knl_setF64TraceAttribute(set, name, *(const double*)value);
        break;
    case 9:
        knl_setI32ArrayTraceAttribute(set, name, value, count);
        break;
    case 10:
        knl_setI64ArrayTraceAttribute(set, name, value, count);
        break;
    case 11:
        knl_setF32ArrayTraceAttribute(set, name, value, count);
        break;
    case 12:
        knl_setF64ArrayTraceAttribute(set, name, value, count);
        break;
    default:
        knl_sendMessage(3, "harness: an attribute has a type that traces cannot hold");
    }
}

/* Attributes can be set in the first trace of a set only, so that each trace is made in a work
 * buffer and copied behind those that the output still holds. */
static void emit(const harness_trace* trace, void* out)
{
    void* work;
    float* samples = (float*)trace->samples; /* only read */
    int i;

    knl_getWorkTraceBuffer(&work, 0);
    knl_clearTraceSet(work);
    for (i = 0; i < trace->attributeCount; ++i)
        set_attribute(work, &trace->attributes[i]);
    knl_setTraceSamples(work, &samples, 0);
    knl_mcopyTraceToTrace(work, out, 1, 1, 0, knl_getNumberOfTraces(out));
}

/* The following modules take their geometry and their attributes from this output, in their own
 * preprocess_. */
int preprocess_(void)
{
    harness_source* source = prepared();
    void* out;
    int t, i;

    knl_bldOutputTraceBuffer(0, source->traceLength, source->sampleInterval, NULL);
    knl_getOutputTraceBuffer(&out, 0);
    for (t = 0; t < source->traceCount + source->laterTraces; ++t)
        for (i = 0; i < source->traces[t].attributeCount; ++i)
            knl_defineTraceAttribute(out, source->traces[t].attributes[i].name);
    knl_bldWorkTraceBuffer(0, source->traceLength, source->sampleInterval, 1, out);
    knl_informTotalTracesNumber(out, source->traceCount - source->next);
    return 0;
}

/* The end of data is read from the first trace and set on the last one. Where a call emits several
 * traces, it is seen only when the next call finds nothing left and flags the empty channel. */
int process_(void)
{
    harness_source* source = prepared();
    void* out;
    int emitted;

    knl_getOutputTraceBuffer(&out, 0);
    for (emitted = 0; emitted < source->tracesPerCall && source->next < source->traceCount;
         ++emitted)
        emit(&source->traces[source->next++], out);
    if (source->next >= source->traceCount)
        knl_setDataChannelFlag(out, 3);
    return 0;
}

int postprocess_(void)
{
    knl_removeWorkTraces();
    return 0;
}
