#include "Chain.h"

#include "DataChannel.h"
#include "JobManager.h"
#include "ModuleEntity.h"
#include "ScratchManager.h"
#include "SeisTraceSet.h"

extern "C" {
#include "bench_seen.h"
}

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace bench {
namespace {

constexpr int noPaging = 10000000;

int printProblem(int type, char*, const char* module, const char* text, void*)
{
    if (type >= 2)
        std::fprintf(stderr, "%s: %s\n", module, text);
    return 0;
}

ModuleEntity* load(const std::string& library)
{
    ModuleEntity* module =
        JobManager::getInstance()->initJobModule(library, "lib" + library + ".so");
    if (module == nullptr)
        fail("can not load " + library);
    return module;
}

DataChannel* outputOf(ModuleEntity* producer)
{
    auto* channel = new DataChannel; // the job deletes it when it ends
    producer->setOutputDataChannel(channel, 0);
    return channel;
}

std::string nameOf(int attribute)
{
    char name[16];
    std::snprintf(name, sizeof name, "attribute_%02d", attribute % 100);
    return name;
}

void define(JobManager* job, const Chain& chain)
{
    job->trAttDefsList.clear();
    for (int i = 0; i < chain.attributes; ++i)
        job->addTraceAttributeDefinition(nameOf(i), 2, 1, "", 0, 0, 0, 0, 0);
    const int rest = chain.header - 4 * chain.attributes;
    if (rest < 1)
        fail("the header is too short for its attributes");
    job->addTraceAttributeDefinition("fill", 1, rest, "", 0, 0, 0, 0, 0);
}

// Traces of the host, resident and touched.
class Residents
{
public:
    explicit Residents(const Chain& chain)
    {
        set.configureByTemplate(chain.samples, 2000, nullptr);
        set.currentHeaderSize = chain.header;
        for (int i = 0; i < chain.resident; ++i)
            set.getTrace(i, true);
    }
    ~Residents()
    {
        while (set.getNumberOfTraces() > 0)
            set.removeTrace(set.getNumberOfTraces() - 1);
    }

private:
    SeisTraceSet set;
};

int sinksOf(const Chain& chain)
{
    return chain.readers > 0 ? chain.readers : chain.sinks;
}

// The channels of the readers behind a tee, and the one by which it ends.
std::vector<DataChannel*> outputsOfTee(ModuleEntity* producer, int readers)
{
    ModuleEntity* tee = load("tee");
    tee->setInputDataChannel(outputOf(producer), 0);
    std::vector<DataChannel*> channels;
    for (int i = 0; i < readers; ++i)
        channels.push_back(outputOf(tee));
    outputOf(tee);
    return channels;
}

double expectedSum(const Chain& chain)
{
    double sum = 0;
    for (int i = 0; i < chain.traces; ++i)
        sum += i & 1023;
    return sum * sinksOf(chain);
}

} // namespace

ChainTimes run(const Chain& chain)
{
    setenv("VORN_HOME", VORN_BENCH_HOME, 0);
    ScratchManager::getInstance();
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = noPaging;

    JobManager* job = JobManager::getInstance();
    job->installMessageFunc(printProblem, nullptr, nullptr);
    define(job, chain);
    const Residents residents(chain);

    double lastMade = 0;
    bench_seen seen{};
    ModuleEntity* module = load("bench_source");
    module->setParameter("TRACES", UniVar(chain.traces));
    module->setParameter("SAMPLES", UniVar(chain.samples));
    module->setParameter("ATTRIBUTES", UniVar(chain.attributes));
    module->setParameter("BATCH", UniVar(chain.batch));
    module->setResource("CLOCK", UniVar(static_cast<void*>(&lastMade)));
    for (int i = 0; i < chain.modules; ++i) {
        if (chain.delay > 0) {
            ModuleEntity* delay = load("bench_delay");
            delay->setInputDataChannel(outputOf(module), 0);
            delay->setParameter("DELAY", UniVar(chain.delay));
            module = delay;
        }
        ModuleEntity* next = load(chain.module);
        next->setInputDataChannel(outputOf(module), 0);
        module = next;
    }
    const int sinks = sinksOf(chain);
    const std::vector<DataChannel*> ends =
        chain.readers > 0
            ? outputsOfTee(module, chain.readers)
            : std::vector<DataChannel*>(static_cast<std::size_t>(sinks), outputOf(module));
    for (DataChannel* end : ends) {
        ModuleEntity* sink = load("bench_sink");
        sink->setInputDataChannel(end, 0);
        sink->setParameter("ATTRIBUTES", UniVar(chain.attributes));
        sink->setParameter("BATCH", UniVar(sinks == 1 ? chain.batch : 0));
        sink->setResource("SEEN", UniVar(static_cast<void*>(&seen)));
    }

    job->preProcessJob();
    const double start = now();
    job->processJob();
    const double end = now();
    job->postProcessJob();
    job->activeModule = nullptr; // the processing phase leaves the last module there

    if (seen.traces != static_cast<long>(chain.traces) * sinks || seen.sum != expectedSum(chain) ||
        seen.wrong != 0)
        fail(chain.module + ": traces are lost or changed");
    return {end - start, end - lastMade};
}

} // namespace bench
