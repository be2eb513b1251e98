#include "run/JobRunner.h"

#include "JobManager.h"
#include "ModuleEntity.h"
#include "ScratchManager.h"
#include "base/Escaping.h"
#include "base/Text.h"
#include "kernel_messages.h"
#include "run/DataFlow.h"

#include <QtGlobal>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <ctime>
#include <fmt/format.h>
#include <new>
#include <set>

namespace host {

namespace {

using Clock = std::chrono::steady_clock;

// Further messages of one module and severity are passed on, but not kept for the report.
constexpr int mostMessagesKept = 10000;
constexpr int64_t segyTraceHeaderBytes = 240;
// By this entry of the job's metadata the modules that write files know that theirs are not whole.
constexpr char failureKey[] = "vorn.failed";
// Metadata under which a module hands on whole headers of its file; `vorn header` shows those.
constexpr std::array headerKeys = {"segy.text",           "segy.text.bytes", "segy.text.ext",
                                   "segy.text.ext.bytes", "segy.binary",     "segy.binary.rest"};

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

// The kernel's counters have 32 bits; as unsigned ones they reach twice as far.
int64_t bytesOf(int counter)
{
    return static_cast<int64_t>(static_cast<uint32_t>(counter));
}

JobRunner* diagnosticTarget = nullptr;

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

} // namespace

JobRunner::JobRunner(const ResolvedJob& resolved, const std::string& scratchDirectory)
    : job(resolved), deadlocks(resolved, modules, wiring), start(Clock::now())
{
    prepareKernel(scratchDirectory);
}

JobRunner::~JobRunner()
{
    JobManager& kernel = manager();
    kernel.installMessageFunc(nullptr, nullptr, nullptr);
    kernel.installStatisticFunc(nullptr, nullptr);
    kernel.installExecAppliFunc(nullptr, nullptr);
    qInstallMessageHandler(nullptr);
    diagnosticTarget = nullptr;
}

JobManager& JobRunner::manager()
{
    return *JobManager::getInstance();
}

void JobRunner::prepareKernel(const std::string& scratchDirectory)
{
    setenv("VORN_HOME", job.vornHome.c_str(), 1);
    setenv("VORN_SCRATCH", scratchDirectory.c_str(), 1);
    setenv("VORN_SCRATCH_SIZE", std::to_string(job.scratchTraces).c_str(), 1);
    // Also for a manager that an earlier job of this process has left.
    ScratchManager::getInstance();
    ScratchManager::MAX_TRACES_IN_SCRATCH_V = job.scratchTraces;

    diagnosticTarget = this;
    qInstallMessageHandler(receiveDiagnostic);
    JobManager& kernel = manager();
    kernel.installMessageFunc(receiveMessage, receiveArgument, this);
    kernel.installStatisticFunc(receiveStatistic, this);
    kernel.installExecAppliFunc(receiveCommand, this);
    kernel.jobStartTime = kernel.getCurrentTime();
    kernel.setActiveModule(nullptr);
    kernel.metaDataMap.clear();
    std::map<std::string, std::string> mark = {{failureKey, "no memory"}}; // texts without blocks
    spareMark = mark.extract(mark.begin());
    kernel.setJobName(job.name.c_str());
    kernel.setProjectDir(QString::fromStdString(job.project));
    kernel.setScratchDir(QString::fromStdString(scratchDirectory));

    kernel.trAttDefsList.clear();
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

    describeModules();
    if (createModules()) {
        wiring = connectModules(job, modules, tees, manager());
        teesBehind.resize(modules.size());
        for (const BuiltTee& tee : wiring.tees)
            teesBehind[static_cast<std::size_t>(tee.producer)].push_back(tee.module);
        watchChannels();
        setParameters();
        runPhases();
    } else {
        result.end = RunEnd::notStarted;
        result.failed = true;
        modules.clear();
        tees.clear();
        manager().postProcessJob(); // deletes those that were created
    }
    result.wallMicros = std::max<int64_t>(1, microsSince(start));
    for (RunModule& module : result.modules)
        module.statistics.share = static_cast<double>(module.statistics.totalMicros()) /
                                  static_cast<double>(result.wallMicros);
    return result;
}

bool JobRunner::createModules()
{
    bool good = true;
    for (const ResolvedModule& module : job.modules) {
        modules.push_back(manager().initJobModule(module.name, module.library));
        good = good && modules.back() != nullptr;
    }
    for (const std::string& name : teeNames(job)) {
        tees.push_back(manager().initJobModule(name, job.teeLibrary));
        good = good && tees.back() != nullptr;
    }
    microsBefore.assign(modules.size(), 0);
    return good;
}

void JobRunner::describeModules()
{
    for (const ResolvedModule& module : job.modules) {
        RunModule row;
        row.name = module.name;
        row.module = module.module;
        if (module.manifest != nullptr) {
            row.version = module.manifest->version;
            row.purpose = module.manifest->purpose;
            row.language = module.manifest->language;
        }
        for (const ResolvedInput& input : module.inputs) {
            const std::string name = job.portName(input.module, input.port);
            const std::string number = std::to_string(input.port + 1);
            row.inputs.push_back({job.modules[static_cast<std::size_t>(input.module)].name,
                                  input.port + 1, name == number ? "" : name});
        }
        for (const ResolvedParameter& parameter : module.parameters)
            row.parameters.push_back({parameter.name, parameter.type, parameter.value.text,
                                      parameter.unit, parameter.given});
        result.modules.push_back(row);
    }
}

void JobRunner::setParameters()
{
    for (std::size_t i = 0; i < modules.size(); ++i) {
        for (const ResolvedParameter& parameter : job.modules[i].parameters)
            modules[i]->setParameter(parameter.name, parameter.value.value);
    }
}

void JobRunner::watchChannels()
{
    std::vector<std::string> words;
    for (const ResolvedAttribute& attribute : job.attributes)
        words.push_back(attribute.name);
    for (const BuiltChannel& built : wiring.channels) {
        built.channel->onArrival = [this, built, announced = int64_t(0)]() mutable {
            noteArrival(built, announced);
        };
        built.channel->onDeparture = [this, built] {
            notePeak(static_cast<std::size_t>(built.module));
        };
        if (watchHeaders && built.port == 0 &&
            modules[static_cast<std::size_t>(built.module)]->inputDataChannels.empty())
            built.channel->watchWords(words);
    }
}

void JobRunner::noteArrival(const BuiltChannel& built, int64_t& announcedBefore)
{
    constexpr auto relaxed = std::memory_order_relaxed;
    const auto module = static_cast<std::size_t>(built.module);
    if (job.modules[module].inputs.empty())
        live.traces.fetch_add(1, relaxed);
    const int64_t announced = built.channel->getTotalTracesNumber();
    if (announced != announcedBefore) {
        live.announced.fetch_add(announced - announcedBefore, relaxed);
        if (announcedBefore == 0) // traces that came before the announcement
            live.done.fetch_add(built.channel->arrived() - 1, relaxed);
        announcedBefore = announced;
    }
    if (announced > 0)
        live.done.fetch_add(1, relaxed);
    notePeak(module);
}

void JobRunner::notePeak(std::size_t module)
{
    RunStatistics& statistics = result.modules[module].statistics;
    statistics.peakBytes = std::max(statistics.peakBytes, bytesHeldBy(module));
    const int64_t bytes = bytesOf(manager().totalJobMemoryUsed);
    result.peakJobBytes = std::max(result.peakJobBytes, bytes);
    live.bytes.store(bytes, std::memory_order_relaxed);
}

// With what waits for the readers of its outputs, whose traces are copies of the module's own.
int64_t JobRunner::bytesHeldBy(std::size_t module) const
{
    int64_t bytes = bytesOf(modules[module]->getTotalModuleMemoryUsed());
    for (const ModuleEntity* tee : teesBehind[module])
        bytes += bytesOf(tee->getTotalModuleMemoryUsed());
    return bytes;
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
    noteOrder();
    noteMicros(&RunStatistics::preprocessMicros);

    // A module that could not begin has ended its data; running the others would only waste time.
    if (good && !fatal) {
        const Clock::time_point began = Clock::now();
        live.processingSince.store(std::chrono::duration<double>(began.time_since_epoch()).count());
        enter("processing");
        wiring.showTees();
        if (guarded([&] { return kernel.processJob(); }) && !result.failed)
            refuseLostEnds();
        wiring.showProducers(modules);
        result.processWallMicros = microsSince(began);
    }
    noteMicros(&RunStatistics::processMicros);

    enter("finishing");
    kernel.setActiveModule(nullptr);
    guarded([&] { return kernel.postProcessJob(); });
    if (!result.failed && result.end == RunEnd::done)
        warnOfUnreadData();
    enter("done");
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
        if (phase() == 0)
            return true;
        stopWithError("the kernel has stopped the job");
    } catch (const Deadlock& reason) {
        result.end = RunEnd::stalled;
        stopWithError(reason.what());
    } catch (const std::exception& error) {
        result.failed = fatal = true; // also when there is no memory to say so
        try {
            const std::string module = manager().getCurrentModuleName();
            stopWithError(
                fmt::format("module {} ended with an exception that it does not handle: {}",
                            quote(module), error.what()));
        } catch (const std::bad_alloc&) {
            // Ending the job matters more than the words.
            if (!spareMark.empty())
                manager().metaDataMap.insert(std::move(spareMark));
        }
    }
    return false;
}

void JobRunner::stopWithError(const std::string& text)
{
    takeMessage(fatalSeverity, "vorn", text);
}

void JobRunner::takeMessage(int type, const std::string& module, const std::string& text)
{
    // The kernel keeps the trace in memory then: more memory is needed, and nothing is wrong with
    // the results.
    if (type == errorSeverity && text.starts_with(kernel_messages::canNotWriteToScratchFile))
        type = warningSeverity;

    RunMessage message;
    message.seconds = secondsSince(start);
    message.time = localTime("%H:%M:%S");
    message.module = module;
    message.severity = type;
    message.text = text;
    if (type >= errorSeverity)
        result.failed = true;
    if (type >= fatalSeverity) {
        fatal = true;
        manager().setMetaDataValue(0, failureKey, module + ": " + text);
    }
    lastMessageKept = ++kept[{module, type}] <= mostMessagesKept;
    if (lastMessageKept)
        result.messages.push_back(message);
    else
        ++result.messagesLeftOut;
    if (onMessage)
        onMessage(message);
}

void JobRunner::takeArgument(const std::string& text)
{
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
    for (std::size_t i = 0; i < modules.size(); ++i)
        notePeak(i);
    if (statistic.jobPhase == processing)
        deadlocks.check();
    else if (statistic.jobPhase == postProcessing)
        collect();
}

// The time since the phase before ended goes to `field` of each module.
void JobRunner::noteMicros(int64_t RunStatistics::*field)
{
    for (std::size_t i = 0; i < modules.size(); ++i) {
        const int64_t micros = modules[i]->totalModuleWorkTime;
        result.modules[i].statistics.*field = micros - microsBefore[i];
        microsBefore[i] = micros;
    }
}

void JobRunner::noteOrder()
{
    int place = 0;
    for (const ModuleEntity* module : manager().jobModules) {
        const auto known = std::find(modules.begin(), modules.end(), module);
        if (known != modules.end())
            result.modules[static_cast<std::size_t>(known - modules.begin())].order = ++place;
    }
}

// Called while modules and channels still exist; what is noted last counts.
void JobRunner::collect()
{
    for (std::size_t i = 0; i < modules.size(); ++i) {
        RunStatistics& statistics = result.modules[i].statistics;
        statistics.tracesIn = statistics.tracesOut = statistics.tracesAnnounced = 0;
        for (DataChannel* channel : modules[i]->inputDataChannels)
            statistics.tracesIn += static_cast<CountingChannel*>(channel)->taken(modules[i]);
        for (DataChannel* channel : modules[i]->outputDataChannels) {
            statistics.tracesOut += static_cast<CountingChannel*>(channel)->arrived();
            statistics.tracesAnnounced += channel->getTotalTracesNumber();
        }
        statistics.postprocessMicros = modules[i]->totalModuleWorkTime - microsBefore[i];
        statistics.bytesLeft = bytesHeldBy(i);
        collectMetadata(i);
    }
    collectSources();
}

// Values never change once they are set, so a number that has not grown means nothing new.
void JobRunner::collectMetadata(std::size_t module)
{
    const std::map<std::string, std::string>& noted = modules[module]->getMetaData();
    std::map<std::string, std::string>& shown = result.modules[module].metadata;
    if (noted.size() == shown.size())
        return;
    for (const auto& [key, value] : noted) {
        const bool isHeader =
            std::find(headerKeys.begin(), headerKeys.end(), key) != headerKeys.end();
        shown[key] = isHeader ? fmt::format("(a whole header of {}, not kept here)",
                                            counted(static_cast<int64_t>(value.size()), "byte"))
                              : value;
    }
}

void JobRunner::collectSources()
{
    result.sources.clear();
    result.sourceTraces = result.sourceBytes = 0;
    for (const BuiltChannel& built : wiring.channels) {
        const auto module = static_cast<std::size_t>(built.module);
        if (!job.modules[module].inputs.empty())
            continue;
        SourceData source;
        source.module = job.modules[module].name;
        source.traces = built.channel->arrived();
        source.announced = built.channel->getTotalTracesNumber();
        source.samples = built.channel->getTraceLength();
        source.intervalMicros = built.channel->getTraceSampleInterval();
        for (const CountingChannel::WordRange& range : built.channel->words()) {
            if (range.minimum != 0 || range.maximum != 0)
                source.words.push_back(
                    {range.word, manager().getTraceAttributeDescription(range.word), range.minimum,
                     range.maximum, range.first, range.last, range.changes});
        }
        result.sourceTraces += source.traces;
        result.sourceBytes +=
            source.traces * (segyTraceHeaderBytes + 4 * static_cast<int64_t>(source.samples));
        result.sources.push_back(source);
    }
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
