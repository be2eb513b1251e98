// The statistics record: one row per module and one for the job, in the coarse whole numbers that
// hosts expect.
#include "JobManager.h"

#include "ModuleEntity.h"
#include "private/wrapping.h"

#include <algorithm>
#include <cstring>

namespace {

void add(int& sum, int value)
{
    sum = wrapping::sum(sum, value);
}

int percent(int part, int whole)
{
    if (whole <= 0)
        return -1;
    return wrapping::product(part, 100) / whole;
}

int averageTime(int seconds, int tracesOut, int tracesIn)
{
    if (tracesOut > 0)
        return seconds / tracesOut;
    if (tracesIn > 0)
        return seconds / tracesIn;
    return 0;
}

int positiveOr(int value, int otherwise)
{
    return value > 0 ? value : otherwise;
}

template <std::size_t N>
void copyText(char (&field)[N], const std::string& text, std::size_t most)
{
    std::memcpy(field, text.data(), std::min(text.size(), most));
}

modStatisticStruct rowOf(const ModuleEntity& module, int place)
{
    modStatisticStruct row{};
    row.ident = place + 1;
    copyText(row.modName, module.getName(), sizeof row.modName - 1);
    row.inp_traces = module.getInputTracesProcessed();
    row.out_traces = module.getOutputTracesProcessed();
    row.total_time = module.getTotalModuleWorkTime();
    row.avg_time = averageTime(row.total_time, row.out_traces, row.inp_traces);
    row.mem_used = module.getTotalModuleMemoryUsed();
    row.progress = percent(row.out_traces, module.getTotalOutputTraces());
    return row;
}

// The job's input is counted where traces leave it and its output where they enter it, so that
// neither counts a trace once per module (deliberate).
struct Totals
{
    int progress = 0;
    int inputModules = 0;
    int tracesIn = 0;
    int tracesOut = 0;

    void count(const ModuleEntity& module, const modStatisticStruct& row)
    {
        if (module.isInputModule()) {
            add(progress, row.progress); // also a -1 (deliberate)
            ++inputModules;
            add(tracesOut, row.out_traces);
        }
        if (module.isOutputModule())
            add(tracesIn, row.inp_traces);
    }
};

} // namespace

void JobManager::sendModulesStatistic(int jobPhase)
{
    if (statisticFunc == nullptr)
        return;

    jobStatisticStruct record;
    std::memset(&record, 0, sizeof record);
    // Deliberate: a name of 64 or more characters fills the field without a NUL.
    copyText(record.jobName, jobName, sizeof record.jobName);
    record.jobPhase = jobPhase;
    record.numMod = static_cast<int>(std::min<std::size_t>(jobModules.size(), VORN_STATISTIC_ROWS));

    Totals totals;
    for (int i = 0; i < record.numMod; ++i) {
        const ModuleEntity& module = *jobModules[static_cast<std::size_t>(i)];
        record.modStatistics[i] = rowOf(module, i);
        totals.count(module, record.modStatistics[i]);
    }

    modStatisticStruct& job = record.jobStatistics;
    std::strcpy(job.modName, "Job total");
    job.inp_traces = positiveOr(totals.tracesIn, -1);
    job.out_traces = positiveOr(totals.tracesOut, -1);
    job.total_time = static_cast<int>((getCurrentTime() - jobStartTime) / 1000000);
    job.avg_time = -1;
    job.mem_used = totalJobMemoryUsed;
    job.progress =
        totals.progress > 0 && totals.inputModules > 0 ? totals.progress / totals.inputModules : -1;
    statisticFunc(&record, statisticFuncObj);
}
