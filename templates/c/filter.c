/* my_module: multiplies the samples of every trace by a factor. */
#include "my_module_parameters.h"
#include "vorn_stream.h"

/* What the module keeps from one call to the next: never in global variables, since a job may use
 * this library for several modules. */
typedef struct state
{
    my_module_parameters set;
} state;

/* Before the first trace. The state is zero-filled. False after a message. */
static bool prepare(state* s, vorn_stream* io)
{
    void* in = vorn_required_input(0);

    (void)io;
    return in != NULL && vorn_build_required_output(0, in) != NULL &&
           my_module_read_parameters(&s->set);
}

/* For each trace: it goes out as it is, with its header, and is changed there. */
static bool on_trace(state* s, vorn_stream* io)
{
    void* trace = vorn_emit_trace(io, 0, vorn_trace(io, 0));
    float* samples = trace != NULL ? vorn_required_samples(trace, 0) : NULL;
    int i;

    if (samples == NULL)
        return false;
    for (i = 0; i < knl_getTraceLength(trace); ++i)
        samples[i] *= (float)s->set.factor;
    return true;
}

/* At the very end, whatever happened. */
static void release(state* s)
{
    my_module_free_parameters(&s->set);
}

VORN_STREAM_MODULE(state, prepare, on_trace, VORN_NO_END, VORN_NOTHING, release);
