// A module of jobs that are compared with a model of lists. `kind` says what it makes of the traces
// of its inputs; list_model.h says what that is. It keeps the rules for modules:
//
// - it asks for calls at the end of the data unless it gives one trace for each that comes;
// - called without input, it keeps the kernel from making a trace there;
// - the last trace that it gives is marked, so one that cannot know which that is holds one back;
// - of several traces given in one call only the last is marked, and that is said again when the
//   module is called without input.
#include "list_traces.h"

#include <deque>
#include <memory>
#include <vector>

namespace {

struct State
{
    ListStep step;
    std::vector<void*> inputs;
    std::vector<bool> ended; // by input
    std::unique_ptr<ListMachine> machine;
    std::deque<ListTrace> waiting; // given by the machine, not yet by the module
    int calls = 0;                 // with the trace that is first now
    int taken = 0;
    bool done = false;
};

State* state()
{
    return static_cast<State*>(getModuleResource("state").getPointerValue());
}

// Gives one trace for each that comes, with its mark.
void passOn(State& kept, void* in, void* out)
{
    if (++kept.calls < kept.step.calls) {
        setInputTraceBufferFlag(0, keepTrace);
        return;
    }
    kept.calls = 0;
    const int place = getNumberOfTraces(out);
    if (kept.step.defines && ++kept.taken == 2)
        defineTraceAttribute(in, "late");
    copyTraceToTrace(in, out, 1, 1, 0, place);
    float* samples = getTraceSamples(out, place);
    std::transform(samples, samples + getTraceLength(out), samples, ListMachine::changed);
    if (kept.step.scribbles) {
        std::fill_n(getTraceSamples(in, 0), getTraceLength(in), -1.0F);
        setTraceAttribute(in, "tracl", UniVar(-1), 0);
    }
}

// Takes what there is; an input that is empty now has ended.
void take(State& kept)
{
    ListRow row(kept.inputs.size(), nullptr);
    List traces(kept.inputs.size());
    for (std::size_t i = 0; i < kept.inputs.size(); ++i) {
        if (getNumberOfTraces(kept.inputs[i]) == 0)
            continue;
        traces[i] = readTrace(kept.inputs[i]);
        row[i] = &traces[i];
    }
    const std::vector<bool> used = kept.machine->uses(row);
    for (std::size_t i = 0; i < kept.inputs.size(); ++i) {
        if (row[i] == nullptr || (!used[i] && !kept.done))
            setInputTraceBufferFlag(static_cast<int>(i), keepTrace);
        kept.ended[i] =
            row[i] == nullptr || (used[i] && getDataChannelFlag(kept.inputs[i]) == endOfData);
    }
    if (!kept.done)
        kept.machine->take(row, kept.waiting);
}

void giveAll(State& kept, void* out)
{
    const bool end = kept.done || kept.machine->isAtEnd(kept.ended);
    if (end && !kept.done)
        kept.machine->finish(kept.waiting);
    const std::size_t held = end ? 0 : 1;
    while (kept.waiting.size() > held) {
        writeTrace(kept.waiting.front(), out);
        kept.waiting.pop_front();
    }
    if (end)
        setDataChannelFlag(out, endOfData);
    kept.done = end;
}

} // namespace

extern "C" int preprocess_()
{
    auto* kept = new State;
    kept->step.kind = static_cast<ListKind>(listParameter("kind", 0));
    kept->step.n = listParameter("n", 1);
    kept->step.calls = listParameter("calls", 1);
    kept->step.scribbles = listParameter("scribbles", 0) != 0;
    kept->step.defines = listParameter("defines", 0) != 0;
    kept->machine = std::make_unique<ListMachine>(kept->step);
    for (int i = 0; void* in = getInputTraceBuffer(i); ++i)
        kept->inputs.push_back(in);
    kept->ended.assign(kept->inputs.size(), false);
    void* in = kept->inputs[0];
    bldOutputTraceBuffer(0, getTraceLength(in), getTraceSampleInterval(in), in);
    setModuleResource("state", UniVar(static_cast<void*>(kept)));
    if (kept->step.kind != ListKind::pass)
        setModuleProcessingOption("RespectEOD", UniVar(1));
    return 0;
}

extern "C" int process_()
{
    State& kept = *state();
    void* out = getOutputTraceBuffer(0);
    if (kept.step.kind == ListKind::pass) {
        passOn(kept, kept.inputs[0], out);
        return 0;
    }
    take(kept);
    giveAll(kept, out);
    return 0;
}

extern "C" int postprocess_()
{
    delete state();
    return 0;
}
