// Runs one chain, for profilers and for counting instructions:
//
//     bench_chain [--floor] MODULE MODULES TRACES
//                 [ATTRIBUTES [RESIDENT [SAMPLES [DELAY [READERS]]]]]
#include "Chain.h"
#include "FloorChain.h"

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv)
{
    using namespace bench;
    std::vector<std::string> words = prepare(argc, argv).rest;
    const bool floor = !words.empty() && words.front() == "--floor";
    if (floor)
        words.erase(words.begin());
    if (words.size() < 3)
        fail("usage: bench_chain [--floor] MODULE MODULES TRACES [ATTRIBUTES [RESIDENT [SAMPLES "
             "[DELAY [READERS]]]]]");

    const auto number = [&](std::size_t i, int otherwise) {
        return i < words.size() ? std::atoi(words[i].c_str()) : otherwise;
    };
    Chain chain;
    chain.module = words[0];
    chain.modules = number(1, 1);
    chain.traces = number(2, 1000);
    chain.attributes = number(3, chain.attributes);
    chain.resident = number(4, 0);
    chain.samples = number(5, chain.samples);
    chain.delay = number(6, 0);
    chain.readers = number(7, 0);
    FloorChain floorChain;
    floorChain.hops = chain.modules;
    floorChain.traces = chain.traces;
    floorChain.resident = chain.resident;
    floorChain.delay = chain.delay;
    floorChain.readers = chain.readers;
    floorChain.samples = chain.samples;

    const double seconds = floor ? run(floorChain) : run(chain).process;
    std::printf("%.6f s, %.1f ns per trace and module\n", seconds,
                seconds * 1e9 / std::max(1, chain.traces) / std::max(1, chain.modules));
    return 0;
}
