// The end of jobs that are compared with a model of lists: notes every trace in its metadata, as
// "number:value".
#include "../support/list_model.h"
#include "MOXKernel.h"

#include <string>

namespace {

struct State
{
    std::string text;
};

State* state()
{
    return static_cast<State*>(getModuleResource("state").getPointerValue());
}

} // namespace

extern "C" int preprocess_()
{
    setModuleResource("state", UniVar(static_cast<void*>(new State)));
    return 0;
}

extern "C" int process_()
{
    void* in = getInputTraceBuffer(0);
    const int id = getTraceAttribute(in, "tracl", 0).getI32Value();
    const int value =
        readValue(getTraceSamples(in, 0), getTraceAttribute(in, "cdp", 0).getI32Value(), id);
    state()->text += std::to_string(id) + ":" + std::to_string(value) + " ";
    return 0;
}

extern "C" int postprocess_()
{
    setMetaDataValue(1, "list", state()->text);
    delete state();
    return 0;
}
