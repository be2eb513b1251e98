// What a trace costs on its way from module to module, beside the floor.
//
// A hop is the slope of a line: time per trace of a chain source -> K modules -> sink over K. The
// fixed cost is that of a chain without modules in between. One more reader of an output is the
// slope over the number of readers behind a tee, each of them a sink. Kernel and floor take turns,
// and of each the shortest run of each length counts.
#include "Chain.h"
#include "FloorChain.h"

namespace {

using namespace bench;

#ifdef VORN_BENCH_TEE
constexpr bool hasTee = true;
#else
constexpr bool hasTee = false; // built without the processing modules
#endif
const std::vector<int> lengths = {1, 2, 4, 8};
const std::vector<int> delayedLengths = {1, 2, 3}; // each takes the memory of another backlog

class Comparison
{
public:
    explicit Comparison(const Chain& ofKernel) : kernel(ofKernel)
    {
        floor.batch = kernel.batch;
        floor.resident = kernel.resident;
        floor.delay = kernel.delay;
    }

    // From now on lengths are numbers of readers behind a tee.
    void countReaders() { ofReaders = true; }

    // One run of either side for each length; `work` is the number of hops of a run.
    void runOnce(const std::vector<int>& chainLengths, int work)
    {
        for (const int length : chainLengths) {
            const int traces = kernel.delay > 0   ? 6 * kernel.delay
                               : kernel.batch > 1 ? kernel.batch
                                                  : std::max(work / std::max(length, 1), 200);
            (ofReaders ? floor.readers : floor.hops) = length;
            (ofReaders ? kernel.readers : kernel.modules) = length;
            floor.traces = kernel.traces = traces;
            floorTimes[length].add(run(floor) / traces);
            kernelTimes[length].add(run(kernel).process / traces);
        }
    }

    Line kernelLine() const { return lineThrough(points(kernelTimes)); }
    Line floorLine() const { return lineThrough(points(floorTimes)); }
    double kernelTime(int length) const { return kernelTimes.at(length).get(); }
    double floorTime(int length) const { return floorTimes.at(length).get(); }

private:
    static std::map<int, double> points(const std::map<int, Least>& times)
    {
        std::map<int, double> least;
        for (const auto& [length, time] : times)
            least[length] = time.get();
        return least;
    }

    Chain kernel;
    FloorChain floor;
    bool ofReaders = false;
    std::map<int, Least> kernelTimes; // seconds per trace, by length
    std::map<int, Least> floorTimes;
};

Chain chainOf(const std::string& module, int attributes)
{
    Chain chain;
    chain.module = module;
    chain.attributes = attributes;
    return chain;
}

Chain withResident(Chain chain, int traces)
{
    chain.resident = traces;
    return chain;
}

Chain delayed(Chain chain, int traces)
{
    chain.delay = traces;
    return chain;
}

Chain queued(Chain chain, int traces)
{
    chain.batch = traces;
    return chain;
}

void reportRatio(const std::string& measure, double kernel, double floor)
{
    report(measure, kernel / floor, {{"kernel_ns", kernel * 1e9}, {"floor_ns", floor * 1e9}});
}

void measure(const Options& options)
{
    const int repetitions = options.repetitions > 0 ? options.repetitions : options.quick ? 7 : 25;
    const int work = 6000;
    const Chain copied = chainOf("bench_copy", 3);
    std::vector<std::pair<std::string, Comparison>> hops = {
        {"hop.copied3", Comparison(copied)},
        {"hop.named3", Comparison(chainOf("bench_named", 3))},
        {"hop.copied20", Comparison(chainOf("bench_copy", 20))},
        {"hop.moved", Comparison(chainOf("bench_move", 3))},
        {"hop.resident", Comparison(withResident(copied, manyTraces))},
        {"hop.queued", Comparison(queued(copied, manyTraces))}};
    Comparison passing(delayed(copied, manyTraces));
    Comparison fixed(copied);
    Comparison readers(copied);
    readers.countReaders();
    Comparison sizes(copied);
    for (int i = 0; i < repetitions; ++i) {
        for (auto& [name, comparison] : hops) {
            const bool slow = name == "hop.resident" || name == "hop.queued";
            if (!slow || i % 3 == 0)
                comparison.runOnce(lengths, work);
        }
        // Long runs, to which filling the backlogs adds little.
        if (i < (options.quick ? 2 : 7))
            passing.runOnce(delayedLengths, 0);
        fixed.runOnce({0}, work);
        if (hasTee)
            readers.runOnce(lengths, work);
        sizes.runOnce({0, 2, 50}, work);
    }

    for (const auto& [name, comparison] : hops)
        reportRatio(name, comparison.kernelLine().slope, comparison.floorLine().slope);
    reportRatio("hop.passing", passing.kernelLine().slope, passing.floorLine().slope);
    const double alone = hops.front().second.kernelLine().slope;
    for (const auto& [name, comparison] : hops) {
        if (name == "hop.resident" || name == "hop.queued")
            report(name + "_growth", comparison.kernelLine().slope / alone);
    }
    reportRatio("hop.fixed", fixed.kernelTime(0), fixed.floorTime(0));
    if (hasTee)
        reportRatio("hop.readers", readers.kernelLine().slope, readers.floorLine().slope);
    const double ofTwo = (sizes.kernelTime(2) - sizes.kernelTime(0)) / 2;
    const double ofFifty = (sizes.kernelTime(50) - sizes.kernelTime(0)) / 50;
    report("hop.modules", ofFifty / ofTwo, {{"of50_ns", ofFifty * 1e9}, {"of2_ns", ofTwo * 1e9}});
}

void drawCurve(const std::string& curve, double x, const Chain& chain, int repetitions)
{
    Comparison comparison(chain);
    for (int i = 0; i < repetitions; ++i)
        comparison.runOnce(lengths, 6000);
    reportPoint(curve + ".kernel", x, comparison.kernelLine().slope * 1e9);
    reportPoint(curve + ".floor", x, comparison.floorLine().slope * 1e9);
}

void drawCurves(const Options& options)
{
    const int repetitions = options.repetitions > 0 ? options.repetitions : options.quick ? 3 : 9;
    for (const int attributes : {1, 2, 5, 10, 20, 40, 59})
        drawCurve("attributes", attributes, chainOf("bench_copy", attributes), repetitions);
    for (const int traces : {1, 10, 100, 1000, 10000, 100000})
        drawCurve("traces", traces, withResident(chainOf("bench_copy", 3), traces), repetitions);

    Comparison comparison(chainOf("bench_copy", 3));
    const std::vector<int> modules = {1, 2, 5, 10, 20, 50, 100, 200};
    for (int i = 0; i < repetitions; ++i) {
        comparison.runOnce({0}, 6000);
        comparison.runOnce(modules, 6000);
    }
    for (const int n : modules) {
        const auto perHop = [n](double time, double fixed) { return (time - fixed) / n * 1e9; };
        reportPoint("modules.kernel", n,
                    perHop(comparison.kernelTime(n), comparison.kernelTime(0)));
        reportPoint("modules.floor", n, perHop(comparison.floorTime(n), comparison.floorTime(0)));
    }
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = prepare(argc, argv);
    if (options.curves)
        drawCurves(options);
    else
        measure(options);
    return 0;
}
