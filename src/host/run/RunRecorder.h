/// @file RunRecorder.h
///
/// Notes what a job does while it runs: the facts of its modules, channels and sources.
#ifndef RUNRECORDER_H
#define RUNRECORDER_H

#include "job/ResolvedJob.h"
#include "job/RunResult.h"
#include "run/JobBuilder.h"

#include <atomic>
#include <cstdint>
#include <vector>

class ModuleEntity;

namespace host {

/// What another thread may know of a running job.
struct LiveCounters
{
    std::atomic<const char*> phase{"preparing"};
    std::atomic<int64_t> traces{0};         ///< that have entered the job
    std::atomic<int64_t> done{0};           ///< of the announced ones, on all channels
    std::atomic<int64_t> announced{0};      ///< on all channels
    std::atomic<int64_t> bytes{0};          ///< of memory held
    std::atomic<double> processingSince{0}; ///< seconds of the steady clock; 0: not yet
};

/// Fills the facts of one run. The runner says when: before the modules exist, when they are
/// connected, after each phase, and for each record of statistics that the kernel sends.
class RunRecorder
{
public:
    /// Keeps references to all three.
    RunRecorder(const ResolvedJob& job, RunResult& result, LiveCounters& live);

    /// A row for each module of the job, with parameters and inputs.
    void describeModules();

    /// From now on, traces that come and go are counted. With `watchHeaders`, the ranges of header
    /// words of what the sources read are noted. Requires: `modules` are those of the job, in its
    /// order; they and the channels live until the job has ended.
    void watch(const std::vector<ModuleEntity*>& modules, const BuiltJob& wiring,
               bool watchHeaders);

    /// Adds a row for each tee. Call it after watch().
    void showTees();

    /// The order in which the kernel has put the modules.
    void noteOrder();
    /// The time since the last call goes to `field` of each module.
    void noteMicros(int64_t RunStatistics::*field);
    /// The memory that the modules hold now, where it is more than before.
    void notePeaks();
    /// Counts, memory, metadata and sources. To be called while modules and channels still exist;
    /// what is noted last counts.
    void collect();

private:
    void noteArrival(const BuiltChannel& built, int64_t& announcedBefore);
    void notePeak(std::size_t module);
    void noteMicrosOf(const ModuleEntity& module, std::size_t place, int64_t& field);
    int64_t bytesHeldBy(std::size_t module) const;
    void collectTees();
    void collectMetadata(std::size_t module);
    void collectSources();

    const ResolvedJob& job;
    RunResult& result;
    LiveCounters& live;
    std::vector<ModuleEntity*> modules; ///< in the order of the job
    std::vector<BuiltChannel> channels;
    std::vector<std::vector<std::size_t>> teesBehind; ///< by module: places in `tees`
    std::vector<BuiltTee> tees;                       ///< have rows where they are asked for
    std::vector<int64_t> microsBefore; ///< by module, then by tee, at the last noteMicros
};

} // namespace host

#endif
