// my_module: counts traces and finds the largest sample.
#include "my_module_parameters.hpp"
#include "vorn_stream.hpp"

#include <algorithm>
#include <cmath>

namespace {

using vorn_kit::Stream;

struct State
{
    my_module_parameters::Parameters set;
    long long traces = 0;
    float largest = 0;
};

// Before the first trace. Any function may throw an exception whose text is for the user.
std::unique_ptr<State> prepare(Stream&)
{
    vorn_kit::requiredInput();
    return std::make_unique<State>(State{my_module_parameters::readParameters()});
}

// For each trace.
void onTrace(State& state, Stream& io)
{
    const float* samples = vorn_required_samples(io.trace(), 0);
    if (samples == nullptr)
        throw vorn_kit::Failed();
    ++state.traces;
    for (int i = 0; i < knl_getTraceLength(io.trace()); ++i)
        state.largest = std::max(state.largest, std::fabs(samples[i]));
}

// After the last trace; also when there was none.
void onEnd(State& state, Stream&)
{
    vorn_message(VORN_INFORMATION, "%lld traces, largest sample %g", state.traces,
                 static_cast<double>(state.largest));
    if (state.largest > state.set.limit)
        vorn_message(VORN_WARNING, "the largest sample is above the limit of %g", state.set.limit);
}

// When all modules have ended.
void finish(State&) {}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
