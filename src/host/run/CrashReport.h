/// @file CrashReport.h
///
/// What is told of a module that has ended the process: which trace it was given, with which
/// parameters, and where in its code it was.
///
/// A process that has crashed can do little: its heap may be broken, its locks be held. So each
/// part of the report is written by a child process, a copy of this one, that may crash or hang in
/// its turn: the parent waits for a few seconds, and goes on to die as it would otherwise. Nothing
/// of this costs anything before a crash.
#ifndef CRASHREPORT_H
#define CRASHREPORT_H

#include "job/ResolvedJob.h"
#include "run/RunningModule.h"
#include "run/ThrowWatch.h"

#include <csignal>
#include <vector>

namespace host {

/// As long as it lives, reports describe the modules of `job`. Requires: one at a time.
class CrashFacts
{
public:
    /// Keeps references to both; `modules` are those of the job, in its order, as far as they
    /// exist.
    CrashFacts(const ResolvedJob& job, const std::vector<ModuleEntity*>& modules);
    ~CrashFacts();
    CrashFacts(const CrashFacts&) = delete;
    CrashFacts& operator=(const CrashFacts&) = delete;
};

/// What has ended the process, or the module.
struct CrashCause
{
    int signal = 0;                    ///< 0: none
    const siginfo_t* info = nullptr;   ///< of the signal; null: not known
    void* context = nullptr;           ///< of the signal, as its handler gets it
    bool hasStack = true;              ///< the stack, or `thrown`, shows where it was
    const KeptThrow* thrown = nullptr; ///< an exception that the module does not handle
};

/// Writes a report to standard error and to the log of the run: the module and its place in the job
/// file, the address of a fault, the traces that `process_` was given with the words that identify
/// them, the parameters, and the functions of the module that were running. What cannot be found
/// out is left out. Safe in handlers of signals; returns after 10 seconds at most.
void reportCrash(const RunningCode& running, const CrashCause& cause) noexcept;

} // namespace host

#endif
