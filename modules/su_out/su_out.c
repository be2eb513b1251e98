/* su_out: writes a Seismic Unix file, one trace per call.
 *
 * The temporary file is made before the job runs, so that an output that cannot be written is known
 * at once; the final name comes last. */
#include "knl.h"
#include "su/segy_c.h"

#include <stddef.h>
#include <stdio.h>
#include <string.h>

enum
{
    INFORMATION = 1,
    WARNING = 2,
    ERROR = 3,
    FATAL = 4,
    JOB = 0,          /* scope of metadata */
    TEXT_ROOM = 4096, /* parameters are copied without a look at their length */
    LINE_ROOM = 2 * TEXT_ROOM,
    MOST_WORDS = 128
};

/* Words of SEG-Y at places where Seismic Unix has others, or none. */
static const char* const homelessWords[] = {
    "cdpx",   "cdpy",  "iline", "xline", "sp",   "scalsp", "tunit", "tdcm",   "tdce",  "tdunit",
    "triden", "sctrh", "stype", "sedm",  "sede", "smm",    "sme",   "smunit", "unas1", "unas2"};

enum
{
    HOMELESS_WORDS = sizeof homelessWords / sizeof homelessWords[0]
};

/* What the module keeps from one call to the next. It is a resource of the module and no global
 * variable: a job may write several files. */
typedef struct state
{
    char file[TEXT_ROOM];
    int overwrite;
    int littleEndian;
    vorn_su_writer* writer;
    int samples; /* per trace; 0 before the first trace */
    int64_t traces;
    char present[MOST_WORDS];     /* the input has the attribute of that word */
    char clamped[MOST_WORDS];     /* a value was too large for that word, and this was said */
    int homeless[HOMELESS_WORDS]; /* homeless words that the first trace has */
    int homelessCount;
    int64_t leftOut[HOMELESS_WORDS]; /* traces with a value, by homeless word */
} state;

static state* find_state(void);
static void end_state(void);
static void fail(const char* text);
static int read_settings(state* kept, char* error);
static int refuse_inputs(const state* kept, char* error);
static int refuse_second_writer(const state* kept, char* error);
static int write_trace(state* kept, void* in, char* error);
static int finish(state* kept, char* error);

/* ---- Entry points ---- */

int preprocess_(void)
{
    char error[LINE_ROOM];
    void* in;
    state* kept = knl_allocateResource((int)sizeof *kept);

    if (kept == NULL)
        return 0; /* the kernel has said so */
    knl_setModuleResource("STATE", kept);
    if (knl_getInputTraceBuffer(&in, 0) != 0) {
        fail("the module has no input; connect one");
    } else if (!read_settings(kept, error) || !refuse_inputs(kept, error) ||
               !refuse_second_writer(kept, error))
    {
        fail(error);
    } else {
        kept->writer = vorn_su_create(kept->file, kept->overwrite, error, sizeof error);
        if (kept->writer == NULL)
            fail(error);
    }
    return 0;
}

int process_(void)
{
    char error[LINE_ROOM];
    state* kept = find_state();
    void* in;

    if (kept != NULL && knl_getInputTraceBuffer(&in, 0) == 0 && !write_trace(kept, in, error))
        fail(error);
    return 0;
}

int postprocess_(void)
{
    char error[LINE_ROOM];
    state* kept = find_state();

    if (kept != NULL && !finish(kept, error))
        fail(error);
    end_state();
    return 0;
}

/* ---- From one call to the next ---- */

static state* find_state(void)
{
    void* kept = NULL;

    knl_getModuleResource("STATE", &kept);
    return kept;
}

/* What has not got its final name is removed. */
static void end_state(void)
{
    state* kept = find_state();

    if (kept == NULL)
        return;
    vorn_su_discard(kept->writer);
    knl_freeResource(kept);
    knl_setModuleResource("STATE", NULL);
}

/* From now on the module does nothing, and no output of the job becomes a file. */
static void fail(const char* text)
{
    char failure[LINE_ROOM + 16];

    end_state(); /* first, since it needs no memory */
    snprintf(failure, sizeof failure, "su_out: %s", text);
    knl_sendMessage(FATAL, text);
    knl_setMetaDataValue(JOB, "vorn.failed", failure);
}

/* ---- Before the first trace ---- */

/* 1, or 0 and a text in `error`, as all below. */
static int read_settings(state* kept, char* error)
{
    char order[TEXT_ROOM] = "native";

    if (knl_getStrModuleParameter("file", kept->file) == 0 || kept->file[0] == '\0') {
        snprintf(error, LINE_ROOM, "file is missing; give the path of the file to be written");
        return 0;
    }
    knl_getStrModuleParameter("endian", order);
    if (strcmp(order, "native") == 0) {
        kept->littleEndian = vorn_su_native_order();
    } else if (strcmp(order, "big") == 0 || strcmp(order, "little") == 0) {
        kept->littleEndian = strcmp(order, "little") == 0;
    } else {
        snprintf(error, LINE_ROOM, "endian is \"%.100s\"; give native, big or little", order);
        return 0;
    }
    kept->overwrite = 1;
    knl_getI32ModuleParameter("overwrite", &kept->overwrite);
    return 1;
}

/* What a module reads may be announced after this one has started; hence also before the end. */
static int refuse_inputs(const state* kept, char* error)
{
    char identity[64];
    char key[128];
    char reader[8];

    if (!vorn_su_identity(kept->file, identity, sizeof identity))
        return 1;
    snprintf(key, sizeof key, "segy.reads.%s", identity);
    if (knl_getMetaDataValue(JOB, key, reader, sizeof reader) == 0)
        return 1;
    snprintf(error, LINE_ROOM,
             "%s: is read by this job and would be replaced; write to another file", kept->file);
    return 0;
}

static int refuse_second_writer(const state* kept, char* error)
{
    char path[TEXT_ROOM];
    char key[LINE_ROOM];
    char writer[256];

    vorn_su_canonical(kept->file, path, sizeof path);
    snprintf(key, sizeof key, "segy.writes.%s", path);
    if (knl_getMetaDataValue(JOB, key, writer, sizeof writer) != 0) {
        snprintf(error, LINE_ROOM, "%s: is written by module \"%s\", too; write to another file",
                 kept->file, writer);
        return 0;
    }
    knl_setMetaDataValue(JOB, key, "su_out");
    return 1;
}

/* ---- Trace by trace ---- */

static void find_homeless_words(state* kept, void* in)
{
    double value;
    int i;

    for (i = 0; i < HOMELESS_WORDS; ++i) {
        if (knl_getF64TraceAttribute(in, homelessWords[i], &value) == 1)
            kept->homeless[kept->homelessCount++] = i;
    }
}

static int begin(state* kept, void* in, char* error)
{
    find_homeless_words(kept, in);
    kept->samples = knl_getTraceLength(in);
    return vorn_su_begin(kept->writer, kept->samples, kept->littleEndian, error, LINE_ROOM);
}

/* The attribute as an integer of 32 bits; of a float word, its bits. */
static int32_t word_value(void* in, int word)
{
    const char* key = vorn_su_word_key(word);
    float number = 0;
    int32_t value = 0;

    if (vorn_su_word_is_float(word)) {
        knl_getF32TraceAttribute(in, key, &number);
        memcpy(&value, &number, sizeof value);
    } else {
        knl_getI32TraceAttribute(in, key, &value);
    }
    return value;
}

static void say_clamped(state* kept, const unsigned char* header, int word, int32_t value)
{
    char text[LINE_ROOM];

    if (kept->clamped[word])
        return;
    kept->clamped[word] = 1;
    snprintf(text, sizeof text,
             "%s: %s of trace %lld is %d, more than 16 bits hold; it is written as %d, and others "
             "likewise",
             kept->file, vorn_su_word_key(word), (long long)kept->traces + 1, (int)value,
             (int)vorn_su_get_word(header, word, kept->littleEndian));
    knl_sendMessage(WARNING, text);
}

/* What a header needs and the input does not know. */
static int32_t substitute(const state* kept, void* in, const char* key)
{
    if (strcmp(key, "tracl") == 0 || strcmp(key, "tracr") == 0)
        return (int32_t)(kept->traces + 1);
    if (strcmp(key, "trid") == 0)
        return 1;
    return strcmp(key, "dt") == 0 ? knl_getTraceSampleInterval(in) : 0;
}

/* The number of samples is the writer's, the interval that of the traces as they are now. */
static void fill_header(state* kept, void* in, unsigned char* header)
{
    int word;

    memset(header, 0, VORN_SU_HEADER_BYTES);
    for (word = 0; word < vorn_su_words() && word < MOST_WORDS; ++word) {
        const char* key = vorn_su_word_key(word);
        int32_t value;
        if (strcmp(key, "ns") == 0)
            continue;
        if (!kept->present[word] && strcmp(key, "dt") != 0) {
            int probe;
            kept->present[word] = (char)knl_getI32TraceAttribute(in, key, &probe);
        }
        value = kept->present[word] ? word_value(in, word) : substitute(kept, in, key);
        if (!vorn_su_set_word(header, word, kept->littleEndian, value))
            say_clamped(kept, header, word, value);
    }
}

static void look_at_homeless_words(state* kept, void* in)
{
    int i;

    for (i = 0; i < kept->homelessCount; ++i) {
        const int word = kept->homeless[i];
        double value = 0;
        knl_getF64TraceAttribute(in, homelessWords[word], &value);
        kept->leftOut[word] += value != 0;
    }
}

static int write_trace(state* kept, void* in, char* error)
{
    unsigned char header[VORN_SU_HEADER_BYTES];
    float* samples;

    if (kept->samples == 0 && !begin(kept, in, error))
        return 0;
    if (knl_getTraceLength(in) != kept->samples) {
        snprintf(error, LINE_ROOM,
                 "%s: trace %lld has %d samples, those before %d; all traces of the file must have "
                 "one length",
                 kept->file, (long long)kept->traces + 1, knl_getTraceLength(in), kept->samples);
        return 0;
    }
    if (knl_getTraceSamples(in, &samples, 0) == 0) {
        snprintf(error, LINE_ROOM, "%s: trace %lld has no samples; there was no memory for it",
                 kept->file, (long long)kept->traces + 1);
        return 0;
    }
    fill_header(kept, in, header);
    look_at_homeless_words(kept, in);
    if (!vorn_su_write(kept->writer, header, samples, error, LINE_ROOM))
        return 0;
    ++kept->traces;
    return 1;
}

/* ---- After the last trace ---- */

static void warn_of_homeless_words(const state* kept)
{
    char text[LINE_ROOM];
    int named = 0;
    int i;

    snprintf(text, sizeof text,
             "%s: a Seismic Unix header has no place for these words, whose values are left out:",
             kept->file);
    for (i = 0; i < HOMELESS_WORDS; ++i) {
        const size_t used = strlen(text);
        if (kept->leftOut[i] > 0)
            snprintf(text + used, sizeof text - used, "%s %s (%lld trace%s)",
                     named++ > 0 ? "," : "", homelessWords[i], (long long)kept->leftOut[i],
                     kept->leftOut[i] == 1 ? "" : "s");
    }
    if (named > 0)
        knl_sendMessage(WARNING, text);
}

static int publish(state* kept, char* error)
{
    char text[LINE_ROOM];
    int64_t bytes;

    if (!refuse_inputs(kept, error))
        return 0;
    if (!vorn_su_commit(kept->writer, error, LINE_ROOM))
        return 0;
    bytes = vorn_su_size(kept->writer);
    snprintf(text, sizeof text,
             "%s: %lld traces of %d samples written, %lld bytes, Seismic Unix, %s endian",
             kept->file, (long long)kept->traces, kept->samples, (long long)bytes,
             kept->littleEndian ? "little" : "big");
    knl_sendMessage(INFORMATION, text);
    warn_of_homeless_words(kept);
    return 1;
}

static int finish(state* kept, char* error)
{
    char failure[TEXT_ROOM / 2];
    char text[LINE_ROOM];

    if (knl_getMetaDataValue(JOB, "vorn.failed", failure, sizeof failure) != 0) {
        snprintf(text, sizeof text, "%s: is not written, since the job failed (%s)", kept->file,
                 failure);
        knl_sendMessage(ERROR, text);
        return 1;
    }
    if (kept->traces == 0) {
        snprintf(text, sizeof text, "%s: is not written, since no trace came", kept->file);
        knl_sendMessage(ERROR, text);
        return 1;
    }
    return publish(kept, error);
}
