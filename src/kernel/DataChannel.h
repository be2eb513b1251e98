/// @file DataChannel.h
///
/// The way of traces from producing to consuming modules.
#ifndef DATACHANNEL_H
#define DATACHANNEL_H

#include "FrontArray.h"
#include "SeisTraceSet.h"
#include "TraceQueue.h"
#include "vorn_export.h"

#include <cstdint>
#include <map>
#include <vector>

class ModuleEntity;

/// The traces on their way from the modules that write them (producers) to those that read them
/// (consumers). Every consumer sees every trace once, in order of arrival, at its own pace.
///
///     producer --addTrace--> traces --+--> queue of consumer A
///                                     +--> queue of consumer B
///
/// The channel destroys a trace as soon as no queue holds it. Modules are referenced, never owned.
/// The host creates the channel; the job deletes it after post-processing, and traces that it still
/// holds then are left alone. Used on the host's thread only.
///
/// Adding a trace and taking the first one cost the same however many are queued.
class VORN_EXPORT DataChannel : public SeisTraceSet
{
public:
    std::vector<ModuleEntity*> inputModules;  ///< producers, in the order of attachment
    std::vector<ModuleEntity*> outputModules; ///< consumers, in the order of attachment
    /// Traces each consumer has yet to take, oldest first. A consumer that no trace has reached has
    /// no entry: for it, every trace of the channel counts as pending.
    std::map<ModuleEntity*, TraceQueue> moduleTraces;
    int flags; ///< bit 1: keep the current trace for the next call; other bits are the modules'

    FrontArray<int64_t> arrivalNos; ///< by trace number: what tells moved traces apart
    int64_t leftPending;            ///< entries of queues whose trace has left the channel

    DataChannel();
    /// Releases lists and queues; traces still held stay alive.
    ~DataChannel() override;

    /// Appends a producer; one attached twice counts twice.
    void attachInputModule(ModuleEntity* producer);
    /// Appends a consumer; one attached twice counts twice.
    void attachOutputModule(ModuleEntity* consumer);
    /// The number of producers, attachments counted.
    int getNumberOfInputModules() const { return static_cast<int>(inputModules.size()); }
    /// The number of consumers, attachments counted.
    int getNumberOfOutputModules() const { return static_cast<int>(outputModules.size()); }
    /// The producer at index `i`, or null when there is none.
    ModuleEntity* getAttachedInputModule(int i) const;
    /// The consumer at index `i`, or null when there is none.
    ModuleEntity* getAttachedOutputModule(int i) const;

    /// Appends `trace` and queues it once for every attachment of every consumer; returns the
    /// number of traces in the channel. Traces that the channel creates on demand come this way
    /// too.
    int addTrace(SeisTrace* trace) override;

    /// Traces pending for `consumer`; the channel's total while the consumer has no queue yet.
    int getNumberOfInputTraces(ModuleEntity* consumer) const
    {
        const TraceQueue* queue = queueOf(consumer);
        return queue != nullptr ? static_cast<int>(queue->size()) : getNumberOfTraces();
    }
    /// Whether there are any.
    bool hasInputTraces(ModuleEntity* consumer) const
    {
        const TraceQueue* queue = queueOf(consumer);
        return queue != nullptr ? !queue->empty() : !traces.empty();
    }

    /// Ends the use of trace `traceNo` (zero-based, in the channel, not in the queue) by
    /// `consumer`; the last consumer's call destroys the trace and moves later traces down. On an
    /// empty channel the trace is created first, and the other consumers then have it pending. A
    /// trace that has been moved to another set is pending still, and taken by this call like any
    /// other.
    void removeInputTrace(ModuleEntity* consumer, int traceNo);

    /// Sets or clears `bits`.
    void setFlag(int bits, bool on);
    /// Whether any of `bits` is set; `clear` then clears them.
    bool isFlagged(int bits, bool clear)
    {
        const bool flagged = (flags & bits) != 0;
        if (clear)
            flags &= ~bits;
        return flagged;
    }

protected:
    void traceLeaves(SeisTrace* trace, int traceNo, bool entryStays) override;

private:
    // Most channels have one consumer: its queue is found without a search, and nothing is
    // remembered that a host could make wrong by changing the queues by hand.
    TraceQueue* queueOf(ModuleEntity* consumer) const
    {
        const auto first = moduleTraces.begin();
        if (first != moduleTraces.end() && first->first == consumer)
            return const_cast<TraceQueue*>(&first->second);
        return findQueue(consumer);
    }
    TraceQueue* findQueue(ModuleEntity* consumer) const;
    bool removeFirst(ModuleEntity* consumer);
    void take(ModuleEntity* consumer, SeisTrace* trace, int traceNo);
    bool isPending(const SeisTrace* trace, int traceNo) const;
    int64_t arrivalNoOf(int traceNo) const;
};

#endif
