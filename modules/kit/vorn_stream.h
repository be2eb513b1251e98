/** @file vorn_stream.h
 *
 * The stream form of a module in C: for modules that give another number of traces than they take,
 * or take traces of several inputs. Such modules hold back, leave out, multiply, gather, sort or
 * join traces. The form keeps the rules for the end of the data; C++ modules use vorn_stream.hpp,
 * Fortran modules `use vorn_stream`.
 *
 *     #include "thin_parameters.h"  // made from thin.yaml
 *     #include "vorn_stream.h"
 *
 *     typedef struct state { thin_parameters set; int taken; } state;
 *
 *     // Before the first trace: describe the output, read the parameters.
 *     static bool prepare(state* s, vorn_stream* io)
 *     {
 *         return vorn_build_required_output(0, vorn_required_input(0)) != NULL &&
 *                thin_read_parameters(&s->set);
 *     }
 *
 *     // For each trace of the input: emit none, one or many.
 *     static bool on_trace(state* s, vorn_stream* io)
 *     {
 *         if (s->taken++ % s->set.step == 0)
 *             vorn_emit_trace(io, 0, vorn_trace(io, 0));
 *         return true;
 *     }
 *
 *     VORN_STREAM_MODULE(state, prepare, on_trace, VORN_NO_END, VORN_NOTHING, VORN_NOTHING);
 *
 * Traces are handed over as trace sets of which trace 0 is meant: samples are those of
 * `knl_getTraceSamples(set, &samples, 0)`, header words those of `knl_getI32TraceAttribute(set,
 * ...)` and the like. An emitted trace may be changed until the next one is emitted to the same
 * output, or until the function returns.
 *
 * What the form does:
 * - It asks for calls at the end of the data, and keeps the kernel from making traces in inputs
 * that have ended.
 * - It holds the trace back that was emitted last to an output, until another one follows or the
 * data end: the last trace of each output carries the mark of the end, and an output without traces
 * is marked itself. A trace is held in a work buffer of the output's layout, where it was written
 *   anyway: holding it costs a move of its address, and no copy.
 * - Work buffers from VORN_STREAM_BUFFERS on are the form's, those below it the module's. The
 * traces of all of them are destroyed at the end of the job.
 *
 * Functions that return `bool` return false after a fatal message. A failure inside an emission or
 * a queue (no memory) is noted and ends the module when the function returns, whatever it returns.
 */
#ifndef VORN_STREAM_H
#define VORN_STREAM_H

/* C++ modules include this too; it stays C. */
/* NOLINTBEGIN(modernize-use-nullptr,bugprone-macro-parentheses) */

#include "vorn_kit.h"

enum
{
    VORN_STREAM_BUFFERS = 16, /**< the first work buffer that belongs to the form, from 0 */
    VORN_MOST_KEYS = 8        /**< header words that inputs are matched by, at most */
};

/* One input. */
typedef struct vorn_stream_input
{
    void* set;
    bool is_in_row;              /* its first trace is one of this call */
    bool is_last;                /* and no further one follows it */
    bool has_ended;              /* every trace has been in a call */
    bool has_key;                /* `key` is that of the first trace */
    bool has_last_key;           /* a trace has been in a call */
    double key[VORN_MOST_KEYS];  /* of the first trace */
    double last[VORN_MOST_KEYS]; /* of the last trace that was in a call */
} vorn_stream_input;

/* One output. */
typedef struct vorn_stream_output
{
    void* set;
    void* held; /* the work buffer of the trace that was emitted last */
    bool is_held;
} vorn_stream_output;

/** The inputs and outputs of a stream module. Its fields belong to the form; `inputs` and
 * `outputs`, the numbers of those that are connected, may be read. */
typedef struct vorn_stream
{
    int inputs;
    int outputs;
    vorn_stream_input* input;
    vorn_stream_output* output;
    int buffers; /* of the form, in use */
    int keys;
    char words[VORN_MOST_KEYS][64];
    bool descends[VORN_MOST_KEYS];
    void* key_list;
    bool has_stopped;
    bool has_ended;
    bool has_failed;
} vorn_stream;

/* ------------------------------------------------------------------------- inputs of one call */

/** The trace of this call that comes from the input `input` (from 0), as the first trace of the set
 * that is returned. Null where the input has none: inputs are taken in step, one trace of each,
 * until they have ended; inputs that are matched by key have none where no trace of theirs has the
 * key of this call. */
static inline void* vorn_trace(const vorn_stream* io, int input)
{
    return input >= 0 && input < io->inputs && io->input[input].is_in_row ? io->input[input].set
                                                                          : NULL;
}

/** Whether all traces of the input `input` (from 0) have been in a call, this one included, and the
 * form knows that no other follows: it may learn so only in the next call. */
static inline bool vorn_has_ended(const vorn_stream* io, int input)
{
    const vorn_stream_input* one;

    if (input < 0 || input >= io->inputs)
        return true;
    one = &io->input[input];
    return one->has_ended || (one->is_in_row && one->is_last);
}

/** Takes no further trace: on_end follows, and the outputs end. A source, a module without inputs,
 * ends so. */
static inline void vorn_stop(vorn_stream* io)
{
    io->has_stopped = true;
}

/** In prepare: inputs are matched by these header words instead of in step. A call has a trace of
 * each input that has the smallest key of all; of several traces with one key the first ones go
 * together, then the second ones. The traces of each input must be in ascending order of the key,
 * of a word with "-" before its name in descending order; the module fails where they are not.
 * Words are compared as double precision numbers. */
static inline bool vorn_match(vorn_stream* io, const char* const* words, int count)
{
    int i;

    if (count < 1 || count > VORN_MOST_KEYS) {
        vorn_fail("inputs are matched by %d header words; give 1 to %d", count, VORN_MOST_KEYS);
        return false;
    }
    for (i = 0; i < count; ++i) {
        io->descends[i] = words[i][0] == '-';
        snprintf(io->words[i], sizeof io->words[i], "%s", words[i] + (io->descends[i] ? 1 : 0));
    }
    io->keys = count;
    return true;
}

/* ------------------------------------------------------------------------------------ emission */

/* Whether trace `number` of a set has samples, where it should; the module fails where not. */
static inline bool vorn_stream_has_samples(vorn_stream* io, void* set, int number)
{
    const int length = knl_getTraceLength(set);
    float* samples;

    if (length <= 0 || knl_getTraceSamples(set, &samples, number) != 0)
        return true;
    if (!io->has_failed)
        vorn_fail(
            "not enough memory for a trace of %d samples; give the job a lower limit of traces "
            "in memory",
            length);
    io->has_failed = true;
    return false;
}

/* A failure whose message is sent once; the entry point looks at it. */
static inline void vorn_stream_fail(vorn_stream* io, const char* text)
{
    if (!io->has_failed)
        vorn_fail("%s", text);
    io->has_failed = true;
}

static inline void vorn_stream_give_held(vorn_stream* io, vorn_stream_output* one)
{
    if (!one->is_held)
        return;
    if (knl_transferTraceToTrace(one->held, one->set, 0, knl_getNumberOfTraces(one->set)) == 0)
        vorn_stream_fail(io,
                         "not enough memory for the header of a trace; give the job a lower limit "
                         "of traces in memory");
    knl_removeTrace(one->held, 0);
    one->is_held = false;
}

/* The output `output` with an empty place for a trace; null when the output does not exist. */
static inline vorn_stream_output* vorn_stream_place(vorn_stream* io, int output)
{
    vorn_stream_output* one;

    if (output < 0 || output >= io->outputs || io->output == NULL)
        return NULL;
    one = &io->output[output];
    vorn_stream_give_held(io, one);
    knl_setTraceLength(one->held, knl_getTraceLength(one->set));
    return one;
}

static inline void* vorn_stream_emitted(vorn_stream_output* one)
{
    one->is_held = true;
    knl_setDataChannelFlag(one->held, 0);
    return one->held;
}

/** Emits a new trace of zeros to the output `output` (from 0), with the output's length. Returns
 * the set whose first trace it is; null without such an output, or without memory. */
static inline void* vorn_emit(vorn_stream* io, int output)
{
    vorn_stream_output* one = vorn_stream_place(io, output);

    if (one == NULL)
        return NULL;
    knl_setNumberOfTraces(one->held, 1);
    if (!vorn_stream_has_samples(io, one->held, 0)) {
        knl_removeTrace(one->held, 0);
        return NULL;
    }
    return vorn_stream_emitted(one);
}

/** Emits a copy of trace `number` (from 0) of a trace set: an input's trace, an emitted one, one of
 * a queue. Samples beyond the output's length are cut, missing ones are 0. Returns the set whose
 * first trace the copy is; null when output or trace do not exist, or without memory. */
static inline void* vorn_emit_copy_of(vorn_stream* io, int output, void* from, int number)
{
    vorn_stream_output* one;

    if (from == NULL || number < 0 || number >= knl_getNumberOfTraces(from))
        return NULL;
    if (output >= 0 && output < io->outputs && io->output != NULL &&
        from == io->output[output].held && io->output[output].is_held)
    {
        /* The trace that is held: its copy goes before it. */
        one = &io->output[output];
        number = knl_getNumberOfTraces(one->set);
        knl_mcopyTraceToTrace(from, one->set, 1, 1, 0, number);
        return vorn_stream_has_samples(io, one->set, number) ? from : NULL;
    }
    one = vorn_stream_place(io, output);
    if (one == NULL || knl_mcopyTraceToTrace(from, one->held, 1, 1, number, 0) == 0)
        return NULL;
    if (!vorn_stream_has_samples(io, one->held, 0)) {
        knl_removeTrace(one->held, 0);
        return NULL;
    }
    return vorn_stream_emitted(one);
}

/** vorn_emit_copy_of() of the first trace of `from`. */
static inline void* vorn_emit_copy(vorn_stream* io, int output, void* from)
{
    return vorn_emit_copy_of(io, output, from, 0);
}

/** Emits trace `number` (from 0) of a queue, or of an input, itself: nothing is copied where the
 * lengths are equal, and the header is laid out as in the output. The place that it had is empty
 * then (the numbers of others stay), and the trace is not to be used there any more. Returns the
 * set whose first trace it is; null when output or trace do not exist. */
static inline void* vorn_emit_queued(vorn_stream* io, int output, void* from, int number)
{
    vorn_stream_output* one;

    if (from == NULL || number < 0 || number >= knl_getNumberOfTraces(from))
        return NULL;
    one = vorn_stream_place(io, output);
    if (one == NULL)
        return NULL;
    if (knl_transferTraceToTrace(from, one->held, number, 0) != 0)
        return vorn_stream_emitted(one);
    vorn_stream_fail(io,
                     "a trace cannot be emitted: it was given away before, or there is no memory "
                     "for its header");
    return NULL;
}

/** vorn_emit_queued() of the first trace of `from`: passes the trace of an input on. */
static inline void* vorn_emit_trace(vorn_stream* io, int output, void* from)
{
    return vorn_emit_queued(io, output, from, 0);
}

/* -------------------------------------------------------------------------------------- queues */

/** In prepare, after the outputs are described: a new queue, for traces that the module keeps. It
 * is a work buffer, which the kernel pages to the scratch file where the job's limit of traces in
 * memory asks for that; its traces have the numbers from 0 to `knl_getNumberOfTraces(queue) - 1`.
 * It gets the length, the interval and the header layout of `like`: those of the output, where its
 * traces go there in the end. Null for a null pointer. */
static inline void* vorn_build_queue(vorn_stream* io, void* like)
{
    void* queue = NULL;

    if (like == NULL || knl_bldWorkTraceBufferLike(VORN_STREAM_BUFFERS + io->buffers, like) != 0)
        return NULL;
    knl_getWorkTraceBuffer(&queue, VORN_STREAM_BUFFERS + io->buffers);
    ++io->buffers;
    return queue;
}

/** Puts the first trace of `from` at the end of a queue. The trace itself goes there, as in
 * vorn_emit_trace(), and is not to be used in `from` any more. Returns its number in the queue; -1
 * when the trace does not exist, or without memory. */
static inline int vorn_queue_trace(vorn_stream* io, void* queue, void* from)
{
    const int number = knl_getNumberOfTraces(queue);

    if (queue == NULL || from == NULL || knl_getNumberOfTraces(from) == 0)
        return -1;
    if (knl_transferTraceToTrace(from, queue, 0, number) == 0) {
        vorn_stream_fail(io,
                         "a trace cannot be kept: it was given away before, or there is no memory "
                         "for its header");
        return -1;
    }
    knl_setDataChannelFlag(queue, 0);
    return number;
}

/** Puts a copy of the first trace of `from` at the end of a queue. Returns its number in the queue;
 * -1 when the trace does not exist, or without memory. */
static inline int vorn_queue_copy(vorn_stream* io, void* queue, void* from)
{
    const int number = knl_getNumberOfTraces(queue);

    if (queue == NULL || from == NULL || knl_getNumberOfTraces(from) == 0 ||
        knl_mcopyTraceToTrace(from, queue, 1, 1, 0, number) == 0)
        return -1;
    knl_setDataChannelFlag(queue, 0);
    return vorn_stream_has_samples(io, queue, number) ? number : -1;
}

/** Takes the first `count` places of a queue away, with the traces that are there; later ones move
 * down. */
static inline void vorn_drop_queued(void* queue, int count)
{
    for (; count > 0 && knl_removeTrace(queue, 0) != 0; --count) {
    }
}

/** Empties a queue. */
static inline void vorn_clear_queue(void* queue)
{
    int count = knl_getNumberOfTraces(queue);

    while (count > 0 && knl_removeTrace(queue, count - 1) != 0)
        --count;
}

/* ------------------------------------------------------------------- what the entry points call */

/** One of the module's functions, with its state. */
typedef bool (*vorn_stream_function)(void* state, vorn_stream* io);

/* Before the module's own preparation. */
static inline bool vorn_stream_open(vorn_stream* io)
{
    void* set;

    while (knl_getInputTraceBuffer(&set, io->inputs) == 0)
        ++io->inputs;
    while (knl_getOutputTraceBuffer(&set, io->outputs) == 0)
        ++io->outputs;
    return true;
}

static inline bool vorn_stream_find_sets(vorn_stream* io)
{
    int i;

    io->input = (vorn_stream_input*)knl_allocateResource((io->inputs + 1) * (int)sizeof *io->input);
    io->output =
        (vorn_stream_output*)knl_allocateResource((io->outputs + 1) * (int)sizeof *io->output);
    if (io->input == NULL || io->output == NULL) {
        vorn_fail("not enough memory for %d inputs and %d outputs", io->inputs, io->outputs);
        return false;
    }
    for (i = 0; i < io->inputs; ++i)
        knl_getInputTraceBuffer(&io->input[i].set, i);
    for (i = 0; i < io->outputs; ++i) {
        knl_getOutputTraceBuffer(&io->output[i].set, i);
        io->output[i].held = vorn_build_queue(io, io->output[i].set);
    }
    return true;
}

/* After it. */
static inline bool vorn_stream_start(vorn_stream* io)
{
    const char* words[VORN_MOST_KEYS];
    int i;

    if (io->has_failed || !vorn_stream_find_sets(io))
        return false;
    for (i = 0; i < io->keys; ++i)
        words[i] = io->words[i];
    if (io->keys > 0 && knl_bldAttributeList(words, io->keys, &io->key_list) != 0) {
        vorn_fail("the header words that inputs are matched by cannot be looked up");
        return false;
    }
    if (io->inputs > 0)
        knl_setModuleProcessingOption("RespectEOD", 1);
    return true;
}

/* Frees what the form holds, but for work buffers. */
static inline void vorn_stream_close(vorn_stream* io)
{
    knl_freeResource(io->input);
    knl_freeResource(io->output);
    io->input = NULL;
    io->output = NULL;
    io->inputs = io->outputs = 0;
}

/* For a module that fails: what it has emitted still goes out. */
static inline void vorn_stream_give_all(vorn_stream* io)
{
    int i;

    for (i = 0; i < io->outputs && io->output != NULL; ++i)
        vorn_stream_give_held(io, &io->output[i]);
}

/* Whether the key of `one` comes before (-1), with (0) or after (1) `key`. */
static inline int vorn_stream_compare(const vorn_stream* io, const double* one, const double* other)
{
    int i;

    for (i = 0; i < io->keys; ++i) {
        if (one[i] < other[i])
            return io->descends[i] ? 1 : -1;
        if (one[i] > other[i])
            return io->descends[i] ? -1 : 1;
    }
    return 0;
}

static inline bool vorn_stream_refuse_words(const vorn_stream* io, int input)
{
    int types[VORN_MOST_KEYS];
    int i = 0;

    knl_getAttributeListPresence(io->key_list, io->input[input].set, types);
    while (i + 1 < io->keys && types[i] != 0)
        ++i;
    vorn_fail(
        "the traces of input %d have no header word \"%s\"; match the inputs by words that all "
        "of them have",
        input + 1, io->words[i]);
    return false;
}

static inline bool vorn_stream_refuse_order(const vorn_stream* io, int input)
{
    const vorn_stream_input* one = &io->input[input];
    char words[200] = "";
    int i;
    int at = 0;

    for (i = 0; i < io->keys; ++i) {
        vorn_append(words, sizeof words, "%s%s%s", i > 0 ? ", " : "", io->descends[i] ? "-" : "",
                    io->words[i]);
        if (one->key[at] == one->last[at] && i > at)
            at = i;
    }
    vorn_fail(
        "input %d is not sorted by %s: a trace with %s = %g comes after one with %g; sort each "
        "input by the words that they are matched by",
        input + 1, words, io->words[at], one->key[at], one->last[at]);
    return false;
}

/* Reads the key of the input's first trace, once. */
static inline bool vorn_stream_read_key(vorn_stream* io, int input)
{
    vorn_stream_input* one = &io->input[input];

    if (one->has_key)
        return true;
    if (knl_getF64TraceAttributes(io->key_list, one->set, 0, one->key) < io->keys)
        return vorn_stream_refuse_words(io, input);
    if (one->has_last_key && vorn_stream_compare(io, one->key, one->last) < 0)
        return vorn_stream_refuse_order(io, input);
    one->has_key = true;
    return true;
}

/* Leaves in the row what has the smallest key. */
static inline bool vorn_stream_match_row(vorn_stream* io)
{
    const double* least = NULL;
    int i;

    for (i = 0; i < io->inputs; ++i) {
        if (!io->input[i].is_in_row)
            continue;
        if (!vorn_stream_read_key(io, i))
            return false;
        if (least == NULL || vorn_stream_compare(io, io->input[i].key, least) < 0)
            least = io->input[i].key;
    }
    for (i = 0; i < io->inputs; ++i) {
        vorn_stream_input* one = &io->input[i];
        if (!one->is_in_row)
            continue;
        if (vorn_stream_compare(io, one->key, least) != 0) {
            one->is_in_row = false;
            vorn_keep_trace(i);
            continue;
        }
        memcpy(one->last, one->key, sizeof one->last);
        one->has_last_key = true;
        one->has_key = false;
    }
    return true;
}

/* Finds the traces of this call; `any` is false when there is none. */
static inline bool vorn_stream_find_row(vorn_stream* io, bool* any)
{
    int i;

    *any = io->inputs == 0; /* a source is called without */
    for (i = 0; i < io->inputs; ++i) {
        vorn_stream_input* one = &io->input[i];
        const int traces = knl_getNumberOfTraces(one->set);
        one->is_in_row = traces > 0;
        /* What lies behind a marked trace belongs to the data, too. */
        one->is_last = traces == 1 && knl_getDataChannelFlag(one->set) == VORN_END_OF_DATA;
        if (traces == 0) {
            one->has_ended = true;
            vorn_keep_trace(i); /* or the scheduler makes a trace there, to take it */
        }
        *any = *any || traces > 0;
    }
    return io->keys == 0 || !*any || vorn_stream_match_row(io);
}

static inline bool vorn_stream_is_at_end(vorn_stream* io)
{
    bool all = io->inputs > 0;
    int i;

    for (i = 0; i < io->inputs; ++i) {
        vorn_stream_input* one = &io->input[i];
        one->has_ended = one->has_ended || (one->is_in_row && one->is_last);
        all = all && one->has_ended;
    }
    return all || io->has_stopped;
}

/* Marks the last trace of each output, or the output. */
static inline void vorn_stream_end_outputs(vorn_stream* io)
{
    vorn_stream_give_all(io);
    vorn_end_outputs();
    if (io->outputs == 0)
        knl_setModuleProcessingOption("RespectEOD", 0); /* or it is called for ever */
    io->has_ended = true;
}

/** What process_ does: one row of traces. False after a failure, whose message has been sent. */
static inline bool vorn_stream_process(vorn_stream* io, void* state, vorn_stream_function on_trace,
                                       vorn_stream_function on_end)
{
    bool any;

    if (io->has_ended) {
        /* The scheduler may ask again, and takes what still comes. */
        vorn_keep_empty_inputs();
        vorn_end_outputs();
        return true;
    }
    if (!vorn_stream_find_row(io, &any))
        return false;
    if (any && (!on_trace(state, io) || io->has_failed))
        return false;
    if (!vorn_stream_is_at_end(io))
        return true;
    if (!on_end(state, io) || io->has_failed)
        return false;
    vorn_stream_end_outputs(io);
    return !io->has_failed;
}

/* -------------------------------------------------------------------------------- entry points */

/** For VORN_STREAM_MODULE(), in place of on_end of a module that has nothing to do there. */
#define VORN_NO_END(state, io) ((void)(state), (void)(io), true)

#ifndef __cplusplus
/** Defines preprocess_, process_ and postprocess_ of a module whose state is of the type `state`,
 * from five functions of the module:
 *
 * - `bool prepare(state*, vorn_stream*)`, once before the first trace, to describe the outputs; the
 *   state is zero-filled memory
 * - `bool on_trace(state*, vorn_stream*)`, for each trace of the input, or for each row of traces
 * of several inputs; a module without inputs is called until it has called vorn_stop()
 * - `bool on_end(state*, vorn_stream*)`, once after the last trace, to emit what is left; also when
 *   there was no trace. May be VORN_NO_END.
 * - `void finish(state*)`, when all modules have ended. May be VORN_NOTHING.
 * - `void release(state*)`, at the very end: frees what the state holds, whatever happened. May be
 *   VORN_NOTHING.
 *
 * One that returns false has said why with vorn_fail(). What was emitted goes out, the state is
 * released at once, finish is not called, and all outputs are at the end of their data.
 */
#define VORN_STREAM_MODULE(state, prepare, on_trace, on_end, finish, release)                      \
    typedef struct vorn_stream_state                                                               \
    {                                                                                              \
        state own;                                                                                 \
        vorn_stream io;                                                                            \
    } vorn_stream_state;                                                                           \
                                                                                                   \
    static bool vorn_call_on_trace(void* own, vorn_stream* io)                                     \
    {                                                                                              \
        return on_trace((state*)own, io);                                                          \
    }                                                                                              \
                                                                                                   \
    static bool vorn_call_on_end(void* own, vorn_stream* io)                                       \
    {                                                                                              \
        return on_end((state*)own, io);                                                            \
    }                                                                                              \
                                                                                                   \
    static void vorn_release(void)                                                                 \
    {                                                                                              \
        vorn_stream_state* kept = vorn_state();                                                    \
                                                                                                   \
        knl_removeWorkTraces();                                                                    \
        if (kept == NULL)                                                                          \
            return;                                                                                \
        release(&kept->own);                                                                       \
        vorn_stream_close(&kept->io);                                                              \
        knl_freeResource(kept);                                                                    \
        vorn_keep_state(NULL);                                                                     \
    }                                                                                              \
                                                                                                   \
    int preprocess_(void)                                                                          \
    {                                                                                              \
        vorn_stream_state* kept = knl_allocateResource((int)sizeof(vorn_stream_state));            \
                                                                                                   \
        vorn_keep_state(kept);                                                                     \
        if (kept != NULL && !(vorn_stream_open(&kept->io) && prepare(&kept->own, &kept->io) &&     \
                              vorn_stream_start(&kept->io)))                                       \
            vorn_release();                                                                        \
        return 0;                                                                                  \
    }                                                                                              \
                                                                                                   \
    int process_(void)                                                                             \
    {                                                                                              \
        vorn_stream_state* kept = vorn_state();                                                    \
                                                                                                   \
        if (kept != NULL &&                                                                        \
            vorn_stream_process(&kept->io, &kept->own, vorn_call_on_trace, vorn_call_on_end))      \
            return 0;                                                                              \
        if (kept != NULL)                                                                          \
            vorn_stream_give_all(&kept->io);                                                       \
        vorn_release();                                                                            \
        vorn_end_module();                                                                         \
        return 0;                                                                                  \
    }                                                                                              \
                                                                                                   \
    int postprocess_(void)                                                                         \
    {                                                                                              \
        vorn_stream_state* kept = vorn_state();                                                    \
                                                                                                   \
        if (kept != NULL)                                                                          \
            finish(&kept->own);                                                                    \
        vorn_release();                                                                            \
        return 0;                                                                                  \
    }                                                                                              \
                                                                                                   \
    struct vorn_module_is_defined
#endif

/* NOLINTEND(modernize-use-nullptr,bugprone-macro-parentheses) */

#endif
