// my_module: makes traces, each with a spike in the middle.
#include "my_module_parameters.hpp"
#include "vorn_stream.hpp"

#include <cmath>

namespace {

using vorn_kit::Stream;

struct State
{
    my_module_parameters::Parameters set;
    int made = 0; // traces
};

// Before the first trace. Any function may throw an exception whose text is for the user.
std::unique_ptr<State> prepare(Stream&)
{
    void* out = vorn_output(0);
    if (out == nullptr)
        vorn_kit::fail("the module has no output; connect one");
    auto state = std::make_unique<State>(State{my_module_parameters::readParameters()});
    const int microseconds = static_cast<int>(std::lround(state->set.interval * 1e6));
    knl_bldOutputTraceBuffer(0, state->set.samples, microseconds, nullptr);
    // Header words that the traces have: of the type that the job's schema gives them.
    knl_defineTraceAttribute(out, "tracl");
    knl_defineTraceAttribute(out, "fldr");
    knl_informTotalTracesNumber(out, state->set.traces); // for the progress
    return state;
}

// A module without inputs is called until it has stopped.
void onTrace(State& state, Stream& io)
{
    void* trace = io.emit();
    float* samples = vorn_required_samples(trace, 0);
    if (samples == nullptr)
        throw vorn_kit::Failed();
    ++state.made;
    samples[state.set.samples / 2] = static_cast<float>(state.made);
    knl_setI32TraceAttribute(trace, "tracl", state.made);
    knl_setI32TraceAttribute(trace, "fldr", 1);
    if (state.made == state.set.traces)
        io.stop();
}

void onEnd(State&, Stream&) {}

// When all modules have ended.
void finish(State&) {}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
