#include "run/RecordWatch.h"

#include "ModuleEntity.h"
#include "SeisTrace.h"
#include "base/Numbers.h"
#include "base/Text.h"

#include <algorithm>
#include <fmt/format.h>
#include <utility>

namespace host {

namespace {

// A stage that has given so many traces of zeros has most probably a wrong setting: the user need
// not wait for the end of a long job.
constexpr int64_t manyTraces = 1000;

// Numbers of a message, of longer lists the first and the last.
std::string listed(const std::vector<double>& numbers)
{
    std::vector<std::string> texts;
    texts.reserve(numbers.size());
    for (const double number : numbers)
        texts.push_back(formatNumber(number));
    if (texts.size() > 4)
        texts = {texts[0], texts[1], "...", texts.back()};
    return joined(texts, ", ");
}

std::vector<double> numbersOf(const ResolvedParameter& parameter)
{
    std::vector<double> numbers;
    for (const std::string& text :
         parameter.value.items.value_or(std::vector<std::string>{parameter.value.text}))
        numbers.push_back(parseNumber(text).value_or(0));
    return numbers;
}

std::string withUnit(const ResolvedParameter& parameter)
{
    return listed(numbersOf(parameter)) + (parameter.unit.empty() ? "" : " " + parameter.unit);
}

bool hasSignal(const SeisTrace& trace)
{
    const float* samples = trace.getSamples();
    return std::any_of(samples, samples + trace.traceLength,
                       [](float sample) { return sample != 0.0F; });
}

} // namespace

RecordWatch::RecordWatch(const ResolvedJob& resolved, const std::vector<ModuleEntity*>& entities,
                         const BuiltJob& wiring, Warn tell)
    : job(resolved), warn(std::move(tell)), outputsOf(entities.size()),
      isTold(entities.size(), false)
{
    for (std::size_t i = 0; i < entities.size(); ++i)
        placeOf.emplace(entities[i], i);
    for (const BuiltChannel& built : wiring.channels) {
        const auto module = static_cast<std::size_t>(built.module);
        outputsOf[module].push_back(outputs.size());
        outputs.push_back({module, built.port, built.channel});
    }
    open = outputs.size();
}

void RecordWatch::look(const ModuleEntity& module)
{
    const auto known = placeOf.find(&module);
    if (known == placeOf.end())
        return; // one that the command has added
    for (const std::size_t output : outputsOf[known->second]) {
        if (!outputs[output].hasSignal)
            examine(outputs[output]);
    }
}

// Traces that came with this call stand at the end of the channel, unless they have been taken.
void RecordWatch::examine(Output& output)
{
    const CountingChannel& channel = *output.channel;
    const int64_t fresh = channel.arrived() - output.examined;
    const auto waiting = static_cast<int64_t>(channel.traces.size());
    output.isPartial = output.isPartial || fresh > waiting;
    output.examined = channel.arrived();
    for (int64_t i = std::max<int64_t>(0, waiting - fresh); i < waiting; ++i) {
        const SeisTrace* trace = channel.traces[static_cast<std::size_t>(i)];
        if (trace == nullptr || trace->getSamples() == nullptr) {
            output.isPartial = true;
            continue;
        }
        if (!output.hasRecord) {
            output.hasRecord = true;
            checkTimes(output, *trace);
        }
        if (hasSignal(*trace)) {
            output.hasSignal = true;
            --open;
            return;
        }
    }
    if (output.examined >= manyTraces && !isTold[output.module] && inputHasSignal(output.module))
        warnOfZeros(output.module, false);
}

// ---- Times ----

// The record of the first trace stands for all: modules that are given a time get it for all.
void RecordWatch::checkTimes(const Output& output, const SeisTrace& trace)
{
    const auto delay = output.channel->attrDefs.find("delrt");
    const double begin = delay == output.channel->attrDefs.end()
                             ? 0
                             : trace.getAttribute(delay->second).getI32Value() * 1e-3;
    for (std::size_t i = 0; i < job.modules.size(); ++i) {
        const std::vector<ResolvedInput>& inputs = job.modules[i].inputs;
        const bool isReader = !inputs.empty() &&
                              static_cast<std::size_t>(inputs.front().module) == output.module &&
                              inputs.front().port == output.port;
        const bool isSource = i == output.module && inputs.empty();
        if (!isReader && !isSource)
            continue;
        for (const ResolvedParameter& parameter : job.modules[i].parameters) {
            if (parameter.given)
                checkParameter(i, parameter, begin, output);
        }
    }
}

void RecordWatch::checkParameter(std::size_t module, const ResolvedParameter& parameter,
                                 double begin, const Output& output)
{
    const ManifestPointer& manifest = job.modules[module].manifest;
    const ParameterSpec* spec = manifest == nullptr ? nullptr : manifest->find(parameter.name);
    const bool isTime = spec != nullptr && spec->meaning == ParameterMeaning::time;
    const bool isSpan = spec != nullptr && spec->meaning == ParameterMeaning::span;
    const int samples = output.channel->getTraceLength();
    const int micros = output.channel->getTraceSampleInterval();
    if ((!isTime && !isSpan) || samples < 1 || micros <= 0)
        return;
    const std::vector<double> numbers = numbersOf(parameter);
    const double length = (samples - 1.0) * micros * 1e-6;
    const double limit = (isTime ? begin + length : samples * micros * 1e-6) * (1 + 1e-9);
    if (numbers.empty() ||
        std::any_of(numbers.begin(), numbers.end(), [&](double number) { return number <= limit; }))
        return;
    const std::string record =
        fmt::format("{} of {} ms", counted(samples, "sample"), formatNumber(micros * 1e-3));
    const std::string unit =
        parameter.isUnitAssumed
            ? fmt::format("; a number without a unit is in {}: give the unit, as in 100 ms",
                          parameter.unit)
            : "";
    warn(module, parameter.place,
         isTime ? fmt::format("{} is {}, and the traces end at {} s ({} from {} s on){}",
                              parameter.name, withUnit(parameter), formatNumber(begin + length),
                              record, formatNumber(begin), unit)
                : fmt::format("{} is {}, longer than the traces, which have {} s ({}){}",
                              parameter.name, withUnit(parameter),
                              formatNumber(samples * micros * 1e-6), record, unit));
}

// ---- Zeros ----

bool RecordWatch::inputHasSignal(std::size_t module) const
{
    const std::vector<ResolvedInput>& inputs = job.modules[module].inputs;
    return std::any_of(inputs.begin(), inputs.end(), [&](const ResolvedInput& input) {
        return std::any_of(outputs.begin(), outputs.end(), [&](const Output& output) {
            return output.hasSignal && output.port == input.port &&
                   output.module == static_cast<std::size_t>(input.module);
        });
    });
}

// The settings with a unit, which are those that a wrong unit spoils.
std::string RecordWatch::settingsOf(std::size_t module) const
{
    std::vector<std::string> settings;
    for (const ResolvedParameter& parameter : job.modules[module].parameters) {
        if (parameter.given && !parameter.unit.empty() && parameter.unit != "MB")
            settings.push_back(parameter.name + " " + withUnit(parameter));
    }
    return settings.empty() ? "" : "; its settings are " + joined(settings, ", ");
}

void RecordWatch::warnOfZeros(std::size_t module, bool atEnd)
{
    isTold[module] = true;
    int64_t traces = 0;
    for (const std::size_t output : outputsOf[module])
        traces += outputs[output].examined;
    warn(module, {},
         fmt::format("all samples of its output are zero ({}{}), and those of its input are "
                     "not{}",
                     counted(traces, "trace"), atEnd ? "" : " so far", settingsOf(module)));
}

void RecordWatch::finish()
{
    for (std::size_t i = 0; i < outputsOf.size(); ++i) {
        const std::vector<std::size_t>& own = outputsOf[i];
        const bool areZeros =
            !own.empty() && std::all_of(own.begin(), own.end(), [this](std::size_t number) {
                const Output& output = outputs[number];
                return output.examined > 0 && !output.hasSignal && !output.isPartial;
            });
        if (areZeros && !isTold[i] && inputHasSignal(i))
            warnOfZeros(i, true);
    }
}

} // namespace host
