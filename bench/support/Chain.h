// Jobs of a source, a row of equal modules and one sink or more, run by the kernel.
#ifndef BENCH_CHAIN_H
#define BENCH_CHAIN_H

#include "Measure.h"

#include <string>

namespace bench {

struct Chain
{
    std::string module = "bench_copy"; // the modules between source and sink
    int modules = 0;
    int traces = 0;
    int attributes = 3;
    int batch = 1;    // traces that the source makes in one call
    int resident = 0; // further traces that are in memory while the job runs
    int delay = 0;    // traces kept back in front of each module, by one more module
    int sinks = 1;    // consumers of the last channel
    int readers = 0;  // instead: sinks behind a tee, each with a channel to itself
    int samples = samplesPerTrace;
    int header = headerBytes; // at least 4 for each attribute, and 1
};

struct ChainTimes
{
    double process; // seconds of the processing phase
    double drain;   // of them, those after the source has made its last trace
};

// Runs the job and looks whether every trace has arrived.
ChainTimes run(const Chain& chain);

} // namespace bench

#endif
