/// @file JobRunner.h
///
/// Builds a checked job in the kernel, runs it, and notes what it did.
#ifndef JOBRUNNER_H
#define JOBRUNNER_H

#include "hostcallbacks.h"
#include "job/ResolvedJob.h"
#include "job/RunResult.h"
#include "run/Deadlock.h"
#include "run/JobBuilder.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

class JobManager;

namespace host {

/// Called on the thread that runs the job, in the middle of it.
using MessageListener = std::function<void(const RunMessage&)>;

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

/// One run of one job in this process.
///
///     JobRunner runner(job);
///     runner.onMessage = …;
///     padStore.install(runner.manager());
///     RunResult result = runner.run();
///
/// The kernel is used through its host interface alone. VORN_HOME, VORN_SCRATCH and
/// VORN_SCRATCH_SIZE are set for the whole process.
class JobRunner
{
public:
    /// `scratchDirectory` is where the scratch file goes; the job's own setting is only its parent.
    JobRunner(const ResolvedJob& job, const std::string& scratchDirectory);
    ~JobRunner();
    JobRunner(const JobRunner&) = delete;
    JobRunner& operator=(const JobRunner&) = delete;

    MessageListener onMessage; ///< may be empty
    /// Notes the ranges of header words of what the sources read, which costs some microseconds per
    /// trace.
    bool watchHeaders = false;

    /// The kernel's job manager, which this object has prepared.
    JobManager& manager();
    /// Counters that other threads may read while the job runs.
    const LiveCounters& counters() const { return live; }

    /// Runs the three phases and returns the facts, except files, graph and versions.
    RunResult run();

    /// @name Called by the kernel
    /// @{
    void takeMessage(int type, const std::string& module, const std::string& text);
    void takeArgument(const std::string& text);
    void takeCommand(const std::string& command);
    void takeStatistic(const jobStatisticStruct& statistic);
    void takeDiagnostic(const std::string& text);
    /// @}

private:
    void prepareKernel(const std::string& scratchDirectory);
    bool createModules();
    void describeModules();
    void setParameters();
    void watchChannels();
    void runPhases();
    void enter(const char* phase);
    bool guarded(const std::function<int()>& phase);
    void stopWithError(const std::string& text);
    void noteArrival(const BuiltChannel& built, int64_t& announcedBefore);
    void notePeak(std::size_t module);
    int64_t bytesHeldBy(std::size_t module) const;
    void refuseLostEnds();
    void noteMicros(int64_t RunStatistics::*field);
    void noteOrder();
    void collect();
    void collectMetadata(std::size_t module);
    void collectSources();
    void warnOfUnreadData();
    std::string joinerBehind(const std::string& source) const;

    const ResolvedJob& job;
    LiveCounters live;
    RunResult result;
    std::vector<ModuleEntity*> modules; ///< in the order of the job
    std::vector<ModuleEntity*> tees;    ///< before several readers of one output
    BuiltJob wiring;
    std::vector<std::vector<const ModuleEntity*>> teesBehind; ///< by module
    DeadlockWatch deadlocks;                                  ///< of `modules` and `wiring`
    std::vector<int64_t> microsBefore;                        ///< by module, when the phase began
    std::map<std::pair<std::string, int>, int> kept;          ///< messages by module and severity
    std::chrono::steady_clock::time_point start;
    bool lastMessageKept = false;
    bool fatal = false;
    /// What tells the modules that the job has failed, made while there is memory.
    std::map<std::string, std::string>::node_type spareMark;
};

} // namespace host

#endif
