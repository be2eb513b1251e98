/// @file SignalProcess.h
///
/// Child processes of a handler of signals.
#ifndef SIGNALPROCESS_H
#define SIGNALPROCESS_H

#include <features.h>
#include <unistd.h>

namespace host {

/// fork() without the functions that wait for the locks of the heap, which this thread may hold.
inline pid_t forkInHandler()
{
#if __GLIBC_PREREQ(2, 34)
    return _Fork();
#else
    return fork();
#endif
}

} // namespace host

#endif
