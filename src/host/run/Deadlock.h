/// @file Deadlock.h
///
/// Jobs in which modules wait for traces that never come.
#ifndef DEADLOCK_H
#define DEADLOCK_H

#include "job/ResolvedJob.h"
#include "run/JobBuilder.h"

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

namespace host {

/// Ends the processing phase of a job in which no trace can move any more; thrown through the
/// scheduler. The text says which module waits for which.
struct Deadlock : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

/// Watches the traces of a job and the work of its modules from one statistics record of the
/// processing phase to the next. The kernel sends a record every 1001st pass of its scheduler.
class DeadlockWatch
{
public:
    /// Keeps references to all three, which may still be empty.
    DeadlockWatch(const ResolvedJob& resolved, const std::vector<ModuleEntity*>& moduleList,
                  const BuiltJob& built)
        : job(resolved), modules(moduleList), wiring(built)
    {
    }

    /// Call it for each record of the processing phase. Throws Deadlock when no trace and no module
    /// has moved since the record before, or when modules have worked without moving a trace for
    /// more than a thousand records and ten seconds; a hundred and two where every source has
    /// ended.
    void check();

private:
    const ResolvedJob& job;
    const std::vector<ModuleEntity*>& modules; ///< in the order of the job
    const BuiltJob& wiring;
    int64_t traceActivity = -1;  ///< of all channels, up to the last record
    int64_t moduleActivity = -1; ///< time and input traces of all modules, up to the last record
    int idleRecords = 0;         ///< since a trace moved
    std::chrono::steady_clock::time_point idleSince;
};

} // namespace host

#endif
