/** @file fault_record.h
 *
 * What a job under faults tells the test that started it. The record lies in memory that the two
 * processes share and has room for everything, so that writing to it needs nothing that can fail.
 */
#ifndef FAULT_RECORD_H
#define FAULT_RECORD_H

enum
{
    FAULT_MOST_TRACES = 512,
    FAULT_MOST_MESSAGES = 512,
    FAULT_TEXT = 320
};

/** A trace as it reached the sink. What the sink was told it cannot have is not compared. */
typedef struct fault_trace
{
    int number;     /**< attribute "tracl"; -1 when the sink was told that there is none */
    int goodHead;   /**< all attributes are those of a trace of that number */
    int goodData;   /**< likewise the samples */
    int hasSamples; /**< the sink was given samples */
} fault_trace;

typedef struct fault_message
{
    int type;
    char module[32];
    char text[FAULT_TEXT];
} fault_message;

typedef struct fault_record
{
    int traces; /**< entries of `trace`, and further ones that had no room */
    fault_trace trace[FAULT_MOST_TRACES];
    int messages; /**< likewise */
    fault_message message[FAULT_MOST_MESSAGES];
    int happened;    /**< the fault came */
    long calls;      /**< of the function */
    int finished;    /**< the host came to its end */
    int modulesMade; /**< of those that the job has */
    int phases;      /**< phases that returned 0: 1 preProcessJob, 2 processJob, 4 postProcessJob */
    char exception[FAULT_TEXT]; /**< what the kernel or a module threw; "" for nothing */
    char complaint[FAULT_TEXT]; /**< the first thing that the child itself found wrong; "" */
} fault_record;

#endif
