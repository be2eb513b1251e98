/// @file TraceVerbs.h
///
/// What the tests of traces, sets, channels and the scratch file share.
#ifndef TRACEVERBS_H
#define TRACEVERBS_H

#include "FileSizeLimit.h"
#include "SeisTrace.h"

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

using OwnedTrace = std::unique_ptr<SeisTrace>;

inline OwnedTrace ownedTrace(int samples, int headerSize = 0)
{
    return std::make_unique<SeisTrace>(samples, headerSize);
}

/// A set or channel that ends with its traces; a plain one leaves them to others.
template <typename Set>
class Owning : public Set
{
public:
    ~Owning() override
    {
        for (SeisTrace* trace : this->traces)
            delete trace;
    }
};

/// An attribute's place, resolved by hand.
inline traceAttIdent identAt(traceAttVarType type, int offset, int size, int dim = 1)
{
    traceAttIdent ident;
    ident.type = type;
    ident.offset = offset;
    ident.dim = dim;
    ident.size = size;
    return ident;
}

/// Fills header and samples with a pattern that no other `seed` gives.
inline void fill(SeisTrace& trace, int seed)
{
    for (int i = 0; i < trace.traceHeaderSize; ++i)
        trace.traceHeader[i] = static_cast<unsigned char>(seed * 31 + i * 7 + 1);
    for (int i = 0; i < trace.traceLength; ++i)
        trace.traceSamples[i] = static_cast<float>(seed * 1000 + i);
}

/// The first place where a resident trace differs from what `fill` left; empty when it does not.
inline std::string differsFromFill(const SeisTrace& trace, int seed)
{
    if (trace.traceHeader == nullptr || trace.traceSamples == nullptr)
        return "not resident";
    for (int i = 0; i < trace.traceHeaderSize; ++i) {
        if (trace.traceHeader[i] != static_cast<unsigned char>(seed * 31 + i * 7 + 1))
            return "header byte " + std::to_string(i);
    }
    for (int i = 0; i < trace.traceLength; ++i) {
        if (trace.traceSamples[i] != static_cast<float>(seed * 1000 + i))
            return "sample " + std::to_string(i);
    }
    return std::string();
}

inline bool isResident(const SeisTrace& trace)
{
    return trace.traceSamples != nullptr && trace.traceHeader != nullptr;
}

/// Seconds of processor time that the fastest of some runs of `work` takes. `prepare` goes before
/// each and is not counted.
template <typename Prepare, typename Work>
double fastestRun(Prepare prepare, Work work)
{
    constexpr int runs = 3;
    double fastest = std::numeric_limits<double>::max();
    for (int run = 0; run < runs; ++run) {
        prepare();
        const std::clock_t start = std::clock();
        work();
        const std::clock_t ticks = std::max<std::clock_t>(std::clock() - start, 1);
        fastest = std::min(fastest, static_cast<double>(ticks) / CLOCKS_PER_SEC);
    }
    return fastest;
}

/// How much dearer one step may be among many traces than among a hundredth of them. Memory further
/// away costs a few times as much; a search among them would cost a hundred times.
constexpr double flatCost = 12;

/// Random choices of the tests against models; the seed goes into every message.
class Dice
{
public:
    explicit Dice(unsigned seed) : numbers(seed) {}

    /// From 0 to `n` - 1.
    int below(int n) { return static_cast<int>(numbers() % static_cast<unsigned>(n)); }
    int between(int low, int high) { return low + below(high - low + 1); }
    bool oneIn(int n) { return below(n) == 0; }
    template <typename Container>
    auto& pick(Container& all)
    {
        return all[static_cast<std::size_t>(below(static_cast<int>(all.size())))];
    }

private:
    std::mt19937 numbers;
};

#endif
