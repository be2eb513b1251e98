/// @file SetRunner.h
///
/// Runs one job on many files, each in a process of its own.
#ifndef SETRUNNER_H
#define SETRUNNER_H

#include "each/ChildProcesses.h"
#include "each/JobOfFile.h"
#include "each/RunRecord.h"
#include "report/SetResult.h"

#include <chrono>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace host {

/// One file and the call that runs the job on it.
struct PlannedRun
{
    std::string path;                 ///< absolute
    std::string folder;               ///< of its results, within the directory
    std::vector<std::string> words;   ///< of the call, the first of which is "vorn"
    std::vector<std::string> outputs; ///< of the job, absolute
    std::string refusal;              ///< why it cannot be run, one sentence; or empty
};

/// What is to be done.
struct SetPlan
{
    std::string program; ///< path of this program
    std::string directory;
    std::vector<PlannedRun> runs;
    Fingerprints fingerprints;
    std::vector<std::string> otherInputs; ///< files that every run reads
    int atATime = 1;
    bool resume = false; ///< results that are still the right ones are kept
};

/// Goes through the files in their order, several at a time, and goes on after failures. A process
/// for each file: a crash, or memory that is exhausted, costs the result of that file only.
class SetRunner
{
public:
    SetRunner(SetPlan plan, SetResult frame);

    /// Called after each file: the place of its facts in `result().files`, and how many are done.
    std::function<void(const SetFile& file, std::size_t done)> onFile;
    /// Called every few seconds after a file, and not at the end, so that what is done can be seen.
    std::function<void(const SetResult& result)> onProgress;

    /// Runs what has to be run. Ends early when the processes are stopped. Throws CommandError.
    void run();

    const SetResult& result() const { return facts; }
    ChildProcesses& processes() { return children; }

private:
    struct Running
    {
        std::size_t index = 0;
        std::chrono::steady_clock::time_point start;
    };

    RunRecord recordOf(std::size_t i) const;
    void keepResults();
    void startNext();
    void prepare(std::size_t i, RunRecord& record);
    void finish(const ProcessOutcome& outcome);
    void refuse(std::size_t i, const std::string& message);
    void tell(std::size_t i);

    SetPlan plan;
    SetResult facts;
    ChildProcesses children;
    std::map<pid_t, Running> running;
    std::map<std::size_t, RunRecord> records; ///< of what is running
    std::vector<std::size_t> waiting;         ///< in reverse order
    std::size_t done = 0;
    std::chrono::steady_clock::time_point begin = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point lastProgress = begin;
};

} // namespace host

#endif
