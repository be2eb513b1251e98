#include "ModuleHarness.h"

#include "DataChannel.h"
#include "JobManager.h"
#include "ModuleEntity.h"
#include "SeisTrace.h"
#include "SeisTraceSet.h"
#include "harness_data.h"

#include <algorithm>
#include <cstdlib>

// Under the address sanitizer, too, memory that cannot be had is a null pointer and no abort:
// modules are tested with that.
extern "C" __attribute__((weak, visibility("default"))) const char* __asan_default_options()
{
    return "allocator_may_return_null=1";
}

namespace {

// ---- What the host is told ----

// What the call-backs get.
struct Recorder
{
    HarnessResult& result;
    size_t lastStatistics = 0; // so many have come in the last phase
};

HarnessResult& resultOf(void* recorder)
{
    return static_cast<Recorder*>(recorder)->result;
}

int onMessage(int type, char*, const char* module, const char* text, void* recorder)
{
    resultOf(recorder).messages.push_back({type, module, text});
    return 0;
}

int onMessageArgument(const char* text, void* recorder)
{
    resultOf(recorder).arguments.push_back(text);
    return 0;
}

int onCreatePad(int ident, int type, int align, int visible, const char* title, void* recorder)
{
    resultOf(recorder).pads.push_back({ident, type, align, visible, title, {}, {}, {}});
    return 0;
}

int onPlot(int ident, plotCommandStruct command, void* recorder)
{
    for (HarnessPad& pad : resultOf(recorder).pads) {
        if (pad.ident != ident)
            continue;
        if (command.cbcd != nullptr)
            pad.texts.push_back(command.cbcd);
        command.cbcd = nullptr;
        pad.commands.push_back(command);
    }
    return 0;
}

int onTraces(int ident, void* traceSet, void* recorder)
{
    auto& set = *static_cast<SeisTraceSet*>(traceSet);
    for (HarnessPad& pad : resultOf(recorder).pads) {
        if (pad.ident != ident)
            continue;
        for (int i = 0; i < set.getNumberOfTraces(); ++i) {
            const SeisTrace* trace = set.getTrace(i, true);
            pad.traces.emplace_back(trace->getSamples(), trace->getSamples() + trace->traceLength);
        }
    }
    return 0;
}

int onCommand(const char* text, void* recorder)
{
    resultOf(recorder).commands.push_back(text);
    return 0;
}

// The traces that no module has read: neither the job nor the channel destroys them. Those of work
// buffers are the module's to destroy.
void removeTraces(const ModuleEntity& module)
{
    for (SeisTraceSet* set : module.outputDataChannels) {
        while (set->getNumberOfTraces() > 0)
            set->removeTrace(0);
    }
}

// Statistics come before the first and after every post-process entry, the last ones when all
// modules are done and still exist: the last chance to see what they have.
int onStatistic(jobStatisticStruct* statistic, void* context)
{
    auto* recorder = static_cast<Recorder*>(context);
    const ModuleList& modules = JobManager::getInstance()->jobModules;
    if (statistic->jobPhase != 3 || recorder->lastStatistics++ < modules.size())
        return 0;
    for (const ModuleEntity* module : modules) {
        removeTraces(*module);
        recorder->result.moduleMetadata[module->moduleName] = module->moduleMetaData;
        recorder->result.moduleOptions[module->moduleName] = module->moduleProcessingOptions;
        recorder->result.bytesLeft[module->moduleName] = module->totalModuleMemoryUsed;
    }
    return 0;
}

// None for a null pointer.
void installCallBacks(Recorder* recorder)
{
    JobManager* job = JobManager::getInstance();
    const bool on = recorder != nullptr;
    job->installMessageFunc(on ? onMessage : nullptr, on ? onMessageArgument : nullptr, recorder);
    job->installStatisticFunc(on ? onStatistic : nullptr, recorder);
    job->installCreatePadFunc(on ? onCreatePad : nullptr, recorder);
    // A test may listen to the traces itself.
    if (job->addTraceToPadFunc == (on ? nullptr : onTraces))
        job->installAddTraceToPadFuncFunc(on ? onTraces : nullptr, recorder);
    job->installAddPlotToPadFuncFunc(on ? onPlot : nullptr, recorder);
    job->installExecAppliFunc(on ? onCommand : nullptr, recorder);
}

// ---- What the sink sees ----

void takeTrace(void* context, void* traceSet)
{
    auto* result = static_cast<HarnessResult*>(context);
    auto* set = static_cast<SeisTraceSet*>(traceSet);
    const SeisTrace* first = set->getTrace(0, true);

    HarnessTrace trace;
    result->traceLength = set->getTraceLength();
    result->sampleInterval = set->getTraceSampleInterval();
    trace.samples.assign(first->traceSamples, first->traceSamples + first->traceLength);
    for (const std::string& name : set->getAttributesList())
        trace.attributes[name] = set->getAttribute(name, 0);
    trace.flag = set->getDataChannelFlag();
    result->traces.push_back(std::move(trace));
}

// ---- What the source emits ----

// The prepared traces in the form that a C module reads; points into `traces`.
class SourceData
{
public:
    SourceData(const std::vector<HarnessTrace>& traces, int sampleInterval, int tracesPerCall)
    {
        size_t length = 0;
        for (const HarnessTrace& trace : traces)
            length = std::max(length, trace.samples.size());
        for (const HarnessTrace& trace : traces)
            append(trace, length);
        record = {cTraces.data(), static_cast<int>(cTraces.size()), static_cast<int>(length),
                  sampleInterval, std::max(tracesPerCall, 1),       0};
    }

    harness_source record;

private:
    void append(const HarnessTrace& trace, size_t length)
    {
        std::vector<float>& padded = samples.emplace_back(trace.samples);
        padded.resize(std::max<size_t>(length, 1));
        std::vector<harness_attribute>& list = attributes.emplace_back();
        for (const auto& [name, value] : trace.attributes)
            list.push_back(cAttribute(name, value));
        cTraces.push_back({padded.data(), list.data(), static_cast<int>(list.size())});
    }

    harness_attribute cAttribute(const std::string& name, const UniVar& value)
    {
        const bool isArray = value.getType() >= int32ArrayType;
        const void* address = &value.int32Value; // the start of the value area, for every number
        if (value.getType() == strType)
            address = texts.emplace_back(value.getStrValue()).c_str();
        else if (isArray)
            address = value.int32ArrayValue;
        return {name.c_str(), value.getType(), isArray ? value.getArraySize() : 1, address};
    }

    // Deques: what lies in them keeps its place.
    std::deque<std::vector<float>> samples;
    std::deque<std::vector<harness_attribute>> attributes;
    std::deque<std::string> texts;
    std::vector<harness_trace> cTraces;
};

// ---- The job ----

void join(ModuleEntity* producer, ModuleEntity* consumer)
{
    auto* channel = new DataChannel; // the job deletes it after post-processing
    producer->setOutputDataChannel(channel, 0);
    consumer->setInputDataChannel(channel, 0);
}

ModuleEntity* load(const HarnessModule& module)
{
    ModuleEntity* entity = JobManager::getInstance()->initJobModule(module.name, module.library);
    if (entity == nullptr)
        return nullptr;
    for (const auto& [name, value] : module.parameters)
        entity->setParameter(name, value);
    for (const auto& [name, value] : module.options)
        entity->setProcessingOption(name, value);
    for (const auto& [name, value] : module.resources)
        entity->setResource(name, value);
    return entity;
}

// Loads all or none.
std::vector<ModuleEntity*> loadAll(const std::vector<HarnessModule>& modules)
{
    std::vector<ModuleEntity*> entities;
    for (const HarnessModule& module : modules) {
        entities.push_back(load(module));
        if (entities.back() != nullptr)
            continue;
        ModuleList& loaded = JobManager::getInstance()->jobModules;
        for (ModuleEntity* entity : loaded)
            delete entity;
        loaded.clear();
        return {};
    }
    return entities;
}

void clearJob()
{
    JobManager* job = JobManager::getInstance();
    job->trAttDefsList.clear();
    job->metaDataMap.clear();
    job->activeModule = nullptr; // the processing phase leaves the last module there
    installCallBacks(nullptr);
}

} // namespace

std::vector<std::string> HarnessResult::messagesOf(int type, const std::string& module) const
{
    std::vector<std::string> texts;
    for (const HarnessMessage& message : messages) {
        // The kernel announces its phases under the name of the module that has run last.
        const bool isBanner = message.text.rfind("**********", 0) == 0;
        const bool wanted =
            !isBanner && (module.empty() ? message.module != "Kernel" : message.module == module);
        if (message.type == type && wanted)
            texts.push_back(message.text);
    }
    return texts;
}

std::string HarnessResult::allMessages() const
{
    std::string lines;
    for (const HarnessMessage& message : messages)
        lines += message.module + ": " + message.text + "\n";
    return lines;
}

HarnessModule& ModuleHarness::add(const std::string& name, const std::string& library)
{
    HarnessModule module;
    module.name = name;
    module.library = library;
    return modules.emplace_back(std::move(module));
}

void ModuleHarness::push(std::vector<float> samples, std::map<std::string, UniVar> attributes)
{
    input.push_back({std::move(samples), std::move(attributes), 0});
}

void ModuleHarness::define(const std::string& attribute, int type, int dimension,
                           const std::string& description)
{
    definitions.push_back({attribute, type, dimension, description});
}

HarnessResult ModuleHarness::run()
{
    JobManager* job = JobManager::getInstance();
    HarnessResult result;

    setenv("VORN_HOME", VORN_TEST_HOME, 1);
    clearJob();
    Recorder recorder{result};
    installCallBacks(&recorder);
    if (!projectDirectory.empty())
        job->setProjectDir(QString::fromStdString(projectDirectory));
    if (!scratchDirectory.empty())
        job->setScratchDir(QString::fromStdString(scratchDirectory));
    job->metaDataMap = jobMetadata;
    for (const Definition& d : definitions)
        job->addTraceAttributeDefinition(d.name, d.type, d.dimension, d.description, 0, 0, 0, 0, 0);

    SourceData source(input, sampleInterval, tracesPerCall);
    harness_sink sink = {takeTrace, &result};
    std::vector<HarnessModule> chain(modules.begin(), modules.end());
    if (withSource)
        chain.insert(chain.begin(), {"source",
                                     "libharness_source.so",
                                     {},
                                     {},
                                     {{"HARNESS", UniVar(static_cast<void*>(&source.record))}}});
    if (withSink)
        chain.push_back({"sink",
                         "libharness_sink.so",
                         {},
                         {},
                         {{"HARNESS", UniVar(static_cast<void*>(&sink))}}});

    const std::vector<ModuleEntity*> entities = loadAll(chain);
    if (!entities.empty()) {
        result.loaded = true;
        for (size_t i = 1; i < entities.size(); ++i)
            join(entities[i - 1], entities[i]);
        job->preProcessJob();
        job->processJob();
        job->postProcessJob();
        result.jobMetadata = job->metaDataMap;
    }
    clearJob();
    return result;
}
