/// @file Programs.h
///
/// Programs of the system that the command calls.
#ifndef PROGRAMS_H
#define PROGRAMS_H

#include <string>

namespace host {

/// Whether a shell would find the program `name`, which has no slash, in PATH.
bool isInstalled(const std::string& name);

/// The path of this program, to start it again. Throws CommandError where /proc does not tell it.
std::string ownProgram();

/// What `program` prints to standard output; "" where it cannot be run or fails. `call` is a
/// command line of the shell; its standard error is not shown.
std::string outputOf(const std::string& call);

/// Runs the text as a script of /bin/sh, with the standard output and standard error of this
/// process, and returns its exit code; 128 and the signal's number when a signal ended it. Throws
/// CommandError where it cannot be started.
int runScript(const std::string& script);

} // namespace host

#endif
