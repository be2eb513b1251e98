// Traces from an array of the application, through a module library and a function of the
// application, into an array; several jobs in one process.
// Run it with VORN_HOME set to the folder whose lib has the module library `filter`.
#include "DataChannel.h"
#include "HostModules.h"
#include "JobManager.h"
#include "JobOutcome.h"
#include "MOXKernel.h"
#include "ModuleEntity.h"

#include <cstddef>
#include <cstdio>
#include <vector>

namespace {

constexpr int traces = 4;
constexpr int samples = 9;
constexpr int interval = 2000; // microseconds

int printFailure(int type, char*, const char* module, const char* text, void*)
{
    if (type >= 3)
        std::printf("%s: %s\n", module, text);
    return 0;
}

// Multiplies each trace by its offset: a module that is a function. It is called for each trace of
// its input, and its captured variables live as long as the job.
VORN::ModuleFunctions scaleByOffset()
{
    VORN::ModuleFunctions functions;
    functions.preprocess = [] {
        bldOutputTraceBuffer(0, samples, interval, getInputTraceBuffer(0));
    };
    functions.process = [] {
        void* input = getInputTraceBuffer(0);
        void* output = getOutputTraceBuffer(0);
        copyTraceToTrace(input, output, 1, 1, 0, 0); // header and samples
        const float offset = getTraceAttribute(input, "offset", 0).getF32Value();
        float* trace = getTraceSamples(output, 0);
        for (int i = 0; i < samples; ++i)
            trace[i] *= offset;
    };
    return functions;
}

// One job: smooths with the filter of the library. False when it failed; printFailure said why.
bool smooth(const std::vector<float>& from, const std::vector<int>& offsets, int window,
            VORN::CollectedTraces& to)
{
    JobManager* job = JobManager::getInstance();
    job->installMessageFunc(printFailure, nullptr, nullptr);
    job->setReleaseAtEnd(true);
    job->defineSegySchema();
    ModuleEntity* source = VORN::addTraceSource(
        "in", {from.data(), traces, samples, interval, {{"offset", offsets.data()}}});
    ModuleEntity* filter = job->initJobModule("filter", "libfilter.so");
    ModuleEntity* scale = VORN::addModule("scale", scaleByOffset());
    ModuleEntity* sink = VORN::addTraceSink("out", &to, traces);
    if (filter != nullptr) {
        filter->setParameter("WINDOW", UniVar(window));
        VORN::connect(source, filter);
        VORN::connect(filter, scale);
        VORN::connect(scale, sink);
        if (job->preProcessJob() == 0)
            job->processJob();
        job->postProcessJob();
    }
    const bool good = filter != nullptr && job->jobOutcome().end == JobEnd::done;
    job->resetJob(); // the next job finds nothing of this one
    return good;
}

} // namespace

int main()
{
    std::vector<float> spikes(static_cast<std::size_t>(traces) * samples);
    std::vector<int> offsets;
    for (std::size_t i = 0; i < traces; ++i) {
        spikes[i * samples + samples / 2] = 1;
        offsets.push_back(static_cast<int>(100 * (i + 1)));
    }
    for (const int window : {3, 5}) {
        VORN::CollectedTraces result;
        result.words["offset"];
        if (!smooth(spikes, offsets, window, result))
            return 1;
        std::printf("window %d\n", window);
        for (std::size_t i = 0; i < static_cast<std::size_t>(result.count); ++i) {
            std::printf("%5d m:", result.words["offset"][i]);
            for (std::size_t j = 0; j < static_cast<std::size_t>(result.traceLength); ++j)
                std::printf(
                    " %g",
                    static_cast<double>(
                        result.samples[i * static_cast<std::size_t>(result.traceLength) + j]));
            std::printf("\n");
        }
    }
    return 0;
}
