#include "ModuleHarness.h"

#include "DataChannel.h"
#include "JobManager.h"
#include "ModuleEntity.h"
#include "SeisTrace.h"
#include "SeisTraceSet.h"
#include "harness_data.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <stdlib.h>
#include <string_view>
#include <utility>

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
    /// In a part: the messages that a job shows once and has shown, by module and key.
    std::map<std::string, int>* sentOnce = nullptr;
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

// How many messages with the mark a job shows: the number behind the key, or one.
int mostOf(const std::string& mark)
{
    const std::size_t blank = mark.find(' ', mark.find(' ') + 1);
    return blank == std::string::npos ? 1 : std::stoi(mark.substr(blank + 1));
}

int onMessageArgument(const char* text, void* recorder)
{
    constexpr std::string_view once = "vorn.once ";
    HarnessResult& result = resultOf(recorder);
    std::map<std::string, int>* sent = static_cast<Recorder*>(recorder)->sentOnce;
    if (sent == nullptr || std::string_view(text).substr(0, once.size()) != once)
        result.arguments.push_back(text);
    else if (++(*sent)[result.messages.back().module + " " + text] > mostOf(text))
        result.messages.pop_back();
    return 0;
}

int onCreatePad(int ident, int type, int align, int visible, const char* title, void* recorder)
{
    resultOf(recorder).pads.push_back({ident, type, align, visible, title, {}, {}, {}, {}});
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
            std::string& attributes = pad.attributes.emplace_back();
            for (const std::string& name : set.getAttributesList())
                attributes += (attributes.empty() ? "" : " ") + name + "=" +
                              set.getAttribute(name, i).getStrValue();
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

// The prepared traces in the form that a C module reads; points into `traces`. Those from `first`
// on and before `end` are emitted.
class SourceData
{
public:
    SourceData(const std::vector<HarnessTrace>& traces, int sampleInterval, int tracesPerCall,
               std::size_t first, std::size_t end)
    {
        size_t length = 0;
        for (const HarnessTrace& trace : traces)
            length = std::max(length, trace.samples.size());
        for (const HarnessTrace& trace : traces)
            append(trace, length);
        record = {cTraces.data(),
                  static_cast<int>(end),
                  static_cast<int>(length),
                  sampleInterval,
                  std::max(tracesPerCall, 1),
                  static_cast<int>(first),
                  static_cast<int>(cTraces.size() - end)};
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

// A job from its modules on to its end.
class ModuleHarness::Run
{
public:
    using StateHook = std::function<void(const std::string&)>;

    // Of the input, the traces from `first` on and before `end` are emitted.
    Run(const ModuleHarness& harness, std::size_t first, std::size_t end)
        : source(harness.input, harness.sampleInterval, harness.tracesPerCall, first, end)
    {
        setenv("VORN_HOME", VORN_TEST_HOME, 1);
        clearJob();
        installCallBacks(&recorder);
        if (!harness.projectDirectory.empty())
            job->setProjectDir(QString::fromStdString(harness.projectDirectory));
        if (!harness.scratchDirectory.empty())
            job->setScratchDir(QString::fromStdString(harness.scratchDirectory));
        job->metaDataMap = harness.jobMetadata;
        for (const Definition& d : harness.definitions)
            job->addTraceAttributeDefinition(d.name, d.type, d.dimension, d.description, 0, 0, 0, 0,
                                             0);
        loadChain(harness);
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;
    ~Run() { clearJob(); }

    void preProcess()
    {
        if (result.loaded)
            job->preProcessJob();
        afterPreProcessing = result.messages.size();
    }

    void process()
    {
        if (result.loaded)
            job->processJob();
    }

    // Ends the job, which deletes the modules.
    void postProcess()
    {
        if (result.loaded)
            job->postProcessJob();
        result.jobMetadata = job->metaDataMap;
    }

    // In place of that: saves the state of each module that can, in files of `directory`.
    void save(const std::string& directory, const StateHook& before)
    {
        for (ModuleEntity* module : entities) {
            if (!callWithFile(*module, "save_", directory, before))
                continue;
            module->postProcessFunction = [] { return 0; };
        }
        const std::size_t sent = result.messages.size();
        postProcess();
        result.messages.resize(sent); // the others end as in every run
    }

    void merge(const std::string& directory, const StateHook& before)
    {
        for (ModuleEntity* module : entities)
            callWithFile(*module, "merge_", directory, before);
    }

    HarnessResult result;
    Recorder recorder{result};
    std::size_t afterPreProcessing = 0; // messages

private:
    void loadChain(const ModuleHarness& harness)
    {
        std::vector<HarnessModule> chain(harness.modules.begin(), harness.modules.end());
        if (harness.withSource)
            chain.insert(chain.begin(),
                         {"source",
                          "libharness_source.so",
                          {},
                          {},
                          {{"HARNESS", UniVar(static_cast<void*>(&source.record))}}});
        if (harness.withSink)
            chain.push_back({"sink",
                             "libharness_sink.so",
                             {},
                             {},
                             {{"HARNESS", UniVar(static_cast<void*>(&sink))}}});
        entities = loadAll(chain);
        result.loaded = !entities.empty();
        for (size_t i = 1; i < entities.size(); ++i)
            join(entities[i - 1], entities[i]);
    }

    // Whether the module has the entry point, which is then called with a path without a NUL.
    bool callWithFile(ModuleEntity& module, const char* entryPoint, const std::string& directory,
                      const StateHook& before)
    {
        using Function = int (*)(const char*, int);
        const auto call = reinterpret_cast<Function>(dlsym(module.moduleLibraryHandle, entryPoint));
        if (call == nullptr)
            return false;
        const std::string path = directory + "/" + module.moduleName;
        if (before)
            before(path);
        job->setActiveModule(&module);
        const int code = call((path + "x").c_str(), static_cast<int>(path.size()));
        job->setActiveModule(nullptr);
        const bool hasFailed =
            std::any_of(result.messages.begin(), result.messages.end(),
                        [](const HarnessMessage& message) { return message.type == 4; });
        if (code != 0 && !hasFailed)
            result.messages.push_back({4, module.moduleName,
                                       std::string(entryPoint) + " returned " +
                                           std::to_string(code) + " without a message"});
        return true;
    }

    JobManager* job = JobManager::getInstance();
    SourceData source;
    harness_sink sink = {takeTrace, &result};
    std::vector<ModuleEntity*> entities;
};

HarnessResult ModuleHarness::run()
{
    Run run(*this, 0, input.size());
    run.preProcess();
    run.process();
    run.postProcess();
    return std::move(run.result);
}

namespace {

// A directory that goes with what is in it.
class ScratchDirectory
{
public:
    ScratchDirectory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "partsXXXXXX").string();
        if (mkdtemp(pattern.data()) == nullptr)
            throw std::runtime_error("no directory for the parts can be made");
        path = pattern;
    }
    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;
    ~ScratchDirectory() { std::filesystem::remove_all(path); }

    std::string part(std::size_t number) const
    {
        const std::filesystem::path folder = path / std::to_string(number);
        std::filesystem::create_directories(folder);
        return folder.string();
    }

private:
    std::filesystem::path path;
};

// What a part adds to the result of all: its traces, what was said while processing and after, and
// failures before.
void addPart(HarnessResult& all, HarnessResult& part, std::size_t firstMessage)
{
    if (!all.traces.empty() && !part.traces.empty())
        all.traces.back().flag = 0;
    std::move(part.traces.begin(), part.traces.end(), std::back_inserter(all.traces));
    if (part.traceLength > 0) {
        all.traceLength = part.traceLength;
        all.sampleInterval = part.sampleInterval;
    }
    for (std::size_t i = 0; i < part.messages.size(); ++i) {
        if (i >= firstMessage || part.messages[i].type == 4)
            all.messages.push_back(std::move(part.messages[i]));
    }
    for (const auto& [module, bytes] : part.bytesLeft)
        all.bytesLeft[module] += bytes;
}

} // namespace

HarnessResult ModuleHarness::runInParts(const std::vector<std::size_t>& cuts)
{
    const ScratchDirectory states;
    HarnessResult parts;
    std::map<std::string, int> sentOnce; // by module and key
    const std::size_t total = rangeParameter.empty() ? input.size() : sourceTraces;
    for (std::size_t i = 0; i <= cuts.size(); ++i) {
        const std::size_t first = i == 0 ? 0 : cuts[i - 1];
        const std::size_t end = i == cuts.size() ? total : cuts[i];
        if (beforePart)
            beforePart(i + 1, first);
        if (!rangeParameter.empty())
            modules.front().parameters[rangeParameter] =
                UniVar(std::to_string(first + 1) + ":" + std::to_string(end));
        Run part(*this, first, end);
        part.recorder.sentOnce = &sentOnce;
        JobManager::getInstance()->metaDataMap["vorn.part"] =
            std::to_string(i + 1) + " " + std::to_string(cuts.size() + 1) + " " +
            std::to_string(first) + " " + std::to_string(total);
        part.preProcess();
        part.process();
        part.save(states.part(i), beforeSave);
        addPart(parts, part.result, part.afterPreProcessing);
    }

    if (beforePart)
        beforePart(0, 0);
    if (!rangeParameter.empty())
        modules.front().parameters.erase(rangeParameter);
    Run merge(*this, 0, input.size());
    merge.preProcess();
    std::move(parts.messages.begin(), parts.messages.end(),
              std::back_inserter(merge.result.messages));
    for (std::size_t i = 0; i <= cuts.size(); ++i)
        merge.merge(states.part(i), beforeMerge);
    merge.postProcess();
    merge.result.traces = std::move(parts.traces);
    merge.result.traceLength = parts.traceLength;
    merge.result.sampleInterval = parts.sampleInterval;
    for (const auto& [module, bytes] : parts.bytesLeft)
        merge.result.bytesLeft[module] += bytes;
    return std::move(merge.result);
}

namespace {

// What of a result is compared, one fact a line.
class Facts
{
public:
    explicit Facts(const HarnessResult& result)
    {
        for (const HarnessMessage& message : result.messages)
            addMessage(message);
        for (const std::string& argument : result.arguments)
            lines.push_back("argument " + argument);
        for (const std::string& command : result.commands)
            lines.push_back("command " + command);
        for (const HarnessPad& pad : result.pads)
            addPad(pad);
        addMap("job metadata", result.jobMetadata);
        for (const auto& [module, values] : result.moduleMetadata)
            addMap("metadata of " + module, values);
        for (const auto& [module, bytes] : result.bytesLeft)
            lines.push_back("bytes left by " + module + " " + std::to_string(bytes));
        for (const HarnessTrace& trace : result.traces)
            addTrace(trace);
    }

    std::vector<std::string> lines;

private:
    // The kernel's announcements of phases are those of each job.
    void addMessage(const HarnessMessage& message)
    {
        if (message.module != "Kernel" && message.text.rfind("**********", 0) != 0)
            lines.push_back("message " + std::to_string(message.type) + " of " + message.module +
                            ": " + message.text);
    }

    // Floats with all their bits.
    void addFloats(std::string line, const std::vector<float>& values)
    {
        for (const float value : values) {
            std::array<char, 40> text{};
            std::snprintf(text.data(), text.size(), " %a", static_cast<double>(value));
            line += text.data();
        }
        lines.push_back(std::move(line));
    }

    void addPad(const HarnessPad& pad)
    {
        // The numbers of pads are drawn by lot.
        lines.push_back("pad " + std::to_string(pad.type) + " " + std::to_string(pad.align) + " " +
                        std::to_string(pad.visible) + " " + pad.title);
        for (const plotCommandStruct& c : pad.commands)
            addFloats("pad command " + std::to_string(c.cmdType) + " " + std::to_string(c.ipen) +
                          " " + std::to_string(c.ndec) + " " + std::to_string(c.inteq) + " " +
                          std::to_string(c.inchar),
                      {c.xpage, c.ypage, c.height, c.fpn, c.angle, c.factor});
        for (const std::string& text : pad.texts)
            lines.push_back("pad text " + text);
        for (std::size_t i = 0; i < pad.traces.size(); ++i)
            addFloats("pad trace " + pad.attributes[i], pad.traces[i]);
    }

    void addMap(const std::string& name, const std::map<std::string, std::string>& values)
    {
        for (const auto& [key, value] : values) {
            if (key != "vorn.part")
                lines.push_back(name + ": " + key + " = " + value);
        }
    }

    void addTrace(const HarnessTrace& trace)
    {
        std::string line = "trace, flag " + std::to_string(trace.flag);
        for (const auto& [name, value] : trace.attributes)
            line += " " + name + "=" + value.getStrValue();
        addFloats(line, trace.samples);
    }
};

} // namespace

std::string differenceOf(const HarnessResult& expected, const HarnessResult& actual)
{
    const Facts one(expected);
    const Facts other(actual);
    const std::size_t both = std::min(one.lines.size(), other.lines.size());
    std::size_t i = 0;
    while (i < both && one.lines[i] == other.lines[i])
        ++i;
    if (i == one.lines.size() && i == other.lines.size())
        return "";
    const auto line = [i](const Facts& facts) {
        return i < facts.lines.size() ? facts.lines[i] : std::string("the end");
    };
    return "expected: " + line(one) + "\nis:       " + line(other);
}
