#include "watch/Recording.h"

#include "DataChannel.h"
#include "JobManager.h"
#include "ModuleEntity.h"
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/FileOutput.h"
#include "watch/RecordEvents.h"
#include "watch/WatchedLibrary.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace host {

namespace {

// A call of a module may make calls for ever: what it has made is written now and then.
constexpr std::size_t largestFrame = 1 << 20;
// Modules see a module upstream once for each way to it: beyond this number the others are left
// out, which matters to a job only whose ways part and meet many times.
constexpr std::size_t mostUpstream = 4096;

Recording* current = nullptr; // entry points have no arguments

// In the order in which the kernel looks at them.
std::vector<ModuleEntity*> upstreamOf(ModuleEntity* module)
{
    std::vector<ModuleEntity*> found;
    std::vector<ModuleEntity*> stack = {module};
    while (!stack.empty() && found.size() < mostUpstream) {
        const ModuleEntity* next = stack.back();
        stack.pop_back();
        for (const DataChannel* channel : next->inputDataChannels) {
            found.insert(found.end(), channel->inputModules.begin(), channel->inputModules.end());
            stack.insert(stack.end(), channel->inputModules.begin(), channel->inputModules.end());
        }
    }
    return found;
}

std::size_t indexOf(EntryPoint entry)
{
    return static_cast<std::size_t>(entry) - static_cast<std::size_t>(EntryPoint::preprocess);
}

RecordedModule factsOf(const RunView& view, std::size_t index, int64_t limit,
                       const std::string& version)
{
    const ResolvedModule& resolved = view.job.modules[index];
    const ModuleEntity& module = *view.modules[index];
    RecordedModule facts;
    facts.vornVersion = version;
    facts.name = resolved.name;
    facts.module = resolved.module;
    facts.library = resolved.library;
    facts.libraryPath = (std::filesystem::path(view.job.vornHome) / "lib" / resolved.library)
                            .lexically_normal()
                            .string();
    facts.vornHome = view.job.vornHome;
    facts.job = view.job.name;
    facts.projectDirectory = view.job.project;
    facts.scratchDirectory = view.manager.getScratchDir().toStdString();
    facts.scratchTraces = view.job.scratchTraces;
    facts.inputs = module.getNumberOfInputDataChannels();
    for (const DataChannel* channel : module.outputDataChannels)
        facts.consumers.push_back(channel->getNumberOfOutputModules());
    facts.limit = limit;
    for (const ResolvedParameter& parameter : resolved.parameters) {
        if (parameter.isInputFile)
            facts.inputFiles.push_back(parameter.name);
        if (!parameter.isOutputFile)
            continue;
        facts.outputFiles.push_back(parameter.name);
        std::error_code ignored;
        if (std::filesystem::is_regular_file(parameter.value.value.getStrValue(), ignored))
            facts.replacedFiles.push_back(parameter.name);
    }
    for (const auto& [name, definition] : view.manager.trAttDefsList)
        facts.schema.push_back({name, definition.type, definition.dim, definition.descr,
                                definition.cstSlot, definition.cstType, definition.bitA,
                                definition.bitZ, definition.mapCoef});
    facts.parameters = module.moduleParameters;
    facts.resources = module.moduleResources;
    facts.options = module.moduleProcessingOptions;
    return facts;
}

} // namespace

RecordRequest readRecordRequest(const std::string& text, const ResolvedJob& job)
{
    const auto equals = text.find('=');
    RecordRequest request;
    request.module = text.substr(0, equals);
    if (equals == std::string::npos || equals == 0 || equals + 1 == text.size())
        throw CommandError("--record " + quote(text) + ": expected MODULE=FILE, as agc=agc.record");
    request.file = text.substr(equals + 1);
    if (std::none_of(job.modules.begin(), job.modules.end(),
                     [&](const ResolvedModule& module) { return module.name == request.module; }))
    {
        std::string names;
        for (const ResolvedModule& module : job.modules)
            names += (names.empty() ? "" : ", ") + quote(module.name);
        throw CommandError("--record: the job has no module " + quote(request.module) +
                           "; it has " + names);
    }
    return request;
}

void CallNames::write(const watched::Call& call, ByteWriter& bytes)
{
    key = call.function;
    key.push_back('\0');
    for (const watched::Argument& argument : call.arguments) {
        const auto* text = std::get_if<watched::Text>(&argument.value);
        if (text != nullptr && text->first != nullptr) {
            key.append(text->first, text->size);
            break;
        }
    }
    const auto known = numbers.find(key);
    if (known != numbers.end()) {
        bytes.count(known->second);
        return;
    }
    bytes.count(numbers.size());
    numbers.emplace(key, numbers.size());
    bytes.text(call.function);
    bytes.text(WatchedCalls::interfaceFunction(call));
}

// ------------------------------------------------------------------------------------- one module

static const std::string& claimed(const std::string& path)
{
    claimOutput({"--record", path, "the record", Content::any});
    return path;
}

ModuleRecording::ModuleRecording(const RecordRequest& what)
    : request(what), writer(claimed(what.file))
{
}

void ModuleRecording::connect(ModuleEntity* of, const RecordedModule& facts,
                              const std::array<AnyProcessFunctionType, 3>& entryPoints)
{
    module = of;
    limit = facts.limit;
    coder = std::make_unique<CallCoder>(*module);
    functions = {module->preProcessFunction, module->processFunction, module->postProcessFunction};
    module->preProcessFunction = entryPoints[0];
    module->processFunction = entryPoints[1];
    module->postProcessFunction = entryPoints[2];
    inputs.resize(module->inputDataChannels.size());
    outputs.resize(module->outputDataChannels.size());
    writeModule(facts, bytes);
    write(FrameKind::module);
}

void ModuleRecording::write(FrameKind kind)
{
    open = writer.write(kind, bytes.bytes) && kind != FrameKind::finish;
    bytes.bytes.clear();
}

// Values that have been set stay as they are: that there are more of them says that they changed.
void ModuleRecording::writeMetaData(EntryPoint entry)
{
    const JobManager& manager = *JobManager::getInstance();
    if (entry != last)
        upstream = upstreamOf(module); // the command connects modules otherwise from phase to phase
    std::size_t size = manager.metaDataMap.size();
    for (const ModuleEntity* one : upstream)
        size += one->moduleMetaData.size();
    const bool changed = entry != last || size != metaDataSize;
    bytes.byte(changed ? 1 : 0);
    if (!changed)
        return;
    metaDataSize = size;
    VisibleMetaData visible;
    visible.job = manager.metaDataMap;
    visible.upstream.reserve(upstream.size());
    for (const ModuleEntity* one : upstream)
        visible.upstream.push_back(one->moduleMetaData);
    host::writeMetaData(visible, bytes);
}

void ModuleRecording::begin(EntryPoint entry)
{
    bytes.byte(static_cast<int>(entry));
    bytes.count(static_cast<uint64_t>(calls));
    writeMetaData(entry);
    for (std::size_t i = 0; i < inputs.size(); ++i)
        writeChange(*module->inputDataChannels[i], inputs[i], bytes);
    for (std::size_t i = 0; i < outputs.size(); ++i)
        writeChange(*module->outputDataChannels[i], outputs[i], bytes);
    write(FrameKind::begin);
    inputs = marksOf(module->inputDataChannels);
    outputs = marksOf(module->outputDataChannels);
    last = entry;
    isRunning = true;
}

void ModuleRecording::end(bool isAbandoned)
{
    isRunning = false;
    if (!open)
        return;
    bytes.byte(static_cast<int>(RecordEvent::none));
    bytes.byte(isAbandoned ? 1 : 0);
    for (std::size_t i = 0; i < inputs.size(); ++i)
        writeResult(*module->inputDataChannels[i], inputs[i], false, bytes);
    for (std::size_t i = 0; i < outputs.size(); ++i)
        writeResult(*module->outputDataChannels[i], outputs[i], true, bytes);
    write(FrameKind::end);
    inputs = marksOf(module->inputDataChannels);
    outputs = marksOf(module->outputDataChannels);
}

int ModuleRecording::run(EntryPoint entry)
{
    const AnyProcessFunctionType function = functions[indexOf(entry)];
    if (entry == EntryPoint::process && limit > 0 && calls == limit)
        finish();
    if (!open)
        return function();
    calls += entry == EntryPoint::process ? 1 : 0;
    begin(entry);
    int status = 0;
    try {
        status = function();
    } catch (...) {
        end(true);
        throw;
    }
    end(false);
    return status;
}

void ModuleRecording::finish()
{
    if (open && module != nullptr)
        write(FrameKind::finish);
}

void ModuleRecording::called(const watched::Call& call)
{
    if (!isRunning || !open)
        return;
    bytes.byte(static_cast<int>(RecordEvent::call));
    names.write(call, bytes);
    values.bytes.clear();
    coder->called(call, values);
    bytes.text(values.bytes);
}

void ModuleRecording::returned(const watched::Call& call, const watched::Argument& result)
{
    if (!isRunning || !open)
        return;
    values.bytes.clear();
    coder->returned(call, result, values);
    bytes.byte(static_cast<int>(RecordEvent::result));
    bytes.text(values.bytes);
    if (bytes.bytes.size() > largestFrame)
        write(FrameKind::calls);
}

// ------------------------------------------------------------------------------------ all modules

Recording::Recording(const std::vector<RecordRequest>& requests, int64_t most, std::string of)
    : limit(most), version(std::move(of))
{
    for (const RecordRequest& request : requests) {
        if (std::any_of(all.begin(), all.end(),
                        [&](const auto& one) { return one->name() == request.module; }))
            throw CommandError("--record names the module " + quote(request.module) + " twice");
        all.reserve(requests.size());
        all.push_back(std::make_unique<ModuleRecording>(request));
    }
}

Recording::~Recording()
{
    current = nullptr;
}

template <int index>
int Recording::callEntryPoint()
{
    const auto entry = static_cast<EntryPoint>(static_cast<int>(EntryPoint::preprocess) + index);
    const ModuleEntity* module = JobManager::getInstance()->getActiveModule();
    const auto recording =
        std::find_if(current->all.begin(), current->all.end(),
                     [module](const auto& one) { return one->entity() == module; });
    const int status = (*recording)->run(entry);
    current->noteFull();
    return status;
}

void Recording::noteFull()
{
    if (isFull ||
        std::any_of(all.begin(), all.end(), [](const auto& one) { return one->isOpen(); }))
        return;
    isFull = true;
    if (onFull)
        onFull();
}

void Recording::connected(const RunView& view)
{
    current = this;
    thread = std::this_thread::get_id();
    for (const auto& recording : all) {
        const auto named =
            std::find_if(view.job.modules.begin(), view.job.modules.end(),
                         [&](const ResolvedModule& one) { return one.name == recording->name(); });
        const auto index = static_cast<std::size_t>(named - view.job.modules.begin());
        recording->connect(view.modules[index], factsOf(view, index, limit, version),
                           {callEntryPoint<0>, callEntryPoint<1>, callEntryPoint<2>});
    }
}

void Recording::ended(RunResult&)
{
    for (const auto& recording : all)
        recording->finish();
}

// Null where the call is nobody's that is recorded.
ModuleRecording* Recording::active()
{
    const ModuleEntity* module = JobManager::getInstance()->getActiveModule();
    for (const auto& recording : all) {
        if (recording->entity() == module)
            return std::this_thread::get_id() == thread ? recording.get() : nullptr;
    }
    return nullptr;
}

void Recording::called(const watched::Call& call)
{
    if (ModuleRecording* recording = active())
        recording->called(call);
}

void Recording::returned(const watched::Call& call, const watched::Argument& result)
{
    if (ModuleRecording* recording = active())
        recording->returned(call, result);
}

std::vector<std::pair<std::string, std::string>> Recording::files() const
{
    std::vector<std::pair<std::string, std::string>> paths;
    paths.reserve(all.size());
    for (const auto& recording : all)
        paths.emplace_back(recording->file(), recording->problem());
    return paths;
}

} // namespace host
