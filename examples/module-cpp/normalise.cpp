// normalise: brings all traces to one level.
#include "normalise_parameters.hpp" // made from normalise.yaml
#include "vorn_kit.hpp"

#include <algorithm>
#include <cmath>
#include <memory>

namespace {

using normalise_parameters::Measure;
using normalise_parameters::Parameters;

// What the module keeps from one call to the next. A job may use this library for several modules:
// each has a state of its own.
struct State
{
    Parameters set;
};

// ---- The arithmetic, which knows nothing of the kernel ----

double levelOf(Measure measure, const float* samples, int count)
{
    double greatest = 0;
    double squares = 0;
    for (int i = 0; i < count; ++i) {
        greatest = std::max(greatest, std::abs(static_cast<double>(samples[i])));
        squares += static_cast<double>(samples[i]) * samples[i];
    }
    if (measure == Measure::max)
        return greatest;
    return count > 0 ? std::sqrt(squares / count) : 0;
}

// ---- What the entry points do ----

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    // The modules before this one have described their outputs by now.
    vorn_kit::buildRequiredOutput(0, in);
    auto state = std::make_unique<State>();
    state->set = normalise_parameters::readParameters();
    return state;
}

// One trace in, one trace out.
void process(State& state)
{
    void* out = vorn_output(0);
    // Header, samples, and the flag that says whether this is the last trace.
    const int number = vorn_pass_trace(vorn_input(0), out);
    float* samples = nullptr;
    if (knl_getTraceSamples(out, &samples, number) == 0)
        return;
    const int count = knl_getTraceLength(out);
    const double level = levelOf(state.set.measure, samples, count);
    if (level > 0)
        std::transform(samples, samples + count, samples, [&](float sample) {
            return static_cast<float>(sample * (state.set.level / level));
        });
}

void finish(State&) {}

} // namespace

VORN_MODULE(prepare, process, finish);
