#include "run/Deadlock.h"

#include "ModuleEntity.h"
#include "run/DataFlow.h"

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

// A record comes every 1001st pass of the scheduler. Modules that run for so many records, and so
// long, without moving a trace will never move one. A source may wait for something outside.
struct Patience
{
    int records;
    double seconds;
};
constexpr Patience withSources = {1000, 10};
constexpr Patience afterSources = {100, 2};

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

} // namespace

// The scheduler passes over the modules for ever when none gives traces any more and one does not
// end. Where none has run either, its next pass depends on the channels alone, so nothing ever will
// change.
void DeadlockWatch::check()
{
    int64_t traces = 0;
    for (const CountingChannel* channel : wiring.allChannels())
        traces += channel->activity();
    int64_t work = 0;
    for (const ModuleEntity* module : modules)
        work += module->totalModuleWorkTime + module->inputTracesProcessed;

    const bool sameTraces = traces == traceActivity;
    const bool sameWork = work == moduleActivity;
    traceActivity = traces;
    moduleActivity = work;
    if (!sameTraces) {
        idleRecords = 0;
        idleSince = Clock::now();
        return;
    }
    ++idleRecords;
    const DataFlow flow(job, modules, wiring);
    const Patience& patience = flow.everySourceHasEnded() ? afterSources : withSources;
    const bool inVain =
        idleRecords > patience.records && secondsSince(idleSince) > patience.seconds;
    if (sameWork || inVain)
        throw Deadlock("the job is deadlocked: no trace moves any more; " + flow.waits());
}

} // namespace host
