#include "DataChannel.h"

#include "ScratchManager.h"

#include <algorithm>

namespace {

// One sequence for all channels: a trace that has been in another channel is then never mistaken
// for one that arrived here.
int64_t nextArrivalNo()
{
    static int64_t arrivals = 0;
    return ++arrivals;
}

ModuleEntity* entry(const std::vector<ModuleEntity*>& modules, int i)
{
    const std::size_t index = static_cast<std::size_t>(i);
    return index < modules.size() ? modules[index] : nullptr;
}

} // namespace

DataChannel::DataChannel() : flags(0), leftPending(0) {}

DataChannel::~DataChannel() = default;

void DataChannel::attachInputModule(ModuleEntity* producer)
{
    inputModules.push_back(producer);
}

void DataChannel::attachOutputModule(ModuleEntity* consumer)
{
    outputModules.push_back(consumer);
}

ModuleEntity* DataChannel::getAttachedInputModule(int i) const
{
    return entry(inputModules, i);
}

ModuleEntity* DataChannel::getAttachedOutputModule(int i) const
{
    return entry(outputModules, i);
}

int DataChannel::addTrace(SeisTrace* trace)
{
    traces.push_back(trace);
    const int64_t arrivalNo = nextArrivalNo();
    const int consumers = getNumberOfOutputModules();
    arrivalNos.push_back(arrivalNo);
    if (trace != nullptr) {
        // A trace that queues hold already has two places from now on; it is searched for then.
        trace->arrivalNo = trace->pendingEntries == 0 ? arrivalNo : -1;
        trace->pendingEntries += consumers;
    } else {
        leftPending += consumers;
    }
    for (ModuleEntity* consumer : outputModules) {
        TraceQueue* queue = queueOf(consumer);
        (queue != nullptr ? *queue : moduleTraces[consumer]).push_back(trace, arrivalNo);
    }
    return getNumberOfTraces();
}

TraceQueue* DataChannel::findQueue(ModuleEntity* consumer) const
{
    const auto found = moduleTraces.find(consumer);
    return found != moduleTraces.end() ? const_cast<TraceQueue*>(&found->second) : nullptr;
}

void DataChannel::removeInputTrace(ModuleEntity* consumer, int traceNo)
{
    if (traceNo < 0 || (traceNo == 0 && removeFirst(consumer)))
        return;
    SeisTrace* trace = getLeavingTrace(traceNo);
    take(consumer, trace, traceNo);
    if (isPending(trace, traceNo))
        touch(trace);
    else if (traceNo < getNumberOfTraces())
        destroyTrace(trace, traceNo);
}

// The way of most traces: the first one of the channel, which this consumer alone waits for, and
// which a touch would not page in or out. False, and nothing done, where it is not like that.
inline bool DataChannel::removeFirst(ModuleEntity* consumer)
{
    SeisTrace* const trace = !traces.empty() ? traces.front() : nullptr;
    if (trace == nullptr || trace->pendingEntries != 1 || scratchManager == nullptr ||
        !scratchManager->isAtRest(trace))
        return false;
    TraceQueue* queue = queueOf(consumer);
    if (queue == nullptr || !queue->takeFront(trace))
        return false;
    trace->pendingEntries = 0;
    destroyTrace(trace, 0);
    return true;
}

void DataChannel::take(ModuleEntity* consumer, SeisTrace* trace, int traceNo)
{
    TraceQueue* queue = queueOf(consumer);
    if (queue == nullptr)
        return;
    if (trace != nullptr) {
        if (trace->pendingEntries > 0 && queue->take(trace))
            --trace->pendingEntries;
    } else if (leftPending > 0 && queue->takeEmpty(arrivalNoOf(traceNo))) {
        --leftPending;
    }
}

bool DataChannel::isPending(const SeisTrace* trace, int traceNo) const
{
    if ((trace != nullptr ? trace->pendingEntries : leftPending) == 0)
        return false;
    const int64_t arrivalNo = arrivalNoOf(traceNo);
    return std::any_of(moduleTraces.begin(), moduleTraces.end(), [=](const auto& queue) {
        return trace != nullptr ? queue.second.contains(trace)
                                : queue.second.containsEmpty(arrivalNo);
    });
}

int64_t DataChannel::arrivalNoOf(int traceNo) const
{
    const std::size_t index = static_cast<std::size_t>(traceNo);
    return index < arrivalNos.size() ? arrivalNos[index] : 0;
}

// The consumers' queues keep an empty entry: what was pending still counts, and the call that would
// have taken a trace that was moved finds the entry by its number of arrival.
void DataChannel::traceLeaves(SeisTrace* trace, int traceNo, bool entryStays)
{
    if (!entryStays && static_cast<std::size_t>(traceNo) < arrivalNos.size())
        arrivalNos.erase(arrivalNos.begin() + traceNo);
    if (trace == nullptr || trace->pendingEntries == 0)
        return;
    for (auto& queue : moduleTraces) {
        while (trace->pendingEntries > 0 && queue.second.replaceByNull(trace)) {
            --trace->pendingEntries;
            ++leftPending;
        }
        if (trace->pendingEntries == 0)
            return;
    }
}

void DataChannel::setFlag(int bits, bool on)
{
    flags = on ? flags | bits : flags & ~bits;
}
