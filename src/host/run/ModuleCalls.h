/// @file ModuleCalls.h
///
/// Lets the command see each call of a module.
#ifndef MODULECALLS_H
#define MODULECALLS_H

#include "ModuleEntity.h"

#include <exception>
#include <functional>
#include <map>
#include <vector>

class JobManager;

namespace host {

/// As long as it lives, the scheduler calls modules through it. The kernel itself reports once in
/// 1001 passes of its scheduler, and one pass may already be endless. Only one object of this class
/// may exist at a time.
class ModuleCalls
{
public:
    /// `before` is called before each call of `process_`, `after` after each that did not throw.
    /// What they throw goes through the scheduler. Requires: the modules of `manager` are in their
    /// order for processing and outlive this object.
    ModuleCalls(JobManager& manager, std::function<void()> before,
                std::function<void(const ModuleEntity&)> after);
    ~ModuleCalls();
    ModuleCalls(const ModuleCalls&) = delete;
    ModuleCalls& operator=(const ModuleCalls&) = delete;

private:
    static int call();

    JobManager& manager;
    std::vector<ModuleEntity*> modules;            ///< in the order of processing
    std::vector<AnyProcessFunctionType> functions; ///< of `modules`
    std::function<void()> before;
    std::function<void(const ModuleEntity&)> after;
};

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
