/* amplify: multiplies the samples of every trace by a factor. */
#include "amplify_parameters.h"
#include "vorn_stream.h"

/* What the module keeps from one call to the next: never in global variables, since a job may use
 * this library for several modules. */
typedef struct state
{
    amplify_parameters set;
} state;

/* Before the first trace. The state is zero-filled. False after a message. */
static bool prepare(state* s, vorn_stream* io)
{
    void* in = vorn_required_input(0);

    (void)io;
    /* The modules before this one have described their outputs by now. */
    return in != NULL && vorn_build_required_output(0, in) != NULL &&
           amplify_read_parameters(&s->set);
}

/* The arithmetic, which knows nothing of the kernel. */
static void scale(float* samples, int count, float factor)
{
    int i;

    for (i = 0; i < count; ++i)
        samples[i] *= factor;
}

/* For each trace: it goes out as it is, with its header, and is changed there. */
static bool on_trace(state* s, vorn_stream* io)
{
    void* trace = vorn_emit_trace(io, 0, vorn_trace(io, 0));
    float* samples = trace != NULL ? vorn_required_samples(trace, 0) : NULL;

    if (samples == NULL)
        return false;
    scale(samples, knl_getTraceLength(trace), (float)s->set.factor);
    return true;
}

/* At the very end, whatever happened. */
static void release(state* s)
{
    amplify_free_parameters(&s->set);
}

VORN_STREAM_MODULE(state, prepare, on_trace, VORN_NO_END, VORN_NOTHING, release);
