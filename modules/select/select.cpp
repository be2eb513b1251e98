// select: keeps or drops chosen traces.
#include "MOXKernel.h"
#include "select_parameters.hpp"
#include "vorn_parts.hpp"
#include "vorn_stream.hpp"
#include "words/TraceChoice.h"

#include <cstdint>
#include <memory>
#include <string>

namespace {

using select_parameters::Action;
using vorn_kit::message;
using vorn_kit::Stream;

struct State
{
    State(const words::ChoiceRules& rules, void* in, Action given)
        : choice(rules, in), action(given)
    {
    }

    words::TraceChoice choice;
    Action action;
    std::int64_t traces = 0;
    std::int64_t kept = 0;
    std::int64_t before = vorn_part_first(); // traces of the job before those of this process
};

std::unique_ptr<State> prepare(Stream& io)
{
    void* in = vorn_kit::requiredInput();
    vorn_kit::buildRequiredOutput(0, in);
    if (io.outputs() > 1)
        vorn_kit::buildRequiredOutput(1, in);
    const auto set = select_parameters::readParameters();
    const words::ChoiceRules rules = words::choiceRules(set);
    auto state = std::make_unique<State>(rules, in, set.action);
    const std::string match = wordOf(set.match);
    vorn_kit::addHistory(std::string("select action=") + wordOf(set.action) + " match=" + match +
                         rules.text());
    return state;
}

void onTrace(State& state, Stream& io)
{
    const bool isChosen = state.choice.isChosen(io.trace(), state.before + ++state.traces);
    const bool isKept = isChosen == (state.action == Action::keep);
    state.kept += isKept ? 1 : 0;
    if (isKept)
        io.emitTrace(io.trace());
    else if (io.outputs() > 1)
        io.emitTrace(io.trace(), 1);
}

void onEnd(State&, Stream&) {}

void finish(State& state)
{
    if (state.traces == 0)
        return;
    const std::string kept = std::to_string(state.kept) + " of " + std::to_string(state.traces) +
                             " traces were kept, " + std::to_string(state.traces - state.kept) +
                             " dropped";
    if (state.kept == 0)
        message(VORN_WARNING, kept + "; no trace is left for the modules that follow");
    else
        message(VORN_INFORMATION, kept);
    if (const std::string warning = state.choice.warning(); !warning.empty())
        message(VORN_WARNING, warning);
}

void save(State& state, vorn_kit::StateWriter& file)
{
    file(state.traces, state.kept);
    state.choice.save(file);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    state.traces += file.get<std::int64_t>();
    state.kept += file.get<std::int64_t>();
    state.choice.merge(file);
}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
VORN_STREAM_MODULE_IN_PARTS(save, merge);
