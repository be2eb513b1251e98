// Does with traces what StreamTest asks for, by the stream form in C++.
#include "stream_cxx_parameters.hpp"
#include "vorn_stream.hpp"

#include <algorithm>

namespace {

using namespace stream_cxx_parameters;
using vorn_kit::Stream;

struct State
{
    Parameters set;
    void* queue = nullptr;
    int taken = 0;
};

std::unique_ptr<State> prepare(Stream& io)
{
    void* in = vorn_input(0);
    void* out = vorn_build_output(0, in);
    auto state = std::make_unique<State>();
    state->set = readParameters();
    if (in == nullptr)
        knl_bldOutputTraceBuffer(0, 2, 2000, nullptr);
    for (int i = 1; i < io.outputs(); ++i)
        vorn_build_output(i, in);
    if (state->set.length > 0)
        knl_bldOutputTraceBuffer(0, state->set.length, 4000, in);
    state->queue = io.buildQueue(out);
    if (state->set.mode == Mode::match)
        io.match(state->set.keys);
    if (state->set.fails == Fails::prepare)
        vorn_kit::fail("told to fail in prepare");
    return state;
}

int numberOf(void* set)
{
    int number = 0;
    knl_getI32TraceAttribute(set, "number", &number);
    return number;
}

void writeFresh(Stream& io, int output, int number)
{
    void* trace = io.emit(output);
    knl_setI32TraceAttribute(trace, "number", number);
    float* samples = nullptr;
    if (knl_getTraceSamples(trace, &samples, 0) != 0)
        std::fill_n(samples, knl_getTraceLength(trace), static_cast<float>(number));
}

// Which inputs have a trace, and which have ended, in digits from the first input on.
void join(Stream& io)
{
    int number = 0;
    int ended = 0;
    void* first = nullptr;
    for (int i = 0; i < io.inputs(); ++i) {
        void* trace = io.trace(i);
        number = 10 * number + (trace != nullptr ? numberOf(trace) : 0);
        ended = 10 * ended + (io.hasEnded(i) ? 1 : 0);
        first = first != nullptr ? first : trace;
    }
    void* trace = io.emitCopy(first);
    knl_setI32TraceAttribute(trace, "number", number);
    knl_setI32TraceAttribute(trace, "ended", ended);
}

void burst(Stream& io, int n)
{
    void* trace = n > 0 ? io.emitTrace(io.trace()) : nullptr;
    for (int i = 1; i < n; ++i) {
        trace = io.emitCopy(trace);
        knl_setI32TraceAttribute(trace, "number", numberOf(trace) + 100);
    }
}

void change(Stream& io, int number)
{
    knl_setI32TraceAttribute(io.emitTrace(io.trace()), "late", 1000 + number);
}

void lookAhead(State& state, Stream& io)
{
    if (state.taken % 2 == 0)
        io.queueCopy(state.queue, io.trace());
    else
        io.queueTrace(state.queue, io.trace());
    if (knl_getNumberOfTraces(state.queue) > state.set.n) {
        io.emitTrace(state.queue);
        vorn_drop_queued(state.queue, 1);
    }
}

void onTrace(State& state, Stream& io)
{
    ++state.taken;
    switch (state.set.mode) {
    case Mode::pass:
    case Mode::first:
        io.emitTrace(io.trace());
        break;
    case Mode::copy:
        io.emitCopy(io.trace());
        break;
    case Mode::burst:
        burst(io, state.set.n);
        break;
    case Mode::fresh:
        writeFresh(io, 0, numberOf(io.trace()));
        break;
    case Mode::change:
        change(io, numberOf(io.trace()));
        break;
    case Mode::tail:
        io.queueTrace(state.queue, io.trace());
        break;
    case Mode::ahead:
        lookAhead(state, io);
        break;
    case Mode::count:
        break;
    case Mode::join:
    case Mode::match:
        join(io);
        break;
    case Mode::split:
        io.emitTrace(io.trace(), numberOf(io.trace()) % 2);
        break;
    case Mode::source:
        writeFresh(io, 0, 2 * state.taken - 1);
        writeFresh(io, 0, 2 * state.taken);
        break;
    }
    if ((state.set.mode == Mode::first || state.set.mode == Mode::source) &&
        state.taken == state.set.n)
        io.stop();
    if (state.set.fails == Fails::trace && state.taken >= 2)
        vorn_kit::fail("told to fail in on_trace");
}

void onEnd(State& state, Stream& io)
{
    vorn_kit::message(VORN_INFORMATION, "end after " + std::to_string(state.taken));
    if (state.set.mode == Mode::count)
        writeFresh(io, 0, state.taken);
    const int queued = knl_getNumberOfTraces(state.queue);
    for (int i = 0; i < queued; ++i) {
        if (state.set.mode == Mode::tail)
            io.emitTrace(state.queue, 0, queued - 1 - i);
        else
            io.emitCopy(state.queue, 0, i);
    }
    if (state.set.mode == Mode::split)
        writeFresh(io, 2, state.taken);
    if (state.set.fails == Fails::end)
        vorn_kit::fail("told to fail in on_end");
}

void finish(State& state)
{
    vorn_kit::message(VORN_INFORMATION, "finish after " + std::to_string(state.taken));
}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
