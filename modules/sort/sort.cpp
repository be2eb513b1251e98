// sort: sorts all traces of its input by header words.
//
// Traces are collected in a queue, where the kernel pages out what exceeds the job's limit of
// resident traces. After the last one all of them leave it in their new order: moved, not copied,
// so that there is never more than one of each.
#include "MOXKernel.h"
#include "sort_order.h"
#include "sort_parameters.hpp"
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
};

// ---- Before the first trace ----

std::string history(const std::vector<SortKey>& keys)
{
    std::string text;
    for (const SortKey& key : keys)
        text += (text.empty() ? "" : ",") + std::string(key.descending ? "-" : "") + key.word;
    return "sort keys=" + text;
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
    vorn_kit::addHistory(history(state->keys));
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

void onTrace(State& state, Stream& io)
{
    void* in = io.trace();
    checkMemory(state);
    for (const SortKey& key : state.keys) {
        if (isTraceAttributeExist(in, key.word.c_str()) == 0)
            fail("the traces have no header word \"" + key.word + "\"; name others with keys");
        state.values.push_back(getTraceAttribute(in, key.word.c_str(), 0).getF64Value());
    }
    if (getNumberOfTraces(state.collection) == INT_MAX - 1)
        fail("there are more traces than can be numbered; sort parts of them");
    io.queueTrace(state.collection, in);
}

void onEnd(State& state, Stream& io)
{
    const std::vector<int> order = sortedOrder(state.values, state.keys);
    state.values = {};
    informTotalTracesNumber(vorn_output(0), static_cast<int64_t>(order.size()));
    for (const int number : order)
        io.emitTrace(state.collection, 0, number);
}

void finish(State&) {}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
