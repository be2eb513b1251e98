/* Copies traces, and makes the mistake that the parameter `mistake` names: one of those that a
 * module of its own author may make, and that a checked run tells. "none" makes none. */
#include "knl.h"

#include <math.h>
#include <pthread.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>

/* One for each module of the job. */
typedef struct state
{
    char mistake[64];
    int calls;
    float* samples; /* of an earlier call */
    void* memory;
} state;

static state* module; /* whose entry point runs */
static void* shared;  /* the first input of all modules of this library */

static bool makes(const char* mistake)
{
    return strcmp(module->mistake, mistake) == 0;
}

static void read_parameters(void)
{
    double number = 0;
    float* array;
    int whole = 0;
    int list[4];
    char text[64];

    if (makes("int_getter_of_a_float"))
        knl_getI32ModuleParameter("number", &whole);
    else if (makes("text_getter_of_a_float"))
        knl_getStrModuleParameter("number", text);
    else if (!makes("parameter_not_read"))
        knl_getF64ModuleParameter("number", &number);
    if (makes("scalar_getter_of_a_list"))
        knl_getI32ModuleParameter("list", &whole);
    else if (makes("float_array_of_an_int_list"))
        knl_getF32ArrayModuleParameter("list", &array, &whole);
    else
        knl_copyI32ModuleParameter("list", list, 4);
    if (makes("undeclared_parameter"))
        knl_getF64ModuleParameter("numbr", &number);
}

int preprocess_(void)
{
    void* in;
    void* out;

    module = calloc(1, sizeof *module);
    if (module == NULL)
        return 0;
    knl_setModuleResource("STATE", module);
    knl_getStrModuleParameterN("mistake", module->mistake, (int)sizeof module->mistake);
    read_parameters();
    if (knl_getInputTraceBuffer(&in, 0) != 0)
        return 0;
    knl_bldOutputTraceBuffer(0, knl_getTraceLength(in), knl_getTraceSampleInterval(in), in);
    knl_getOutputTraceBuffer(&out, 0);
    if (shared == NULL)
        shared = in;
    knl_setModuleProcessingOption("RespectEOD", 1);
    module->memory = knl_allocateResource(40);
    return 0;
}

static void* call_kernel(void* set)
{
    knl_getTraceLength(set);
    return NULL;
}

/* With handles, channels and numbers of traces. */
static void mistake_handles(void* in, void* out)
{
    static const char* const names[] = {"offset"};
    float* samples;
    void* set = NULL;
    void* list;
    int value = 0;
    int not_a_set[256] = {0};

    if (makes("null_handle"))
        knl_getTraceLength(NULL);
    if (makes("channel_not_there")) {
        knl_getInputTraceBuffer(&set, 1);
        knl_getTraceSamples(set, &samples, 0);
    }
    if (makes("handle_of_another_module"))
        knl_getTraceLength(shared);
    if (makes("negative_channel"))
        knl_getInputTraceBuffer(&set, -1);
    if (makes("no_handle_at_all"))
        knl_getTraceLength(not_a_set);
    if (makes("freed_list") && knl_bldAttributeList(names, 1, &list) == 0) {
        knl_freeAttributeList(list);
        knl_getI32TraceAttributes(list, in, 0, &value);
    }
    if (makes("input_trace_counted_from_1"))
        knl_getTraceSamples(in, &samples, 1);
    if (makes("output_trace_counted_from_1"))
        knl_getTraceSamples(out, &samples, knl_getNumberOfTraces(out) + 1);
    if (makes("negative_trace"))
        knl_getTraceSamples(in, &samples, -1);
    if (makes("copy_of_a_trace_that_is_not_there")) {
        knl_bldWorkTraceBuffer(0, 10, 4000, 0, in);
        knl_getWorkTraceBuffer(&set, 0);
        knl_mcopyTraceToTrace(set, out, 1, 1, 0, 0);
    }
}

/* With memory. */
static void mistake_memory(void* in, float* samples, int length)
{
    float* input;
    void* set;

    if (makes("overrun_by_4_bytes"))
        samples[length] = 1;
    if (makes("overrun_by_64_bytes"))
        memset(samples + length, 1, 64);
    if (makes("underrun_by_4_bytes"))
        samples[-1] = 1;
    if (makes("overrun_of_memory"))
        ((double*)module->memory)[5] = 1;
    if (makes("write_after_the_call") && module->samples != NULL)
        module->samples[3] = 1;
    if (makes("read_after_the_call") && module->samples != NULL)
        samples[0] += module->samples[3];
    if (makes("read_behind_the_end"))
        samples[0] += samples[length];
    if (knl_getTraceSamples(in, &input, 0) != 0)
        module->samples = input;
    if (makes("write_after_free") && module->calls == 1) {
        knl_freeResource(module->memory);
        ((int*)module->memory)[1] = 1;
        module->memory = NULL;
    }
    if (makes("free_twice") && module->calls == 1) {
        knl_freeResource(module->memory);
        knl_freeResource(module->memory);
        module->memory = NULL;
    }
    if (makes("free_of_malloc") && module->calls == 1)
        knl_freeResource(malloc(8));
    if (makes("free_of_samples"))
        knl_freeResource(samples);
    if (makes("traces_left") && knl_getWorkTraceBuffer(&set, 0) == 0)
        knl_setNumberOfTraces(set, 3);
}

/* With what traces hold. */
static void mistake_contents(void* in, void* out, float* samples)
{
    float* input;
    int value = 0;

    if (makes("not_a_number"))
        samples[7] = nanf("");
    if (makes("infinite"))
        samples[7] = HUGE_VALF;
    if (makes("changed_samples") && knl_getTraceSamples(in, &input, 0) != 0)
        input[5] += 1;
    if (makes("changed_header"))
        knl_setI32TraceAttribute(in, "offset", 12345);
    if (makes("changed_flag"))
        knl_setDataChannelFlag(in, 7);
    if (makes("undeclared_attribute"))
        knl_setI32TraceAttribute(out, "cdp", 1);
    if (makes("attribute_that_nobody_writes"))
        knl_getI32TraceAttribute(in, "ofset", &value);
}

/* For the first trace three: the module behind it finds all of them in its input. */
static void give_three(void* in, void* out)
{
    float* samples;

    if (!makes("none_gives_three") || module->calls != 1)
        return;
    knl_mcopyTraceToTrace(in, out, 1, 1, 0, 1);
    knl_mcopyTraceToTrace(in, out, 1, 1, 0, 2);
    if (knl_getTraceSamples(out, &samples, 2) != 0)
        samples[0] = 42;
}

/* With several traces of an input, of which the later ones are as much others' as the first. */
static void mistake_later_traces(void* in)
{
    static const char* const names[] = {"offset"};
    float* input;
    void* set;
    void* list;
    int value = 12345;

    if (strstr(module->mistake, "later_trace") == NULL)
        return;
    if (knl_getNumberOfTraces(in) != 3)
        return;
    if (makes("changed_samples_of_a_later_trace") && knl_getTraceSamples(in, &input, 2) != 0)
        input[5] += 1;
    if (makes("later_trace_that_goes") && knl_getTraceSamples(in, &input, 2) != 0 &&
        knl_getWorkTraceBuffer(&set, 0) == 0)
    {
        input[5] += 1;
        knl_moveTraceToTrace(in, set, 2, 0);
    }
    if (makes("copy_to_a_later_trace"))
        knl_mcopyTraceToTrace(in, in, 0, 1, 0, 2);
    if (makes("cleared_later_trace"))
        knl_clearTraceSet(in);
    if (makes("changed_header_of_a_later_trace") && knl_bldAttributeList(names, 1, &list) == 0) {
        knl_setI32TraceAttributes(list, in, 1, &value);
        knl_freeAttributeList(list);
    }
    if (makes("changed_flag_of_a_later_trace"))
        knl_setDataChannelFlag(in, 7);
}

static void mistake_messages(void)
{
    if (makes("empty_message"))
        knl_sendMessage(1, "");
    if (makes("message_of_two_lines"))
        knl_sendMessage(1, "one\ntwo");
    if (makes("message_in_Latin-1"))
        knl_sendMessage(1, "Gr\xF6\xDF"
                           "e");
    if (makes("type_of_message"))
        knl_sendMessage(9, "what is that?");
}

int process_(void)
{
    void* in;
    void* out;
    float* samples;
    pthread_t thread;
    void* kept;

    if (knl_getModuleResource("STATE", &kept) == 0)
        return 0;
    module = kept;
    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    if (knl_getNumberOfTraces(in) == 0) {
        if (makes("empty_input"))
            knl_getTraceSamples(in, &samples, 0);
        knl_setInputTraceBufferFlag(0, 1);
        knl_setDataChannelFlag(out, 3);
        return 0;
    }
    ++module->calls;
    knl_copyTraceToTrace(in, out, 1, 1);
    if (makes("empty_input"))
        knl_setDataChannelFlag(out, 0); /* called again without input */
    mistake_handles(in, out);
    if (knl_getTraceSamples(out, &samples, 0) == 0)
        return 0;
    mistake_memory(in, samples, knl_getTraceLength(out));
    mistake_contents(in, out, samples);
    give_three(in, out);
    mistake_later_traces(in);
    mistake_messages();
    if (makes("thread") && pthread_create(&thread, NULL, call_kernel, in) == 0)
        pthread_join(thread, NULL);
    return 0;
}

int postprocess_(void)
{
    void* kept;

    if (knl_getModuleResource("STATE", &kept) == 0)
        return 0;
    module = kept;
    shared = NULL;
    if (!makes("memory_left"))
        knl_freeResource(module->memory);
    if (!makes("traces_left"))
        knl_removeWorkTraces();
    free(module);
    return 0;
}
