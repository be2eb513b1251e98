/// @file ChildProcesses.h
///
/// Processes that the command starts, several at a time, and that do not outlive it.
#ifndef CHILDPROCESSES_H
#define CHILDPROCESSES_H

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <sys/types.h>
#include <vector>

namespace host {

/// How a process ended.
struct ProcessOutcome
{
    pid_t process = 0;
    int exitCode = 0; ///< 128 and the signal's number when a signal ended it
    int64_t peakBytes = 0;
};

/// Child processes. Each is in a process group of its own, so that Ctrl-C at the terminal reaches
/// only this process, which passes it on once: a second signal would end a run before it has
/// removed what is incomplete. Where this process ends without having waited for them, also by
/// kill -9, the kernel sends them SIGTERM.
///
/// Used on one thread, but for `stop`, which any thread may call. The thread that starts processes
/// must live as long as they do.
class ChildProcesses
{
public:
    ChildProcesses() = default;
    ~ChildProcesses();
    ChildProcesses(const ChildProcesses&) = delete;
    ChildProcesses& operator=(const ChildProcesses&) = delete;

    /// Starts `program` with `words`, of which the first is its name. Standard input is empty;
    /// standard output and standard error go to the file `output`, which is made anew. Returns 0
    /// after `stop`. Throws CommandError where no process can be made.
    pid_t start(const std::string& program, const std::vector<std::string>& words,
                const std::string& output);

    /// Waits for the end of one of them; nothing when there is none.
    std::optional<ProcessOutcome> waitForOne();

    /// Sends `signal` to all, starts no more, and kills those that are there after 10 s.
    void stop(int signal);
    bool isStopped() const;

private:
    void signalAll(int signal) const;

    mutable std::mutex mutex; ///< of all below
    std::condition_variable allEnded;
    std::set<pid_t> running;
    bool stopped = false;
};

} // namespace host

#endif
