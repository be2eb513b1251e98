#include "FloorChain.h"

#include <cstdlib>
#include <cstring>
#include <deque>
#include <utility>
#include <vector>

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
std::vector<Trace> shared; // by reader, all but the last

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

// A copy for one more reader, who takes it up later.
void share(Trace& trace, int reader)
{
    Trace& copy = shared[static_cast<std::size_t>(reader)];
    copy = zeroedTrace();
    std::memcpy(copy.samples, trace.samples, sampleBytes);
    std::memcpy(copy.header, trace.header, headerSize);
}

void takeUp(Trace& trace, int)
{
    std::memcpy(room.data(), trace.samples, sampleBytes);
    use(room.data());
    sum += room[0];
    release(trace);
}

// Traces that are kept back, the oldest at `oldest` once all places are taken.
struct Delay
{
    std::vector<Trace> kept;
    std::size_t oldest = 0;
};

std::vector<Delay> delays; // by hop
std::size_t mostKept;

// Puts the oldest trace in place of `trace`, which is kept; false while there is room for more.
bool delay(Trace& trace, int hopNo)
{
    Delay& here = delays[static_cast<std::size_t>(hopNo)];
    if (here.kept.size() < mostKept) {
        here.kept.push_back(trace);
        return false;
    }
    std::swap(trace, here.kept[here.oldest]);
    here.oldest = (here.oldest + 1) % mostKept;
    return true;
}

using Step = void (*)(Trace&, int);
Step volatile makeStep = make; // volatile: a call through a pointer, whatever the compiler sees
Step volatile hopStep = hop;
Step volatile shareStep = share;
Step volatile takeUpStep = takeUp;
bool (*volatile delayStep)(Trace&, int) = delay;

void pass(Trace& trace, int firstHop, int hops)
{
    for (int i = firstHop; i < hops; ++i) {
        if (mostKept > 0 && !delayStep(trace, i))
            return;
        hopStep(trace, i);
    }
    for (std::size_t i = 0; i < shared.size(); ++i)
        shareStep(trace, static_cast<int>(i));
    for (Trace& copy : shared)
        takeUpStep(copy, 0);
    takeUpStep(trace, 0);
}

// What is kept back at the end, first by the first hop.
void passKept(int hops)
{
    for (int i = 0; i < hops; ++i) {
        Delay& here = delays[static_cast<std::size_t>(i)];
        for (std::size_t k = 0; k < here.kept.size(); ++k) {
            Trace trace = here.kept[(here.oldest + k) % here.kept.size()];
            hopStep(trace, i);
            pass(trace, i + 1, hops);
        }
    }
}

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

    shared.resize(static_cast<std::size_t>(chain.readers - 1));
    mostKept = static_cast<std::size_t>(chain.delay);
    delays.assign(mostKept > 0 ? static_cast<std::size_t>(chain.hops) : 0, Delay());

    std::deque<Trace> queue;
    const double start = now();
    for (int made = 0; made < chain.traces;) {
        for (int i = 0; i < chain.batch && made < chain.traces; ++i)
            makeStep(queue.emplace_back(), made++);
        for (; !queue.empty(); queue.pop_front())
            pass(queue.front(), 0, chain.hops);
    }
    if (mostKept > 0)
        passKept(chain.hops);
    const double seconds = now() - start;

    for (const Trace& trace : residents)
        release(trace);
    return seconds;
}

} // namespace bench
