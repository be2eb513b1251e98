/* my_module: counts traces and finds the largest sample. */
#include "my_module_parameters.h"
#include "vorn_stream.h"

#include <math.h>
#include <stdint.h>

typedef struct state
{
    my_module_parameters set;
    int64_t traces;
    float largest;
} state;

/* Before the first trace. The state is zero-filled. False after a message. */
static bool prepare(state* s, vorn_stream* io)
{
    (void)io;
    return vorn_required_input(0) != NULL && my_module_read_parameters(&s->set);
}

/* For each trace. */
static bool on_trace(state* s, vorn_stream* io)
{
    void* trace = vorn_trace(io, 0);
    const float* samples = vorn_required_samples(trace, 0);
    int i;

    if (samples == NULL)
        return false;
    ++s->traces;
    for (i = 0; i < knl_getTraceLength(trace); ++i)
        s->largest = fmaxf(s->largest, fabsf(samples[i]));
    return true;
}

/* After the last trace; also when there was none. */
static bool on_end(state* s, vorn_stream* io)
{
    (void)io;
    vorn_message(VORN_INFORMATION, "%lld traces, largest sample %g", (long long)s->traces,
                 (double)s->largest);
    if (s->largest > s->set.limit)
        vorn_message(VORN_WARNING, "the largest sample is above the limit of %g", s->set.limit);
    return true;
}

/* At the very end, whatever happened. */
static void release(state* s)
{
    my_module_free_parameters(&s->set);
}

VORN_STREAM_MODULE(state, prepare, on_trace, on_end, VORN_NOTHING, release);
