/// @file PartRun.h
///
/// One part of a job: its modules of the first stage on a range of the traces.
#ifndef PARTRUN_H
#define PARTRUN_H

#include "job/ResolvedJob.h"
#include "parts/Plan.h"
#include "parts/Receipt.h"
#include "parts/Spool.h"
#include "run/RunExtension.h"

#include <memory>
#include <string>
#include <vector>

namespace host {

/// The modules of `job` that belong to the first stage, on the range of part `part` (from 1): the
/// sources get it as a parameter, and each spool of the plan is one more reader of its output.
/// Requires: the plan is of this job.
ResolvedJob jobOfPart(const ResolvedJob& job, const Plan& plan, int part);

/// What a part does besides running its modules: tells them which part they are, writes the spools,
/// and has the modules save what they have gathered, in place of the end of their job.
class PartRun : public RunExtension
{
public:
    /// For the modules of jobOfPart(). Makes the directory of saved states, and the spools. Throws
    /// CommandError.
    PartRun(const Plan& plan, const std::string& directory, int part);
    ~PartRun() override;
    PartRun(const PartRun&) = delete;
    PartRun& operator=(const PartRun&) = delete;

    int (*readerFunction() const)() override;
    void connected(const RunView& view) override;
    void prepared(const RunView& view) override;
    void processed(const RunView& view, bool good) override;
    void ended(RunResult& result) override;

    /// The facts of the part, once the run has ended; without the plan's checksum and readings.
    const Receipt& receipt() const { return facts; }
    /// Brings what the part has written to the disk, names included, where the plan asks for it: to
    /// be called when the run has ended, before its receipt is written. Throws CommandError.
    void sync() const;

private:
    static int spoolTrace();
    void save(const RunView& view);

    const Plan& plan;
    std::string directory;
    int part;
    std::vector<PlannedSpool> places; ///< of the spools, with the numbers of modules in the part
    std::vector<std::unique_ptr<SpoolWriter>> spools;
    std::vector<const ModuleEntity*> readers; ///< of `spools`
    std::size_t firstMessage = 0;             ///< of those sent while modules process
    std::size_t lastMessage = 0;              ///< the one behind them
    Receipt facts;
};

} // namespace host

#endif
