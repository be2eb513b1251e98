/* The same as parts_c.c, by the stream form, which gives the traces at the end. */
#include "parts_stream_c_parameters.h"
#include "vorn_parts.h"
#include "vorn_stream.h"

typedef struct state
{
    parts_stream_c_parameters set;
    void* queue;
    int64_t traces;
    double sum;
    bool has_warned;
    char names[200];
} state;

static bool prepare(state* s, vorn_stream* io)
{
    void* in = vorn_required_input(0);

    if (in == NULL || !parts_stream_c_read_parameters(&s->set))
        return false;
    vorn_build_output(0, in);
    s->queue = vorn_build_queue(io, in);
    return true;
}

static bool on_trace(state* s, vorn_stream* io)
{
    int number = 0;

    knl_getI32TraceAttribute(vorn_trace(io, 0), "tracf", &number);
    ++s->traces;
    s->sum += number;
    vorn_append(s->names, sizeof s->names, " %d", number);
    if (number > 2 && !s->has_warned) {
        s->has_warned = true;
        vorn_message_once(VORN_WARNING, "above", "trace %lld is above 2",
                          (long long)(vorn_part_first() + s->traces));
    }
    vorn_message(VORN_DETAIL, "%d", number);
    vorn_queue_trace(io, s->queue, vorn_trace(io, 0));
    if (s->set.fails != PARTS_STREAM_C_FAILS_PROCESS)
        return true;
    vorn_fail("told to fail in process");
    return false;
}

static bool on_end(state* s, vorn_stream* io)
{
    const int queued = knl_getNumberOfTraces(s->queue);
    int i;

    for (i = 0; i < queued; ++i)
        vorn_emit_queued(io, 0, s->queue, i);
    return true;
}

static void finish(state* s)
{
    vorn_message(VORN_INFORMATION, "traces=%lld sum=%g names=%s", (long long)s->traces, s->sum,
                 s->names);
}

static void release(state* s)
{
    parts_stream_c_free_parameters(&s->set);
}

static bool save(state* s, vorn_state_writer* file)
{
    if (s->set.fails == PARTS_STREAM_C_FAILS_SAVE) {
        vorn_fail("told to fail in save");
        return false;
    }
    if (s->set.saves == PARTS_STREAM_C_SAVES_OTHER)
        vorn_put_doubles(file, &s->sum, 1);
    vorn_put_int64s(file, &s->traces, 1);
    if (s->set.saves != PARTS_STREAM_C_SAVES_LESS)
        vorn_put_doubles(file, &s->sum, 1);
    vorn_put_bytes(file, s->names, strlen(s->names));
    if (s->set.saves == PARTS_STREAM_C_SAVES_MORE)
        vorn_put_ints(file, NULL, 0);
    return true;
}

static bool merge(state* s, vorn_state_reader* file)
{
    char names[sizeof s->names] = "";
    uint64_t length;
    int64_t traces;
    double sum;

    if (s->set.fails == PARTS_STREAM_C_FAILS_MERGE) {
        vorn_fail("told to fail in merge");
        return false;
    }
    if (!vorn_get_int64s(file, &traces, 1) || !vorn_get_doubles(file, &sum, 1) ||
        !vorn_next_item(file, VORN_ITEM_BYTES, 1, &length) || length >= sizeof names ||
        !vorn_get_bytes(file, names, length))
        return false;
    s->traces += traces;
    s->sum += sum;
    vorn_append(s->names, sizeof s->names, "%s", names);
    return true;
}

VORN_STREAM_MODULE(state, prepare, on_trace, on_end, finish, release);
VORN_STREAM_MODULE_IN_PARTS(state, save, merge);
