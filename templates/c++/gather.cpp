// my_module: subtracts the mean trace of each gather from its traces.
#include "my_module_parameters.hpp"
#include "vorn_stream.hpp"

#include <algorithm>
#include <vector>

namespace {

using vorn_kit::Stream;

struct State
{
    my_module_parameters::Parameters set;
    void* gather = nullptr;  // a queue: the traces of the current gather, which the kernel pages
    int key = 0;             // its value of the key word
    std::vector<float> mean; // of the gather
};

// Before the first trace. Any function may throw an exception whose text is for the user.
std::unique_ptr<State> prepare(Stream& io)
{
    void* in = vorn_kit::requiredInput();
    vorn_kit::buildRequiredOutput(0, in);
    auto state = std::make_unique<State>();
    state->set = my_module_parameters::readParameters();
    state->gather = io.buildQueue(vorn_output(0));
    state->mean.resize(static_cast<std::size_t>(knl_getTraceLength(in)));
    return state;
}

float* samplesOf(void* traces, int number)
{
    float* samples = vorn_required_samples(traces, number);
    if (samples == nullptr)
        throw vorn_kit::Failed();
    return samples;
}

// The gather is complete: its traces leave.
void emitGather(State& state, Stream& io)
{
    const int traces = knl_getNumberOfTraces(state.gather);
    std::fill(state.mean.begin(), state.mean.end(), 0.0F);
    for (int i = 0; i < traces; ++i) {
        const float* samples = samplesOf(state.gather, i);
        for (std::size_t k = 0; k < state.mean.size(); ++k)
            state.mean[k] += samples[k] / static_cast<float>(traces);
    }
    for (int i = 0; i < traces; ++i) {
        float* samples = samplesOf(io.emitTrace(state.gather, 0, i), 0);
        for (std::size_t k = 0; k < state.mean.size(); ++k)
            samples[k] -= state.mean[k];
    }
    vorn_clear_queue(state.gather);
}

// For each trace: the gather ends where the key word changes.
void onTrace(State& state, Stream& io)
{
    int key = 0;
    if (knl_getI32TraceAttribute(io.trace(), state.set.key.c_str(), &key) == 0)
        vorn_kit::fail("the traces have no header word " + state.set.key);
    if (knl_getNumberOfTraces(state.gather) > 0 && key != state.key)
        emitGather(state, io);
    state.key = key;
    io.queueTrace(state.gather, io.trace());
}

// After the last trace; also when there was none.
void onEnd(State& state, Stream& io)
{
    if (knl_getNumberOfTraces(state.gather) > 0)
        emitGather(state, io);
}

// When all modules have ended.
void finish(State&) {}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
