/* Ends the process while it is unloaded after a job. */
#include <stdlib.h>
#include <unistd.h>

__attribute__((destructor)) static void leave(void)
{
    if (getenv("VORN_SCRATCH") != NULL)
        _exit(0);
}

int preprocess_(void)
{
    return 0;
}

int process_(void)
{
    return 0;
}

int postprocess_(void)
{
    return 0;
}
