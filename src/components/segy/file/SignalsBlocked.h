/// @file SignalsBlocked.h
///
/// Independent of the kernel.
#ifndef VORN_SIGNALS_BLOCKED_H
#define VORN_SIGNALS_BLOCKED_H

#include <csignal>

namespace VORN {

/// Within its life no signal handler runs on this thread, so that none meets a file or directory
/// that the thread has created and not noted yet.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_BLOCK, &all, &former);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &former, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

private:
    sigset_t former;
};

} // namespace VORN

#endif
