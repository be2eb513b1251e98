#include "run/Deadlock.h"

#include "ModuleEntity.h"
#include "base/Escaping.h"
#include "base/Text.h"

#include <algorithm>
#include <fmt/format.h>

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

// A record comes every 1001st pass of the scheduler. Modules that run so long without moving a
// trace will never move one.
constexpr int idleRecordsAllowed = 1000;
constexpr double idleSecondsAllowed = 10;

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

} // namespace

// The scheduler passes over the modules for ever when each waits for another. Its next pass depends
// on the channels alone, so once nothing has moved for a thousand passes nothing ever will.
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
    const bool inVain =
        idleRecords > idleRecordsAllowed && secondsSince(idleSince) > idleSecondsAllowed;
    if (sameWork || inVain)
        throw Deadlock(fmt::format(
            "the job is deadlocked: no trace can move any more, and {} still waiting for input{}",
            waitingModules(), hint(sameWork)));
}

std::string DeadlockWatch::hint(bool isIdle) const
{
    if (!isIdle)
        return "; a preceding module never marks the end of its data";
    for (std::size_t i = 0; i < modules.size(); ++i) {
        if (modules[i]->inputDataChannels.size() > 1)
            return "; where branches meet, as in " + quote(job.modules[i].name) +
                   ", every module must give one trace for each trace that it takes: put modules "
                   "that gather or drop traces (sort, stack, trace_qc) before the branches part or "
                   "after they meet";
    }
    return "";
}

std::string DeadlockWatch::waitingModules() const
{
    std::vector<std::string> names;
    for (std::size_t i = 0; i < modules.size(); ++i) {
        const auto& inputs = modules[i]->inputDataChannels;
        const bool waits =
            std::any_of(inputs.begin(), inputs.end(), [&](const DataChannel* channel) {
                return channel->getNumberOfInputTraces(modules[i]) == 0;
            });
        if (waits)
            names.push_back(job.modules[i].name);
    }
    if (names.empty())
        return "modules are";
    return names.size() == 1 ? "module " + quote(names[0]) + " is"
                             : "the modules " + joined(names, ", ") + " are";
}

} // namespace host
