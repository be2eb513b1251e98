#include "run/RunningModule.h"

#include "JobManager.h"
#include "ModuleEntity.h"
#include "base/Escaping.h"
#include "run/CountingChannel.h"
#include "run/ProcessEnd.h"
#include "run/ThrowWatch.h"
#include "vorn_assert.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cxxabi.h>
#include <deque>
#include <dlfcn.h>
#include <exception>
#include <link.h>
#include <unordered_map>
#include <vector>

namespace host {

// One module of the job. Other threads read `name` and the atomics.
struct ModuleRecord
{
    // What the pointer `current` points to: one for each entry point, so that one word tells both.
    struct Place
    {
        EntryPoint entry = EntryPoint::none;
        ModuleRecord* record = nullptr;
    };

    std::string name; // quoted
    const ModuleEntity* module = nullptr;
    std::array<AnyProcessFunctionType, 3> functions = {};
    const CountingChannel* input = nullptr;  // the first one
    const CountingChannel* output = nullptr; // of a source
    std::array<Place, 6> places;
    std::atomic<int64_t> calls{0};
    std::atomic<int64_t> trace{0};
    std::atomic<bool> isAtEnd{false};
};

namespace {

using Record = ModuleRecord;

// Never destroyed, like what belongs to it: the handlers of exit() read it after the destructors of
// static objects have run.
std::deque<Record>& records()
{
    static auto& all = *new std::deque<Record>; // addresses never change
    return all;
}

std::atomic<const Record::Place*> current{nullptr};
CallObserver* observer = nullptr; // entry points have no arguments

// In the order in which they began.
std::array<EntryObserver*, mostEntryObservers> entryObservers{};
std::size_t entryObserverCount = 0;

// The records by module: open addressing in a power of two, at most half full. Looked into for
// every call of a module.
class RecordTable
{
public:
    void build()
    {
        std::size_t size = 16;
        while (size < 2 * records().size())
            size *= 2;
        slots.assign(size, nullptr);
        for (Record& record : records()) {
            std::size_t at = slotOf(record.module);
            while (slots[at] != nullptr)
                at = (at + 1) & (slots.size() - 1);
            slots[at] = &record;
        }
    }

    // Null for a module that is not in the table. Requires: the table is built.
    Record* find(const ModuleEntity* module) const
    {
        std::size_t at = slotOf(module);
        while (slots[at] != nullptr && slots[at]->module != module)
            at = (at + 1) & (slots.size() - 1);
        return slots[at];
    }

private:
    std::size_t slotOf(const ModuleEntity* module) const
    {
        const auto address = reinterpret_cast<std::uintptr_t>(module);
        return (address >> 6 ^ address >> 12) & (slots.size() - 1);
    }

    std::vector<Record*> slots;
};

RecordTable& table()
{
    static auto& one = *new RecordTable;
    return one;
}

// By quoted name. The modules that the command puts before several readers may have the name of one
// in the job file.
std::unordered_multimap<std::string, Record*>& recordsByName()
{
    static auto& all = *new std::unordered_multimap<std::string, Record*>;
    return all;
}

// The record of `module`; of any module of this name where `module` is null: its library is loaded
// before the module is known.
Record& recordOf(const std::string& name, const ModuleEntity* module)
{
    const std::string quoted = quote(name);
    const auto [first, last] = recordsByName().equal_range(quoted);
    for (auto named = first; named != last; ++named) {
        Record& record = *named->second;
        if (module != nullptr && record.module == nullptr)
            record.module = module;
        if (module == nullptr || record.module == module)
            return record;
    }
    Record& record = records().emplace_back();
    for (std::size_t i = 0; i < record.places.size(); ++i)
        record.places[i] = {static_cast<EntryPoint>(i), &record};
    record.name = quoted;
    record.module = module;
    recordsByName().emplace(quoted, &record);
    return record;
}

void note(Record& record, EntryPoint entry)
{
    record.calls.store(record.calls.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    current.store(&record.places[static_cast<std::size_t>(entry)], std::memory_order_release);
}

void noteTrace(Record& record)
{
    constexpr auto relaxed = std::memory_order_relaxed;
    if (record.input != nullptr) {
        const bool empty = record.input->getNumberOfTraces() == 0;
        record.trace.store(record.input->departed() + (empty ? 0 : 1), relaxed);
        record.isAtEnd.store(empty, relaxed);
    } else if (record.output != nullptr) {
        record.trace.store(record.output->arrived() + 1, relaxed);
    }
}

// Stands in the place of the entry point of every module. The unwinding of pthread_exit() has no
// exception object, which the sanitizer takes for a null reference.
template <EntryPoint entry>
__attribute__((no_sanitize("undefined"))) int callEntryPoint()
{
    // As long as it lives, the module's code runs.
    struct Call
    {
        explicit Call(Record& called) : record(called)
        {
            note(record, entry);
            for (std::size_t i = 0; i < entryObserverCount; ++i)
                entryObservers[i]->entered(*record.module, entry);
        }
        ~Call()
        {
            for (std::size_t i = 0; i < entryObserverCount; ++i)
                entryObservers[i]->left(*record.module, entry);
            current.store(record.places.data(), std::memory_order_release);
        }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;
        Record& record;
    };

    Record* const record = table().find(JobManager::getInstance()->getActiveModule());
    if (record == nullptr) [[unlikely]]
        return 0; // called by the application itself, while no module of the job is active
    if constexpr (entry == EntryPoint::process) {
        if (observer != nullptr)
            observer->beforeCall();
        noteTrace(*record);
    }
    int status = 0;
    {
        const Call call(*record);
        constexpr auto index =
            static_cast<std::size_t>(entry) - static_cast<std::size_t>(EntryPoint::preprocess);
        try {
            status = record->functions[index]();
        } catch (abi::__forced_unwind&) {
            // pthread_exit() or pthread_cancel(): the thread that runs the job is about to vanish.
            endAbandonedProcess("ended the thread of the job");
        } catch (const std::exception& error) {
            keepThrow(dynamic_cast<const void*>(&error));
            throw;
        }
    }
    if constexpr (entry == EntryPoint::process) {
        if (observer != nullptr)
            observer->afterCall(*record->module);
    }
    return status;
}

template <EntryPoint entry>
void redirect(AnyProcessFunctionType& function, Record& record)
{
    constexpr auto index =
        static_cast<std::size_t>(entry) - static_cast<std::size_t>(EntryPoint::preprocess);
    if (function == nullptr)
        return;
    record.functions[index] = function;
    function = callEntryPoint<entry>;
}

const CountingChannel* firstOf(const std::vector<DataChannel*>& channels)
{
    return channels.empty() ? nullptr : static_cast<const CountingChannel*>(channels.front());
}

const char* textOf(EntryPoint entry)
{
    switch (entry) {
    case EntryPoint::preprocess:
        return "in preprocess_";
    case EntryPoint::process:
        return "in process_";
    case EntryPoint::postprocess:
        return "in postprocess_";
    case EntryPoint::loading:
        return "while its library was loaded";
    case EntryPoint::unloading:
        return "while its library was unloaded";
    case EntryPoint::none:
        break;
    }
    return "";
}

} // namespace

RunningCode runningCode() noexcept
{
    const Record::Place* const place = current.load(std::memory_order_acquire);
    RunningCode code;
    if (place == nullptr)
        return code;
    const Record& record = *place->record;
    code.entry = place->entry;
    code.module = record.name.c_str();
    code.entity = record.module;
    code.calls = record.calls.load(std::memory_order_relaxed);
    if (code.entry == EntryPoint::process) {
        code.trace = record.trace.load(std::memory_order_relaxed);
        code.isAtEnd = record.isAtEnd.load(std::memory_order_relaxed);
        code.isSource = record.input == nullptr;
    }
    return code;
}

// snprintf() of integers and texts allocates nothing.
void describePlace(const RunningCode& code, char* text, std::size_t size) noexcept
{
    const char* const place = textOf(code.entry);
    const auto trace = static_cast<long long>(code.trace);
    if (code.trace == 0)
        std::snprintf(text, size, "%s", place);
    else if (code.isAtEnd)
        std::snprintf(text, size, "%s, after trace %lld of its input", place, trace);
    else
        std::snprintf(text, size, "%s, trace %lld of its %s", place, trace,
                      code.isSource ? "output" : "input");
}

std::string placeOf(const RunningCode& code)
{
    std::array<char, 128> text;
    describePlace(code, text.data(), text.size());
    return text.data();
}

void forgetRunningModules()
{
    current.store(nullptr, std::memory_order_release);
    recordsByName().clear();
    records().clear();
}

LibraryCall::LibraryCall(EntryPoint entry, const std::string& name)
{
    note(recordOf(name, nullptr), entry);
}

LibraryCall::~LibraryCall()
{
    const Record::Place* const place = current.load(std::memory_order_relaxed);
    current.store(place->record->places.data(), std::memory_order_release);
}

// A further reference to an open library; null when there is none.
static void* referTo(void* handle)
{
    link_map* map = nullptr;
    if (handle == nullptr || dlinfo(handle, RTLD_DI_LINKMAP, &map) != 0)
        return nullptr;
    return dlopen(map->l_name, RTLD_LAZY | RTLD_NOLOAD);
}

void KeptLibraries::keep(const ModuleEntity& module)
{
    libraries.reserve(libraries.size() + 1);
    ModuleRecord& record = recordOf(module.moduleName, &module);
    if (void* handle = referTo(module.moduleLibraryHandle))
        libraries.push_back({handle, &record});
}

void KeptLibraries::close() noexcept
{
    for (const Library& library : libraries) {
        note(*library.record, EntryPoint::unloading);
        dlclose(library.handle);
        current.store(library.record->places.data(), std::memory_order_release);
    }
    libraries.clear();
}

void watchEntryPoints(const std::vector<ModuleEntity*>& modules)
{
    for (ModuleEntity* module : modules) {
        Record& record = recordOf(module->moduleName, module);
        record.input = firstOf(module->inputDataChannels);
        if (record.input == nullptr)
            record.output = firstOf(module->outputDataChannels);
    }
    table().build();
    for (ModuleEntity* module : modules) {
        Record& record = *table().find(module);
        redirect<EntryPoint::preprocess>(module->preProcessFunction, record);
        redirect<EntryPoint::process>(module->processFunction, record);
        redirect<EntryPoint::postprocess>(module->postProcessFunction, record);
    }
}

ObservedCalls::ObservedCalls(CallObserver& observes)
{
    observer = &observes;
}

ObservedCalls::~ObservedCalls()
{
    observer = nullptr;
}

ObservedEntries::ObservedEntries(EntryObserver& observes) : observer(observes)
{
    VORN_ASSERT(entryObserverCount < mostEntryObservers);
    entryObservers[entryObserverCount++] = &observer;
}

ObservedEntries::~ObservedEntries()
{
    const auto end = entryObservers.begin() + entryObserverCount;
    entryObserverCount = static_cast<std::size_t>(
        std::remove(entryObservers.begin(), end, &observer) - entryObservers.begin());
}

} // namespace host
