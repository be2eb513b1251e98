/// @file ProbeModule.h
///
/// A module of the job whose entry points run a test's own code.
#ifndef PROBEMODULE_H
#define PROBEMODULE_H

#include "JobManager.h"
#include "ModuleEntity.h"
#include "UniVar.h"
#include "probe.h"

#include <functional>
#include <stdexcept>
#include <string>

/// Adds a module of the library `probe` to the job. What stands in `pre`, `process` and `post` when
/// an entry point is called runs inside of it, that is, as the active module; empty ones do
/// nothing. They may be replaced at any time, also by themselves, and must not throw: the exception
/// would have to pass through C.
///
///     ProbeModule source("source");
///     source.process = [&] { ++calls; };
///     source.entity->setOutputDataChannel(channel, 0);
///
/// The module belongs to the job, as every module does. The object must live until the job is over,
/// and may live longer; it then does not touch `entity` any more.
class ProbeModule
{
public:
    std::function<void()> pre;
    std::function<void()> process;
    std::function<void()> post;
    ModuleEntity* entity; ///< the module; never null

    /// Throws std::runtime_error when the library is not found in `VORN_HOME`; messages have then
    /// said why.
    explicit ProbeModule(const std::string& name)
        : entity(JobManager::getInstance()->initJobModule(name, "libprobe.so"))
    {
        if (entity == nullptr)
            throw std::runtime_error("module \"" + name + "\" can not load libprobe.so");
        entity->setResource("probe", UniVar(static_cast<void*>(&functions)));
    }
    ProbeModule(const ProbeModule&) = delete;
    ProbeModule& operator=(const ProbeModule&) = delete;

private:
    template <std::function<void()> ProbeModule::*function>
    static void call(void* self)
    {
        const std::function<void()> body = static_cast<ProbeModule*>(self)->*function;
        if (body)
            body();
    }

    probe_functions functions{&call<&ProbeModule::pre>, &call<&ProbeModule::process>,
                              &call<&ProbeModule::post>, this};
};

#endif
