/* bench_named: passes traces on, samples in one piece and three attributes by their names. */
#include "knl.h"

static void pass(void* in, void* out, const char* name)
{
    int value = 0;

    knl_getI32TraceAttribute(in, name, &value);
    knl_setI32TraceAttribute(out, name, value);
}

int preprocess_(void)
{
    void* in;

    knl_getInputTraceBuffer(&in, 0);
    return knl_bldOutputTraceBuffer(0, knl_getTraceLength(in), knl_getTraceSampleInterval(in), in);
}

int process_(void)
{
    void* in;
    void* out;

    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    knl_copyTraceToTrace(in, out, 0, 1);
    pass(in, out, "attribute_00");
    pass(in, out, "attribute_01");
    pass(in, out, "attribute_02");
    return 0;
}

int postprocess_(void)
{
    return 0;
}
