/* fold: sums each few consecutive traces. */
#include "fold_parameters.h"
#include "vorn_stream.h"

typedef struct state
{
    fold_parameters set;
    void* sum;  /* a queue: the first trace of the group, to which the others are added */
    int traces; /* in it */
} state;

/* Before the first trace. The state is zero-filled. False after a message. */
static bool prepare(state* s, vorn_stream* io)
{
    void* in = vorn_required_input(0);
    void* out = in != NULL ? vorn_build_required_output(0, in) : NULL;

    s->sum = vorn_build_queue(io, out);
    return out != NULL && fold_read_parameters(&s->set);
}

static void add(void* trace, void* sum)
{
    float* from;
    float* to;
    int i;

    if (knl_getTraceSamples(trace, &from, 0) == 0 || knl_getTraceSamples(sum, &to, 0) == 0)
        return;
    for (i = 0; i < knl_getTraceLength(sum) && i < knl_getTraceLength(trace); ++i)
        to[i] += from[i];
}

/* The sum leaves, if there is one. */
static void emit_sum(state* s, vorn_stream* io)
{
    vorn_emit_trace(io, 0, s->sum);
    vorn_drop_queued(s->sum, 1);
    s->traces = 0;
}

/* For each trace. */
static bool on_trace(state* s, vorn_stream* io)
{
    if (s->traces == 0)
        vorn_queue_trace(io, s->sum, vorn_trace(io, 0));
    else
        add(vorn_trace(io, 0), s->sum);
    if (++s->traces == s->set.count)
        emit_sum(s, io);
    return true;
}

/* After the last trace. */
static bool on_end(state* s, vorn_stream* io)
{
    if (s->traces > 0)
        emit_sum(s, io);
    return true;
}

/* At the very end, whatever happened. */
static void release(state* s)
{
    fold_free_parameters(&s->set);
}

VORN_STREAM_MODULE(state, prepare, on_trace, on_end, VORN_NOTHING, release);
