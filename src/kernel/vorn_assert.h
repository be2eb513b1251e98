/// @file vorn_assert.h
///
/// Programming errors stop the process, in every build type: a kernel that went on after one would
/// write wrong data. The text printed is the failed condition, so that a person can look it up.
#ifndef VORN_ASSERT_H
#define VORN_ASSERT_H

#include <cstdio>
#include <cstdlib>

/// Stops the process, after a line on the standard error, unless `condition` holds.
#define VORN_ASSERT(condition)                                                                     \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "%s:%d: assertion failed: %s\n", __FILE__, __LINE__, #condition); \
            std::abort();                                                                          \
        }                                                                                          \
    } while (false)

#endif
