// vorn status DIR: how far the parts of a planned job are.
#include "base/CommandError.h"
#include "base/Text.h"
#include "cli/PlannedJob.h"
#include "parts/Status.h"

#include <chrono>
#include <cstdio>
#include <fmt/format.h>
#include <thread>

namespace host {

namespace {

// Two looks at the parts that run tell their speed.
constexpr std::chrono::milliseconds betweenLooks(1000);

int printMissing(const PlanStatus& status)
{
    const std::string missing = partList(status.missing());
    if (!missing.empty())
        fmt::print("{}\n", missing);
    else
        std::fputs("vorn: no part is missing\n", stderr);
    const std::vector<int> running = status.inState(PartState::running);
    if (!running.empty())
        fmt::print(stderr, "vorn: {} not listed: running: {}\n",
                   running.size() == 1 ? "1 part is" : fmt::format("{} parts are", running.size()),
                   partList(running));
    return exitDone;
}

int runStatus(const Arguments& arguments)
{
    const std::string directory = arguments.text(planArgument().name);
    const StoredPlan stored = readPlan(directory);
    PlanStatus status = statusOf(stored, directory);
    if (arguments.has("--missing"))
        return printMissing(status);
    double speed = 0;
    if (!status.inState(PartState::running).empty()) {
        const PlanStatus before = status;
        const auto began = std::chrono::steady_clock::now();
        std::this_thread::sleep_for(betweenLooks);
        status = statusOf(stored, directory);
        const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - began;
        speed = tracesPerSecond(before, status, seconds.count());
    }
    const std::string text = describeStatus(status, speed);
    std::fwrite(text.data(), 1, text.size(), stdout);
    return exitDone;
}

} // namespace

Command statusCommand()
{
    return {"status",
            runStatus,
            "Show how far the parts of a job are",
            "Shows which parts of the plan in the directory DIR are done, running, failed, lost or "
            "waiting, how many traces they have read, and the speed of those that run. A part is "
            "lost when it has begun and has told nothing for 10 s: it has been killed, or its node "
            "has died. Only reads, so it may be called at any time and from any machine that sees "
            "the directory.\n\n"
            "With --missing, only the numbers of the parts to be started again are printed, in the "
            "form that batch systems take for an array; nothing when there are none.",
            {planArgument()},
            {{"--missing", "",
              "only print the parts that are neither done nor running, as \"3,17-19\""}},
            {{"vorn status run1", "how far the parts are"},
             {"sbatch --array=$(vorn status run1 --missing) part.sh",
              "start those again that are missing"}}};
}

} // namespace host
