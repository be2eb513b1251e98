/* Hands its traces on, and ends the process as `how` says: in the entry point `where`, in
 * `process_` at the call `at`. */
#define _GNU_SOURCE
#include "knl.h"

#include <limits.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

static char how[1024];
static char where[1024];
static int at;
static int with;
static int calls;
static void* volatile kept;

static int is(const char* name)
{
    return strcmp(how, name) == 0;
}

static void* exit_in_thread(void* unused)
{
    (void)unused;
    exit(with);
}

static void run_thread(void)
{
    pthread_t thread;

    if (pthread_create(&thread, NULL, exit_in_thread, NULL) == 0)
        pthread_join(thread, NULL);
}

/* Every level keeps a part of the stack that the compiler cannot leave out. */
static int overflow(volatile char* outer, int levels)
{
    volatile char part[4096];

    part[0] = outer != NULL ? outer[0] : 1;
    return levels > 0 ? overflow(part, levels - 1) + part[0] : 0;
}

/* The size of what is left of the heap gets a value that the allocator refuses, with its lock held.
 */
static void corrupt_heap(void)
{
    volatile size_t size = 100000; /* not known to the compiler, which would warn */
    volatile char* block = malloc(size);
    size_t i;

    for (i = 0; block != NULL && i < 16384; ++i)
        block[size + i] = (char)0x5a;
    for (i = 0; i < 1000; ++i)
        kept = malloc(size);
}

static void write_beyond_limit(void)
{
    const struct rlimit limit = {1000, 1000};
    FILE* file = tmpfile();
    int i;

    setrlimit(RLIMIT_FSIZE, &limit);
    for (i = 0; file != NULL && i < 1000; ++i) {
        fputs("a line of a file that grows\n", file);
        fflush(file);
    }
}

static int ended_with(pid_t child)
{
    int status = -1;

    return waitpid(child, &status, 0) == child && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/* Children that end do not end the job. */
static void fork_children(void)
{
    char text[100];
    pid_t first;
    pid_t second;
    pid_t third;

    fflush(NULL);
    first = fork();
    if (first == 0)
        _exit(5);
    second = fork();
    if (second == 0)
        exit(6);
    third = vfork();
    if (third == 0)
        _exit(7);
    snprintf(text, sizeof text, "children: %d %d %d", ended_with(first), ended_with(second),
             ended_with(third));
    knl_sendMessage(2, text);
}

/* Passes the kernel what is not a trace buffer. */
static void break_kernel(void)
{
    knl_setTraceLength((void*)(intptr_t)16, 100);
}

static void end(void)
{
    int (*volatile function)(void) = NULL;
    volatile int forever = 1;

    if (is("exit"))
        exit(with);
    if (is("_exit"))
        _exit(with);
    if (is("_Exit"))
        _Exit(with);
    if (is("quick_exit"))
        quick_exit(with);
    if (is("exit in a thread"))
        run_thread();
    if (is("pthread_exit"))
        pthread_exit(NULL);
    if (is("raise"))
        raise(with);
    if (is("raise and wait")) {
        raise(with);
        pause();
    }
    if (is("kill"))
        kill(getpid(), with);
    if (is("overflow"))
        overflow(NULL, INT_MAX);
    if (is("corrupt heap"))
        corrupt_heap();
    if (is("write"))
        write_beyond_limit();
    if (is("fork"))
        fork_children();
    if (is("null pointer"))
        *(volatile int*)(intptr_t)(forever - 1) = 1;
    if (is("null function"))
        function();
    if (is("wrong handle"))
        break_kernel();
    if (is("loop"))
        knl_sendMessage(2, "nothing moves from here on");
    while (is("loop"))
        forever = 1;
}

int preprocess_(void)
{
    void* in;

    knl_getStrModuleParameter("how", how);
    knl_getStrModuleParameter("where", where);
    at = 1;
    knl_getI32ModuleParameter("at", &at);
    knl_getI32ModuleParameter("with", &with);
    knl_getInputTraceBuffer(&in, 0);
    knl_bldOutputTraceBuffer(0, knl_getTraceLength(in), knl_getTraceSampleInterval(in), in);
    if (strcmp(where, "preprocess") == 0)
        end();
    return 0;
}

int process_(void)
{
    void* in;
    void* out;

    if (strcmp(where, "process") == 0 && ++calls == at)
        end();
    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    knl_mcopyTraceToTrace(in, out, 1, 1, 0, knl_getNumberOfTraces(out));
    knl_setDataChannelFlag(out, knl_getDataChannelFlag(in));
    return 0;
}

int postprocess_(void)
{
    if (strcmp(where, "postprocess") == 0)
        end();
    return 0;
}
