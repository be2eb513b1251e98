#include "run/JobRunner.h"

#include "JobManager.h"
#include "JobOutcome.h"
#include "ModuleEntity.h"
#include "ScratchManager.h"
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "base/Text.h"
#include "kernel_messages.h"
#include "run/CrashReport.h"
#include "run/CutGathers.h"
#include "run/DataFlow.h"
#include "run/LastCalls.h"
#include "run/RecordWatch.h"
#include "run/RunningModule.h"
#include "run/ThrowWatch.h"

#include <QtGlobal>
#include <algorithm>
#include <array>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <cxxabi.h>
#include <exception>
#include <fmt/format.h>
#include <new>
#include <set>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

// Further messages of one module and severity are passed on, but not kept for the report.
constexpr int mostMessagesKept = 10000;
enum StatisticPhase
{
    preProcessing = 1,
    processing = 2,
    postProcessing = 3
};

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

int64_t microsSince(Clock::time_point start)
{
    return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
}

std::string localTime(const char* format)
{
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    return std::string(text, std::strftime(text, sizeof text, format, &local));
}

// "job.yaml:12": editors and terminals jump there. What stands on the command line has no number.
std::string lineOf(const Place& place)
{
    return place.line > 0 ? fmt::format("{}:{}", place.source, place.line) : place.source;
}

JobRunner* diagnosticTarget = nullptr;
QtMessageHandler formerHandler = nullptr; // of the application

void receiveDiagnostic(QtMsgType, const QMessageLogContext&, const QString& text)
{
    if (diagnosticTarget != nullptr)
        diagnosticTarget->takeDiagnostic(text.toStdString());
}

int receiveMessage(int type, char*, const char* module, const char* text, void* runner)
{
    static_cast<JobRunner*>(runner)->takeMessage(type, module, text);
    return 0;
}

int receiveArgument(const char* text, void* runner)
{
    static_cast<JobRunner*>(runner)->takeArgument(text);
    return 0;
}

int receiveStatistic(jobStatisticStruct* statistic, void* runner)
{
    static_cast<JobRunner*>(runner)->takeStatistic(*statistic);
    return 0;
}

int receiveCommand(const char* command, void* runner)
{
    static_cast<JobRunner*>(runner)->takeCommand(command);
    return 0;
}

// Runs a phase; an exception of another kind becomes one that the job understands.
int withStandardExceptions(const std::function<int()>& phase)
{
    try {
        return phase();
    } catch (const std::exception&) {
        throw;
    } catch (abi::__forced_unwind&) { // pthread_exit(), which must not be stopped
        throw;
    } catch (...) {
        throw std::runtime_error("an object that is not a std::exception");
    }
}

// What looks at the calls of modules.
class CallWatch : public CallObserver
{
public:
    CallWatch(DeadlockWatch& first, RecordWatch& second) : deadlocks(first), records(second) {}

    void beforeCall() override { deadlocks.beforeCall(); }
    void afterCall(const ModuleEntity& module) override
    {
        deadlocks.afterCall(module);
        records.afterCall(module);
    }

private:
    DeadlockWatch& deadlocks;
    RecordWatch& records;
};

// The directory is another one in each run, and setenv() keeps every value that a variable has ever
// had: a process that runs jobs all day would grow.
void setScratch(const std::string& directory)
{
    static std::array<char, PATH_MAX + 16> entry; // of the environment
    const std::string text = "VORN_SCRATCH=" + directory;
    if (text.size() >= entry.size()) {
        setenv("VORN_SCRATCH", directory.c_str(), 1);
        return;
    }
    unsetenv("VORN_SCRATCH"); // which may be the entry
    std::copy_n(text.c_str(), text.size() + 1, entry.begin());
    putenv(entry.data());
}

} // namespace

JobRunner::JobRunner(const ResolvedJob& resolved, const std::string& scratchDirectory)
    : job(resolved), recorder(resolved, result, live), deadlocks(resolved, modules, wiring),
      start(Clock::now())
{
    for (const ResolvedModule& module : job.modules)
        places[module.name] = lineOf(module.place);
    prepareKernel(scratchDirectory);
}

JobRunner::~JobRunner()
{
    JobManager& kernel = manager();
    kernel.installMessageFunc(nullptr, nullptr, nullptr);
    kernel.installStatisticFunc(nullptr, nullptr);
    kernel.installExecAppliFunc(nullptr, nullptr);
    qInstallMessageHandler(formerHandler);
    diagnosticTarget = nullptr;
}

JobManager& JobRunner::manager()
{
    return *JobManager::getInstance();
}

void JobRunner::prepareKernel(const std::string& scratchDirectory)
{
    setenv("VORN_HOME", job.vornHome.c_str(), 1);
    setScratch(scratchDirectory);
    setenv("VORN_SCRATCH_SIZE", std::to_string(job.scratchTraces).c_str(), 1);
    // Also for a manager that an earlier job of this process has left.
    ScratchManager::getInstance();
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = job.scratchTraces;

    diagnosticTarget = this;
    formerHandler = qInstallMessageHandler(receiveDiagnostic);
    JobManager& kernel = manager();
    kernel.resetJob();
    kernel.setReleaseAtEnd(true);
    kernel.installMessageFunc(receiveMessage, receiveArgument, this);
    kernel.installStatisticFunc(receiveStatistic, this);
    kernel.installExecAppliFunc(receiveCommand, this);
    forgetRunningModules();
    std::map<std::string, std::string> mark = {
        {jobFailureKey, "no memory"}}; // texts without blocks
    spareMark = mark.extract(mark.begin());
    kernel.setJobName(job.name.c_str());
    kernel.setProjectDir(QString::fromStdString(job.project));
    kernel.setScratchDir(QString::fromStdString(scratchDirectory));

    for (const ResolvedAttribute& attribute : job.attributes)
        kernel.addTraceAttributeDefinition(attribute.name, attribute.type, attribute.dimension,
                                           attribute.description, 0, 0, 0, 0, 0);
}

RunResult JobRunner::run()
{
    result.jobName = job.name;
    result.jobFile = job.file;
    result.resolvedJob = resolvedYaml(job);
    result.projectDirectory = job.project;
    result.scratchDirectory = job.scratchDirectory;
    result.scratchTraces = job.scratchTraces;
    result.schema = job.schema;
    result.vornHome = job.vornHome;
    result.started = localTime("%Y-%m-%d %H:%M:%S");
    start = Clock::now();

    recorder.describeModules();
    const CrashFacts facts(job, modules);
    forgetThrows();
    if (createModules()) {
        wiring = connectModules(job, modules, tees, manager(),
                                extension != nullptr ? extension->readerFunction() : nullptr);
        watchEntryPoints(modules);
        watchEntryPoints(tees);
        recorder.watch(modules, wiring, watchHeaders);
        if (watchTees)
            recorder.showTees();
        setParameters();
        requestOrder();
        if (extension != nullptr)
            extension->connected(view());
        runPhases();
    } else {
        result.end = RunEnd::notStarted;
        result.failed = true;
        modules.clear();
        tees.clear();
        manager().postProcessJob(); // deletes those that were created
    }
    if (leavesLibraries)
        libraries.leave();
    else
        libraries.close();
    result.wallMicros = std::max<int64_t>(1, microsSince(start));
    result.busyMicros += result.wallMicros;
    for (std::vector<RunModule>* rows : {&result.modules, &result.tees}) {
        for (RunModule& module : *rows)
            module.statistics.share = static_cast<double>(module.statistics.totalMicros()) /
                                      static_cast<double>(result.busyMicros);
    }
    return result;
}

bool JobRunner::createModules()
{
    bool good = true;
    for (const ResolvedModule& module : job.modules) {
        const LibraryCall loading(EntryPoint::loading, module.name);
        modules.push_back(module.replaced != nullptr
                              ? module.replaced->make(module.name)
                              : manager().initJobModule(module.name, module.library));
        good = good && modules.back() != nullptr;
        if (modules.back() != nullptr)
            libraries.keep(*modules.back());
    }
    for (const std::string& name : teeNames(job)) {
        const LibraryCall loading(EntryPoint::loading, name);
        tees.push_back(manager().initJobModule(name, job.teeLibrary));
        good = good && tees.back() != nullptr;
    }
    return good;
}

void JobRunner::setParameters()
{
    for (std::size_t i = 0; i < modules.size(); ++i) {
        for (const ResolvedParameter& parameter : job.modules[i].parameters)
            modules[i]->setParameter(parameter.name, parameter.value.value);
    }
}

// The source answers the module that sorts, or declines: then that one does the work.
void JobRunner::requestOrder()
{
    if (!job.order)
        return;
    const ReadingOrder& order = *job.order;
    manager().setMetaDataValue(
        0, "vorn.order." + job.modules[static_cast<std::size_t>(order.source)].name,
        fmt::format("{}\n{}\n{}", order.sorter, fmt::join(order.keys, ","), order.file));
}

void JobRunner::enter(const char* phase)
{
    live.phase.store(phase);
}

void JobRunner::runPhases()
{
    JobManager& kernel = manager();
    enter("preparing");
    wiring.showProducers(modules);
    const bool good = guarded([&] { return kernel.preProcessJob(); });
    recorder.noteOrder();
    recorder.noteMicros(&RunStatistics::preprocessMicros);

    if (good && !fatal)
        warnOfCutGathers();
    // A module that could not begin has ended its data; running the others would only waste time.
    if (good && !fatal) {
        const Clock::time_point began = Clock::now();
        live.processingSince.store(std::chrono::duration<double>(began.time_since_epoch()).count());
        enter("processing");
        wiring.showTees(modules);
        RecordWatch stages(job, modules, wiring,
                           [this](std::size_t module, const Place& place, const std::string& text) {
                               const std::string& name = job.modules[module].name;
                               std::string key = text; // one word
                               std::replace(key.begin(), key.end(), ' ', '_');
                               keepMessage(warningSeverity, name,
                                           place.source.empty() ? places[name] : lineOf(place),
                                           text, key);
                           });
        CallWatch watch(deadlocks, stages);
        const ObservedCalls calls(watch);
        const bool ran = guarded([&] {
            if (extension != nullptr)
                extension->prepared(view());
            return kernel.processJob();
        });
        if (extension != nullptr)
            guarded([&] {
                extension->processed(view(), ran && !result.failed);
                return 0;
            });
        if (ran && !result.failed) {
            refuseLostEnds();
            stages.finish();
        }
        wiring.showProducers(modules);
        result.processWallMicros = microsSince(began);
    }
    recorder.noteMicros(&RunStatistics::processMicros);

    enter("finishing");
    kernel.setActiveModule(nullptr);
    if (good && objections) {
        for (const std::string& text : objections())
            stopWithError(text);
    }
    const LastCalls calls(
        kernel, [this](const ModuleEntity* module) { return writesFile(module); },
        [this](const std::exception& error) { noteException(error); });
    guarded([&] { return kernel.postProcessJob(); });
    if (extension != nullptr)
        extension->ended(result);
    if (!result.failed && result.end == RunEnd::done)
        warnOfUnreadData();
    enter("done");
}

void JobRunner::warnOfCutGathers()
{
    const auto noteOf = [this](const std::string& source) {
        return manager().getMetaDataValue(0, "vorn.cut." + source);
    };
    for (const CutGather& cut : cutGathers(job, noteOf))
        takeMessage(warningSeverity, job.modules[cut.module].name, cut.text);
}

// The kernel drops a module whose producers have ended and tells nobody. Modules that hold traces
// back until the end have then lost some.
void JobRunner::refuseLostEnds()
{
    DataFlow flow(job, modules, wiring);
    for (const std::string& text : flow.lostEnds())
        stopWithError(text);
    if (result.failed)
        return;
    for (const std::string& text : flow.unreadTraces())
        takeMessage(warningSeverity, "vorn", text);
}

// Runs a phase; false when it did not come to its end.
bool JobRunner::guarded(const std::function<int()>& phase)
{
    try {
        // A crash report shows the stack of what nothing catches.
        if ((reportsExceptions ? phase() : withStandardExceptions(phase)) == 0)
            return true;
        stopWithError("the kernel has stopped the job");
    } catch (const Deadlock& reason) {
        result.end = RunEnd::stalled;
        stopWithError(reason.what());
    } catch (const CommandError& error) {
        result.exitCode = error.code;
        result.failed = true;
        if (*error.what() != 0) // else it has been told
            stopWithError(error.what());
    } catch (const std::exception& error) {
        noteException(error);
    }
    return false;
}

// A module has thrown it.
void JobRunner::noteException(const std::exception& error)
{
    result.failed = fatal = true; // also when there is no memory to say so
    try {
        std::string module = manager().getCurrentModuleName();
        if (module.empty()) // the phase has been left
            module = manager().jobOutcome().thrownBy;
        const auto place = places.find(module);
        keepMessage(fatalSeverity, "vorn", place != places.end() ? place->second : "",
                    fmt::format("module {} ended with an exception that it does not handle: {}",
                                quote(module), error.what()));
        if (reportsExceptions && keptThrow().running.entity != nullptr) {
            CrashCause cause;
            cause.thrown = &keptThrow();
            cause.hasStack = keptThrow().count > 0;
            reportCrash(keptThrow().running, cause);
        }
        forgetThrows();
    } catch (const std::bad_alloc&) {
        // Ending the job matters more than the words.
        if (!spareMark.empty())
            manager().metaDataMap.insert(std::move(spareMark));
    }
}

bool JobRunner::writesFile(const ModuleEntity* module) const
{
    const auto known = std::find(modules.begin(), modules.end(), module);
    if (known == modules.end())
        return false;
    const auto& parameters =
        job.modules[static_cast<std::size_t>(known - modules.begin())].parameters;
    return std::any_of(parameters.begin(), parameters.end(),
                       [](const ResolvedParameter& one) { return one.isOutputFile; });
}

void JobRunner::stopWithError(const std::string& text)
{
    takeMessage(fatalSeverity, "vorn", text);
}

void JobRunner::takeMessage(int type, const std::string& module, const std::string& text)
{
    const auto place = places.find(module);
    keepMessage(type, module, place != places.end() ? place->second : "", text);
    if (extension != nullptr && module == "Kernel" && text == kernel_messages::processingBanner)
        extension->processing(view());
}

void JobRunner::keepMessage(int type, const std::string& module, const std::string& place,
                            const std::string& text, const std::string& onceKey)
{
    // The kernel keeps the trace in memory then: more memory is needed, and nothing is wrong with
    // the results.
    if (type == errorSeverity && !isFailureMessage(type, text))
        type = warningSeverity;

    RunMessage message;
    message.seconds = secondsSince(start);
    message.time = localTime("%H:%M:%S");
    message.module = module;
    message.place = place;
    message.severity = type;
    message.text = text;
    message.onceKey = onceKey;
    store(std::move(message));
}

void JobRunner::repeat(const RunMessage& message)
{
    store(message);
}

void JobRunner::store(RunMessage message)
{
    if (message.severity >= errorSeverity)
        result.failed = true;
    if (message.severity >= fatalSeverity) {
        fatal = true;
        manager().setMetaDataValue(0, jobFailureKey, message.module + ": " + message.text);
    }
    lastMessageKept = ++kept[{message.module, message.severity}] <= mostMessagesKept;
    if (!lastMessageKept)
        ++result.messagesLeftOut;
    if (onMessage)
        onMessage(message);
    if (lastMessageKept)
        result.messages.push_back(std::move(message));
}

RunView JobRunner::view()
{
    return {*this, manager(), job, modules, wiring, result};
}

void JobRunner::takeArgument(const std::string& text)
{
    // The kit's way of saying that the module sends this message once.
    constexpr std::string_view once = "vorn.once ";
    if (text.starts_with(once)) {
        if (lastMessageKept && !result.messages.empty())
            result.messages.back().onceKey = text.substr(once.size());
        return;
    }
    if (lastMessageKept && !result.messages.empty())
        result.messages.back().arguments.push_back(text);
}

void JobRunner::takeCommand(const std::string& command)
{
    takeMessage(warningSeverity, manager().getCurrentModuleName(),
                "this module asks for an application to be started, which vorn does not do: " +
                    command);
}

void JobRunner::takeDiagnostic(const std::string& text)
{
    takeMessage(detailSeverity, "Kernel", text);
}

void JobRunner::takeStatistic(const jobStatisticStruct& statistic)
{
    if (!isDue(statistic.jobPhase))
        return;
    recorder.notePeaks();
    if (statistic.jobPhase == processing)
        deadlocks.noteRecord();
    else if (statistic.jobPhase == postProcessing)
        recorder.collect();
}

// Before and after processing a record comes for each module. To look at all modules each time
// would take longer than all the rest in a job of thousands; what modules hold then does not change
// in between. The last record always counts.
bool JobRunner::isDue(int phase)
{
    constexpr std::size_t mostRecords = 100;
    if (phase == processing)
        return true;
    if (phase != phaseOfRecords) {
        phaseOfRecords = phase;
        records = 0;
    }
    const std::size_t all = manager().jobModules.size();
    const std::size_t step = std::max<std::size_t>(1, all / mostRecords);
    const std::size_t number = records++;
    return number % step == 0 || number >= all;
}

// The kernel ends a module when one of its inputs ends, and the job when its last modules have
// ended. What the sources have not given by then is nobody's input, which looks like success.
void JobRunner::warnOfUnreadData()
{
    std::set<std::string> told;
    for (const SourceData& source : result.sources) {
        if (source.traces >= source.announced || !told.insert(source.module).second)
            continue;
        const std::string joiner = joinerBehind(source.module);
        takeMessage(
            warningSeverity, "vorn",
            fmt::format("module {} gave {} of the {} that it announced: {} ended before its "
                        "input did; the rest is in no output",
                        quote(source.module), source.traces, counted(source.announced, "trace"),
                        joiner.empty()
                            ? "the job"
                            : "module " + quote(joiner) + ", which ends with its shortest input,"));
    }
}

// The module behind `source` that has several inputs; "" when there is none, or when it may be one
// of several.
std::string JobRunner::joinerBehind(const std::string& source) const
{
    std::vector<char> behind(job.modules.size(), 0);
    for (bool grown = true; grown;) { // modules may stand in any order
        grown = false;
        for (std::size_t i = 0; i < job.modules.size(); ++i) {
            const auto& inputs = job.modules[i].inputs;
            const bool found = std::any_of(inputs.begin(), inputs.end(), [&](const auto& input) {
                const auto before = static_cast<std::size_t>(input.module);
                return behind[before] != 0 || job.modules[before].name == source;
            });
            if (found && behind[i] == 0)
                behind[i] = grown = true;
        }
    }
    std::string joiner;
    for (std::size_t i = 0; i < job.modules.size(); ++i) {
        if (behind[i] == 0 || job.modules[i].inputs.size() < 2)
            continue;
        if (!joiner.empty())
            return "";
        joiner = job.modules[i].name;
    }
    return joiner;
}

} // namespace host
