#include "run/CrashReport.h"

#include "ModuleEntity.h"
#include "SeisTrace.h"
#include "run/CountingChannel.h"
#include "run/SignalLine.h"
#include "run/SignalProcess.h"
#include "run/StackReport.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace host {

namespace {

struct Facts
{
    const ResolvedJob* job = nullptr;
    const std::vector<ModuleEntity*>* modules = nullptr;
};

// What handlers read.
Facts kept;
std::atomic<const Facts*> facts{nullptr};

// ---- The process that writes ----

constexpr int64_t millisForFacts = 3000;
constexpr int64_t millisForStack = 6000; // debug information of a large library takes a second
constexpr int64_t millisToVanish = 500;

int64_t millisNow()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

bool hasEnded(pid_t child)
{
    int status = 0;
    const pid_t ended = waitpid(child, &status, WNOHANG);
    return ended == child || (ended < 0 && errno != EINTR);
}

bool waitFor(pid_t child, int64_t millis)
{
    const int64_t end = millisNow() + millis;
    while (!hasEnded(child)) {
        if (millisNow() >= end)
            return false;
        const timespec pause = {0, 2000000};
        nanosleep(&pause, nullptr);
    }
    return true;
}

// A core file is that of the process that has crashed.
void leaveNoCore()
{
    rlimit limit;
    if (getrlimit(RLIMIT_CORE, &limit) != 0)
        return;
    limit.rlim_cur = std::min<rlim_t>(1, limit.rlim_max); // 0 would not stop a program that gets it
    setrlimit(RLIMIT_CORE, &limit);
}

template <typename Part>
void writeInChild(int64_t millis, const Part& part)
{
    const pid_t child = forkInHandler();
    if (child == 0) {
        leaveNoCore();
        part();
        _exit(0);
    }
    if (child < 0 || waitFor(child, millis))
        return;
    kill(child, SIGKILL);
    waitFor(child, millisToVanish);
}

// ---- Its lines ----

SignalLine lineOf(const char* title)
{
    SignalLine line("  ");
    line.add(title).padTo(14);
    return line;
}

const char* meaningOf(int signal, int code)
{
    if (signal == SIGSEGV && code == SEGV_MAPERR)
        return ", where no memory is";
    if (signal == SIGSEGV && code == SEGV_ACCERR)
        return ", which may not be used so";
    if (signal == SIGBUS && code == BUS_ADRERR)
        return ", behind the end of a file or of the memory";
    if (signal == SIGBUS && code == BUS_ADRALN)
        return ", which is not aligned";
    return "";
}

// Faults of the processor have a place; the sender of other signals does not matter.
void writeFault(const CrashCause& cause)
{
    if (cause.info == nullptr || cause.info->si_code <= 0 || cause.info->si_code == SI_KERNEL)
        return;
    const int code = cause.info->si_code;
    const auto address = reinterpret_cast<uintptr_t>(cause.info->si_addr);
    if (cause.signal == SIGSEGV || cause.signal == SIGBUS) {
        lineOf("fault")
            .add("access to the address ")
            .addAddress(address)
            .add(meaningOf(cause.signal, code))
            .write();
    } else if (cause.signal == SIGFPE) {
        const bool isDivision = code == FPE_INTDIV;
        if (isDivision || code == FPE_FLTDIV)
            lineOf("fault")
                .add(isDivision ? "integer division by zero" : "division by zero")
                .write();
    }
}

// A module is in the list as soon as its library has been loaded.
const ResolvedModule* find(const Facts& known, const RunningCode& running)
{
    const std::vector<ModuleEntity*>& modules = *known.modules;
    const std::vector<ResolvedModule>& all = known.job->modules;
    if (running.entry == EntryPoint::loading)
        return modules.size() < all.size() ? &all[modules.size()] : nullptr;
    for (std::size_t i = 0; i < modules.size() && i < all.size(); ++i) {
        if (modules[i] == running.entity)
            return &all[i];
    }
    return nullptr;
}

void writeModule(const ResolvedModule& module)
{
    SignalLine line = lineOf("module");
    line.addForeign(module.name.c_str()).add(": ").addForeign(module.module.c_str());
    if (module.place.line > 0)
        line.add(", ").addForeign(module.place.source.c_str()).add(":").add(module.place.line);
    line.write();
}

// By these a trace is known; the number in its file is tracr or tracl.
constexpr std::array identifying = {"tracl", "tracr", "fldr",  "tracf", "ep",
                                    "cdp",   "cdpt",  "iline", "xline", "offset"};
constexpr int enoughWords = 3; // else others are shown, in schemas of their own
constexpr int mostWords = 8;

// Without a UniVar, which may take memory. Words of 0 identify nothing.
bool addWord(SignalLine& line, const char* name, const traceAttIdent& place, const SeisTrace& trace)
{
    if (!trace.holds(place))
        return false;
    int64_t value = 0;
    if (place.type == int32AttType && place.size >= 4) {
        int32_t narrow = 0;
        std::memcpy(&narrow, trace.traceHeader + place.offset, sizeof narrow);
        value = narrow;
    } else if (place.type == int64AttType && place.size >= 8) {
        std::memcpy(&value, trace.traceHeader + place.offset, sizeof value);
    }
    if (value == 0)
        return false;
    line.add(" ").addForeign(name).add(" ").add(value).add(",");
    return true;
}

void addWords(SignalLine& line, const SeisTraceSet& channel, const SeisTrace& trace)
{
    int found = 0;
    for (const char* name : identifying) {
        const auto known = channel.attrDefs.find(name); // names so short need no memory
        if (known != channel.attrDefs.end() && addWord(line, name, known->second, trace))
            ++found;
    }
    if (found >= enoughWords)
        return;
    for (const auto& [name, place] : channel.attrDefs) {
        const bool isNew =
            std::find(identifying.begin(), identifying.end(), name) == identifying.end();
        if (isNew && addWord(line, name.c_str(), place, trace) && ++found == mostWords)
            return;
    }
}

void writeTrace(const char* kind, std::size_t number, bool isOne, int64_t traceNo,
                const SeisTraceSet& channel, const SeisTrace* trace)
{
    SignalLine line("  ");
    line.add(kind);
    if (!isOne)
        line.add(" ").add(static_cast<int64_t>(number));
    line.padTo(14).add("trace ").add(traceNo).add(":");
    if (trace == nullptr) {
        line.add(" not there any more, the module has moved it").write();
        return;
    }
    addWords(line, channel, *trace);
    line.add(" ").add(trace->traceLength).add(" samples");
    if (channel.getTraceSampleInterval() > 0)
        line.add(" of ").add(channel.getTraceSampleInterval()).add(" us");
    line.write();
}

// What `process_` was given: of each input the first trace, of a source the last one that it has
// made.
void writeTraces(const ModuleEntity& module)
{
    const std::vector<DataChannel*>& inputs = module.inputDataChannels;
    for (std::size_t i = 0; i < inputs.size(); ++i) {
        const auto& channel = static_cast<const CountingChannel&>(*inputs[i]);
        if (!channel.traces.empty())
            writeTrace("input", i + 1, inputs.size() == 1, channel.departed() + 1, channel,
                       channel.traces.front());
    }
    const std::vector<DataChannel*>& outputs = module.outputDataChannels;
    for (std::size_t i = 0; inputs.empty() && i < outputs.size(); ++i) {
        const auto& channel = static_cast<const CountingChannel&>(*outputs[i]);
        if (!channel.traces.empty() && channel.traces.back() != nullptr)
            writeTrace("output", i + 1, outputs.size() == 1, channel.arrived(), channel,
                       channel.traces.back());
    }
}

void writeParameters(const ResolvedModule& module)
{
    const char* title = "parameters";
    for (const ResolvedParameter& parameter : module.parameters) {
        SignalLine line = lineOf(title);
        title = "";
        line.addForeign(parameter.name.c_str()).add(" = ");
        line.addForeign(parameter.value.text.c_str());
        if (!parameter.unit.empty())
            line.add(" ").addForeign(parameter.unit.c_str());
        if (!parameter.given)
            line.add(" (default)");
        line.write();
    }
}

} // namespace

CrashFacts::CrashFacts(const ResolvedJob& job, const std::vector<ModuleEntity*>& modules)
{
    kept = {&job, &modules};
    facts = &kept;
}

CrashFacts::~CrashFacts()
{
    facts = nullptr;
}

void reportCrash(const RunningCode& running, const CrashCause& cause) noexcept
{
    const Facts* const known = facts.load();
    writeInChild(millisForFacts, [&] {
        // The progress may stand on the line.
        SignalLine("")
            .addForTerminal(isatty(STDERR_FILENO) == 1 ? "\r\x1b[K" : "")
            .add("vorn: crash report")
            .write();
        const bool inModule = running.entry != EntryPoint::none;
        const ResolvedModule* module =
            known != nullptr && inModule ? find(*known, running) : nullptr;
        if (module != nullptr)
            writeModule(*module);
        writeFault(cause);
        if (module == nullptr)
            return;
        writeParameters(*module);
        if (running.entry == EntryPoint::process)
            writeTraces(*running.entity); // last: a module may have broken these
    });
    if (!cause.hasStack)
        return;
    StackOwner owner;
    owner.context = cause.context;
    if (cause.thrown != nullptr) {
        owner.codes = cause.thrown->codes.data();
        owner.count = cause.thrown->count;
    }
    owner.isModule = running.entry != EntryPoint::none;
    owner.isLoaderLocked =
        running.entry == EntryPoint::loading || running.entry == EntryPoint::unloading;
    writeInChild(millisForStack, [&] { writeStack(owner); });
}

} // namespace host
