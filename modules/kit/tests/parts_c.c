/* Counts traces, and saves and merges what it has counted. It fails where it is told to. */
#include "parts_c_parameters.h"
#include "vorn_parts.h"

typedef struct state
{
    parts_c_parameters set;
    int64_t traces;
    double sum;      /* of tracf */
    bool has_warned; /* of a trace with a tracf above 2 */
    char names[200]; /* of all traces */
} state;

static bool prepare(state* s)
{
    void* in = vorn_required_input(0);

    vorn_build_output(0, in);
    return in != NULL && parts_c_read_parameters(&s->set);
}

static bool process(state* s)
{
    void* in = vorn_input(0);
    int number = 0;

    knl_getI32TraceAttribute(in, "tracf", &number);
    ++s->traces;
    s->sum += number;
    vorn_append(s->names, sizeof s->names, " %d", number);
    if (number > 2 && !s->has_warned) {
        s->has_warned = true;
        vorn_message_once(VORN_WARNING, "above", "trace %lld is above 2",
                          (long long)(vorn_part_first() + s->traces));
    }
    vorn_message(VORN_DETAIL, "%d", number);
    vorn_pass_trace(in, vorn_output(0));
    if (s->set.fails != PARTS_C_FAILS_PROCESS)
        return true;
    vorn_fail("told to fail in process");
    return false;
}

static void finish(state* s)
{
    vorn_message(VORN_INFORMATION, "traces=%lld sum=%g names=%s", (long long)s->traces, s->sum,
                 s->names);
}

static void release(state* s)
{
    parts_c_free_parameters(&s->set);
}

static bool save(state* s, vorn_state_writer* file)
{
    if (s->set.fails == PARTS_C_FAILS_SAVE) {
        vorn_fail("told to fail in save");
        return false;
    }
    if (s->set.saves == PARTS_C_SAVES_OTHER)
        vorn_put_doubles(file, &s->sum, 1);
    vorn_put_int64s(file, &s->traces, 1);
    if (s->set.saves != PARTS_C_SAVES_LESS)
        vorn_put_doubles(file, &s->sum, 1);
    vorn_put_bytes(file, s->names, strlen(s->names));
    if (s->set.saves == PARTS_C_SAVES_MORE)
        vorn_put_ints(file, NULL, 0);
    return true;
}

static bool merge(state* s, vorn_state_reader* file)
{
    char names[sizeof s->names] = "";
    uint64_t length;
    int64_t traces;
    double sum;

    if (s->set.fails == PARTS_C_FAILS_MERGE) {
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

VORN_MODULE(state, prepare, process, finish, release);
VORN_MODULE_IN_PARTS(state, save, merge);
