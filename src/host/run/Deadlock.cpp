#include "run/Deadlock.h"

#include "ModuleEntity.h"
#include "run/DataFlow.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int64_t callsBetweenLooks = 1024;

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
        return;
    }
    if (dropUnwantedTraces())
        return;
    const int64_t allowance = callsForEachModule * static_cast<int64_t>(modules.size());
    const double seconds = secondsSince(idleSince);
    const auto isOver = [&](const Patience& patience) {
        return calls - idleCalls > patience.calls + allowance && seconds > patience.seconds;
    };
    if (isOver(afterSources) &&
        (isOver(withSources) || DataFlow(job, modules, wiring).everySourceHasEnded()))
        end();
}

// The kernel ends a module by the flag of the first trace in its last output. Where the reader of
// that output has ended, nothing takes that trace away, and the module is called for ever. So what
// waits for readers that have ended is removed when no trace moves any more.
bool DeadlockWatch::dropUnwantedTraces()
{
    DataFlow flow(job, modules, wiring);
    int dropped = 0;
    for (CountingChannel* channel : flow.channelsWithoutUse())
        dropped += channel->dropTraces();
    return dropped > 0;
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
