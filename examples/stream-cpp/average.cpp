// average: averages traces of several inputs that have the same key.
#include "average_parameters.hpp"
#include "vorn_stream.hpp"

namespace {

using vorn_kit::Stream;

struct State
{
};

std::unique_ptr<State> prepare(Stream& io)
{
    vorn_kit::buildRequiredOutput(0, vorn_kit::requiredInput());
    io.match({average_parameters::readParameters().key});
    return std::make_unique<State>();
}

// `sum += trace`
void add(void* trace, void* sum)
{
    float* from = nullptr;
    float* to = nullptr;
    if (knl_getTraceSamples(trace, &from, 0) == 0 || knl_getTraceSamples(sum, &to, 0) == 0)
        return;
    for (int i = 0; i < knl_getTraceLength(sum) && i < knl_getTraceLength(trace); ++i)
        to[i] += from[i];
}

void scale(void* trace, float factor)
{
    float* samples = nullptr;
    if (knl_getTraceSamples(trace, &samples, 0) == 0)
        return;
    for (int i = 0; i < knl_getTraceLength(trace); ++i)
        samples[i] *= factor;
}

// For each key: the traces that have it.
void onTrace(State&, Stream& io)
{
    void* sum = nullptr;
    int traces = 0;
    for (int input = 0; input < io.inputs(); ++input) {
        void* trace = io.trace(input);
        if (trace == nullptr)
            continue;
        if (traces++ == 0)
            sum = io.emitTrace(trace);
        else
            add(trace, sum);
    }
    if (traces > 1)
        scale(sum, 1.0F / static_cast<float>(traces));
}

void onEnd(State&, Stream&) {}

void finish(State&) {}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
