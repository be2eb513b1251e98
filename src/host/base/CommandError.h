/// @file CommandError.h
///
/// How a command ends: its exit code, and the exception that ends it early.
#ifndef COMMANDERROR_H
#define COMMANDERROR_H

#include <stdexcept>
#include <string>

namespace host {

/// What the process returns to the shell.
enum ExitCode : int
{
    exitDone = 0,      ///< the command succeeded
    exitJobErrors = 1, ///< the job ran and some module reported an error
    exitWrongCall = 2, ///< the job, a file or the call is wrong
    exitTryAgain =
        75, ///< the machine was at fault, as a full disk: the same call may succeed later
    exitInterrupted = 130
};

/// Ends a command: `main` prints "vorn: " and the text to standard error and returns `code`. The
/// text is one line (or several, each an error of its own); what came from files need not be
/// escaped: that happens when it is printed.
class CommandError : public std::runtime_error
{
public:
    explicit CommandError(const std::string& text, int exitCode = exitWrongCall)
        : std::runtime_error(text), code(exitCode)
    {
    }
    int code; ///< what the process returns: an ExitCode
};

} // namespace host

#endif
