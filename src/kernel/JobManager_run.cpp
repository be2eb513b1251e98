// What a host needs beyond one job that ends well: to cancel it, to learn how it ended, and to
// begin the next one as if it were the first of the process.
#include "DataChannel.h"
#include "JobManager.h"
#include "JobOutcome.h"
#include "LibraryEntity.h"
#include "ModuleEntity.h"
#include "ScratchManager.h"
#include "SeisTraceSet.h"
#include "private/JobRun.h"

#include <algorithm>
#include <ctime>
#include <exception>
#include <set>
#include <utility>
#include <vector>

namespace {

constexpr int errorMessage = 3;

// What the system keeps anyway at each of its ticks, a few milliseconds apart: to read it is a
// look into memory.
std::int64_t coarseNanoseconds()
{
    timespec now{};
#ifdef CLOCK_MONOTONIC_COARSE
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
#else
    clock_gettime(CLOCK_MONOTONIC, &now);
#endif
    return static_cast<std::int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

} // namespace

void JobManager::requestCancel() noexcept
{
    JobRun::ask(JobRun::cancelRequested, true);
}

bool JobManager::isCancelRequested() noexcept
{
    return JobRun::isAsked(JobRun::cancelRequested);
}

JobOutcome JobManager::jobOutcome() const
{
    JobOutcome outcome;
    const JobRun* run = JobRun::find(*this);
    if (run == nullptr)
        return outcome;
    outcome.module = run->module;
    outcome.entryPoint = run->entryPoint;
    outcome.text = run->text;
    outcome.thrownBy = run->thrownBy;
    outcome.messages = run->otherCounts;
    for (std::size_t type = 0; type < run->counts.size(); ++type) {
        if (run->counts[type] != 0)
            outcome.messages[static_cast<int>(type)] = run->counts[type];
    }
    if (run->isCancelled)
        outcome.end = JobEnd::cancelled;
    else if (run->hasFailed)
        outcome.end = JobEnd::failed;
    else if (run->hasBegun)
        outcome.end = JobEnd::done;
    return outcome;
}

// Between two calls of modules. A cancelled job has its mark before any other module runs.
bool JobManager::isToStop()
{
    if (isCancelRequested()) {
        noteCancelled();
        return true;
    }
    JobRun& run = JobRun::of(*this);
    if (run.statisticInterval.count() == 0 || run.phase != JobRun::Phase::processing)
        return false;
    const std::int64_t now = coarseNanoseconds();
    const auto interval = std::chrono::nanoseconds(run.statisticInterval).count();
    if (run.statisticDue == 0) {
        run.statisticDue = now + interval;
    } else if (now >= run.statisticDue) {
        run.statisticDue = now + interval;
        sendModulesStatistic(static_cast<int>(run.phase));
    }
    return false;
}

void JobManager::noteCancelled()
{
    JobRun::of(*this).isCancelled = true;
    markFailed("it was cancelled");
}

void JobManager::markFailed(const char* why) noexcept
{
    JobRun* run = JobRun::find(*this);
    if (run == nullptr || run->spareMark.empty())
        return;
    run->spareMark.mapped() = why; // into the room that it has
    metaDataMap.insert(std::move(run->spareMark));
}

void JobManager::leaveRandomNumbers()
{
    JobRun::hasOwnNumbers = true;
}

void JobManager::setStatisticInterval(int milliseconds)
{
    JobRun& run = JobRun::of(*this);
    run.statisticInterval = std::chrono::milliseconds(std::max(0, milliseconds));
    run.statisticDue = 0;
    JobRun::ask(JobRun::statisticsByTime, milliseconds > 0);
}

void JobManager::setReleaseAtEnd(bool release)
{
    JobRun::of(*this).blocks.clear();
    JobRun::ask(JobRun::releasesMemory, release);
}

// Destroys what a plain trace set leaves alive. A host may have put one trace into two sets.
void JobManager::releaseTraces()
{
    const std::set<SeisTraceSet*> sets = channelsAndBuffers();
    std::set<SeisTrace*> seen;
    for (SeisTraceSet* set : sets) {
        for (int i = 0; i < set->getNumberOfTraces(); ++i) {
            SeisTrace* trace = set->getTrace(i, false);
            if (trace != nullptr && !seen.insert(trace).second)
                set->traces[static_cast<std::size_t>(i)] = nullptr;
        }
    }
    for (SeisTraceSet* set : sets)
        set->removeAllTraces();
}

void JobManager::releaseBlocks()
{
    const std::set<void*> blocks = std::exchange(JobRun::of(*this).blocks, {});
    for (void* block : blocks) {
        if (jobMemoryMap.contains(block))
            freeResource(block);
    }
}

// Modules that have been prepared end as after a failure: they free what they hold and remove files
// that are not whole. The others have nothing yet.
int JobManager::resetJob()
{
    JobRun& run = JobRun::of(*this);
    if (const char* const running = run.runningFunction()) {
        sendMessage(errorMessage, std::string("resetJob is refused, since ") + running +
                                      " is still running; call it when that has returned");
        return 1;
    }
    std::exception_ptr failure;
    const auto guarded = [&](const auto& step) {
        try {
            step();
        } catch (...) {
            failure = failure != nullptr ? failure : std::current_exception();
            setActiveModule(nullptr);
        }
    };
    if (!run.prepared.empty())
        markFailed("it was dropped");
    run.phase = JobRun::Phase::postProcessing;
    for (std::size_t i = 0; i < jobModules.size(); ++i) {
        if (run.prepared.count(jobModules[i]) != 0)
            guarded([&] { jobModules[i]->postProcessModule(); });
    }
    run.phase = JobRun::Phase::none;
    setActiveModule(nullptr);
    guarded([this] { releaseTraces(); });
    guarded([this] { deleteChannelsAndBuffers(); });
    guarded([this] { deleteModules(); });
    releaseBlocks();
    guarded([] { ScratchManager::getInstance()->deleteScratch(); });
    releaseSpareBlocks();

    for (LibraryEntity* table : std::exchange(run.tables, {})) {
        if (std::find(jobOutputTables.begin(), jobOutputTables.end(), table) !=
            jobOutputTables.end())
            delete table;
    }
    jobOutputTables.clear();
    jobResources.clear();
    trAttDefsList.clear();
    metaDataMap.clear();
    jobName.clear();
    releaseKeptValues();
    jobStartTime = getCurrentTime();
    run.reset();
    JobRun::ask(JobRun::cancelRequested, false);
    if (failure != nullptr)
        std::rethrow_exception(failure);
    return 0;
}
