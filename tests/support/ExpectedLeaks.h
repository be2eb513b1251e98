/// @file ExpectedLeaks.h
///
/// For tests of jobs that end with traces in their channels.
#ifndef EXPECTEDLEAKS_H
#define EXPECTEDLEAKS_H

#ifdef __SANITIZE_ADDRESS__
#include <sanitizer/lsan_interface.h>
#endif

/// Blocks taken while it lives are not reported as lost. Deleting a channel does not delete the
/// traces that it holds: they are the host's, which cannot reach them any more when a job has ended
/// before its consumers took everything.
class ExpectedLeaks
{
public:
#ifdef __SANITIZE_ADDRESS__
    ExpectedLeaks()
    {
        __lsan_disable();
    }
    ~ExpectedLeaks()
    {
        __lsan_enable();
    }
#else
    ExpectedLeaks() {}
    ~ExpectedLeaks() {}
#endif
    ExpectedLeaks(const ExpectedLeaks&) = delete;
    ExpectedLeaks& operator=(const ExpectedLeaks&) = delete;
};

#endif
