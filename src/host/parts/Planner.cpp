#include "parts/Planner.h"

#include "base/Escaping.h"
#include "base/Text.h"
#include "base/TextLayout.h"
#include "file/FileIdentity.h"
#include "parts/Cuts.h"
#include "parts/Stages.h"
#include "run/Console.h"
#include "run/RunFiles.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <sched.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace {

namespace fs = std::filesystem;

// Whether parts can write the file together: it is replaced in the end.
bool isOrdinaryFile(const std::string& path)
{
    // An open descriptor may be a regular file, too.
    struct stat status = {};
    return !VORN::isWrittenThrough(path) &&
           (stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode));
}

// The file behind links, which stay, for a hidden file beside it.
std::string placeOf(const std::string& path)
{
    std::error_code error;
    const fs::path place = fs::weakly_canonical(path, error);
    return error ? path : place.string();
}

std::string targetPattern(const std::string& path)
{
    const fs::path place = placeOf(path);
    return (place.parent_path() / ("." + place.filename().string() + ".vorn-XXXXXX")).string();
}

// The stages, with what is no ordinary file written by one process: it has no places in which each
// part could write.
Stages stagesFor(const ResolvedJob& job, const std::map<int, int64_t>& traces)
{
    ResolvedJob changed = job;
    std::map<int, std::string> reasons;
    Stages stages = stagesOf(job, traces);
    for (const SinkChain& sink : stages.sinks) {
        if (isOrdinaryFile(sink.path))
            continue;
        const auto place = static_cast<std::size_t>(sink.module);
        auto manifest = std::make_shared<Manifest>(*job.modules[place].manifest);
        manifest->parallel = {};
        changed.modules[place].manifest = manifest;
        reasons[sink.module] = quote(sink.path) + " is not a regular file";
    }
    if (reasons.empty())
        return stages;
    stages = stagesOf(changed, traces);
    for (const auto& [module, reason] : reasons)
        stages.modules[static_cast<std::size_t>(module)].reason = reason;
    return stages;
}

std::vector<PlannedInput> inputsOf(const ResolvedJob& job)
{
    std::vector<PlannedInput> inputs;
    for (const RunFile& file : describeFiles(job, false)) {
        struct stat status = {};
        if (stat(file.path.c_str(), &status) != 0 ||
            std::any_of(inputs.begin(), inputs.end(),
                        [&](const PlannedInput& one) { return one.path == file.path; }))
            continue;
        inputs.push_back({file.path, status.st_size, status.st_mtim.tv_sec,
                          static_cast<int64_t>(status.st_mtim.tv_nsec)});
    }
    return inputs;
}

} // namespace

Plan planJob(const ResolvedJob& job, int64_t parts)
{
    Plan plan;
    const std::map<int, int64_t> traces = tracesOfSources(job);
    const Stages stages = stagesFor(job, traces);
    plan.modules = stages.modules;
    if (!stages.hasParts())
        return plan;
    for (const int source : stages.sources)
        plan.traces = std::max(plan.traces, traces.at(source));
    plan.parts = cutsFor(job, stages, plan.traces, parts);
    plan.spools = stages.spools;
    for (const SinkChain& sink : stages.sinks)
        plan.outputs.push_back({job.modules[static_cast<std::size_t>(sink.module)].name, sink.path,
                                targetPattern(sink.path)});
    plan.inputs = inputsOf(job);
    return plan;
}

int64_t usefulParts(int64_t cores, int64_t bytes)
{
    constexpr int64_t forEachCore = 4;
    constexpr int64_t bytesOfPart = 1'000'000'000;
    return std::max<int64_t>(1,
                             std::min(cores * forEachCore, std::max(cores, bytes / bytesOfPart)));
}

std::string describePlan(const Plan& plan)
{
    int width = 0;
    for (const PlannedModule& module : plan.modules)
        width = std::max(width, displayWidth(module.name));
    std::string text;
    for (const PlannedModule& module : plan.modules)
        text += fmt::format(
            "{}{}  {}  {}\n", module.name,
            std::string(static_cast<std::size_t>(width - displayWidth(module.name)), ' '),
            module.stage == Stage::parts ? "parts" : "merge", module.reason);
    if (plan.parts.empty())
        return text + "no module of the job can run in parts\n";
    int64_t least = plan.parts.front().count;
    int64_t most = 0;
    for (const PlannedPart& part : plan.parts) {
        least = std::min(least, part.count);
        most = std::max(most, part.count);
    }
    text += fmt::format("{} in {}, {} to {} each\n", counted(plan.traces, "trace"),
                        counted(static_cast<int64_t>(plan.parts.size()), "part"), least, most);
    for (const PlannedOutput& output : plan.outputs)
        text += fmt::format("{}: each part writes its own traces\n", escaped(output.path));
    return text;
}

int usableCores()
{
    cpu_set_t set;
    if (sched_getaffinity(0, sizeof set, &set) == 0)
        return std::max(1, CPU_COUNT(&set));
    return std::max(1, static_cast<int>(sysconf(_SC_NPROCESSORS_ONLN)));
}

} // namespace host
