#include "SchedulerModel.h"

#include <algorithm>
#include <random>
#include <sstream>

namespace scheduler_model {

namespace {

constexpr int endOfData = 3;
constexpr int keepBit = 1;

bool contains(const std::vector<int>& list, int item)
{
    return std::find(list.begin(), list.end(), item) != list.end();
}

} // namespace

std::string callText(const std::string& entryPoint, const std::string& module,
                     const std::vector<InputView>& inputs)
{
    std::ostringstream text;
    text << entryPoint << " " << module;
    for (const InputView& input : inputs) {
        text << " [" << input.pending << " of " << input.held;
        if (input.held > 0)
            text << " first " << input.first;
        text << "]";
    }
    return text.str();
}

std::string statisticText(int phase, const std::vector<StatisticRow>& rows)
{
    std::ostringstream text;
    text << "statistic " << phase << ":";
    for (const StatisticRow& row : rows)
        text << " " << row.module << " " << row.tracesIn << "/" << row.tracesOut;
    return text.str();
}

std::string channelText(const std::vector<TraceView>& traces, int ownFlag, int bits,
                        const std::vector<int>& pending)
{
    std::ostringstream text;
    text << "flag " << ownFlag << " bits " << bits << " traces";
    for (const TraceView& trace : traces)
        text << " " << trace.number << ":" << trace.flag;
    text << " pending";
    for (int count : pending)
        text << " " << count;
    return text.str();
}

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

// ---- jobs

int traceNumber(int module, int count)
{
    return (module + 1) * 100000 + count;
}

const Step& Module::stepOfCall(int callNo) const
{
    std::size_t i = 0;
    for (int calls = process[0].times; calls <= callNo && i + 1 < process.size();)
        calls += process[++i].times;
    return process[i];
}

namespace {

// Numbers that are the same everywhere, unlike those of the library's distributions.
class Dice
{
public:
    explicit Dice(unsigned seed) : engine(seed) {}
    int below(int n) { return static_cast<int>(engine() % static_cast<unsigned>(n)); }
    bool percent(int chance) { return below(100) < chance; }
    int oneOf(std::initializer_list<int> values)
    {
        return *(values.begin() + below(static_cast<int>(values.size())));
    }

private:
    std::mt19937 engine;
};

class JobMaker
{
public:
    explicit JobMaker(unsigned seed) : dice(seed) {}

    Job make()
    {
        const int count = 1 + dice.below(8);
        for (int i = 0; i < count; ++i) {
            job.modules.push_back({});
            job.modules.back().name = std::string(1, static_cast<char>('A' + i));
            ranks.push_back(i);
        }
        for (int i = count - 1; i > 0; --i)
            std::swap(ranks[i], ranks[dice.below(i + 1)]);
        wire();
        for (int i = 0; i < count; ++i)
            fill(i);
        return job;
    }

private:
    Dice dice;
    Job job;
    std::vector<int> ranks; // modules; traces flow from earlier to later ones

    // Every module but the first in rank gets a channel to read, nearly always; some more join any.
    void wire()
    {
        const int count = static_cast<int>(ranks.size());
        for (int rank = 1; rank < count; ++rank) {
            if (dice.percent(90))
                addChannel(rank);
        }
        for (int more = dice.below(4); more > 0; --more)
            addChannel(dice.below(count + 1));
        for (std::size_t i = job.wiring.size(); i > 1; --i)
            std::swap(job.wiring[i - 1], job.wiring[dice.below(static_cast<int>(i))]);
    }

    // A channel that modules below `cut` write and the others read.
    void addChannel(int cut)
    {
        const int count = static_cast<int>(ranks.size());
        const int channel = job.channels++;
        if (cut > 0) {
            for (int i = dice.oneOf({0, 1, 1, 1, 1, 1, 1, 2, 2, 3}); i > 0; --i)
                attach(Wiring::output, ranks[dice.below(cut)], channel);
        }
        if (cut < count) {
            if (dice.percent(95))
                attach(Wiring::input, ranks[cut], channel);
            for (int i = dice.oneOf({0, 0, 0, 0, 1, 1, 2}); i > 0; --i)
                attach(Wiring::input, ranks[cut + dice.below(count - cut)], channel);
        }
        if (dice.percent(5))
            job.wiring.push_back({Wiring::trace, 0, channel});
    }

    // Seldom twice: such jobs hardly ever end.
    void attach(Wiring::Kind kind, int module, int channel)
    {
        const bool attached =
            std::any_of(job.wiring.begin(), job.wiring.end(), [=](const Wiring& wire) {
                return wire.kind == kind && wire.module == module && wire.channel == channel;
            });
        if (!attached || dice.percent(15))
            job.wiring.push_back({kind, module, channel});
    }

    int attachments(int module, Wiring::Kind kind) const
    {
        return static_cast<int>(
            std::count_if(job.wiring.begin(), job.wiring.end(), [=](const Wiring& wire) {
                return wire.kind == kind && wire.module == module;
            }));
    }

    void fill(int number)
    {
        Module& module = job.modules[number];
        const int inputs = attachments(number, Wiring::input);
        const int outputs = attachments(number, Wiring::output);
        module.respectEod = dice.percent(outputs > 0 ? 10 : 2);
        module.readsBlindly = dice.percent(15);
        if (dice.percent(5))
            module.preProcess = step(0, outputs);

        for (int steps = 1 + dice.below(5); steps > 0; --steps)
            module.process.push_back(step(inputs, outputs));
        if (inputs == 0 && dice.percent(3)) {
            module.process.front().times = 1100; // statistics are due meanwhile
            job.isLong = true;
        }
        if (inputs == 0 || module.respectEod) {
            Step last = step(inputs, outputs);
            for (Writing& writing : last.outputs) {
                if (dice.percent(90))
                    writing.flag = endOfData;
                if (dice.percent(85))
                    writing.traces = 0;
            }
            module.process.push_back(last);
        }
    }

    Step step(int inputs, int outputs)
    {
        Step made;
        made.times = 1 + dice.below(3);
        for (int i = 0; i < inputs; ++i)
            made.inputBits.push_back(dice.percent(8) ? dice.oneOf({1, 1, 1, 2, 3}) : 0);
        const bool passOn = dice.percent(50);
        for (int i = 0; i < outputs; ++i) {
            Writing writing;
            writing.traces = dice.oneOf({0, 1, 1, 1, 1, 2, 3});
            writing.overFirst = dice.percent(10);
            writing.passOn = passOn;
            if (dice.percent(5))
                writing.flag = dice.oneOf({0, 2, endOfData});
            made.outputs.push_back(writing);
        }
        if (dice.percent(3))
            made.respectEod = dice.oneOf({0, 0, 1});
        return made;
    }
};

void describe(std::ostream& text, const Step& step)
{
    text << "    " << step.times << " times:";
    for (int bits : step.inputBits)
        text << " bits " << bits;
    for (const Writing& writing : step.outputs) {
        text << " write " << writing.traces << (writing.passOn ? " passed on" : "")
             << (writing.overFirst ? " and over the first" : "");
        if (writing.flag != unchanged)
            text << " flag " << writing.flag;
    }
    if (step.respectEod != unchanged)
        text << " RespectEOD " << step.respectEod;
    text << "\n";
}

} // namespace

Job randomJob(unsigned seed)
{
    return JobMaker(seed).make();
}

std::string describe(const Job& job)
{
    std::ostringstream text;
    for (const Wiring& wire : job.wiring) {
        const std::string channel = "channel " + std::to_string(wire.channel);
        const std::string& module = job.modules[wire.module].name;
        if (wire.kind == Wiring::trace)
            text << "a trace into " << channel << "\n";
        else if (wire.kind == Wiring::output)
            text << module << " -> " << channel << "\n";
        else
            text << channel << " -> " << module << "\n";
    }
    for (const Module& module : job.modules) {
        text << module.name << (module.respectEod ? " RespectEOD" : "")
             << (module.readsBlindly ? " reads blindly" : "") << "\n  preprocess\n";
        describe(text, module.preProcess);
        text << "  process\n";
        for (const Step& step : module.process)
            describe(text, step);
    }
    return text.str();
}

} // namespace scheduler_model
