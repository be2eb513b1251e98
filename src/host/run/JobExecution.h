/// @file JobExecution.h
///
/// A run of a checked job with all that belongs to any run, of the command and of the library
/// VORN::job.
#ifndef JOBEXECUTION_H
#define JOBEXECUTION_H

#include "run/JobRunner.h"
#include "run/RunFiles.h"
#include "run/ScratchSpace.h"

#include <optional>

namespace host {

/// What stands around the three phases: the files of the job as they were before it, its scratch
/// directory, and the rule that nothing becomes an output of a job whose inputs have changed
/// meanwhile.
///
///     JobExecution run(job);
///     run.runner().onMessage = …;
///     const RunResult result = run.run();
class JobExecution
{
public:
    /// Looks at the files. `job` must live longer.
    explicit JobExecution(const ResolvedJob& job);

    /// The scratch directory, made by the first call. Throws CommandError when that is impossible.
    const ScratchSpace& scratch();
    /// The runner, made by the first call, which prepares the kernel.
    JobRunner& runner();
    /// Runs the job, once. The files are in the result, without checksums.
    RunResult run();
    /// Takes runner and scratch directory away; the destructor does so, too.
    void end();

    /// @name The files before the run
    /// @{
    const InputWatch& inputs() const { return before; }
    const OutputWatch& outputs() const { return written; }
    /// @}

private:
    const ResolvedJob& job;
    InputWatch before;
    OutputWatch written;
    std::optional<ScratchSpace> directory;
    std::optional<JobRunner> kernel; ///< uses the directory
};

} // namespace host

#endif
