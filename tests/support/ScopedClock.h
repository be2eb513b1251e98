/// @file ScopedClock.h
///
/// The process's wall clock, set by a test.
#ifndef SCOPEDCLOCK_H
#define SCOPEDCLOCK_H

#include <cstdint>

/// As long as one of these lives, `time` and `gettimeofday` answer with its time, in every library
/// of the process; it stands still unless the test moves it. Other clocks go on.
class ScopedClock
{
public:
    int64_t seconds;      ///< since the epoch
    int32_t microseconds; ///< from 0 to 999999

    explicit ScopedClock(int64_t secondsNow, int32_t microsecondsNow = 0);
    ~ScopedClock();
    ScopedClock(const ScopedClock&) = delete;
    ScopedClock& operator=(const ScopedClock&) = delete;

    /// Moves the clock, back when negative.
    void advance(int64_t byMicroseconds);
};

#endif
