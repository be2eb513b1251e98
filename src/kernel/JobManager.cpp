// The singleton, directories, date and time, and what is resolved against the active module.
#include "JobManager.h"

#include "DataChannel.h"
#include "LibraryEntity.h"
#include "ModuleEntity.h"
#include "SeisTraceSet.h"
#include "metadataprovider.h"
#include "private/JobRun.h"

#include <cstdlib>
#include <ctime>
#include <memory>
#include <sys/time.h>

JobManager* JobManager::jobManagerInstance = nullptr;

void JobManager::makeInstance()
{
    jobManagerInstance = new JobManager;
}

JobManager::JobManager()
    : activeModule(nullptr), messageFunc(nullptr), messageArgumentFunc(nullptr),
      statisticFunc(nullptr), createPadFunc(nullptr), addTraceToPadFunc(nullptr),
      addPlotToPadFunc(nullptr), execAppliFunc(nullptr), messageFuncObj(nullptr),
      statisticFuncObj(nullptr), createPadFuncObj(nullptr), addTraceToPadFuncObj(nullptr),
      addPlotToPadFuncObj(nullptr), execAppliFuncObj(nullptr), jobStartTime(getCurrentTime()),
      totalJobMemoryUsed(0)
{
    if (!JobRun::hasOwnNumbers)
        std::srand(static_cast<unsigned>(std::time(nullptr)));
    JobRun::forget(*this); // of a manager at this address that is no more
    JobRun::of(*this);
    JobRun::attention.store(0, std::memory_order_relaxed);
}

JobManager::~JobManager()
{
    deleteModules();
    JobRun::forget(*this);
}

void JobManager::deleteModules()
{
    for (ModuleEntity* module : jobModules)
        delete module;
    jobModules.clear();
}

ModuleEntity* JobManager::initJobModule(const std::string& modName, const std::string& modLib)
{
    auto module = std::make_unique<ModuleEntity>(modName);
    if (module->loadModuleLibrary(modLib) != 0)
        return nullptr;
    jobModules.push_back(module.get());
    return module.release();
}

LibraryEntity* JobManager::initCDTablePrototype(const std::string& libType,
                                                const std::string& libPath)
{
    auto table = std::make_unique<LibraryEntity>(libType, libPath);
    std::vector<LibraryEntity*>& made = JobRun::of(*this).tables;
    made.push_back(table.get());
    try {
        jobOutputTables.push_back(table.get());
    } catch (...) {
        made.pop_back();
        throw;
    }
    return table.release();
}

void JobManager::setJobName(const char* name)
{
    jobName = name != nullptr ? name : "";
}

void JobManager::setProjectDir(const QString& dir)
{
    projectDir = dir;
    VORN::MetadataProvider::getInstance()->setRefDir(dir.toUtf8().toStdString());
}

std::string JobManager::getCurrentModuleName() const
{
    return activeModule != nullptr ? activeModule->getName() : std::string();
}

std::string JobManager::getCurrentDate() const
{
    const std::time_t now = std::time(nullptr);
    const std::tm* local = std::localtime(&now);
    if (local == nullptr)
        return std::string();
    return std::to_string(local->tm_mday) + "." + std::to_string(local->tm_mon) + "." +
           std::to_string(local->tm_year);
}

int64_t JobManager::getCurrentTime() const
{
    timeval now;
    gettimeofday(&now, nullptr);
    return static_cast<int64_t>(now.tv_sec) * 1000000 + now.tv_usec;
}

SeisTraceSet* JobManager::getInputTraceBuffer(int ch)
{
    return activeModule != nullptr ? activeModule->getInputDataChannel(ch) : nullptr;
}

SeisTraceSet* JobManager::getOutputTraceBuffer(int ch)
{
    return activeModule != nullptr ? activeModule->getOutputDataChannel(ch) : nullptr;
}

SeisTraceSet* JobManager::getWorkTraceBuffer(int wtset)
{
    return activeModule != nullptr ? activeModule->getWorkTraceBuffer(wtset) : nullptr;
}

SeisTraceSet* JobManager::bldOutputTraceBuffer(int channelNo, int traceLength, int sampleInterval,
                                               SeisTraceSet* templ)
{
    SeisTraceSet* buffer = getOutputTraceBuffer(channelNo);
    if (buffer != nullptr)
        buffer->configureByTemplate(traceLength, sampleInterval, templ);
    return buffer;
}

SeisTraceSet* JobManager::bldWorkTraceBuffer(int wtset, int traceLength, int sampleInterval,
                                             int /*numTraces*/, SeisTraceSet* templ)
{
    SeisTraceSet* buffer = getWorkTraceBuffer(wtset);
    if (buffer != nullptr)
        buffer->configureByTemplate(traceLength, sampleInterval, templ);
    return buffer;
}

void JobManager::setModuleParameter(const std::string& name, const UniVar& value)
{
    if (activeModule != nullptr)
        activeModule->setParameter(name, value);
}

UniVar JobManager::getModuleParameter(const std::string& name)
{
    return activeModule != nullptr ? activeModule->getParameter(name) : UniVar();
}

bool JobManager::isModuleParameterPresent(const std::string& name) const
{
    return activeModule != nullptr && activeModule->isParameterPresent(name);
}

int JobManager::setModuleResource(const std::string& name, const UniVar& value,
                                  ModuleEntity* module)
{
    ModuleEntity* holder = module != nullptr ? module : activeModule;
    return holder != nullptr ? holder->setResource(name, value) : 0;
}

UniVar JobManager::getModuleResource(const std::string& name, ModuleEntity* module)
{
    ModuleEntity* holder = module != nullptr ? module : activeModule;
    return holder != nullptr ? holder->getResource(name) : UniVar();
}

bool JobManager::isModuleResourcePresent(const std::string& name, ModuleEntity* module) const
{
    const ModuleEntity* holder = module != nullptr ? module : activeModule;
    return holder != nullptr && holder->isResourcePresent(name);
}

const UniVar& JobManager::keepUntilReturn(UniVar value)
{
    return keptValues.emplace_back(std::move(value));
}
