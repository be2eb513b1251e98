/** @file failing.h
 *
 * What a test tells the library that makes calls of the C library fail. The library is loaded ahead
 * of the C library (LD_PRELOAD) and counts from `vorn_fault_arm` on.
 *
 * Calls are counted by what they do, not by their name: "write" stands for `write`, `pwrite`,
 * `writev` and `pwritev`. `vorn_fault_functions` lists the names.
 */
#ifndef FAILING_H
#define FAILING_H

#ifdef __cplusplus
extern "C" {
#endif

enum
{
    VORN_FAULT_ONCE = 0,    /**< the n-th call fails */
    VORN_FAULT_SHORT = 1,   /**< the n-th call transfers about half of what it is asked for */
    VORN_FAULT_FROM_NOW = 2 /**< the n-th call and all later ones fail, as on a full disk */
};

/** From now on the n-th call (counted from 1; 0 for none) of `function` fails with `error`, and
 * `*happened` becomes 1 when it comes. Returns 0, or -1 for a name that is not known.
 *
 * `happened` lies best in memory shared with whoever started the process, which may crash. */
int vorn_fault_arm(const char* function, long nth, int error, int kind, int* happened);

/** Ends counting and failing. Returns the number of calls since `vorn_fault_arm`. */
long vorn_fault_disarm(void);

/** Between the two, calls are neither counted nor do they fail: what a test does for itself. They
 * may be nested. */
void vorn_fault_pause(void);
void vorn_fault_resume(void);

/** The names that `vorn_fault_arm` takes, ending with a null. */
const char* const* vorn_fault_functions(void);

#ifdef __cplusplus
}
#endif

#endif
