/* gain: multiplies the samples of every trace by FACTOR. */
#include "knl.h"

#include <math.h>
#include <stddef.h>
#include <stdio.h>

enum
{
    FATAL = 4,      /* type of a message: the module ends its data */
    END_OF_DATA = 3 /* flag of an output: no more traces will come */
};

/* What the module keeps from one call to the next. It is a resource of the module and no global
 * variable: a job may use this library for several modules, and all of them would share that. */
typedef struct settings
{
    float factor;
} settings;

static settings* find_settings(void);
static int read_parameters(settings* read);
static void scale(float* samples, int count, float factor);

/* ---- Entry points ---- */

int preprocess_(void)
{
    settings read;
    settings* kept;
    void* in;

    if (!read_parameters(&read))
        return 0;
    if (knl_getInputTraceBuffer(&in, 0) != 0) {
        knl_sendMessage(FATAL, "the module has no input; connect one");
        return 0;
    }
    /* The modules before this one have described their outputs by now. */
    if (knl_bldOutputTraceBuffer(0, knl_getTraceLength(in), knl_getTraceSampleInterval(in), in) !=
        0) {
        knl_sendMessage(FATAL, "the module has no output; connect one");
        return 0;
    }
    kept = knl_allocateResource((int)sizeof *kept);
    if (kept == NULL)
        return 0; /* the kernel has said so */
    *kept = read;
    knl_setModuleResource("SETTINGS", kept);
    return 0;
}

/* One trace in, one trace out. */
int process_(void)
{
    const settings* kept = find_settings();
    void* in;
    void* out;
    float* samples;

    if (knl_getOutputTraceBuffer(&out, 0) != 0)
        return 0;
    if (kept == NULL) {
        knl_setDataChannelFlag(out, END_OF_DATA); /* preprocess_ has failed: do not ask again */
        return 0;
    }
    knl_getInputTraceBuffer(&in, 0);
    /* Header, samples, and the flag that says whether this is the last trace. */
    knl_copyTraceToTrace(in, out, 1, 1);
    if (knl_getTraceSamples(out, &samples, 0) == 1)
        scale(samples, knl_getTraceLength(out), kept->factor);
    return 0;
}

int postprocess_(void)
{
    knl_freeResource(find_settings());
    return 0;
}

/* ---- What they are made of ---- */

static settings* find_settings(void)
{
    void* kept = NULL;

    knl_getModuleResource("SETTINGS", &kept);
    return kept;
}

/* 1, or 0 after a message. */
static int read_parameters(settings* read)
{
    char text[128];

    if (knl_getF32ModuleParameter("FACTOR", &read->factor) == 0) {
        knl_sendMessage(FATAL, "FACTOR is missing; give the number to multiply samples by");
        return 0;
    }
    if (!isfinite(read->factor)) {
        snprintf(text, sizeof text, "FACTOR is %g; give a finite number", read->factor);
        knl_sendMessage(FATAL, text);
        return 0;
    }
    return 1;
}

/* The arithmetic, which knows nothing of the kernel. */
static void scale(float* samples, int count, float factor)
{
    int i;

    for (i = 0; i < count; ++i)
        samples[i] *= factor;
}
