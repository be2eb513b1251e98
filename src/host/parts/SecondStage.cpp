#include "parts/SecondStage.h"

#include "DataChannel.h"
#include "JobManager.h"
#include "ModuleEntity.h"
#include "parts/Receipt.h"

#include <algorithm>
#include <set>

namespace host {

namespace {

constexpr int endOfData = 3;
constexpr int keepTrace = 1;

// Entry points have no arguments.
SecondStage* current = nullptr;

} // namespace

bool SecondStage::Feed::advance()
{
    while (reader == nullptr || !reader->hasNext()) {
        if (next == files.size())
            return false;
        reader = std::make_unique<SpoolReader>(files[next++]);
    }
    return true;
}

void SecondStage::Feed::give()
{
    const int number = out->getNumberOfTraces();
    const int flag = reader->read(*out);
    // The end of a part is not the end of the data.
    if (flag != endOfData && number < out->getNumberOfTraces())
        out->getTrace(number, false)->traceFlag = flag;
}

SecondStage::SecondStage(const RunView& view, const Plan& plan, const std::string& directory)
    : manager(view.manager)
{
    current = this;
    allModules = manager.jobModules;
    addStandIns(view, plan, directory);
    detachReaders(view, plan);
    hideFirstStage(view, plan);
}

SecondStage::~SecondStage()
{
    for (const StandIn& one : standIns) {
        one.module->processFunction = one.function;
        one.module->respectEOD = one.respectEnd;
    }
    // The droppers keep their queues until the manager deletes them with all modules.
    for (Consumers& one : consumers)
        one.channel->outputModules.insert(one.channel->outputModules.end(), one.modules.begin(),
                                          one.modules.end());
    manager.jobModules = allModules;
    manager.jobModules.insert(manager.jobModules.end(), droppers.begin(), droppers.end());
    current = nullptr;
}

void SecondStage::addStandIns(const RunView& view, const Plan& plan, const std::string& directory)
{
    for (std::size_t i = 0; i < view.modules.size(); ++i) {
        ModuleEntity* module = view.modules[i];
        if (plan.modules[i].stage != Stage::parts || module->outputDataChannels.empty())
            continue;
        // Called without traces in its inputs, when those before it have ended.
        StandIn one = {module, {}, module->processFunction, module->respectEOD};
        for (std::size_t number = 0; number < plan.spools.size(); ++number) {
            const PlannedSpool& spool = plan.spools[number];
            if (spool.module != static_cast<int>(i))
                continue;
            Feed feed;
            feed.out = module->getOutputDataChannel(spool.port);
            for (std::size_t part = 1; part <= plan.parts.size(); ++part)
                feed.files.push_back(spoolPath(directory, static_cast<int>(part), number));
            one.feeds.push_back(std::move(feed));
        }
        standIns.push_back(std::move(one));
        module->processFunction = giveTraces;
        module->respectEOD = true;
    }
}

// Readers of the first stage have had their traces. Where they share an output with readers of the
// second, theirs would pile up.
void SecondStage::detachReaders(const RunView& view, const Plan& plan)
{
    std::set<const ModuleEntity*> first;
    for (std::size_t i = 0; i < view.modules.size(); ++i) {
        if (plan.modules[i].stage == Stage::parts)
            first.insert(view.modules[i]);
    }
    for (const BuiltTee& tee : view.wiring.tees) {
        const bool isSpooled =
            std::any_of(plan.spools.begin(), plan.spools.end(), [&](const PlannedSpool& spool) {
                return spool.module == tee.producer && spool.port == tee.port;
            });
        if (!isSpooled)
            continue;
        for (CountingChannel* channel : tee.readers) {
            const bool isFirst =
                std::all_of(channel->outputModules.begin(), channel->outputModules.end(),
                            [&](ModuleEntity* module) { return first.count(module) > 0; });
            if (!isFirst || channel->outputModules.empty())
                continue;
            consumers.push_back({channel, std::move(channel->outputModules)});
            channel->outputModules.clear();
            droppers.push_back(addReader(channel, manager));
        }
    }
}

void SecondStage::hideFirstStage(const RunView& view, const Plan& plan)
{
    std::set<const ModuleEntity*> hidden;
    std::set<const DataChannel*> unread; // no trace comes there
    for (std::size_t i = 0; i < view.modules.size(); ++i) {
        if (plan.modules[i].stage == Stage::merge)
            continue;
        // The kernel takes memory off the accounts of its modules alone: those that give traces
        // stay among them. It asks for them only when somebody reads them.
        if (view.modules[i]->outputDataChannels.empty())
            hidden.insert(view.modules[i]);
        unread.insert(view.modules[i]->outputDataChannels.begin(),
                      view.modules[i]->outputDataChannels.end());
    }
    for (const StandIn& one : standIns) {
        for (const Feed& feed : one.feeds)
            unread.erase(feed.out);
    }
    for (const BuiltTee& tee : view.wiring.tees) {
        if (unread.count(tee.module->inputDataChannels.front()) == 0)
            continue;
        hidden.insert(tee.module);
        unread.insert(tee.module->outputDataChannels.begin(), tee.module->outputDataChannels.end());
    }
    std::erase_if(manager.jobModules, [&](const ModuleEntity* module) {
        return hidden.count(module) > 0 ||
               (module->outputDataChannels.empty() && module->inputDataChannels.size() == 1 &&
                isDropper(module) && unread.count(module->inputDataChannels.front()) > 0);
    });
}

int SecondStage::giveTraces()
{
    ModuleEntity* active = current->manager.getActiveModule();
    StandIn& standIn = *std::find_if(current->standIns.begin(), current->standIns.end(),
                                     [=](const StandIn& one) { return one.module == active; });
    for (DataChannel* input : active->inputDataChannels)
        input->setFlag(keepTrace, true);
    bool more = false;
    for (Feed& feed : standIn.feeds) {
        if (feed.advance()) {
            feed.give();
            more = feed.advance() || more;
        }
    }
    if (!more) {
        for (DataChannel* out : active->outputDataChannels)
            out->setDataChannelFlag(endOfData);
    }
    return 0;
}

} // namespace host
