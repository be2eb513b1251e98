/** @file metadata_export.h
 *
 * Marks what a library that contains the metadata store exports of them.
 */
#ifndef METADATA_EXPORT_H
#define METADATA_EXPORT_H

#if defined(__GNUC__)
/** An exported name. */
#define METADATA_EXPORT __attribute__((visibility("default")))
#else
/** An exported name. */
#define METADATA_EXPORT
#endif

#endif
