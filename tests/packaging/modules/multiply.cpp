// Multiplies every sample by a parameter, with the kit.
#include "only_parameters.hpp"
#include "vorn_kit.hpp"

#include <memory>

namespace {

using only_parameters::Mode;
using only_parameters::Parameters;

std::unique_ptr<Parameters> prepare()
{
    vorn_kit::buildRequiredOutput(0, vorn_kit::requiredInput());
    return std::make_unique<Parameters>(only_parameters::readParameters());
}

void process(Parameters& set)
{
    void* out = vorn_output(0);
    const int number = vorn_pass_trace(vorn_input(0), out);
    float* samples = nullptr;
    knl_getTraceSamples(out, &samples, number);
    for (int i = 0; i < knl_getTraceLength(out); ++i)
        samples[i] *= static_cast<float>(set.mode == Mode::negative ? -set.factor : set.factor);
}

void finish(Parameters&) {}

} // namespace

VORN_MODULE(prepare, process, finish);
