// What it costs to take the traces out of a channel that two consumers read, with few and with many
// queued: a source makes all of them in one call, and two sinks use them up.
#include "Chain.h"

namespace {

using namespace bench;

// Short traces, so that what is compared is the queue. With long ones the heap's share would hide
// it, and the many would not fit into small machines.
Chain drainOf(int traces)
{
    Chain chain;
    chain.traces = traces;
    chain.batch = traces;
    chain.sinks = 2;
    chain.samples = 1;
    chain.attributes = 1;
    chain.header = 8;
    return chain;
}

double timePerTrace(int traces, int runs)
{
    double seconds = 0;
    for (int i = 0; i < runs; ++i)
        seconds += run(drainOf(traces)).drain;
    return seconds / runs / traces;
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = prepare(argc, argv);
    const int repetitions = options.repetitions > 0 ? options.repetitions : options.quick ? 5 : 11;
    const std::vector<int> counts = options.curves ? std::vector<int>{20, 200, 2000, 20000, 200000}
                                                   : std::vector<int>{2000, 200000};
    std::map<int, Least> times;
    for (int i = 0; i < repetitions; ++i) {
        for (const int count : counts)
            times[count].add(timePerTrace(count, count < 20000 ? 5 : 1));
    }
    if (options.curves) {
        for (const auto& [count, time] : times)
            reportPoint("drain", count, time.get() * 1e9);
    } else {
        report(
            "drain.growth", times[200000].get() / times[2000].get(),
            {{"of200000_ns", times[200000].get() * 1e9}, {"of2000_ns", times[2000].get() * 1e9}});
    }
    return 0;
}
