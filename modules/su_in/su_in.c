/* su_in: reads a Seismic Unix file, one trace per call. */
#include "knl.h"
#include "su/segy_c.h"

#include <math.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

enum
{
    DETAIL = 0,
    INFORMATION = 1,
    WARNING = 2,
    FATAL = 4,
    END_OF_DATA = 3, /* flag of an output: no more traces will come */
    JOB = 0,         /* scopes of metadata */
    MODULE = 1,
    TEXT_ROOM = 4096, /* parameters are copied without a look at their length */
    LINE_ROOM = 2 * TEXT_ROOM,
    MOST_WORDS = 128,
    WORDS_NAMED = 12 /* at most in a warning */
};

/* What the module keeps from one call to the next. It is a resource of the module and no global
 * variable: a job may read several files. */
typedef struct state
{
    vorn_su_reader* reader;
    vorn_ranges* traces; /* null: all */
    int64_t total;       /* traces to emit */
    int64_t emitted;
    int64_t next; /* trace of the file to look at next, from 0 */
    int interval; /* microseconds */
    /* Words that the job's schema knows, and their values in the work buffer: most stay the same
     * from trace to trace, and only those that change are written there. */
    int word[MOST_WORDS];
    int32_t value[MOST_WORDS];
    int words;
    /* Words that the schema lacks, and in how many traces they have a value. */
    int unread[MOST_WORDS];
    int64_t unreadTraces[MOST_WORDS];
    int unreadWords;
    unsigned char header[VORN_SU_HEADER_BYTES];
} state;

typedef struct settings
{
    char file[TEXT_ROOM];
    char traces[TEXT_ROOM];
    int samples;  /* -1: as the file says */
    int endian;   /* likewise; else 0 or 1 */
    int interval; /* microseconds; 0: as the file says */
} settings;

static state* find_state(void);
static void end_state(void);
static void fail(const char* text);
static int read_settings(settings* read, char* error);
static int open_file(state* kept, const settings* read, char* error);
static void announce(const state* kept, const settings* read);
static int describe_output(state* kept);
static int emit_trace(state* kept, void* out, char* error);
static void warn_of_unread_words(const state* kept);

/* ---- Entry points ---- */

int preprocess_(void)
{
    char error[LINE_ROOM];
    settings* read = knl_allocateResource((int)sizeof *read);
    state* kept = knl_allocateResource((int)sizeof *kept);

    if (read != NULL && kept != NULL) {
        knl_setModuleResource("STATE", kept);
        if (!read_settings(read, error) || !open_file(kept, read, error)) {
            fail(error);
        } else if (!describe_output(kept)) {
            fail("the module has no output; connect one");
        } else {
            announce(kept, read);
        }
    } else {
        knl_freeResource(kept); /* the kernel has said that there is no memory */
    }
    knl_freeResource(read);
    return 0;
}

int process_(void)
{
    char error[LINE_ROOM];
    state* kept = find_state();
    void* out;

    if (knl_getOutputTraceBuffer(&out, 0) != 0)
        return 0;
    if (kept != NULL && kept->emitted < kept->total && !emit_trace(kept, out, error))
        fail(error);
    kept = find_state();
    if (kept == NULL || kept->emitted == kept->total)
        knl_setDataChannelFlag(out, END_OF_DATA); /* on the last trace, or on the empty channel */
    return 0;
}

int postprocess_(void)
{
    const state* kept = find_state();

    if (kept != NULL)
        warn_of_unread_words(kept);
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

static void end_state(void)
{
    state* kept = find_state();

    if (kept == NULL)
        return;
    vorn_su_close(kept->reader);
    vorn_ranges_free(kept->traces);
    knl_freeResource(kept);
    knl_setModuleResource("STATE", NULL);
}

/* Nothing is read any more, and no output of the job becomes a file. */
static void fail(const char* text)
{
    char failure[LINE_ROOM + 16];

    snprintf(failure, sizeof failure, "su_in: %s", text);
    knl_sendMessage(FATAL, text);
    knl_setMetaDataValue(JOB, "vorn.failed", failure);
    end_state();
}

/* ---- Parameters ---- */

static int read_endian(settings* read, char* error)
{
    char order[TEXT_ROOM];

    if (knl_getStrModuleParameter("endian", order) == 0)
        return 1;
    if (strcmp(order, "big") != 0 && strcmp(order, "little") != 0) {
        snprintf(error, LINE_ROOM, "endian is \"%.100s\"; give big or little", order);
        return 0;
    }
    read->endian = strcmp(order, "little") == 0;
    return 1;
}

static int read_interval(settings* read, char* error)
{
    double seconds;

    if (knl_getF64ModuleParameter("interval", &seconds) == 0)
        return 1;
    if (!(seconds >= 0.5e-6 && seconds <= 2000)) {
        snprintf(error, LINE_ROOM,
                 "interval is %g s; give a time from 1 microsecond to 2000 seconds", seconds);
        return 0;
    }
    read->interval = (int)lround(seconds * 1e6);
    return 1;
}

/* 1, or 0 and a text in `error`, as all below. */
static int read_settings(settings* read, char* error)
{
    read->samples = -1;
    read->endian = -1;
    if (knl_getStrModuleParameter("file", read->file) == 0 || read->file[0] == '\0') {
        snprintf(error, LINE_ROOM, "file is missing; give the path of a Seismic Unix file");
        return 0;
    }
    knl_getStrModuleParameter("traces", read->traces);
    if (knl_getI32ModuleParameter("samples", &read->samples) == 1 && read->samples < 1) {
        snprintf(error, LINE_ROOM, "samples is %d; give the samples per trace, 1 or more",
                 read->samples);
        return 0;
    }
    return read_endian(read, error) && read_interval(read, error);
}

/* ---- Before the first trace ---- */

static int select_traces(state* kept, const settings* read, char* error)
{
    char why[LINE_ROOM];
    int64_t i;

    kept->traces = vorn_ranges_parse(read->traces, why, sizeof why);
    if (kept->traces == NULL) {
        snprintf(error, LINE_ROOM, "traces: %.4000s", why);
        return 0;
    }
    kept->total = 0;
    for (i = 0; i < vorn_su_traces(kept->reader); ++i)
        kept->total += vorn_ranges_contain(kept->traces, i + 1);
    if (kept->total == 0) {
        snprintf(error, LINE_ROOM, "%s: none of its %lld traces is selected by traces %.1000s",
                 read->file, (long long)vorn_su_traces(kept->reader), read->traces);
        return 0;
    }
    return 1;
}

static int open_file(state* kept, const settings* read, char* error)
{
    kept->reader = vorn_su_open(read->file, read->samples, read->endian, error, LINE_ROOM);
    if (kept->reader == NULL)
        return 0;
    kept->interval = read->interval > 0 ? read->interval : vorn_su_interval(kept->reader);
    kept->total = vorn_su_traces(kept->reader);
    return read->traces[0] == '\0' || select_traces(kept, read, error);
}

/* Messages, and what modules further on may want to know of the file. */
static void announce(const state* kept, const settings* read)
{
    char text[LINE_ROOM];
    char identity[64] = "";
    char key[128];
    int i;

    snprintf(text, sizeof text,
             "%s: %lld traces of %d samples, interval %g ms, Seismic Unix, %s endian%s%.1000s",
             read->file, (long long)vorn_su_traces(kept->reader), vorn_su_samples(kept->reader),
             kept->interval / 1000.0, vorn_su_little_endian(kept->reader) ? "little" : "big",
             kept->traces != NULL ? "; read are traces " : "", read->traces);
    knl_sendMessage(INFORMATION, text);
    for (i = 0; vorn_su_warning(kept->reader, i) != NULL; ++i) {
        snprintf(text, sizeof text, "%s: %s", read->file, vorn_su_warning(kept->reader, i));
        knl_sendMessage(WARNING, text);
    }
    if (kept->interval == 0) {
        snprintf(text, sizeof text, "%s: no header states a sample interval; state `interval`",
                 read->file);
        knl_sendMessage(WARNING, text);
    }

    knl_setMetaDataValue(MODULE, "segy.file", read->file);
    knl_setMetaDataValue(MODULE, "segy.format", "su");
    snprintf(text, sizeof text, "%d", kept->interval);
    knl_setMetaDataValue(MODULE, "segy.interval", text);
    snprintf(text, sizeof text, "%d", vorn_su_samples(kept->reader));
    knl_setMetaDataValue(MODULE, "segy.samples", text);
    /* Modules that write look here, wherever in the job they are: they must not replace the file.
     */
    vorn_su_identity(read->file, identity, sizeof identity);
    snprintf(key, sizeof key, "segy.reads.%s", identity);
    knl_setMetaDataValue(JOB, key, read->file);
}

static int is_known(int word)
{
    int type = -1;

    return knl_getTraceAttributeType(vorn_su_word_key(word), &type) == 0 &&
           (!vorn_su_word_is_float(word) || type == 4 || type == 5);
}

/* Whether the traces say themselves what the word would. */
static int is_of_the_traces(int word)
{
    return strcmp(vorn_su_word_key(word), "ns") == 0 || strcmp(vorn_su_word_key(word), "dt") == 0;
}

/* 0 when there is no output. The work buffer has traces of one sample: only the header is used. */
static int describe_output(state* kept)
{
    void* out;
    char text[128];
    int i;

    if (knl_getOutputTraceBuffer(&out, 0) != 0)
        return 0;
    knl_bldOutputTraceBuffer(0, vorn_su_samples(kept->reader), kept->interval, NULL);
    for (i = 0; i < vorn_su_words() && i < MOST_WORDS; ++i) {
        if (!is_known(i)) {
            if (!is_of_the_traces(i))
                kept->unread[kept->unreadWords++] = i;
            continue;
        }
        knl_defineTraceAttribute(out, vorn_su_word_key(i));
        kept->word[kept->words] = i;
        kept->value[kept->words] = 0;
        ++kept->words;
    }
    snprintf(text, sizeof text,
             "the job's schema knows %d of the %d trace header words; others are not read",
             kept->words, vorn_su_words());
    knl_sendMessage(DETAIL, text);
    knl_bldWorkTraceBuffer(0, 1, kept->interval, 1, out);
    knl_informTotalTracesNumber(out, kept->total);
    return 1;
}

/* ---- Trace by trace ---- */

static void set_word(void* work, int word, int32_t bits)
{
    if (vorn_su_word_is_float(word)) {
        float value;
        memcpy(&value, &bits, sizeof value);
        knl_setF32TraceAttribute(work, vorn_su_word_key(word), value);
    } else {
        knl_setI32TraceAttribute(work, vorn_su_word_key(word), bits);
    }
}

/* The words for length and interval say what the trace has now: the header may have been wrong. */
static int32_t word_value(const state* kept, int word)
{
    const char* key = vorn_su_word_key(word);

    if (strcmp(key, "ns") == 0)
        return vorn_su_samples(kept->reader);
    if (strcmp(key, "dt") == 0)
        return kept->interval;
    return vorn_su_get_word(kept->header, word, vorn_su_little_endian(kept->reader));
}

static void update_words(state* kept, void* work)
{
    int i;

    for (i = 0; i < kept->words; ++i) {
        const int32_t value = word_value(kept, kept->word[i]);
        if (value == kept->value[i])
            continue;
        set_word(work, kept->word[i], value);
        kept->value[i] = value;
    }
}

static void look_at_unread_words(state* kept)
{
    const int little = vorn_su_little_endian(kept->reader);
    int i;

    for (i = 0; i < kept->unreadWords; ++i)
        kept->unreadTraces[i] += vorn_su_get_word(kept->header, kept->unread[i], little) != 0;
}

/* What can fail comes before there is a trace: one that could not be read must not reach anybody.
 */
static int emit_trace(state* kept, void* out, char* error)
{
    void* work;
    float* samples;
    int number;

    while (kept->traces != NULL && !vorn_ranges_contain(kept->traces, kept->next + 1))
        ++kept->next;
    if (!vorn_su_read(kept->reader, kept->next, kept->header, NULL, error, LINE_ROOM))
        return 0;
    knl_getWorkTraceBuffer(&work, 0);
    update_words(kept, work);
    look_at_unread_words(kept);
    number = knl_getNumberOfTraces(out);
    knl_mcopyTraceToTrace(work, out, 1, 0, 0, number);
    if (knl_getTraceSamples(out, &samples, number) == 0) {
        snprintf(error, LINE_ROOM, "there is no memory for trace %lld", (long long)kept->next + 1);
        return 0;
    }
    vorn_su_read(kept->reader, kept->next, NULL, samples, error, LINE_ROOM);
    ++kept->next;
    ++kept->emitted;
    return 1;
}

/* ---- In the end ---- */

static void warn_of_unread_words(const state* kept)
{
    char file[TEXT_ROOM] = "";
    char text[LINE_ROOM];
    int named = 0;
    int more = 0;
    size_t used;
    int i;

    knl_getStrModuleParameter("file", file);
    snprintf(
        text, sizeof text,
        "%s: header words that have values are not read, since the job's schema lacks them:", file);
    for (i = 0; i < kept->unreadWords; ++i) {
        const int word = kept->unread[i];
        if (kept->unreadTraces[i] == 0)
            continue;
        if (named == WORDS_NAMED) {
            ++more;
            continue;
        }
        used = strlen(text);
        snprintf(text + used, sizeof text - used, "%s %s (%lld trace%s)", named++ > 0 ? "," : "",
                 vorn_su_word_key(word), (long long)kept->unreadTraces[i],
                 kept->unreadTraces[i] == 1 ? "" : "s");
    }
    if (named == 0)
        return;
    used = strlen(text);
    if (more > 0)
        used += (size_t)snprintf(text + used, sizeof text - used, " and %d more", more);
    snprintf(text + used, sizeof text - used, "; add those that matter to `schema`");
    knl_sendMessage(WARNING, text);
}
