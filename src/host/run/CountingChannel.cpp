#include "run/CountingChannel.h"

#include "JobManager.h"
#include "SeisTrace.h"

#include <algorithm>
#include <cstring>

namespace host {

namespace {

constexpr int endOfData = 3;

} // namespace

int CountingChannel::addTrace(SeisTrace* trace)
{
    const int count = DataChannel::addTrace(trace);
    if (isProducerActive()) {
        noteEvent();
        ++arrivals;
        if (onArrival)
            onArrival();
    } else {
        others.insert(trace);
    }
    return count;
}

bool CountingChannel::isProducerActive() const
{
    const ModuleEntity* active = JobManager::getInstance()->getActiveModule();
    return std::find(inputModules.begin(), inputModules.end(), active) != inputModules.end();
}

int64_t CountingChannel::taken(ModuleEntity* consumer) const
{
    const int64_t pending = std::max<int64_t>(0, getNumberOfInputTraces(consumer) -
                                                     static_cast<int64_t>(others.size()));
    return std::max<int64_t>(0, arrivals - pending);
}

void CountingChannel::noteEvent()
{
    ++events;
    ++eventsOfAll;
}

// Here the header is complete: the producer has written it, and all consumers have read it. A trace
// that has been moved away leaves an empty place, which is none.
void CountingChannel::traceLeaves(SeisTrace* trace, int traceNo, bool entryStays)
{
    if (trace != nullptr && (others.empty() || others.erase(trace) == 0)) {
        noteEvent();
        ++departures;
    }
    if (trace != nullptr && trace->traceFlag == endOfData)
        lastHasLeft = true;
    if (trace != nullptr && !watched.empty())
        observe(trace);
    if (onDeparture)
        onDeparture();
    DataChannel::traceLeaves(trace, traceNo, entryStays);
}

bool CountingChannel::isLastTraceMarked() const
{
    return !traces.empty() && traces.back() != nullptr && traces.back()->traceFlag == endOfData;
}

bool CountingChannel::isMarkedBehindOthers() const
{
    return isLastTraceMarked() && traces.front() != nullptr &&
           traces.front()->traceFlag != endOfData;
}

bool CountingChannel::isEndMarked() const
{
    return hasMarkedTrace() || (traces.empty() && dataChannelFlag == endOfData);
}

// Without a UniVar for each of some ninety words.
int64_t CountingChannel::integerAt(const SeisTrace& trace, const traceAttIdent& place)
{
    if (trace.holds(place) && place.type == int32AttType && place.size >= 4) {
        int32_t value = 0;
        std::memcpy(&value, trace.traceHeader + place.offset, sizeof value);
        return value;
    }
    if (trace.holds(place) && place.type == int64AttType && place.size >= 8) {
        int64_t value = 0;
        std::memcpy(&value, trace.traceHeader + place.offset, sizeof value);
        return value;
    }
    return trace.getAttribute(place).getI64Value();
}

void CountingChannel::observe(const SeisTrace* trace)
{
    if (observed++ == 0)
        beginRanges();
    for (std::size_t i = 0; i < ranges.size(); ++i) {
        WordRange& range = ranges[i];
        const int64_t value = integerAt(*trace, places[i]);
        if (observed == 1) {
            range.minimum = range.maximum = range.first = value;
        } else if (value != range.last) {
            range.minimum = std::min(range.minimum, value);
            range.maximum = std::max(range.maximum, value);
            ++range.changes;
        }
        range.last = value;
    }
}

void CountingChannel::beginRanges()
{
    for (const std::string& name : watched) {
        const auto known = attrDefs.find(name);
        if (known == attrDefs.end() ||
            (known->second.type != int32AttType && known->second.type != int64AttType))
            continue;
        WordRange range;
        range.word = name;
        ranges.push_back(range);
        places.push_back(known->second);
    }
}

} // namespace host
