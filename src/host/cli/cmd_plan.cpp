// vorn plan JOB.yaml: says how a job runs in parts, and makes the directory for them.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Portable.h"
#include "base/Text.h"
#include "cli/JobLoader.h"
#include "cli/PlannedJob.h"
#include "cli/RunReport.h"
#include "job/JobFileRoles.h"
#include "parts/PlanFile.h"
#include "parts/Planner.h"
#include "parts/Receipt.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fmt/format.h>
#include <unistd.h>

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr long long mostParts = 1'000'000;

int64_t partsFor(const Arguments& arguments, const ResolvedJob& job)
{
    if (!arguments.has("--parts")) {
        int64_t bytes = 0;
        for (const ResolvedModule& module : job.modules) {
            for (const ResolvedParameter& parameter : module.parameters) {
                if (!parameter.isInputFile)
                    continue;
                for (const std::string& file : filesOf(parameter)) {
                    std::error_code error;
                    const auto size = fs::file_size(file, error);
                    bytes += error ? 0 : static_cast<int64_t>(size);
                }
            }
        }
        return usefulParts(usableCores(), bytes);
    }
    const long long parts = arguments.integer("--parts", 1);
    if (parts < 1 || parts > mostParts)
        throw CommandError(
            fmt::format("--parts is {}; expected a number from 1 to {}", parts, mostParts));
    return parts;
}

// The hidden files that the parts write together. They stay when this process ends.
void makeTargets(Plan& plan)
{
    for (PlannedOutput& output : plan.outputs) {
        const int descriptor = mkstemp(output.target.data());
        if (descriptor < 0)
            throw CommandError("the output " + quote(output.path) +
                               " cannot be written: " + std::strerror(errno));
        close(descriptor);
    }
}

// A directory with another plan may have parts that run.
void refusePlan(const std::string& directory)
{
    const std::string path = (fs::path(directory) / planFileName).string();
    if (fs::exists(path))
        throw CommandError("there is a plan in " + quote(directory) +
                           " already; give another directory, or remove this one");
}

int runPlan(const Arguments& arguments)
{
    if (arguments.has("--portable"))
        becomePortable();
    const LoadedJob loaded = loadJob(arguments);
    refuseErrors(loaded);
    useFilesOf(loaded.job);
    const bool isDry = arguments.has("--dry-run");
    const std::string directory = arguments.text("--output");
    if (!isDry && directory.empty())
        throw CommandError(
            "plan: --output DIR, or --dry-run, is missing (see \"vorn plan --help\")");
    Plan plan = planJob(loaded.job, partsFor(arguments, loaded.job));
    const std::string text = describePlan(plan);
    std::fwrite(text.data(), 1, text.size(), stdout);
    if (isDry)
        return exitDone;
    if (plan.parts.empty())
        throw CommandError("the job cannot run in parts; \"vorn run\" runs it", exitWrongCall);
    makeDirectory(directory, "--output");
    refusePlan(directory);
    noteCall(arguments, loaded, plan);
    keepOrder(plan, directory);
    makeTargets(plan);
    writePlan(plan, directory);
    fmt::print("{}\n", escaped((fs::path(directory) / planFileName).string()));
    return exitDone;
}

} // namespace

Command planCommand()
{
    std::vector<OptionSpec> options = jobOptions();
    const std::vector<OptionSpec> own = {
        {"--parts", "N",
         "the number of parts at most; without it four for each core, of a gigabyte at least",
         ValueKind::integer},
        {"-o,--output", "DIR", "the directory for the plan and what the parts leave",
         ValueKind::directory},
        {"--dry-run", "", "only say what would run where, and why"},
        portableOption(),
    };
    options.insert(options.end(), own.begin(), own.end());
    return {"plan",
            runPlan,
            "Plan a job in parts",
            "Checks the job and decides how it runs in parts: which modules work on ranges of the "
            "traces, which need all of them and run when the parts have ended, and where to cut. "
            "With --output, the plan goes to a directory, and hidden files are made beside the "
            "outputs; \"vorn part\" runs the parts, on this machine or on others that see the same "
            "files, and \"vorn merge\" makes one result of them.",
            {jobArgument()},
            options,
            {{"vorn plan job.yaml --dry-run", "what runs in parts, and what does not, and why"},
             {"vorn plan job.yaml --parts 100 -o run1", "plan 100 parts"}}};
}

} // namespace host
