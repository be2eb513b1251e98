/** @file segy_c.h
 *
 * Seismic Unix files for modules in C: the reader and the writer of SuReader.h and SuWriter.h, and what goes with
 * them. Readable by C99 and C++ compilers.
 *
 * - **Failure**: a function that can fail takes `error` and its size. On failure it writes one line
 *   there (cut where it does not fit, always with its NUL) that names the file and what to do, and
 *   returns null or 0; on success `error` is untouched.
 * - **Handles** are made by the functions named open, create and parse, and ended by those named
 *   close and free, which accept null. All other functions require a handle.
 * - **Byte order** is 1 for little endian, 0 for big endian.
 */
#ifndef SEGY_C_H
#define SEGY_C_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/** Bytes of a trace header. */
#define VORN_SU_HEADER_BYTES 240

/** @name Header words
 * The words of a Seismic Unix trace header, by number from 0. Floats are read and written as the
 * integer of the same 32 bits.
 */
/** @{ */
int vorn_su_words(void);
const char* vorn_su_word_key(int word);
int vorn_su_word_is_float(int word);
int32_t vorn_su_get_word(const unsigned char* header, int word, int littleEndian);
/** Returns 1 when the value fits the word's width; else 0, and the nearest that fits is written. */
int vorn_su_set_word(unsigned char* header, int word, int littleEndian, int32_t value);
/** @} */

/** 1 on a little-endian machine, 0 on a big-endian one. */
int vorn_su_native_order(void);

/** Which file stands behind a path: equal texts for one file, different ones for two. Writes the
 * empty text, and returns 0, when there is none.
 */
int vorn_su_identity(const char* path, char* text, int size);

/** A path as one text for one place, whether or not there is a file yet. */
void vorn_su_canonical(const char* path, char* text, int size);

/* ---- Selections ---- */

typedef struct vorn_ranges vorn_ranges;

/** A selection of numbers, written as in "1:100:2,200". */
vorn_ranges* vorn_ranges_parse(const char* text, char* error, int size);
int vorn_ranges_contain(const vorn_ranges* ranges, int64_t value);
void vorn_ranges_free(vorn_ranges* ranges);

/* ---- Reading ---- */

typedef struct vorn_su_reader vorn_su_reader;

/** Opens a file. `samples` (per trace) and `littleEndian` state what the reader would find out
 * itself when they are -1.
 */
vorn_su_reader* vorn_su_open(const char* path, int samples, int littleEndian, char* error,
                             int size);
void vorn_su_close(vorn_su_reader* reader);
int vorn_su_little_endian(const vorn_su_reader* reader);
int vorn_su_samples(const vorn_su_reader* reader);  /**< per trace */
int vorn_su_interval(const vorn_su_reader* reader); /**< microseconds; 0 when not stated */
int64_t vorn_su_traces(const vorn_su_reader* reader);
/** What was contradictory or damaged, line by line from 0; null behind the last. */
const char* vorn_su_warning(const vorn_su_reader* reader, int line);
/** Reads trace `index` (from 0): its 240 header bytes in the file's order, and as many floats as a
 * trace has samples; either may be null. 1, or 0 on failure.
 */
int vorn_su_read(vorn_su_reader* reader, int64_t index, unsigned char* header, float* samples,
                 char* error, int size);

/* ---- Writing ---- */

typedef struct vorn_su_writer vorn_su_writer;

/** Creates a file beside `path` that gets that name when it is committed. An existing file is
 * replaced then, unless `overwrite` is 0: it is an error then.
 */
vorn_su_writer* vorn_su_create(const char* path, int overwrite, char* error, int size);
/** Ends the writing; what was not committed is removed. */
void vorn_su_discard(vorn_su_writer* writer);
/** States samples per trace and byte order, before the first trace. 1, or 0 on failure. */
int vorn_su_begin(vorn_su_writer* writer, int samples, int littleEndian, char* error, int size);
/** Appends a trace: 240 header bytes in the file's order and its samples. 1, or 0 on failure. */
int vorn_su_write(vorn_su_writer* writer, const unsigned char* header, const float* samples,
                  char* error, int size);
/** Gives the file its name. 1, or 0 on failure. */
int vorn_su_commit(vorn_su_writer* writer, char* error, int size);
/** Bytes written so far. */
int64_t vorn_su_size(const vorn_su_writer* writer);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif

#endif
