/// @file LocalParts.h
///
/// The parts of a job as processes of this machine.
#ifndef LOCALPARTS_H
#define LOCALPARTS_H

#include "file/UnfinishedOutputs.h"
#include "parts/MergeRun.h"
#include "parts/PartProcesses.h"
#include "parts/PartsOfJob.h"
#include "parts/Plan.h"

#include <memory>
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
    LocalParts(Plan plan, int atATime);

    void work(const std::string& scratchDirectory) override;
    ProgressState progress() override;
    void stop(int signal) override;
    std::optional<int64_t> workMicros() const override { return processes.micros(); }
    MergeRun* merge() override;

private:
    bool makeTargets();

    Plan plan;
    std::vector<std::unique_ptr<VORN::UnfinishedOutput>> targets;
    PartProcesses processes;
    std::optional<MergeRun> merging;
};

} // namespace host

#endif
