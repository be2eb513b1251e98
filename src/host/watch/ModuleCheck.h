/// @file ModuleCheck.h
///
/// Checks the modules of a job while they run: memory, traces, handles, numbers, parameters.
#ifndef MODULECHECK_H
#define MODULECHECK_H

#include "job/ResolvedJob.h"
#include "run/RunExtension.h"
#include "run/RunningModule.h"
#include "watch/Findings.h"
#include "watched/WatchedCalls.h"

#include <memory>

namespace host {

/// The checks of one run, from the moment when its modules are connected until they have ended:
///
/// - arguments of each call: handles, numbers of channels and traces, the thread;
/// - memory: guards around blocks, freed blocks that are written to, blocks and traces left behind;
/// - traces: inputs that have changed, samples that are no longer numbers;
/// - parameters and attributes: what the code reads and writes against the manifest.
///
/// A call that would crash ends the process, when its finding has been told. All others go on: the
/// results of the job are those of an ordinary run.
///
/// Requires: the process runs on the watched library. The caller hands the object to the run as
/// its extension, and to WatchedCalls as an observer.
class ModuleCheck : public RunExtension, public watched::Observer
{
public:
    /// `job` lives longer.
    ModuleCheck(const ResolvedJob& job, FindingListener listener);
    ~ModuleCheck() override;
    ModuleCheck(const ModuleCheck&) = delete;
    ModuleCheck& operator=(const ModuleCheck&) = delete;

    void connected(const RunView& view) override;
    /// Adds what was found to the result.
    void ended(RunResult& result) override;

    void passed(const watched::Call& handles) override;
    void called(const watched::Call& call) override;
    void returned(const watched::Call& call, const watched::Argument& result) override;

private:
    class Work;
    std::unique_ptr<Work> work;
};

} // namespace host

#endif
