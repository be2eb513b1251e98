/// @file FaultRun.h
///
/// Runs a job in child processes, in each of which one call of the C library fails.
#ifndef FAULTRUN_H
#define FAULTRUN_H

#include "fault_record.h"

#include <functional>
#include <ostream>
#include <string>

/// Which calls are to fail, and how.
struct Fault
{
    const char* function; ///< as failing.h names it
    int error;            ///< errno
    int kind;             ///< of failing.h
};

std::ostream& operator<<(std::ostream& stream, const Fault& fault);

/// What became of one child.
struct ChildResult
{
    const fault_record* record; ///< valid until the next child of the same FaultRun starts
    int exitCode;               ///< -1 when a signal ended it
    int signal;                 ///< 0 when it ended by itself; SIGALRM when it hung

    std::string messages() const; ///< a line each, "type module: text"
    /// Whether the host was told of anything out of the ordinary: a message of type 2 or above, an
    /// exception, a module that is not made, a phase that did not end well.
    bool isReported(int modules) const;
    int messagesLike(const std::string& part) const;
    int messagesOfType(int type) const;
};

/// Lets the preloaded library be used by the test: loads it ahead of the C library by starting the
/// program anew, where that has not been done. Returns whether it is there.
bool loadFailingCalls(char** argv);

/// Children share this object's record with the parent.
class FaultRun
{
public:
    /// A job to run in a child: `armed` is called where calls begin to be counted; what happens
    /// before that is not the job. It fills the record and returns the child's exit code.
    using Job = std::function<int(fault_record& record, const std::function<void()>& armed)>;

    FaultRun();
    ~FaultRun();
    FaultRun(const FaultRun&) = delete;
    FaultRun& operator=(const FaultRun&) = delete;

    /// Runs `job` with the `nth` call failing (0: none).
    ChildResult run(const Job& job, const Fault& fault, long nth);

private:
    fault_record* record;
};

/// Whether the long form of the tests is asked for, by the environment variable VORN_TEST_LONG.
bool isLongForm();

/// Which call is to fail next, from the first to the one that the job does not come to any more. In
/// the short form about `most` of them, evenly spread. The environment variable VORN_FAULT_CALL
/// chooses a single call, to look at what happens there.
class FaultSweep
{
public:
    FaultSweep(const Fault& which, long calls, long most);

    /// Goes on to the next call; false when all has been tried.
    bool next();
    long call() const { return nth; }
    /// What became of that call: `what` is wrong with it, "" for nothing; `details` are for
    /// readers.
    void note(const ChildResult& result, const std::string& what, const std::string& details);
    /// Fails the test if anything was wrong, and writes how much was tried for `job`.
    void tell(const std::string& job) const;

private:
    Fault fault;
    long total;
    long step;
    long nth = 0;
    long tried = 0;
    long wrong = 0;
    bool untouched = false;
    bool single = false;
};

#endif
