// The job manager owns and runs modules, and a running module is the manager's active module, sends
// its loader's messages through it and reads the time there: the two sources know each other. That
// stays so. A context handed to each module would be a second way to an object that the interface
// makes a singleton anyway, and hosts create modules without one. No header goes the way back.
#include "ModuleEntity.h"

#include "DataChannel.h"
#include "JobManager.h"
#include "SeisTraceSet.h"
#include "kernel_messages.h"
#include "private/BlockTable.h"
#include "private/HostFunctions.h"
#include "private/Interposition.h"
#include "private/RecentNames.h"
#include "private/TraceAttributeList.h"
#include "private/wrapping.h"

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <utility>

namespace {

constexpr int64_t microsecondsPerSecond = 1000000;
constexpr int errorMessage = 3;

void sendLoaderMessage(const std::string& message)
{
    JobManager::getInstance()->sendMessage(1, message);
}

// Once in a process: what the loader finds first does not change.
void refuseInterposition()
{
    static bool isChecked = false;
    if (std::exchange(isChecked, true))
        return;
    for (const std::string& text : interposedFunctions())
        JobManager::getInstance()->sendMessage(errorMessage, text);
}

// The loader keeps one text and drops it at the next call: it is fetched before anything else is
// done that may load a library, as a host's message call-back may.
std::string loaderError()
{
    const char* text = dlerror();
    return text != nullptr ? text : "";
}

template <typename Pointer>
Pointer* at(const std::vector<Pointer*>& list, int i)
{
    const std::size_t index = static_cast<std::size_t>(i); // a negative number lies beyond the end
    return index < list.size() ? list[index] : nullptr;
}

int totalTraces(const std::vector<DataChannel*>& channels)
{
    uint64_t total = 0;
    for (const DataChannel* channel : channels)
        total += static_cast<uint64_t>(channel->getTotalTracesNumber());
    return wrapping::narrow(total);
}

// The values that one run of an entry point has been given pointers to, also where it throws.
struct KeptValues
{
    JobManager* const job = JobManager::getInstance();
    // Nearly always none: asking whether there are any costs less than counting them.
    const std::size_t outer = job->keptValues.empty() ? 0 : job->keptValues.size();

    KeptValues() = default;
    KeptValues(const KeptValues&) = delete;
    KeptValues& operator=(const KeptValues&) = delete;
    ~KeptValues()
    {
        if (!job->keptValues.empty())
            job->releaseKeptValues(outer);
    }
};

} // namespace

void* LoadLibrary(const char* modLibPath)
{
    const std::string path = modLibPath != nullptr ? modLibPath : "";
    // An empty name would give a handle of the host itself.
    void* handle = path.empty() ? nullptr : dlopen(path.c_str(), RTLD_LAZY);
    if (handle == nullptr)
        sendLoaderMessage(kernel_messages::moduleLibrary + path + kernel_messages::loadError +
                          loaderError());
    return handle;
}

void* GetProcAddress(void* modLibHandle, const char* procName)
{
    dlerror();
    void* address = dlsym(modLibHandle, procName);
    if (address == nullptr) {
        const std::string reason = loaderError();
        sendLoaderMessage(std::string(kernel_messages::moduleFunction) + procName +
                          kernel_messages::loadError + reason);
    }
    return address;
}

void FreeLibrary(void* handle)
{
    dlclose(handle);
}

ModuleEntity::ModuleEntity(const std::string& name)
    : moduleName(name), moduleLibraryHandle(nullptr), preProcessFunction(nullptr),
      processFunction(nullptr), postProcessFunction(nullptr), totalModuleWorkTime(0),
      inputTracesProcessed(0), outputTracesProcessed(0), totalModuleMemoryUsed(0),
      moduleMemoryMap(this), respectEOD(false), loadedHandle(nullptr), closedHandle(nullptr),
      jobIndex(0), recentParameters(std::make_unique<RecentNames<UniVar>>()),
      recentResources(std::make_unique<RecentNames<UniVar>>())
{
}

ModuleEntity::~ModuleEntity()
{
    unLoadModuleLibrary();
    host_functions::forget(this);
}

int ModuleEntity::loadModuleLibrary(const std::string& modLib)
{
    const char* home = std::getenv("VORN_HOME");
    if (home == nullptr) {
        sendLoaderMessage(kernel_messages::homeVariableNotSet);
        return 2;
    }
    refuseInterposition();
    const std::string path = std::string(home) + "/lib/" + modLib;
    void* handle = LoadLibrary(path.c_str());
    if (moduleLibraryHandle == loadedHandle)
        unLoadModuleLibrary(); // the one of before; the loader counts, should it be the same
    moduleLibraryHandle = loadedHandle = handle;
    closedHandle = nullptr;
    if (handle == nullptr) {
        sendLoaderMessage(kernel_messages::module + moduleName +
                          kernel_messages::canNotLoadLibrary + modLib);
        return 1;
    }

    const auto bind = [&](AnyProcessFunctionType& function, const char* symbol, const char* phase) {
        function = reinterpret_cast<AnyProcessFunctionType>(GetProcAddress(handle, symbol));
        if (function == nullptr)
            sendLoaderMessage(kernel_messages::module + moduleName +
                              kernel_messages::canNotIdentifyFunction + phase + "'");
        return function != nullptr;
    };
    const bool bound = bind(preProcessFunction, "preprocess_", "preProcess") &&
                       bind(processFunction, "process_", "process") &&
                       bind(postProcessFunction, "postprocess_", "postProcess");
    return bound ? 0 : 2;
}

int ModuleEntity::unLoadModuleLibrary()
{
    if (moduleLibraryHandle != nullptr && moduleLibraryHandle != closedHandle) {
        FreeLibrary(moduleLibraryHandle);
        closedHandle = moduleLibraryHandle;
        preProcessFunction = processFunction = postProcessFunction = nullptr;
    }
    return 0;
}

int ModuleEntity::preProcessModule()
{
    JobManager* job = JobManager::getInstance();
    job->setActiveModule(this);
    callTimed(preProcessFunction);
    job->setActiveModule(nullptr);
    return 0;
}

int ModuleEntity::postProcessModule()
{
    JobManager* job = JobManager::getInstance();
    job->setActiveModule(this);
    callTimed(postProcessFunction);
    job->setActiveModule(nullptr);
    return 0;
}

int ModuleEntity::processModule()
{
    JobManager* job = JobManager::getInstance();
    ModuleEntity* active = job->getActiveModule();
    callTimed(processFunction);
    if (getNumberOfInputTraces(0) > 0)
        inputTracesProcessed = wrapping::sum(inputTracesProcessed, 1);
    for (const DataChannel* channel : outputDataChannels)
        outputTracesProcessed = wrapping::sum(outputTracesProcessed, channel->getNumberOfTraces());
    job->setActiveModule(active);
    return 0;
}

// The result of an entry point is ignored: modules report through messages.
void ModuleEntity::callTimed(AnyProcessFunctionType entryPoint)
{
    const KeptValues kept;
    const int64_t start = kept.job->getCurrentTime();
    if (entryPoint != nullptr)
        entryPoint();
    totalModuleWorkTime += kept.job->getCurrentTime() - start;
}

int ModuleEntity::getNumberOfInputDataChannels() const
{
    return static_cast<int>(inputDataChannels.size());
}

int ModuleEntity::getNumberOfOutputDataChannels() const
{
    return static_cast<int>(outputDataChannels.size());
}

DataChannel* ModuleEntity::getInputDataChannel(int i) const
{
    return at(inputDataChannels, i);
}

DataChannel* ModuleEntity::getOutputDataChannel(int i) const
{
    return at(outputDataChannels, i);
}

void ModuleEntity::setInputDataChannel(DataChannel* channel, int /*i*/)
{
    if (channel == nullptr)
        return;
    inputDataChannels.push_back(channel);
    channel->attachOutputModule(this);
}

void ModuleEntity::setOutputDataChannel(DataChannel* channel, int /*i*/)
{
    if (channel == nullptr)
        return;
    outputDataChannels.push_back(channel);
    channel->attachInputModule(this);
}

bool ModuleEntity::isInputModule() const
{
    return std::all_of(
        inputDataChannels.begin(), inputDataChannels.end(),
        [](const DataChannel* channel) { return channel->getNumberOfInputModules() == 0; });
}

bool ModuleEntity::isOutputModule() const
{
    return std::all_of(
        outputDataChannels.begin(), outputDataChannels.end(),
        [](const DataChannel* channel) { return channel->getNumberOfOutputModules() == 0; });
}

int ModuleEntity::getNumberOfInputTraces(int ch) const
{
    const DataChannel* channel = getInputDataChannel(ch);
    return channel != nullptr ? channel->getNumberOfTraces() : 0;
}

SeisTraceSet* ModuleEntity::getInputTrace(int ch) const
{
    return getInputDataChannel(ch);
}

int ModuleEntity::removeInputTrace(int ch, int trace)
{
    DataChannel* channel = getInputDataChannel(ch);
    if (channel == nullptr)
        return 0;
    channel->removeTrace(trace);
    return channel->getNumberOfTraces();
}

int ModuleEntity::getTotalInputTraces() const
{
    return totalTraces(inputDataChannels);
}

int ModuleEntity::getTotalOutputTraces() const
{
    return totalTraces(outputDataChannels);
}

int ModuleEntity::getNumberOfWorkTraceBuffers() const
{
    return static_cast<int>(workTraceSets.size());
}

void ModuleEntity::setNumberOfWorkTraceBuffers(int n)
{
    while (getNumberOfWorkTraceBuffers() <= n)
        workTraceSets.push_back(new SeisTraceSet);
}

int ModuleEntity::addWorkTraceBuffer(SeisTraceSet* set)
{
    workTraceSets.push_back(set);
    return getNumberOfWorkTraceBuffers();
}

SeisTraceSet* ModuleEntity::getWorkTraceBuffer(int i)
{
    setNumberOfWorkTraceBuffers(i);
    return at(workTraceSets, i);
}

int ModuleEntity::setParameter(const std::string& name, const UniVar& value)
{
    moduleParameters[name] = value;
    recentParameters->forget();
    return 0;
}

UniVar ModuleEntity::getParameter(const std::string& name)
{
    recentParameters->forget();
    return moduleParameters[name];
}

bool ModuleEntity::isParameterPresent(const std::string& name) const
{
    return moduleParameters.find(name) != moduleParameters.end();
}

const UniVar* ModuleEntity::findParameter(std::string_view name)
{
    return recentParameters->find(moduleParameters, name);
}

int ModuleEntity::setResource(const std::string& name, const UniVar& value)
{
    moduleResources[name] = value;
    recentResources->forget();
    return 1;
}

UniVar ModuleEntity::getResource(const std::string& name)
{
    recentResources->forget();
    return moduleResources[name];
}

bool ModuleEntity::isResourcePresent(const std::string& name) const
{
    return moduleResources.find(name) != moduleResources.end();
}

const UniVar* ModuleEntity::findResource(std::string_view name)
{
    return recentResources->find(moduleResources, name);
}

void ModuleEntity::keepStructResource(const std::string& name,
                                      std::unique_ptr<unsigned char[]> block)
{
    structResources[name] = std::move(block);
}

void ModuleEntity::setProcessingOption(const std::string& name, const UniVar& value)
{
    const bool given = value.getType() != undefinedType;
    if (given)
        moduleProcessingOptions[name] = value;
    else
        moduleProcessingOptions.erase(name);
    if (name == "RespectEOD")
        respectEOD = given && value.getI32Value() != 0;
}

UniVar ModuleEntity::getProcessingOption(const std::string& name) const
{
    const auto option = moduleProcessingOptions.find(name);
    return option != moduleProcessingOptions.end() ? option->second : UniVar();
}

void ModuleEntity::setMetaData(const std::string& key, const std::string& value)
{
    moduleMetaData.emplace(key, value);
}

void* ModuleEntity::calcAllocateResource(void* ptr, int size)
{
    totalModuleMemoryUsed = wrapping::sum(totalModuleMemoryUsed, size);
    BlockTable::instance().enter(ptr, size, nullptr, &moduleMemoryMap);
    return ptr;
}

void ModuleEntity::calcFreeResource(void* ptr)
{
    BlockTable& table = BlockTable::instance();
    table.visit(ptr, [&](BlockTable::Entry& entry) {
        if (!BlockTable::lists(moduleMemoryMap, entry))
            return;
        totalModuleMemoryUsed = wrapping::difference(totalModuleMemoryUsed, entry.size);
        table.removeModule(entry);
    });
}

int ModuleEntity::getTotalModuleWorkTime() const
{
    return static_cast<int>(totalModuleWorkTime / microsecondsPerSecond);
}
