#include "embed/vorn_job.h"

#include "JobManager.h"
#include "JobOutcome.h"
#include "base/CommandError.h"
#include "base/Diagnostics.h"
#include "base/Escaping.h"
#include "embed/JobTraces.h"
#include "job/JobDraft.h"
#include "run/JobExecution.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <thread>
#include <utility>

namespace VORN {

struct Job::Content
{
    explicit Content(const JobModules& modules);

    void begin() const
    {
        if (draft.file() == nullptr)
            return;
        for (const auto& one : draft.file()->replaced) {
            if (one.second->begin)
                one.second->begin();
        }
    }

    void replace(const std::string& module, host::ReplacedModulePointer own)
    {
        if (host::JobFile* file = draft.file())
            file->replaced[module] = std::move(own);
    }

    host::JobDraft draft;
};

namespace {

// The kernel forgets requests to cancel when a job is set up, so one that comes while the job is
// still being checked is kept here until then.
enum class RunState
{
    idle,
    running,
    cancelled
};
std::atomic<RunState> runState{RunState::idle};

// Errors of the command's code as the standard exception: the application knows no other.
template <typename Function>
auto translated(const Function& function)
{
    try {
        return function();
    } catch (const host::CommandError& error) {
        throw std::runtime_error(error.what());
    }
}

// Where the module tree of this library is, installed or in its build directory: the application
// may be anywhere.
std::vector<std::string> homesOfLibrary()
{
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&Job::cancel), &info) == 0)
        return {};
    const std::filesystem::path folder = std::filesystem::path(info.dli_fname).parent_path();
    return {folder / "vorn", folder.parent_path() / "vorn_home"};
}

JobDiagnostic describe(const host::Diagnostic& one)
{
    return {one.place.source, one.place.line, one.place.column,
            one.isWarning,    one.text,       one.line()};
}

std::vector<JobDiagnostic> describe(const host::Diagnostics& diagnostics)
{
    std::vector<JobDiagnostic> all;
    for (const host::Diagnostic& one : diagnostics.sorted())
        all.push_back(describe(one));
    return all;
}

JobMessage describe(const host::RunMessage& message)
{
    return {message.severity, message.module, message.text, message.seconds, message.place};
}

// Tells the progress, on a thread of its own, until it is destroyed.
class ProgressThread
{
public:
    ProgressThread(const host::LiveCounters& counters,
                   const std::function<void(const JobProgress&)>& function)
        : live(counters), tell(function)
    {
        if (tell)
            thread = std::thread([this] { work(); });
    }
    ~ProgressThread()
    {
        if (!thread.joinable())
            return;
        {
            const std::lock_guard lock(mutex);
            ended = true;
        }
        wake.notify_one();
        thread.join();
    }
    ProgressThread(const ProgressThread&) = delete;
    ProgressThread& operator=(const ProgressThread&) = delete;

private:
    void work()
    {
        std::unique_lock lock(mutex);
        while (!wake.wait_for(lock, std::chrono::milliseconds(250), [this] { return ended; }))
            tell(state());
        tell(state());
    }

    JobProgress state() const
    {
        JobProgress progress;
        const char* const phase = live.phase.load();
        progress.phase = phase != nullptr ? phase : "preparing";
        progress.traces = live.traces.load();
        const auto announced = static_cast<double>(live.announced.load());
        if (announced > 0)
            progress.share = static_cast<double>(live.done.load()) / announced;
        const double since = live.processingSince.load();
        if (since > 0)
            progress.seconds =
                std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
                    .count() -
                since;
        return progress;
    }

    const host::LiveCounters& live;
    const std::function<void(const JobProgress&)>& tell;
    std::mutex mutex;
    std::condition_variable wake;
    bool ended = false;
    std::thread thread;
};

JobResult describe(const host::RunResult& run, const host::ResolvedJob& job)
{
    JobResult result;
    if (run.end == host::RunEnd::notStarted)
        result.outcome = RunOutcome::notStarted;
    else if (JobManager::getInstance()->jobOutcome().end == JobEnd::cancelled)
        result.outcome = RunOutcome::cancelled; // by a request before the last module had ended
    else
        result.outcome = run.failed ? RunOutcome::failed : RunOutcome::done;
    result.seconds = static_cast<double>(run.wallMicros) * 1e-6;
    for (const host::RunMessage& message : run.messages) {
        result.messages.push_back(describe(message));
        if (result.error.empty() && message.severity >= host::errorSeverity)
            result.error = message.module + ": " + message.text;
    }
    for (std::size_t i = 0; i < run.modules.size(); ++i) {
        const host::RunModule& module = run.modules[i];
        const bool isReplaced = job.modules[i].replaced != nullptr;
        result.modules.push_back({module.name, isReplaced ? "" : module.module,
                                  module.statistics.tracesIn, module.statistics.tracesOut,
                                  static_cast<double>(module.statistics.totalMicros()) * 1e-6,
                                  module.statistics.peakBytes, module.metadata});
    }
    for (const host::RunFile& file : run.outputs)
        result.outputs.push_back(
            {file.path, file.module, file.parameter, file.written, file.bytes});
    return result;
}

JobResult refused(const host::Diagnostics& diagnostics)
{
    JobResult result;
    for (const host::Diagnostic& one : diagnostics.sorted()) {
        result.messages.push_back({one.isWarning ? host::warningSeverity : host::fatalSeverity,
                                   "vorn", one.text, 0, one.place.text()});
        if (result.error.empty() && !one.isWarning)
            result.error = one.line();
    }
    return result;
}

// As long as it lives, a job runs in this process.
struct Running
{
    Running()
    {
        RunState idle = RunState::idle;
        if (!runState.compare_exchange_strong(idle, RunState::running))
            throw std::logic_error("a job is already running in this process");
    }
    ~Running() { runState.store(RunState::idle); }
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
};

// What a run sets for the process is as before when it has ended.
class FormerEnvironment
{
public:
    FormerEnvironment()
    {
        for (const char* name : {"VORN_HOME", "VORN_SCRATCH", "VORN_SCRATCH_SIZE"}) {
            const char* value = std::getenv(name);
            values.emplace_back(name, value != nullptr ? std::optional<std::string>(value)
                                                       : std::nullopt);
        }
    }
    ~FormerEnvironment()
    {
        for (const auto& [name, value] : values) {
            if (value)
                setenv(name, value->c_str(), 1);
            else
                unsetenv(name);
        }
    }
    FormerEnvironment(const FormerEnvironment&) = delete;
    FormerEnvironment& operator=(const FormerEnvironment&) = delete;

private:
    std::vector<std::pair<const char*, std::optional<std::string>>> values;
};

} // namespace

Job::Content::Content(const JobModules& modules)
    : draft(modules.home.empty() ? host::findVornHome(homesOfLibrary()) : modules.home,
            modules.directories)
{
}

Job::Job(std::unique_ptr<Content> content) : all(std::move(content)) {}
Job::Job(Job&& other) noexcept = default;
Job& Job::operator=(Job&& other) noexcept = default;
Job::~Job() = default;

Job Job::fromText(const std::string& text, const std::string& path, const JobModules& modules)
{
    return translated([&] {
        auto content = std::make_unique<Content>(modules);
        content->draft.parse(text, path);
        return Job(std::move(content));
    });
}

Job Job::fromFile(const std::string& path, const JobModules& modules)
{
    return translated([&] {
        auto content = std::make_unique<Content>(modules);
        content->draft.read(path);
        return Job(std::move(content));
    });
}

std::vector<std::string> Job::moduleNames() const
{
    const host::JobFile* file = all->draft.file();
    return file != nullptr ? file->moduleNames() : std::vector<std::string>();
}

void Job::set(const std::string& module, const std::string& parameter, const std::string& value)
{
    all->draft.set(module + "." + parameter + "=" + value);
}

void Job::setSource(const std::string& module, const JobTraces& traces)
{
    all->replace(module, sourceOf(traces));
}

void Job::setSource(const std::string& module, const JobTraceMaker& maker)
{
    all->replace(module, sourceOf(maker));
}

void Job::setSink(const std::string& module, JobCollection& into)
{
    all->replace(module, sinkOf(into));
}

void Job::setSink(const std::string& module, const JobTraceTaker& taker)
{
    all->replace(module, sinkOf(taker));
}

void Job::restore(const std::string& module)
{
    if (host::JobFile* file = all->draft.file())
        file->replaced.erase(module);
}

std::vector<JobDiagnostic> Job::check() const
{
    return translated([&] {
        host::Diagnostics found;
        all->draft.check(found);
        return describe(found);
    });
}

JobResult Job::run(const JobListener& listener) const
{
    const Running running;
    const FormerEnvironment environment;
    all->begin();
    return translated([&] {
        host::Diagnostics found;
        const host::ResolvedJob job = all->draft.check(found);
        if (found.hasErrors())
            return refused(found);
        host::JobExecution execution(job);
        host::JobRunner& runner = execution.runner();
        if (runState.load() == RunState::cancelled)
            JobManager::requestCancel();
        if (listener.onMessage)
            runner.onMessage = [&](const host::RunMessage& one) {
                listener.onMessage(describe(one));
            };
        host::RunResult run;
        {
            const ProgressThread progress(runner.counters(), listener.onProgress);
            run = execution.run();
        }
        return describe(run, job);
    });
}

void Job::cancel() noexcept
{
    RunState running = RunState::running;
    if (runState.compare_exchange_strong(running, RunState::cancelled) ||
        running == RunState::cancelled)
        JobManager::requestCancel();
}

} // namespace VORN
