/* What the sink of a benchmark job has seen, for its host. */
#ifndef BENCH_SEEN_H
#define BENCH_SEEN_H

struct bench_seen
{
    long traces;
    long wrong; /* headers that do not belong to their samples, among those looked at */
    double sum; /* of all first samples */
};

#endif
