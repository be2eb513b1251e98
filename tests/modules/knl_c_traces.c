/* The C form, second part: trace attributes and their schema, trace buffers and trace sets. The
 * job's schema is in ModuleInterfaceJobTest.cpp; its source emits three traces of four samples. */
#include "checks.h"

#include <stddef.h>

static void query_schema(void)
{
    int value = -7;
    char text[64] = "before";

    CHECK_INT(0, knl_getTraceAttributeType("f64s", &value));
    CHECK_INT(5, value);
    CHECK_INT(0, knl_getTraceAttributeDimension("f64s", &value));
    CHECK_INT(2, value);
    CHECK_INT(1, knl_getTraceAttributeType("unknown", &value));
    CHECK_INT(-1, value);
    value = -7;
    CHECK_INT(1, knl_getTraceAttributeDimension("unknown", &value));
    CHECK_INT(-1, value);
    CHECK_INT(0, knl_getTraceAttributeDescription("i32", text));
    CHECK_TEXT("a number of 32 bits", text);
    CHECK_INT(19, knl_getTraceAttributeDescriptionN("i32", text, 9));
    CHECK_TEXT("a number", text);
    CHECK_INT(0, knl_getTraceAttributeDescription("unknown", text));
    CHECK_TEXT("", text);
}

static void write_attributes(void* set)
{
    const int i32s[3] = {1, -2, 3};
    const int64_t i64s[2] = {1L << 40, -1};
    const float f32s[4] = {0.5f, 1.5f, 2.5f, 3.5f};
    const double f64s[2] = {0.1, 0.2};

    CHECK_INT(1, knl_defineTraceAttribute(set, "i32"));
    CHECK_INT(1, knl_defineTraceAttribute(set, "i32"));
    CHECK_INT(1, knl_setI32TraceAttribute(set, "i32", 42));
    CHECK_INT(1, knl_setI64TraceAttribute(set, "i64", 1L << 40));
    CHECK_INT(1, knl_setF32TraceAttribute(set, "f32", 1.5f));
    CHECK_INT(1, knl_setF64TraceAttribute(set, "f64", 0.1));
    CHECK_INT(1, knl_setStrTraceAttribute(set, "text", "some text"));
    CHECK_INT(1, knl_setI32ArrayTraceAttribute(set, "i32s", i32s, 3));
    CHECK_INT(1, knl_setI64ArrayTraceAttribute(set, "i64s", i64s, 2));
    CHECK_INT(1, knl_setF32ArrayTraceAttribute(set, "f32s", f32s, 4));
    CHECK_INT(1, knl_setF64ArrayTraceAttribute(set, "f64s", f64s, 2));
}

static void read_attributes(void* set)
{
    int i32 = -7, size = -7;
    int64_t i64 = -7;
    float f32 = -7;
    double f64 = -7;
    int* i32s = NULL;
    int64_t* i64s = NULL;
    float* f32s = NULL;
    double* f64s = NULL;
    char text[64] = "before";

    CHECK_INT(1, knl_getI32TraceAttribute(set, "i32", &i32));
    CHECK_INT(42, i32);
    CHECK_INT(1, knl_getI64TraceAttribute(set, "i64", &i64));
    CHECK_INT(1L << 40, i64);
    CHECK_INT(1, knl_getF32TraceAttribute(set, "f32", &f32));
    CHECK_REAL(1.5, f32);
    CHECK_INT(1, knl_getF64TraceAttribute(set, "f64", &f64));
    CHECK_REAL(0.1, f64);
    CHECK_INT(1, knl_getStrTraceAttribute(set, "text", text));
    CHECK_TEXT("some text", text);
    CHECK_INT(1, knl_getI32ArrayTraceAttribute(set, "i32s", &i32s, &size));
    CHECK(size == 3 && i32s[0] == 1 && i32s[2] == 3);
    CHECK_INT(1, knl_getI64ArrayTraceAttribute(set, "i64s", &i64s, &size));
    CHECK(size == 2 && i64s[0] == 1L << 40);
    CHECK_INT(1, knl_getF32ArrayTraceAttribute(set, "f32s", &f32s, &size));
    CHECK(size == 4 && f32s[3] == 3.5f);
    CHECK_INT(1, knl_getF64ArrayTraceAttribute(set, "f64s", &f64s, &size));
    CHECK(size == 2 && f64s[1] == 0.2);

    CHECK_INT(1, knl_getF64TraceAttribute(set, "i32", &f64));
    CHECK_REAL(42, f64);
    CHECK_INT(0, knl_getI32TraceAttribute(set, "absent", &i32));
    CHECK_INT(0, knl_getStrTraceAttribute(set, "absent", text));
    CHECK_INT(0, knl_getF64ArrayTraceAttribute(set, "absent", &f64s, &size));
    CHECK(i32 == 42 && size == 2);
    CHECK_TEXT("some text", text);
}

/* As above, of the second trace, which the first one leaves alone. */
static void use_attributes_of_trace_1(void* set)
{
    const int i32s[3] = {4, -5, 6};
    const int64_t i64s[2] = {1L << 41, -2};
    const float f32s[4] = {4.5f, 5.5f, 6.5f, 7.5f};
    const double f64s[2] = {0.3, 0.4};
    int i32 = -7, size = -7, ints[4] = {-7, -7, -7, -7};
    int64_t i64 = -7, longs[2] = {-7, -7};
    float f32 = -7, floats[2] = {-7, -7};
    double f64 = -7, doubles[4] = {-7, -7, -7, -7};
    int* i32array = NULL;
    int64_t* i64array = NULL;
    float* f32array = NULL;
    double* f64array = NULL;
    char text[6];

    CHECK_INT(1, knl_msetI32TraceAttribute(set, "i32", 1, 43));
    CHECK_INT(1, knl_msetI64TraceAttribute(set, "i64", 1, 1L << 41));
    CHECK_INT(1, knl_msetF32TraceAttribute(set, "f32", 1, 2.5f));
    CHECK_INT(1, knl_msetF64TraceAttribute(set, "f64", 1, 0.2));
    CHECK_INT(1, knl_msetStrTraceAttribute(set, "text", 1, "other text"));
    CHECK_INT(1, knl_msetI32ArrayTraceAttribute(set, "i32s", 1, i32s, 3));
    CHECK_INT(1, knl_msetI64ArrayTraceAttribute(set, "i64s", 1, i64s, 2));
    CHECK_INT(1, knl_msetF32ArrayTraceAttribute(set, "f32s", 1, f32s, 4));
    CHECK_INT(1, knl_msetF64ArrayTraceAttribute(set, "f64s", 1, f64s, 2));
    CHECK_INT(2, knl_getNumberOfTraces(set));

    CHECK_INT(1, knl_mgetI32TraceAttribute(set, "i32", 1, &i32));
    CHECK_INT(43, i32);
    CHECK_INT(1, knl_mgetI64TraceAttribute(set, "i64", 1, &i64));
    CHECK_INT(1L << 41, i64);
    CHECK_INT(1, knl_mgetF32TraceAttribute(set, "f32", 1, &f32));
    CHECK_REAL(2.5, f32);
    CHECK_INT(1, knl_mgetF64TraceAttribute(set, "f64", 1, &f64));
    CHECK_REAL(0.2, f64);
    CHECK_INT(10, knl_mgetStrTraceAttributeN(set, "text", 1, text, sizeof text));
    CHECK_TEXT("other", text);
    CHECK_INT(1, knl_mgetI32ArrayTraceAttribute(set, "i32s", 1, &i32array, &size));
    CHECK(size == 3 && i32array[1] == -5);
    CHECK_INT(1, knl_mgetI64ArrayTraceAttribute(set, "i64s", 1, &i64array, &size));
    CHECK(size == 2 && i64array[1] == -2);
    CHECK_INT(1, knl_mgetF32ArrayTraceAttribute(set, "f32s", 1, &f32array, &size));
    CHECK(size == 4 && f32array[3] == 7.5f);
    CHECK_INT(1, knl_mgetF64ArrayTraceAttribute(set, "f64s", 1, &f64array, &size));
    CHECK(size == 2 && f64array[1] == 0.4);
    CHECK_INT(4, knl_mcopyI32TraceAttribute(set, "f32s", 1, ints, 3));
    CHECK(ints[0] == 4 && ints[2] == 6 && ints[3] == -7);
    CHECK_INT(3, knl_mcopyI64TraceAttribute(set, "i32s", 1, longs, 2));
    CHECK(longs[0] == 4 && longs[1] == -5);
    CHECK_INT(2, knl_mcopyF32TraceAttribute(set, "f64s", 1, floats, 2));
    CHECK(floats[0] == 0.3f && floats[1] == 0.4f);
    CHECK_INT(1, knl_mcopyF64TraceAttribute(set, "i32", 1, doubles, 4));
    CHECK(doubles[0] == 43 && doubles[1] == -7);

    CHECK(knl_getI32TraceAttribute(set, "i32", &i32) == 1 && i32 == 42);
    CHECK_INT(0, knl_mgetI32TraceAttribute(set, "absent", 5, &i32));
    CHECK_INT(0, knl_mgetI32TraceAttribute(set, "i32", -1, &i32));
    CHECK_INT(0, knl_mgetI32TraceAttribute(NULL, "i32", 0, &i32));
    CHECK_INT(-1, knl_mgetStrTraceAttributeN(set, "text", -1, text, sizeof text));
    CHECK_INT(-1, knl_mcopyI32TraceAttribute(set, "absent", 1, ints, 3));
    CHECK_INT(0, knl_msetI32TraceAttribute(set, "i32", -1, 5));
    CHECK_INT(0, knl_msetStrTraceAttribute(set, "text", -1, "none"));
    CHECK_INT(0, knl_msetF64ArrayTraceAttribute(set, "f64s", -1, f64s, 2));
    CHECK_INT(42, i32);
    CHECK_INT(2, knl_getNumberOfTraces(set));
    CHECK_INT(1, knl_removeTrace(set, 1));
}

static void use_lists(void* set)
{
    const char* const names[] = {"i32", "absent", "i64", "f32", "f64"};
    const char* const numbers[] = {"i32", "f64"};
    const int i32s[2] = {7, -8};
    const int64_t i64s[2] = {1L << 40, 9};
    const float f32s[2] = {1.5f, 2.5f};
    const double f64s[2] = {3, 0.1};
    int i32[5] = {-7, -7, -7, -7, -7}, types[5];
    int64_t i64[5] = {-7, -7, -7, -7, -7};
    float f32[5] = {-7, -7, -7, -7, -7};
    double f64[5] = {-7, -7, -7, -7, -7};
    void* list;
    void* pair;

    CHECK_INT(0, knl_bldAttributeList(names, 5, &list));
    CHECK_INT(5, knl_getAttributeListSize(list));
    CHECK_INT(4, knl_getAttributeListPresence(list, set, types));
    CHECK(types[0] == 2 && types[1] == 0 && types[2] == 3 && types[3] == 4 && types[4] == 5);
    CHECK_INT(4, knl_getI32TraceAttributes(list, set, 0, i32));
    CHECK(i32[0] == 42 && i32[1] == -7 && i32[2] == 0 && i32[3] == 1 && i32[4] == 0);
    CHECK_INT(4, knl_getI64TraceAttributes(list, set, 0, i64));
    CHECK(i64[0] == 42 && i64[1] == -7 && i64[2] == 1L << 40 && i64[3] == 1);
    CHECK_INT(4, knl_getF32TraceAttributes(list, set, 0, f32));
    CHECK(f32[0] == 42 && f32[1] == -7 && f32[3] == 1.5f && f32[4] == 0.1f);
    CHECK_INT(4, knl_getF64TraceAttributes(list, set, 0, f64));
    CHECK(f64[0] == 42 && f64[1] == -7 && f64[3] == 1.5 && f64[4] == 0.1);
    CHECK_INT(0, knl_getI32TraceAttributes(list, set, -1, i32));

    CHECK_INT(0, knl_bldAttributeList(numbers, 2, &pair));
    CHECK_INT(2, knl_setI64TraceAttributes(pair, set, 1, i64s));
    CHECK_INT(2, knl_setF32TraceAttributes(pair, set, 1, f32s));
    CHECK_INT(2, knl_getF64TraceAttributes(pair, set, 1, f64));
    CHECK(f64[0] == 1 && f64[1] == 2.5);
    CHECK_INT(2, knl_setI32TraceAttributes(pair, set, 0, i32s));
    CHECK_INT(2, knl_getF64TraceAttributes(pair, set, 0, f64));
    CHECK(f64[0] == 7 && f64[1] == -8);
    CHECK_INT(2, knl_setF64TraceAttributes(pair, set, 0, f64s));
    CHECK_INT(2, knl_getF64TraceAttributes(pair, set, 0, f64));
    CHECK(f64[0] == 3 && f64[1] == 0.1);
    knl_freeAttributeList(pair); /* the other one ends with the module */
}

static void find_buffers(void)
{
    int here;
    void* buffer = &here;

    CHECK_INT(0, knl_getInputTraceBuffer(&buffer, 0));
    CHECK(buffer != NULL && buffer != &here);
    CHECK_INT(1, knl_getInputTraceBuffer(&buffer, 1));
    CHECK(buffer == NULL);
    CHECK_INT(0, knl_getOutputTraceBuffer(&buffer, 0));
    CHECK(buffer != NULL);
    CHECK_INT(1, knl_getOutputTraceBuffer(&buffer, 1));
    CHECK(buffer == NULL);
    CHECK_INT(0, knl_getWorkTraceBuffer(&buffer, 2)); /* made when asked for */
    CHECK(buffer != NULL);
    CHECK_INT(0, knl_getNumberOfTraces(buffer));
}

static void build_buffers(void)
{
    void* in;
    void* out;
    void* work;
    int i32 = -7;

    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    CHECK_INT(0, knl_bldOutputTraceBuffer(0, 3, 4000, in));
    CHECK_INT(1, knl_bldOutputTraceBuffer(1, 3, 4000, in));
    CHECK_INT(3, knl_getTraceLength(out));
    CHECK_INT(4000, knl_getTraceSampleInterval(out));
    CHECK_INT(0, knl_getNumberOfTraces(out));
    CHECK_INT(0, knl_bldWorkTraceBuffer(1, 4, 2000, 5, in));
    CHECK_INT(0, knl_getWorkTraceBuffer(&work, 1));
    CHECK_INT(4, knl_getTraceLength(work));
    CHECK_INT(2000, knl_getTraceSampleInterval(work));
    CHECK_INT(0, knl_getNumberOfTraces(work));                    /* none of the five */
    CHECK_INT(1, knl_getI32TraceAttribute(work, "number", &i32)); /* from the template */
    CHECK_INT(0, i32);
    CHECK_INT(0, knl_bldWorkTraceBufferLike(7, out));
    CHECK_INT(0, knl_getWorkTraceBuffer(&work, 7));
    CHECK_INT(3, knl_getTraceLength(work));
    CHECK_INT(4000, knl_getTraceSampleInterval(work));
    CHECK_INT(1, knl_getI32TraceAttribute(work, "number", &i32));
    CHECK_INT(1, knl_bldWorkTraceBufferLike(7, out)); /* it has attributes */
}

static void change_geometry(void* set)
{
    float values[4] = {1, 2, 3, 4};
    float* samples = values;

    CHECK_INT(0, knl_setTraceLength(set, 4));
    CHECK_INT(4, knl_getTraceLength(set));
    CHECK_INT(0, knl_setTraceSampleInterval(set, 1000));
    CHECK_INT(1000, knl_getTraceSampleInterval(set));
    CHECK_INT(0, knl_setNumberOfTraces(set, 2));
    CHECK_INT(2, knl_getNumberOfTraces(set));
    CHECK_INT(0, knl_setNumberOfTraces(set, 1)); /* never fewer */
    CHECK_INT(2, knl_getNumberOfTraces(set));

    CHECK_INT(1, knl_setTraceSamples(set, &samples, 1));
    CHECK_INT(1, knl_getTraceSamples(set, &samples, 1));
    CHECK(samples != values && memcmp(samples, values, sizeof values) == 0);
    CHECK_INT(1, knl_getTraceSamples(set, &samples, 0));
    CHECK(samples[0] == 0 && samples[3] == 0);
}

static void copy_and_move(void* set)
{
    void* other;
    float* samples;
    int i32 = -7;

    knl_bldWorkTraceBuffer(5, 4, 1000, 0, set);
    knl_getWorkTraceBuffer(&other, 5);
    knl_getTraceSamples(set, &samples, 0);
    samples[0] = 10;

    CHECK_INT(1, knl_copyTraceToTrace(set, other, 1, 0));
    CHECK(knl_getI32TraceAttribute(other, "i32", &i32) == 1 && i32 == 42);
    knl_getTraceSamples(other, &samples, 0);
    CHECK_REAL(0, samples[0]);
    CHECK_INT(1, knl_copyTraceToTrace(set, other, 0, 1));
    CHECK_REAL(10, samples[0]);

    CHECK_INT(1, knl_mcopyTraceToTrace(set, other, 1, 1, 1, 2));
    CHECK_INT(3, knl_getNumberOfTraces(other));
    knl_getTraceSamples(other, &samples, 2);
    CHECK_REAL(4, samples[3]);

    CHECK_INT(1, knl_moveTraceToTrace(other, set, 2, 2));
    CHECK_INT(3, knl_getNumberOfTraces(set));
    knl_getTraceSamples(set, &samples, 2);
    CHECK_REAL(4, samples[3]);
    CHECK_INT(0, knl_moveTraceToTrace(other, set, 2, 2)); /* it is gone from there */

    CHECK_INT(1, knl_transferTraceToTrace(set, other, 2, 3));
    CHECK_INT(4, knl_getNumberOfTraces(other));
    knl_getTraceSamples(other, &samples, 3);
    CHECK_REAL(4, samples[3]);
    CHECK_INT(0, knl_transferTraceToTrace(set, other, 2, 4)); /* it is gone from there */
    CHECK_INT(1, knl_removeTrace(other, 2));                  /* an empty place */
    CHECK_INT(3, knl_getNumberOfTraces(other));
    knl_getTraceSamples(other, &samples, 2);
    CHECK_REAL(4, samples[3]);
    CHECK_INT(0, knl_removeTrace(other, 3));
    CHECK_INT(1, knl_transferTraceToTrace(other, set, 2, 2));

    CHECK_INT(1, knl_clearTraceSet(set));
    CHECK_INT(3, knl_getNumberOfTraces(set));
    CHECK_REAL(0, samples[3]);
    CHECK(knl_getI32TraceAttribute(set, "i32", &i32) == 1 && i32 == 0);
}

/* The flag is read from the first trace and set on the last one. */
static void flag_traces(void)
{
    void* set;

    knl_getWorkTraceBuffer(&set, 6);
    CHECK_INT(0, knl_setDataChannelFlag(set, 5));
    CHECK_INT(5, knl_getDataChannelFlag(set));
    knl_setNumberOfTraces(set, 2);
    CHECK_INT(0, knl_getDataChannelFlag(set));
    CHECK_INT(0, knl_setDataChannelFlag(set, 3));
    CHECK_INT(0, knl_getDataChannelFlag(set));
    CHECK_INT(1, knl_setDataChannelFlag(NULL, 3));
}

static void flag_channel(void)
{
    CHECK_INT(0, knl_isInputTraceBufferFlagged(0, 6));
    CHECK_INT(1, knl_setInputTraceBufferFlag(0, 2));
    CHECK_INT(1, knl_isInputTraceBufferFlagged(0, 6));
    CHECK_INT(0, knl_isInputTraceBufferFlagged(0, 4));
    CHECK_INT(0, knl_isInputTraceBufferFlagged(1, 2));
    CHECK_INT(0, knl_setInputTraceBufferFlag(1, 2));
}

int preprocess_(void)
{
    void* set;
    void* out;

    query_schema();
    find_buffers();
    build_buffers();
    knl_getWorkTraceBuffer(&set, 3);
    write_attributes(set);
    read_attributes(set);
    use_attributes_of_trace_1(set);
    use_lists(set);
    knl_getWorkTraceBuffer(&set, 4);
    change_geometry(set);
    knl_setI32TraceAttribute(set, "i32", 42);
    copy_and_move(set);
    flag_traces();
    flag_channel();
    CHECK(knl_removeWorkTraces() > 0);
    CHECK_INT(0, knl_getNumberOfTraces(set));
    CHECK_INT(0, knl_removeWorkTraces());
    /* Seen in the host's statistics as the module's progress. */
    knl_getOutputTraceBuffer(&out, 0);
    knl_informTotalTracesNumber(out, 4);
    return 0;
}

/* Passes every trace on, three of its four samples, and its number doubled; each trace twice, since
 * the input keeps it for a second call. */
int process_(void)
{
    static int again;
    void* in;
    void* out;
    int number = -7;

    knl_getInputTraceBuffer(&in, 0);
    knl_getOutputTraceBuffer(&out, 0);
    CHECK_INT(1, knl_getNumberOfTraces(in));
    CHECK_INT(1, knl_copyTraceToTrace(in, out, 1, 1));
    CHECK_INT(1, knl_getI32TraceAttribute(in, "number", &number));
    CHECK_INT(1, knl_setI32TraceAttribute(out, "number", 2 * number));
    CHECK_INT(number == 3 ? KNL_END_OF_DATA : 0, knl_getDataChannelFlag(out));
    again = !again;
    if (again) {
        CHECK_INT(1, knl_setInputTraceBufferFlag(0, KNL_KEEP_TRACE));
        knl_setDataChannelFlag(out, 0);
    }
    return 0;
}

int postprocess_(void)
{
    report_checks();
    return 0;
}
