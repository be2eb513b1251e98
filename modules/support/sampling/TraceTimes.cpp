#include "sampling/TraceTimes.h"

#include "MOXKernel.h"

#include <array>
#include <climits>
#include <cmath>
#include <cstdio>
#include <stdexcept>

namespace sampling {

std::int64_t delayOf(void* set)
{
    if (isTraceAttributeExist(set, "delrt") == 0)
        return 0;
    return 1000 * std::int64_t{getTraceAttribute(set, "delrt", 0).getI32Value()};
}

TraceTimes::TraceTimes(void* output, int samples, int interval)
    : length(samples), spacing(interval), hasLength(isTraceAttributeExist(output, "ns") != 0),
      hasSpacing(isTraceAttributeExist(output, "dt") != 0)
{
    defineTraceAttribute(output, "delrt");
}

void TraceTimes::write(void* output, int number, std::int64_t delay)
{
    if (hasLength)
        setTraceAttribute(output, "ns", UniVar(length), number);
    if (hasSpacing)
        setTraceAttribute(output, "dt", UniVar(spacing), number);
    const std::int64_t milliseconds = (delay + (delay < 0 ? -500 : 500)) / 1000;
    if (milliseconds > INT_MAX || milliseconds < INT_MIN)
        throw std::runtime_error("traces would begin at " + secondsText(delay) +
                                 " s, which does not fit into delrt");
    setTraceAttribute(output, "delrt", UniVar(static_cast<int>(milliseconds)), number);
    if (milliseconds * 1000 != delay && rounded++ == 0)
        firstRounded = delay;
}

std::string TraceTimes::warning() const
{
    if (rounded == 0)
        return "";
    return "delrt holds whole milliseconds, and the first sample of " + std::to_string(rounded) +
           (rounded == 1 ? " trace" : " traces") + " is between them, of the first such trace at " +
           secondsText(firstRounded) + " s; choose a time that is a whole number of milliseconds";
}

std::string secondsText(std::int64_t microseconds)
{
    std::array<char, 40> text;
    std::snprintf(text.data(), text.size(), "%.10g", static_cast<double>(microseconds) * 1e-6);
    return text.data();
}

} // namespace sampling
