#include "each/SetRunner.h"

#include "base/CommandError.h"
#include "each/FileSet.h"
#include "each/RunFacts.h"

#include <algorithm>
#include <ctime>
#include <filesystem>

namespace host {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::seconds betweenPages(5);

double secondsSince(std::chrono::steady_clock::time_point start)
{
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

std::string timeText()
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local));
}

void makeFolder(const fs::path& folder)
{
    std::error_code error;
    fs::create_directories(folder, error);
    if (error)
        throw CommandError("the folder " + folder.string() + " cannot be made: " + error.message());
}

// What an earlier run has reported must not stand beside what this one does. Data that the job has
// written stay until the job replaces them.
void removeReports(const fs::path& folder, const std::string& directory, const RunRecord& former)
{
    std::error_code none;
    for (const char* name : {reportName, jsonName, logName})
        fs::remove(folder / name, none);
    for (const std::string& picture : former.file.pictures)
        fs::remove(fs::path(directory) / picture, none);
}

} // namespace

SetRunner::SetRunner(SetPlan toDo, SetResult frame) : plan(std::move(toDo)), facts(std::move(frame))
{
    facts.started = timeText();
    facts.running = true;
    facts.files.resize(plan.runs.size());
    for (std::size_t i = 0; i < plan.runs.size(); ++i) {
        facts.files[i].path = plan.runs[i].path;
        facts.files[i].folder = plan.runs[i].folder;
        facts.files[i].words = plan.runs[i].words;
    }
}

RunRecord SetRunner::recordOf(std::size_t i) const
{
    RunRecord record;
    record.key = pathKey(plan.runs[i].path);
    record.fingerprints = plan.fingerprints;
    record.inputs.push_back(stateOf(plan.runs[i].path));
    for (const std::string& path : plan.otherInputs)
        record.inputs.push_back(stateOf(path));
    record.file = facts.files[i];
    return record;
}

// Takes over the results that are still the right ones; the others have to wait for their run.
void SetRunner::keepResults()
{
    for (std::size_t i = 0; i < plan.runs.size(); ++i) {
        const std::string folder = (fs::path(plan.directory) / plan.runs[i].folder).string();
        const std::optional<RunRecord> former =
            plan.resume ? readRecord(folder) : std::optional<RunRecord>();
        const std::string reason = reasonToRun(former, recordOf(i));
        if (!plan.resume || !reason.empty() || !plan.runs[i].refusal.empty()) {
            facts.files[i].reason = former ? reason : "";
            waiting.push_back(i);
            continue;
        }
        facts.files[i] = former->file;
        facts.files[i].path = plan.runs[i].path;
        facts.files[i].folder = plan.runs[i].folder;
        facts.files[i].kept = true;
        ++done;
    }
    std::reverse(waiting.begin(), waiting.end());
}

void SetRunner::prepare(std::size_t i, RunRecord& record)
{
    const PlannedRun& planned = plan.runs[i];
    const fs::path folder = fs::path(plan.directory) / planned.folder;
    makeFolder(folder);
    if (const std::optional<RunRecord> former = readRecord(folder.string()))
        removeReports(folder, plan.directory, *former);
    record.isComplete = false;
    writeRecord(folder.string(), record); // the folder is this file's from here on
    for (const std::string& output : planned.outputs) {
        const fs::path place = fs::path(output).parent_path();
        const auto [end, ignored] =
            std::mismatch(folder.begin(), folder.end(), place.begin(), place.end());
        if (end == folder.end()) // an output in a folder within that of the file
            makeFolder(place);
    }
}

void SetRunner::refuse(std::size_t i, const std::string& message)
{
    SetFile& file = facts.files[i];
    file.verdict = FileVerdict::failed;
    file.message = message;
    tell(i);
}

void SetRunner::startNext()
{
    const std::size_t i = waiting.back();
    waiting.pop_back();
    const PlannedRun& planned = plan.runs[i];
    if (!planned.refusal.empty()) {
        refuse(i, planned.refusal);
        return;
    }
    RunRecord record = recordOf(i);
    try {
        prepare(i, record);
        const std::string log = (fs::path(plan.directory) / planned.folder / logName).string();
        const pid_t process = children.start(plan.program, planned.words, log);
        if (process == 0)
            return;
        facts.files[i].started = timeText();
        running[process] = {i, std::chrono::steady_clock::now()};
        records[i] = std::move(record);
    } catch (const CommandError& error) {
        refuse(i, error.what());
    }
}

void SetRunner::finish(const ProcessOutcome& outcome)
{
    const auto entry = running.find(outcome.process);
    if (entry == running.end())
        return;
    const std::size_t i = entry->second.index;
    SetFile& file = facts.files[i];
    file.seconds = secondsSince(entry->second.start);
    file.peakBytes = outcome.peakBytes;
    running.erase(entry);
    RunRecord record = std::move(records[i]);
    records.erase(i);
    constexpr int signalBase = 128;
    if (children.isStopped() && outcome.exitCode > signalBase) {
        file.message = "interrupted";
        return;
    }
    file.exitCode = outcome.exitCode;
    file.verdict = outcome.exitCode == 0 ? FileVerdict::passed : FileVerdict::failed;
    readRunFacts(plan.directory, file, record.inputs.front().sha256);
    const fs::path directory = plan.directory;
    std::error_code none;
    if (file.pictures.empty())
        fs::remove(directory / file.folder / picturesName, none); // unless something is in it
    for (const std::string& name : {file.report, file.json, file.log}) {
        if (!name.empty())
            record.results.push_back(stateOf((directory / name).string()));
    }
    for (const std::string& name : file.pictures)
        record.results.push_back(stateOf((directory / name).string()));
    for (const std::string& path : file.outputs) {
        std::error_code error;
        if (fs::is_regular_file(path, error))
            record.results.push_back(stateOf(path));
    }
    record.isComplete = true;
    record.file = file;
    try {
        writeRecord((directory / file.folder).string(), record);
    } catch (const CommandError& error) {
        file.verdict = FileVerdict::failed;
        file.message = error.what();
    }
    tell(i);
}

void SetRunner::tell(std::size_t i)
{
    ++done;
    if (onFile)
        onFile(facts.files[i], done);
    facts.seconds = secondsSince(begin);
    const auto now = std::chrono::steady_clock::now();
    if (onProgress && now - lastProgress >= betweenPages && !waiting.empty()) {
        onProgress(facts);
        lastProgress = now;
    }
}

void SetRunner::run()
{
    keepResults();
    while (true) {
        while (!waiting.empty() && static_cast<int>(running.size()) < plan.atATime &&
               !children.isStopped())
            startNext();
        const std::optional<ProcessOutcome> outcome = children.waitForOne();
        if (outcome)
            finish(*outcome);
        else if (waiting.empty() || children.isStopped())
            break;
    }
    facts.running = false;
    facts.interrupted = children.isStopped();
    facts.seconds = secondsSince(begin);
}

} // namespace host
