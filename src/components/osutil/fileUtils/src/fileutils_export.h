/** @file fileutils_export.h
 *
 * Marks what a library that contains the file utilities exports of them.
 */
#ifndef FILEUTILS_EXPORT_H
#define FILEUTILS_EXPORT_H

#if defined(__GNUC__)
/** An exported name. */
#define FILEUTILS_EXPORT __attribute__((visibility("default")))
#else
/** An exported name. */
#define FILEUTILS_EXPORT
#endif

#endif
