/// @file DataFlow.h
///
/// Which modules of a running job have ended, and which wait for which.
#ifndef DATAFLOW_H
#define DATAFLOW_H

#include "job/ResolvedJob.h"
#include "run/JobBuilder.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// What the channels of a job tell about its modules between two calls of entry points. The kernel
/// keeps its list of ended modules to itself; the marks in the channels say the same. Valid as long
/// as the modules and channels are.
class DataFlow
{
public:
    DataFlow(const ResolvedJob& job, const std::vector<ModuleEntity*>& modules,
             const BuiltJob& wiring);

    bool everySourceHasEnded() const;

    /// To be asked when processing has come to its end: a sentence for each module that asked to be
    /// called at the end of its data and was not, because the module before it ended without a
    /// mark. What such a module held back is lost, and what its other inputs would have given.
    std::vector<std::string> lostEnds();

    /// To be asked when processing has come to its end: a sentence for each module that takes its
    /// inputs in step and ended with the shortest, for the traces that wait in its other inputs.
    /// Only outputs that others read, too, are named: of those all traces came.
    std::vector<std::string> unreadTraces() const;

    /// Which modules wait for traces of which others, for a job that moves none any more.
    std::string waits();

private:
    CountingChannel* channelOf(std::size_t module, std::size_t input) const;
    std::size_t producerOf(std::size_t module, std::size_t input) const;
    bool hasEnded(std::size_t module) const;
    bool isDrained(std::size_t module, std::size_t input) const;
    bool isExhausted(std::size_t module);
    bool isWanted(std::size_t module);
    bool hasSeenTraces(std::size_t module) const;
    bool hasMoreToCome(std::size_t module);
    std::string lostEnd(std::size_t module);
    std::string waitOf(std::size_t module);
    bool isAwaited(std::size_t module) const;
    std::string awaited(std::size_t module, std::size_t input) const;
    std::string name(std::size_t module) const;

    const ResolvedJob& job;
    const std::vector<ModuleEntity*>& modules;
    std::map<const DataChannel*, const DataChannel*> inputOfTee; ///< by the channel of a reader
    std::vector<std::vector<std::size_t>> consumers;             ///< by module
    std::vector<std::optional<bool>> exhausted;                  ///< by module, once it is known
    std::vector<std::optional<bool>> wanted;                     ///< likewise
};

} // namespace host

#endif
