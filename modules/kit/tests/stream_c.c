/* Does with traces what StreamTest asks for, by the stream form in C. */
#include "stream_c_parameters.h"
#include "vorn_stream.h"

typedef struct state
{
    stream_c_parameters set;
    void* queue;
    int taken;
} state;

static bool prepare(state* s, vorn_stream* io)
{
    void* in = vorn_input(0);
    void* out = vorn_build_output(0, in);
    int i;

    if (!stream_c_read_parameters(&s->set))
        return false;
    if (in == NULL)
        knl_bldOutputTraceBuffer(0, 2, 2000, NULL);
    for (i = 1; i < io->outputs; ++i)
        vorn_build_output(i, in);
    if (s->set.length > 0)
        knl_bldOutputTraceBuffer(0, s->set.length, 4000, in);
    s->queue = vorn_build_queue(io, out);
    if (s->set.mode == STREAM_C_MODE_MATCH && !vorn_match(io, s->set.keys, s->set.keys_count))
        return false;
    if (s->set.fails == STREAM_C_FAILS_PREPARE) {
        vorn_fail("told to fail in prepare");
        return false;
    }
    return true;
}

static int number_of(void* set)
{
    int number = 0;

    knl_getI32TraceAttribute(set, "number", &number);
    return number;
}

static void write_fresh(vorn_stream* io, int output, int number)
{
    void* trace = vorn_emit(io, output);
    float* samples;
    int i;

    knl_setI32TraceAttribute(trace, "number", number);
    if (knl_getTraceSamples(trace, &samples, 0) == 0)
        return;
    for (i = 0; i < knl_getTraceLength(trace); ++i)
        samples[i] = (float)number;
}

/* Which inputs have a trace, and which have ended, in digits from the first input on. */
static void join(vorn_stream* io)
{
    int number = 0;
    int ended = 0;
    int i;
    void* trace;

    for (i = 0; i < io->inputs; ++i) {
        number = 10 * number + (vorn_trace(io, i) != NULL ? number_of(vorn_trace(io, i)) : 0);
        ended = 10 * ended + vorn_has_ended(io, i);
    }
    for (i = 0; vorn_trace(io, i) == NULL;)
        ++i;
    trace = vorn_emit_copy(io, 0, vorn_trace(io, i));
    knl_setI32TraceAttribute(trace, "number", number);
    knl_setI32TraceAttribute(trace, "ended", ended);
}

static bool on_trace(state* s, vorn_stream* io)
{
    void* in = vorn_trace(io, 0);
    void* trace;
    int i;

    ++s->taken;
    switch (s->set.mode) {
    case STREAM_C_MODE_PASS:
        vorn_emit_trace(io, 0, in);
        break;
    case STREAM_C_MODE_COPY:
        vorn_emit_copy(io, 0, in);
        break;
    case STREAM_C_MODE_BURST:
        trace = s->set.n > 0 ? vorn_emit_trace(io, 0, in) : NULL;
        for (i = 1; i < s->set.n; ++i) {
            trace = vorn_emit_copy(io, 0, trace);
            knl_setI32TraceAttribute(trace, "number", number_of(trace) + 100);
        }
        break;
    case STREAM_C_MODE_FRESH:
        write_fresh(io, 0, number_of(in));
        break;
    case STREAM_C_MODE_CHANGE:
        i = number_of(in);
        trace = vorn_emit_trace(io, 0, in);
        knl_setI32TraceAttribute(trace, "late", 1000 + i);
        break;
    case STREAM_C_MODE_TAIL:
        vorn_queue_trace(io, s->queue, in);
        break;
    case STREAM_C_MODE_AHEAD:
        if (s->taken % 2 == 0)
            vorn_queue_copy(io, s->queue, in);
        else
            vorn_queue_trace(io, s->queue, in);
        if (knl_getNumberOfTraces(s->queue) > s->set.n) {
            vorn_emit_queued(io, 0, s->queue, 0);
            vorn_drop_queued(s->queue, 1);
        }
        break;
    case STREAM_C_MODE_COUNT:
        break;
    case STREAM_C_MODE_JOIN:
    case STREAM_C_MODE_MATCH:
        join(io);
        break;
    case STREAM_C_MODE_SPLIT:
        vorn_emit_trace(io, number_of(in) % 2, in);
        break;
    case STREAM_C_MODE_FIRST:
        vorn_emit_trace(io, 0, in);
        if (s->taken == s->set.n)
            vorn_stop(io);
        break;
    case STREAM_C_MODE_SOURCE:
        write_fresh(io, 0, 2 * s->taken - 1);
        write_fresh(io, 0, 2 * s->taken);
        if (s->taken == s->set.n)
            vorn_stop(io);
        break;
    }
    if (s->set.fails != STREAM_C_FAILS_TRACE || s->taken < 2)
        return true;
    vorn_fail("told to fail in on_trace");
    return false;
}

static bool on_end(state* s, vorn_stream* io)
{
    int i;

    vorn_message(VORN_INFORMATION, "end after %d", s->taken);
    if (s->set.mode == STREAM_C_MODE_COUNT)
        write_fresh(io, 0, s->taken);
    for (i = knl_getNumberOfTraces(s->queue) - 1; s->set.mode == STREAM_C_MODE_TAIL && i >= 0; --i)
        vorn_emit_queued(io, 0, s->queue, i);
    for (i = 0; s->set.mode == STREAM_C_MODE_AHEAD && i < knl_getNumberOfTraces(s->queue); ++i)
        vorn_emit_copy_of(io, 0, s->queue, i);
    if (s->set.mode == STREAM_C_MODE_SPLIT)
        write_fresh(io, 2, s->taken);
    if (s->set.fails != STREAM_C_FAILS_END)
        return true;
    vorn_fail("told to fail in on_end");
    return false;
}

static void finish(state* s)
{
    vorn_message(VORN_INFORMATION, "finish after %d", s->taken);
}

static void release(state* s)
{
    stream_c_free_parameters(&s->set);
}

VORN_STREAM_MODULE(state, prepare, on_trace, on_end, finish, release);
