#include "ScopedClock.h"

#include <ctime>
#include <sys/time.h>

namespace {

constexpr int64_t microsecondsPerSecond = 1000000;

ScopedClock* running = nullptr;

timespec systemTime()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return now;
}

} // namespace

ScopedClock::ScopedClock(int64_t secondsNow, int32_t microsecondsNow)
    : seconds(secondsNow), microseconds(microsecondsNow)
{
    running = this;
}

ScopedClock::~ScopedClock()
{
    running = nullptr;
}

void ScopedClock::advance(int64_t byMicroseconds)
{
    const int64_t now = seconds * microsecondsPerSecond + microseconds + byMicroseconds;
    seconds = now / microsecondsPerSecond;
    microseconds = static_cast<int32_t>(now % microsecondsPerSecond);
}

// The program's own definitions come before those of the C library, for the kernel as well.
extern "C" {

time_t time(time_t* result) noexcept
{
    const time_t now = running != nullptr ? running->seconds : systemTime().tv_sec;
    if (result != nullptr)
        *result = now;
    return now;
}

int gettimeofday(timeval* result, void*) noexcept
{
    const timespec now = running != nullptr
                             ? timespec{running->seconds, running->microseconds * 1000L}
                             : systemTime();
    result->tv_sec = now.tv_sec;
    result->tv_usec = now.tv_nsec / 1000;
    return 0;
}
}
