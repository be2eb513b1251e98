// The scheduler. Pre-processing orders the modules by depth; processing pulls traces from the
// sinks; post-processing ends the job and deletes it. In which order and how often modules run is
// part of the interface: each rule below is observable.
#include "JobManager.h"

#include "DataChannel.h"
#include "JobOutcome.h"
#include "ModuleEntity.h"
#include "ScratchManager.h"
#include "SeisTraceSet.h"
#include "kernel_messages.h"
#include "private/JobRun.h"

#include <QDebug>

#include <algorithm>
#include <exception>
#include <set>
#include <utility>

namespace {

enum Phase
{
    preProcessing = 1,
    processing = 2,
    postProcessing = 3
};

constexpr int endOfData = 3;
constexpr int keepCurrentTrace = 1;
constexpr int passesWithoutStatistic = 1000;

// All modules that the traces of `first` reach, itself the last one, each after those that read its
// outputs. Without recursion: chains may be longer than a stack is deep.
std::vector<ModuleEntity*> consumersFirst(ModuleEntity* first)
{
    struct Visit
    {
        ModuleEntity* module;
        std::size_t channel = 0;  // of its outputs, and
        std::size_t consumer = 0; // of that channel: the next one to go to
    };
    std::vector<ModuleEntity*> order;
    std::set<ModuleEntity*> seen = {first};
    std::vector<Visit> way = {{first}};
    while (!way.empty()) {
        Visit& at = way.back();
        const std::vector<DataChannel*>& channels = at.module->outputDataChannels;
        if (at.channel == channels.size()) {
            order.push_back(at.module);
            way.pop_back();
        } else if (at.consumer == channels[at.channel]->outputModules.size()) {
            ++at.channel;
            at.consumer = 0;
        } else {
            ModuleEntity* next = channels[at.channel]->outputModules[at.consumer++];
            if (seen.insert(next).second)
                way.push_back({next});
        }
    }
    return order;
}

} // namespace

// What the input channels of a module offer. The producers to ask are in its `producersToAsk`.
struct JobManager::InputScan
{
    bool empty = false;        // a channel holds nothing for the module
    bool heldByOthers = false; // though it holds traces that other consumers have yet to take
};

// A phase within a phase would run modules that are running, or delete them.
bool JobManager::enterPhase(int phase, const char* function)
{
    JobRun& run = JobRun::of(*this);
    if (const char* const running = run.runningFunction()) {
        sendMessage(3, std::string(function) + " is refused, since " + running +
                           " is still running; call it when that has returned");
        return false;
    }
    run.phase = static_cast<JobRun::Phase>(phase);
    return true;
}

void JobManager::leavePhase() noexcept
{
    JobRun::of(*this).phase = JobRun::Phase::none;
}

// In the handler of an exception that leaves a phase, or a step of it. The job goes no further, so
// that what its modules have written is not whole.
void JobManager::noteException() noexcept
{
    JobRun& run = JobRun::of(*this);
    try {
        run.noteException(activeModule != nullptr ? activeModule->getName()
                                                  : kernel_messages::kernelName,
                          std::current_exception());
    } catch (const std::bad_alloc&) {
        run.hasFailed = true;
    }
    markFailed("an exception has ended it");
    setActiveModule(nullptr);
}

// A phase that ends with the first exception.
int JobManager::runPhase(int phase, const char* function, int (JobManager::*run)())
{
    if (!enterPhase(phase, function))
        return 1;
    try {
        const int result = (this->*run)();
        leavePhase();
        return result;
    } catch (...) {
        noteException();
        leavePhase();
        throw;
    }
}

int JobManager::preProcessJob()
{
    return runPhase(preProcessing, "preProcessJob", &JobManager::runPreProcessing);
}

int JobManager::runPreProcessing()
{
    beginOutcome();
    sendMessage(1, kernel_messages::preProcessingBanner);
    sortJobModules();
    std::set<const ModuleEntity*>& prepared = JobRun::of(*this).prepared;
    for (std::size_t i = 0; i < jobModules.size(); ++i) {
        sendModulesStatistic(preProcessing);
        if (isCancelRequested()) {
            noteCancelled();
            return 1;
        }
        prepared.insert(jobModules[i]);
        if (jobModules[i]->preProcessModule() != 0)
            return 1;
    }
    return 0;
}

// The mark of a failed job is that of one job: a host that reads it afterwards finds it, and the
// next job begins without.
void JobManager::beginOutcome()
{
    JobRun& run = JobRun::of(*this);
    run.beginOutcome();
    run.processing = JobRun::Processing::notBegun;
    run.prepared.clear();
    const auto mark = metaDataMap.find(jobFailureKey);
    if (mark != metaDataMap.end() && run.leftMark && mark->second == run.leftMarkText) {
        metaDataMap.erase(mark);
        run.hadMark = false;
    } else {
        run.hadMark = mark != metaDataMap.end();
    }
    run.leftMark = false;
    for (const auto& [key, value] : std::exchange(run.runMetaData, {})) {
        const auto entry = metaDataMap.find(key);
        if (entry != metaDataMap.end() && entry->second == value)
            metaDataMap.erase(entry);
    }
}

void JobManager::sortJobModules()
{
    std::map<ModuleEntity*, int> priorities;
    ModuleList sources;
    for (ModuleEntity* module : jobModules) {
        if (module->getNumberOfInputDataChannels() == 0)
            sources.push_back(module);
        priorities[module] = 0;
    }

    // Deliberate: a later source starts at the deepest level reached so far, not below it, so the
    // chains of a job overlap by one level.
    int priority = 1;
    for (ModuleEntity* source : sources)
        priority = std::max(priority, defineModulePriority(source, priorities, priority));

    std::stable_sort(jobModules.begin(), jobModules.end(), [&](ModuleEntity* a, ModuleEntity* b) {
        return priorities[a] < priorities[b];
    });

    // Not as a stream: where memory runs out, that one ends the process in its destructor.
    qDebug("Priority | Module:");
    for (ModuleEntity* module : jobModules)
        qDebug("%d  |  %s", priorities[module], module->getName().c_str());
}

// The deepest level of a module is that of the longest way to it. Each module is visited once,
// after all that stand before it: to walk every way would take for ever where ways part and meet
// again and again, since each such place doubles their number.
int JobManager::defineModulePriority(ModuleEntity* module,
                                     std::map<ModuleEntity*, int>& prioritiesMap, int priority)
{
    const auto raise = [&prioritiesMap](ModuleEntity* one, int level) {
        const auto [known, isNew] = prioritiesMap.try_emplace(one, level);
        known->second = std::max(known->second, level);
        return known->second;
    };
    int deepest = raise(module, priority);
    const ModuleList reached = consumersFirst(module);
    for (auto one = reached.rbegin(); one != reached.rend(); ++one) {
        const int level = prioritiesMap[*one];
        for (const DataChannel* channel : (*one)->outputDataChannels) {
            for (ModuleEntity* consumer : channel->outputModules)
                deepest = std::max(deepest, raise(consumer, level + 1));
        }
    }
    return deepest;
}

int JobManager::processJob()
{
    return runPhase(processing, "processJob", &JobManager::runProcessing);
}

int JobManager::runProcessing()
{
    sendMessage(1, kernel_messages::processingBanner);
    JobRun& run = JobRun::of(*this);
    run.processing = JobRun::Processing::unfinished;
    run.statisticDue = 0;

    ModuleList sinks;
    EndOfDataFlags eod;
    for (std::size_t i = 0; i < jobModules.size(); ++i) {
        ModuleEntity* module = jobModules[i];
        module->jobIndex = static_cast<int>(i);
        eod[module] = 0;
        if (module->isOutputModule() && !module->isInputModule())
            sinks.push_back(module);
    }

    int passes = 0;
    do {
        if (runPass(sinks, eod) > 0 || isCancelRequested()) {
            if (isCancelRequested())
                noteCancelled();
            sendModulesStatistic(processing);
            return 1;
        }
        if (++passes > passesWithoutStatistic) {
            sendModulesStatistic(processing);
            passes = 0;
        }
    } while (!sinks.empty());
    run.processing = JobRun::Processing::finished;
    return 0;
}

// Of a host with a loop of its own, whose job is finished when no module is left to serve.
int JobManager::processModules(ModuleList& jobModulesForProcess, EndOfDataFlags& jobModulesEodFlag)
{
    JobRun& run = JobRun::of(*this);
    if (run.phase == JobRun::Phase::none)
        run.processing = JobRun::Processing::unfinished;
    const int processStatus = runPass(jobModulesForProcess, jobModulesEodFlag);
    if (run.phase == JobRun::Phase::none && jobModulesForProcess.empty())
        run.processing = JobRun::Processing::finished;
    return processStatus;
}

// Every trace of every module passes here: the steps below are made part of it.
[[gnu::flatten]] int JobManager::runPass(ModuleList& jobModulesForProcess,
                                         EndOfDataFlags& jobModulesEodFlag)
{
    int processStatus = -1;
    for (std::size_t i = 0; i < jobModulesForProcess.size(); ++i) {
        ModuleEntity* module = jobModulesForProcess[i];
        if (jobModulesEodFlag[module] != 0)
            continue;
        processStatus = 0;

        const Inputs inputs = askForInputs(module, jobModulesEodFlag);
        if (inputs == Inputs::waiting)
            continue;
        if (inputs == Inputs::exhausted) {
            jobModulesForProcess.erase(jobModulesForProcess.begin() +
                                       static_cast<std::ptrdiff_t>(i));
            return -1; // the list changed: the next pass starts again from its front
        }

        if (processModule(module) != 0)
            return 1;
        consumeInputTraces(module);
        noteEndOfData(module, jobModulesEodFlag);
    }
    return processStatus;
}

int JobManager::processModules(ModuleList& jobModulesForProcess,
                               std::map<ModuleEntity*, int>& jobModulesEodFlag)
{
    EndOfDataFlags flags;
    for (const auto& [module, value] : jobModulesEodFlag)
        flags[module] = value;
    const int processStatus = processModules(jobModulesForProcess, flags);
    flags.copyTo(jobModulesEodFlag);
    return processStatus;
}

// Looks at the inputs of `module` and, where one is empty, lets its producers run.
JobManager::Inputs JobManager::askForInputs(ModuleEntity* module, EndOfDataFlags& jobModulesEodFlag)
{
    const InputScan scan = scanInputs(module, jobModulesEodFlag);
    if (scan.heldByOthers)
        return Inputs::waiting; // producers are not asked for more until the others have caught up
    if (!scan.empty)
        return Inputs::ready;
    if (module->producersToAsk.empty())
        return module->isRespectEOD() ? Inputs::ready : Inputs::exhausted;

    // Only -1 is looked at: a producer that failed leaves the input empty, no more (deliberate).
    if (runPass(module->producersToAsk, jobModulesEodFlag) == -1)
        return Inputs::exhausted;
    return everyInputPending(module) ? Inputs::ready : Inputs::waiting;
}

JobManager::InputScan JobManager::scanInputs(ModuleEntity* module,
                                             EndOfDataFlags& jobModulesEodFlag)
{
    InputScan scan;
    module->producersToAsk.clear();
    for (const DataChannel* channel : module->inputDataChannels) {
        if (channel->hasInputTraces(module))
            continue;
        scan.empty = true;
        if (channel->getNumberOfTraces() > 0) {
            scan.heldByOthers = true;
            break;
        }
        // A producer of two channels is asked twice (deliberate).
        for (ModuleEntity* producer : channel->inputModules) {
            if (jobModulesEodFlag[producer] == 0)
                module->producersToAsk.push_back(producer);
        }
    }
    return scan;
}

bool JobManager::everyInputPending(ModuleEntity* module)
{
    // A loop: there is one channel as a rule, and the library's algorithms unroll for many.
    for (const DataChannel* channel : module->inputDataChannels) {
        if (!channel->hasInputTraces(module))
            return false;
    }
    return true;
}

int JobManager::processModule(ModuleEntity* module)
{
    if (JobRun::isAsked(JobRun::cancelRequested | JobRun::statisticsByTime)) [[unlikely]] {
        if (isToStop())
            return 1;
    }
    setActiveModule(module);
    return module->processModule();
}

void JobManager::consumeInputTraces(ModuleEntity* module)
{
    for (DataChannel* channel : module->inputDataChannels) {
        if (!channel->isFlagged(keepCurrentTrace, true))
            channel->removeInputTrace(module, 0);
    }
}

// The last output channel alone decides; a module without outputs never ends (deliberate).
void JobManager::noteEndOfData(ModuleEntity* module, EndOfDataFlags& jobModulesEodFlag)
{
    if (!module->outputDataChannels.empty())
        jobModulesEodFlag[module] =
            module->outputDataChannels.back()->getDataChannelFlag() == endOfData ? 1 : 0;
}

int JobManager::postProcessJob()
{
    if (!enterPhase(postProcessing, "postProcessJob"))
        return 1;
    try {
        const int result = runPostProcessing();
        leavePhase();
        return result;
    } catch (...) {
        leavePhase();
        throw; // it has been noted where it was met
    }
}

int JobManager::runPostProcessing()
{
    // What one module throws must not keep the others from ending, nor the scratch file.
    std::exception_ptr failure;
    const auto guarded = [&](const auto& step) {
        try {
            step();
        } catch (...) {
            failure = failure != nullptr ? failure : std::current_exception();
            noteException();
        }
    };
    JobRun& run = JobRun::of(*this);
    if (run.processing == JobRun::Processing::unfinished && !run.isCancelled)
        markFailed("it was not finished");
    guarded([this] {
        sendMessage(1, kernel_messages::postProcessingBanner);
        sendModulesStatistic(postProcessing);
    });
    for (std::size_t i = 0; i < jobModules.size(); ++i) {
        if (isCancelRequested())
            noteCancelled();
        // Those that a cancelled job has not come to have nothing to end.
        if (run.isCancelled && run.prepared.count(jobModules[i]) == 0)
            continue;
        int result = 0;
        guarded([&] { result = jobModules[i]->postProcessModule(); });
        if (result != 0)
            return 1;
        guarded([this] { sendModulesStatistic(postProcessing); });
    }
    const bool release = JobRun::isAsked(JobRun::releasesMemory);
    if (release)
        guarded([this] { releaseTraces(); });
    guarded([this] { deleteChannelsAndBuffers(); });
    guarded([this] { deleteModules(); });
    if (release)
        guarded([this] { releaseBlocks(); });
    guarded([] { ScratchManager::getInstance()->deleteScratch(); });
    releaseSpareBlocks();
    run.prepared.clear();
    run.processing = JobRun::Processing::notBegun;
    guarded([&] { noteMark(); });
    if (failure != nullptr)
        std::rethrow_exception(failure);
    return 0;
}

void JobManager::noteMark()
{
    JobRun& run = JobRun::of(*this);
    const auto mark = metaDataMap.find(jobFailureKey);
    run.leftMark = mark != metaDataMap.end() && !run.hadMark;
    if (run.leftMark)
        run.leftMarkText = mark->second;
}

// A channel hangs on its producers and on its consumers; each is there once.
std::set<SeisTraceSet*> JobManager::channelsAndBuffers() const
{
    std::set<SeisTraceSet*> sets;
    for (const ModuleEntity* module : jobModules) {
        sets.insert(module->inputDataChannels.begin(), module->inputDataChannels.end());
        sets.insert(module->outputDataChannels.begin(), module->outputDataChannels.end());
        sets.insert(module->workTraceSets.begin(), module->workTraceSets.end());
    }
    sets.erase(nullptr);
    return sets;
}

void JobManager::deleteChannelsAndBuffers()
{
    for (SeisTraceSet* set : channelsAndBuffers())
        delete set;
}
