// A host: builds the job source -> filter -> sink, runs it, and prints what the kernel reports.
// Run it with VORN_HOME set to the folder whose lib has the three module libraries.
#include "DataChannel.h"
#include "JobManager.h"
#include "JobOutcome.h"
#include "ModuleEntity.h"

#include <cstdio>

namespace {

int printMessage(int, char* time, const char* module, const char* text, void*)
{
    return std::printf("%8s  %-7s %s\n", time, module, text);
}

// Statistics are sent often; only the last record of the job is printed.
int keepStatistic(jobStatisticStruct* statistic, void* last)
{
    *static_cast<jobStatisticStruct*>(last) = *statistic;
    return 0;
}

void printRow(const modStatisticStruct& row)
{
    std::printf("%-10s %10d %10d %10d %10d\n", row.modName, row.inp_traces, row.out_traces,
                row.total_time, row.mem_used);
}

void connect(ModuleEntity* producer, ModuleEntity* consumer)
{
    DataChannel* channel = new DataChannel; // the job deletes it when it ends
    producer->setOutputDataChannel(channel, 0);
    consumer->setInputDataChannel(channel, 0);
}

} // namespace

int main()
{
    JobManager* job = JobManager::getInstance();
    jobStatisticStruct statistic{};
    job->resetJob();            // whatever the process has run before
    job->setReleaseAtEnd(true); // this host keeps no traces beyond the job
    job->installMessageFunc(printMessage, nullptr, nullptr);
    job->installStatisticFunc(keepStatistic, &statistic);
    job->setJobName("example");
    job->addTraceAttributeDefinition("tracl", 2, 1, "trace number in the line", 0, 0, 0, 0, 0);
    job->addTraceAttributeDefinition("offset", 2, 1, "metres from the source", 0, 0, 0, 0, 0);

    ModuleEntity* source = job->initJobModule("source", "libsource.so");
    ModuleEntity* filter = job->initJobModule("filter", "libfilter.so");
    ModuleEntity* sink = job->initJobModule("sink", "libsink.so");
    if (source == nullptr || filter == nullptr || sink == nullptr)
        return 1; // a message has given the reason
    source->setParameter("TRACES", UniVar(5));
    filter->setParameter("WINDOW", UniVar(5));
    connect(source, filter);
    connect(filter, sink);

    // Modules report failures by messages; the results of the phases do not tell of them.
    job->preProcessJob();
    job->processJob();
    job->postProcessJob();
    const JobOutcome outcome = job->jobOutcome();
    if (outcome.end != JobEnd::done) {
        std::printf("%s: %s\n", outcome.module.c_str(), outcome.text.c_str());
        return 1;
    }

    std::printf("\n%-10s %10s %10s %10s %10s\n", "module", "traces in", "traces out", "seconds",
                "bytes");
    for (int i = 0; i < statistic.numMod; ++i)
        printRow(statistic.modStatistics[i]);
    printRow(statistic.jobStatistics);
    return 0;
}
