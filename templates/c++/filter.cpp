// my_module: multiplies the samples of every trace by a factor.
#include "my_module_parameters.hpp"
#include "vorn_stream.hpp"

namespace {

using vorn_kit::Stream;

// What the module keeps from one call to the next: never in global variables, since a job may use
// this library for several modules.
struct State
{
    my_module_parameters::Parameters set;
};

// Before the first trace. Any function may throw an exception whose text is for the user.
std::unique_ptr<State> prepare(Stream&)
{
    vorn_kit::buildRequiredOutput(0, vorn_kit::requiredInput());
    return std::make_unique<State>(State{my_module_parameters::readParameters()});
}

// For each trace: it goes out as it is, with its header, and is changed there.
void onTrace(State& state, Stream& io)
{
    void* trace = io.emitTrace(io.trace());
    float* samples = vorn_required_samples(trace, 0);
    if (samples == nullptr)
        throw vorn_kit::Failed();
    for (int i = 0; i < knl_getTraceLength(trace); ++i)
        samples[i] *= static_cast<float>(state.set.factor);
}

// After the last trace: what is left would be emitted here.
void onEnd(State&, Stream&) {}

// When all modules have ended.
void finish(State&) {}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
