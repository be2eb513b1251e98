/* The traces of the list modules, as they read and write them through the kernel. */
#ifndef LIST_TRACES_H
#define LIST_TRACES_H

#include "../support/list_model.h"
#include "MOXKernel.h"

constexpr int endOfData = 3;
constexpr int keepTrace = 1;

inline int listParameter(const char* name, int otherwise)
{
    return isModuleParameterPresent(name) != 0 ? getModuleParameter(name).getI32Value() : otherwise;
}

inline void defineWords(void* traces)
{
    for (const char* word : {"tracl", "cdp", "offset"})
        defineTraceAttribute(traces, word);
}

/// The first trace of `in`, which must exist.
inline ListTrace readTrace(void* in)
{
    const auto word = [in](const char* name) {
        return isTraceAttributeExist(in, name) != 0 ? getTraceAttribute(in, name, 0).getI32Value()
                                                    : 0;
    };
    ListTrace trace = {word("tracl"), word("cdp"), word("offset"), {}};
    const float* samples = getTraceSamples(in, 0);
    trace.samples.assign(samples, samples + getTraceLength(in));
    return trace;
}

/// Appends the trace to `out`.
inline void writeTrace(const ListTrace& trace, void* out)
{
    const int place = getNumberOfTraces(out);
    setTraceAttribute(out, "tracl", UniVar(trace.id), place);
    setTraceAttribute(out, "cdp", UniVar(trace.key), place);
    setTraceAttribute(out, "offset", UniVar(trace.offset), place);
    const std::size_t room = static_cast<std::size_t>(getTraceLength(out));
    std::copy_n(trace.samples.begin(), std::min(room, trace.samples.size()),
                getTraceSamples(out, place));
    setDataChannelFlag(out, 0);
}

#endif
