// sort: sorts all traces of its input by header words.
//
// Traces are collected in a queue, where the kernel pages out what exceeds the job's limit of
// resident traces. After the last one all of them leave it in their new order: moved, not copied,
// so that there is never more than one of each.
//
// A reader right before it may give its traces in order already, and says so: then they are passed
// on as they come, and only their order is checked.
#include "MOXKernel.h"
#include "sort_order.h"
#include "sort_parameters.hpp"
#include "traces/OrderRequest.h"
#include "vorn_stream.hpp"

#include <climits>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

using vorn_kit::fail;
using vorn_kit::Stream;

struct State
{
    std::vector<SortKey> keys;
    int memoryLimit = 0;        // MB
    std::vector<double> values; // of each collected trace in turn, as many as there are keys
    void* collection = nullptr; // the queue
    bool isInOrder = false;     // the input comes sorted
    int64_t passed = 0;         // traces of such an input; `values` are those of the last one
};

// ---- Before the first trace ----

std::string textOf(const std::vector<SortKey>& keys)
{
    std::string text;
    for (const SortKey& key : keys)
        text += (text.empty() ? "" : ",") + std::string(key.descending ? "-" : "") + key.word;
    return text;
}

std::unique_ptr<State> prepare(Stream& io)
{
    // The modules before this one have described their outputs by now.
    void* out = vorn_kit::buildRequiredOutput(0, vorn_kit::requiredInput());
    auto state = std::make_unique<State>();
    state->collection = io.buildQueue(out);
    const sort_parameters::Parameters given = sort_parameters::readParameters();
    state->keys = parseSortKeys(given.keys);
    state->memoryLimit = given.memory_limit;
    vorn_kit::addHistory("sort keys=" + textOf(state->keys));
    state->isInOrder = traces::acceptedOrder() == textOf(state->keys);
    return state;
}

// ---- Trace by trace ----

// The values' room doubles when it is full, and stays until they have been copied.
void checkMemory(const State& state)
{
    if (state.values.size() + state.keys.size() <= state.values.capacity())
        return;
    const auto values = static_cast<int64_t>(state.values.size() + state.keys.size());
    vorn_kit::allowMemory(state.memoryLimit, 3 * values * static_cast<int64_t>(sizeof(double)),
                          "sorting more than " +
                              std::to_string(getNumberOfTraces(state.collection)) + " traces",
                          "sort parts of them");
}

void addValues(State& state, void* in)
{
    for (const SortKey& key : state.keys) {
        if (isTraceAttributeExist(in, key.word.c_str()) == 0)
            fail("the traces have no header word \"" + key.word + "\"; name others with keys");
        state.values.push_back(getTraceAttribute(in, key.word.c_str(), 0).getF64Value());
    }
}

// Behind the values of the trace before.
void passOn(State& state, Stream& io, void* in)
{
    addValues(state, in);
    if (++state.passed > 1) {
        if (!isInOrder(state.values, state.keys))
            fail("trace " + std::to_string(state.passed) + " by " + textOf(state.keys) +
                 " does not belong behind the one before it: the input has changed while it was "
                 "read; run the job again");
        const auto keys = static_cast<std::ptrdiff_t>(state.keys.size());
        state.values.erase(state.values.begin(), state.values.begin() + keys);
    }
    io.emitTrace(in);
}

void onTrace(State& state, Stream& io)
{
    void* in = io.trace();
    if (state.isInOrder) {
        passOn(state, io, in);
        return;
    }
    checkMemory(state);
    addValues(state, in);
    if (getNumberOfTraces(state.collection) == INT_MAX - 1)
        fail("there are more traces than can be numbered; sort parts of them");
    io.queueTrace(state.collection, in);
}

void onEnd(State& state, Stream& io)
{
    if (state.isInOrder) {
        informTotalTracesNumber(vorn_output(0), state.passed);
        return;
    }
    const std::vector<int> order = sortedOrder(state.values, state.keys);
    state.values = {};
    informTotalTracesNumber(vorn_output(0), static_cast<int64_t>(order.size()));
    for (const int number : order)
        io.emitTrace(state.collection, 0, number);
}

void finish(State&) {}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
