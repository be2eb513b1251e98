#include "parts/PartRun.h"

#include "JobManager.h"
#include "ModuleEntity.h"
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "parts/OwnFile.h"
#include "parts/PartEntries.h"
#include "run/JobRunner.h"

#include <algorithm>
#include <filesystem>
#include <fmt/format.h>
#include <set>

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr char partKey[] = "vorn.part"; // of the job's metadata; modules know it

// Entry points have no arguments.
PartRun* current = nullptr;

ResolvedParameter rangeParameter(const std::string& name, const PlannedPart& range)
{
    ResolvedParameter parameter;
    parameter.name = name;
    parameter.type = "text";
    parameter.value.text = fmt::format("{}:{}", range.first + 1, range.first + range.count);
    parameter.value.value = UniVar(parameter.value.text);
    return parameter;
}

// Where the modules of the first stage stand in the job of a part; -1 for the others.
std::vector<int> placesInPart(const Plan& plan)
{
    std::vector<int> places;
    int next = 0;
    for (const PlannedModule& module : plan.modules)
        places.push_back(module.stage == Stage::parts ? next++ : -1);
    return places;
}

} // namespace

ResolvedJob jobOfPart(const ResolvedJob& job, const Plan& plan, int part)
{
    const std::vector<int> places = placesInPart(plan);
    const PlannedPart& range = plan.parts.at(static_cast<std::size_t>(part - 1));
    ResolvedJob first = job;
    first.modules.clear();
    first.order.reset();
    if (plan.order)
        first.order = ReadingOrder{places.at(static_cast<std::size_t>(plan.order->source)),
                                   plan.order->sorter, plan.order->keys, plan.order->file};
    for (std::size_t i = 0; i < job.modules.size(); ++i) {
        if (places[i] < 0)
            continue;
        ResolvedModule module = job.modules[i];
        std::fill(module.consumers.begin(), module.consumers.end(), 0);
        for (ResolvedInput& input : module.inputs)
            input.module = places[static_cast<std::size_t>(input.module)];
        if (module.inputs.empty())
            module.parameters.push_back(
                rangeParameter(module.manifest->parallel.rangeParameter, range));
        first.modules.push_back(std::move(module));
    }
    const auto addReader = [&](int module, int port) {
        ++first.modules[static_cast<std::size_t>(module)].consumers.at(
            static_cast<std::size_t>(port));
    };
    for (const ResolvedModule& module : first.modules) {
        for (const ResolvedInput& input : module.inputs)
            addReader(input.module, input.port);
    }
    for (const PlannedSpool& spool : plan.spools)
        addReader(places[static_cast<std::size_t>(spool.module)], spool.port);
    return first;
}

PartRun::PartRun(const Plan& made, const std::string& planDirectory, int number)
    : plan(made), directory(planDirectory), part(number)
{
    const std::vector<int> numbers = placesInPart(plan);
    std::error_code error;
    fs::create_directories(fs::path(statePath(directory, part, "x")).parent_path(), error);
    if (error)
        throw CommandError("the directory " + quote(directory) +
                               " cannot be written: " + error.message(),
                           exitTryAgain);
    for (std::size_t i = 0; i < plan.spools.size(); ++i) {
        places.push_back(
            {numbers[static_cast<std::size_t>(plan.spools[i].module)], plan.spools[i].port});
        spools.push_back(std::make_unique<SpoolWriter>(spoolPath(directory, part, i)));
    }
    facts.part = part;
    current = this;
}

PartRun::~PartRun()
{
    current = nullptr;
}

int (*PartRun::readerFunction() const)()
{
    return spoolTrace;
}

int PartRun::spoolTrace()
{
    ModuleEntity* active = JobManager::getInstance()->getActiveModule();
    const auto known = std::find(current->readers.begin(), current->readers.end(), active);
    SpoolWriter& spool =
        *current->spools[static_cast<std::size_t>(known - current->readers.begin())];
    spool.write(*active->getInputTrace(0));
    return 0;
}

void PartRun::connected(const RunView& view)
{
    const PlannedPart& range = plan.parts.at(static_cast<std::size_t>(part - 1));
    view.manager.setMetaDataValue(
        0, partKey, fmt::format("{} {} {} {}", part, plan.parts.size(), range.first, plan.traces));
    readers.assign(spools.size(), nullptr);
    for (const BuiltReader& built : view.wiring.readers) {
        for (std::size_t i = 0; i < places.size(); ++i) {
            if (places[i].module == built.module && places[i].port == built.port)
                readers[i] = built.reader;
        }
    }
}

void PartRun::prepared(const RunView& view)
{
    firstMessage = view.result.messages.size() + 1; // behind the kernel's banner
}

void PartRun::processed(const RunView& view, bool good)
{
    lastMessage = view.result.messages.size();
    if (good)
        save(view);
}

void PartRun::save(const RunView& view)
{
    for (const std::unique_ptr<SpoolWriter>& spool : spools)
        spool->close(plan.lasting);
    for (std::size_t i = 0; i < view.modules.size(); ++i) {
        ModuleEntity& module = *view.modules[i];
        const PartEntry entry = findPartEntry(view.job.modules[i], module, "save_");
        if (entry == nullptr)
            continue;
        OwnFile file(statePath(directory, part, module.getName()));
        callPartEntry(view, module, entry, file.temporaryPath(), "its state cannot be saved");
        if (!view.result.failed) {
            if (plan.lasting)
                file.sync();
            file.publish();
        }
        module.postProcessFunction = nullptr; // save_ has ended the module
    }
}

// Outputs are complete when their modules have ended, and not before.
void PartRun::sync() const
{
    if (!plan.lasting)
        return;
    std::set<std::string> directories = {directory,
                                         fs::path(statePath(directory, part, "x")).parent_path()};
    for (const PlannedOutput& output : plan.outputs) {
        syncFile(output.target);
        directories.insert(fs::path(output.target).parent_path());
    }
    for (const std::string& one : directories)
        syncDirectory(one);
}

void PartRun::ended(RunResult& result)
{
    // What follows the processing, a failure apart, is said once, when all parts are merged.
    std::size_t last = std::max(firstMessage, lastMessage);
    if (result.failed)
        last = result.messages.size();
    facts.failed = result.failed;
    for (std::size_t i = std::min(firstMessage, last); i < last; ++i) {
        const RunMessage& message = result.messages[i];
        if (i < lastMessage || message.severity >= warningSeverity)
            facts.messages.push_back({message, message.onceKey});
    }
    facts.messagesLeftOut = result.messagesLeftOut;
    facts.peakJobBytes = result.peakJobBytes;
    facts.processWallMicros = result.processWallMicros;
    facts.sources = result.sources;
    for (const RunModule& module : result.modules) {
        PartModule row;
        row.name = module.name;
        row.tracesIn = module.statistics.tracesIn;
        row.tracesOut = module.statistics.tracesOut;
        row.processMicros = module.statistics.processMicros;
        row.peakBytes = module.statistics.peakBytes;
        std::error_code error;
        const auto bytes = fs::file_size(statePath(directory, part, module.name), error);
        row.stateBytes = error ? -1 : static_cast<int64_t>(bytes);
        facts.modules.push_back(row);
    }
    for (const std::unique_ptr<SpoolWriter>& spool : spools)
        facts.spooled.push_back(spool->traces());
}

} // namespace host
