/// @file LocalParts.h
///
/// The parts of a job as processes of this machine.
#ifndef LOCALPARTS_H
#define LOCALPARTS_H

#include "each/ChildProcesses.h"
#include "file/UnfinishedOutputs.h"
#include "parts/MergeRun.h"
#include "parts/PartsOfJob.h"
#include "parts/Plan.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// The parts of a plan, so many at a time, each a process of this program. The plan, and everything
/// that the parts leave, lie in the scratch directory of the run; the files that they write
/// together get their names in the merge, or are removed.
class LocalParts : public PartsOfJob
{
public:
    /// Makes the hidden files of the plan's outputs. Throws CommandError.
    LocalParts(Plan plan, int atATime);

    void work(const std::string& scratchDirectory) override;
    ProgressState progress() override;
    void stop(int signal) override;
    int64_t workMicros() const override { return micros; }
    RunExtension& merge() override;

private:
    void start(int part);
    void noteEnd(const ProcessOutcome& outcome);
    void endPartsAfter(int part);
    Receipt failureOf(int part) const;

    Plan plan;
    int atATime;
    std::vector<std::unique_ptr<VORN::UnfinishedOutput>> targets;
    std::string program; ///< this one
    std::string directory;
    ChildProcesses processes;
    std::map<pid_t, int> running; ///< parts by process
    std::map<int, int> exitCodes; ///< of parts that have failed
    std::mutex mutex;             ///< of what progress() reads
    std::vector<std::string> live;
    double beganAt = 0; ///< seconds of the steady clock
    int64_t micros = 0;
    std::optional<MergeRun> merging;
};

} // namespace host

#endif
