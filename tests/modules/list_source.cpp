// A source of jobs that are compared with a model of lists: `traces` traces with the numbers from
// `from`, or those of the list in `file`; none to five of them in a call,
// and none in the first `idle` calls. The last one is marked;
// where none is left to be marked, the output is.
#include "list_traces.h"

#include <random>

namespace {

struct State
{
    List list;
    std::size_t next = 0;
    bool bursts = false;
    int idle = 0; // calls that are left
    std::mt19937 numbers;
};

State* state()
{
    return static_cast<State*>(getModuleResource("state").getPointerValue());
}

} // namespace

extern "C" int preprocess_()
{
    auto* kept = new State;
    if (isModuleParameterPresent("file") != 0) {
        kept->list = readList(getModuleParameter("file").getStrValue());
    } else {
        const int from = listParameter("from", 1);
        for (int i = 0; i < listParameter("traces", 0); ++i)
            kept->list.push_back(listTrace(from + i));
    }
    setMetaDataValue(1, "origin", std::to_string(listParameter("from", 1)));
    kept->bursts = listParameter("bursts", 0) != 0;
    kept->idle = listParameter("idle", 0);
    kept->numbers.seed(static_cast<unsigned>(listParameter("seed", 1)));
    bldOutputTraceBuffer(0, listSamples, listInterval, nullptr);
    void* out = getOutputTraceBuffer(0);
    defineWords(out);
    informTotalTracesNumber(out, static_cast<long>(kept->list.size()));
    setModuleResource("state", UniVar(static_cast<void*>(kept)));
    return 0;
}

extern "C" int process_()
{
    State& kept = *state();
    if (kept.idle > 0) {
        --kept.idle;
        return 0;
    }
    void* out = getOutputTraceBuffer(0);
    int burst = kept.bursts ? static_cast<int>(kept.numbers() % 6) : 1;
    for (; burst > 0 && kept.next < kept.list.size(); --burst)
        writeTrace(kept.list[kept.next++], out);
    if (kept.next == kept.list.size())
        setDataChannelFlag(out, endOfData);
    return 0;
}

extern "C" int postprocess_()
{
    delete state();
    return 0;
}
