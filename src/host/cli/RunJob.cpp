#include "cli/RunJob.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Quantities.h"
#include "base/Sanitizers.h"
#include "base/Text.h"
#include "base/TextLayout.h"
#include "cli/RunReport.h"
#include "draw/DotProgram.h"
#include "draw/JobGraph.h"
#include "draw/PadRenderer.h"
#include "draw/PadStore.h"
#include "draw/Page.h"
#include "file/FileRoles.h"
#include "file/UnfinishedOutputs.h"
#include "job/JobFileRoles.h"
#include "kernel_messages.h"
#include "report/RunTable.h"
#include "run/Console.h"
#include "run/InputDigests.h"
#include "run/Interrupt.h"
#include "run/JobExecution.h"
#include "run/OutputDigests.h"
#include "run/ProcessEnd.h"
#include "run/Progress.h"
#include "run/RunFiles.h"
#include "run/RunningModule.h"
#include "run/ScratchSpace.h"
#include "run/ThrowWatch.h"
#include "watch/ModuleCheck.h"
#include "watch/Recording.h"
#include "watch/WatchedLibrary.h"

#include <QtGlobal>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fmt/format.h>
#include <memory>
#include <optional>
#include <unistd.h>

#ifndef VORN_VERSION
#define VORN_VERSION "unknown"
#endif

namespace host {

namespace {

namespace fs = std::filesystem;

// The lowest severity that is shown.
int shownSeverity(const Arguments& arguments)
{
    if (arguments.has("--quiet"))
        return warningSeverity;
    return arguments.has("--verbose") ? detailSeverity : informationSeverity;
}

ProgressMode progressMode(const Arguments& arguments)
{
    const std::string when = arguments.text("--progress", "auto");
    if (when == "never" || (when == "auto" && arguments.has("--quiet")))
        return ProgressMode::none;
    return Console::isTerminal() ? ProgressMode::bar : ProgressMode::lines;
}

double secondsBetweenLines(const Arguments& arguments)
{
    return arguments.text("--progress") == "always" ? 1 : 10;
}

// The kernel frames each phase with a banner, which adds nothing to a log whose lines have times.
bool isBanner(const RunMessage& message)
{
    using namespace kernel_messages;
    return message.module == "Kernel" &&
           (message.text == preProcessingBanner || message.text == processingBanner ||
            message.text == postProcessingBanner);
}

// Shows messages as they come.
class MessagePrinter
{
public:
    MessagePrinter(Console& output, const ResolvedJob& job, int least)
        : console(output), leastSeverity(least)
    {
        for (const ResolvedModule& module : job.modules)
            nameWidth = std::max(nameWidth, displayWidth(module.name));
    }

    void operator()(const RunMessage& message) const
    {
        const std::string line = messageLine(message, nameWidth);
        const int severity = isBanner(message) ? detailSeverity : message.severity;
        if (severity < 0 || severity >= leastSeverity)
            console.line(line);
        else
            console.logLine(line);
    }

private:
    Console& console;
    int leastSeverity;
    int nameWidth = 6; // "Kernel"
};

// Makes the state of the progress from the counters, and notes for how long one call of a module
// has been running.
class StateReader
{
public:
    explicit StateReader(const LiveCounters& counters) : live(counters) {}

    ProgressState operator()()
    {
        const double now =
            std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
                .count();
        ProgressState state;
        state.phase = live.phase.load();
        const double since = live.processingSince.load();
        if (since > 0)
            state.seconds = now - since;
        state.traces = live.traces.load();
        state.done = live.done.load();
        state.announced = live.announced.load();
        state.bytes = live.bytes.load();
        noteCall(state, now);
        return state;
    }

private:
    void noteCall(ProgressState& state, double now)
    {
        const RunningCode running = runningCode();
        if (running.module != call.module || running.calls != call.calls ||
            running.entry != call.entry)
            callSince = now;
        call = running;
        if (running.entry == EntryPoint::none)
            return;
        state.module = running.module;
        state.place = placeOf(running);
        state.callSeconds = now - callSince;
    }

    const LiveCounters& live;
    RunningCode call; // at the last reading
    double callSince = 0;
};

// ---- what is made of the result ----

// The picture of the job, or "": the report shows a list where it cannot be drawn.
std::string graphPicture(const std::string& dot)
{
    try {
        return isDotInstalled() ? drawDot(dot, "svg") : "";
    } catch (const CommandError&) {
        return "";
    }
}

// Checksums of what a job reads and writes, where somebody will read them.
struct FileDigests
{
    explicit FileDigests(bool forReport)
    {
        if (forReport) {
            inputs.emplace();
            outputs.emplace();
        }
    }

    std::optional<InputDigests> inputs;
    std::optional<OutputDigests> outputs;
};

void addFacts(RunResult& result, const LoadedJob& loaded, const InputWatch& inputs,
              const FileDigests& digests, bool forReport)
{
    const ResolvedJob& job = loaded.job;
    for (const Diagnostic& warning : loaded.diagnostics.sorted())
        result.checkWarnings.push_back(warning.place.text() + ": " + warning.text);
    result.vornVersion = VORN_VERSION;
    result.qtVersion = qVersion();
    result.compiler = std::string("C++ compiler ") + __VERSION__;
    char name[256] = "";
    if (gethostname(name, sizeof name - 1) == 0)
        result.host = name;
    if (!forReport)
        return;
    addChecksums(result.inputs, digests.inputs ? &*digests.inputs : nullptr,
                 [&](const std::string& path) { return inputs.isChanged(path); });
    addChecksums(result.outputs, *digests.outputs);
    std::vector<int> order;
    for (const RunModule& module : result.modules)
        order.push_back(module.order);
    result.graphDot = graphDot(job, order, result.tees.empty() ? Tees::hidden : Tees::shown);
    result.graphSvg = graphPicture(result.graphDot);
}

// Paths of the pictures that were written.
std::vector<std::string> writePictures(const PadStore& pads, const std::string& directory,
                                       const std::string& format)
{
    std::vector<std::string> paths;
    const std::vector<std::string> names = pictureNames(pads.pads());
    for (std::size_t i = 0; i < names.size(); ++i) {
        paths.push_back((fs::path(directory) / (names[i] + "." + format)).string());
        renderPad(pads.pads()[i], paths.back());
        VORN::usedFiles().add(paths.back(), "the picture " + quote(paths.back()), paths.back());
    }
    return paths;
}

// Where pictures go; "" when they are not wanted.
std::string pictureDirectory(const Arguments& arguments)
{
    if (arguments.has("--pictures"))
        makeDirectory(arguments.text("--pictures"), "--pictures");
    return arguments.text("--pictures");
}

void tellResult(Console& console, const RunResult& result, bool quiet)
{
    const std::string rate = rateLine(result);
    const std::string text =
        "\n" + statisticsTable(result) + (rate.empty() ? "" : "\n" + rate + "\n");
    if (quiet)
        console.logLine(text);
    else
        console.result(text);
}

void tellFiles(Console& console, const RunResult& result, bool quiet)
{
    for (const RunFile& file : result.outputs) {
        if (file.written) {
            if (!quiet)
                console.result(fmt::format("{}: {}\n", escaped(file.path),
                                           formatBytes(static_cast<double>(file.bytes))));
            continue;
        }
        console.line(fmt::format("vorn: module {} did not write {}{}", quote(file.module),
                                 escaped(file.path),
                                 file.exists ? "; the existing file of that name is older" : ""));
    }
}

std::string findingLine(const RunFinding& finding)
{
    std::string text = "vorn: module " + quote(finding.module) + " " + escaped(finding.text);
    std::vector<std::string> where;
    if (!finding.function.empty())
        where.push_back(finding.function);
    if (!finding.place.empty())
        where.push_back(finding.place);
    return where.empty() ? text : text + " (" + joined(where, ", ") + ")";
}

void tellFindings(Console& console, const RunResult& result, bool quiet)
{
    for (const RunFinding& finding : result.findings) {
        if (finding.count > 1) // what to do has been said
            console.line(fmt::format("vorn: {} times: module {} {}", finding.count,
                                     quote(finding.module),
                                     escaped(finding.text.substr(0, finding.text.find(": ")))));
    }
    if (!result.findings.empty())
        console.line("vorn: the check of the modules has found " +
                     counted(static_cast<int64_t>(result.findings.size()), "mistake"));
    else if (result.isChecked && !quiet)
        console.line("vorn: the check of the modules has found nothing");
}

void tellEnd(Console& console, const RunResult& result)
{
    int errors = 0;
    for (const RunMessage& message : result.messages)
        errors += message.severity >= errorSeverity ? 1 : 0;
    if (errors > 0)
        console.line("vorn: the job ended with " + counted(errors, "error"));
}

// ---- Ctrl-C, and the end of the time ----

// When the run has to be over; nothing without --time-limit.
struct TimeLimit
{
    double seconds = 0;
    std::optional<InterruptWatch::Clock::time_point> deadline;
};

TimeLimit timeLimit(const Arguments& arguments)
{
    if (!arguments.has("--time-limit"))
        return {};
    const std::string text = arguments.text("--time-limit");
    const std::optional<double> seconds = parseDuration(text);
    if (!seconds || !(*seconds > 0))
        throw CommandError(fmt::format("--time-limit is {}; expected a duration above 0, as 90, 90 "
                                       "s, 5 min or 2 h",
                                       quote(text)));
    using Clock = InterruptWatch::Clock;
    constexpr double longest = 1e9; // 30 years
    const std::chrono::duration<double> span(std::min(*seconds, longest));
    return {*seconds, Clock::now() + std::chrono::duration_cast<Clock::duration>(span)};
}

// The last lines of a process. The thread of the job may be using the console.
void writeEnd(const std::string& lines)
{
    const std::string shown = (Console::isTerminal() ? "\r\x1b[K" : "") + lines;
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, shown.data(), shown.size());
    addToOpenLog(lines.data(), lines.size());
}

// The reason for the end: a signal, or for 0 the time limit.
std::string endText(int signal, const TimeLimit& limit)
{
    if (signal == 0)
        return "vorn: the time limit of " + formatMicros(limit.seconds * 1e6) + " has passed";
    return signal == SIGINT ? "vorn: interrupted" : "vorn: ended by a signal";
}

// What was running, also where it would never have ended by itself.
std::string runningText()
{
    const RunningCode running = runningCode();
    if (running.entry == EntryPoint::none)
        return "";
    return fmt::format("; module {} was running {}", running.module, placeOf(running));
}

// The paths of what is removed. From here on no output begins, and none gets its name.
std::vector<std::string> endOutputs()
{
    std::vector<std::string> removed;
    VORN::stopOutputs();
    VORN::removeUnfinishedOutputs(
        [](void* paths, const char* path) {
            static_cast<std::vector<std::string>*>(paths)->emplace_back(path);
        },
        &removed);
    return removed;
}

// Runs on a thread of its own, while the job's may be anywhere: no locks.
void cleanUp(int signal, const TimeLimit& limit, const ScratchSpace& scratch,
             const OutputWatch& outputs)
{
    std::string text = endText(signal, limit) + runningText();
    scratch.remove();
    const std::vector<std::string> removed = endOutputs();
    const std::vector<std::string> left = outputs.incomplete();
    if (!removed.empty() || !left.empty())
        text += "; these outputs are incomplete:\n";
    else
        text += "; no output is incomplete\n";
    for (const std::string& path : removed)
        text += "vorn: incomplete, removed: " + escaped(path) + "\n";
    for (const std::string& path : left)
        text += "vorn: incomplete: " + escaped(path) + "\n";
    writeEnd(text);
    scratch.remove(); // should a file have been made meanwhile
}

// The same after the job, whose outputs are as it has left them.
void cleanUpLate(int signal, const TimeLimit& limit)
{
    endOutputs();
    writeEnd(endText(signal, limit) +
             " after the job had ended; its report, JSON file and pictures may be missing\n");
}

// As long as it lives, the outputs of the job are among what is named when the process ends.
class OutputsListed
{
public:
    explicit OutputsListed(const OutputWatch& outputs)
    {
        const auto list = [](const void* watch, void (*tell)(const char* path)) {
            static_cast<const OutputWatch*>(watch)->listIncomplete(tell);
        };
        setListIncomplete(list, &outputs);
    }
    ~OutputsListed() { setListIncomplete(nullptr, nullptr); }
    OutputsListed(const OutputsListed&) = delete;
    OutputsListed& operator=(const OutputsListed&) = delete;
};

// What is to be recorded; null: nothing.
std::unique_ptr<Recording> recordingOf(const Arguments& arguments, const ResolvedJob& job)
{
    if (!arguments.has("--record"))
        return nullptr;
    std::vector<RecordRequest> requests;
    const std::vector<std::string> texts = arguments.texts("--record");
    requests.reserve(texts.size());
    for (const std::string& text : texts)
        requests.push_back(readRecordRequest(text, job));
    constexpr int fewTraces = 1000;
    return std::make_unique<Recording>(requests, arguments.integer("--record-traces", fewTraces),
                                       VORN_VERSION);
}

void tellRecords(Console& console, const Recording& recording, bool quiet)
{
    for (const auto& [file, problem] : recording.files()) {
        if (!problem.empty())
            console.line("vorn: the record " + quote(file) + " is not whole: it could not be " +
                         "written any further: " + problem);
        else if (!quiet)
            console.line("vorn: the record " + quote(file) + " can be replayed: vorn replay " +
                         shellWord(file));
    }
}

RunResult runWatched(const Arguments& arguments, const ResolvedJob& job, JobExecution& run,
                     Console& console, PadStore& pads, const TimeLimit& limit, bool watchHeaders,
                     PartsOfJob* parts)
{
    const ScratchSpace& scratch = run.scratch();
    if (scratch.removedBefore() > 0 && arguments.has("--verbose"))
        console.line(fmt::format("vorn: removed the scratch files of {} in {}",
                                 counted(scratch.removedBefore(), "killed run"),
                                 escaped(job.scratchDirectory)));
    const OutputsListed listed(run.outputs());
    const InterruptWatch interrupts(
        [&](int signal) {
            if (parts != nullptr)
                parts->stop(signal);
            cleanUp(signal, limit, scratch, run.outputs());
        },
        limit.deadline);
    if (parts != nullptr) {
        const Progress progress(console, progressMode(arguments), secondsBetweenLines(arguments),
                                [&] { return parts->progress(); });
        parts->work(scratch.path());
    }
    const std::unique_ptr<Recording> recording = recordingOf(arguments, job);
    JobRunner& runner = run.runner();
    runner.onMessage = MessagePrinter(console, job, shownSeverity(arguments));
    runner.watchHeaders = watchHeaders;
    runner.reportsExceptions = true;
    runner.leavesLibraries = hasSanitizerRuntime();
    watchThrows();
    runner.watchTees = arguments.has("--verbose");
    std::optional<ModuleCheck> check;
    std::vector<RunExtension*> extensions;
    std::vector<watched::Observer*> observers;
    if (arguments.has("--check-modules")) {
        check.emplace(job, [&](const RunFinding& finding) { console.line(findingLine(finding)); });
        extensions.push_back(&*check);
        observers.push_back(&*check);
    }
    if (recording != nullptr) {
        extensions.push_back(recording.get());
        observers.push_back(recording.get());
    }
    RunExtensions watching(std::move(extensions));
    std::optional<WatchedCalls> calls;
    if (parts != nullptr) {
        runner.extension = parts->merge();
    } else if (!observers.empty()) {
        runner.extension = &watching;
        calls.emplace(std::move(observers));
    }
    if (recording != nullptr)
        recording->onFull = [&] { calls->leaveOut(*recording); };
    pads.install(runner.manager());
    const Progress progress(console, progressMode(arguments), secondsBetweenLines(arguments),
                            StateReader(runner.counters()));
    RunResult result = run.run();
    if (recording != nullptr)
        tellRecords(console, *recording, arguments.has("--quiet"));
    if (parts != nullptr) {
        result.wallMicros += parts->workMicros().value_or(0);
        // Where the parts ran elsewhere, no time tells how fast the traces were.
        result.processWallMicros =
            parts->workMicros() ? result.processWallMicros + *parts->workMicros() : 0;
    }
    return result;
}

// What the parts have read counts as read.
void addReadings(PartsOfJob& parts, InputDigests& digests)
{
    if (parts.merge() == nullptr)
        return;
    for (const Receipt& receipt : parts.merge()->parts()) {
        for (const PartReading& reading : receipt.readings)
            digests.add(reading.module, reading.path, reading.ranges);
    }
}

bool writesStandardOutput(const ResolvedJob& job)
{
    const std::vector<RunFile> outputs = describeFiles(job, true);
    return std::any_of(outputs.begin(), outputs.end(),
                       [](const RunFile& file) { return isStandardOutput(file.path); });
}

} // namespace

void checkTimeLimit(const Arguments& arguments)
{
    timeLimit(arguments);
}

std::vector<OptionSpec> runOptions()
{
    std::vector<OptionSpec> options = reportOptions();
    const std::vector<OptionSpec> own = {
        {"--pictures", "DIR", "write what modules draw to this directory", ValueKind::directory},
        {"--format", "FORMAT", "kind of these pictures", ValueKind::choice, {"png", "svg", "pdf"}},
        {"--log", "FILE", "write all messages to this file, details included", ValueKind::file},
        {"--time-limit", "DURATION",
         "end the run when this time has passed, as 90, 90 s, 5 min or 2 h"},
        {"--progress",
         "WHEN",
         "show the progress of the job: on a terminal in one line that changes, elsewhere in a "
         "line every few seconds",
         ValueKind::choice,
         {"auto", "always", "never"}},
        {"-q,--quiet", "", "show warnings and errors only"},
        {"-v,--verbose", "",
         "show details as well, and the tees before several readers of an output"},
    };
    options.insert(options.end(), own.begin(), own.end());
    return options;
}

int runJob(const Arguments& arguments, const LoadedJob& loaded, PartsOfJob* parts)
{
    const TimeLimit limit = timeLimit(arguments);
    const RunReport report(arguments, loaded.job);
    Console console;
    if (report.usesStandardOutput() || writesStandardOutput(loaded.job))
        console.leaveStandardOutput();
    if (arguments.has("--log"))
        console.openLog(arguments.text("--log"));
    const std::string pictures = pictureDirectory(arguments);
    std::signal(SIGPIPE,
                SIG_IGN); // the job must survive the end of the process that reads its messages

    PadStore pads;
    FileDigests digests(report.isWanted());
    JobExecution run(loaded.job);
    RunResult result =
        runWatched(arguments, loaded.job, run, console, pads, limit, report.isWanted(), parts);
    run.end();
    if (parts != nullptr && digests.inputs)
        addReadings(*parts, *digests.inputs);
    if (parts != nullptr && parts->merge() != nullptr && parts->merge()->isSorted())
        digests.inputs.reset(); // what sorted parts have read is not known
    const InterruptWatch interrupts([&](int signal) { cleanUpLate(signal, limit); },
                                    limit.deadline);
    addFacts(result, loaded, run.inputs(), digests, report.isWanted());
    result.timeLimitSeconds = limit.seconds;

    const bool quiet = arguments.has("--quiet");
    tellResult(console, result, quiet);
    tellFiles(console, result, quiet);
    std::string problem; // must not keep the report from being written
    try {
        if (!pictures.empty()) {
            for (const std::string& path :
                 writePictures(pads, pictures, arguments.text("--format", "png")))
                console.result(escaped(path) + "\n");
        }
    } catch (const DrawingError& error) {
        problem = error.what();
    }
    for (const std::string& path : report.write(result, pads.pads()))
        console.result(escaped(path) + "\n");
    if (!problem.empty())
        throw CommandError(problem);
    tellFindings(console, result, quiet);
    tellEnd(console, result);
    const std::string incomplete = console.closeLog();
    if (!incomplete.empty())
        throw CommandError(incomplete,
                           result.end == RunEnd::notStarted ? exitWrongCall : exitJobErrors);
    if (result.end == RunEnd::notStarted)
        return exitWrongCall;
    if (result.failed)
        return result.exitCode != 0 ? result.exitCode : exitJobErrors;
    if (!result.findings.empty())
        return exitJobErrors;
    return exitDone;
}

} // namespace host
