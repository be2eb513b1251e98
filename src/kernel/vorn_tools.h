/** @file vorn_tools.h
 *
 * Text between Fortran and C. A Fortran text is a field of a known length, padded with blanks and
 * without a terminator; a C text ends at its NUL.
 *
 * Lengths are bytes. A length of 0 or below is an empty field. A null text is an empty text; where
 * there is no place to write to, nothing is written.
 */
#ifndef VORN_TOOLS_H
#define VORN_TOOLS_H

#include "vorn_export.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Fortran to C: writes to `dest` the text of a field without its leading and trailing blanks, and
 * a NUL. NUL bytes within the field are copied like any other.
 *
 * Requires: `dest` has room for `len` + 1 bytes, for 1 byte when `len` is below 0. It may be
 * `source` itself.
 *
 * @param source    the field
 * @param[out] dest the text; "" when the field is blank
 * @param len       length of the field
 */
VORN_EXPORT void f2ccpy(const char* source, char* dest, int len);

/** As f2ccpy, but keeps the leading blanks; a field of blanks alone still gives "". */
VORN_EXPORT void f2ccpy_leadbl(const char* source, char* dest, int len);

/** C to Fortran: fills exactly `len` bytes of `dest` with a text, cut or padded with blanks as
 * needed, without a NUL. The text ends at its first newline, if it has one.
 *
 * Requires: `dest` has room for `len` bytes and does not overlap `source`.
 *
 * @param source    the text
 * @param[out] dest the field; untouched when `len` is 0 or below
 * @param len       length of the field
 */
VORN_EXPORT void c2fcpy(const char* source, char* dest, int len);

/** Whether a field holds a text, apart from leading blanks of the field and trailing blanks of
 * both. Leading blanks of the text count.
 *
 * @param fort  the field
 * @param c     the text
 * @param lfort length of the field
 * @return 1 when they are equal, otherwise 0
 */
VORN_EXPORT int f2ccmp(const char* fort, const char* c, int lfort);

#ifdef __cplusplus
}
#endif

#endif
