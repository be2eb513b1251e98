#include "run/LastCalls.h"

#include "JobManager.h"

#include <algorithm>

namespace host {

namespace {

// Entry points have no arguments.
LastCalls* current = nullptr;

} // namespace

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
    current = this;
}

// The modules are deleted by now.
LastCalls::~LastCalls()
{
    current = nullptr;
}

int LastCalls::call()
{
    const LastCalls& calls = *current;
    try {
        return calls.functions.at(calls.manager.activeModule)();
    } catch (const std::exception& error) {
        calls.failed(error);
        return 0;
    }
}

} // namespace host
