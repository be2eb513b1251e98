/** @file vorn_kit.h
 *
 * What every processing module in C would otherwise repeat: names for the numbers of knl.h,
 * messages with a format, the module's own state, its failure, and entry points that deal with
 * both. C++ modules use vorn_kit.hpp, which builds on this header, Fortran modules `use vorn_kit`.
 *
 *     #include "gain_parameters.h"  // made from gain.yaml
 *     #include "vorn_kit.h"
 *
 *     typedef struct state { gain_parameters set; void* in; void* out; } state;
 *
 *     static bool prepare(state* s) { return gain_read_parameters(&s->set) && ...; }
 *     static bool process(state* s) { ... }
 *     static void finish(state* s) { ... }
 *     static void release(state* s) { gain_free_parameters(&s->set); }
 *
 *     VORN_MODULE(state, prepare, process, finish, release);
 *
 * Everything is in this header; vorn_add_module defines VORN_MODULE_NAME, the name of the module
 * library, under which a failure is recorded.
 *
 * Functions that return `bool` return false after a fatal message: the caller only returns.
 */
#ifndef VORN_KIT_H
#define VORN_KIT_H

/* C++ modules include this too; it stays C. */
/* NOLINTBEGIN(modernize-use-nullptr,bugprone-macro-parentheses) */

#include "knl.h"
#include "knl_fortran.h"

#include <limits.h>
#include <stdarg.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

#ifndef VORN_MODULE_NAME
#error "define VORN_MODULE_NAME as the name of the module, in quotes; vorn_add_module does"
#endif

#if defined(__GNUC__)
#define VORN_PRINTF(text, values) __attribute__((format(printf, text, values)))
#else
#define VORN_PRINTF(text, values)
#endif

/* What knl.h names as well has its value from there. */

/** Types of messages, as the modules and the `vorn` command understand them. */
enum
{
    VORN_DETAIL = KNL_MESSAGE_DETAIL,
    VORN_INFORMATION = KNL_MESSAGE_INFORMATION,
    VORN_WARNING = KNL_MESSAGE_WARNING,
    VORN_ERROR = KNL_MESSAGE_ERROR, /**< the job goes on */
    VORN_FATAL = KNL_MESSAGE_FATAL  /**< the module ends its data; vorn_fail() sends it */
};

/** Scopes of metadata. */
enum
{
    VORN_SCOPE_JOB = KNL_SCOPE_JOB,
    VORN_SCOPE_MODULE = KNL_SCOPE_MODULE
};

/** Flags of traces and of inputs. */
enum
{
    VORN_END_OF_DATA = KNL_END_OF_DATA, /**< on an output's trace: it is the last one */
    VORN_KEEP_TRACE = KNL_KEEP_TRACE    /**< on an input: the trace is not taken, and comes again */
};

/** Type codes of trace attributes. */
enum
{
    VORN_TYPE_TEXT = KNL_TYPE_TEXT,
    VORN_TYPE_INT32 = KNL_TYPE_I32,
    VORN_TYPE_INT64 = KNL_TYPE_I64,
    VORN_TYPE_FLOAT32 = KNL_TYPE_F32,
    VORN_TYPE_FLOAT64 = KNL_TYPE_F64,
    VORN_TYPE_TEXT32 = KNL_TYPE_TEXT32, /**< at most 32 bytes */
    VORN_TYPE_TEXT64 = KNL_TYPE_TEXT64  /**< at most 64 bytes */
};

/** Types of pads. */
enum
{
    VORN_PAD_SECTION = KNL_PAD_SECTION,
    VORN_PAD_GRAPH = KNL_PAD_GRAPH,
    VORN_PAD_SECTION_AND_GRAPH = KNL_PAD_SECTION_AND_GRAPH
};

/** Codes of the pen for knl_plot(). */
enum
{
    VORN_DRAW = KNL_PEN_DRAW,
    VORN_MOVE = KNL_PEN_MOVE
};

/** Pens for knl_newpen(). */
enum
{
    VORN_PEN_BLACK = 1,
    VORN_PEN_RED = 2,
    VORN_PEN_BLUE = 3,
    VORN_PEN_GREEN = 4,
    VORN_PEN_ORANGE = 5,
    VORN_PEN_PURPLE = 6,
    VORN_PEN_GRAY = 7,
    VORN_PEN_BROWN = 8
};

/** Special symbols for knl_symbol(). */
enum
{
    VORN_SYMBOL_SQUARE = 0,
    VORN_SYMBOL_CIRCLE = 1,
    VORN_SYMBOL_TRIANGLE = 2,
    VORN_SYMBOL_PLUS = 3,
    VORN_SYMBOL_CROSS = 4,
    VORN_SYMBOL_DIAMOND = 5,
    VORN_SYMBOL_DOT = 6
};

/** Job metadata that holds why a module has failed, as "NAME: text". The `vorn` command and the
 * modules that write files look at it: no output of a failed job becomes a file. */
#define VORN_FAILED_KEY "vorn.failed"

/* ---------------------------------------------------------------------------------- messages */

/** Sends a message; texts longer than 999 bytes are cut. */
static inline void vorn_message(int type, const char* format, ...) VORN_PRINTF(2, 3);
static inline void vorn_message(int type, const char* format, ...)
{
    char text[1000];
    va_list values;

    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    knl_sendMessage(type, text);
}

/** Ends the module: a fatal message, and the same text, after the module's name, in the job's
 * metadata (VORN_FAILED_KEY). The entry point then ends the data of all outputs: those of
 * VORN_MODULE() do so when a function returns false. */
static inline void vorn_fail(const char* format, ...) VORN_PRINTF(1, 2);
static inline void vorn_fail(const char* format, ...)
{
    static const char name[] = VORN_MODULE_NAME ": ";
    char text[sizeof name - 1 + 1000];
    va_list values;

    memcpy(text, name, sizeof name);
    va_start(values, format);
    vsnprintf(text + sizeof name - 1, sizeof text - (sizeof name - 1), format, values);
    va_end(values);
    knl_sendMessage(VORN_FATAL, text + sizeof name - 1);
    knl_setMetaDataValue(VORN_SCOPE_JOB, VORN_FAILED_KEY, text);
}

/** Whether a module of the job has failed. Those that follow it may lack what it should have told
 * them, and have nothing to complain about. */
static inline bool vorn_job_has_failed(void)
{
    char cause[1];

    return knl_getMetaDataValue(VORN_SCOPE_JOB, VORN_FAILED_KEY, cause, (int)sizeof cause) > 0;
}

/** Whether `bytes` of memory are within `limit` megabytes, the value of the module's parameter
 * memory_limit; false after a fatal message, which says what they are for ("the transform of traces
 * of 3000 samples") and what else could be done ("shorten the traces").
 *
 * A module asks before it takes memory whose size depends on what files and parameters state. Such
 * sizes are computed in 64 bits. */
static inline bool vorn_allow_memory(int limit, int64_t bytes, const char* what, const char* advice)
{
    const int64_t megabyte = 1000000;
    const long long needed = (bytes - 1) / megabyte + 1;

    if (bytes <= limit * megabyte)
        return true;
    vorn_fail("%.300s would need %lld MB of memory, and memory_limit is %d MB; raise memory_limit, "
              "or %.200s",
              what, needed, limit, advice);
    return false;
}

/** The samples of trace `number` (from 0) of `traces`; null, after a fatal message, when there is
 * no memory for them. Requires: the traces have samples. */
static inline float* vorn_required_samples(void* traces, int number)
{
    float* samples = NULL;

    if (knl_getTraceSamples(traces, &samples, number) == 1 && samples != NULL)
        return samples;
    vorn_fail(
        "not enough memory for a trace of %d samples; give the job a lower limit of traces in "
        "memory, or shorter traces",
        knl_getTraceLength(traces));
    return NULL;
}

/** Appends to the text in `text`, a buffer of `size` bytes; what has no room is cut. */
static inline void vorn_append(char* text, size_t size, const char* format, ...) VORN_PRINTF(3, 4);
static inline void vorn_append(char* text, size_t size, const char* format, ...)
{
    const size_t used = strlen(text);
    va_list values;

    va_start(values, format);
    vsnprintf(text + used, size - used, format, values);
    va_end(values);
}

/** Adds a line to the history of the data: module metadata under "history$", which writers of files
 * put into their text headers. */
static inline void vorn_add_history(const char* line)
{
    knl_setMetaDataValue(VORN_SCOPE_MODULE, "history$", line);
}

/* ------------------------------------------------------------------------- the module's state */

/** What the module keeps from one entry point to the next; null before vorn_keep_state(). A job may
 * use a library for several modules: each has a state of its own. */
static inline void* vorn_state(void)
{
    void* state = NULL;

    knl_getModuleResource("state", &state);
    return state;
}

/** Keeps the address of the running module's state; null forgets it. Nothing is freed. */
static inline void vorn_keep_state(void* state)
{
    knl_setModuleResource("state", state);
}

/* --------------------------------------------------------------------------- inputs and outputs */

/** The input `channel` (from 0); null after a fatal message when there is none. */
static inline void* vorn_required_input(int channel)
{
    void* in;

    if (knl_getInputTraceBuffer(&in, channel) == 0)
        return in;
    if (channel == 0)
        vorn_fail("the module has no input; connect one");
    else
        vorn_fail("the module has no input %d; connect one", channel + 1);
    return NULL;
}

/** The input `channel` (from 0); null when there is none. */
static inline void* vorn_input(int channel)
{
    void* in;

    return knl_getInputTraceBuffer(&in, channel) == 0 ? in : NULL;
}

/** The output `channel` (from 0); null when there is none. */
static inline void* vorn_output(int channel)
{
    void* out;

    return knl_getOutputTraceBuffer(&out, channel) == 0 ? out : NULL;
}

/** Gives the output `channel` (from 0) the trace length, the sample interval and the attributes of
 * the trace set `like`. Returns the output, or null, and no message, when there is none. */
static inline void* vorn_build_output(int channel, void* like)
{
    knl_bldOutputTraceBuffer(channel, knl_getTraceLength(like), knl_getTraceSampleInterval(like),
                             like);
    return vorn_output(channel);
}

/** The same for an output that must be there: null after a fatal message. */
static inline void* vorn_build_required_output(int channel, void* like)
{
    void* out = vorn_build_output(channel, like);

    if (out == NULL && channel == 0)
        vorn_fail("the module has no output; connect one");
    else if (out == NULL)
        vorn_fail("the module has no output %d; connect one", channel + 1);
    return out;
}

/** Says that the input has no sample interval, unless a module has failed before: then the interval
 * may be missing for that reason. Always false. */
static inline bool vorn_fail_without_interval(void)
{
    if (!vorn_job_has_failed())
        vorn_fail("the input has no sample interval; the module before this one has to set it");
    return false;
}

/** Copies the first trace of `in` behind the last one of `out`: header, samples, and the flag that
 * says whether it is the last trace. Returns its number in `out`, from 0. */
static inline int vorn_pass_trace(void* in, void* out)
{
    const int number = knl_getNumberOfTraces(out);

    knl_mcopyTraceToTrace(in, out, 1, 1, 0, number);
    return number;
}

/** The trace that is first in the input `channel` (from 0) is not taken: the next call of process_
 * finds it again. */
static inline void vorn_keep_trace(int channel)
{
    int number = channel;
    int flag = VORN_KEEP_TRACE;

    ++number; /* the Fortran form counts from 1 */
    knl_setinputtracebufferflag_(&number, &flag);
}

/** For modules that are called after the end of their inputs (processing option "RespectEOD"):
 * keeps the scheduler from taking a trace from an empty input, which would make one there for other
 * modules to find. */
static inline void vorn_keep_empty_inputs(void)
{
    void* in;
    int channel;

    for (channel = 0; knl_getInputTraceBuffer(&in, channel) == 0; ++channel) {
        if (knl_getNumberOfTraces(in) == 0)
            vorn_keep_trace(channel);
    }
}

/** Ends the data of all outputs, so that the module is not called again. */
static inline void vorn_end_outputs(void)
{
    void* out;
    int channel;

    for (channel = 0; knl_getOutputTraceBuffer(&out, channel) == 0; ++channel)
        knl_setDataChannelFlag(out, VORN_END_OF_DATA);
}

/** What the entry points do for a module that has failed: ends the data of all outputs, and makes
 * sure that the module is not called after the end of its inputs. */
static inline void vorn_end_module(void)
{
    knl_setModuleProcessingOption("RespectEOD", 0);
    vorn_keep_empty_inputs();
    vorn_end_outputs();
}

/* What the entry points do after prepare: a module that did not ask for calls at the end of its
 * inputs gives one trace for each. The kit asks in its place, to pass the end on where no marked
 * trace does that: of an input without traces. */
static inline void vorn_ask_for_end(void)
{
    void* set;
    int asked = 0;

    if (knl_getInputTraceBuffer(&set, 0) != 0 || knl_getOutputTraceBuffer(&set, 0) != 0 ||
        (knl_getModuleProcessingOption("RespectEOD", &asked) != 0 && asked != 0))
        return;
    if (knl_setModuleResource("ends by the kit", set) != 0)
        knl_setModuleProcessingOption("RespectEOD", 1);
}

/* Whether this call is one at the end of the inputs that the kit has asked for; it is then done. */
static inline bool vorn_pass_end(void)
{
    void* set;
    int channel = 0;

    while (knl_getInputTraceBuffer(&set, channel) == 0 && knl_getNumberOfTraces(set) > 0)
        ++channel;
    if (set == NULL || knl_getModuleResource("ends by the kit", &set) == 0)
        return false;
    vorn_keep_empty_inputs();
    vorn_end_outputs();
    return true;
}

/* -------------------------------------------------------------------------------- entry points */

#ifndef __cplusplus
/** For VORN_MODULE(), in place of a function that a module does not need. */
#define VORN_NOTHING(state) ((void)(state))

/** Defines preprocess_, process_ and postprocess_ of a module whose state is of the type `state`,
 * from four functions of the module:
 *
 * - `bool prepare(state*)`, once before the first trace; the state is zero-filled memory
 * - `bool process(state*)`, whenever each input has a trace. Gives one trace for each that it
 * takes, with its flag: see vorn_pass_trace(). Modules that give more or fewer are easier to write
 * with vorn_stream.h.
 * - `void finish(state*)`, after the last trace
 * - `void release(state*)`, at the very end: frees what the state holds, whatever happened
 *
 * One that returns false has said why with vorn_fail(). The state is then released at once, finish
 * is not called, and all outputs are at the end of their data.
 */
#define VORN_MODULE(state, prepare, process, finish, release)                                      \
    static void vorn_release(void)                                                                 \
    {                                                                                              \
        state* kept = vorn_state();                                                                \
                                                                                                   \
        knl_removeWorkTraces();                                                                    \
        if (kept == NULL)                                                                          \
            return;                                                                                \
        release(kept);                                                                             \
        knl_freeResource(kept);                                                                    \
        vorn_keep_state(NULL);                                                                     \
    }                                                                                              \
                                                                                                   \
    int preprocess_(void)                                                                          \
    {                                                                                              \
        state* kept = knl_allocateResource((int)sizeof(state));                                    \
                                                                                                   \
        vorn_keep_state(kept);                                                                     \
        if (kept != NULL && !prepare(kept))                                                        \
            vorn_release();                                                                        \
        else                                                                                       \
            vorn_ask_for_end();                                                                    \
        return 0;                                                                                  \
    }                                                                                              \
                                                                                                   \
    int process_(void)                                                                             \
    {                                                                                              \
        state* kept = vorn_state();                                                                \
                                                                                                   \
        if (kept != NULL && (vorn_pass_end() || process(kept)))                                    \
            return 0;                                                                              \
        vorn_release();                                                                            \
        vorn_end_module();                                                                         \
        return 0;                                                                                  \
    }                                                                                              \
                                                                                                   \
    int postprocess_(void)                                                                         \
    {                                                                                              \
        state* kept = vorn_state();                                                                \
                                                                                                   \
        if (kept != NULL)                                                                          \
            finish(kept);                                                                          \
        vorn_release();                                                                            \
        return 0;                                                                                  \
    }                                                                                              \
                                                                                                   \
    struct vorn_module_is_defined
#endif

/* NOLINTEND(modernize-use-nullptr,bugprone-macro-parentheses) */

#endif
