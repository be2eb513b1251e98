/// @file PartProcesses.h
///
/// Parts of a plan as processes of this machine.
#ifndef PARTPROCESSES_H
#define PARTPROCESSES_H

#include "each/ChildProcesses.h"
#include "parts/Receipt.h"
#include "run/Progress.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace host {

/// Runs parts, so many at a time, each a process of this program. When one fails, those behind it
/// are ended, and those before it are waited for: the first part that fails is the one in which a
/// single process would have failed.
class PartProcesses
{
public:
    explicit PartProcesses(int atATime);

    /// Returns when all have ended, or have been stopped: then only when the process ends.
    /// `directory` is that of the plan, `parts` are some of its parts in ascending order. Throws
    /// CommandError where no process can be made.
    void run(const std::string& directory, const std::vector<int>& parts);

    /// Exit codes of parts that have failed: at most one, the first.
    const std::map<int, int>& failures() const { return exitCodes; }
    /// What a part that has failed left, or what is known of its end.
    Receipt failureOf(int part) const;
    int64_t micros() const { return elapsed; } ///< that run() took

    /// Called by another thread.
    ProgressState progress();
    /// May be called by any thread. Signal 0 is the end of the time.
    void stop(int signal);

private:
    void start(int part);
    bool waitForOne();
    void noteEnd(const ProcessOutcome& outcome);
    void endPartsAfter(int part);

    std::size_t most;
    std::string program; ///< this one
    std::string planDirectory;
    ChildProcesses processes;
    std::map<pid_t, int> running; ///< parts by process
    std::map<int, int> exitCodes;
    int64_t elapsed = 0;
    std::mutex mutex; ///< of what progress() reads
    std::vector<std::string> liveFiles;
    double beganAt = 0; ///< seconds of the steady clock; 0: not yet
};

} // namespace host

#endif
