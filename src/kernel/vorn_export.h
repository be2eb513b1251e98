/** @file vorn_export.h
 *
 * Marks what the kernel's library exports; everything else in it stays hidden.
 */
#ifndef VORN_EXPORT_H
#define VORN_EXPORT_H

#if defined(__GNUC__)
/** A name that the library exports. */
#define VORN_EXPORT __attribute__((visibility("default")))
#else
/** A name that the library exports. */
#define VORN_EXPORT
#endif

#endif
