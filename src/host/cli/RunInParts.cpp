#include "cli/RunInParts.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "cli/PlannedJob.h"
#include "parts/LocalParts.h"
#include "parts/Planner.h"

#include <charconv>
#include <cstdio>
#include <fmt/format.h>
#include <string>
#include <utility>

namespace host {

namespace {

constexpr int mostAtATime = 1000;

} // namespace

int jobsAtATime(const Arguments& arguments)
{
    const std::string text = arguments.text("--jobs", "1");
    if (text == "auto")
        return usableCores();
    int jobs = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), jobs);
    if (error != std::errc() || end != text.data() + text.size() || jobs < 1 || jobs > mostAtATime)
        throw CommandError(fmt::format("--jobs is {}; expected a number from 1 to {}, or auto",
                                       quote(text), mostAtATime));
    return jobs;
}

std::unique_ptr<PartsOfJob> partsOnThisMachine(const Arguments& arguments, const LoadedJob& loaded)
{
    const int jobs = jobsAtATime(arguments);
    if (jobs == 1)
        return nullptr;
    std::string reason;
    try {
        // A report shows what files gave in their own order.
        const bool isReported = arguments.has("--report") || arguments.has("--json");
        Plan plan = planJob(loaded.job, jobs, !isReported);
        if (plan.parts.size() > 1) {
            noteCall(arguments, loaded, plan);
            plan.facts = isReported;
            return std::make_unique<LocalParts>(std::move(plan), jobs);
        }
        reason = plan.parts.empty()
                     ? "none of its modules can run in parts (see \"vorn plan --dry-run\")"
                     : "it cannot be cut";
    } catch (const CommandError& error) {
        reason = error.what(); // one process may fail likewise, and then leaves its facts
    }
    if (!arguments.has("--quiet"))
        std::fprintf(stderr, "vorn: the job runs in one process: %s\n", escaped(reason).c_str());
    return nullptr;
}

} // namespace host
