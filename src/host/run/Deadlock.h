/// @file Deadlock.h
///
/// Jobs in which modules wait for traces that never come.
#ifndef DEADLOCK_H
#define DEADLOCK_H

#include "job/ResolvedJob.h"
#include "run/JobBuilder.h"
#include "run/RunningModule.h"

#include <chrono>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <vector>

class SeisTrace;

namespace host {

/// Ends the processing phase of a job in which no trace can move any more; thrown through the
/// scheduler. The text says which module waits for which.
struct Deadlock : std::runtime_error
{
    using std::runtime_error::runtime_error;
};

/// Watches the traces of a job and the calls of its modules.
///
/// A job is deadlocked when no trace moves any more. That cannot be seen at once: a source may
/// search its file, a module may compute in many short calls. So modules may be called in vain
/// often and for a while, see `Patience`.
class DeadlockWatch : public CallObserver
{
public:
    /// How often modules may be called, and for how long, without a trace that moves; the job is
    /// ended when both are exceeded.
    struct Patience
    {
        int64_t calls;
        double seconds;
    };
    static constexpr Patience withSources = {1'000'000, 10}; ///< one may wait for something outside
    static constexpr Patience afterSources = {100'000, 4};   ///< when all sources have ended
    /// More calls for each module of the job, since all may be called in one pass.
    static constexpr int64_t callsForEachModule = 100;

    /// Keeps references to all three, which may still be empty.
    DeadlockWatch(const ResolvedJob& resolved, const std::vector<ModuleEntity*>& moduleList,
                  const BuiltJob& built)
        : job(resolved), modules(moduleList), wiring(built)
    {
    }

    /// Call it before each call of a module in the processing phase. Throws Deadlock when the
    /// patience has come to its end.
    void beforeCall() override
    {
        if (hidden != nullptr)
            showFlag();
        if (++calls >= nextLook)
            look();
    }

    /// Call it after each call of a module in the processing phase, before the scheduler looks at
    /// the flag of its output.
    void afterCall(const ModuleEntity& module) override
    {
        if (isIdle)
            helpToEnd(module);
    }

    /// Call it for each record of statistics of the processing phase, which the kernel sends every
    /// 1001st pass of its scheduler. Throws Deadlock when no trace has moved and no module has been
    /// called since the record before: the next passes will be the same.
    void noteRecord();

private:
    void look();
    void helpToEnd(const ModuleEntity& module);
    void showFlag();
    [[noreturn]] void end() const;

    const ResolvedJob& job;
    const std::vector<ModuleEntity*>& modules; ///< in the order of the job
    const BuiltJob& wiring;
    int64_t calls = 0;
    int64_t nextLook = 0;
    int64_t activity = -1;        ///< of all channels, at the last look
    int64_t idleCalls = 0;        ///< `calls` when a trace has moved last, or a little later
    int64_t callsAtRecord = -1;   ///< `calls` at the last record
    int64_t activityAtRecord = 0; ///< likewise
    std::chrono::steady_clock::time_point idleSince;
    bool isIdle = false;         ///< no trace has moved between the last two looks
    SeisTrace* hidden = nullptr; ///< whose flag says the end until the next call
    int hiddenFlag = 0;          ///< its own flag
};

} // namespace host

#endif
