/** @file checks.h
 *
 * Checks for test modules in C. One that fails is a message of type 3 for the host. The good ones
 * are counted, and report_checks says how many they were, so that a test notices those that were
 * never reached.
 */
#ifndef CHECKS_H
#define CHECKS_H

#include "knl.h"

#include <stdio.h>
#include <string.h>

static int good_checks;

static inline void check(int good, const char* what, int line)
{
    char text[600];

    if (good) {
        ++good_checks;
        return;
    }
    snprintf(text, sizeof text, "line %d: %s", line, what);
    knl_sendMessage(3, text);
}

static inline void check_int(long expected, long actual, const char* what, int line)
{
    char text[512];

    snprintf(text, sizeof text, "%s is %ld, expected %ld", what, actual, expected);
    check(actual == expected, text, line);
}

static inline void check_real(double expected, double actual, const char* what, int line)
{
    char text[512];

    snprintf(text, sizeof text, "%s is %.17g, expected %.17g", what, actual, expected);
    check(actual == expected, text, line);
}

static inline void check_text(const char* expected, const char* actual, const char* what, int line)
{
    char text[512];

    snprintf(text, sizeof text, "%s is \"%.200s\", expected \"%.200s\"", what, actual, expected);
    check(strcmp(actual, expected) == 0, text, line);
}

#define CHECK(condition) check(condition, #condition, __LINE__)
#define CHECK_INT(expected, actual) check_int(expected, (long)(actual), #actual, __LINE__)
#define CHECK_REAL(expected, actual) check_real(expected, (double)(actual), #actual, __LINE__)
#define CHECK_TEXT(expected, actual) check_text(expected, actual, #actual, __LINE__)

/** To be called last, in postprocess_. */
static inline void report_checks(void)
{
    char text[64];

    snprintf(text, sizeof text, "%d checks passed", good_checks);
    knl_sendMessage(1, text);
    good_checks = 0;
}

#endif
