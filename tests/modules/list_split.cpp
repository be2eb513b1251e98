// A module with several outputs, of jobs that are compared with a model of lists. `kind` says which
// traces go where; list_model.h says what that is. It keeps the rules for modules as list_step
// does: the last trace of each output is marked, so one is held back for each.
#include "list_traces.h"

#include <deque>

namespace {

struct State
{
    SplitKind kind;
    int n;
    int taken = 0;
    std::vector<void*> outputs;
    std::vector<std::deque<ListTrace>> waiting; // by output
};

State* state()
{
    return static_cast<State*>(getModuleResource("state").getPointerValue());
}

void give(State& kept, bool end)
{
    for (std::size_t i = 0; i < kept.outputs.size(); ++i) {
        std::deque<ListTrace>& waiting = kept.waiting[i];
        for (; waiting.size() > (end ? 0U : 1U); waiting.pop_front())
            writeTrace(waiting.front(), kept.outputs[i]);
        if (end)
            setDataChannelFlag(kept.outputs[i], endOfData);
    }
}

} // namespace

extern "C" int preprocess_()
{
    auto* kept = new State;
    kept->kind = static_cast<SplitKind>(listParameter("kind", 0));
    kept->n = listParameter("n", 1);
    void* in = getInputTraceBuffer(0);
    for (int i = 0; getOutputTraceBuffer(i) != nullptr; ++i) {
        bldOutputTraceBuffer(i, getTraceLength(in), getTraceSampleInterval(in), in);
        kept->outputs.push_back(getOutputTraceBuffer(i));
    }
    kept->waiting.resize(kept->outputs.size());
    setModuleResource("state", UniVar(static_cast<void*>(kept)));
    setModuleProcessingOption("RespectEOD", UniVar(1));
    return 0;
}

extern "C" int process_()
{
    State& kept = *state();
    void* in = getInputTraceBuffer(0);
    if (getNumberOfTraces(in) == 0) {
        setInputTraceBufferFlag(0, keepTrace);
        give(kept, true);
        return 0;
    }
    const ListTrace trace = readTrace(in);
    const int outputs = static_cast<int>(kept.outputs.size());
    for (int i = 0; i < outputs; ++i) {
        if (isForOutput(kept.kind, kept.n, kept.taken, i, outputs))
            kept.waiting[static_cast<std::size_t>(i)].push_back(trace);
    }
    ++kept.taken;
    give(kept, getDataChannelFlag(in) == endOfData);
    return 0;
}

extern "C" int postprocess_()
{
    delete state();
    return 0;
}
