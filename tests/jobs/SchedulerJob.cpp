#include "SchedulerJob.h"

#include <algorithm>
#include <initializer_list>
#include <random>
#include <sstream>

namespace scheduler_model {

namespace {

constexpr int endOfData = 3;

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
