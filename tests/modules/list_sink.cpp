// The end of jobs that are compared with a model of lists: notes every trace in its metadata, as
// "number:first sample" under "list" and whole, as listText() has it, under "traces"; under
// "nearest" what it finds as "origin" while traces flow. With `file`, the traces are written there.
#include "list_traces.h"

#include <string>

namespace {

struct State
{
    std::string list;
    std::string traces;
    std::string nearest;
    std::FILE* file = nullptr;
};

State* state()
{
    return static_cast<State*>(getModuleResource("state").getPointerValue());
}

} // namespace

extern "C" int preprocess_()
{
    auto* kept = new State;
    if (isModuleParameterPresent("file") != 0)
        kept->file = std::fopen(getModuleParameter("file").getStrValue().c_str(), "wb");
    setModuleResource("state", UniVar(static_cast<void*>(kept)));
    return 0;
}

extern "C" int process_()
{
    State& kept = *state();
    const ListTrace trace = readTrace(getInputTraceBuffer(0));
    if (kept.list.empty())
        kept.nearest = getMetaDataValue(1, "origin").getStrValue();
    kept.list +=
        std::to_string(trace.id) + ":" + std::to_string(static_cast<int>(trace.samples[0])) + " ";
    kept.traces += listText(trace);
    if (kept.file != nullptr)
        appendTrace(kept.file, trace);
    return 0;
}

extern "C" int postprocess_()
{
    State* kept = state();
    setMetaDataValue(1, "list", kept->list);
    setMetaDataValue(1, "traces", kept->traces);
    setMetaDataValue(1, "nearest", kept->nearest);
    if (kept->file != nullptr)
        std::fclose(kept->file);
    delete kept;
    return 0;
}
