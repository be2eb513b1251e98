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
#include "run/RunExtension.h"
#include "run/RunRecorder.h"
#include "run/RunningModule.h"

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
    /// Asked when all traces have been processed and no output has its name yet: what must not
    /// become an output of the job, one sentence each. May be empty.
    std::function<std::vector<std::string>()> objections;
    /// Notes the ranges of header words of what the sources read, which costs some microseconds per
    /// trace.
    bool watchHeaders = false;

    /// Notes what the tees did, too (RunResult::tees), which the command has put before several
    /// readers of an output.
    bool watchTees = false;

    /// Writes a crash report to standard error for an exception that a module does not handle.
    bool reportsExceptions = false;

    /// Leaves the libraries of modules loaded until the process ends, as sanitizers want it that
    /// look for leaks at that time: they need the names of functions.
    bool leavesLibraries = false;

    /// Takes part in the run; null: nothing does. It lives longer than the runner.
    RunExtension* extension = nullptr;

    /// The kernel's job manager, which this object has prepared.
    JobManager& manager();
    /// Counters that other threads may read while the job runs.
    const LiveCounters& counters() const { return live; }

    /// Runs the three phases and returns the facts, except files, graph and versions.
    RunResult run();

    /// Keeps a message that another process has received for this job.
    void repeat(const RunMessage& message);

    /// @name Called by the kernel
    /// @{
    void takeMessage(int type, const std::string& module, const std::string& text);
    void takeArgument(const std::string& text);
    void takeCommand(const std::string& command);
    void takeStatistic(const jobStatisticStruct& statistic);
    void takeDiagnostic(const std::string& text);
    /// @}

private:
    void keepMessage(int type, const std::string& module, const std::string& place,
                     const std::string& text, const std::string& onceKey = "");
    void store(RunMessage message);
    void prepareKernel(const std::string& scratchDirectory);
    bool createModules();
    void setParameters();
    void requestOrder();
    void runPhases();
    void enter(const char* phase);
    bool guarded(const std::function<int()>& phase);
    void noteException(const std::exception& error);
    bool writesFile(const ModuleEntity* module) const;
    void stopWithError(const std::string& text);
    RunView view();
    bool isDue(int phase);
    void warnOfCutGathers();
    void refuseLostEnds();
    void warnOfUnreadData();
    std::string joinerBehind(const std::string& source) const;

    const ResolvedJob& job;
    LiveCounters live;
    RunResult result;
    RunRecorder recorder;               ///< of `result` and `live`
    KeptLibraries libraries;            ///< of `modules`
    std::vector<ModuleEntity*> modules; ///< in the order of the job
    std::vector<ModuleEntity*> tees;    ///< before several readers of one output
    BuiltJob wiring;
    DeadlockWatch deadlocks;                         ///< of `modules` and `wiring`
    std::map<std::string, std::string> places;       ///< of modules in the job file, by name
    std::map<std::pair<std::string, int>, int> kept; ///< messages by module and severity
    std::chrono::steady_clock::time_point start;
    std::size_t records = 0; ///< of statistics, of the phase `phaseOfRecords`
    int phaseOfRecords = 0;
    bool lastMessageKept = false;
    bool fatal = false;
    /// What tells the modules that the job has failed, made while there is memory.
    std::map<std::string, std::string>::node_type spareMark;
};

} // namespace host

#endif
