// vorn run JOB.yaml: checks a job, runs it, and reports what it did.
#include "base/CommandError.h"
#include "base/Portable.h"
#include "cli/JobLoader.h"
#include "cli/PlannedJob.h"
#include "cli/RunEach.h"
#include "cli/RunInParts.h"
#include "cli/RunJob.h"
#include "job/JobFileRoles.h"
#include "job/ReadingOrder.h"
#include "watch/WatchedLibrary.h"

#include <memory>

namespace host {

namespace {

OptionSpec checkOption()
{
    return {"--check-modules", "",
            "look for mistakes in the modules: memory, handles, traces, parameters"};
}

// A check sees the modules of its own process only.
void refuseSeveralProcesses(const Arguments& arguments)
{
    for (const char* option : {"--each", "--jobs"}) {
        if (arguments.has(option))
            throw CommandError("--check-modules: looks at the modules of one process; leave out " +
                               std::string(option));
    }
}

void checkRecordOptions(const Arguments& arguments)
{
    if (!arguments.has("--record")) {
        if (arguments.has("--record-traces"))
            throw CommandError("--record-traces needs --record MODULE=FILE");
        return;
    }
    if (arguments.integer("--record-traces", 0) < 0)
        throw CommandError("--record-traces: a number from 0 is expected");
    for (const char* option : {"--each", "--jobs"}) {
        if (arguments.has(option))
            throw CommandError(std::string("--record and ") + option +
                               " cannot be combined: a record is that of one process; run the job "
                               "once without " +
                               option);
    }
}

int runRun(const Arguments& arguments)
{
    if (arguments.has("--check-modules")) {
        refuseSeveralProcesses(arguments);
        continueOnWatchedLibrary();
    }
    checkRecordOptions(arguments);
    if (arguments.has("--record"))
        continueOnWatchedLibrary();
    if (arguments.has("--portable"))
        becomePortable();
    checkTimeLimit(arguments);
    if (arguments.has("--each"))
        return runEach(arguments);
    refuseEachOptions(arguments);
    LoadedJob loaded = loadJob(arguments);
    refuseErrors(loaded);
    useFilesOf(loaded.job);
    const std::unique_ptr<PartsOfJob> parts = partsOnThisMachine(arguments, loaded);
    // A report shows what files gave in their own order, and what was read from the first byte on.
    if (parts == nullptr && !arguments.has("--report") && !arguments.has("--json"))
        loaded.job.order = readingOrderOf(loaded.job);
    return runJob(arguments, loaded, parts.get());
}

} // namespace

Command runCommand()
{
    std::vector<OptionSpec> options = jobOptions();
    const std::vector<OptionSpec> own = runOptions();
    options.insert(options.end(), own.begin(), own.end());
    options.push_back(checkOption());
    options.push_back(portableOption());
    options.push_back({"--sanitizer-libs", "",
                       "load what modules that were compiled with -fsanitize need in front of all "
                       "other libraries"});
    options.push_back({"--record",
                       "MODULE=FILE",
                       "write all that this module of the job is given and gives to a file, for "
                       "vorn replay",
                       ValueKind::text,
                       {},
                       true});
    options.push_back({"--record-traces", "N",
                       "record at most so many calls of the module's process_, all for 0; 1000 if "
                       "not given",
                       ValueKind::integer});
    const std::vector<OptionSpec> each = eachOptions();
    options.insert(options.end(), each.begin(), each.end());
    return {
        "run",
        runRun,
        "Run a job",
        "Checks the job as \"vorn check\" does, and runs it when there are no errors. Messages "
        "of the modules go to standard error with time, severity and module. At the end, a "
        "table on standard output lists for each module the traces that it took and gave, its "
        "time, its share of the run time and its memory.\n\n"
        "The exit code is 1 when a module reported an error. Ctrl-C ends the job at once: the "
        "scratch file and incomplete outputs are removed, other files that modules have left "
        "are listed, and the exit code is 130. The same happens with exit code 1 when the time "
        "of --time-limit has passed, counted from the start of the command, and when a module "
        "ends the process. The message names the module that was running.\n\n"
        "With --check-modules, the job runs in up to three times the time, and what modules do is "
        "checked: memory beyond its end or after it was freed, handles, numbers of channels and "
        "traces, changed inputs, samples that are not numbers, memory and traces that are left, "
        "calls from other threads, and parameters against the manifest. Each mistake is told once "
        "for each module, and any makes the exit code 1.\n\n"
        "With --each, the job is run for each file that the pattern matches, which takes the "
        "place of the file that the job reads. Each run is a process with a folder of its own "
        "in the directory of --into: report, JSON, pictures, messages, and outputs with "
        "relative names. index.html in that directory lists all files. A failed file keeps no "
        "other from being run; the exit code is then 1.\n\n"
        "With --jobs alone, the job runs in parts, each a process on a range of the traces, and "
        "its outputs, pictures and facts are the same as with one process. What cannot run in "
        "parts runs in one process when they have ended; \"vorn plan JOB.yaml --dry-run\" "
        "says what that is, and why.\n\n"
        "With --record, a file keeps what one module of the job was given, which calls it made and "
        "what it gave; \"vorn replay\" runs the module on it without the job and its data.",
        {jobArgument()},
        options,
        {{"vorn run job.yaml", "run a job"},
         {"vorn run job.yaml --report job.html", "run it and write a page with pictures"},
         {"vorn run job.yaml --set read.file=other.sgy", "the same job on another file"},
         {"vorn run job.yaml --pictures out --log out/run.log", "pictures, and all messages"},
         {"vorn run job.yaml --check-modules", "look for mistakes in its modules"},
         {"vorn run job.yaml --record agc=agc.record", "record what the module agc does"},
         {"vorn run job.yaml --jobs auto", "the same job on all cores"},
         {"vorn run job.yaml --each 'data/*.sgy' --jobs 4", "the same job on many files"}}};
}

} // namespace host
