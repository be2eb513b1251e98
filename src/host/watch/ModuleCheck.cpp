#include "watch/ModuleCheck.h"

#include "DataChannel.h"
#include "JobManager.h"
#include "ModuleEntity.h"
#include "SeisTrace.h"
#include "base/Escaping.h"
#include "base/Text.h"
#include "run/ProcessEnd.h"
#include "watch/CallRules.h"
#include "watch/InputNotes.h"
#include "watch/ParameterAudit.h"
#include "watch/WatchedLibrary.h"
#include "watched/GuardedMemory.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <deque>
#include <dlfcn.h>
#include <fmt/format.h>
#include <optional>
#include <set>
#include <thread>
#include <unordered_map>
#include <unordered_set>
#include <utility>

namespace host {

namespace {

using watched::Argument;
using watched::Call;
using watched::Damage;
using watched::GuardedMemory;

// Blocks that a module was handed last and may still have the addresses of. They are looked at
// after each call; of those that were freed, every byte.
constexpr std::size_t mostHanded = 6;
// Blocks that a module has allocated: with more, they are looked at when they are freed.
constexpr std::size_t mostAllocated = 16;
// Traces of an output that one call has added and that are looked at.
constexpr int mostLookedAt = 64;

GuardedMemory& guardedMemory()
{
    using Function = GuardedMemory* (*)();
    static const auto function =
        reinterpret_cast<Function>(dlsym(RTLD_DEFAULT, "vornGuardedMemory"));
    return *function();
}

// Functions of the Fortran form end with an underscore, but for two (knl_fortran.h).
bool isFortran(const std::string& function)
{
    return function.ends_with('_') || function == "knl_OpenFile" ||
           function == "knl_istracebufferusescratch";
}

// For long loops on threads of the module's own.
bool mayRunAnywhere(const char* function)
{
    return std::strcmp(function, "isJobCancelled") == 0;
}

// The first sample that is infinite or not a number: its place, or -1.
int firstNotFinite(const float* samples, int count)
{
    constexpr uint32_t exponent = 0x7F800000;
    for (int i = 0; i < count; ++i) {
        uint32_t bits = 0;
        std::memcpy(&bits, samples + i, sizeof bits);
        if ((bits & exponent) == exponent)
            return i;
    }
    return -1;
}

const void* handleOf(const Argument& argument)
{
    const auto* handle = std::get_if<watched::Handle>(&argument.value);
    return handle != nullptr ? handle->address : nullptr;
}

int64_t numberOf(const Argument& argument)
{
    const auto* number = std::get_if<int64_t>(&argument.value);
    return number != nullptr ? *number : 0;
}

std::string textOf(const Argument& argument)
{
    const auto* text = std::get_if<watched::Text>(&argument.value);
    return text != nullptr && text->first != nullptr ? std::string(text->first, text->size) : "";
}

// The last channel that the module asked for and did not get.
struct RefusedChannel
{
    const char* kind = "";
    int64_t number = 0;
    std::size_t connected = 0;
};

struct CheckedModule
{
    CheckedModule(ModuleEntity& checked, const ResolvedModule* resolved)
        : entity(checked), name(checked.moduleName)
    {
        if (resolved == nullptr)
            return;
        manifest = resolved->manifest.get();
        audit.emplace(*resolved);
        isReader = resolved->inputs.empty() &&
                   std::any_of(resolved->parameters.begin(), resolved->parameters.end(),
                               [](const ResolvedParameter& one) { return one.isInputFile; });
    }

    void hand(const void* block)
    {
        if (std::find(handed.begin(), handed.end(), block) != handed.end())
            return;
        handed[nextHanded] = block;
        nextHanded = (nextHanded + 1) % mostHanded;
    }

    ModuleEntity& entity;
    std::string name;
    const Manifest* manifest = nullptr;
    std::optional<ParameterAudit> audit;
    bool isReader = false; ///< what it gives may be as bad as its file
    unsigned tag = 0;      ///< of blocks that it was handed, from 1
    bool hasProcessed = false;
    bool hasFailed = false;
    bool hasSeenNotFinite = false; ///< in its inputs
    std::vector<int> outputCounts; ///< traces before the call
    std::array<const void*, mostHanded> handed{};
    std::size_t nextHanded = 0;
    std::unordered_map<const void*, int64_t> allocated; ///< bytes by address
    std::unordered_set<const void*> formerMemory;
    std::unordered_map<const void*, std::vector<std::string>> lists;
    std::unordered_set<const void*> formerLists;
    std::unordered_set<std::string> judgedAttributes;
    std::optional<RefusedChannel> refused;
};

// What a handle of a trace set is for the module that uses it.
struct SetRole
{
    enum Kind
    {
        unknown,
        foreign,
        input,
        output,
        work
    };
    Kind kind = unknown;
    int number = 0;
    SeisTraceSet* set = nullptr;
    const CheckedModule* owner = nullptr; ///< of a foreign one
};

template <typename Set>
int placeOfSet(const std::vector<Set*>& sets, const void* handle)
{
    for (std::size_t i = 0; i < sets.size(); ++i) {
        if (static_cast<const SeisTraceSet*>(sets[i]) == handle)
            return static_cast<int>(i);
    }
    return -1;
}

SetRole ownRole(const CheckedModule& module, const void* handle)
{
    const ModuleEntity& entity = module.entity;
    if (const int i = placeOfSet(entity.inputDataChannels, handle); i >= 0)
        return {SetRole::input, i, entity.inputDataChannels[static_cast<std::size_t>(i)], nullptr};
    if (const int i = placeOfSet(entity.outputDataChannels, handle); i >= 0)
        return {SetRole::output, i, entity.outputDataChannels[static_cast<std::size_t>(i)],
                nullptr};
    if (const int i = placeOfSet(entity.workTraceSets, handle); i >= 0)
        return {SetRole::work, i, entity.workTraceSets[static_cast<std::size_t>(i)], nullptr};
    return {};
}

std::string nameOfSet(const SetRole& role, bool fortran)
{
    const char* const kind = role.kind == SetRole::input    ? "input"
                             : role.kind == SetRole::output ? "output"
                                                            : "work buffer";
    return fmt::format("{} {}", kind, role.number + (fortran ? 1 : 0));
}

std::string countedFrom(bool fortran, const char* what)
{
    return fmt::format("{} are counted from {} in {}", what, fortran ? 1 : 0,
                       fortran ? "Fortran" : "C");
}

std::string bytesText(std::size_t count)
{
    return counted(static_cast<int64_t>(count), "byte");
}

} // namespace

class ModuleCheck::Work : public EntryObserver, public watched::DamageListener
{
public:
    Work(const ResolvedJob& checked, FindingListener listener)
        : job(checked), findings(std::move(listener))
    {
    }

    ~Work() override { stop(); }

    void start(const RunView& view)
    {
        jobThread = std::this_thread::get_id();
        for (std::size_t i = 0; i < view.modules.size(); ++i)
            modules.emplace_back(*view.modules[i], &job.modules[i]);
        for (const BuiltTee& tee : view.wiring.tees)
            modules.emplace_back(*tee.module, nullptr);
        for (CheckedModule& module : modules) {
            byEntity[&module.entity] = &module;
            module.tag = static_cast<unsigned>(byEntity.size());
        }
        guardedMemory().begin(*this);
        isRunning = true;
        observed.emplace(*this);
    }

    void stop()
    {
        if (!isRunning)
            return;
        observed.reset();
        guardedMemory().end();
        isRunning = false;
        current = nullptr;
        modules.clear();
        byEntity.clear();
    }

    std::vector<RunFinding> found() const { return findings.all(); }

    // ---- entry points ----

    void entered(const ModuleEntity& entity, EntryPoint point) override
    {
        const auto known = byEntity.find(&entity);
        current = known != byEntity.end() ? known->second : nullptr;
        if (current == nullptr || point != EntryPoint::process)
            return;
        current->hasProcessed = true;
        noteTraces(*current);
    }

    void left(const ModuleEntity&, EntryPoint point) noexcept override
    {
        if (current == nullptr)
            return;
        for (const void* block : current->handed) {
            if (block != nullptr)
                guardedMemory().check(block);
        }
        if (current->allocated.size() <= mostAllocated) {
            for (const auto& [block, size] : current->allocated)
                guardedMemory().check(block);
        }
        if (point == EntryPoint::process) {
            compareInputs(*current);
            lookAtOutputs(*current);
        } else if (point == EntryPoint::postprocess) {
            lookAtLeftovers(*current);
        }
        current = nullptr;
    }

    // ---- calls ----

    // Refuses what the kernel would look into; all else is looked at when the call is complete.
    void passed(const Call& handles)
    {
        if (!isRunning || current == nullptr || std::this_thread::get_id() != jobThread)
            return;
        const CallRule* rule = callRuleOf(handles.function);
        if (rule == nullptr)
            return;
        const auto handle = [&](int place) {
            return place >= 0 ? handleOf(handles.arguments[static_cast<std::size_t>(place)])
                              : nullptr;
        };
        const void* list = handle(rule->list);
        if (list != nullptr && current->lists.count(list) == 0)
            checkList(handles, handles.arguments[static_cast<std::size_t>(rule->list)]);
        const void* set = handle(rule->set);
        if (set != nullptr && roleOf(set).kind == SetRole::unknown)
            checkSet(handles, *rule, rule->set, -1, TraceUse::none);
    }

    void called(const Call& call)
    {
        if (!isRunning)
            return;
        if (std::this_thread::get_id() != jobThread) {
            if (!mayRunAnywhere(call.function))
                noteThread(call);
            return;
        }
        const CallRule* rule = current != nullptr ? callRuleOf(call.function) : nullptr;
        if (rule == nullptr)
            return;
        if (rule->kind == CallKind::channel)
            checkChannel(call);
        if (rule->list >= 0)
            checkList(call, call.arguments[static_cast<std::size_t>(rule->list)]);
        if (rule->table >= 0 &&
            handleOf(call.arguments[static_cast<std::size_t>(rule->table)]) == nullptr)
            noteNull(call, "library or group");
        checkSet(call, *rule, rule->set, rule->trace, rule->use);
        checkSet(call, *rule, rule->secondSet, rule->secondTrace, TraceUse::access);
        if (rule->kind == CallKind::free)
            checkFree(call);
        else if (rule->kind == CallKind::message)
            checkMessage(call);
        else if (rule->kind == CallKind::writeAttribute)
            checkWritten(call);
        else if (rule->list >= 0 && rule->trace >= 0)
            checkListUse(call);
    }

    void returned(const Call& call, const Argument& result)
    {
        if (!isRunning || std::this_thread::get_id() != jobThread || current == nullptr)
            return;
        const CallRule* rule = callRuleOf(call.function);
        if (rule == nullptr)
            return;
        switch (rule->kind) {
        case CallKind::channel:
            noteChannel(call, result);
            break;
        case CallKind::samples:
            if (const auto* samples = std::get_if<watched::Numbers>(&result.value))
                noteHanded(samples->first);
            break;
        case CallKind::allocate:
            if (const void* block = handleOf(result)) {
                current->allocated[block] = numberOf(call.arguments[0]);
                current->formerMemory.erase(block);
                guardedMemory().setTag(block, current->tag);
            }
            break;
        case CallKind::parameter:
            auditParameter(call, result);
            break;
        case CallKind::readAttribute:
            auditMissing(call, result);
            break;
        case CallKind::buildList:
            noteList(call, result);
            break;
        default:
            break;
        }
    }

    // ---- memory ----

    void damaged(const Damage& damage) override
    {
        const bool known = damage.tag > 0 && damage.tag <= modules.size();
        CheckedModule* module = known ? &modules[damage.tag - 1] : current;
        const std::string name = module != nullptr ? module->name : "Kernel";
        const bool isMemory = module != nullptr && (module->allocated.count(damage.block) > 0 ||
                                                    module->formerMemory.count(damage.block) > 0);
        const std::string count = bytesText(damage.count);
        const std::string block = blockText(damage, isMemory);
        switch (damage.kind) {
        case Damage::Kind::behind:
            add(name, "overrun", "", nullptr,
                fmt::format("writes {} behind the end of {}: {}", count, block,
                            isMemory ? "check the bytes that knl_allocateResource was asked for"
                                     : "check the last index; knl_getTraceLength gives the number "
                                       "of samples"));
            break;
        case Damage::Kind::before:
            add(name, "underrun", "", nullptr,
                fmt::format("writes {} in front of {}: check the first index", count, block));
            break;
        case Damage::Kind::afterFree:
            add(name, "use_after_free", "", nullptr,
                fmt::format("writes {} to {} after it was freed: {}", count, block,
                            isMemory ? "free memory when nobody needs it any more"
                                     : "addresses of samples are valid until the entry point "
                                       "returns; get them again in each call"));
            break;
        }
    }

private:
    using Describe = std::function<std::string(const std::string& function, bool fortran)>;

    void add(const std::string& module, const char* kind, const std::string& detail,
             const Call* call, const Describe& describe)
    {
        findings.add(module, kind, detail, [&](RunFinding& finding) {
            if (call != nullptr)
                finding.function = WatchedCalls::interfaceFunction(*call);
            finding.text = describe(finding.function, isFortran(finding.function));
        });
    }

    void add(const std::string& module, const char* kind, const std::string& detail,
             const Call* call, const std::string& text)
    {
        add(module, kind, detail, call, [&](const std::string&, bool) { return text; });
    }

    // The call would crash, and the guards with it.
    [[noreturn]] void refuse(const char* what)
    {
        endAbandonedProcess(what, "the kernel would have crashed on it");
    }

    // "a block of 200 bytes, as of 50 samples"
    static std::string blockText(const Damage& damage, bool isMemory)
    {
        const std::string size = bytesText(damage.size);
        if (isMemory)
            return "memory of " + size;
        return damage.size % sizeof(float) != 0
                   ? "a block of " + size
                   : fmt::format(
                         "a block of {}, as of {}", size,
                         counted(static_cast<int64_t>(damage.size / sizeof(float)), "sample"));
    }

    void noteThread(const Call& call)
    {
        const RunningCode running = runningCode();
        std::string name = running.module != nullptr ? running.module : "";
        if (name.size() >= 2) // it is quoted
            name = name.substr(1, name.size() - 2);
        add(name, "thread", "", &call,
            "calls the kernel from another thread than the one that called it: only that thread "
            "may call, but for knl_isCancelled");
    }

    void noteHanded(const void* block)
    {
        if (block == nullptr)
            return;
        current->hand(block);
        guardedMemory().setTag(block, current->tag);
    }

    // ---- handles ----

    void checkSet(const Call& call, const CallRule& rule, int place, int tracePlace, TraceUse use)
    {
        if (place < 0)
            return;
        const void* handle = handleOf(call.arguments[static_cast<std::size_t>(place)]);
        if (handle == nullptr) {
            if (!rule.setMayBeNull)
                noteNull(call, "trace set");
            return;
        }
        const SetRole role = roleOf(handle);
        if (role.kind == SetRole::unknown) {
            add(current->name, "stale_handle", "", &call,
                "passes a handle that is not a trace set of this job: get handles again from the "
                "kernel, and never use one that a function has refused to give");
            refuse("passed a handle that is not a trace set");
        }
        if (role.kind == SetRole::foreign) {
            add(current->name, "foreign_handle", "", &call,
                fmt::format("passes a handle of module {}: handles in global variables are "
                            "shared by all modules of one library",
                            quote(role.owner->name)));
            return;
        }
        if (role.kind == SetRole::input)
            noteUse(call, rule, role, tracePlace);
        if (tracePlace >= 0)
            checkTrace(call, role, numberOf(call.arguments[static_cast<std::size_t>(tracePlace)]),
                       use);
    }

    // What the call may write to, or may give the module an address of.
    void noteUse(const Call& call, const CallRule& rule, const SetRole& role, int tracePlace)
    {
        const int64_t count = role.set->getNumberOfTraces();
        if (rule.kind == CallKind::clear) {
            for (int64_t i = 0; i < count; ++i)
                noteInput(role, i, true);
        } else if (rule.kind == CallKind::flag) {
            noteInput(role, count - 1, false);
        } else if (tracePlace >= 0) {
            const bool isHeader = rule.kind == CallKind::readAttribute ||
                                  rule.kind == CallKind::writeAttribute || rule.list >= 0;
            noteInput(role, numberOf(call.arguments[static_cast<std::size_t>(tracePlace)]),
                      !isHeader);
        }
    }

    // The call would bring the trace into memory in any case.
    void noteInput(const SetRole& role, int64_t number, bool withSamples)
    {
        if (number < 0 || number >= role.set->getNumberOfTraces())
            return;
        const SeisTrace* trace = role.set->getTrace(static_cast<int>(number), true);
        if (trace != nullptr)
            noteTrace(*current, role.number, static_cast<int>(number), *trace, withSamples);
    }

    SetRole roleOf(const void* handle) const
    {
        SetRole role = ownRole(*current, handle);
        if (role.kind != SetRole::unknown)
            return role;
        for (const CheckedModule& module : modules) {
            role = ownRole(module, handle);
            if (role.kind != SetRole::unknown)
                return {SetRole::foreign, role.number, role.set, &module};
        }
        return {};
    }

    void noteNull(const Call& call, const char* what)
    {
        add(current->name, "null_handle", "", &call, [&](const std::string&, bool fortran) {
            std::string text = fmt::format(
                "passes a null handle for a {}: check what the function that was to give it has "
                "returned",
                what);
            if (const auto& refused = current->refused)
                text += fmt::format("; the module has asked for {} {}, and {} connected",
                                    refused->kind, refused->number + (fortran ? 1 : 0),
                                    refused->connected == 0
                                        ? "none is"
                                        : fmt::format("{} to {} are", fortran ? 1 : 0,
                                                      refused->connected - (fortran ? 0 : 1)));
            return text;
        });
    }

    void checkChannel(const Call& call)
    {
        const int64_t number = numberOf(call.arguments[0]);
        if (number < 0)
            add(current->name, "channel_number", "", &call, [&](const std::string&, bool fortran) {
                return fmt::format("asks for channel {}: {}", number + (fortran ? 1 : 0),
                                   countedFrom(fortran, "channels and work buffers"));
            });
    }

    void noteChannel(const Call& call, const Argument& result)
    {
        const std::string_view function = call.function;
        const bool isInput = function == "getInputTraceBuffer";
        if (!isInput && function != "getOutputTraceBuffer" && function != "bldOutputTraceBuffer")
            return;
        if (handleOf(result) != nullptr)
            return;
        current->refused = {isInput ? "input" : "output", numberOf(call.arguments[0]),
                            isInput ? current->entity.inputDataChannels.size()
                                    : current->entity.outputDataChannels.size()};
    }

    // ---- traces ----

    void checkTrace(const Call& call, const SetRole& role, int64_t number, TraceUse use)
    {
        const int64_t count = role.set->getNumberOfTraces();
        if (number < 0) {
            add(current->name, "trace_number", "", &call, [&](const std::string&, bool fortran) {
                return fmt::format("asks for trace {} of {}: {}", number + (fortran ? 1 : 0),
                                   nameOfSet(role, fortran), countedFrom(fortran, "traces"));
            });
            return;
        }
        if (number < count || use == TraceUse::look || use == TraceUse::none)
            return;
        if (role.kind == SetRole::input)
            noteMadeInput(call, role, number, count);
        else if (use == TraceUse::source)
            add(current->name, "missing_source", "", &call, [&](const std::string&, bool fortran) {
                return fmt::format("copies or moves trace {} of {}, which has {}: the trace is "
                                   "made there, and holds zeros",
                                   number + (fortran ? 1 : 0), nameOfSet(role, fortran),
                                   counted(count, "trace"));
            });
        else if (role.kind == SetRole::output && number > count)
            add(current->name, "skipped_output", "", &call, [&](const std::string&, bool fortran) {
                return fmt::format("writes trace {} of {}, which has {}: those before it are "
                                   "made, too, and go out as zeros; {}",
                                   number + (fortran ? 1 : 0), nameOfSet(role, fortran),
                                   counted(count, "trace"), countedFrom(fortran, "traces"));
            });
    }

    void noteMadeInput(const Call& call, const SetRole& role, int64_t number, int64_t count)
    {
        add(current->name, "made_input", "", &call, [&](const std::string&, bool fortran) {
            return fmt::format("asks for trace {} of {}, which has {}: the trace is made there, "
                               "and goes through the job as data; {}",
                               number + (fortran ? 1 : 0), nameOfSet(role, fortran),
                               counted(count, "trace"),
                               count == 0 ? "ask for the number of traces first, and set the keep "
                                            "flag of an empty input"
                                          : countedFrom(fortran, "traces"));
        });
    }

    void noteTraces(CheckedModule& module)
    {
        const auto& channels = module.entity.inputDataChannels;
        notes.forget();
        for (std::size_t i = 0; i < channels.size(); ++i) {
            const auto& traces = channels[i]->traces;
            if (!traces.empty() && traces.front() != nullptr)
                noteTrace(module, static_cast<int>(i), 0, *traces.front(), true);
        }
        module.outputCounts.clear();
        for (const DataChannel* channel : module.entity.outputDataChannels)
            module.outputCounts.push_back(channel->getNumberOfTraces());
    }

    void noteTrace(CheckedModule& module, int input, int number, const SeisTrace& trace,
                   bool withSamples)
    {
        if (notes.note(input, number, trace, withSamples) && !module.hasSeenNotFinite)
            module.hasSeenNotFinite = firstNotFinite(trace.traceSamples, trace.traceLength) >= 0;
    }

    void compareInputs(const CheckedModule& module)
    {
        notes.compare(module.entity, [&](const InputNotes::Change& change) {
            const bool isFirst = change.number == 0;
            add(module.name, "input_changed", change.what, nullptr,
                fmt::format("changes the {} of {} of its input {} ({}counted from 0): a host may "
                            "let other modules read the same trace; copy it to the output, and "
                            "change it there",
                            change.what,
                            isFirst ? "the trace" : fmt::format("trace {}", change.number),
                            change.input, isFirst ? "" : "both "));
        });
    }

    void lookAtOutputs(const CheckedModule& module)
    {
        if (module.isReader || module.hasSeenNotFinite)
            return;
        const auto& channels = module.entity.outputDataChannels;
        for (std::size_t i = 0; i < channels.size() && i < module.outputCounts.size(); ++i) {
            const int count = channels[i]->getNumberOfTraces();
            // The one before may have been held back, and changed.
            const int first = std::max({0, module.outputCounts[i] - 1, count - mostLookedAt});
            for (int n = first; n < count; ++n)
                lookAtTrace(module, i, channels[i]->traces[static_cast<std::size_t>(n)]);
        }
    }

    void lookAtTrace(const CheckedModule& module, std::size_t output, const SeisTrace* trace)
    {
        if (trace == nullptr || trace->traceSamples == nullptr)
            return;
        const int place = firstNotFinite(trace->traceSamples, trace->traceLength);
        if (place < 0)
            return;
        const float value = trace->traceSamples[place];
        add(module.name, "not_finite", "", nullptr,
            fmt::format("gives a sample that is {}, sample {} of a trace of output {} (both "
                        "counted from 0), and its inputs hold numbers only: check divisions, roots "
                        "and logarithms, and memory that is not its own, which holds no numbers in "
                        "this check",
                        std::isnan(value) ? "not a number" : "infinite", place, output));
    }

    // ---- memory ----

    void checkList(const Call& call, const Argument& argument)
    {
        const void* list = handleOf(argument);
        if (list == nullptr) {
            if (std::strcmp(call.function, "freeAttributeList") != 0)
                noteNull(call, "list of attributes");
            return;
        }
        if (current->lists.count(list) > 0) {
            if (std::strcmp(call.function, "freeAttributeList") == 0) {
                current->lists.erase(list);
                current->formerLists.insert(list);
            }
            return;
        }
        if (std::any_of(modules.begin(), modules.end(),
                        [&](const CheckedModule& module) { return module.lists.count(list) > 0; }))
        {
            add(current->name, "foreign_handle", "list", &call,
                "passes a list of attributes of another module: handles in global variables are "
                "shared by all modules of one library");
            return;
        }
        add(current->name, "stale_handle", "list", &call,
            current->formerLists.count(list) > 0
                ? "passes a list of attributes that it has freed"
                : "passes a handle that is not a list of attributes of this job");
        refuse("passed a handle that is not a list of attributes");
    }

    void checkFree(const Call& call)
    {
        const void* block = handleOf(call.arguments[0]);
        if (block == nullptr)
            return;
        if (current->allocated.erase(block) > 0) {
            current->formerMemory.insert(block);
            current->hand(block);
            return;
        }
        for (CheckedModule& module : modules) {
            if (module.allocated.erase(block) > 0)
                return; // passed on by a resource of the job, say
        }
        const GuardedMemory::State state = guardedMemory().stateOf(block);
        if (state == GuardedMemory::State::freed) {
            add(current->name, "freed_twice", "", &call, "frees memory that it has freed before");
            return;
        }
        add(current->name, "foreign_free", "", &call,
            state == GuardedMemory::State::live
                ? "frees memory of a trace, which belongs to the kernel"
                : "frees memory that knl_allocateResource did not give: memory of malloc goes to "
                  "free, and the kernel's addresses must not be changed");
        refuse("frees memory that is not its own");
    }

    void lookAtLeftovers(CheckedModule& module)
    {
        int64_t bytes = 0;
        for (const auto& [block, size] : module.allocated)
            bytes += size;
        if (bytes > 0)
            add(module.name, "memory_left", "", nullptr,
                fmt::format("leaves {} of memory in {} from knl_allocateResource: free each by "
                            "knl_freeResource, in postprocess_ at the latest",
                            counted(bytes, "byte"),
                            counted(static_cast<int64_t>(module.allocated.size()), "block")));
        int64_t traces = 0;
        for (const SeisTraceSet* set : module.entity.workTraceSets)
            traces += set->getNumberOfTraces();
        if (traces > 0)
            add(module.name, "traces_left", "", nullptr,
                fmt::format("leaves {} in its work buffers: call knl_removeWorkTraces in "
                            "postprocess_",
                            counted(traces, "trace")));
        if (!module.audit || !module.hasProcessed || module.hasFailed)
            return;
        for (const AuditResult& array : module.audit->unfitArrays())
            add(module.name, array.kind, array.text, nullptr, array.text);
        for (const std::string& name : module.audit->unreadParameters())
            add(module.name, "unread_parameter", name, nullptr,
                fmt::format("has never read the parameter {}, which its manifest declares: read "
                            "it, or take it out of the manifest",
                            quote(name)));
    }

    // ---- messages ----

    void checkMessage(const Call& call)
    {
        const int64_t type = numberOf(call.arguments[0]);
        const std::string text = textOf(call.arguments[1]);
        if (type >= errorSeverity)
            current->hasFailed = true;
        if (type < detailSeverity || type > fatalSeverity)
            add(current->name, "message_type", "", &call,
                fmt::format("sends a message of type {}: the types are 0 (detail) to 4 (fatal)",
                            type));
        if (trimmed(text).empty())
            add(current->name, "message_text", "empty", &call, "sends a message without a text");
        else if (utf8Prefix(text) != text.size())
            add(current->name, "message_text", "bytes", &call,
                "sends a message with bytes that are not UTF-8, which shows as \\x and digits");
        else if (text.find('\n') != std::string::npos)
            add(current->name, "message_text", "lines", &call,
                "sends a message of several lines: a message is one line, which names the thing, "
                "its value and what to do");
    }

    // ---- parameters and attributes ----

    void auditParameter(const Call& call, const Argument& result)
    {
        if (!current->audit)
            return;
        const std::string name = textOf(call.arguments[0]);
        const bool isGetter = std::strcmp(call.function, "getModuleParameter") == 0;
        // The walk over the stack is for the first time.
        if (isGetter && !current->audit->wantsGetter(name))
            return;
        const auto* value = std::get_if<const UniVar*>(&result.value);
        const std::string function = isGetter ? WatchedCalls::interfaceFunction(call) : "";
        tell(call, name,
             current->audit->readParameter(name, function, value != nullptr ? *value : nullptr));
    }

    void auditMissing(const Call& call, const Argument& result)
    {
        if (!current->audit || !std::holds_alternative<std::monostate>(result.value))
            return;
        judgeMissing(call, textOf(call.arguments[1]));
    }

    void judgeMissing(const Call& call, const std::string& name)
    {
        if (!isDefined(name) && current->judgedAttributes.insert("r" + name).second)
            tell(call, name, current->audit->readMissingAttribute(name));
    }

    // Work buffers are private to the module.
    void checkWritten(const Call& call)
    {
        if (current->audit && isOutput(handleOf(call.arguments[0])))
            judgeWritten(call, textOf(call.arguments[1]));
    }

    bool isOutput(const void* handle) const
    {
        return placeOfSet(current->entity.outputDataChannels, handle) >= 0;
    }

    void judgeWritten(const Call& call, const std::string& name)
    {
        if (current->judgedAttributes.insert("w" + name).second)
            tell(call, name, current->audit->writeAttribute(name));
    }

    void noteList(const Call& call, const Argument& result)
    {
        const void* list = handleOf(result);
        const auto* names = std::get_if<watched::Names>(&call.arguments[0].value);
        if (list == nullptr || names == nullptr)
            return;
        std::vector<std::string>& texts = current->lists[list];
        texts.clear();
        auditedLists.erase(list);
        for (int i = 0; i < names->count; ++i)
            texts.emplace_back(names->first[i] != nullptr ? names->first[i] : "");
    }

    void checkListUse(const Call& call)
    {
        const auto list = current->lists.find(handleOf(call.arguments[0]));
        if (!current->audit || list == current->lists.end())
            return;
        if (std::strcmp(call.function, "setTraceAttributes") != 0 ||
            !isOutput(handleOf(call.arguments[1])) || !auditedLists.insert(list->first).second)
            return;
        for (const std::string& name : list->second)
            judgeWritten(call, name);
    }

    static bool isDefined(const std::string& name)
    {
        const auto& schema = JobManager::getInstance()->trAttDefsList;
        return schema.find(name) != schema.end();
    }

    void tell(const Call& call, const std::string& detail, const AuditResult& result)
    {
        if (!result.text.empty())
            add(current->name, result.kind, detail, &call, result.text);
    }

    const ResolvedJob& job;
    Findings findings;
    std::deque<CheckedModule> modules; ///< of the job, then the tees
    std::unordered_map<const ModuleEntity*, CheckedModule*> byEntity;
    std::set<const void*> auditedLists; ///< that were written to outputs
    CheckedModule* current = nullptr;   ///< whose code runs
    InputNotes notes;                   ///< of the call of `process_` that runs
    std::thread::id jobThread;
    bool isRunning = false;
    std::optional<ObservedEntries> observed;
};

ModuleCheck::ModuleCheck(const ResolvedJob& job, FindingListener listener)
    : work(std::make_unique<Work>(job, std::move(listener)))
{
}

ModuleCheck::~ModuleCheck() = default;

void ModuleCheck::connected(const RunView& view)
{
    work->start(view);
}

void ModuleCheck::ended(RunResult& result)
{
    work->stop();
    result.isChecked = true;
    result.findings = work->found();
}

void ModuleCheck::passed(const watched::Call& handles)
{
    work->passed(handles);
}

void ModuleCheck::called(const watched::Call& call)
{
    work->called(call);
}

void ModuleCheck::returned(const watched::Call& call, const watched::Argument& result)
{
    work->returned(call, result);
}

} // namespace host
