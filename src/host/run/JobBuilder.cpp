#include "run/JobBuilder.h"

#include "JobManager.h"
#include "ModuleEntity.h"

#include <QtGlobal>
#include <algorithm>

namespace host {

namespace {

constexpr char additiveMark = '$'; // at the end of a key

// The scheduler takes the input trace away after the call; that is all it has to do.
int drop()
{
    return 0;
}

// Connects one job.
class Builder
{
public:
    Builder(const ResolvedJob& resolved, const std::vector<ModuleEntity*>& entities,
            const std::vector<ModuleEntity*>& ready, JobManager& kernel, int (*function)())
        : job(resolved), modules(entities), tees(ready), manager(kernel), readerFunction(function),
          ofModule(modules.size())
    {
    }

    BuiltJob build()
    {
        for (std::size_t i = 0; i < modules.size(); ++i)
            openOutputs(i);
        for (std::size_t i = 0; i < modules.size(); ++i) {
            int number = 0;
            for (const ResolvedInput& input : job.modules[i].inputs)
                modules[i]->setInputDataChannel(nextReaderOf(input), number++);
        }
        addReaders();
        for (const BuiltChannel& opened : built.channels) {
            if (opened.channel->getNumberOfOutputModules() == 0)
                addReader(opened.channel, manager);
        }
        return built;
    }

private:
    // A port, with the channels of its readers that none has got yet.
    struct Port
    {
        std::vector<CountingChannel*> readers;
        std::size_t given = 0;
    };

    // What modules of the job have not taken of the channels that the job counts.
    void addReaders()
    {
        for (std::size_t i = 0; i < modules.size(); ++i) {
            for (std::size_t number = 0; number < ofModule[i].size(); ++number) {
                Port& port = ofModule[i][number];
                const auto counted = static_cast<std::size_t>(job.modules[i].consumers[number]);
                for (; port.given < counted; ++port.given) {
                    CountingChannel* channel = port.readers.at(port.given);
                    built.readers.push_back({static_cast<int>(i), static_cast<int>(number),
                                             addReader(channel, manager, readerFunction), channel});
                }
            }
        }
    }

    void openOutputs(std::size_t i)
    {
        const ResolvedModule& module = job.modules[i];
        for (std::size_t port = 0; port < module.consumers.size(); ++port) {
            auto* channel = new CountingChannel;
            modules[i]->setOutputDataChannel(channel, static_cast<int>(port));
            built.channels.push_back({static_cast<int>(i), static_cast<int>(port), channel});
            const int readers = module.consumers[port];
            if (readers > 1)
                ofModule[i].push_back({addTee(built.channels.back(), readers)});
            else
                ofModule[i].push_back({{channel}});
        }
        if (!job.teeLibrary.empty() && module.library == job.teeLibrary)
            addEnd(modules[i]);
    }

    std::vector<CountingChannel*> addTee(const BuiltChannel& output, int readers)
    {
        BuiltTee tee;
        tee.producer = output.module;
        tee.port = output.port;
        tee.module = tees.at(built.tees.size());
        tee.module->setInputDataChannel(output.channel, 0);
        for (int i = 0; i < readers; ++i) {
            tee.readers.push_back(new CountingChannel);
            tee.module->setOutputDataChannel(tee.readers.back(), i);
        }
        addEnd(tee.module);
        built.tees.push_back(tee);
        return tee.readers;
    }

    // The output of a tee that holds no traces, and by which it ends.
    static void addEnd(ModuleEntity* tee)
    {
        tee->setOutputDataChannel(new CountingChannel, tee->getNumberOfOutputDataChannels());
    }

    CountingChannel* nextReaderOf(const ResolvedInput& input)
    {
        Port& port =
            ofModule[static_cast<std::size_t>(input.module)][static_cast<std::size_t>(input.port)];
        return port.readers.at(port.given++);
    }

    const ResolvedJob& job;
    const std::vector<ModuleEntity*>& modules;
    const std::vector<ModuleEntity*>& tees;
    JobManager& manager;
    int (*readerFunction)();
    std::vector<std::vector<Port>> ofModule;
    BuiltJob built;
};

void ignoreDiagnostics(QtMsgType, const QMessageLogContext&, const QString&) {}

} // namespace

std::vector<CountingChannel*> BuiltJob::allChannels() const
{
    std::vector<CountingChannel*> all;
    for (const BuiltChannel& built : channels)
        all.push_back(built.channel);
    for (const BuiltTee& tee : tees)
        all.insert(all.end(), tee.readers.begin(), tee.readers.end());
    return all;
}

void BuiltJob::showProducers(const std::vector<ModuleEntity*>& modules) const
{
    for (const BuiltTee& tee : tees) {
        for (CountingChannel* reader : tee.readers)
            reader->inputModules = {modules[static_cast<std::size_t>(tee.producer)]};
    }
}

void BuiltJob::showTees(const std::vector<ModuleEntity*>& modules) const
{
    for (const BuiltTee& tee : tees) {
        for (const auto& [key, value] :
             modules[static_cast<std::size_t>(tee.producer)]->moduleMetaData) {
            if (!key.empty() && key.back() != additiveMark)
                tee.module->setMetaData(key, value);
        }
        for (CountingChannel* reader : tee.readers)
            reader->inputModules = {tee.module};
    }
}

std::vector<std::string> teeNames(const ResolvedJob& job)
{
    std::vector<std::string> names;
    for (const ResolvedModule& module : job.modules) {
        for (const int readers : module.consumers) {
            if (readers > 1)
                names.push_back("tee of " + module.name);
        }
    }
    return names;
}

BuiltJob connectModules(const ResolvedJob& job, const std::vector<ModuleEntity*>& modules,
                        const std::vector<ModuleEntity*>& tees, JobManager& manager,
                        int (*readerFunction)())
{
    return Builder(job, modules, tees, manager, readerFunction).build();
}

ModuleEntity* addReader(CountingChannel* channel, JobManager& manager, int (*function)())
{
    auto* reader = new ModuleEntity(function == nullptr ? "dropped traces" : "spooled traces");
    reader->processFunction = function == nullptr ? drop : function;
    reader->setInputDataChannel(channel, 0);
    manager.jobModules.push_back(reader); // owned by the manager
    return reader;
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
    std::vector<ModuleEntity*> tees;
    for (const std::string& name : teeNames(job))
        tees.push_back(new ModuleEntity(name));
    manager.jobModules.insert(manager.jobModules.end(), tees.begin(), tees.end());
    connectModules(job, modules, tees, manager);

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
    for (const ModuleEntity* module : manager.jobModules) {
        for (const DataChannel* channel : module->outputDataChannels)
            delete channel;
    }
    return order;
}

} // namespace host
