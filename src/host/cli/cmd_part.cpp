// vorn part DIR K: runs one part of a planned job.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Text.h"
#include "cli/PlannedJob.h"
#include "cli/RunInParts.h"
#include "file/PartOutputs.h"
#include "file/SystemFailure.h"
#include "parts/LiveFile.h"
#include "parts/PartNumber.h"
#include "parts/PartProcesses.h"
#include "parts/PartRun.h"
#include "run/Console.h"
#include "run/InputDigests.h"
#include "run/Interrupt.h"
#include "run/JobRunner.h"
#include "run/Progress.h"
#include "run/RunFiles.h"
#include "run/RunningModule.h"
#include "run/ScratchSpace.h"
#include "run/ThrowWatch.h"

#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <optional>
#include <unistd.h>

namespace host {

namespace {

namespace fs = std::filesystem;

std::string machineName()
{
    char name[256] = "";
    return gethostname(name, sizeof name - 1) == 0 ? name : "";
}

// The merge repeats all other messages.
void tell(const RunMessage& message)
{
    if (message.severity >= errorSeverity)
        std::fprintf(stderr, "%s: %s: %s\n", severityName(message.severity),
                     escaped(message.module).c_str(), escaped(message.text).c_str());
}

void writeError(const std::string& text)
{
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

void cleanUp(int signal, const ScratchSpace& scratch)
{
    scratch.remove();
    writeError(fmt::format("vorn: the part was ended by signal {}; run it again\n", signal));
}

void addReadings(const InputDigests& digests, const ResolvedJob& job, Receipt& receipt)
{
    for (const RunFile& file : describeFiles(job, false)) {
        if (const std::optional<ReadRecord> record = digests.find(file.module, file.path))
            receipt.readings.push_back({file.module, file.path, record->ranges});
    }
}

int runOnePart(const PlannedJob& planned, int part)
{
    const Plan& plan = planned.plan;
    const ResolvedJob job = jobOfPart(planned.loaded.job, plan, part);
    const PlannedPart& range = plan.parts.at(static_cast<std::size_t>(part - 1));
    for (const PlannedOutput& output : plan.outputs)
        VORN::setPartOutput(output.path, output.target, range.first);

    const ScratchSpace scratch(job.scratchDirectory);
    const InterruptWatch interrupts([&](int signal) { cleanUp(signal, scratch); });
    std::optional<InputDigests> digests;
    if (plan.facts && !plan.order) // sorted, nearly each trace would be a range of its own
        digests.emplace();
    const InputWatch inputs(job);
    PartRun run(plan, planned.directory, part);
    JobRunner runner(job, scratch.path());
    runner.extension = &run;
    runner.onMessage = tell;
    runner.reportsExceptions = true;
    watchThrows();
    runner.watchHeaders = plan.facts;
    runner.objections = [&] { return inputs.changes(); };
    RunResult result;
    {
        const LiveFile live(livePath(planned.directory, part), runner.counters());
        result = runner.run();
    }
    Receipt receipt = run.receipt();
    receipt.planSha256 = planned.planSha256;
    receipt.host = machineName();
    receipt.started = result.started;
    receipt.wallMicros = result.wallMicros;
    if (digests)
        addReadings(*digests, job, receipt);
    std::error_code error;
    if (result.failed) {
        int code = result.exitCode != 0 ? result.exitCode : exitJobErrors;
        if (VORN::passingFailure() != 0)
            code = exitTryAgain;
        try {
            writeReceipt(failurePath(planned.directory, part), receipt);
        } catch (const CommandError&) {
            // The disk may be full; the messages are in the output of this process, too.
            return exitTryAgain;
        }
        return code;
    }
    fs::remove(failurePath(planned.directory, part), error);
    run.sync();
    writeReceipt(receiptPath(planned.directory, part), receipt);
    return exitDone;
}

// Parts without a receipt.
std::vector<int> missingParts(const PlannedJob& planned)
{
    std::vector<int> parts;
    for (int part = 1; part <= static_cast<int>(planned.plan.parts.size()); ++part) {
        if (!fs::exists(receiptPath(planned.directory, part)))
            parts.push_back(part);
    }
    return parts;
}

int runMissingParts(const Arguments& arguments, const PlannedJob& planned)
{
    const std::vector<int> parts = missingParts(planned);
    PartProcesses processes(jobsAtATime(arguments));
    const InterruptWatch interrupts([&](int signal) {
        processes.stop(signal);
        writeError(fmt::format("vorn: the parts were ended by signal {}\n", signal));
    });
    Console console;
    {
        const Progress progress(console,
                                Console::isTerminal() ? ProgressMode::bar : ProgressMode::lines, 10,
                                [&] { return processes.progress(); });
        processes.run(planned.directory, parts);
    }
    if (processes.failures().empty())
        return exitDone;
    const auto [part, code] = *processes.failures().begin();
    for (const PartMessage& one : processes.failureOf(part).messages)
        tell(one.message);
    throw CommandError(fmt::format("part {} has failed; all its messages are in {}", part,
                                   quote(logPath(planned.directory, part))),
                       code == exitTryAgain ? exitTryAgain : exitJobErrors);
}

int runPart(const Arguments& arguments)
{
    const PlannedJob planned = loadPlannedJob(arguments);
    if (arguments.text("K") == "missing")
        return runMissingParts(arguments, planned);
    if (arguments.has("--jobs"))
        throw CommandError("--jobs: this is for several parts; give \"missing\" in place of K");
    const PartChoice choice =
        partNumber(arguments.text("K"), static_cast<int>(planned.plan.parts.size()));
    if (choice.part == 0) {
        writeError("vorn: " + choice.idle + "\n");
        return exitDone;
    }
    return runOnePart(planned, choice.part);
}

} // namespace

Command partCommand()
{
    return {
        "part",
        runPart,
        "Run one part of a planned job",
        "Runs part K of the plan that \"vorn plan\" has made in the directory DIR: the modules "
        "that work in parts, on its range of the traces. It writes its traces to their places "
        "in the outputs, which have no final names yet, and leaves a receipt in DIR. Parts may "
        "run in any order, on any machine that sees the same files, and again: the same part "
        "gives the same bytes.\n\n"
        "The exit code is 75 when the machine was at fault, as a full disk, and the same call "
        "may succeed later; 1 when the job has an error.",
        {planArgument(),
         {"K", "the part, from 1; \"auto\": the one that the batch system or launcher tells; "
               "\"missing\": all that have no receipt"}},
        {{"--jobs", "N", "with \"missing\": so many parts at a time; auto is one for each core"}},
        {{"vorn part run1 3", "run part 3"},
         {"vorn part run1 auto", "the part of this task of a batch system's array"},
         {"vorn part run1 missing --jobs auto", "all that have not ended, on all cores"}}};
}

} // namespace host
