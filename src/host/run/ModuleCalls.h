/// @file ModuleCalls.h
///
/// Lets the command see each call of a module.
#ifndef MODULECALLS_H
#define MODULECALLS_H

#include "ModuleEntity.h"

#include <functional>
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

} // namespace host

#endif
