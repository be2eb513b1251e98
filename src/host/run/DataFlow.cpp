#include "run/DataFlow.h"

#include "JobManager.h"
#include "ModuleEntity.h"
#include "base/Escaping.h"
#include "base/Text.h"

#include <algorithm>
#include <fmt/format.h>

namespace host {

namespace {

constexpr std::size_t mostWaits = 8; // that one message names

} // namespace

DataFlow::DataFlow(const ResolvedJob& resolved, const std::vector<ModuleEntity*>& entities,
                   const BuiltJob& wiring)
    : job(resolved), modules(entities), consumers(entities.size()), exhausted(entities.size()),
      wanted(entities.size())
{
    for (const BuiltTee& tee : wiring.tees) {
        for (const CountingChannel* reader : tee.readers)
            inputOfTee[reader] = tee.module->getInputDataChannel(0);
    }
    for (std::size_t i = 0; i < modules.size(); ++i) {
        for (std::size_t input = 0; input < job.modules[i].inputs.size(); ++input)
            consumers[producerOf(i, input)].push_back(i);
    }
}

CountingChannel* DataFlow::channelOf(std::size_t module, std::size_t input) const
{
    return static_cast<CountingChannel*>(modules[module]->inputDataChannels[input]);
}

std::size_t DataFlow::producerOf(std::size_t module, std::size_t input) const
{
    return static_cast<std::size_t>(job.modules[module].inputs[input].module);
}

// As the kernel sees it: the last output alone decides.
bool DataFlow::hasEnded(std::size_t module) const
{
    const auto& outputs = modules[module]->outputDataChannels;
    return !outputs.empty() && static_cast<CountingChannel*>(outputs.back())->isEndMarked();
}

// Nothing is on its way to that input.
bool DataFlow::isDrained(std::size_t module, std::size_t input) const
{
    const CountingChannel* channel = channelOf(module, input);
    const auto tee = inputOfTee.find(channel);
    return channel->getNumberOfInputTraces(modules[module]) == 0 &&
           (tee == inputOfTee.end() || tee->second->getNumberOfTraces() == 0);
}

bool DataFlow::everySourceHasEnded() const
{
    for (std::size_t i = 0; i < modules.size(); ++i) {
        if (job.modules[i].inputs.empty() && !hasEnded(i))
            return false;
    }
    return true;
}

// Whether the kernel has dropped the module, or would when it was asked: an input has ended, and
// the module either did not ask to be called then, or cannot be told.
bool DataFlow::isExhausted(std::size_t module)
{
    if (exhausted[module])
        return *exhausted[module];
    exhausted[module] = false;
    if (hasEnded(module))
        return false;
    for (std::size_t input = 0; input < job.modules[module].inputs.size(); ++input) {
        const std::size_t producer = producerOf(module, input);
        if (isDrained(module, input) &&
            (isExhausted(producer) || (hasEnded(producer) && !modules[module]->isRespectEOD())))
            exhausted[module] = true;
    }
    return *exhausted[module];
}

// Whether what the module would still give is not merely for modules that have ended before it.
bool DataFlow::isWanted(std::size_t module)
{
    if (wanted[module])
        return *wanted[module];
    const std::vector<std::size_t>& readers = consumers[module];
    const std::vector<int>& ports = job.modules[module].consumers;
    const bool isUnread = std::find(ports.begin(), ports.end(), 0) != ports.end();
    wanted[module] = readers.empty() || isUnread ||
                     std::any_of(readers.begin(), readers.end(), [this](std::size_t reader) {
                         return !hasEnded(reader) && isWanted(reader);
                     });
    return *wanted[module];
}

bool DataFlow::hasSeenTraces(std::size_t module) const
{
    for (std::size_t input = 0; input < job.modules[module].inputs.size(); ++input) {
        if (channelOf(module, input)->arrived() > 0)
            return true;
    }
    return false;
}

// Whether traces are on their way to one of its inputs, or may be.
bool DataFlow::hasMoreToCome(std::size_t module)
{
    for (std::size_t input = 0; input < job.modules[module].inputs.size(); ++input) {
        const std::size_t producer = producerOf(module, input);
        if (!isDrained(module, input) || !(hasEnded(producer) || isExhausted(producer)))
            return true;
    }
    return false;
}

std::vector<std::string> DataFlow::lostEnds()
{
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < modules.size(); ++i) {
        if (!modules[i]->isRespectEOD() || hasEnded(i) || !isWanted(i))
            continue;
        // One that no trace has reached holds nothing back. A join then loses its other inputs.
        if (!hasSeenTraces(i) && !hasMoreToCome(i))
            continue;
        const std::string text = lostEnd(i);
        if (!text.empty())
            texts.push_back(text);
    }
    return texts;
}

std::string DataFlow::lostEnd(std::size_t module)
{
    for (std::size_t input = 0; input < job.modules[module].inputs.size(); ++input) {
        const std::size_t producer = producerOf(module, input);
        if (!isDrained(module, input) || !isExhausted(producer) ||
            channelOf(module, input)->isEndMarked())
            continue;
        const std::string lost = fmt::format(
            "module {} was not called at the end of its data, so what it held back is missing: "
            "module {} before it ",
            name(module), name(producer));
        if (!hasSeenTraces(producer))
            return lost + "ended without marking the end, as no trace had reached it";
        std::string text = lost + "ended without marking its last trace";
        for (std::size_t before = 0; before < job.modules[producer].inputs.size(); ++before) {
            const std::size_t origin = producerOf(producer, before);
            if (isDrained(producer, before) && hasEnded(origin) &&
                !channelOf(producer, before)->hasMarkedTrace())
                return text + fmt::format(", as module {} before that one did", name(origin));
        }
        return text;
    }
    return "";
}

std::vector<std::string> DataFlow::unreadTraces() const
{
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < modules.size(); ++i) {
        if (job.modules[i].inputs.size() < 2 || hasEnded(i))
            continue;
        for (std::size_t input = 0; input < job.modules[i].inputs.size(); ++input) {
            CountingChannel* channel = channelOf(i, input);
            const int pending = channel->getNumberOfInputTraces(modules[i]);
            if (pending > 0 && inputOfTee.count(channel) > 0)
                texts.push_back(
                    fmt::format("module {}, which ends with its shortest input, has not "
                                "read the last {} of module {}",
                                name(i), counted(pending, "trace"), name(producerOf(i, input))));
        }
    }
    return texts;
}

std::string DataFlow::waits()
{
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < modules.size(); ++i) {
        const std::string text = hasEnded(i) ? "" : waitOf(i);
        if (!text.empty())
            texts.push_back(text);
    }
    if (texts.size() > mostWaits) {
        const std::size_t more = texts.size() - mostWaits;
        texts.resize(mostWaits);
        texts.push_back(fmt::format("and {} more", more));
    }
    const std::string last = JobManager::getInstance()->getCurrentModuleName();
    return texts.empty() ? fmt::format("the last module that was called is {}", quote(last))
                         : joined(texts, "; ");
}

// What keeps the module from ending; "" when it is not asked for traces.
std::string DataFlow::waitOf(std::size_t module)
{
    const std::vector<ResolvedInput>& inputs = job.modules[module].inputs;
    if (inputs.empty())
        return isAwaited(module)
                   ? fmt::format("module {} gives no trace and does not end", name(module))
                   : "";
    bool hasLiveProducer = false;
    bool isDrainedAnywhere = false;
    std::vector<std::string> producers;
    for (std::size_t input = 0; input < inputs.size(); ++input) {
        if (!isDrained(module, input))
            continue;
        isDrainedAnywhere = true;
        if (!hasEnded(producerOf(module, input))) {
            hasLiveProducer = true;
            producers.push_back(awaited(module, input));
        }
    }
    if (hasLiveProducer)
        return fmt::format("module {} waits for {}", name(module), joined(producers, ", "));
    if (isDrainedAnywhere && modules[module]->isRespectEOD()) {
        const char* fault = modules[module]->outputDataChannels.empty()
                                ? "has no output whose end it could mark"
                                : "does not mark the end of its output";
        return fmt::format("module {} is called after the end of its data, but {}", name(module),
                           fault);
    }
    if (!isDrainedAnywhere && isWanted(module))
        return fmt::format("module {} has traces in all inputs, but neither takes nor gives one",
                           name(module));
    return "";
}

// Whether a reader of the module has nothing left to read.
bool DataFlow::isAwaited(std::size_t module) const
{
    for (const std::size_t reader : consumers[module]) {
        for (std::size_t input = 0; input < job.modules[reader].inputs.size(); ++input) {
            if (producerOf(reader, input) == module && isDrained(reader, input))
                return true;
        }
    }
    return false;
}

// The output that an input reads; with the port where there are several.
std::string DataFlow::awaited(std::size_t module, std::size_t input) const
{
    const ResolvedInput& read = job.modules[module].inputs[input];
    const std::size_t producer = producerOf(module, input);
    std::string text = name(producer);
    if (job.modules[producer].consumers.size() > 1)
        text += fmt::format(" (output {})", job.portName(read.module, read.port));
    if (job.modules[module].inputs.size() > 1)
        text += fmt::format(" at input {}", input + 1);
    return text;
}

std::string DataFlow::name(std::size_t module) const
{
    return quote(job.modules[module].name);
}

} // namespace host
