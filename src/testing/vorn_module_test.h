/** @file vorn_module_test.h
 *
 * Tests of a processing module in C and C++ programs: one module runs alone in a real job, on
 * traces from arrays. (Fortran programs `use vorn_module_test`, which has the same functions.) No
 * test framework and no Qt is needed; the functions may be called from the tests of any.
 *
 *     #include "vorn_module_test.h"
 *
 *     int main(void)
 *     {
 *         const float samples[] = {1, 2, 3};
 *         const float expected[] = {2, 4, 6};
 *         vorn_test* test = vorn_test_open("gain");
 *
 *         vorn_test_set_number(test, "factor", 2);
 *         vorn_test_add_trace(test, 0, samples, 3);
 *         vorn_test_set_header(test, 0, 0, "offset", 100);
 *         vorn_test_run(test);
 *         vorn_test_expect_traces(test, 0, 1);
 *         vorn_test_expect_samples(test, 0, 0, expected, 3, 1e-6);
 *         vorn_test_expect_header(test, 0, 0, "offset", 100);
 *         return vorn_test_close(test);
 *     }
 *
 * vorn_add_module_test_program() in CMake builds such a program, links it and makes it a test of
 * ctest.
 *
 * - Inputs, outputs, traces and messages are counted from 0.
 * - Functions that return `int` return 0 on success, unless they return a count.
 * - What is not as it should be (a wrong call, a module that fails, another value than expected) is
 *   kept, with one line of text: vorn_test_problems() counts them, vorn_test_close() prints them
 * and returns 1. Results need not be looked at after each call.
 * - Texts and samples that are handed out belong to the test; they are valid until its next run or
 *   its end.
 * - Only one job runs at a time in a process: the functions are called from one thread. Several
 * tests may be open.
 * - A module that never ends its data never ends here either, and one that ends the process ends
 * the test: the time limit of ctest notices the first, its exit code the second.
 */
#ifndef VORN_MODULE_TEST_H
#define VORN_MODULE_TEST_H

#include <stdint.h>

#if defined(__GNUC__)
#define VORN_MODULE_TEST_EXPORT __attribute__((visibility("default")))
#else
#define VORN_MODULE_TEST_EXPORT
#endif

/* C99: no "using". NOLINTBEGIN(modernize-use-using,modernize-deprecated-headers) */

#ifdef __cplusplus
extern "C" {
#endif

/** One module with its parameters, its input and what came out. */
typedef struct vorn_test vorn_test;

/** Results of vorn_test_run(). */
enum
{
    VORN_TEST_DONE = 0,       /**< the job ran, and nothing of type 3 or 4 was said */
    VORN_TEST_NOT_LOADED = 1, /**< the library or an entry point is missing; nothing ran */
    VORN_TEST_FAILED = 2,     /**< an error or a fatal message came, or an exception */
    VORN_TEST_WRONG_CALL = 3  /**< a call before made no sense; nothing ran */
};

/* ---------------------------------------------------------------------------- begin and end */

/** A test of `module`: a name, such as "gain", for lib`module`.so in the directory of the
 * environment variable VORN_TEST_MODULES, else in VORN_HOME/lib; or the path of a library, with a
 * slash in it. The library is loaded when the job runs. The caller ends the test with
 * vorn_test_close(). Null without memory; all functions accept that. */
VORN_MODULE_TEST_EXPORT vorn_test* vorn_test_open(const char* module);

/** Prints what was not as it should be, one line each, and the module's messages behind, to
 * standard error; nothing where there is no problem. Frees the test.
 * @return 0 where there is no problem, else 1: what `main` returns */
VORN_MODULE_TEST_EXPORT int vorn_test_close(vorn_test* test);

/* ------------------------------------------------------------------------------- parameters */

/** Give the module a parameter, as a job does: in the unit of its manifest. Values are not checked
 * against the manifest (`vorn test` does that), so that a test can give wrong ones. A choice is
 * given as its word, a `bool` as 0 or 1, a `text_list` as texts with line ends between them. A
 * parameter that is given again is replaced. */
/** @{ */
VORN_MODULE_TEST_EXPORT int vorn_test_set_int(vorn_test* test, const char* name, int64_t value);
VORN_MODULE_TEST_EXPORT int vorn_test_set_number(vorn_test* test, const char* name, double value);
VORN_MODULE_TEST_EXPORT int vorn_test_set_text(vorn_test* test, const char* name,
                                               const char* value);
VORN_MODULE_TEST_EXPORT int vorn_test_set_ints(vorn_test* test, const char* name, const int* values,
                                               int count);
VORN_MODULE_TEST_EXPORT int vorn_test_set_numbers(vorn_test* test, const char* name,
                                                  const double* values, int count);
/** @} */

/* ------------------------------------------------------------------------------------ input */

/** How many inputs and outputs the module gets. Without these calls it gets one output, and as many
 * inputs as have traces. A source has 0 inputs, a sink 0 outputs; an input without any trace has to
 * be counted here. 0 to 100. */
/** @{ */
VORN_MODULE_TEST_EXPORT int vorn_test_set_inputs(vorn_test* test, int count);
VORN_MODULE_TEST_EXPORT int vorn_test_set_outputs(vorn_test* test, int count);
/** @} */

/** The sample interval of all inputs in microseconds; 4000 without this call. */
VORN_MODULE_TEST_EXPORT int vorn_test_set_interval(vorn_test* test, int microseconds);

/** Adds a trace to the input `input`, whose samples are copied. All traces of an input get the
 * length of its longest one, with zeros behind.
 * @return the trace's number in this input; -1 for a call that makes no sense */
VORN_MODULE_TEST_EXPORT int vorn_test_add_trace(vorn_test* test, int input, const float* samples,
                                                int count);

/** Set the header word `word` of trace `trace` of an input. Words are 32-bit integers, as those of
 * SEG-Y are, but for those that one of the other functions sets: they hold double precision
 * numbers, and texts of at most 64 bytes. A word is 0 or empty in traces where it is not set.
 * Traces have no other words than those that are set in one of their input. */
/** @{ */
VORN_MODULE_TEST_EXPORT int vorn_test_set_header(vorn_test* test, int input, int trace,
                                                 const char* word, int value);
VORN_MODULE_TEST_EXPORT int vorn_test_set_header_number(vorn_test* test, int input, int trace,
                                                        const char* word, double value);
VORN_MODULE_TEST_EXPORT int vorn_test_set_header_text(vorn_test* test, int input, int trace,
                                                      const char* word, const char* value);
/** @} */

/* -------------------------------------------------------------------------------------- run */

/** Runs the job: all three phases, in this process. It may run again, with the same input or more
 * and with other parameters; each run begins anew. A module that fails is a problem, unless
 * vorn_test_expect_failure() follows.
 * @return VORN_TEST_DONE, or why not; vorn_test_reason() has the text */
VORN_MODULE_TEST_EXPORT int vorn_test_run(vorn_test* test);

/** Why the last run did not end with VORN_TEST_DONE, on one line; empty where it did. */
VORN_MODULE_TEST_EXPORT const char* vorn_test_reason(const vorn_test* test);

/* ----------------------------------------------------------------------------- what came out */

/** How many traces came out of the output `output`, and its sample interval in microseconds; 0 for
 * an output that does not exist. */
/** @{ */
VORN_MODULE_TEST_EXPORT int vorn_test_traces(const vorn_test* test, int output);
VORN_MODULE_TEST_EXPORT int vorn_test_interval(const vorn_test* test, int output);
/** @} */

/** The samples of a trace, and their number at `count` where that is not null. Null, and 0, where
 * the trace does not exist. */
VORN_MODULE_TEST_EXPORT const float* vorn_test_samples(const vorn_test* test, int output, int trace,
                                                       int* count);

/** Read a header word of a trace, converted; `*value` is unchanged when the result is 1: trace or
 * word do not exist. */
/** @{ */
VORN_MODULE_TEST_EXPORT int vorn_test_header(const vorn_test* test, int output, int trace,
                                             const char* word, int* value);
VORN_MODULE_TEST_EXPORT int vorn_test_header_number(const vorn_test* test, int output, int trace,
                                                    const char* word, double* value);
/** @} */

/** A header word as a text; null where trace or word do not exist. */
VORN_MODULE_TEST_EXPORT const char* vorn_test_header_text(const vorn_test* test, int output,
                                                          int trace, const char* word);

/** How many messages the module has sent, and message `number` with its type (0 detail to 4 fatal)
 * at `type` where that is not null; null where the message does not exist. */
/** @{ */
VORN_MODULE_TEST_EXPORT int vorn_test_messages(const vorn_test* test);
VORN_MODULE_TEST_EXPORT const char* vorn_test_message(const vorn_test* test, int number, int* type);
/** @} */

/** Bytes of accounted memory that the module has not freed, its work traces among them. */
VORN_MODULE_TEST_EXPORT int64_t vorn_test_bytes_left(const vorn_test* test);

/** Problems so far, and the text of problem `number`; null where the problem does not exist. */
/** @{ */
VORN_MODULE_TEST_EXPORT int vorn_test_problems(const vorn_test* test);
VORN_MODULE_TEST_EXPORT const char* vorn_test_problem(const vorn_test* test, int number);
/** @} */

/* ----------------------------------------------------------------------------- expectations */

/** Each returns 0 where the last run is as expected; else 1, and there is one problem more.
 *
 * - `_traces`: so many came out of the output, the last one, and no other, marked as the end of the
 *   data
 * - `_samples`: the trace has `count` samples, none differs from `expected` by more than
 * `tolerance`; two that are not numbers are equal
 * - `_header`, `_header_text`: the trace has the word with this value
 * - `_message`: a message of the module contains `part`
 * - `_failure`: the run ended with VORN_TEST_FAILED, for a reason that contains `part`: then that
 * is no problem
 * - `_no_leak`: vorn_test_bytes_left() is 0
 */
/** @{ */
VORN_MODULE_TEST_EXPORT int vorn_test_expect_traces(vorn_test* test, int output, int count);
VORN_MODULE_TEST_EXPORT int vorn_test_expect_samples(vorn_test* test, int output, int trace,
                                                     const float* expected, int count,
                                                     double tolerance);
VORN_MODULE_TEST_EXPORT int vorn_test_expect_header(vorn_test* test, int output, int trace,
                                                    const char* word, double value);
VORN_MODULE_TEST_EXPORT int vorn_test_expect_header_text(vorn_test* test, int output, int trace,
                                                         const char* word, const char* value);
VORN_MODULE_TEST_EXPORT int vorn_test_expect_message(vorn_test* test, const char* part);
VORN_MODULE_TEST_EXPORT int vorn_test_expect_failure(vorn_test* test, const char* part);
VORN_MODULE_TEST_EXPORT int vorn_test_expect_no_leak(vorn_test* test);
/** @} */

#ifdef __cplusplus
}
#endif

/* NOLINTEND(modernize-use-using,modernize-deprecated-headers) */

#endif
