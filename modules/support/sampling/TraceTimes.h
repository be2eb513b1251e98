/// @file TraceTimes.h
///
/// The words of a trace that say when its samples are.
#ifndef TRACETIMES_H
#define TRACETIMES_H

#include <cstdint>
#include <string>

namespace sampling {

/// Time of the first sample of the first trace of `set`, in microseconds after the shot (`delrt`);
/// 0 where the traces do not have the word.
std::int64_t delayOf(void* set);

/// Writes the words `ns`, `dt` and `delrt` of traces whose samples have changed their times.
class TraceTimes
{
public:
    /// For traces of `samples` samples every `interval` microseconds. Defines `delrt` in `output`;
    /// `ns` and `dt` are written where it has them.
    TraceTimes(void* output, int samples, int interval);

    /// Writes them to trace `number` of the output, whose first sample is at `delay`
    /// (microseconds). `delrt` has whole milliseconds, and the nearest is written.
    void write(void* output, int number, std::int64_t delay);

    /// What to warn of at the end; "" when each delay was one of whole milliseconds.
    std::string warning() const;

    /// What was counted, for a job in parts: see vorn_parts.hpp.
    template <typename File>
    void save(File& file)
    {
        file(rounded, firstRounded);
    }
    template <typename File>
    void merge(File& file)
    {
        const auto count = file.template get<std::int64_t>();
        const auto first = file.template get<std::int64_t>();
        if (rounded == 0)
            firstRounded = first;
        rounded += count;
    }

private:
    int length;
    int spacing;
    bool hasLength;
    bool hasSpacing;
    std::int64_t rounded = 0;      // traces
    std::int64_t firstRounded = 0; // its delay
};

/// A time in messages: seconds, with as many digits as it needs.
std::string secondsText(std::int64_t microseconds);

} // namespace sampling

#endif
