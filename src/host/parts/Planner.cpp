#include "parts/Planner.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Text.h"
#include "base/TextLayout.h"
#include "file/FileIdentity.h"
#include "job/ReadingOrder.h"
#include "parts/Cuts.h"
#include "parts/HeaderScan.h"
#include "parts/Stages.h"
#include "run/Console.h"
#include "run/RunFiles.h"
#include "run/ScratchSpace.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <sched.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr const char* orderFileName = "order"; // in the directory of a plan

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

// The job with an order that its source has made in `directory`; nothing where nobody would use it,
// or the source declines.
std::optional<ResolvedJob> sortedJob(const ResolvedJob& job, const std::map<int, int64_t>& traces,
                                     const std::string& directory)
{
    std::optional<ReadingOrder> order = readingOrderOf(job);
    if (!order)
        return std::nullopt;
    ResolvedJob sorted = job;
    order->file = (fs::path(directory) / orderFileName).string();
    sorted.order = order;
    const Stages stages = stagesFor(sorted, traces);
    for (const PlannedModule& module : stages.modules) {
        if (module.name == order->sorter && module.stage == Stage::merge)
            return std::nullopt;
    }
    announcedTraces(sorted, order->source);
    std::error_code error;
    return fs::exists(order->file, error) ? std::optional(sorted) : std::nullopt;
}

} // namespace

OrderFile::OrderFile(const std::string& path) : descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC))
{
    if (descriptor < 0)
        throw CommandError(fmt::format("the order of the traces {} cannot be read: {}", quote(path),
                                       std::strerror(errno)),
                           exitTryAgain);
}

OrderFile::~OrderFile()
{
    close(descriptor);
}

void OrderFile::copyTo(const std::string& path) const
{
    const int to = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    off_t offset = 0;
    ssize_t copied = to < 0 ? -1 : 1;
    while (copied > 0) {
        constexpr std::size_t most = std::size_t{1} << 30;
        copied = sendfile(to, descriptor, &offset, most);
    }
    int failure = copied < 0 ? errno : 0;
    if (to >= 0 && close(to) != 0 && failure == 0)
        failure = errno;
    if (failure == 0)
        return;
    unlink(path.c_str());
    throw CommandError(fmt::format("the order of the traces {} cannot be written: {}", quote(path),
                                   std::strerror(failure)),
                       exitTryAgain);
}

void keepOrder(Plan& plan, const std::string& directory)
{
    if (!plan.order || plan.orderFile == nullptr)
        return;
    plan.order->file = (fs::absolute(directory) / orderFileName).lexically_normal().string();
    plan.orderFile->copyTo(plan.order->file);
    plan.orderFile.reset();
}

Plan planJob(const ResolvedJob& given, int64_t parts, bool sorts)
{
    Plan plan;
    const std::map<int, int64_t> traces = tracesOfSources(given);
    std::optional<ScratchSpace> scratch; // until the cuts have been found
    std::optional<ResolvedJob> sorted;
    if (sorts && readingOrderOf(given)) {
        scratch.emplace(given.scratchDirectory);
        sorted = sortedJob(given, traces, scratch->path());
    }
    const ResolvedJob& job = sorted ? *sorted : given;
    if (sorted) {
        plan.order =
            PlannedOrder{job.order->source, job.order->sorter, job.order->keys, job.order->file};
        plan.orderFile = std::make_shared<OrderFile>(job.order->file);
    }
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
