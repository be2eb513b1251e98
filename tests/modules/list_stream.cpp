// list_step in the stream form: the same lists of the same parameters, with the rules kept by the
// kit. It is compared with the same model. Its joins take a trace of each input at a time, so it
// has no concat, match and interleave.
#include "list_traces.h"
#include "vorn_stream.hpp"

#include <algorithm>
#include <deque>
#include <memory>
#include <vector>

namespace {

using vorn_kit::Stream;

struct State
{
    ListStep step;
    std::unique_ptr<ListMachine> machine;
    int taken = 0;
};

std::unique_ptr<State> prepare(Stream&)
{
    vorn_kit::buildRequiredOutput(0, vorn_kit::requiredInput());
    auto state = std::make_unique<State>();
    state->step.kind = static_cast<ListKind>(listParameter("kind", 0));
    state->step.n = listParameter("n", 1);
    state->step.scribbles = listParameter("scribbles", 0) != 0;
    state->step.defines = listParameter("defines", 0) != 0;
    state->machine = std::make_unique<ListMachine>(state->step);
    return state;
}

// The header words of the trace itself, where it passes; a new one in all other cases.
void passOn(State& state, Stream& io)
{
    void* in = io.trace();
    if (state.step.defines && ++state.taken == 2)
        defineTraceAttribute(in, "late");
    void* out = state.step.scribbles ? io.emitCopy(in) : io.emitTrace(in);
    float* samples = getTraceSamples(out, 0);
    std::transform(samples, samples + getTraceLength(out), samples, ListMachine::changed);
    if (!state.step.scribbles)
        return;
    std::fill_n(getTraceSamples(in, 0), getTraceLength(in), -1.0F);
    setTraceAttribute(in, "tracl", UniVar(-1), 0);
}

void write(const std::deque<ListTrace>& traces, Stream& io)
{
    for (const ListTrace& trace : traces) {
        void* out = io.emit();
        setTraceAttribute(out, "tracl", UniVar(trace.id), 0);
        setTraceAttribute(out, "cdp", UniVar(trace.key), 0);
        setTraceAttribute(out, "offset", UniVar(trace.offset), 0);
        const std::size_t room = static_cast<std::size_t>(getTraceLength(out));
        std::copy_n(trace.samples.begin(), std::min(room, trace.samples.size()),
                    getTraceSamples(out, 0));
    }
}

void onTrace(State& state, Stream& io)
{
    if (state.step.kind == ListKind::pass) {
        passOn(state, io);
        return;
    }
    List traces(static_cast<std::size_t>(io.inputs()));
    ListRow row(traces.size(), nullptr);
    std::vector<bool> ended(traces.size());
    for (int i = 0; i < io.inputs(); ++i) {
        const auto place = static_cast<std::size_t>(i);
        ended[place] = io.hasEnded(i);
        if (io.trace(i) == nullptr)
            continue;
        traces[place] = readTrace(io.trace(i));
        row[place] = &traces[place];
    }
    std::deque<ListTrace> given;
    state.machine->take(row, given);
    write(given, io);
    if (state.machine->isAtEnd(ended))
        io.stop();
}

void onEnd(State& state, Stream& io)
{
    std::deque<ListTrace> given;
    state.machine->finish(given);
    write(given, io);
}

void finish(State&) {}

} // namespace

VORN_STREAM_MODULE(prepare, onTrace, onEnd, finish);
