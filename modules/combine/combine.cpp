// combine: adds, subtracts, divides or joins the traces of several inputs.
//
// The stream form brings the traces together that have one key, or that come in step. The trace of
// the first input becomes the result; the others are read and dropped.
#include "MOXKernel.h"
#include "combine_math.h"
#include "combine_parameters.hpp"
#include "sampling/TraceTimes.h"
#include "vorn_stream.hpp"
#include "words/TraceWords.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

using combine_parameters::Operation;
using combine_parameters::Parameters;
using combine_parameters::Unmatched;
using vorn_kit::fail;
using vorn_kit::message;
using vorn_kit::Stream;

// What is told of an input in the end.
struct Input
{
    std::int64_t traces = 0;
    std::int64_t unmatched = 0;
    std::string firstUnmatched;
};

struct State
{
    Parameters set;
    std::vector<std::string> keys; // without the signs of their order
    std::vector<Input> inputs;
    std::vector<void*> queues; // of a concatenation in step, by input; the first has none
    std::size_t passing = 0;   // the input whose traces go on at once
    std::vector<const float*> samples;
    std::int64_t combined = 0; // traces
    CombineCounts counts;
};

std::string inputText(std::size_t input)
{
    return "input " + std::to_string(input + 1);
}

// ---- Before the first trace ----

std::string millisecondsText(int microseconds)
{
    return words::numberText(microseconds * 1e-3) + " ms";
}

// A module that has failed before may have described no output.
void checkInputs(const Parameters& set, int count)
{
    if (count < 2)
        fail("the module has " + std::to_string(count) +
             " input; connect two or more with inputs: [first, second]");
    if (set.operation == Operation::ratio && count > 2)
        fail("a ratio has two inputs, and " + std::to_string(count) + " are connected");
    void* first = vorn_kit::requiredInput(0);
    for (int i = 1; i < count; ++i) {
        void* other = vorn_kit::requiredInput(i);
        const bool isEqual = getTraceLength(other) == getTraceLength(first) &&
                             getTraceSampleInterval(other) == getTraceSampleInterval(first);
        if (!isEqual && vorn_job_has_failed())
            throw vorn_kit::Failed();
        const std::string name = inputText(static_cast<std::size_t>(i));
        if (getTraceLength(other) != getTraceLength(first))
            fail(name + " has traces of " + std::to_string(getTraceLength(other)) +
                 " samples, and input 1 of " + std::to_string(getTraceLength(first)) +
                 "; make them equal with the module window");
        if (!isEqual)
            fail(name + " has a sample interval of " +
                 millisecondsText(getTraceSampleInterval(other)) + ", and input 1 of " +
                 millisecondsText(getTraceSampleInterval(first)) +
                 "; make them equal with the module resample");
    }
}

std::string historyOf(const Parameters& set)
{
    std::string line = std::string("combine operation=") + wordOf(set.operation);
    for (std::size_t i = 0; i < set.keys.size(); ++i)
        line += (i == 0 ? " keys=" : ",") + set.keys[i];
    if (set.operation == Operation::ratio && set.least_divisor > 0)
        line += " least_divisor=" + words::numberText(set.least_divisor) + " percent";
    return line;
}

std::unique_ptr<State> prepare(Stream& io)
{
    void* in = vorn_kit::requiredInput();
    auto state = std::make_unique<State>();
    state->set = combine_parameters::readParameters();
    checkInputs(state->set, io.inputs());
    void* out = vorn_kit::buildRequiredOutput(0, in);
    if (io.outputs() > 1)
        vorn_kit::buildRequiredOutput(1, in);
    state->inputs.resize(static_cast<std::size_t>(io.inputs()));
    state->queues.resize(state->inputs.size());
    state->samples.resize(state->inputs.size());
    for (const std::string& key : state->set.keys)
        state->keys.push_back(key.starts_with('-') ? key.substr(1) : key);
    if (!state->keys.empty())
        io.match(state->set.keys);
    else if (state->set.operation == Operation::concatenate)
        for (std::size_t i = 1; i < state->queues.size(); ++i)
            state->queues[i] = io.buildQueue(out);
    vorn_kit::addHistory(historyOf(state->set));
    return state;
}

// ---- Trace by trace ----

// "trace 17 of input 2 (cdp 7)"
std::string nameOf(const State& state, std::size_t input, void* trace)
{
    std::string telling;
    for (const std::string& key : state.keys)
        telling += (telling.empty() ? " (" : ", ") + key + " " +
                   words::numberText(getTraceAttribute(trace, key.c_str(), 0).getF64Value());
    if (!telling.empty())
        telling += ")";
    // Inputs in step have no keys: the usual words.
    const std::string name = words::nameOfTrace(trace, state.inputs[input].traces);
    const std::size_t bracket = std::min(name.find(" ("), name.size());
    return name.substr(0, bracket) + " of " + inputText(input) +
           (telling.empty() ? name.substr(bracket) : telling);
}

// The traces of this call lack those of other inputs.
void passUnmatched(State& state, Stream& io)
{
    for (std::size_t i = 0; i < state.inputs.size(); ++i) {
        void* trace = io.trace(static_cast<int>(i));
        if (trace == nullptr)
            continue;
        Input& input = state.inputs[i];
        if (input.unmatched++ == 0)
            input.firstUnmatched = nameOf(state, i, trace);
        if (state.set.unmatched == Unmatched::fail)
            fail(input.firstUnmatched +
                 " has no partner; complete the other inputs, or drop such traces with unmatched: "
                 "drop");
        if (state.set.unmatched == Unmatched::keep)
            io.emitTrace(trace);
        else if (io.outputs() > 1)
            io.emitTrace(trace, 1);
    }
}

void checkDelays(const State& state, Stream& io)
{
    const std::int64_t first = sampling::delayOf(io.trace(0));
    for (std::size_t i = 1; i < state.inputs.size(); ++i) {
        void* trace = io.trace(static_cast<int>(i));
        const std::int64_t delay = sampling::delayOf(trace);
        if (delay != first)
            fail(nameOf(state, i, trace) + " begins at " + sampling::secondsText(delay) +
                 " s, and " + nameOf(state, 0, io.trace(0)) + " at " +
                 sampling::secondsText(first) + " s; make them equal with the module window");
    }
}

void combineTraces(State& state, Stream& io)
{
    checkDelays(state, io);
    void* out = io.emitTrace(io.trace(0));
    ++state.combined;
    const int length = getTraceLength(out);
    if (length <= 0)
        return;
    float* result = getTraceSamples(out, 0);
    state.samples[0] = result;
    for (std::size_t i = 1; i < state.inputs.size(); ++i)
        state.samples[i] = getTraceSamples(io.trace(static_cast<int>(i)), 0);
    for (const float* samples : state.samples)
        if (samples == nullptr)
            fail("not enough memory for the traces of all inputs; give the job a lower limit of "
                 "traces in memory");
    switch (state.set.operation) {
    case Operation::difference:
        combineDifference(state.samples, length, result, state.counts);
        break;
    case Operation::sum:
        combineSum(state.samples, length, result, state.counts);
        break;
    default:
        combineRatio(state.samples, length, state.set.least_divisor / 100, result, state.counts);
        break;
    }
}

// ---- Concatenation ----

// The next input passes its traces on at once, after those that have waited.
void passNext(State& state, Stream& io)
{
    void* queue = state.queues[++state.passing];
    const int waiting = getNumberOfTraces(queue);
    for (int i = 0; i < waiting; ++i)
        io.emitTrace(queue, 0, i);
    vorn_clear_queue(queue);
}

void concatenate(State& state, Stream& io)
{
    for (std::size_t i = 0; i < state.inputs.size(); ++i) {
        void* trace = io.trace(static_cast<int>(i));
        if (trace == nullptr)
            continue;
        ++state.combined;
        if (!state.keys.empty() || i == state.passing) {
            io.emitTrace(trace);
            continue;
        }
        if (getNumberOfTraces(state.queues[i]) == INT_MAX - 1)
            fail("there are more traces than can be numbered; concatenate parts of them");
        io.queueTrace(state.queues[i], trace);
    }
    if (!state.keys.empty())
        return;
    while (state.passing + 1 < state.inputs.size() && io.hasEnded(static_cast<int>(state.passing)))
        passNext(state, io);
}

// ---- The stream ----

void onTrace(State& state, Stream& io)
{
    bool isComplete = true;
    for (std::size_t i = 0; i < state.inputs.size(); ++i) {
        const bool isThere = io.trace(static_cast<int>(i)) != nullptr;
        state.inputs[i].traces += isThere ? 1 : 0;
        isComplete = isComplete && isThere;
    }
    if (state.set.operation == Operation::concatenate)
        concatenate(state, io);
    else if (isComplete)
        combineTraces(state, io);
    else
        passUnmatched(state, io);
}

void onEnd(State& state, Stream& io)
{
    if (state.set.operation != Operation::concatenate || !state.keys.empty())
        return;
    while (state.passing + 1 < state.inputs.size())
        passNext(state, io);
}

// ---- After the last trace ----

std::string fateOf(const State& state)
{
    if (state.set.unmatched == Unmatched::keep)
        return "kept as they are";
    return vorn_output(1) != nullptr ? "sent to the second output" : "dropped";
}

void tellUnmatched(const State& state)
{
    for (std::size_t i = 0; i < state.inputs.size(); ++i) {
        const Input& input = state.inputs[i];
        if (input.unmatched == 0)
            continue;
        message(VORN_WARNING, std::to_string(input.unmatched) + " of " +
                                  std::to_string(input.traces) + " traces of " + inputText(i) +
                                  " have no partner and were " + fateOf(state) +
                                  "; the first: " + input.firstUnmatched);
    }
}

void finish(State& state)
{
    std::string line;
    for (std::size_t i = 0; i < state.inputs.size(); ++i)
        line +=
            (i == 0 ? "" : ", ") + std::to_string(state.inputs[i].traces) + " of " + inputText(i);
    const bool joins = state.set.operation == Operation::concatenate;
    message(VORN_INFORMATION, std::to_string(state.combined) +
                                  (joins ? " traces passed: " : " traces made from ") + line);
    tellUnmatched(state);
    const CombineCounts& counts = state.counts;
    if (counts.undivided > 0)
        message(VORN_INFORMATION, std::to_string(counts.undivided) + " of " +
                                      std::to_string(counts.samples) +
                                      " samples have no divisor above the least one and became 0");
    if (counts.odd > 0)
        message(VORN_WARNING, std::to_string(counts.odd) + " of " + std::to_string(counts.samples) +
                                  " samples of the result are infinite or NaN");
}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
