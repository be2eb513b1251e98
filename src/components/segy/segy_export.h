/// @file segy_export.h
///
/// Marks what libVORN_segy.so shows to its users: all other symbols are hidden.
#ifndef SEGY_EXPORT_H
#define SEGY_EXPORT_H

/// An exported name.
#define VORN_SEGY_EXPORT __attribute__((visibility("default")))

#endif
