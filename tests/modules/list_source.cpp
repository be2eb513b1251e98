// A source of jobs that are compared with a model of lists: `traces` traces with the numbers from
// `from`, none to five of them in a call. The last one is marked; where none is left to be marked,
// the output is.
#include "../support/list_model.h"
#include "MOXKernel.h"

#include <random>

namespace {

constexpr int endOfData = 3;

struct State
{
    int left;
    int next;
    bool bursts;
    std::mt19937 numbers;
};

State* state()
{
    return static_cast<State*>(getModuleResource("state").getPointerValue());
}

} // namespace

extern "C" int preprocess_()
{
    const auto number = [](const char* name) { return getModuleParameter(name).getI32Value(); };
    auto* kept = new State{number("traces"), number("from"), number("bursts") != 0,
                           std::mt19937(static_cast<unsigned>(number("seed")))};
    void* out = bldOutputTraceBuffer(0, listSamples, 2000, nullptr);
    out = getOutputTraceBuffer(0);
    defineTraceAttribute(out, "tracl");
    defineTraceAttribute(out, "cdp");
    informTotalTracesNumber(out, kept->left);
    setModuleResource("state", UniVar(static_cast<void*>(kept)));
    return 0;
}

extern "C" int process_()
{
    State& kept = *state();
    void* out = getOutputTraceBuffer(0);
    int burst = kept.bursts ? static_cast<int>(kept.numbers() % 6) : 1;
    for (; burst > 0 && kept.left > 0; --burst, --kept.left, ++kept.next) {
        const int place = getNumberOfTraces(out);
        setTraceAttribute(out, "tracl", UniVar(kept.next), place);
        setTraceAttribute(out, "cdp", UniVar(listCheck(kept.next)), place);
        writeValue(kept.next % 4096, getTraceSamples(out, place));
    }
    if (kept.left == 0)
        setDataChannelFlag(out, endOfData);
    return 0;
}

extern "C" int postprocess_()
{
    delete state();
    return 0;
}
