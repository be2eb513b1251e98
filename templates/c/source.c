/* my_module: makes traces, each with a spike in the middle. */
#include "my_module_parameters.h"
#include "vorn_stream.h"

#include <math.h>

typedef struct state
{
    my_module_parameters set;
    int made; /* traces */
} state;

/* Before the first trace. The state is zero-filled. False after a message. */
static bool prepare(state* s, vorn_stream* io)
{
    void* out = vorn_output(0);
    int interval; /* microseconds */

    (void)io;
    if (out == NULL) {
        vorn_fail("the module has no output; connect one");
        return false;
    }
    if (!my_module_read_parameters(&s->set))
        return false;
    interval = (int)lround(s->set.interval * 1e6);
    knl_bldOutputTraceBuffer(0, s->set.samples, interval, NULL);
    /* Header words that the traces have: of the type that the job's schema gives them. */
    knl_defineTraceAttribute(out, "tracl");
    knl_defineTraceAttribute(out, "fldr");
    knl_informTotalTracesNumber(out, s->set.traces); /* for the progress */
    return true;
}

/* A module without inputs is called until it has called vorn_stop. */
static bool on_trace(state* s, vorn_stream* io)
{
    void* trace = vorn_emit(io, 0);
    float* samples = trace != NULL ? vorn_required_samples(trace, 0) : NULL;

    if (samples == NULL)
        return false;
    ++s->made;
    samples[s->set.samples / 2] = (float)s->made;
    knl_setI32TraceAttribute(trace, "tracl", s->made);
    knl_setI32TraceAttribute(trace, "fldr", 1);
    if (s->made == s->set.traces)
        vorn_stop(io);
    return true;
}

/* At the very end, whatever happened. */
static void release(state* s)
{
    my_module_free_parameters(&s->set);
}

VORN_STREAM_MODULE(state, prepare, on_trace, VORN_NO_END, VORN_NOTHING, release);
