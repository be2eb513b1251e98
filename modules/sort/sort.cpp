// sort: sorts all traces of its input by header words.
//
// Traces are collected in a work buffer, where the kernel pages out what exceeds the job's limit of
// resident traces. After the last one they leave it one per call, in their new order: moved, not
// copied, so that there is never more than one of each.
#include "MOXKernel.h"
#include "sort_order.h"
#include "sort_parameters.hpp"
#include "vorn_kit.hpp"

#include <climits>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace {

using vorn_kit::fail;

// Work buffers.
constexpr int collection = 0;
constexpr int header = 1; // of the trace that is on its way

struct State
{
    std::vector<SortKey> keys;
    int memoryLimit = 0;        // MB
    std::vector<double> values; // of each collected trace in turn, as many as there are keys
    int collected = 0;
    bool isComplete = false;
    std::vector<int> order;
    std::size_t next = 0; // in `order`
};

// ---- Before the first trace ----

std::string history(const std::vector<SortKey>& keys)
{
    std::string text;
    for (const SortKey& key : keys)
        text += (text.empty() ? "" : ",") + std::string(key.descending ? "-" : "") + key.word;
    return "sort keys=" + text;
}

std::unique_ptr<State> prepare()
{
    void* in = vorn_kit::requiredInput();
    // The modules before this one have described their outputs by now.
    vorn_kit::buildRequiredOutput(0, in);
    const int length = getTraceLength(in);
    const int interval = getTraceSampleInterval(in);
    bldWorkTraceBuffer(collection, length, interval, 0, in);
    bldWorkTraceBuffer(header, 1, interval, 1, in);
    // Be called also when the input has ended, to emit what was collected.
    setModuleProcessingOption("RespectEOD", UniVar(1));

    auto state = std::make_unique<State>();
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
                          "sorting more than " + std::to_string(state.collected) + " traces",
                          "sort parts of them");
}

void collect(State& state, void* in)
{
    checkMemory(state);
    for (const SortKey& key : state.keys) {
        if (isTraceAttributeExist(in, key.word.c_str()) == 0)
            fail("the traces have no header word \"" + key.word + "\"; name others with keys");
        state.values.push_back(getTraceAttribute(in, key.word.c_str(), 0).getF64Value());
    }
    if (state.collected == INT_MAX - 1)
        fail("there are more traces than can be numbered; sort parts of them");

    void* work = getWorkTraceBuffer(collection);
    copyTraceToTrace(in, work, 1, 1, 0, state.collected);
    if (getTraceLength(work) > 0 && getTraceSamples(work, state.collected) == nullptr)
        fail("not enough memory for trace " + std::to_string(state.collected + 1) +
             "; give the job a lower limit of traces in memory");
    ++state.collected;
}

void complete(State& state, void* out)
{
    state.order = sortedOrder(state.values, state.keys);
    state.values = {};
    state.isComplete = true;
    informTotalTracesNumber(out, state.collected);
}

// A moved trace keeps its header bytes. Attributes may have been defined in another order here than
// in the output, so the header is copied again, by name.
void emitNext(State& state, void* out)
{
    void* work = getWorkTraceBuffer(collection);
    void* waiting = getWorkTraceBuffer(header);
    const int from = state.order[state.next++];
    const int to = getNumberOfTraces(out);
    copyTraceToTrace(work, waiting, 1, 0, from, 0);
    moveTraceToTrace(work, out, from, to);
    copyTraceToTrace(waiting, out, 1, 0, 0, to);
    setDataChannelFlag(out, state.next == state.order.size() ? VORN_END_OF_DATA : 0);
}

void process(State& state)
{
    void* in = vorn_input(0);
    void* out = vorn_output(0);
    vorn_keep_empty_inputs();
    const bool hasInput = getNumberOfTraces(in) > 0;
    if (!state.isComplete) {
        if (hasInput)
            collect(state, in);
        if (hasInput && getDataChannelFlag(in) != VORN_END_OF_DATA)
            return;
        complete(state, out);
    }
    if (state.next == state.order.size()) {
        setDataChannelFlag(out, VORN_END_OF_DATA);
        return;
    }
    emitNext(state, out);
    // The last trace of the input stays until all have been written: as long as it is there, the
    // module is called.
    if (hasInput && state.next < state.order.size())
        vorn_keep_trace(0);
}

void finish(State&) {}

} // namespace

VORN_MODULE(prepare, process, finish);
