#include "parts/HeaderScan.h"

#include "DataChannel.h"
#include "JobManager.h"
#include "ModuleEntity.h"
#include "SeisTrace.h"
#include "base/CommandError.h"
#include "base/Escaping.h"
#include "run/JobRunner.h"
#include "run/RunExtension.h"
#include "run/ScratchSpace.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <fcntl.h>
#include <fmt/format.h>
#include <optional>
#include <sys/wait.h>
#include <unistd.h>

namespace host {

namespace {

constexpr char headersKey[] = "vorn.headers"; // of the job's metadata; modules know it
// The first byte of what the child tells.
constexpr char good = 'v';
constexpr char bad = 'e';

void writeAll(int descriptor, const void* bytes, std::size_t size)
{
    const char* next = static_cast<const char*>(bytes);
    while (size > 0) {
        const ssize_t written = write(descriptor, next, size);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return; // the parent misses it
        next += written;
        size -= static_cast<std::size_t>(written);
    }
}

std::string readAll(int descriptor)
{
    std::string text;
    std::vector<char> buffer(1 << 16);
    while (true) {
        const ssize_t count = read(descriptor, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return text;
        text.append(buffer.data(), static_cast<std::size_t>(count));
    }
}

// The source alone, with one reader that is not a module of the job.
ResolvedJob jobOfSource(const ResolvedJob& job, int module, const std::string& range)
{
    ResolvedJob alone = job;
    alone.modules = {job.modules.at(static_cast<std::size_t>(module))};
    if (alone.order && alone.order->source == module)
        alone.order->source = 0;
    else
        alone.order.reset();
    ResolvedModule& source = alone.modules.front();
    source.consumers.assign(source.consumers.size(), 0);
    if (!source.consumers.empty())
        source.consumers.front() = 1;
    if (!range.empty()) {
        ResolvedParameter parameter;
        parameter.name = source.manifest->parallel.rangeParameter;
        parameter.type = "text";
        parameter.value.text = range;
        parameter.value.value = UniVar(range);
        source.parameters.push_back(parameter);
    }
    return alone;
}

// In the child: tells the parent what it wants to know and ends the process, in the middle of the
// job. The source has nothing to finish.
class Scan : public RunExtension
{
public:
    Scan(int output, const ScratchSpace& space, const std::vector<std::string>& wanted)
        : descriptor(output), scratch(space), words(wanted)
    {
        current = this;
    }

    int (*readerFunction() const)() override { return collect; }

    void connected(const RunView& view) override
    {
        view.manager.setMetaDataValue(0, headersKey, "yes");
    }

    void prepared(const RunView& view) override
    {
        if (!words.empty())
            return;
        const auto total =
            static_cast<double>(view.wiring.readers.front().channel->getTotalTracesNumber());
        values = {total};
        tell();
    }

    void processed(const RunView& /*view*/, bool isGood) override
    {
        if (isGood)
            tell();
    }

private:
    static int collect()
    {
        current->add(*JobManager::getInstance()->getActiveModule()->getInputTrace(0));
        return 0;
    }

    void add(const SeisTraceSet& set)
    {
        if (!areFound) {
            for (const std::string& word : words) {
                const auto known = set.attrDefs.find(word);
                places.push_back(known != set.attrDefs.end() ? std::optional(known->second)
                                                             : std::nullopt);
            }
            areFound = true;
        }
        const SeisTrace* trace = set.traces.front();
        for (const auto& place : places)
            values.push_back(place ? trace->getAttribute(*place).getF64Value() : 0);
    }

    [[noreturn]] void tell() const
    {
        writeAll(descriptor, &good, 1);
        writeAll(descriptor, values.data(), values.size() * sizeof(double));
        scratch.remove();
        _exit(0);
    }

    static inline Scan* current = nullptr;
    int descriptor;
    const ScratchSpace& scratch;
    const std::vector<std::string>& words;
    bool areFound = false;
    std::vector<std::optional<traceAttIdent>> places; ///< of `words`
    std::vector<double> values;
};

std::string reasonOf(const RunResult& result)
{
    for (const RunMessage& message : result.messages) {
        if (message.severity >= errorSeverity)
            return message.text;
    }
    return "it ended before its traces";
}

[[noreturn]] void runChild(int descriptor, const ResolvedJob& job,
                           const std::vector<std::string>& words)
{
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGSEGV, SIGBUS, SIGABRT, SIGFPE, SIGILL})
        std::signal(signal, SIG_DFL);
    std::string reason;
    try {
        const ScratchSpace scratch(job.scratchDirectory);
        Scan scan(descriptor, scratch, words);
        JobRunner runner(job, scratch.path());
        runner.extension = &scan;
        reason = reasonOf(runner.run());
        scratch.remove();
    } catch (const std::exception& error) {
        reason = error.what();
    }
    writeAll(descriptor, &bad, 1);
    writeAll(descriptor, reason.data(), reason.size());
    _exit(0);
}

[[noreturn]] void refuse(const ResolvedModule& module, const std::string& reason)
{
    throw CommandError(fmt::format("module {}: {}", quote(module.name), reason));
}

// What the child tells, as numbers.
std::vector<double> runScan(const ResolvedJob& job, const std::vector<std::string>& words)
{
    const ResolvedModule& source = job.modules.front();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0)
        throw CommandError(std::string("cannot read headers: ") + std::strerror(errno),
                           exitTryAgain);
    const pid_t child = fork();
    if (child == 0) {
        close(ends[0]);
        runChild(ends[1], job, words);
    }
    close(ends[1]);
    if (child < 0) {
        close(ends[0]);
        throw CommandError(std::string("cannot start a process to read headers: ") +
                               std::strerror(errno),
                           exitTryAgain);
    }
    const std::string told = readAll(ends[0]);
    close(ends[0]);
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFSIGNALED(status))
        refuse(source, std::string("the process that read its headers was ended by a signal: ") +
                           strsignal(WTERMSIG(status)));
    if (told.empty())
        refuse(source, "the process that read its headers ended early");
    if (told.front() == bad)
        refuse(source, told.substr(1));
    std::vector<double> values((told.size() - 1) / sizeof(double));
    std::memcpy(values.data(), told.data() + 1, values.size() * sizeof(double));
    return values;
}

} // namespace

int64_t announcedTraces(const ResolvedJob& job, int module)
{
    const std::vector<double> values = runScan(jobOfSource(job, module, ""), {});
    return static_cast<int64_t>(values.at(0));
}

std::vector<double> headerValues(const ResolvedJob& job, int module,
                                 const std::vector<PlannedPart>& ranges,
                                 const std::vector<std::string>& words)
{
    if (ranges.empty() || words.empty())
        return {};
    const ResolvedJob alone = jobOfSource(job, module, rangesText(ranges));
    std::vector<double> values = runScan(alone, words);
    int64_t wanted = 0;
    for (const PlannedPart& range : ranges)
        wanted += range.count;
    const auto given = static_cast<int64_t>(values.size() / words.size());
    if (given != wanted)
        refuse(alone.modules.front(),
               fmt::format("gave the headers of {} traces in place of {}; its ranges cannot be "
                           "used to cut the job",
                           given, wanted));
    return values;
}

std::string rangesText(const std::vector<PlannedPart>& ranges)
{
    std::string text;
    for (const PlannedPart& range : ranges)
        text += fmt::format("{}{}:{}", text.empty() ? "" : ",", range.first + 1,
                            range.first + range.count);
    return text;
}

} // namespace host
