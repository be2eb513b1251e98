/* my_module: subtracts the mean trace of each gather from its traces. */
#include "my_module_parameters.h"
#include "vorn_stream.h"

#include <string.h>

typedef struct state
{
    my_module_parameters set;
    void* gather; /* a queue: the traces of the current gather, which the kernel pages to disk */
    int key;      /* its value of the key word */
    float* mean;  /* of the gather */
    int samples;
} state;

/* Before the first trace. The state is zero-filled. False after a message. */
static bool prepare(state* s, vorn_stream* io)
{
    void* in = vorn_required_input(0);
    void* out = in != NULL ? vorn_build_required_output(0, in) : NULL;

    if (out == NULL || !my_module_read_parameters(&s->set))
        return false;
    s->gather = vorn_build_queue(io, out);
    s->samples = knl_getTraceLength(in);
    s->mean = knl_allocateResource(s->samples * (int)sizeof *s->mean);
    return s->mean != NULL;
}

static bool add_up(state* s, int traces)
{
    int i, k;

    memset(s->mean, 0, (size_t)s->samples * sizeof *s->mean);
    for (i = 0; i < traces; ++i) {
        const float* samples = vorn_required_samples(s->gather, i);
        if (samples == NULL)
            return false;
        for (k = 0; k < s->samples; ++k)
            s->mean[k] += samples[k] / (float)traces;
    }
    return true;
}

/* The gather is complete: its traces leave. */
static bool emit_gather(state* s, vorn_stream* io)
{
    const int traces = knl_getNumberOfTraces(s->gather);
    int i, k;

    if (!add_up(s, traces))
        return false;
    for (i = 0; i < traces; ++i) {
        void* trace = vorn_emit_queued(io, 0, s->gather, i);
        float* samples = trace != NULL ? vorn_required_samples(trace, 0) : NULL;
        if (samples == NULL)
            return false;
        for (k = 0; k < s->samples; ++k)
            samples[k] -= s->mean[k];
    }
    vorn_clear_queue(s->gather);
    return true;
}

/* For each trace: the gather ends where the key word changes. */
static bool on_trace(state* s, vorn_stream* io)
{
    void* trace = vorn_trace(io, 0);
    int key = 0;

    if (knl_getI32TraceAttribute(trace, s->set.key, &key) == 0) {
        vorn_fail("the traces have no header word %s", s->set.key);
        return false;
    }
    if (knl_getNumberOfTraces(s->gather) > 0 && key != s->key && !emit_gather(s, io))
        return false;
    s->key = key;
    vorn_queue_trace(io, s->gather, trace);
    return true;
}

/* After the last trace; also when there was none. */
static bool on_end(state* s, vorn_stream* io)
{
    return knl_getNumberOfTraces(s->gather) == 0 || emit_gather(s, io);
}

/* At the very end, whatever happened. */
static void release(state* s)
{
    knl_freeResource(s->mean);
    my_module_free_parameters(&s->set);
}

VORN_STREAM_MODULE(state, prepare, on_trace, on_end, VORN_NOTHING, release);
