#include "FloorChain.h"

#include <cstdlib>
#include <cstring>
#include <deque>

namespace bench {
namespace {

struct Trace
{
    float* samples;
    unsigned char* header;
};

std::size_t sampleBytes;
std::size_t headerSize;
std::vector<float> pattern; // the samples of every trace, but for the first one
std::vector<float> room;    // where the sink copies them
double sum;

// malloc and memset apart: that is quicker than calloc, which the compiler would make of the two,
// because calloc goes past the heap's lists of blocks just freed.
void* zeroedBlock(std::size_t bytes)
{
    void* block = std::malloc(bytes);
    use(block);
    std::memset(block, 0, bytes);
    use(block);
    return block;
}

Trace zeroedTrace()
{
    auto* samples = static_cast<float*>(zeroedBlock(sampleBytes));
    return {samples, static_cast<unsigned char*>(zeroedBlock(headerSize))};
}

void release(const Trace& trace)
{
    std::free(trace.header);
    std::free(trace.samples);
}

void make(Trace& trace, int number)
{
    trace = zeroedTrace();
    pattern[0] = static_cast<float>(number & 1023);
    std::memcpy(trace.samples, pattern.data(), sampleBytes);
    std::memcpy(trace.header, &number, sizeof number);
}

void hop(Trace& trace, int)
{
    const Trace copy = zeroedTrace();
    std::memcpy(copy.samples, trace.samples, sampleBytes);
    std::memcpy(copy.header, trace.header, headerSize);
    release(trace);
    trace = copy;
}

void takeUp(Trace& trace, int)
{
    std::memcpy(room.data(), trace.samples, sampleBytes);
    use(room.data());
    sum += room[0];
    release(trace);
}

using Step = void (*)(Trace&, int);
Step volatile makeStep = make; // volatile: a call through a pointer, whatever the compiler sees
Step volatile hopStep = hop;
Step volatile takeUpStep = takeUp;

} // namespace

double run(const FloorChain& chain)
{
    sampleBytes = static_cast<std::size_t>(chain.samples) * sizeof(float);
    headerSize = static_cast<std::size_t>(chain.header);
    pattern.resize(static_cast<std::size_t>(chain.samples));
    room.resize(pattern.size());
    std::vector<Trace> residents(static_cast<std::size_t>(chain.resident));
    for (Trace& trace : residents)
        trace = zeroedTrace();

    std::deque<Trace> queue;
    const double start = now();
    for (int made = 0; made < chain.traces;) {
        for (int i = 0; i < chain.batch && made < chain.traces; ++i)
            makeStep(queue.emplace_back(), made++);
        for (; !queue.empty(); queue.pop_front()) {
            for (int i = 0; i < chain.hops; ++i)
                hopStep(queue.front(), i);
            takeUpStep(queue.front(), 0);
        }
    }
    const double seconds = now() - start;

    for (const Trace& trace : residents)
        release(trace);
    return seconds;
}

} // namespace bench
