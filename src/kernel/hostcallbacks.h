/** @file hostcallbacks.h
 *
 * What the kernel hands to a host application: seven call-back types and the flat records that two
 * of them carry. Readable by a C compiler, so that a host in any language can lay the records out.
 *
 * Conventions of every call-back:
 * - `funcObj` is the pointer given at installation, handed back unchanged.
 * - The result is ignored.
 * - The call runs synchronously on the thread that called into the kernel, in the middle of the
 *   kernel's work; texts and records live only for the duration of the call. Copy what you keep.
 *
 * Records are flat: fields in this order, no others, native alignment, 32-bit `int` and `float`.
 */
#ifndef HOSTCALLBACKS_H
#define HOSTCALLBACKS_H

/** Statistics of one module, or of the whole job (the "Job total" row). */
typedef struct modStatisticStr
{
    int ident;        /**< place of the module in the job, from 1; 0 in the job's row */
    char modName[64]; /**< module name, at most 63 characters, always NUL-terminated */
    int inp_traces;   /**< traces taken in; job: sum over the output modules, -1 if not positive */
    int out_traces;   /**< traces given out; job: sum over the input modules, -1 if not positive */
    int total_time;   /**< whole seconds of work; job: whole seconds since the job manager began */
    int avg_time;     /**< whole seconds of work per trace, truncated; job: always -1 */
    int mem_used;     /**< bytes held now, through the kernel's allocator */
    int progress;     /**< percent of the announced output; -1 where no total was announced */
} modStatisticStruct;

/** Number of module rows in a statistics record; modules beyond it are left out of the totals too.
 */
#define VORN_STATISTIC_ROWS 32

/** Statistics of a job, sent at the ends of phases and now and then while traces are processed. */
typedef struct jobStatisticStr
{
    char jobName[64]; /**< job name; no NUL at its end when the name has 64 or more characters */
    int jobPhase;     /**< 1 pre-processing, 2 processing, 3 post-processing */
    int jobStatus;    /**< always 0 */
    int jobCmd;       /**< always 0 */
    int numMod;       /**< rows filled in `modStatistics`, at most 32 */
    modStatisticStruct modStatistics[VORN_STATISTIC_ROWS]; /**< one row per module, in job order */
    modStatisticStruct jobStatistics;                      /**< the "Job total" row */
} jobStatisticStruct;

/** One pen-plotter command for a pad. Fields that the command does not use are zero. */
typedef struct plotCommandStr
{
    int cmdType;      /**< 1 plot, 2 number, 3 symbol, 4 factor, 5 new pen */
    float xpage;      /**< x position on the pad (plot, number, symbol) */
    float ypage;      /**< y position on the pad (plot, number, symbol) */
    int ipen;         /**< pen code (plot), pen number (new pen) */
    float height;     /**< character height (number, symbol) */
    float fpn;        /**< the number to draw (number) */
    float angle;      /**< writing angle (number, symbol) */
    int ndec;         /**< number of decimals (number) */
    const char* cbcd; /**< text to draw, valid only during the call (symbol); else null */
    int inteq;        /**< code of a special symbol (symbol) */
    int inchar;       /**< number of characters (symbol) */
    float factor;     /**< scale factor (factor) */
} plotCommandStruct;

/** A message: its type, a time stamp "h:m:s" without leading zeros, the name of the running module
 * or "Kernel", and the text. The kernel itself uses the types 0, 1, 3 and 4. */
typedef int (*MsgFunctionType)(int msgType, char* timeStamp, const char* moduleName,
                               const char* message, void* funcObj);

/** One argument of a message, as text; `funcObj` is that of the message call-back. */
typedef int (*MsgArgumentFunctionType)(const char* argument, void* funcObj);

/** The statistics record; the kernel does not read it back. */
typedef int (*StatFunctionType)(jobStatisticStruct* statistic, void* funcObj);

/** A module wants a pad; the host keys its pads by `ident`. The meaning of `type`, `align` and
 * `visible` is the host's. */
typedef int (*CreatePadFunctionType)(int ident, int type, int align, int visible, const char* title,
                                     void* funcObj);

/** Traces to show on a pad: `traceSet` is a `SeisTraceSet`, owned by the module that shows it. */
typedef int (*AddTraceToPadFunctionType)(int ident, void* traceSet, void* funcObj);

/** A drawing command for a pad. */
typedef int (*AddPlotToPadFunctionType)(int ident, plotCommandStruct command, void* funcObj);

/** A command for an external application, passed on as the module gave it. */
typedef int (*ExecAppliFunctionType)(const char* command, void* funcObj);

#endif
