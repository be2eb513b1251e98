/** @file harness_data.h
 *
 * What a ModuleHarness hands to its own two modules, the source and the sink of its jobs: each
 * finds a record of these under the module resource "HARNESS".
 */
#ifndef HARNESS_DATA_H
#define HARNESS_DATA_H

/** A value of a trace attribute; `type` is one of the numbers of `UniVarType`. */
typedef struct harness_attribute
{
    const char* name;
    int type;          /**< 1 text, 2 to 5 numbers, 9 to 12 arrays of numbers */
    int count;         /**< elements of an array, else 1 */
    const void* value; /**< the NUL-terminated text, the number, or the first element */
} harness_attribute;

typedef struct harness_trace
{
    const float* samples;
    const harness_attribute* attributes;
    int attributeCount;
} harness_trace;

typedef struct harness_source
{
    const harness_trace* traces;
    int traceCount;
    int traceLength;    /**< samples of each trace */
    int sampleInterval; /**< microseconds */
    int tracesPerCall;  /**< at most so many traces from one call of the source, at least 1 */
    int next;           /**< the trace to emit next, counted from 0; moved on by the source */
    int laterTraces;    /**< behind `traceCount`: not emitted, but their attributes are defined */
} harness_source;

typedef struct harness_sink
{
    /** Called with the input buffer of the sink for every trace, which is the first one there. */
    void (*take)(void* context, void* traceSet);
    void* context;
} harness_sink;

#endif
