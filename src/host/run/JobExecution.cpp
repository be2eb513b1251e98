#include "run/JobExecution.h"

#include "file/FileIdentity.h"

namespace host {

JobExecution::JobExecution(const ResolvedJob& resolved) : job(resolved), before(job), written(job)
{
}

const ScratchSpace& JobExecution::scratch()
{
    if (!directory)
        directory.emplace(job.scratchDirectory);
    return *directory;
}

JobRunner& JobExecution::runner()
{
    if (!kernel) {
        kernel.emplace(job, scratch().path());
        kernel->objections = [this] { return before.changes(); };
    }
    return *kernel;
}

RunResult JobExecution::run()
{
    RunResult result = runner().run();
    result.inputs = describeFiles(job, false);
    result.outputs = describeFiles(job, true);
    for (RunFile& file : result.outputs)
        file.written =
            written.isWritten(file.path) || (!result.failed && VORN::isWrittenThrough(file.path));
    return result;
}

void JobExecution::end()
{
    kernel.reset();
    directory.reset();
}

} // namespace host
