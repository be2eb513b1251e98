// vorn submit DIR: hands the parts of a planned job to a batch system.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Programs.h"
#include "cli/PlannedJob.h"
#include "parts/Status.h"
#include "parts/Submission.h"

#include <cstdio>
#include <filesystem>
#include <fmt/format.h>

namespace host {

namespace {

namespace fs = std::filesystem;

Engine engineOf(const std::string& name)
{
    if (name == "slurm")
        return Engine::slurm;
    return name == "pbs" ? Engine::pbs : Engine::sge;
}

int64_t tasksOf(const Arguments& arguments)
{
    if (!arguments.has("--tasks"))
        return 0;
    const long long tasks = arguments.integer("--tasks", 0);
    if (tasks < 1)
        throw CommandError(fmt::format("--tasks is {}; expected a number from 1", tasks));
    return tasks;
}

// The merge would not wait for parts that run already, and refuse.
void refuseRunning(const PlanStatus& status, const std::string& directory)
{
    if (status.isMerged)
        throw CommandError("the plan in " + quote(directory) +
                           " has been merged; nothing is left to submit");
    const std::vector<int> running = status.inState(PartState::running);
    if (!running.empty())
        throw CommandError(fmt::format("parts are running ({}); submit again when they have ended "
                                       "(see \"vorn status\")",
                                       partList(running)),
                           exitTryAgain);
}

int runSubmit(const Arguments& arguments)
{
    const std::string directory = arguments.text(planArgument().name);
    const StoredPlan stored = readPlan(directory);
    const PlanStatus status = statusOf(stored, directory);
    refuseRunning(status, directory);

    const std::string name = arguments.text("--engine");
    Submission submission;
    submission.engine = engineOf(name);
    submission.program = ownProgram();
    submission.directory = fs::canonical(directory).string();
    submission.parts = status.missing();
    submission.tasks = tasksOf(arguments);
    submission.options = arguments.texts("--option");
    submission.mergeOptions = arguments.texts("--merge-option");
    const bool asks = submission.engine == Engine::slurm && isInstalled("scontrol");
    submission.arrayLimit =
        arrayLimit(submission.engine, asks ? outputOf("scontrol show config") : "");
    const std::string script = submissionScript(submission);

    const std::vector<int> failed = status.inState(PartState::failed);
    if (!failed.empty())
        fmt::print(stderr,
                   "vorn: parts that have failed with an error of the job are run again: {} "
                   "(see \"vorn status\")\n",
                   partList(failed));
    if (!arguments.has("--yes")) {
        std::fwrite(script.data(), 1, script.size(), stdout);
        return exitDone;
    }
    const std::string program = submitProgram(submission.engine);
    if (!isInstalled(program))
        throw CommandError(fmt::format("--engine {}: the program {} is not installed here; call "
                                       "\"vorn submit\" where jobs are submitted, or without --yes "
                                       "to see the script",
                                       name, quote(program)));
    const int code = runScript(script);
    if (code != 0)
        throw CommandError(fmt::format("{} has refused the job (exit code {})", program, code));
    return exitDone;
}

} // namespace

Command submitCommand()
{
    return {
        "submit",
        runSubmit,
        "Submit the parts of a job to a batch system",
        "Prints a script for the shell that submits the missing parts of the plan in the directory "
        "DIR as an array of tasks, and behind it the merge, which begins when all parts have ended "
        "well. With --yes, the script is run, and the numbers of both jobs are printed; the batch "
        "system does the rest. Called again later, it submits only what is missing then.\n\n"
        "A part whose exit code is 75 is tried again three times; with Slurm its task is requeued. "
        "Where there are more parts than an array may have tasks, a task runs several in turn. The "
        "tasks write to task-N.log in DIR, the merge to merge.log.",
        {planArgument()},
        {{"--engine",
          "NAME",
          "the batch system",
          ValueKind::choice,
          {"slurm", "pbs", "sge"},
          false,
          true},
         {"--yes", "", "submit the script; without it, it is only printed"},
         {"--tasks", "N", "the number of tasks at most; without it one for each part",
          ValueKind::integer},
         {"--option",
          "TEXT",
          "an option of sbatch or qsub for parts and merge, as the shell takes it, for example "
          "\"--partition=long\"",
          ValueKind::text,
          {},
          true},
         {"--merge-option",
          "TEXT",
          "an option of \"vorn merge\", as the shell takes it, for example "
          "\"--report=/results/line.html\"",
          ValueKind::text,
          {},
          true}},
        {{"vorn submit run1 --engine slurm", "show what would be submitted"},
         {"vorn submit run1 --engine slurm --yes --option=--time=2:00:00",
          "submit it with a time limit"}}};
}

} // namespace host
