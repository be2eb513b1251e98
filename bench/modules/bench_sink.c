/* bench_sink: copies samples out, and looks at them no more than needed to find lost traces.
 *
 * Parameter: ATTRIBUTES  0 when headers do not matter
 *            BATCH       traces per call of the source: only the first of each has its number
 * Resource:  SEEN        a bench_seen, filled in
 *
 * Sinks of one job share the globals, and add up.
 */
#include "bench_seen.h"
#include "knl.h"

#include <string.h>

#define MOST_SAMPLES 2000

static float room[MOST_SAMPLES];
static struct bench_seen* seen;
static size_t bytes; /* of samples */
static int batch;
static int attributes;

int preprocess_(void)
{
    void* address = 0;
    void* in;
    int samples;

    knl_getInputTraceBuffer(&in, 0);
    samples = knl_getTraceLength(in);
    bytes = sizeof *room * (size_t)(samples < MOST_SAMPLES ? samples : MOST_SAMPLES);
    attributes = 0;
    batch = 1;
    knl_getI32ModuleParameter("ATTRIBUTES", &attributes);
    knl_getI32ModuleParameter("BATCH", &batch);
    knl_getModuleResource("SEEN", &address);
    seen = address;
    return 0;
}

/* Headers are looked at now and then: the look must not show in the time. */
static void check_header(void* in, float sample)
{
    int number = -1;

    knl_getI32TraceAttribute(in, "attribute_00", &number);
    if (number != (int)sample)
        ++seen->wrong;
}

int process_(void)
{
    void* in;
    float* samples;

    knl_getInputTraceBuffer(&in, 0);
    if (knl_getTraceSamples(in, &samples, 0) == 0)
        return 0;
    memcpy(room, samples, bytes);
    seen->sum += room[0];
    if (attributes > 0 && batch == 1 && (seen->traces & 255) == 255)
        check_header(in, room[0]);
    ++seen->traces;
    return 0;
}

int postprocess_(void)
{
    return 0;
}
