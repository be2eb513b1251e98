// What every benchmark program here shares: options, time, results as lines of JSON.
#ifndef BENCH_MEASURE_H
#define BENCH_MEASURE_H

#include <algorithm>
#include <limits>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace bench {

constexpr int samplesPerTrace = 1500;
constexpr int headerBytes = 240;
constexpr int manyTraces = 10000;

struct Options
{
    bool quick = false;    // fewer repetitions
    bool curves = false;   // how cost grows, in place of the measures
    std::string directory; // for files; empty: the system's for temporary ones
    int repetitions = 0;   // 0: as the program thinks fit
    std::vector<std::string> rest;
};

// Understands --quick, --curves, --directory DIR, --repetitions N; leaves the others in `rest`.
// Also sets the heap up: memory given back is kept by the process, so that no run pays for pages
// that an earlier one has returned to the system.
Options prepare(int argc, char** argv);

// Seconds of the monotonic clock.
double now();

template <typename Action>
double timeOf(Action action)
{
    const double start = now();
    action();
    return now() - start;
}

// The least of what was measured for one subject. The machine has other things to do; they make a
// run longer and never shorter.
class Least
{
public:
    void add(double value) { least = std::min(least, value); }
    double get() const { return least; }

private:
    double least = std::numeric_limits<double>::infinity();
};

// Slope and value at 0 of the straight line through points, by least squares.
struct Line
{
    double slope;
    double start;
};
Line lineThrough(const std::map<int, double>& points);

// Keeps the compiler from leaving out what makes the memory behind `address`.
inline void use(const void* address)
{
    asm volatile("" : : "r"(address) : "memory");
}

// Prints {"measure": ..., "value": ..., further numbers}.
void report(const std::string& measure, double value,
            const std::vector<std::pair<std::string, double>>& details = {});
// The same for a point of a curve.
void reportPoint(const std::string& curve, double x, double y);

// Ends the program: what was measured is not what was meant.
[[noreturn]] void fail(const std::string& reason);

} // namespace bench

#endif
