/// @file RunningModule.h
///
/// Which module's code a job is running: for messages about a process that ends, for the progress,
/// and for an endless loop in a module, which nothing else names.
///
/// The thread of the job notes it, other threads and signal handlers read it at any moment. Names
/// are kept until the next job of the process begins.
#ifndef RUNNINGMODULE_H
#define RUNNINGMODULE_H

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class ModuleEntity;

namespace host {

struct ModuleRecord;

/// Where the code of a module is called.
enum class EntryPoint
{
    none, ///< nowhere: the kernel or the command runs
    loading,
    preprocess,
    process,
    postprocess,
    unloading
};

/// A moment of a job. The name is escaped and quoted, and valid until the next job begins.
struct RunningCode
{
    EntryPoint entry = EntryPoint::none;
    const char* module = nullptr; ///< null: no module has run
    /// What `module` names, to be compared with others: it may be gone. Null: not known.
    const ModuleEntity* entity = nullptr;
    int64_t calls = 0; ///< of all entry points of this module: tells calls apart
    /// Of `process_`, counted from 1: the trace of the first input that the call was given, or that
    /// a source makes. With `isAtEnd`, the traces that the input has had. 0: not known.
    int64_t trace = 0;
    bool isSource = false;
    bool isAtEnd = false; ///< the first input was empty when `process_` was called
};

/// What runs now, or ran last. Safe in signal handlers.
RunningCode runningCode() noexcept;

/// Writes where in the module's code that is into `text` of `size` bytes: `in process_, trace 17 of
/// its input`, `while its library was loaded`; an empty text when no module's code runs. Allocates
/// nothing; safe in signal handlers.
void describePlace(const RunningCode& code, char* text, std::size_t size) noexcept;
/// The same as a string.
std::string placeOf(const RunningCode& code);

/// @name Called by the thread that runs the job
/// @{

/// A new job: no module has run. Requires: no other thread reads names of the job before.
void forgetRunningModules();

/// As long as it lives, the library of module `name` is being loaded or unloaded.
class LibraryCall
{
public:
    LibraryCall(EntryPoint entry, const std::string& name);
    ~LibraryCall();
    LibraryCall(const LibraryCall&) = delete;
    LibraryCall& operator=(const LibraryCall&) = delete;
};

/// Keeps the libraries of modules loaded when the kernel unloads them, and unloads them itself: the
/// kernel does not say which module's library it is about to unload.
class KeptLibraries
{
public:
    KeptLibraries() = default;
    ~KeptLibraries() { close(); }
    KeptLibraries(const KeptLibraries&) = delete;
    KeptLibraries& operator=(const KeptLibraries&) = delete;

    /// Requires: the library of `module` is loaded.
    void keep(const ModuleEntity& module);
    /// Unloads all, in the order in which they were kept.
    void close() noexcept;
    /// Leaves all loaded until the process ends.
    void leave() noexcept { libraries.clear(); }

private:
    struct Library
    {
        void* handle;
        ModuleRecord* record;
    };
    std::vector<Library> libraries;
};

/// From now on the entry points of `modules` are noted while they run: each is called through a
/// function of this unit. Requires: channels are attached, and are CountingChannels; the modules
/// have their libraries loaded.
void watchEntryPoints(const std::vector<ModuleEntity*>& modules);

/// Sees the calls of `process_`. The kernel itself reports once in 1001 passes of its scheduler,
/// and one pass may already be endless.
class CallObserver
{
public:
    virtual ~CallObserver() = default;

    /// Called before each call of a module. What it throws goes through the scheduler.
    virtual void beforeCall() = 0;
    /// Called after each call that did not throw, before the scheduler looks at the outputs.
    virtual void afterCall(const ModuleEntity& module) = 0;

protected:
    CallObserver() = default;
    CallObserver(const CallObserver&) = default;
    CallObserver& operator=(const CallObserver&) = default;
};

/// As long as it lives, `observer` sees the calls of all watched modules. Only one object of this
/// class may exist at a time.
class ObservedCalls
{
public:
    explicit ObservedCalls(CallObserver& observer);
    ~ObservedCalls();
    ObservedCalls(const ObservedCalls&) = delete;
    ObservedCalls& operator=(const ObservedCalls&) = delete;
};

/// Sees all calls of entry points, those of `process_` inside of what a CallObserver sees.
class EntryObserver
{
public:
    virtual ~EntryObserver() = default;

    /// The module's code runs next; runningCode() tells where.
    virtual void entered(const ModuleEntity& module, EntryPoint entry) = 0;
    /// It has returned, or an exception leaves it.
    virtual void left(const ModuleEntity& module, EntryPoint entry) noexcept = 0;

protected:
    EntryObserver() = default;
    EntryObserver(const EntryObserver&) = default;
    EntryObserver& operator=(const EntryObserver&) = default;
};

/// See ObservedEntries.
constexpr std::size_t mostEntryObservers = 4;

/// As long as it lives, `observer` sees the entry points of all watched modules. At most
/// `mostEntryObservers` objects of this class may exist at a time.
class ObservedEntries
{
public:
    explicit ObservedEntries(EntryObserver& observer);
    ~ObservedEntries();
    ObservedEntries(const ObservedEntries&) = delete;
    ObservedEntries& operator=(const ObservedEntries&) = delete;

private:
    EntryObserver& observer;
};

/// @}

} // namespace host

#endif
