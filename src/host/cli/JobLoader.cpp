#include "cli/JobLoader.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Text.h"
#include "job/JobDraft.h"
#include "job/LibraryProbe.h"

#include <filesystem>
#include <fmt/format.h>

namespace host {

namespace {

void applyScratchOptions(const Arguments& arguments, JobFile& job, Diagnostics& diagnostics)
{
    if (arguments.has("--scratch")) {
        if (arguments.text("--scratch").empty())
            throw CommandError("--scratch: the name of a directory is expected");
        job.scratchDirectory =
            std::filesystem::absolute(arguments.text("--scratch")).lexically_normal().string();
        job.scratchPlace = {"--scratch", 0, 0};
    }
    if (!arguments.has("--scratch-traces"))
        return;
    const long long traces = arguments.integer("--scratch-traces", 0);
    if (traces < fewestScratchTraces || traces > mostScratchTraces)
        diagnostics.error({"--scratch-traces", 0, 0},
                          fmt::format("the number of traces in memory is {}; expected {} to {}",
                                      traces, fewestScratchTraces, mostScratchTraces));
    else
        job.scratchTraces = static_cast<int>(traces);
}

} // namespace

std::vector<std::string> allowedDirectories(const Arguments& arguments)
{
    std::vector<std::string> directories = arguments.texts("--allow-modules-from");
    for (const std::string& directory : directories) {
        if (!std::filesystem::is_directory(directory))
            throw CommandError("--allow-modules-from: " + quote(directory) + " is not a directory");
    }
    return directories;
}

std::vector<OptionSpec> jobOptions()
{
    return {
        {"--set",
         "MODULE.PARAMETER=VALUE",
         "set a parameter of the job; paths are relative to the current directory",
         ValueKind::text,
         {},
         true},
        {"--scratch", "DIR", "directory of the scratch file", ValueKind::directory},
        {"--scratch-traces", "N", "traces that stay in memory", ValueKind::integer},
        {"--allow-modules-from",
         "DIR",
         "also use the module libraries in this directory",
         ValueKind::directory,
         {},
         true},
    };
}

ArgumentSpec jobArgument()
{
    return {"JOB.yaml", "the job file", ValueKind::file};
}

LoadedJob loadJob(const Arguments& arguments, const JobChange& change)
{
    LoadedJob loaded;
    loaded.path = arguments.text("JOB.yaml");
    JobDraft draft(findVornHome(), allowedDirectories(arguments));
    draft.read(loaded.path);
    for (const std::string& setting : arguments.texts("--set"))
        draft.set(setting);
    if (JobFile* file = draft.file()) {
        applyScratchOptions(arguments, *file, draft.diagnostics());
        if (change)
            change(*file, draft.catalog(), draft.diagnostics());
    }
    loaded.job = draft.check(loaded.diagnostics);
    if (arguments.has("--sanitizer-libs") && runtimeForProbed())
        restartWith(*runtimeForProbed());
    return loaded;
}

std::string countText(const Diagnostics& diagnostics)
{
    const std::string errors =
        diagnostics.hasErrors() ? counted(diagnostics.errors(), "error") : "no errors";
    return errors +
           (diagnostics.warnings() > 0 ? ", " + counted(diagnostics.warnings(), "warning") : "");
}

void refuseErrors(const LoadedJob& loaded)
{
    loaded.diagnostics.print(stderr);
    if (loaded.diagnostics.errors() == 1)
        throw CommandError(""); // it speaks for itself
    if (loaded.diagnostics.hasErrors())
        throw CommandError(escaped(loaded.path) + ": " + countText(loaded.diagnostics) +
                           "; nothing was run");
}

} // namespace host
