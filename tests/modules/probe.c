/* A module whose entry points are functions of the test that runs the job. */
#include "../support/probe.h"
#include "knl.h"

#include <stddef.h>

/* The results are arbitrary: the kernel takes no notice of them. */
enum
{
    preprocess_result = 1,
    process_result = -1,
    postprocess_result = 2
};

static const probe_functions* functions(void)
{
    void* found = NULL;
    return knl_getModuleResource("probe", &found) == 1 ? found : NULL;
}

int preprocess_(void)
{
    const probe_functions* probe = functions();
    if (probe != NULL && probe->preprocess != NULL)
        probe->preprocess(probe->self);
    return preprocess_result;
}

int process_(void)
{
    const probe_functions* probe = functions();
    if (probe != NULL && probe->process != NULL)
        probe->process(probe->self);
    return process_result;
}

int postprocess_(void)
{
    const probe_functions* probe = functions();
    if (probe != NULL && probe->postprocess != NULL)
        probe->postprocess(probe->self);
    return postprocess_result;
}
