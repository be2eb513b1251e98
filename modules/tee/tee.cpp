// tee: gives each of its readers traces of its own.
//
// By the rules of the kernel a channel with several consumers hands all of them the trace that is
// first in the channel, whatever each has taken already. That is right as long as the consumers
// keep step. Behind a tee each consumer has a channel to itself, so that its first trace is its
// next one.
//
// The kernel looks at the last output of a module to see whether the module has ended, and sees the
// flag of the first trace there. A tee whose last output is read would therefore be asked for more
// until that one reader had caught up. So the host gives it one more output, which no module reads
// and which never holds a trace: its own flag word tells the end at once, however far the readers
// are.
//
// One reader needs no copy. The last output gets the trace itself where both sides have one header
// layout, because a move leaves the header bytes as they are.
#include "DataChannel.h"
#include "MOXKernel.h"
#include "SeisTrace.h"
#include "vorn_kit.hpp"

#include <algorithm>
#include <memory>
#include <vector>

namespace {

using vorn_kit::fail;

struct State
{
    DataChannel* in = nullptr;
    std::vector<DataChannel*> readers; // outputs that some module reads
    DataChannel* last = nullptr;       // output: decides whether this module has ended

    // The layouts that were compared last, of the input and of the last reader's channel.
    int64_t inLayout = 0;
    int64_t outLayout = 0;
    bool sameLayout = false;
};

// The modules before this one may correct what they said when they prepared.
void describe(const State& state)
{
    for (DataChannel* out : state.readers) {
        out->setTraceLength(state.in->getTraceLength());
        out->setTraceSampleInterval(state.in->getTraceSampleInterval());
        out->informTotalTracesNumber(state.in->getTotalTracesNumber());
    }
}

std::unique_ptr<State> prepare()
{
    auto state = std::make_unique<State>();
    state->in = static_cast<DataChannel*>(vorn_kit::requiredInput());
    vorn_kit::buildRequiredOutput(0, state->in);
    for (int port = 0; vorn_output(port) != nullptr; ++port) {
        auto* out = static_cast<DataChannel*>(vorn_build_output(port, state->in));
        if (out->getNumberOfOutputModules() > 0)
            state->readers.push_back(out);
        state->last = out;
    }
    describe(*state);
    // The input may end without a marked trace; that has to be passed on, too.
    setModuleProcessingOption("RespectEOD", UniVar(1));
    return state;
}

bool samePlace(const traceAttIdent& a, const traceAttIdent& b)
{
    return a.type == b.type && a.offset == b.offset && a.dim == b.dim && a.size == b.size;
}

bool haveSameLayout(State& state, const DataChannel& out)
{
    const DataChannel& in = *state.in;
    if (in.layoutExposed || out.layoutExposed)
        return false; // places may change without a sign
    if (state.inLayout != in.layoutNumber || state.outLayout != out.layoutNumber) {
        state.inLayout = in.layoutNumber;
        state.outLayout = out.layoutNumber;
        state.sameLayout =
            in.currentHeaderSize == out.currentHeaderSize &&
            std::equal(in.attrDefs.begin(), in.attrDefs.end(), out.attrDefs.begin(),
                       out.attrDefs.end(), [](const auto& a, const auto& b) {
                           return a.first == b.first && samePlace(a.second, b.second);
                       });
    }
    return state.sameLayout;
}

// Where other modules read the input, too, the trace is not this module's alone.
bool canMove(State& state, const SeisTrace& trace, const DataChannel& out)
{
    return state.in->getNumberOfOutputModules() == 1 && haveSameLayout(state, out) &&
           trace.traceLength == out.getTraceLength() &&
           trace.traceHeaderSize >= out.currentHeaderSize;
}

void copyTo(const State& state, DataChannel& out)
{
    const int number = out.getNumberOfTraces();
    out.copyFromTrace(state.in, true, true, 0, number);
    if (out.getTraceLength() > 0 && out.getTrace(number, false)->traceSamples == nullptr)
        fail("there is no memory for a copy of a trace; give the job a lower limit of traces in "
             "memory");
}

void process(State& state)
{
    vorn_keep_empty_inputs();
    if (state.in->getNumberOfTraces() == 0) {
        vorn_end_outputs();
        return;
    }
    const SeisTrace* trace = state.in->getTrace(0, false);
    if (trace == nullptr)
        return;
    const int flag = trace->traceFlag; // the trace may be gone at the end
    describe(state);
    for (DataChannel* out : state.readers) {
        if (out == state.readers.back() && canMove(state, *trace, *out))
            out->moveFromTrace(state.in, 0, out->getNumberOfTraces());
        else
            copyTo(state, *out);
    }
    if (flag == VORN_END_OF_DATA && state.last->getNumberOfOutputModules() == 0)
        state.last->setDataChannelFlag(flag);
}

void finish(State&) {}

} // namespace

VORN_MODULE(prepare, process, finish);
