// An application with a window runs a job: on a thread of its own, while the main thread shows
// messages and progress and can cancel. Here lines stand for the window.
//
//     example_window [TRACES [CANCEL_AFTER_SECONDS]]
//
// Run it with VORN_HOME set to the folder whose lib has the three module libraries.
#include "DataChannel.h"
#include "HostModules.h"
#include "JobManager.h"
#include "JobOutcome.h"
#include "ModuleEntity.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

// What the job's thread hands to the window. Call-backs run on the thread of the job, in the middle
// of its work: they copy what they are given and return.
struct Window
{
    std::mutex mutex;
    std::vector<std::string> messages;
    std::atomic<int> traces{0};
    std::atomic<bool> ended{false};
    JobOutcome outcome; // once `ended`
};

int takeMessage(int type, char*, const char* module, const char* text, void* window)
{
    if (type > 0) { // 0: details
        auto& to = *static_cast<Window*>(window);
        const std::lock_guard lock(to.mutex);
        to.messages.push_back(std::string(module) + ": " + text);
    }
    return 0;
}

int takeStatistic(jobStatisticStruct* statistic, void* window)
{
    static_cast<Window*>(window)->traces = statistic->jobStatistics.inp_traces;
    return 0;
}

// All of the job belongs to one thread.
void runJob(Window& window, int traces)
{
    JobManager* job = JobManager::getInstance();
    job->installMessageFunc(takeMessage, nullptr, &window);
    job->installStatisticFunc(takeStatistic, &window);
    job->setStatisticInterval(250); // also while few traces take long
    job->defineSegySchema();
    ModuleEntity* source = job->initJobModule("source", "libsource.so");
    ModuleEntity* filter = job->initJobModule("filter", "libfilter.so");
    if (source != nullptr && filter != nullptr) {
        source->setParameter("TRACES", UniVar(traces));
        VORN::connect(source, filter);
        VORN::connect(filter, VORN::addTraceSink("count", [](void*, const float*, int) {}));
        if (job->preProcessJob() == 0)
            job->processJob();
        job->postProcessJob(); // also of a job that was cancelled: modules end, and free memory
    }
    window.outcome = job->jobOutcome();
    job->resetJob();
    window.ended = true;
}

void showMessages(Window& window)
{
    const std::lock_guard lock(window.mutex);
    for (const std::string& text : window.messages)
        std::printf("%s\n", text.c_str());
    window.messages.clear();
}

} // namespace

int main(int argc, char** argv)
{
    const int traces = argc > 1 ? std::atoi(argv[1]) : 20000;
    const double cancelAfter = argc > 2 ? std::atof(argv[2]) : 1e9;
    Window window;
    std::thread worker([&] { runJob(window, traces); });

    // The event loop of the application.
    const auto start = std::chrono::steady_clock::now();
    while (!window.ended) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        showMessages(window);
        std::printf("%d traces\n", window.traces.load());
        const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start;
        if (passed.count() > cancelAfter)
            JobManager::requestCancel(); // from any thread
    }
    worker.join();
    showMessages(window);
    std::printf("%d traces\n",
                window.traces.load()); // the job may have ended since the loop looked

    switch (window.outcome.end) {
    case JobEnd::done:
        std::printf("done\n");
        return 0;
    case JobEnd::cancelled:
        std::printf("cancelled\n");
        return 0;
    default:
        std::printf("failed: %s in %s: %s\n", window.outcome.module.c_str(),
                    window.outcome.entryPoint.c_str(), window.outcome.text.c_str());
        return 1;
    }
}
