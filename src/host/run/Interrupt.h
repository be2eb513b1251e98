/// @file Interrupt.h
///
/// Ends of a job that nobody planned: Ctrl-C, and modules that crash.
#ifndef INTERRUPT_H
#define INTERRUPT_H

#include <csignal>
#include <functional>
#include <thread>

namespace host {

class ScratchSpace;

/// As long as it lives, SIGINT, SIGTERM and SIGHUP wait: for an InterruptWatch, or for its end.
/// Made before what the watch cleans up, so that no signal comes when that exists and the watch
/// does not.
class SignalsHeld
{
public:
    SignalsHeld();
    ~SignalsHeld();
    SignalsHeld(const SignalsHeld&) = delete;
    SignalsHeld& operator=(const SignalsHeld&) = delete;

private:
    sigset_t former;
};

/// As long as it lives, SIGINT, SIGTERM and SIGHUP do not end the process at once: a thread of its
/// own waits for them, calls `clean` with the signal's number, and ends the process with 128 and
/// that number (130 for Ctrl-C), whatever the other threads are doing. A second signal ends it
/// without further ado. Requires: made before other threads, which inherit that the signals are
/// blocked.
class InterruptWatch
{
public:
    explicit InterruptWatch(std::function<void(int signal)> clean);
    ~InterruptWatch();
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

private:
    void run();

    std::function<void(int)> clean;
    SignalsHeld held;
    int signalDescriptor = -1; ///< on which the signals arrive
    int endDescriptor = -1;    ///< on which the destructor says that it is over
    std::thread thread;
};

/// As long as it lives, a signal that a crash raises (SIGSEGV, SIGABRT, …) first tells which module
/// was running and removes the scratch directory and the temporary files of outputs. The process
/// then dies of the signal, as without it.
class CrashWatch
{
public:
    /// `scratch` must live longer.
    explicit CrashWatch(const ScratchSpace& scratch);
    ~CrashWatch();
    CrashWatch(const CrashWatch&) = delete;
    CrashWatch& operator=(const CrashWatch&) = delete;
};

} // namespace host

#endif
