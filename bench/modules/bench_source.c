/* bench_source: makes traces, whose samples lie ready in memory.
 *
 * Parameters: TRACES      number of traces
 *             SAMPLES     samples per trace
 *             ATTRIBUTES  numbers in the header, named attribute_00 and so on
 *             BATCH       traces per call; they queue up in the channel (default 1)
 * Resource:   CLOCK       optional: a double that gets the time (seconds, monotonic) at which the
 *                         last trace has been made
 *
 * One per job: what a module looks up in each call would count as the kernel's cost here, so the
 * state is in globals.
 */
#include "knl.h"

#include <stdio.h>
#include <time.h>

#define END_OF_DATA 3

static void* out;
static float* pattern; /* the samples of every trace, but for the first one */
static double* last_made;
static int traces;
static int made;
static int batch;

int preprocess_(void)
{
    void* clock_address = 0;
    int samples = 1;
    int attributes = 0;

    traces = made = 0;
    batch = 1;
    knl_getI32ModuleParameter("TRACES", &traces);
    knl_getI32ModuleParameter("SAMPLES", &samples);
    knl_getI32ModuleParameter("ATTRIBUTES", &attributes);
    knl_getI32ModuleParameter("BATCH", &batch);
    knl_getModuleResource("CLOCK", &clock_address);
    last_made = clock_address;

    pattern = knl_allocateResource(samples * (int)sizeof *pattern);
    if (pattern == 0)
        return 1;
    knl_bldOutputTraceBuffer(0, samples, 2000, 0);
    knl_getOutputTraceBuffer(&out, 0);
    for (int i = 0; i < attributes; ++i) {
        char name[16];
        snprintf(name, sizeof name, "attribute_%02d", i % 100);
        knl_defineTraceAttribute(out, name);
    }
    knl_defineTraceAttribute(out, "fill"); /* the rest of the header */
    return 0;
}

static void note_time(void)
{
    struct timespec now;

    clock_gettime(CLOCK_MONOTONIC, &now);
    *last_made = (double)now.tv_sec + (double)now.tv_nsec * 1e-9;
}

int process_(void)
{
    int i;

    knl_getOutputTraceBuffer(&out, 0);
    for (i = 0; i < batch && made < traces; ++i) {
        pattern[0] = (float)(made & 1023);
        knl_setTraceSamples(out, &pattern, i); /* makes the trace */
        ++made;
    }
    if (i > 0) /* of the first trace of the set, as the C functions have it */
        knl_setI32TraceAttribute(out, "attribute_00", (made - i) & 1023);
    if (made == traces)
        knl_setDataChannelFlag(out, END_OF_DATA);
    if (i > 0 && made == traces && last_made != 0)
        note_time();
    return 0;
}

int postprocess_(void)
{
    return knl_freeResource(pattern);
}
