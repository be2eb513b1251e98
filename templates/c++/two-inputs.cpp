// my_module: subtracts the traces of its second input from those of the first.
#include "my_module_parameters.hpp"
#include "vorn_stream.hpp"

namespace {

using vorn_kit::Stream;

struct State
{
    my_module_parameters::Parameters set;
};

// Before the first trace. Any function may throw an exception whose text is for the user.
std::unique_ptr<State> prepare(Stream&)
{
    // Inputs are taken in step, one trace of each; match() would match them by header words.
    vorn_kit::requiredInput(1);
    vorn_kit::buildRequiredOutput(0, vorn_kit::requiredInput(0));
    return std::make_unique<State>(State{my_module_parameters::readParameters()});
}

// For each pair of traces. An input that has ended has none.
void onTrace(State& state, Stream& io)
{
    void* second = io.trace(1);
    if (io.trace(0) == nullptr || second == nullptr)
        vorn_kit::fail("one input has more traces than the other");
    void* trace = io.emitTrace(io.trace(0));
    float* samples = vorn_required_samples(trace, 0);
    const float* subtracted = vorn_required_samples(second, 0);
    if (samples == nullptr || subtracted == nullptr)
        throw vorn_kit::Failed();
    for (int i = 0; i < knl_getTraceLength(trace) && i < knl_getTraceLength(second); ++i)
        samples[i] -= static_cast<float>(state.set.scale) * subtracted[i];
}

void onEnd(State&, Stream&) {}

// When all modules have ended.
void finish(State&) {}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
