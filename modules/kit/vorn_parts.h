/** @file vorn_parts.h
 *
 * For modules that gather something over all traces, when a job runs in parts. A part is a process
 * that runs modules of the job on a range of the traces. Where a run of one process calls
 * postprocess_, a part calls save_: the module writes what it has gathered to a file. A last
 * process, the merge, prepares all modules, calls merge_ for each of these files in the order of
 * the parts, and then postprocess_, which reports on all traces.
 *
 *     static bool save(state* s, vorn_state_writer* file)
 *     {
 *         vorn_put_int64s(file, &s->traces, 1);
 *         return true;
 *     }
 *
 *     static bool merge(state* s, vorn_state_reader* file)
 *     {
 *         int64_t traces;
 *
 *         if (!vorn_get_int64s(file, &traces, 1))
 *             return false;
 *         s->traces += traces;
 *         return true;
 *     }
 *
 *     VORN_MODULE(state, prepare, process, finish, release);
 *     VORN_MODULE_IN_PARTS(state, save, merge);
 *
 * Merging is as if the traces of the part had just been processed. What is reported must not depend
 * on where the parts begin: sums of floats do, sums of integers and exact sums do not.
 *
 * A file of a state is read by the version of the module that has written it, on a machine of the
 * same type. It is complete and undamaged when merge is called: other files are refused before.
 */
#ifndef VORN_PARTS_H
#define VORN_PARTS_H

/* C++ modules include this too; it stays C. */
/* NOLINTBEGIN(modernize-use-nullptr,bugprone-macro-parentheses) */

#include "vorn_kit.h"

#include <errno.h>
#include <stdint.h>
#include <stdlib.h>

/** The layout of the module's state files. A module that changes what it saves defines a higher
 * one before it includes this header. */
#ifndef VORN_STATE_VERSION
#define VORN_STATE_VERSION 1
#endif

/* --------------------------------------------------------------------------- the running part */

/** Job metadata of a part: "K N FIRST TOTAL". */
#define VORN_PART_KEY "vorn.part"

/** The part that this process runs. */
typedef struct vorn_part
{
    int64_t number; /**< from 1 */
    int64_t count;  /**< of all parts */
    int64_t first;  /**< traces that the sources of the job emit before those of this part */
    int64_t total;  /**< traces that they emit in all parts */
} vorn_part;

/** Whether this process runs a part; `part` is all of the job where it does not. */
static inline bool vorn_find_part(vorn_part* part)
{
    const vorn_part all = {1, 1, 0, 0};
    char text[100] = "";
    long long numbers[4];

    if (knl_getMetaDataValue(VORN_SCOPE_JOB, VORN_PART_KEY, text, (int)sizeof text) > 0 &&
        sscanf(text, "%lld %lld %lld %lld", &numbers[0], &numbers[1], &numbers[2], &numbers[3]) ==
            4)
    {
        part->number = numbers[0];
        part->count = numbers[1];
        part->first = numbers[2];
        part->total = numbers[3];
        return true;
    }
    *part = all;
    return false;
}

/** How many traces the sources of the job emit before those of this part; 0 in a run of one
 * process. A module that tells the number of a trace adds it to its own count. */
static inline int64_t vorn_part_first(void)
{
    vorn_part part;

    vorn_find_part(&part);
    return part.first;
}

/** The mark behind a message that all parts may send, and the job shows once: a message argument of
 * these bytes and a key. With a blank and a number N behind the key, the job shows the first N. */
#define VORN_ONCE_MARK "vorn.once "

/* Marks the message that was sent last, in a part. */
static inline void vorn_mark_message(const char* key, int64_t most)
{
    char mark[200];
    vorn_part part;

    if (!vorn_find_part(&part))
        return;
    if (most == 1)
        snprintf(mark, sizeof mark, "%s%s", VORN_ONCE_MARK, key);
    else
        snprintf(mark, sizeof mark, "%s%s %lld", VORN_ONCE_MARK, key, (long long)most);
    knl_addStrMessageArgument(mark);
}

/** Sends a message of which the job shows the first that any of its parts sends under this `key`, a
 * word of the module's own. The module still sends it once in its own run. */
static inline void vorn_message_once(int type, const char* key, const char* format, ...)
    VORN_PRINTF(3, 4);
static inline void vorn_message_once(int type, const char* key, const char* format, ...)
{
    char text[1000];
    va_list values;

    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    knl_sendMessage(type, text);
    vorn_mark_message(key, 1);
}

/** Sends one of at most `most` messages under this `key`: the job shows so many, the first ones of
 * all parts. The module still sends no more in its own run. */
static inline void vorn_message_first(int type, const char* key, int64_t most, const char* format,
                                      ...) VORN_PRINTF(4, 5);
static inline void vorn_message_first(int type, const char* key, int64_t most, const char* format,
                                      ...)
{
    char text[1000];
    va_list values;

    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    knl_sendMessage(type, text);
    vorn_mark_message(key, most);
}

/* ------------------------------------------------------------------------------ files of states */

/* A file is a header and items, all in the byte order of the machine and in multiples of 8 bytes,
 * so that the checksum takes 8 bytes at a time. */

/** The header of a file. */
typedef struct vorn_state_header
{
    char magic[8];    /**< "VORNPART" */
    uint32_t version; /**< VORN_STATE_VERSION of the module */
    uint32_t order;   /**< VORN_STATE_ORDER as the machine writes it */
    uint64_t bytes;   /**< of the whole file */
    uint64_t check;   /**< of all that follows the header, and then of it, with 0 here */
    char module[64];  /**< the library, zero-filled */
} vorn_state_header;

#define VORN_STATE_MAGIC "VORNPART"
#define VORN_STATE_ORDER 0x01020304U

/** What precedes the elements of an item; zeros follow them up to a multiple of 8 bytes. */
typedef struct vorn_state_item
{
    uint32_t kind;  /**< one of VORN_ITEM_... */
    uint32_t size;  /**< bytes of an element */
    uint64_t count; /**< elements */
} vorn_state_item;

/** Kinds of elements. */
enum
{
    VORN_ITEM_BYTES = 1, /**< texts, and structures */
    VORN_ITEM_INTEGERS = 2,
    VORN_ITEM_FLOATS = 3
};

/** The words of a checksum are mixed one by one. */
static inline uint64_t vorn_state_check(uint64_t check, const void* bytes, size_t size)
{
    const unsigned char* from = (const unsigned char*)bytes;
    size_t i;

    for (i = 0; i + 8 <= size; i += 8) {
        uint64_t word;
        memcpy(&word, from + i, 8);
        check = (check ^ word) * UINT64_C(0x9E3779B97F4A7C15);
        check ^= check >> 29;
    }
    return check;
}

/** Bytes of elements in a file, with the zeros behind them. */
static inline uint64_t vorn_state_padded(uint64_t bytes)
{
    return (bytes + 7) / 8 * 8;
}

/* ------------------------------------------------------------------------------------- writing */

/** Writes a file. A failure is noted, and reported when the file is closed. */
typedef struct vorn_state_writer
{
    FILE* file; /**< null where it could not be opened */
    char* path;
    uint64_t bytes;
    uint64_t check;
    int problem; /**< errno of the first failure, else 0 */
} vorn_state_writer;

/* Writes bytes that are part of the checksum; their number is a multiple of 8. */
static inline void vorn_state_write(vorn_state_writer* to, const void* bytes, size_t size)
{
    if (to->problem != 0)
        return;
    errno = 0;
    if (fwrite(bytes, 1, size, to->file) != size) {
        to->problem = errno != 0 ? errno : EIO;
        return;
    }
    to->bytes += size;
    to->check = vorn_state_check(to->check, bytes, size);
}

static inline void vorn_state_write_header(vorn_state_writer* to)
{
    vorn_state_header header;

    memset(&header, 0, sizeof header);
    memcpy(header.magic, VORN_STATE_MAGIC, sizeof header.magic);
    header.version = VORN_STATE_VERSION;
    header.order = VORN_STATE_ORDER;
    header.bytes = to->bytes;
    snprintf(header.module, sizeof header.module, "%s", VORN_MODULE_NAME);
    header.check = vorn_state_check(to->check, &header, sizeof header);
    errno = 0;
    if (to->problem == 0 && fwrite(&header, sizeof header, 1, to->file) != 1)
        to->problem = errno != 0 ? errno : EIO;
}

/** Opens a new file at `path`, which has `length` bytes and needs no NUL. The writer is always
 * closed afterwards. */
static inline void vorn_open_state_writer(vorn_state_writer* to, const char* path, int length)
{
    memset(to, 0, sizeof *to);
    to->path = (char*)malloc((size_t)(length > 0 ? length : 0) + 1);
    if (to->path == NULL) {
        to->problem = ENOMEM;
        return;
    }
    memcpy(to->path, path, (size_t)(length > 0 ? length : 0));
    to->path[length > 0 ? length : 0] = '\0';
    errno = 0;
    to->file = fopen(to->path, "wb");
    if (to->file == NULL)
        to->problem = errno != 0 ? errno : EIO;
    vorn_state_write_header(to); /* written again when its numbers are known */
    to->bytes = sizeof(vorn_state_header);
}

/** Writes `count` elements of `size` bytes. */
static inline void vorn_put_items(vorn_state_writer* to, int kind, size_t size,
                                  const void* elements, uint64_t count)
{
    const unsigned char* bytes = (const unsigned char*)elements;
    const size_t all = size * (size_t)count;
    vorn_state_item item;
    unsigned char rest[8] = {0, 0, 0, 0, 0, 0, 0, 0};

    item.kind = (uint32_t)kind;
    item.size = (uint32_t)size;
    item.count = count;
    vorn_state_write(to, &item, sizeof item);
    if (all >= 8)
        vorn_state_write(to, bytes, all / 8 * 8);
    if (all % 8 == 0)
        return;
    memcpy(rest, bytes + all / 8 * 8, all % 8);
    vorn_state_write(to, rest, sizeof rest);
}

/** @name Numbers and texts
 * Each writes one item.
 * @{ */
static inline void vorn_put_int64s(vorn_state_writer* to, const int64_t* values, uint64_t count)
{
    vorn_put_items(to, VORN_ITEM_INTEGERS, sizeof *values, values, count);
}

static inline void vorn_put_ints(vorn_state_writer* to, const int* values, uint64_t count)
{
    vorn_put_items(to, VORN_ITEM_INTEGERS, sizeof *values, values, count);
}

static inline void vorn_put_doubles(vorn_state_writer* to, const double* values, uint64_t count)
{
    vorn_put_items(to, VORN_ITEM_FLOATS, sizeof *values, values, count);
}

static inline void vorn_put_floats(vorn_state_writer* to, const float* values, uint64_t count)
{
    vorn_put_items(to, VORN_ITEM_FLOATS, sizeof *values, values, count);
}

static inline void vorn_put_bytes(vorn_state_writer* to, const void* bytes, uint64_t count)
{
    vorn_put_items(to, VORN_ITEM_BYTES, 1, bytes, count);
}
/** @} */

/** Closes the file; removes it where `is_complete` is false or something has failed. False after a
 * fatal message, which the former does not send. */
static inline bool vorn_close_state_writer(vorn_state_writer* to, bool is_complete)
{
    bool good;

    errno = 0;
    if (to->file != NULL && to->problem == 0 && fseek(to->file, 0, SEEK_SET) != 0)
        to->problem = errno != 0 ? errno : EIO;
    if (to->file != NULL)
        vorn_state_write_header(to);
    errno = 0;
    if (to->file != NULL && fclose(to->file) != 0 && to->problem == 0)
        to->problem = errno != 0 ? errno : EIO;
    good = is_complete && to->problem == 0;
    if (!good && to->file != NULL)
        remove(to->path);
    if (is_complete && !good)
        vorn_fail("the state of this part cannot be written to %.600s: %.200s; look at the space "
                  "and the rights there, and run the part again",
                  to->path != NULL ? to->path : "its file", strerror(to->problem));
    free(to->path);
    memset(to, 0, sizeof *to);
    return good;
}

/* ------------------------------------------------------------------------------------- reading */

/** Reads a file from its first item to its last. */
typedef struct vorn_state_reader
{
    FILE* file;
    char* path;
    uint64_t left;        /**< bytes behind those that were read */
    vorn_state_item item; /**< the next one, where has_item says so */
    bool has_item;
    bool has_failed; /**< the message has been sent */
} vorn_state_reader;

/** Refuses the file; always false. */
static inline bool vorn_refuse_state(vorn_state_reader* from, const char* problem)
{
    if (!from->has_failed)
        vorn_fail("%.600s is not a state that can be merged: %.300s; run the part again that has "
                  "written it",
                  from->path != NULL ? from->path : "the file", problem);
    from->has_failed = true;
    return false;
}

/* Whether the header is that of a file of this module; its size and checksum come later. */
static inline bool vorn_check_state_header(vorn_state_reader* from, const vorn_state_header* header)
{
    char problem[200];

    if (memcmp(header->magic, VORN_STATE_MAGIC, sizeof header->magic) != 0)
        return vorn_refuse_state(from, "it does not begin as a saved state does");
    if (header->order != VORN_STATE_ORDER)
        return vorn_refuse_state(from, "a machine of another byte order has written it");
    if (strncmp(header->module, VORN_MODULE_NAME, sizeof header->module) != 0) {
        snprintf(problem, sizeof problem, "it is of the module %.64s, and this one is %s",
                 header->module, VORN_MODULE_NAME);
        return vorn_refuse_state(from, problem);
    }
    if (header->version == VORN_STATE_VERSION)
        return true;
    snprintf(problem, sizeof problem,
             "it has version %u, and this version of the module reads version %u", header->version,
             (unsigned)VORN_STATE_VERSION);
    return vorn_refuse_state(from, problem);
}

/* Reads the whole file once, so that nothing of a damaged one is merged. */
static inline bool vorn_check_state_file(vorn_state_reader* from)
{
    vorn_state_header header;
    unsigned char block[8192];
    char problem[200];
    uint64_t bytes = 0;
    uint64_t check = 0;
    uint64_t written;
    size_t got;

    memset(&header, 0, sizeof header);
    bytes = fread(&header, 1, sizeof header, from->file);
    if (bytes < sizeof header)
        return vorn_refuse_state(from, "it is truncated within its header");
    if (!vorn_check_state_header(from, &header))
        return false;
    while ((got = fread(block, 1, sizeof block, from->file)) > 0) {
        check = vorn_state_check(check, block, got);
        bytes += got;
    }
    if (ferror(from->file) != 0)
        return vorn_refuse_state(from, "it cannot be read");
    if (bytes != header.bytes) {
        snprintf(problem, sizeof problem, "it is truncated or too long: %llu bytes of %llu",
                 (unsigned long long)bytes, (unsigned long long)header.bytes);
        return vorn_refuse_state(from, problem);
    }
    written = header.check;
    header.check = 0;
    if (vorn_state_check(check, &header, sizeof header) != written)
        return vorn_refuse_state(from, "it is damaged; its checksum differs");
    if (fseek(from->file, (long)sizeof header, SEEK_SET) != 0)
        return vorn_refuse_state(from, "it cannot be read");
    from->left = bytes - sizeof header;
    return true;
}

/** Opens the file at `path`, which has `length` bytes and needs no NUL, and checks all of it. The
 * reader is always closed afterwards. False after a fatal message. */
static inline bool vorn_open_state_reader(vorn_state_reader* from, const char* path, int length)
{
    memset(from, 0, sizeof *from);
    from->path = (char*)malloc((size_t)(length > 0 ? length : 0) + 1);
    if (from->path == NULL)
        return vorn_refuse_state(from, "there is not enough memory to read it");
    memcpy(from->path, path, (size_t)(length > 0 ? length : 0));
    from->path[length > 0 ? length : 0] = '\0';
    from->file = fopen(from->path, "rb");
    if (from->file == NULL)
        return vorn_refuse_state(from, strerror(errno));
    return vorn_check_state_file(from);
}

/** Gives what the next item has: elements of `kind`, `size` bytes each. False, after a fatal
 * message, where there is none or it has another kind. */
static inline bool vorn_next_item(vorn_state_reader* from, int kind, size_t size, uint64_t* count)
{
    if (from->has_failed)
        return false;
    if (!from->has_item) {
        if (from->left < sizeof from->item ||
            fread(&from->item, sizeof from->item, 1, from->file) != 1)
            return vorn_refuse_state(from, "it ends before the module's state does");
        from->left -= sizeof from->item;
        from->has_item = true;
    }
    if (from->item.kind != (uint32_t)kind || from->item.size != size || size == 0 ||
        from->item.count > from->left / size)
        return vorn_refuse_state(from, "it holds other values than the module has saved");
    *count = from->item.count;
    return true;
}

/** Reads the next item, which has `count` elements; false after a fatal message. */
static inline bool vorn_get_items(vorn_state_reader* from, int kind, size_t size, void* elements,
                                  uint64_t count)
{
    const size_t bytes = size * (size_t)count;
    const size_t zeros = (size_t)vorn_state_padded(bytes) - bytes;
    unsigned char rest[8];
    uint64_t found;

    if (!vorn_next_item(from, kind, size, &found))
        return false;
    if (found != count)
        return vorn_refuse_state(from, "it holds other values than the module has saved");
    from->has_item = false;
    if ((bytes > 0 && fread(elements, 1, bytes, from->file) != bytes) ||
        fread(rest, 1, zeros, from->file) != zeros)
        return vorn_refuse_state(from, "it cannot be read");
    from->left -= bytes + zeros;
    return true;
}

/** @name Numbers and texts
 * Each reads one item of exactly `count` elements; false after a fatal message.
 * @{ */
static inline bool vorn_get_int64s(vorn_state_reader* from, int64_t* values, uint64_t count)
{
    return vorn_get_items(from, VORN_ITEM_INTEGERS, sizeof *values, values, count);
}

static inline bool vorn_get_ints(vorn_state_reader* from, int* values, uint64_t count)
{
    return vorn_get_items(from, VORN_ITEM_INTEGERS, sizeof *values, values, count);
}

static inline bool vorn_get_doubles(vorn_state_reader* from, double* values, uint64_t count)
{
    return vorn_get_items(from, VORN_ITEM_FLOATS, sizeof *values, values, count);
}

static inline bool vorn_get_floats(vorn_state_reader* from, float* values, uint64_t count)
{
    return vorn_get_items(from, VORN_ITEM_FLOATS, sizeof *values, values, count);
}

static inline bool vorn_get_bytes(vorn_state_reader* from, void* bytes, uint64_t count)
{
    return vorn_get_items(from, VORN_ITEM_BYTES, 1, bytes, count);
}
/** @} */

/** Closes the file. False, after a fatal message, where something has failed or was not read. */
static inline bool vorn_close_state_reader(vorn_state_reader* from)
{
    bool good;

    if (!from->has_failed && from->file != NULL && (from->left > 0 || from->has_item))
        vorn_refuse_state(from, "it holds more values than the module has saved");
    good = !from->has_failed && from->file != NULL;
    if (from->file != NULL)
        fclose(from->file);
    free(from->path);
    memset(from, 0, sizeof *from);
    return good;
}

/* -------------------------------------------------------------------------------- entry points */

#ifndef __cplusplus
/* Not for use by modules: the bodies of save_ and merge_. `kept_type` is what vorn_state() points
 * to, `own` makes of such an address, kept, that of the module's state. */
#define VORN_DEFINE_PARTS(kept_type, own, save, merge)                                             \
    __attribute__((visibility("default"))) int save_(const char* path, int length)                 \
    {                                                                                              \
        kept_type* kept = vorn_state();                                                            \
        vorn_state_writer file;                                                                    \
        bool good;                                                                                 \
                                                                                                   \
        if (kept == NULL)                                                                          \
            return 1; /* the module has failed, and has said why */                                \
        vorn_open_state_writer(&file, path, length);                                               \
        good = save(own, &file);                                                                   \
        good = vorn_close_state_writer(&file, good) && good;                                       \
        vorn_release();                                                                            \
        return good ? 0 : 1;                                                                       \
    }                                                                                              \
                                                                                                   \
    __attribute__((visibility("default"))) int merge_(const char* path, int length)                \
    {                                                                                              \
        kept_type* kept = vorn_state();                                                            \
        vorn_state_reader file;                                                                    \
        bool good;                                                                                 \
                                                                                                   \
        if (kept == NULL)                                                                          \
            return 1;                                                                              \
        good = vorn_open_state_reader(&file, path, length) && merge(own, &file);                   \
        if (!good)                                                                                 \
            file.has_failed = true; /* a message has been sent */                                  \
        good = vorn_close_state_reader(&file) && good;                                             \
        if (!good)                                                                                 \
            vorn_release();                                                                        \
        return good ? 0 : 1;                                                                       \
    }                                                                                              \
                                                                                                   \
    struct vorn_module_is_defined

/** Defines save_ and merge_ of a module that VORN_MODULE() defines, which comes before:
 *
 * - `bool save(state*, vorn_state_writer*)`, after the last trace of a part, in place of finish;
 *   sends no messages. The state is released afterwards.
 * - `bool merge(state*, vorn_state_reader*)`, after prepare, for each part in turn; reads what save
 *   has written, to its end. It is followed by finish.
 *
 * One that returns false has said why with vorn_fail(), or a function of this header has.
 */
#define VORN_MODULE_IN_PARTS(state, save, merge) VORN_DEFINE_PARTS(state, kept, save, merge)

/** The same for a module that VORN_STREAM_MODULE() defines. What on_end emits, it emits in each
 * part, from the traces of the part; the merge calls neither on_trace nor on_end. */
#define VORN_STREAM_MODULE_IN_PARTS(state, save, merge)                                            \
    VORN_DEFINE_PARTS(vorn_stream_state, &kept->own, save, merge)
#endif

/* NOLINTEND(modernize-use-nullptr,bugprone-macro-parentheses) */

#endif
