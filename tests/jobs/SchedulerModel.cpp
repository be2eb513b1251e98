#include "SchedulerModel.h"

#include <algorithm>

namespace scheduler_model {

namespace {

constexpr int endOfData = 3;
constexpr int keepBit = 1;

bool contains(const std::vector<int>& list, int item)
{
    return std::find(list.begin(), list.end(), item) != list.end();
}

} // namespace

Simulation::Simulation(const Job& jobToRun)
    : job(jobToRun), channelStates(static_cast<std::size_t>(job.channels))
{
    for (std::size_t i = 0; i < job.modules.size(); ++i) {
        states.push_back({});
        states.back().respectEod = job.modules[i].respectEod;
        order.push_back(static_cast<int>(i));
    }
    for (const Wiring& wire : job.wiring) {
        Channel& channel = channelStates[wire.channel];
        switch (wire.kind) {
        case Wiring::input:
            states[wire.module].inputs.push_back(wire.channel);
            channel.consumers.push_back(wire.module);
            break;
        case Wiring::output:
            states[wire.module].outputs.push_back(wire.channel);
            channel.producers.push_back(wire.module);
            break;
        case Wiring::trace:
            append(channel, {0, 0});
            break;
        }
    }
}

// ---- channels

void Simulation::append(Channel& channel, Trace trace)
{
    const int index = static_cast<int>(allTraces.size());
    allTraces.push_back(trace);
    channel.traces.push_back(index);
    for (int consumer : channel.consumers)
        channel.queues[consumer].push_back(index);
}

Simulation::Trace& Simulation::traceAt(Channel& channel, int place)
{
    while (static_cast<int>(channel.traces.size()) <= place)
        append(channel, {0, 0});
    return allTraces[channel.traces[place]];
}

void Simulation::removeFirst(Channel& channel)
{
    channel.traces.erase(channel.traces.begin());
    if (!channel.traces.empty())
        channel.ownFlag = allTraces[channel.traces.front()].flag;
}

int Simulation::pending(const Channel& channel, int module) const
{
    const auto queue = channel.queues.find(module);
    return static_cast<int>(queue == channel.queues.end() ? channel.traces.size()
                                                          : queue->second.size());
}

// The module is done with the channel's first trace, whether it stood in its queue or not.
void Simulation::take(Channel& channel, int module)
{
    traceAt(channel, 0);
    const int trace = channel.traces.front();
    const auto own = channel.queues.find(module);
    if (own != channel.queues.end()) {
        const auto entry = std::find(own->second.begin(), own->second.end(), trace);
        if (entry != own->second.end())
            own->second.erase(entry);
    }
    for (const auto& queue : channel.queues) {
        if (contains(queue.second, trace))
            return;
    }
    removeFirst(channel);
}

int Simulation::flagOf(const Channel& channel) const
{
    return channel.traces.empty() ? channel.ownFlag : allTraces[channel.traces.front()].flag;
}

void Simulation::setFlag(Channel& channel, int flag)
{
    if (channel.traces.empty())
        channel.ownFlag = flag;
    else
        allTraces[channel.traces.back()].flag = flag;
}

std::vector<std::string> Simulation::channels() const
{
    std::vector<std::string> texts;
    for (const Channel& channel : channelStates) {
        std::vector<TraceView> traces;
        for (int index : channel.traces)
            traces.push_back({allTraces[index].number, allTraces[index].flag});
        std::vector<int> counts;
        for (int consumer : channel.consumers)
            counts.push_back(pending(channel, consumer));
        texts.push_back(channelText(traces, channel.ownFlag, channel.bits, counts));
    }
    return texts;
}

// ---- pre-processing

void Simulation::preProcess()
{
    definePriorities();
    std::stable_sort(order.begin(), order.end(),
                     [&](int a, int b) { return states[a].priority < states[b].priority; });
    for (int module : order) {
        sendStatistic(1);
        events.push_back(callText("preprocess", job.modules[module].name, {}));
        perform(module, job.modules[module].preProcess);
    }
}

void Simulation::definePriorities()
{
    int level = 1;
    for (int module : order) {
        if (states[module].inputs.empty())
            level = std::max(level, deepen(module, level));
    }
}

// Moves whatever `source` reaches below its producers, until nothing has to move any more; returns
// the deepest level that it reaches.
int Simulation::deepen(int source, int priority)
{
    std::vector<int> reached = {source};
    states[source].priority = std::max(states[source].priority, priority);
    for (bool moved = true; moved;) {
        moved = false;
        for (std::size_t i = 0; i < reached.size(); ++i) {
            for (int channel : states[reached[i]].outputs) {
                for (int consumer : channelStates[channel].consumers) {
                    if (!contains(reached, consumer)) {
                        reached.push_back(consumer);
                        moved = true;
                    }
                    const int below = states[reached[i]].priority + 1;
                    if (states[consumer].priority < below) {
                        states[consumer].priority = below;
                        moved = true;
                    }
                }
            }
        }
    }
    int deepest = 0;
    for (int module : reached)
        deepest = std::max(deepest, states[module].priority);
    return deepest;
}

// ---- processing

bool Simulation::reads(int module) const
{
    for (int channel : states[module].inputs) {
        if (!channelStates[channel].producers.empty())
            return true;
    }
    return false;
}

bool Simulation::feeds(int module) const
{
    for (int channel : states[module].outputs) {
        if (!channelStates[channel].consumers.empty())
            return true;
    }
    return false;
}

std::vector<int> Simulation::sinks() const
{
    std::vector<int> list;
    for (int module : order) {
        if (!feeds(module) && reads(module))
            list.push_back(module);
    }
    return list;
}

bool Simulation::process(int passesAtMost, int callsAtMost)
{
    std::vector<int> list = sinks();
    int sinceStatistic = 0;
    for (int passes = 1; passes <= passesAtMost && calls <= callsAtMost; ++passes) {
        const int callsBefore = calls;
        const std::size_t sinksBefore = list.size();
        pass(list);
        if (++sinceStatistic == 1001) {
            sendStatistic(2);
            sinceStatistic = 0;
        }
        if (list.empty())
            return true;
        if (calls == callsBefore && list.size() == sinksBefore)
            return false; // nothing has changed, nor will it
    }
    return false;
}

void Simulation::processPasses(int passes)
{
    std::vector<int> list = sinks();
    for (int i = 0; i < passes && !list.empty(); ++i)
        pass(list);
}

int Simulation::pass(std::vector<int>& modules)
{
    int status = -1;
    for (std::size_t i = 0; i < modules.size(); ++i) {
        const int module = modules[i];
        if (states[module].ended)
            continue;
        status = 0;
        if (mustWait(module))
            continue;
        if (lacksInput(module)) {
            std::vector<int> producers = liveProducers(module);
            const bool alone = producers.empty();
            if (alone ? !states[module].respectEod : pass(producers) == -1) {
                modules.erase(modules.begin() + static_cast<std::ptrdiff_t>(i));
                return -1;
            }
            if (!alone && lacksInput(module))
                continue;
        }
        call(module);
    }
    return status;
}

bool Simulation::lacksInput(int module) const
{
    return std::any_of(states[module].inputs.begin(), states[module].inputs.end(),
                       [&](int input) { return pending(channelStates[input], module) == 0; });
}

// Another consumer of an input has not caught up.
bool Simulation::mustWait(int module) const
{
    return std::any_of(states[module].inputs.begin(), states[module].inputs.end(), [&](int input) {
        return pending(channelStates[input], module) == 0 && !channelStates[input].traces.empty();
    });
}

// Of the inputs that lack traces, in their order.
std::vector<int> Simulation::liveProducers(int module) const
{
    std::vector<int> live;
    for (int input : states[module].inputs) {
        if (pending(channelStates[input], module) > 0)
            continue;
        for (int producer : channelStates[input].producers) {
            if (!states[producer].ended)
                live.push_back(producer);
        }
    }
    return live;
}

// ---- calls

void Simulation::call(int module)
{
    ++calls;
    State& state = states[module];
    events.push_back(callText("process", job.modules[module].name, look(module)));
    perform(module, job.modules[module].stepOfCall(state.calls++));

    if (!state.inputs.empty() && !channelStates[state.inputs.front()].traces.empty())
        ++state.tracesIn;
    for (int output : state.outputs)
        state.tracesOut += static_cast<int>(channelStates[output].traces.size());

    for (int input : state.inputs) {
        Channel& channel = channelStates[input];
        if ((channel.bits & keepBit) != 0)
            channel.bits -= keepBit;
        else
            take(channel, module);
    }
    if (!state.outputs.empty())
        state.ended = flagOf(channelStates[state.outputs.back()]) == endOfData;
}

std::vector<InputView> Simulation::look(int module)
{
    std::vector<InputView> views;
    for (int input : states[module].inputs) {
        Channel& channel = channelStates[input];
        if (job.modules[module].readsBlindly)
            traceAt(channel, 0);
        const int held = static_cast<int>(channel.traces.size());
        views.push_back(
            {pending(channel, module), held, held > 0 ? traceAt(channel, 0).number : 0});
    }
    return views;
}

void Simulation::perform(int module, const Step& step)
{
    State& state = states[module];
    if (step.respectEod != unchanged)
        state.respectEod = step.respectEod != 0;
    for (std::size_t i = 0; i < step.inputBits.size() && i < state.inputs.size(); ++i)
        channelStates[state.inputs[i]].bits |= step.inputBits[i];
    for (std::size_t i = 0; i < step.outputs.size() && i < state.outputs.size(); ++i)
        write(module, channelStates[state.outputs[i]], step.outputs[i]);
}

void Simulation::write(int module, Channel& channel, const Writing& writing)
{
    State& state = states[module];
    if (writing.overFirst)
        traceAt(channel, 0).number = traceNumber(module, ++state.written);

    const Channel* source = state.inputs.empty() ? nullptr : &channelStates[state.inputs.front()];
    const bool copy = writing.passOn && source != nullptr && !source->traces.empty();
    for (int i = 0; i < writing.traces; ++i) {
        append(channel, {0, 0});
        if (copy)
            allTraces[channel.traces.back()] = allTraces[source->traces.front()];
        else
            allTraces[channel.traces.back()].number = traceNumber(module, ++state.written);
    }
    if (writing.flag != unchanged)
        setFlag(channel, writing.flag);
}

// ---- the end

void Simulation::postProcess()
{
    sendStatistic(3);
    for (int module : order) {
        events.push_back(callText("postprocess", job.modules[module].name, {}));
        sendStatistic(3);
    }
}

void Simulation::sendStatistic(int phase)
{
    std::vector<StatisticRow> rows;
    StatisticRow total{"Job total", 0, 0};
    for (int module : order) {
        const State& state = states[module];
        rows.push_back({job.modules[module].name, state.tracesIn, state.tracesOut});
        if (!reads(module))
            total.tracesOut += state.tracesOut;
        if (!feeds(module))
            total.tracesIn += state.tracesIn;
    }
    total.tracesIn = total.tracesIn > 0 ? total.tracesIn : -1;
    total.tracesOut = total.tracesOut > 0 ? total.tracesOut : -1;
    rows.push_back(total);
    events.push_back(statisticText(phase, rows));
}

} // namespace scheduler_model
