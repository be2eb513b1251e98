// How often modules' calls and traces on their way go to the heap, and what a resident trace takes
// of it. The program counts by standing in for the heap's functions.
#include "Chain.h"

#include "DataChannel.h"
#include "JobManager.h"
#include "ModuleEntity.h"
#include "ScratchManager.h"
#include "SeisTraceSet.h"

extern "C" {
#include "knl.h"
}

#include <cstddef>
#include <malloc.h>

extern "C" {

void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

static long allocations = 0;

// In place of those of the C library, also for the kernel and for operator new.
__attribute__((visibility("default"))) void* malloc(std::size_t size)
{
    ++allocations;
    return __libc_malloc(size);
}

__attribute__((visibility("default"))) void* calloc(std::size_t count, std::size_t size)
{
    ++allocations;
    return __libc_calloc(count, size);
}

__attribute__((visibility("default"))) void* realloc(void* block, std::size_t size)
{
    ++allocations;
    return __libc_realloc(block, size);
}

} // extern "C"

namespace {

using namespace bench;

long allocationsOf(const Chain& chain)
{
    const long before = allocations;
    run(chain);
    return allocations - before;
}

// Allocations per trace and module: of what a longer chain and more traces add, so that building
// the job does not count.
double allocationsPerHop(const std::string& module, int attributes)
{
    const auto count = [&](int modules, int traces) {
        Chain chain;
        chain.module = module;
        chain.attributes = attributes;
        chain.modules = modules;
        chain.traces = traces;
        return allocationsOf(chain);
    };
    const int few = 1000;
    const int more = 3000;
    const long ofOne = count(1, more) - count(1, few);
    const long ofFive = count(5, more) - count(5, few);
    return static_cast<double>(ofFive - ofOne) / 4 / (more - few);
}

template <typename Call>
double allocationsPerCall(Call call)
{
    const int calls = 1000;
    const long before = allocations;
    for (int i = 0; i < calls; ++i)
        call();
    return static_cast<double>(allocations - before) / calls;
}

void countCalls()
{
    ModuleEntity module("bench");
    SeisTraceSet set;
    set.setTraceLength(samplesPerTrace);
    set.defineAttribute("attribute_00");
    module.setParameter("parameter_00", UniVar(1));
    JobManager::getInstance()->setActiveModule(&module);
    int value = 0;
    knl_setI32TraceAttribute(&set, "attribute_00", 1);
    report("heap.get",
           allocationsPerCall([&] { knl_getI32TraceAttribute(&set, "attribute_00", &value); }));
    report("heap.set",
           allocationsPerCall([&] { knl_setI32TraceAttribute(&set, "attribute_00", 1); }));
    report("heap.parameter",
           allocationsPerCall([&] { knl_getI32ModuleParameter("parameter_00", &value); }));
    JobManager::getInstance()->setActiveModule(nullptr);
    set.removeTrace(0);
}

double bytesInUse()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks) + static_cast<double>(info.hblkhd);
}

// Traces of a channel with one consumer, as they wait for a module.
double bytesPerTrace(int count)
{
    ModuleEntity consumer("bench");
    double bytes = 0;
    {
        DataChannel channel;
        channel.setTraceLength(samplesPerTrace);
        channel.currentHeaderSize = headerBytes;
        channel.attachOutputModule(&consumer);
        const double before = bytesInUse();
        for (int i = 0; i < count; ++i)
            channel.getTrace(i, true);
        bytes = (bytesInUse() - before) / count;
        while (channel.getNumberOfTraces() > 0)
            channel.removeInputTrace(&consumer, 0);
    }
    return bytes - samplesPerTrace * static_cast<double>(sizeof(float)) - headerBytes;
}

} // namespace

int main(int argc, char** argv)
{
    const Options options = prepare(argc, argv);
    ScratchManager::getInstance();
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = 10000000;
    const long before = allocations;
    use(new int);
    if (allocations == before)
        fail("the heap's functions are not counted");

    // Tables grow by doubling, so that it matters how many traces there are: the worst counts.
    double most = 0;
    for (int count = manyTraces; count < 2 * manyTraces; count += manyTraces / 8) {
        const double bytes = bytesPerTrace(count);
        if (options.curves)
            reportPoint("memory", count, bytes);
        most = std::max(most, bytes);
    }
    if (options.curves)
        return 0;
    report("memory", most, {{"of10000_bytes", bytesPerTrace(manyTraces)}});
    report("heap.hop", allocationsPerHop("bench_copy", 20) - 2);
    report("heap.hop_named", allocationsPerHop("bench_named", 3) - 2);
    report("heap.hop_moved", allocationsPerHop("bench_move", 3));
    countCalls();
    return 0;
}
