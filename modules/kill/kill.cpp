// kill: sets chosen traces to zero.
#include "MOXKernel.h"
#include "kill_parameters.hpp"
#include "vorn_parts.hpp"
#include "words/TraceChoice.h"

#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>

namespace {

using vorn_kit::message;

struct State
{
    State(const words::ChoiceRules& rules, void* in) : choice(rules, in) {}

    words::TraceChoice choice;
    std::int64_t traces = 0;
    std::int64_t killed = 0;
    std::int64_t before = vorn_part_first(); // traces of the job before those of this process
};

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    vorn_kit::buildRequiredOutput(0, in);
    const words::ChoiceRules rules = words::choiceRules(kill_parameters::readParameters());
    auto state = std::make_unique<State>(rules, in);
    vorn_kit::addHistory("kill" + rules.text());
    return state;
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    const bool isChosen = state.choice.isChosen(in, state.before + ++state.traces);
    const int number = vorn_pass_trace(in, out);
    if (!isChosen)
        return;
    ++state.killed;
    const int length = getTraceLength(out);
    float* samples = length > 0 ? getTraceSamples(out, number) : nullptr;
    if (samples != nullptr)
        std::fill(samples, samples + length, 0.0F);
}

void finish(State& state)
{
    const std::string all = std::to_string(state.traces);
    if (state.traces == 0)
        return;
    if (state.killed == 0)
        message(VORN_WARNING, "none of " + all + " traces was chosen; none was set to zero");
    else if (state.killed == state.traces)
        message(VORN_WARNING, "all " + all + " traces were chosen and set to zero");
    else
        message(VORN_INFORMATION,
                std::to_string(state.killed) + " of " + all + " traces were set to zero");
    if (const std::string warning = state.choice.warning(); !warning.empty())
        message(VORN_WARNING, warning);
}

void save(State& state, vorn_kit::StateWriter& file)
{
    file(state.traces, state.killed);
    state.choice.save(file);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    state.traces += file.get<std::int64_t>();
    state.killed += file.get<std::int64_t>();
    state.choice.merge(file);
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
