/** @file probe.h
 *
 * What the module library `probe` finds under its module resource "probe": the functions of a test
 * that run in place of its entry points. Without the resource, or where a function is null, the
 * entry point does nothing.
 */
#ifndef PROBE_H
#define PROBE_H

typedef struct probe_functions
{
    void (*preprocess)(void* self);
    void (*process)(void* self);
    void (*postprocess)(void* self);
    void* self; /**< handed to each of them */
} probe_functions;

#endif
