/// @file LastCalls.h
///
/// The last call of each module of a job.
#ifndef LASTCALLS_H
#define LASTCALLS_H

#include "ModuleEntity.h"

#include <exception>
#include <functional>
#include <map>

class JobManager;

namespace host {

/// Runs the post-processing of a job so that what fails there keeps the outputs from their names:
/// modules that write files come last, and an exception of a module is told at once, not when all
/// modules have ended. Only one object of this class may exist at a time.
class LastCalls
{
public:
    /// `failed` is called in the handler of the exception that a module has thrown. Reorders the
    /// modules of `manager`; those for which `writesFile` is true come last.
    LastCalls(JobManager& manager, const std::function<bool(const ModuleEntity*)>& writesFile,
              std::function<void(const std::exception&)> failed);
    ~LastCalls();
    LastCalls(const LastCalls&) = delete;
    LastCalls& operator=(const LastCalls&) = delete;

private:
    static int call();

    JobManager& manager;
    std::map<const ModuleEntity*, AnyProcessFunctionType> functions;
    std::function<void(const std::exception&)> failed;
};

} // namespace host

#endif
