// autocorrelation: replaces each trace by its autocorrelation.
#include "Autocorrelator.h"
#include "MOXKernel.h"
#include "autocorrelation_parameters.hpp"
#include "sampling/SampleCounts.h"
#include "sampling/TraceTimes.h"
#include "vorn_parts.hpp"
#include "words/TraceWords.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <string>

namespace {

using autocorrelation_parameters::Normalise;
using autocorrelation_parameters::Parameters;
using sampling::secondsText;
using vorn_kit::fail;
using vorn_kit::message;
using vorn_kit::messageOnce;
using words::numberText;

struct State
{
    State(void* out, const Parameters& given, int inLength, int greatestLag, int spacing)
        : set(given), lags(greatestLag), interval(spacing), correlator(inLength, greatestLag),
          times(out, lengthOf(given, greatestLag), spacing)
    {
    }

    static int lengthOf(const Parameters& set, int lags)
    {
        return set.two_sided ? 2 * lags + 1 : lags + 1;
    }

    Parameters set;
    int lags;     // samples
    int interval; // microseconds
    Autocorrelator correlator;
    sampling::TraceTimes times;
    sampling::FiniteSamples finite;

    std::int64_t traces = 0;
    std::int64_t outside = 0;                // without a sample in the window
    std::int64_t dead = 0;                   // others without energy
    std::int64_t before = vorn_part_first(); // traces of the job before those of this process
};

// ---- Before the first trace ----

void checkWindow(const Parameters& set)
{
    if (set.start && set.end && *set.end <= *set.start)
        fail("start is " + numberText(*set.start) + " s and end is " + numberText(*set.end) +
             " s; end must be after start");
}

// Lags that no window has are zeros, often for lack of a unit.
void warnOfLag(const Parameters& set, double lag, double record)
{
    double window = record;
    if (set.start && set.end)
        window = std::min(window, *set.end - *set.start);
    if (lag > window)
        message(VORN_WARNING, "lag is " + numberText(lag) + " s, and the window has " +
                                  numberText(window) +
                                  " s: greater lags are zeros; give lag with its unit (200 ms)");
}

std::string historyOf(const Parameters& set)
{
    std::string line = "autocorrelation lag=" + numberText(set.lag) + " s";
    if (set.start)
        line += " start=" + numberText(*set.start) + " s";
    if (set.end)
        line += " end=" + numberText(*set.end) + " s";
    return line + " normalise=" + wordOf(set.normalise) + (set.two_sided ? " two_sided=yes" : "");
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    const Parameters set = autocorrelation_parameters::readParameters();
    checkWindow(set);
    const int interval = getTraceSampleInterval(in);
    if (interval <= 0) {
        vorn_fail_without_interval();
        throw vorn_kit::Failed();
    }
    const int length = std::max(getTraceLength(in), 0);
    const auto lags = static_cast<std::int64_t>(std::floor(set.lag * 1e6 / interval + 1e-6));
    if (lags + length > Autocorrelator::mostSamples)
        fail("lag is " + numberText(set.lag) + " s, " + std::to_string(lags) +
             " samples; with the trace, at most " + std::to_string(Autocorrelator::mostSamples) +
             " are possible; give lag with its unit (200 ms)");
    const int samples = State::lengthOf(set, static_cast<int>(lags));
    vorn_kit::allowMemory(set.memory_limit,
                          Autocorrelator::bytesFor(length, static_cast<int>(lags)) +
                              std::int64_t{4} * samples,
                          "autocorrelations of " + std::to_string(length) + " samples with " +
                              std::to_string(lags) + " lags",
                          "choose a shorter lag or shorter traces");
    void* out = bldOutputTraceBuffer(0, samples, interval, in);
    if (out == nullptr)
        out = vorn_kit::buildRequiredOutput(0, in); // says so
    auto state = std::make_unique<State>(out, set, length, static_cast<int>(lags), interval);
    warnOfLag(set, set.lag, (length - 1.0) * interval * 1e-6);
    vorn_kit::addHistory(historyOf(set));
    return state;
}

// ---- For each trace ----

// Samples of a trace, the last one excluded.
struct Window
{
    int from;
    int to;
};

Window windowOf(const State& state, std::int64_t delay, int length)
{
    const auto sampleAt = [&](double seconds) {
        const double sample = (seconds * 1e6 - static_cast<double>(delay)) / state.interval;
        return std::clamp(sample, -1.0, static_cast<double>(length));
    };
    constexpr double slack = 1e-6; // of a sample
    const double first = state.set.start ? std::ceil(sampleAt(*state.set.start) - slack) : 0;
    const double last = state.set.end ? std::floor(sampleAt(*state.set.end) + slack) : length - 1;
    const int from = std::max(static_cast<int>(first), 0);
    return {from, std::clamp(static_cast<int>(last) + 1, from, std::max(length, from))};
}

void tellOutside(State& state, void* in, std::int64_t delay, int length)
{
    if (state.outside++ > 0)
        return;
    const std::int64_t end = delay + std::int64_t{state.interval} * (length - 1);
    messageOnce(VORN_WARNING, "outside",
                words::nameOfTrace(in, state.before + state.traces) + " has samples from " +
                    secondsText(delay) + " to " + secondsText(end) +
                    " s, none of them in the window" +
                    (state.set.start ? " from " + numberText(*state.set.start) + " s" : "") +
                    (state.set.end ? " to " + numberText(*state.set.end) + " s" : "") +
                    ": it becomes zeros; give times with their unit (900 ms)");
}

void write(const State& state, const std::vector<double>& correlation, float* out)
{
    const double level =
        state.set.normalise == Normalise::zero_lag && correlation[0] > 0 ? 1 / correlation[0] : 1;
    const int centre = state.set.two_sided ? state.lags : 0;
    for (int k = 0; k <= state.lags; ++k) {
        const float value = sampling::toSample(correlation[static_cast<std::size_t>(k)] * level);
        out[centre + k] = value;
        if (state.set.two_sided)
            out[centre - k] = value;
    }
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    ++state.traces;
    const int number = getNumberOfTraces(out);
    const int length = std::max(getTraceLength(in), 0);
    const std::int64_t delay = sampling::delayOf(in);
    copyTraceToTrace(in, out, 1, 0, 0, number);
    state.times.write(out, number,
                      state.set.two_sided ? -std::int64_t{state.lags} * state.interval : 0);
    const float* samples = length > 0 ? getTraceSamples(in, 0) : nullptr;
    float* correlated = getTraceSamples(out, number);
    if (correlated == nullptr)
        return;
    Window window = windowOf(state, delay, samples != nullptr ? length : 0);
    if (window.to == window.from)
        tellOutside(state, in, delay, length);
    const int count = window.to - window.from;
    const double* values = state.finite.of(samples + (count > 0 ? window.from : 0), count);
    const std::vector<double>& correlation = state.correlator.of(values, count);
    state.dead += count > 0 && correlation[0] == 0 ? 1 : 0;
    write(state, correlation, correlated);
}

// ---- After the last trace ----

void finish(State& state)
{
    const std::string all = std::to_string(state.traces) + " traces";
    if (state.outside > 0)
        message(VORN_WARNING, std::to_string(state.outside) + " of " + all +
                                  " have no sample in the window and became zeros");
    if (state.dead > 0)
        message(VORN_INFORMATION,
                std::to_string(state.dead) + " of " + all + " are zeros in the window and stay so");
    for (const std::string& warning : {state.finite.warning(), state.times.warning()})
        if (!warning.empty())
            message(VORN_WARNING, warning);
}

void save(State& state, vorn_kit::StateWriter& file)
{
    file(state.traces, state.outside, state.dead);
    state.finite.save(file);
    state.times.save(file);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    state.traces += file.get<std::int64_t>();
    state.outside += file.get<std::int64_t>();
    state.dead += file.get<std::int64_t>();
    state.finite.merge(file);
    state.times.merge(file);
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
