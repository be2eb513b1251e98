// resample: computes traces at another sample interval, with an anti-alias filter.
#include "MOXKernel.h"
#include "Resampler.h"
#include "resample_parameters.hpp"
#include "sampling/SampleCounts.h"
#include "sampling/TraceTimes.h"
#include "vorn_parts.hpp"
#include "words/TraceWords.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace {

using resample_parameters::Parameters;
using vorn_kit::fail;
using vorn_kit::message;
using words::numberText;

struct State
{
    State(void* out, int samples, int interval) : times(out, samples, interval) {}

    std::optional<Resampler> resampler; // none where the interval stays
    sampling::FiniteSamples finite;
    sampling::TraceTimes times;
};

int microseconds(double seconds)
{
    const double exact = seconds * 1e6;
    const double whole = std::round(exact);
    if (whole < 1 || std::fabs(exact - whole) > 1e-6 * std::max(exact, 1.0))
        fail("interval is " + numberText(seconds) +
             " s; give a whole number of microseconds, with the unit (500 us)");
    return static_cast<int>(whole);
}

void tell(const State& state, int from, int to, int samples)
{
    if (!state.resampler) {
        message(VORN_INFORMATION, "the sample interval is " + numberText(to * 1e-3) +
                                      " ms already; the traces stay as they are");
        return;
    }
    const Resampler& made = *state.resampler;
    message(VORN_INFORMATION,
            "from " + numberText(from * 1e-3) + " ms to " + numberText(to * 1e-3) +
                " ms: frequencies up to " + numberText(made.passEnd()) + " Hz pass, those from " +
                numberText(made.stopBegin()) + " Hz on are removed; the filter has " +
                std::to_string(2 * made.halfLength()) + " samples of the input");
    if (2 * made.halfLength() > samples)
        message(VORN_WARNING,
                "the filter has " + std::to_string(2 * made.halfLength()) +
                    " samples, more than the traces, which have " + std::to_string(samples) +
                    ": their ends reach everywhere; give a shorter interval, with its unit (4 ms), "
                    "or a lower pass");
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    const Parameters set = resample_parameters::readParameters();
    const int to = microseconds(set.interval);
    const int from = getTraceSampleInterval(in);
    const int samples = getTraceLength(in);
    if (from <= 0) {
        vorn_fail_without_interval();
        throw vorn_kit::Failed();
    }
    const std::int64_t length = Resampler::samplesFor(from, to, samples);
    if (length > sampling::mostSamples)
        fail("interval is " + numberText(set.interval) + " s, which makes " +
             std::to_string(length) + " samples of " + std::to_string(samples) +
             ", and traces have at most " + std::to_string(sampling::mostSamples) +
             "; give a longer one");
    vorn_kit::allowMemory(set.memory_limit, 8 * std::int64_t{samples} + 4 * length,
                          "resampling " + std::to_string(samples) + " samples to " +
                              std::to_string(length),
                          "choose a longer interval");
    void* out = bldOutputTraceBuffer(0, static_cast<int>(length), to, in);
    if (out == nullptr)
        out = vorn_kit::buildRequiredOutput(0, in); // says so
    auto state = std::make_unique<State>(out, static_cast<int>(length), to);
    if (from != to)
        state->resampler.emplace(from, to, set.pass / 100, set.attenuation, samples);
    tell(*state, from, to, samples);
    vorn_kit::addHistory("resample interval=" + numberText(to * 1e-3) + " ms from=" +
                         numberText(from * 1e-3) + " ms pass=" + numberText(set.pass) +
                         " percent attenuation=" + numberText(set.attenuation) + " dB");
    return state;
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    const int number = getNumberOfTraces(out);
    const int length = getTraceLength(in);
    copyTraceToTrace(in, out, 1, state.resampler ? 0 : 1, 0, number);
    state.times.write(out, number, sampling::delayOf(in));
    if (!state.resampler || length < 1)
        return;
    const float* samples = getTraceSamples(in, 0);
    float* resampled = getTraceSamples(out, number);
    if (samples != nullptr && resampled != nullptr)
        state.resampler->apply(state.finite.of(samples, length), resampled);
}

void finish(State& state)
{
    const std::string warning = state.finite.warning();
    if (!warning.empty())
        message(VORN_WARNING, warning);
}

void save(State& state, vorn_kit::StateWriter& file)
{
    state.finite.save(file);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    state.finite.merge(file);
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
