#include "run/Deadlock.h"

#include "ModuleEntity.h"
#include "SeisTrace.h"
#include "run/DataFlow.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int64_t callsBetweenLooks = 1024;
constexpr int endOfData = 3;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

} // namespace

// Counted are calls, not passes of the scheduler: where ways part and meet again and again, one
// pass can make more calls than a job lives to see.
void DeadlockWatch::look()
{
    nextLook = calls + callsBetweenLooks;
    if (activity != CountingChannel::activityOfAll()) {
        activity = CountingChannel::activityOfAll();
        idleCalls = calls;
        idleSince = Clock::now();
        isIdle = false;
        return;
    }
    isIdle = true;
    const int64_t allowance = callsForEachModule * static_cast<int64_t>(modules.size());
    const double seconds = secondsSince(idleSince);
    const auto isOver = [&](const Patience& patience) {
        return calls - idleCalls > patience.calls + allowance && seconds > patience.seconds;
    };
    if (isOver(afterSources) &&
        (isOver(withSources) || DataFlow(job, modules, wiring).everySourceHasEnded()))
        end();
}

// The kernel ends a module by the flag of the first trace in its last output. Where that output has
// several traces, and its reader has ended or has enough for now, nothing takes the first one away:
// the module has marked its end, but is called for ever, and those that read its other outputs wait
// for it. When no trace moves any more, the kernel is shown the flag of the last trace instead.
// Droppers have always taken all.
void DeadlockWatch::helpToEnd(const ModuleEntity& module)
{
    if (module.outputDataChannels.empty() || activity != CountingChannel::activityOfAll())
        return;
    auto* last = static_cast<CountingChannel*>(module.outputDataChannels.back());
    if (!last->isMarkedBehindOthers() || last->outputModules.empty() ||
        isDropper(last->outputModules.front()))
        return;
    hidden = last->traces.front();
    hiddenFlag = hidden->traceFlag;
    hidden->traceFlag = endOfData;
}

// No module has seen it.
void DeadlockWatch::showFlag()
{
    hidden->traceFlag = hiddenFlag;
    hidden = nullptr;
}

void DeadlockWatch::noteRecord()
{
    const bool sameTraces = activityAtRecord == CountingChannel::activityOfAll();
    if (sameTraces && callsAtRecord == calls)
        end();
    activityAtRecord = CountingChannel::activityOfAll();
    callsAtRecord = calls;
}

void DeadlockWatch::end() const
{
    throw Deadlock("the job is deadlocked: no trace moves any more; " +
                   DataFlow(job, modules, wiring).waits());
}

} // namespace host
