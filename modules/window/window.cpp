// window: cuts or extends traces in time. All samples keep their values; only which of them there
// are changes, and the words that say so.
#include "MOXKernel.h"
#include "sampling/SampleCounts.h"
#include "sampling/TraceTimes.h"
#include "vorn_parts.hpp"
#include "window_math.h"
#include "window_parameters.hpp"
#include "words/TraceWords.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace {

using sampling::secondsText;
using vorn_kit::fail;
using vorn_kit::message;
using window_parameters::Parameters;

struct State
{
    State(void* out, int samples, int spacing) : times(out, samples, spacing) {}

    double start = 0; // microseconds
    int interval = 0; // microseconds
    int length = 0;   // of the output
    bool needsNoDelay = false;
    sampling::TraceTimes times;

    std::int64_t traces = 0;
    std::int64_t outside = 0;  // traces without a sample in the window
    std::int64_t extended = 0; // traces with zeros at an end
    int mostZeros = 0;
    bool hasWarned = false;                  // of a trace whose greater part is zeros
    std::int64_t before = vorn_part_first(); // traces of the job before those of this process
};

std::string text(double seconds)
{
    return words::numberText(seconds) + " s";
}

void checkTimes(const Parameters& set, double last)
{
    if (!set.start && !set.end)
        fail("there is nothing to cut; give start, end, or both");
    const double start = set.start.value_or(0);
    const double end = set.end.value_or(last);
    if (end >= start)
        return;
    if (set.start && set.end)
        fail("start is " + text(start) + " and end is " + text(end) +
             "; end must not be before "
             "start");
    if (set.start)
        fail("start is " + text(start) + ", and the traces end at " + text(last) +
             "; give a time before that, with its unit (900 ms)");
    fail("end is " + text(end) + ", before the first sample; give a later one, or start as well");
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    const Parameters set = window_parameters::readParameters();
    const int interval = getTraceSampleInterval(in);
    if (interval <= 0) {
        vorn_fail_without_interval();
        throw vorn_kit::Failed();
    }
    const double last = (getTraceLength(in) - 1.0) * interval; // microseconds, without a delay
    checkTimes(set, last * 1e-6);
    const double start = set.start.value_or(0) * 1e6;
    const double end = set.end ? *set.end * 1e6 : last;
    const std::int64_t samples = samplesBetween(start, end, interval);
    if (samples > sampling::mostSamples)
        fail("a window from " + text(start * 1e-6) + " to " + text(end * 1e-6) + " has " +
             std::to_string(samples) + " samples, and traces have at most " +
             std::to_string(sampling::mostSamples) + "; give times with their unit (900 ms)");
    vorn_kit::allowMemory(set.memory_limit, 4 * samples,
                          "a window of " + std::to_string(samples) + " samples",
                          "choose a shorter one");
    void* out = bldOutputTraceBuffer(0, static_cast<int>(samples), interval, in);
    if (out == nullptr)
        out = vorn_kit::buildRequiredOutput(0, in); // says so
    auto state = std::make_unique<State>(out, static_cast<int>(samples), interval);
    state->start = start;
    state->interval = interval;
    state->length = static_cast<int>(samples);
    state->needsNoDelay = !set.start || !set.end;
    vorn_kit::addHistory("window" + (set.start ? " start=" + text(*set.start) : "") +
                         (set.end ? " end=" + text(*set.end) : "") +
                         " samples=" + std::to_string(samples));
    return state;
}

// A window that misses the trace, or that is mostly zeros, often comes of a time without its unit.
void tell(State& state, void* in, std::int64_t delay, int found)
{
    const int zeros = state.length - found;
    state.mostZeros = std::max(state.mostZeros, zeros);
    state.extended += zeros > 0 ? 1 : 0;
    const bool isFirst =
        found > 0 ? !state.hasWarned && zeros > state.length / 2 : state.outside++ == 0;
    if (!isFirst)
        return;
    state.hasWarned = state.hasWarned || found > 0;
    const std::int64_t end = delay + (getTraceLength(in) - std::int64_t{1}) * state.interval;
    const double last = state.start + (state.length - 1.0) * state.interval;
    vorn_kit::messageOnce(
        VORN_WARNING, found > 0 ? "zeros" : "outside",
        words::nameOfTrace(in, state.before + state.traces) + " has samples from " +
            secondsText(delay) + " to " + secondsText(end) + " s, and the window is from " +
            text(state.start * 1e-6) + " to " + text(last * 1e-6) + ": " +
            (found == 0 ? "all" : std::to_string(zeros) + " of " + std::to_string(state.length)) +
            " samples of the output are zeros; give times with their unit (900 ms)");
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    const int number = getNumberOfTraces(out);
    const std::int64_t delay = sampling::delayOf(in);
    ++state.traces;
    if (state.needsNoDelay && delay != 0)
        fail(words::nameOfTrace(in, state.before + state.traces) + " begins at " +
             secondsText(delay) + " s (delrt); give both start and end for such traces");
    copyTraceToTrace(in, out, 1, 0, 0, number);
    const std::int64_t first = nearestSample(state.start, delay, state.interval);
    const int inLength = getTraceLength(in);
    const float* samples = inLength > 0 ? getTraceSamples(in, 0) : nullptr;
    float* window = getTraceSamples(out, number);
    if (window == nullptr)
        return;
    const int found =
        copyWindow(samples, samples == nullptr ? 0 : inLength, first, window, state.length);
    state.times.write(out, number, delay + first * state.interval);
    tell(state, in, delay, found);
}

void finish(State& state)
{
    if (state.outside > 0)
        message(VORN_WARNING, std::to_string(state.outside) + " of " +
                                  std::to_string(state.traces) +
                                  " traces have no sample in the window and became zeros");
    if (state.extended > state.outside)
        message(VORN_INFORMATION, std::to_string(state.extended - state.outside) + " of " +
                                      std::to_string(state.traces) +
                                      " traces were extended with zeros, by up to " +
                                      std::to_string(state.mostZeros) + " samples");
    if (!state.times.warning().empty())
        message(VORN_WARNING, state.times.warning());
}

void save(State& state, vorn_kit::StateWriter& file)
{
    file(state.traces, state.outside, state.extended, state.mostZeros);
    state.times.save(file);
}

void merge(State& state, vorn_kit::StateReader& file)
{
    state.traces += file.get<std::int64_t>();
    state.outside += file.get<std::int64_t>();
    state.extended += file.get<std::int64_t>();
    state.mostZeros = std::max(state.mostZeros, file.get<int>());
    state.times.merge(file);
}

} // namespace

VORN_MODULE(prepare, process, finish);
VORN_MODULE_IN_PARTS(save, merge);
