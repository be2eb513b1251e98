// What a chain of modules costs at least: a program that does with traces what has to be done, and
// nothing else.
#ifndef BENCH_FLOORCHAIN_H
#define BENCH_FLOORCHAIN_H

#include "Measure.h"

namespace bench {

// A hop takes two zeroed blocks from the heap, copies samples and header, frees the input's blocks
// and is one call through a function pointer. Source and sink are a call each, too; the one takes
// two blocks and copies samples in, the other copies them out and frees the blocks.
struct FloorChain
{
    int hops = 0;
    int traces = 0;
    int batch = 1;    // traces that the source makes before the first hop
    int resident = 0; // further traces in memory
    int readers = 1;  // all but the last take a copy of the trace
    int delay = 0;    // traces kept back in front of each hop, by one more call
    int samples = samplesPerTrace;
    int header = headerBytes;
};

// Seconds, for all traces.
double run(const FloorChain& chain);

} // namespace bench

#endif
