// vorn run JOB.yaml --each PATTERN: one job on many files, a process and a folder for each.
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/FileOutput.h"
#include "base/Programs.h"
#include "base/Quantities.h"
#include "base/Text.h"
#include "base/TextLayout.h"
#include "cli/JobLoader.h"
#include "cli/RunEach.h"
#include "cli/RunInParts.h"
#include "cli/RunReport.h"
#include "each/FileSet.h"
#include "each/JobOfFile.h"
#include "each/RunFacts.h"
#include "each/SetRunner.h"
#include "file/FileIdentity.h"
#include "file/FileRoles.h"
#include "job/JobFileRoles.h"
#include "report/SetJson.h"
#include "report/SetPage.h"
#include "run/Console.h"
#include "run/Interrupt.h"
#include "run/RunFiles.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <future>
#include <nlohmann/json.hpp>
#include <sys/file.h>
#include <unistd.h>

#ifndef VORN_VERSION
#define VORN_VERSION "unknown"
#endif

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr char pageName[] = "index.html";
constexpr char indexName[] = "index.json";

// ---- options ----

// Of the runs of the files, this one decides itself.
constexpr std::array ownOptions = {"--each", "--into", "--jobs",     "--resume", "--report",
                                   "--json", "--log",  "--pictures", "--quiet",  "--progress"};

// These do not change what a run results in, or are in the job when it is compared.
constexpr std::array optionsWithoutEffect = {"--set",        "--scratch", "--scratch-traces",
                                             "--time-limit", "--verbose", "--allow-modules-from"};

template <std::size_t N>
bool isOneOf(const std::string& name, const std::array<const char*, N>& names)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

void refuseOptionsOfOneRun(const Arguments& arguments)
{
    for (const char* option : {"--report", "--pictures", "--log"}) {
        if (arguments.has(option))
            throw CommandError(fmt::format("{}: with --each, every file has its own in its folder; "
                                           "--into names the directory of all folders",
                                           option));
    }
}

std::string resultDirectory(const Arguments& arguments)
{
    const std::string given =
        arguments.text("--into", fs::path(arguments.text("JOB.yaml")).stem().string() + "-files");
    if (given.empty())
        throw CommandError("--into: the name of a directory is expected");
    std::string directory = fs::absolute(given).lexically_normal().string();
    if (directory.size() > 1 && directory.back() == '/')
        directory.pop_back();
    return directory;
}

// The options of the call that every run gets as they are.
std::vector<std::string> passedOn(const Arguments& arguments)
{
    std::vector<std::string> words;
    for (const OptionSpec& option : runCommand().options) {
        const std::string name = option.names.substr(option.names.rfind("--"));
        if (isOneOf(name, ownOptions))
            continue;
        for (const std::string& value : arguments.texts(name)) {
            words.push_back(name);
            if (option.kind == ValueKind::directory)
                words.push_back(fs::absolute(value).lexically_normal().string());
            else if (!option.value.empty())
                words.push_back(value);
        }
    }
    return words;
}

// The options that results depend on, as one text.
std::string effectiveOptions(const Arguments& arguments)
{
    std::string text;
    for (const auto& [name, values] : arguments.values) {
        const bool isOption = name.starts_with("--");
        if (isOption && !isOneOf(name, ownOptions) && !isOneOf(name, optionsWithoutEffect))
            text += name + "=" + joined(values, ",") + "\n";
    }
    return text;
}

// ---- the job, and the files ----

struct EachJob
{
    LoadedJob loaded; ///< for the first file
    FileParameter parameter;
    std::vector<JobOutput> outputs;
    std::vector<std::string> patterns;
    FileSet set;
    std::vector<std::string> folders; ///< of the files
    int otherFolders = 0;             ///< of files of earlier calls
};

// What all patterns say together.
void findInputs(const Arguments& arguments, const JobFile& job, const ModuleCatalog& catalog,
                EachJob& each)
{
    std::string named;
    bool isFirst = true;
    for (const std::string& text : arguments.texts("--each")) {
        const EachPattern one = splitEach(text, job);
        if (!isFirst && one.parameter != named)
            throw CommandError("--each: all patterns must be for the same parameter of the job");
        named = one.parameter;
        isFirst = false;
        each.patterns.push_back(one.pattern);
    }
    each.parameter = findFileParameter(job, catalog, named);
}

// The errors about what depends on the file are those of its run.
Diagnostics ofTheJob(const Diagnostics& all)
{
    Diagnostics some;
    for (const Diagnostic& one : all.sorted()) {
        if (one.place.source == eachSource)
            continue;
        if (one.isWarning)
            some.warning(one.place, one.text);
        else
            some.error(one.place, one.text);
    }
    return some;
}

EachJob loadEachJob(const Arguments& arguments, const std::string& directory)
{
    EachJob each;
    each.loaded = loadJob(
        arguments, [&](JobFile& job, const ModuleCatalog& catalog, const Diagnostics& diagnostics) {
            if (diagnostics.hasErrors())
                return; // they are shown first
            findInputs(arguments, job, catalog, each);
            each.set = findFiles(each.patterns, directory, eachSource);
            FolderNames names(directory);
            each.folders = names.forFiles(each.set.files, each.set.notes);
            each.otherFolders = names.others();
            each.outputs = jobOutputs(job, catalog);
            setFile(job, each.parameter.module, each.parameter.parameter, each.set.files.front());
            const std::string folder = (fs::path(directory) / each.folders.front()).string();
            for (const JobOutput& output : each.outputs)
                setFile(job, output.module, output.parameter, output.path(folder),
                        !output.isRelative());
        });
    each.loaded.diagnostics = ofTheJob(each.loaded.diagnostics);
    refuseErrors(each.loaded);
    return each;
}

// ---- the plan ----

std::string nameOf(const JobOutput& output)
{
    return fmt::format("parameter {} of module {}", quote(output.parameter), quote(output.module));
}

// Where each output goes, and what is there before it.
class Destinations
{
public:
    explicit Destinations(const EachJob& each)
    {
        for (const std::string& file : each.set.files)
            inputs.insert(VORN::canonicalPath(file));
    }

    void reserve(const std::string& path, const std::string& what)
    {
        owners.emplace(VORN::canonicalPath(path), what);
    }

    void add(const JobOutput& output, const std::string& path, const std::string& file)
    {
        if (path == "/dev/null")
            return;
        const std::string what = fmt::format("--each: {} is {}", nameOf(output), quote(path));
        if (VORN::isWrittenThrough(path))
            throw CommandError(what + ", which is not a file of its own for each input; give the "
                                      "name of a file");
        const std::string place = VORN::canonicalPath(path);
        if (inputs.count(place) != 0)
            throw CommandError(what + ", which is one of the files to be read; write elsewhere");
        const auto [owner, isNew] = owners.emplace(place, file);
        if (isNew)
            return;
        if (owner->second == file)
            throw CommandError(what + ", which another module of the job writes too; give them two "
                                      "names");
        if (owner->second.starts_with("the "))
            throw CommandError(what + ", which is the name of " + owner->second.substr(4) +
                               "; choose another one");
        throw CommandError(
            fmt::format("{}, which the runs of {} and {} would both write; give a relative name, "
                        "which starts in the folder of each file, or put {} into the name, which "
                        "stands for the name of that folder",
                        what, quote(owner->second), quote(file), folderPlaceholder));
    }

private:
    std::set<std::string> inputs;
    std::map<std::string, std::string> owners; ///< file, or "the " and a role, by place
};

PlannedRun plannedRun(const EachJob& each, std::size_t i, const std::string& directory,
                      const std::vector<std::string>& passed)
{
    PlannedRun run;
    run.path = each.set.files[i];
    run.folder = each.folders[i];
    if (each.parameter.isList && run.path.find('\n') != std::string::npos)
        run.refusal = "the name of the file has a line feed, which separates the names in lists of "
                      "files; rename the file";
    const fs::path folder = fs::path(directory) / run.folder;
    run.words = {"vorn", "run", each.loaded.job.file};
    run.words.insert(run.words.end(), passed.begin(), passed.end());
    const auto add = [&](const char* option, const std::string& value) {
        run.words.emplace_back(option);
        run.words.push_back(value);
    };
    add("--set", each.parameter.name() + "=" + run.path);
    for (const JobOutput& output : each.outputs) {
        run.outputs.push_back(output.path(folder.string()));
        add("--set", output.module + "." + output.parameter + "=" + run.outputs.back());
    }
    add("--report", (folder / reportName).string());
    add("--json", (folder / jsonName).string());
    add("--pictures", (folder / picturesName).string());
    add("--progress", "never");
    return run;
}

std::vector<PlannedRun> plannedRuns(const EachJob& each, const std::string& directory,
                                    const std::vector<std::string>& passed)
{
    Destinations destinations(each);
    for (const char* name : {pageName, indexName})
        destinations.reserve((fs::path(directory) / name).string(), "the index of all files");
    for (const std::string& name : each.folders) {
        const fs::path folder = fs::path(directory) / name;
        for (const char* own : {reportName, jsonName, logName, recordName})
            destinations.reserve((folder / own).string(), "the report, log or record of a run");
    }
    std::vector<PlannedRun> runs;
    runs.reserve(each.set.files.size());
    for (std::size_t i = 0; i < each.set.files.size(); ++i) {
        runs.push_back(plannedRun(each, i, directory, passed));
        for (std::size_t k = 0; k < each.outputs.size(); ++k)
            destinations.add(each.outputs[k], runs.back().outputs[k], runs.back().path);
    }
    return runs;
}

SetPlan makePlan(const Arguments& arguments, const EachJob& each, const std::string& directory)
{
    SetPlan plan;
    plan.program = ownProgram();
    plan.directory = directory;
    plan.runs = plannedRuns(each, directory, passedOn(arguments));
    std::map<std::string, std::string> outputs;
    for (const JobOutput& output : each.outputs)
        outputs[output.module + "." + output.parameter] = output.written;
    plan.fingerprints =
        fingerprintsOf(each.loaded.job, each.parameter.module, each.parameter.parameter, outputs,
                       effectiveOptions(arguments));
    for (const RunFile& file : describeFiles(each.loaded.job, false)) {
        if (file.module != each.parameter.module || file.parameter != each.parameter.parameter)
            plan.otherInputs.push_back(file.path);
    }
    plan.atATime = jobsAtATime(arguments);
    plan.resume = arguments.has("--resume");
    return plan;
}

SetResult makeFrame(const EachJob& each, const SetPlan& plan)
{
    SetResult frame;
    frame.jobName = each.loaded.job.name;
    frame.jobFile = each.loaded.job.file;
    frame.parameter = each.parameter.name();
    frame.patterns = each.patterns;
    frame.directory = plan.directory;
    frame.atATime = plan.atATime;
    frame.notes = each.set.notes;
    if (each.otherFolders > 0)
        frame.notes.push_back(counted(each.otherFolders, "folder") +
                              " with results of other files, which are not listed here");
    frame.vornVersion = VORN_VERSION;
    char name[256] = "";
    if (gethostname(name, sizeof name - 1) == 0)
        frame.host = name;
    return frame;
}

// ---- the directory of the results ----

// Keeps two calls from working in one directory at the same time.
class DirectoryLock
{
public:
    explicit DirectoryLock(const std::string& directory)
        : descriptor(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        if (descriptor >= 0 && flock(descriptor, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
            close(descriptor);
            throw CommandError("--into: another call of vorn works in " + quote(directory) +
                               "; wait for its end, or give another directory");
        }
    }
    ~DirectoryLock()
    {
        if (descriptor >= 0)
            close(descriptor);
    }
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;

private:
    int descriptor;
};

// A page of that name that does not belong to an index is somebody's.
void refuseForeignIndex(const fs::path& directory)
{
    std::error_code error;
    const bool hasPage = fs::exists(directory / pageName, error);
    const bool hasIndex = fs::exists(directory / indexName, error);
    if (!hasPage && !hasIndex)
        return;
    std::ifstream file(directory / indexName, std::ios::binary);
    const nlohmann::json json = nlohmann::json::parse(file, nullptr, false);
    if (!json.is_object() || json.value("format", "") != setFormat)
        throw CommandError(fmt::format(
            "--into: {} has an {} that is not the index of an earlier call and would be replaced; "
            "give another directory",
            quote(directory.string()), hasPage ? pageName : indexName));
}

// The index in the directory, and the file of --json.
class SetIndex
{
public:
    SetIndex(const Arguments& arguments, const std::string& directory)
        : page{"--into", (fs::path(directory) / pageName).string(), "the index", Content::page},
          index{"--into", (fs::path(directory) / indexName).string(), "the index as JSON",
                Content::json}
    {
        refuseForeignIndex(directory);
        claimOutput(page);
        claimOutput(index);
        if (!arguments.has("--json"))
            return;
        json = {"--json", arguments.text("--json"), "the JSON file", Content::json};
        if (json.path.empty())
            throw CommandError("--json: the name of a file is expected");
        claimOutput(json);
    }

    bool usesStandardOutput() const { return isStandardOutput(json.path); }
    const std::string& pagePath() const { return page.path; }

    void write(const SetResult& result) const
    {
        writeWholeFile(index, setJson(result));
        writeWholeFile(page, setPage(result));
    }
    void writeJson(const SetResult& result) const
    {
        if (!json.path.empty())
            writeWholeFile(json, setJson(result));
    }

private:
    Output page;
    Output index;
    Output json; ///< with an empty path: not wanted
};

// ---- what is told ----

std::string factsOf(const SetFile& file)
{
    std::vector<std::string> facts = {counted(file.traces, "trace")};
    if (file.isChecked)
        facts.push_back(std::to_string(file.flagged) + " flagged");
    if (file.warnings > 0)
        facts.push_back(counted(file.warnings, "warning"));
    facts.push_back(formatMicros(file.seconds * 1e6));
    return joined(facts, ", ");
}

std::string fileLine(const SetFile& file, std::size_t done, std::size_t all)
{
    const std::string number = padLeft(std::to_string(done), displayWidth(std::to_string(all)));
    const bool failed = file.verdict == FileVerdict::failed;
    return fmt::format("[{}/{}] {} {}: {}", number, all, verdictName(file.verdict),
                       escaped(file.folder), failed ? escaped(file.message) : factsOf(file));
}

std::string summary(const SetResult& result)
{
    const auto keptCount = std::count_if(result.files.begin(), result.files.end(),
                                         [](const SetFile& file) { return file.kept; });
    std::string text = fmt::format(
        "{}: {} passed, {} failed", counted(static_cast<int64_t>(result.files.size()), "file"),
        result.countOf(FileVerdict::passed), result.countOf(FileVerdict::failed));
    if (result.countOf(FileVerdict::notRun) > 0)
        text += fmt::format(", {} not run", result.countOf(FileVerdict::notRun));
    if (keptCount > 0)
        text += fmt::format(" ({} kept from an earlier call)", keptCount);
    text += "; " + counted(result.traces(), "trace");
    if (result.isChecked())
        text += fmt::format(", {} flagged", result.flagged());
    return text + ", " + formatMicros(result.seconds * 1e6);
}

void tellBeginning(Console& console, const SetResult& frame, std::size_t files)
{
    console.line(fmt::format("vorn: {} for {}; results in {}",
                             counted(static_cast<int64_t>(files), "file"), escaped(frame.parameter),
                             escaped(frame.directory)));
    for (const std::string& note : frame.notes)
        console.line("vorn: " + escaped(note));
}

// ---- Ctrl-C ----

// Tells the thread of the InterruptWatch that the index is written.
class Finished
{
public:
    explicit Finished(std::promise<void>& of) : promise(of) {}
    ~Finished() { tell(); }
    Finished(const Finished&) = delete;
    Finished& operator=(const Finished&) = delete;

    void tell()
    {
        if (!told)
            promise.set_value();
        told = true;
    }

private:
    std::promise<void>& promise;
    bool told = false;
};

[[noreturn]] void waitForTheEnd()
{
    while (true)
        pause();
}

int runPlan(SetPlan plan, SetResult frame, const SetIndex& index, Console& console, bool quiet)
{
    const std::size_t all = plan.runs.size();
    SetRunner runner(std::move(plan), std::move(frame));
    runner.onFile = [&](const SetFile& file, std::size_t done) {
        if (!quiet || file.verdict == FileVerdict::failed)
            console.line(fileLine(file, done, all));
    };
    runner.onProgress = [&](const SetResult& result) {
        try {
            index.write(result);
        } catch (const CommandError&) { // a full disk now need not be one at the end
            return;
        }
    };

    std::promise<void> written;
    const std::shared_future<void> isWritten = written.get_future().share();
    const InterruptWatch interrupts([&](int signal) {
        runner.processes().stop(signal);
        isWritten.wait();
    });
    Finished finished(written); // before the watch, which waits for it, comes to its end
    runner.run();
    const SetResult& result = runner.result();
    index.write(result);
    index.writeJson(result);
    if (!quiet) {
        console.result(summary(result) + "\n" + escaped(index.pagePath()) + "\n");
        std::fflush(stdout);
    }
    if (result.interrupted) {
        console.line(
            fmt::format("vorn: interrupted; {} of {} are done; the same call with "
                        "--resume runs the others",
                        all - static_cast<std::size_t>(result.countOf(FileVerdict::notRun)),
                        counted(static_cast<int64_t>(all), "file")));
        finished.tell();
        waitForTheEnd();
    }
    const int failed = result.countOf(FileVerdict::failed);
    if (failed == 0)
        return exitDone;
    console.line(
        fmt::format("vorn: {} of {} failed", failed, counted(static_cast<int64_t>(all), "file")));
    return exitJobErrors;
}

} // namespace

std::vector<OptionSpec> eachOptions()
{
    return {
        {"--each",
         "[MODULE=]PATTERN",
         "run the job for each file that matches, as 'data/*.sgy'; the file is that of the "
         "reader of the job, or of MODULE or MODULE.PARAMETER",
         ValueKind::pattern,
         {},
         true},
        {"--into", "DIR",
         "with --each: directory of the folders of all files, by default JOB-files",
         ValueKind::directory},
        {"--jobs", "N",
         "run so many processes at a time: parts of the job, or files with --each; auto is "
         "one for each core"},
        {"--resume", "", "with --each: run only files without a result that is still right"},
    };
}

void refuseEachOptions(const Arguments& arguments)
{
    for (const char* option : {"--into", "--resume"}) {
        if (arguments.has(option))
            throw CommandError(std::string(option) + ": this is for runs of many files; give their "
                                                     "pattern with --each");
    }
}

int runEach(const Arguments& arguments)
{
    refuseOptionsOfOneRun(arguments);
    const int atATime = jobsAtATime(arguments);
    const std::string directory = resultDirectory(arguments);
    const EachJob each = loadEachJob(arguments, directory);
    useFilesOf(each.loaded.job);
    SetPlan plan = makePlan(arguments, each, directory);
    plan.atATime = atATime;
    SetResult frame = makeFrame(each, plan);
    makeDirectory(directory, "--into");
    const DirectoryLock lock(directory);
    const SetIndex index(arguments, directory);
    Console console;
    if (index.usesStandardOutput())
        console.leaveStandardOutput();
    std::signal(SIGPIPE, SIG_IGN); // as in a single run
    const bool quiet = arguments.has("--quiet");
    if (!quiet)
        tellBeginning(console, frame, plan.runs.size());
    return runPlan(std::move(plan), std::move(frame), index, console, quiet);
}

} // namespace host
