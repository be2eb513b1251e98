#include "run/ModuleCalls.h"

#include "JobManager.h"
#include "run/JobBuilder.h"

namespace host {

namespace {

ModuleCalls* current = nullptr; // entry points have no arguments

} // namespace

ModuleCalls::ModuleCalls(JobManager& kernel, std::function<void()> beforeEach)
    : manager(kernel), modules(kernel.jobModules), before(std::move(beforeEach))
{
    for (ModuleEntity* module : modules) {
        functions.push_back(module->processFunction);
        if (!isDropper(module)) // which can do nothing wrong, and must be recognised
            module->processFunction = call;
    }
    current = this;
}

ModuleCalls::~ModuleCalls()
{
    current = nullptr;
    for (std::size_t i = 0; i < modules.size(); ++i)
        modules[i]->processFunction = functions[i];
}

// The kernel numbers the modules when processing begins.
int ModuleCalls::call()
{
    ModuleCalls& calls = *current;
    const auto place = static_cast<std::size_t>(calls.manager.activeModule->jobIndex);
    calls.before();
    return calls.functions[place]();
}

} // namespace host
