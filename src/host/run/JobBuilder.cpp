#include "run/JobBuilder.h"

#include "JobManager.h"
#include "ModuleEntity.h"

#include <QtGlobal>
#include <algorithm>

namespace host {

namespace {

// The scheduler takes the input trace away after the call; that is all it has to do.
int drop()
{
    return 0;
}

void addDropper(CountingChannel* channel, JobManager& manager)
{
    ModuleEntity* dropper = new ModuleEntity("dropped traces"); // owned by the manager
    dropper->processFunction = drop;
    dropper->setInputDataChannel(channel, 0);
    manager.jobModules.push_back(dropper);
}

void ignoreDiagnostics(QtMsgType, const QMessageLogContext&, const QString&) {}

} // namespace

std::vector<BuiltChannel> connectModules(const ResolvedJob& job,
                                         const std::vector<ModuleEntity*>& modules,
                                         JobManager& manager)
{
    std::vector<BuiltChannel> channels;
    std::vector<std::vector<CountingChannel*>> ofModule(modules.size());
    for (std::size_t i = 0; i < modules.size(); ++i) {
        for (std::size_t port = 0; port < job.modules[i].consumers.size(); ++port) {
            CountingChannel* channel = new CountingChannel;
            modules[i]->setOutputDataChannel(channel, static_cast<int>(port));
            ofModule[i].push_back(channel);
            channels.push_back({static_cast<int>(i), static_cast<int>(port), channel});
        }
    }
    for (std::size_t i = 0; i < modules.size(); ++i) {
        int number = 0;
        for (const ResolvedInput& input : job.modules[i].inputs)
            modules[i]->setInputDataChannel(ofModule[static_cast<std::size_t>(input.module)]
                                                    [static_cast<std::size_t>(input.port)],
                                            number++);
    }
    for (const BuiltChannel& built : channels) {
        if (built.channel->getNumberOfOutputModules() == 0)
            addDropper(built.channel, manager);
    }
    return channels;
}

bool isDropper(const ModuleEntity* module)
{
    return module->processFunction == drop;
}

std::vector<int> kernelOrder(const ResolvedJob& job)
{
    JobManager manager; // of our own: deletes its modules at the end
    std::vector<ModuleEntity*> modules;
    for (const ResolvedModule& module : job.modules)
        modules.push_back(new ModuleEntity(module.name));
    manager.jobModules = modules;
    const std::vector<BuiltChannel> channels = connectModules(job, modules, manager);

    const QtMessageHandler former = qInstallMessageHandler(ignoreDiagnostics);
    manager.sortJobModules();
    qInstallMessageHandler(former);

    std::vector<int> order(modules.size(), 0);
    int place = 0;
    for (ModuleEntity* module : manager.jobModules) {
        const auto known = std::find(modules.begin(), modules.end(), module);
        if (known != modules.end())
            order[static_cast<std::size_t>(known - modules.begin())] = ++place;
    }
    for (const BuiltChannel& built : channels)
        delete built.channel;
    return order;
}

} // namespace host
