/// @file CountingChannel.h
///
/// A data channel that counts the traces that pass through it.
#ifndef COUNTINGCHANNEL_H
#define COUNTINGCHANNEL_H

#include "DataChannel.h"

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace host {

/// The kernel's counters of a module tell how many traces lay in its channels after each call,
/// which counts a queued trace again and again. This channel counts each trace once, when its
/// producer adds it, and knows what its consumers have taken. Traces that appear because a consumer
/// asks for one that is not there are not data and are not counted.
class CountingChannel : public DataChannel
{
public:
    /// Smallest, greatest, first and last value of an integer attribute.
    struct WordRange
    {
        std::string word;
        int64_t minimum = 0;
        int64_t maximum = 0;
        int64_t first = 0;
        int64_t last = 0;
        int64_t changes = 0; ///< how often it differed from the trace before
    };

    /// Called after a producer has added a trace, which has no content yet.
    std::function<void()> onArrival;
    /// Called before a trace leaves, which has all its content then.
    std::function<void()> onDeparture;

    int addTrace(SeisTrace* trace) override;

    /// Traces that producers have added.
    int64_t arrived() const { return arrivals; }
    /// Traces of these that have left, taken by their consumers or moved elsewhere.
    int64_t departed() const { return departures; }
    /// Traces that `consumer` has taken.
    int64_t taken(ModuleEntity* consumer) const;
    /// Grows with every trace that its producers add and with every one of these that leaves.
    int64_t activity() const { return events; }

    /// The same of all channels of the process, as one number.
    static int64_t activityOfAll() { return eventsOfAll; }

    /// Whether a trace that was the last one has passed.
    bool hasMarkedTrace() const { return lastHasLeft || isLastTraceMarked(); }
    /// Whether the producer has said that there are no more traces, by a trace or without one.
    bool isEndMarked() const;
    /// Whether the last trace that waits here is marked, and the first one is not.
    bool isMarkedBehindOthers() const;

    /// Keeps the ranges of the attributes `names` (those that the traces have as integers) of all
    /// traces from now on.
    void watchWords(std::vector<std::string> names) { watched = std::move(names); }
    /// The ranges of the watched attributes; none before the first trace has left.
    const std::vector<WordRange>& words() const { return ranges; }

protected:
    void traceLeaves(SeisTrace* trace, int traceNo, bool entryStays) override;

private:
    bool isProducerActive() const;
    bool isLastTraceMarked() const;
    static int64_t integerAt(const SeisTrace& trace, const traceAttIdent& place);
    void observe(const SeisTrace* trace);
    void beginRanges();

    void noteEvent();

    static inline int64_t eventsOfAll = 0;
    int64_t arrivals = 0;
    int64_t departures = 0;
    std::set<const SeisTrace*> others; ///< traces in the channel that no producer added
    int64_t events = 0;
    bool lastHasLeft = false;
    int64_t observed = 0;
    std::vector<std::string> watched;
    std::vector<WordRange> ranges;
    std::vector<traceAttIdent> places; ///< of `ranges` in the headers
};

} // namespace host

#endif
