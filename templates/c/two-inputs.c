/* my_module: subtracts the traces of its second input from those of the first. */
#include "my_module_parameters.h"
#include "vorn_stream.h"

typedef struct state
{
    my_module_parameters set;
} state;

/* Before the first trace. The state is zero-filled. False after a message. */
static bool prepare(state* s, vorn_stream* io)
{
    void* in = vorn_required_input(0);

    (void)io;
    /* Inputs are taken in step, one trace of each; vorn_match() would match them by header words.
     */
    return in != NULL && vorn_required_input(1) != NULL &&
           vorn_build_required_output(0, in) != NULL && my_module_read_parameters(&s->set);
}

/* For each pair of traces. An input that has ended has none. */
static bool on_trace(state* s, vorn_stream* io)
{
    void* second = vorn_trace(io, 1);
    void* trace;
    float* samples;
    const float* subtracted;
    int i;

    if (vorn_trace(io, 0) == NULL || second == NULL) {
        vorn_fail("one input has more traces than the other");
        return false;
    }
    trace = vorn_emit_trace(io, 0, vorn_trace(io, 0));
    samples = trace != NULL ? vorn_required_samples(trace, 0) : NULL;
    subtracted = samples != NULL ? vorn_required_samples(second, 0) : NULL;
    if (subtracted == NULL)
        return false;
    for (i = 0; i < knl_getTraceLength(trace) && i < knl_getTraceLength(second); ++i)
        samples[i] -= (float)s->set.scale * subtracted[i];
    return true;
}

/* At the very end, whatever happened. */
static void release(state* s)
{
    my_module_free_parameters(&s->set);
}

VORN_STREAM_MODULE(state, prepare, on_trace, VORN_NO_END, VORN_NOTHING, release);
