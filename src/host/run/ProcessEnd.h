/// @file ProcessEnd.h
///
/// Ends of the process that the command has not decided: a module that calls exit() or crashes, a
/// signal. Each is told with the module and the entry point that was running, and leaves neither
/// half an output nor a scratch file.
///
/// A module ends the process in one of three ways, and each is caught where it passes:
/// - exit(), and with it Fortran's `stop` and `error stop`, runs the functions that on_exit() has
///   been given; quick_exit() runs those of at_quick_exit().
/// - _exit() and _Exit() run nothing. The command defines both itself, and the dynamic linker binds
///   the libraries of modules to these. Calls within the C library do not come by here, nor does
///   the plain system call.
/// - pthread_exit() unwinds the stack up to the call of the entry point (RunningModule.cpp).
///
/// Another process as supervisor would also see the plain system call and `kill -9`. It is not
/// used: signals, job control, debuggers, batch systems and measurements of memory would all have
/// to do with two processes, and `kill -9` of the supervisor would leave the job running. What such
/// an end leaves in the scratch directory, the next run removes (ScratchSpace.h).
///
/// The run-time library of a sanitizer, which a module may have been compiled for, ends the process
/// for what it finds; it is asked to call a function before. Its handlers of signals are called
/// after those of the command.
///
/// A child process that a module has forked ends as it would without the command.
#ifndef PROCESSEND_H
#define PROCESSEND_H

namespace host {

/// As long as it lives, ends of this process that the command has not decided are caught: on
/// exits, the process says so and ends with exit code 1. On signals it says so and dies of the
/// signal, as it would otherwise. That holds for crashes, also where the stack of the main thread
/// has overflowed, and for all other signals whose default is to end the process, except where they
/// are ignored or handled by somebody else. Requires: there is one at a time, on the main thread.
class EndWatch
{
public:
    EndWatch();
    ~EndWatch();
    EndWatch(const EndWatch&) = delete;
    EndWatch& operator=(const EndWatch&) = delete;
};

/// Lists outputs that are under their final name and not complete, by calls of `tell`. Called while
/// the process ends, in signal handlers too.
using ListIncomplete = void (*)(const void* context, void (*tell)(const char* path));

/// Sets what lists them from now on; null for nothing. `context` is passed on.
void setListIncomplete(ListIncomplete list, const void* context);

/// Calls `tell` when a module has ended the process, in signal handlers too; null: nothing more is
/// told.
void setTellMore(void (*tell)());

/// For a thread that is about to end the process: waits for ever when another one does so already,
/// so that one of them tells the reason and cleans up.
void claimEnd() noexcept;

/// Says that the module that runs `how` ("ended the thread of the job") and `why` that matters,
/// removes incomplete outputs and the scratch directory, and ends the process with exit code 1.
[[noreturn]] void
endAbandonedProcess(const char* how,
                    const char* why = "modules must report errors by messages") noexcept;

/// Ends the process at once, by the command's own decision: no handlers of anybody run.
[[noreturn]] void endProcess(int code) noexcept;

} // namespace host

#endif
