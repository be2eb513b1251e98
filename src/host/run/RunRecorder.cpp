#include "run/RunRecorder.h"

#include "JobManager.h"
#include "ModuleEntity.h"
#include "base/Text.h"

#include <algorithm>
#include <array>
#include <fmt/format.h>

namespace host {

namespace {

constexpr int64_t segyTraceHeaderBytes = 240;
// Metadata under which a module hands on whole headers of its file; `vorn header` shows those.
constexpr std::array headerKeys = {"segy.text",           "segy.text.bytes", "segy.text.ext",
                                   "segy.text.ext.bytes", "segy.binary",     "segy.binary.rest"};

// The kernel's counters have 32 bits; as unsigned ones they reach twice as far.
int64_t bytesOf(int counter)
{
    return static_cast<int64_t>(static_cast<uint32_t>(counter));
}

} // namespace

RunRecorder::RunRecorder(const ResolvedJob& resolved, RunResult& facts, LiveCounters& counters)
    : job(resolved), result(facts), live(counters)
{
}

void RunRecorder::describeModules()
{
    for (const ResolvedModule& module : job.modules) {
        RunModule row;
        row.name = module.name;
        row.module = module.module;
        if (module.manifest != nullptr) {
            row.version = module.manifest->version;
            row.purpose = module.manifest->purpose;
            row.language = module.manifest->language;
        }
        for (const ResolvedInput& input : module.inputs) {
            const std::string name = job.portName(input.module, input.port);
            const std::string number = std::to_string(input.port + 1);
            row.inputs.push_back({job.modules[static_cast<std::size_t>(input.module)].name,
                                  input.port + 1, name == number ? "" : name});
        }
        for (const ResolvedParameter& parameter : module.parameters)
            row.parameters.push_back({parameter.name, parameter.type, parameter.value.text,
                                      parameter.unit, parameter.given});
        result.modules.push_back(row);
    }
}

void RunRecorder::watch(const std::vector<ModuleEntity*>& entities, const BuiltJob& wiring,
                        bool watchHeaders)
{
    modules = entities;
    channels = wiring.channels;
    microsBefore.assign(modules.size() + wiring.tees.size(), 0);
    tees = wiring.tees;
    teesBehind.resize(modules.size());
    for (std::size_t i = 0; i < tees.size(); ++i)
        teesBehind[static_cast<std::size_t>(tees[i].producer)].push_back(i);
    std::vector<std::string> words;
    for (const ResolvedAttribute& attribute : job.attributes)
        words.push_back(attribute.name);
    for (const BuiltChannel& built : channels) {
        built.channel->onArrival = [this, built, announced = int64_t(0)]() mutable {
            noteArrival(built, announced);
        };
        built.channel->onDeparture = [this, built] {
            notePeak(static_cast<std::size_t>(built.module));
        };
        if (watchHeaders && built.port == 0 &&
            modules[static_cast<std::size_t>(built.module)]->inputDataChannels.empty())
            built.channel->watchWords(words);
    }
}

void RunRecorder::showTees()
{
    for (const BuiltTee& tee : tees) {
        RunModule row;
        row.name = tee.module->getName();
        row.module = "tee";
        const int port = tee.port;
        const std::string name = job.portName(tee.producer, port);
        const std::string number = std::to_string(port + 1);
        row.inputs.push_back({job.modules[static_cast<std::size_t>(tee.producer)].name, port + 1,
                              name == number ? "" : name});
        result.tees.push_back(row);
    }
}

void RunRecorder::noteArrival(const BuiltChannel& built, int64_t& announcedBefore)
{
    constexpr auto relaxed = std::memory_order_relaxed;
    const auto module = static_cast<std::size_t>(built.module);
    if (job.modules[module].inputs.empty())
        live.traces.fetch_add(1, relaxed);
    const int64_t announced = built.channel->getTotalTracesNumber();
    if (announced != announcedBefore) {
        live.announced.fetch_add(announced - announcedBefore, relaxed);
        if (announcedBefore == 0) // traces that came before the announcement
            live.done.fetch_add(built.channel->arrived() - 1, relaxed);
        announcedBefore = announced;
    }
    if (announced > 0)
        live.done.fetch_add(1, relaxed);
    notePeak(module);
}

void RunRecorder::notePeak(std::size_t module)
{
    RunStatistics& statistics = result.modules[module].statistics;
    statistics.peakBytes = std::max(statistics.peakBytes, bytesHeldBy(module));
    if (!result.tees.empty()) {
        for (const std::size_t tee : teesBehind[module]) {
            int64_t& peak = result.tees[tee].statistics.peakBytes;
            peak = std::max(peak, bytesOf(tees[tee].module->getTotalModuleMemoryUsed()));
        }
    }
    const int64_t bytes = bytesOf(JobManager::getInstance()->totalJobMemoryUsed);
    result.peakJobBytes = std::max(result.peakJobBytes, bytes);
    live.bytes.store(bytes, std::memory_order_relaxed);
}

// With what waits for the readers of its outputs, whose traces are copies of the module's own.
int64_t RunRecorder::bytesHeldBy(std::size_t module) const
{
    int64_t bytes = bytesOf(modules[module]->getTotalModuleMemoryUsed());
    for (const std::size_t tee : teesBehind[module])
        bytes += bytesOf(tees[tee].module->getTotalModuleMemoryUsed());
    return bytes;
}

void RunRecorder::notePeaks()
{
    for (std::size_t i = 0; i < modules.size(); ++i)
        notePeak(i);
}

// The time since the phase before ended goes to `field` of each module.
void RunRecorder::noteMicros(int64_t RunStatistics::*field)
{
    for (std::size_t i = 0; i < modules.size(); ++i)
        noteMicrosOf(*modules[i], i, result.modules[i].statistics.*field);
    for (std::size_t i = 0; i < result.tees.size(); ++i)
        noteMicrosOf(*tees[i].module, modules.size() + i, result.tees[i].statistics.*field);
}

void RunRecorder::noteMicrosOf(const ModuleEntity& module, std::size_t place, int64_t& field)
{
    const int64_t micros = module.totalModuleWorkTime;
    field = micros - microsBefore[place];
    microsBefore[place] = micros;
}

void RunRecorder::noteOrder()
{
    int place = 0;
    for (const ModuleEntity* module : JobManager::getInstance()->jobModules) {
        const auto known = std::find(modules.begin(), modules.end(), module);
        if (known != modules.end())
            result.modules[static_cast<std::size_t>(known - modules.begin())].order = ++place;
    }
}

void RunRecorder::collectTees()
{
    for (std::size_t i = 0; i < result.tees.size(); ++i) {
        RunStatistics& statistics = result.tees[i].statistics;
        ModuleEntity* tee = tees[i].module;
        statistics.tracesIn =
            static_cast<CountingChannel*>(tee->getInputDataChannel(0))->taken(tee);
        statistics.tracesOut = 0;
        for (const CountingChannel* reader : tees[i].readers)
            statistics.tracesOut += reader->arrived();
        statistics.postprocessMicros = tee->totalModuleWorkTime - microsBefore[modules.size() + i];
        statistics.bytesLeft = bytesOf(tee->getTotalModuleMemoryUsed());
    }
}

// Called while modules and channels still exist; what is noted last counts.
void RunRecorder::collect()
{
    for (std::size_t i = 0; i < modules.size(); ++i) {
        RunStatistics& statistics = result.modules[i].statistics;
        statistics.tracesIn = statistics.tracesOut = statistics.tracesAnnounced = 0;
        for (DataChannel* channel : modules[i]->inputDataChannels)
            statistics.tracesIn += static_cast<CountingChannel*>(channel)->taken(modules[i]);
        for (DataChannel* channel : modules[i]->outputDataChannels) {
            statistics.tracesOut += static_cast<CountingChannel*>(channel)->arrived();
            statistics.tracesAnnounced += channel->getTotalTracesNumber();
        }
        statistics.postprocessMicros = modules[i]->totalModuleWorkTime - microsBefore[i];
        statistics.bytesLeft = bytesHeldBy(i);
        collectMetadata(i);
    }
    collectTees();
    collectSources();
}

// Values never change once they are set, so a number that has not grown means nothing new.
void RunRecorder::collectMetadata(std::size_t module)
{
    const std::map<std::string, std::string>& noted = modules[module]->getMetaData();
    std::map<std::string, std::string>& shown = result.modules[module].metadata;
    if (noted.size() == shown.size())
        return;
    result.modules[module].textHeader.clear();
    for (const auto& [key, value] : noted) {
        if (key == "segy.text" || key == "segy.text.ext") // in this order
            result.modules[module].textHeader +=
                (result.modules[module].textHeader.empty() ? "" : "\n") + value;
        const bool isHeader =
            std::find(headerKeys.begin(), headerKeys.end(), key) != headerKeys.end();
        shown[key] = isHeader ? fmt::format("(a whole header of {}, not kept here)",
                                            counted(static_cast<int64_t>(value.size()), "byte"))
                              : value;
    }
}

void RunRecorder::collectSources()
{
    result.sources.clear();
    result.sourceTraces = result.sourceBytes = 0;
    for (const BuiltChannel& built : channels) {
        const auto module = static_cast<std::size_t>(built.module);
        if (!job.modules[module].inputs.empty())
            continue;
        SourceData source;
        source.module = job.modules[module].name;
        source.traces = built.channel->arrived();
        source.announced = built.channel->getTotalTracesNumber();
        source.samples = built.channel->getTraceLength();
        source.intervalMicros = built.channel->getTraceSampleInterval();
        for (const CountingChannel::WordRange& range : built.channel->words()) {
            if (range.minimum != 0 || range.maximum != 0)
                source.words.push_back(
                    {range.word,
                     JobManager::getInstance()->getTraceAttributeDescription(range.word),
                     range.minimum, range.maximum, range.first, range.last, range.changes});
        }
        result.sourceTraces += source.traces;
        result.sourceBytes +=
            source.traces * (segyTraceHeaderBytes + 4 * static_cast<int64_t>(source.samples));
        result.sources.push_back(source);
    }
}

} // namespace host
