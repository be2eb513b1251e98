#include "cli/PlannedJob.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Portable.h"
#include "base/Text.h"
#include "job/JobFileRoles.h"
#include "parts/PlanFile.h"
#include "run/RunFiles.h"

#include <filesystem>
#include <fmt/format.h>

#ifndef VORN_VERSION
#define VORN_VERSION "unknown"
#endif

namespace host {

namespace {

namespace fs = std::filesystem;

// The call of then, for loadJob().
Arguments callOf(const Plan& plan)
{
    Arguments arguments;
    arguments.values["JOB.yaml"] = {plan.jobPath};
    if (!plan.settings.empty())
        arguments.values["--set"] = plan.settings;
    if (!plan.moduleDirectories.empty())
        arguments.values["--allow-modules-from"] = plan.moduleDirectories;
    if (!plan.scratchDirectory.empty())
        arguments.values["--scratch"] = {plan.scratchDirectory};
    if (!plan.scratchTraces.empty())
        arguments.values["--scratch-traces"] = {plan.scratchTraces};
    return arguments;
}

} // namespace

ArgumentSpec planArgument()
{
    return {"DIR", "the directory of a plan, as \"vorn plan\" has made it", ValueKind::directory};
}

OptionSpec portableOption()
{
    return {"--portable", "",
            "use nothing whose results depend on the instructions of the machine, so that they are "
            "the same on all x86-64 machines"};
}

void noteCall(const Arguments& arguments, const LoadedJob& loaded, Plan& plan)
{
    plan.vornVersion = VORN_VERSION;
    plan.vornHome = loaded.job.vornHome;
    plan.jobFile = loaded.job.file;
    plan.jobPath = loaded.path;
    plan.jobSha256 = sha256OfFile(loaded.job.file);
    plan.settings = arguments.texts("--set");
    for (const std::string& directory : arguments.texts("--allow-modules-from"))
        plan.moduleDirectories.push_back(fs::absolute(directory).lexically_normal().string());
    if (arguments.has("--scratch"))
        plan.scratchDirectory = loaded.job.scratchDirectory;
    plan.scratchTraces = arguments.text("--scratch-traces");
    plan.workingDirectory = fs::current_path().string();
    plan.portable = isPortable();
    plan.cpuClass = plan.portable ? "portable" : cpuClass();
}

PlannedJob loadPlannedJob(const Arguments& arguments)
{
    PlannedJob planned;
    planned.directory = fs::absolute(arguments.text("DIR")).lexically_normal().string();
    StoredPlan stored = readPlan(planned.directory);
    planned.plan = std::move(stored.plan);
    planned.planSha256 = stored.sha256;
    const Plan& plan = planned.plan;
    if (plan.portable)
        becomePortable();

    std::error_code error;
    fs::current_path(plan.workingDirectory, error);
    if (error)
        throw CommandError("the working directory of the plan, " + quote(plan.workingDirectory) +
                           ", cannot be entered: " + error.message());
    planned.loaded = loadJob(callOf(plan));
    if (planned.loaded.diagnostics.hasErrors())
        refuseErrors(planned.loaded);
    Plan now = plan;
    noteCall(callOf(plan), planned.loaded, now);
    noteInputs(now);
    const std::vector<std::string> changes = differences(plan, now);
    if (!changes.empty())
        throw CommandError(joined(changes, "\n") + "\nthe plan in " + quote(planned.directory) +
                           " does not hold any more; make a new one with \"vorn plan\"");
    useFilesOf(planned.loaded.job);
    return planned;
}

} // namespace host
