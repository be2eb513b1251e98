// The same as parts_c.c, by the stream form in C++, which gives the traces at the end.
#include "parts_stream_cxx_parameters.hpp"
#include "vorn_parts.hpp"

#include <array>
#include <cstdio>
#include <memory>

namespace {

using namespace parts_stream_cxx_parameters;
using vorn_kit::Stream;

struct State
{
    Parameters set;
    void* queue = nullptr;
    std::int64_t traces = 0;
    double sum = 0;
    bool hasWarned = false;
    std::string names;
};

std::unique_ptr<State> prepare(Stream& io)
{
    void* in = vorn_kit::requiredInput();
    vorn_build_output(0, in);
    auto state = std::make_unique<State>();
    state->set = readParameters();
    state->queue = io.buildQueue(in);
    return state;
}

void onTrace(State& state, Stream& io)
{
    int number = 0;
    knl_getI32TraceAttribute(io.trace(), "tracf", &number);
    ++state.traces;
    state.sum += number;
    state.names += " " + std::to_string(number);
    if (number > 2 && !state.hasWarned) {
        state.hasWarned = true;
        vorn_kit::messageOnce(VORN_WARNING, "above",
                              "trace " + std::to_string(vorn_part_first() + state.traces) +
                                  " is above 2");
    }
    vorn_kit::message(VORN_DETAIL, std::to_string(number));
    io.queueTrace(state.queue, io.trace());
    if (state.set.fails == Fails::process)
        vorn_kit::fail("told to fail in process");
}

void onEnd(State& state, Stream& io)
{
    const int queued = knl_getNumberOfTraces(state.queue);
    for (int i = 0; i < queued; ++i)
        io.emitTrace(state.queue, 0, i);
}

void finish(State& state)
{
    std::array<char, 40> sum{};
    std::snprintf(sum.data(), sum.size(), "%g", state.sum);
    vorn_kit::message(VORN_INFORMATION, "traces=" + std::to_string(state.traces) +
                                            " sum=" + sum.data() + " names=" + state.names);
}

void save(State& state, vorn_kit::StateWriter& file)
{
    if (state.set.fails == Fails::save)
        vorn_kit::fail("told to fail in save");
    if (state.set.saves == Saves::other)
        file(state.sum);
    file(state.traces);
    if (state.set.saves != Saves::less)
        file(state.sum);
    file(state.names);
    if (state.set.saves == Saves::more)
        file(state.traces);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    if (state.set.fails == Fails::merge)
        vorn_kit::fail("told to fail in merge");
    state.traces += file.get<std::int64_t>();
    state.sum += file.get<double>();
    state.names += file.get<std::string>();
}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
VORN_STREAM_MODULE_IN_PARTS(save, merge);
