#include "run/ModuleCalls.h"

#include "JobManager.h"
#include "run/JobBuilder.h"

#include <algorithm>

namespace host {

namespace {

// Entry points have no arguments.
ModuleCalls* current = nullptr;
LastCalls* currentLast = nullptr;

} // namespace

ModuleCalls::ModuleCalls(JobManager& kernel, std::function<void()> beforeEach,
                         std::function<void(const ModuleEntity&)> afterEach)
    : manager(kernel), modules(kernel.jobModules), before(std::move(beforeEach)),
      after(std::move(afterEach))
{
    for (ModuleEntity* module : modules) {
        functions.push_back(module->processFunction);
        if (!isDropper(module)) // which only takes, and must be recognised
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
    const int status = calls.functions[place]();
    calls.after(*calls.modules[place]);
    return status;
}

LastCalls::LastCalls(JobManager& kernel, const std::function<bool(const ModuleEntity*)>& writesFile,
                     std::function<void(const std::exception&)> tell)
    : manager(kernel), failed(std::move(tell))
{
    std::stable_partition(manager.jobModules.begin(), manager.jobModules.end(),
                          [&](const ModuleEntity* module) { return !writesFile(module); });
    for (ModuleEntity* module : manager.jobModules) {
        if (module->postProcessFunction == nullptr)
            continue; // one of the command's own
        functions[module] = module->postProcessFunction;
        module->postProcessFunction = call;
    }
    currentLast = this;
}

// The modules are deleted by now.
LastCalls::~LastCalls()
{
    currentLast = nullptr;
}

int LastCalls::call()
{
    const LastCalls& calls = *currentLast;
    try {
        return calls.functions.at(calls.manager.activeModule)();
    } catch (const std::exception& error) {
        calls.failed(error);
        return 0;
    }
}

} // namespace host
