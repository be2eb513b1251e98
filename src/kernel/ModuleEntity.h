/// @file ModuleEntity.h
///
/// One processing module of a job, and the loading of its library.
#ifndef MODULEENTITY_H
#define MODULEENTITY_H

#include "BlockMap.h"
#include "UniVar.h"
#include "vorn_export.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

class DataChannel;
class SeisTraceSet;
class TraceAttributeList;
template <typename Value>
class RecentNames;

/// A module's entry point. It finds everything by calling back into the kernel; what it returns is
/// ignored.
typedef int (*AnyProcessFunctionType)();

/// Opens a module library with lazy binding and private symbols. Returns its handle, or null after
/// a message of type 1 with the loader's reason.
VORN_EXPORT void* LoadLibrary(const char* modLibPath);
/// The address of a symbol, or null after a message of type 1 with the loader's reason.
VORN_EXPORT void* GetProcAddress(void* modLibHandle, const char* procName);
/// Closes a library that `LoadLibrary` opened; says nothing.
VORN_EXPORT void FreeLibrary(void* handle);

/// A named instance of a module library: its channels, work buffers, parameters, resources, options
/// and metadata, its entry points, and the counters that statistics are made of.
///
/// Owned by the job manager, which creates it with a name and a library (`initJobModule`) and
/// deletes it at the end of post-processing. The module owns its maps and its library; data
/// channels and work buffers are deleted by post-processing. No operation reports an error; channel
/// numbers that do not exist give null or 0.
class VORN_EXPORT ModuleEntity
{
public:
    std::string moduleName;                        ///< also used in messages and statistics
    std::vector<DataChannel*> inputDataChannels;   ///< channels read, in the order of attachment
    std::vector<DataChannel*> outputDataChannels;  ///< channels written, in the order of attachment
    std::vector<SeisTraceSet*> workTraceSets;      ///< private buffers, created on demand
    void* moduleLibraryHandle;                     ///< null until a library has been loaded
    AnyProcessFunctionType preProcessFunction;     ///< entry point `preprocess_`
    AnyProcessFunctionType processFunction;        ///< entry point `process_`
    AnyProcessFunctionType postProcessFunction;    ///< entry point `postprocess_`
    std::map<std::string, UniVar> moduleResources; ///< set by the host or the module
    std::map<std::string, UniVar> moduleParameters;    ///< set by the host
    std::map<std::string, std::string> moduleMetaData; ///< produced by the module, first value kept
    int64_t totalModuleWorkTime; ///< microseconds of wall-clock time inside the entry points
    int inputTracesProcessed;    ///< process calls that left traces in input channel 0
    int outputTracesProcessed;   ///< traces seen in the output channels after each process call
    int totalModuleMemoryUsed;   ///< bytes held now, of those taken while this module was active
    BlockMap moduleMemoryMap;    ///< the blocks that `totalModuleMemoryUsed` counts
    std::map<std::string, UniVar> moduleProcessingOptions; ///< read by the scheduler and modules
    bool respectEOD; ///< the option "RespectEOD" is set: run with empty input at end of data

    void* loadedHandle; ///< of the library that `loadModuleLibrary` has opened last
    void* closedHandle; ///< what `moduleLibraryHandle` still says once its library is closed
    int jobIndex;       ///< where the job found this module last; a hint, to be checked before use
    std::vector<ModuleEntity*>
        producersToAsk; ///< the scheduler's list while it looks at the inputs
    /// Blocks behind resources that were copied in for the module, by resource name.
    std::map<std::string, std::unique_ptr<unsigned char[]>> structResources;
    /// Lists of attributes that the module has had made; it frees them, or they end with it.
    std::vector<std::unique_ptr<TraceAttributeList>> attributeLists;

    /// A module without library, channels or counts.
    explicit ModuleEntity(const std::string& name = std::string());
    ModuleEntity(const ModuleEntity&) = delete;
    ModuleEntity& operator=(const ModuleEntity&) = delete;
    /// Closes the library.
    ~ModuleEntity();

    /// The name, which is also the one in messages.
    std::string getName() const { return moduleName; }

    /// Loads `VORN_HOME`/lib/`modLib` (a file name with its extension) and binds the three entry
    /// points in the order pre-process, process, post-process; the first missing one ends it.
    /// Returns 0; 1 when the library could not be loaded; 2 when `VORN_HOME` is not set or an entry
    /// point is missing. Every failure has been sent as messages of type 1. After a missing entry
    /// point the library stays open until the module is destroyed.
    int loadModuleLibrary(const std::string& modLib);
    /// Closes the library if one is open; the handle keeps its value. Returns 0.
    int unLoadModuleLibrary();

    /// Runs an entry point as the job's active module and adds its time; no module is active
    /// afterwards. Returns 0.
    int preProcessModule();
    /// As preProcessModule().
    int postProcessModule();
    /// Runs `process_`, adds its time and counts traces; the active module stays what it was.
    /// Requires: this is the active module. Returns 0.
    int processModule();

    /// The number of input channels.
    int getNumberOfInputDataChannels() const;
    /// The number of output channels.
    int getNumberOfOutputDataChannels() const;
    /// Input channel `i` in the order of attachment, or null.
    DataChannel* getInputDataChannel(int i) const;
    /// Output channel `i` in the order of attachment, or null.
    DataChannel* getOutputDataChannel(int i) const;
    /// Appends a channel and makes this module its consumer; null is ignored. Deliberate: channels
    /// are numbered in the order of attachment, whatever `i` says.
    void setInputDataChannel(DataChannel* channel, int i);
    /// Appends a channel and makes this module its producer; otherwise as above.
    void setOutputDataChannel(DataChannel* channel, int i);
    /// Whether no input channel has a producer.
    bool isInputModule() const;
    /// Whether no output channel has a consumer.
    bool isOutputModule() const;

    /// All traces that input channel `ch` holds, not only those pending for this module.
    int getNumberOfInputTraces(int ch) const;
    /// Input channel `ch`, or null.
    SeisTraceSet* getInputTrace(int ch) const;
    /// Destroys a trace of an input channel; returns how many are left.
    int removeInputTrace(int ch, int trace);
    /// The sum of the totals announced on the input channels; 32 bits, cut off.
    int getTotalInputTraces() const;
    /// The same for the output channels.
    int getTotalOutputTraces() const;

    /// The number of work buffers made so far.
    int getNumberOfWorkTraceBuffers() const;
    /// Creates buffers until index `n` exists, that is `n` + 1 of them: callers pass the index that
    /// they are about to use (deliberate).
    void setNumberOfWorkTraceBuffers(int n);
    /// Appends a buffer, which post-processing will delete; returns the new number.
    int addWorkTraceBuffer(SeisTraceSet* set);
    /// Buffer `i`, created together with all before it; null for a negative index.
    SeisTraceSet* getWorkTraceBuffer(int i);

    /// Stores a copy; returns 0.
    int setParameter(const std::string& name, const UniVar& value);
    /// A copy of the value. Deliberate: looking up a missing name inserts an empty value, and the
    /// name counts as present from then on.
    UniVar getParameter(const std::string& name);
    /// Whether there is a value under this name.
    bool isParameterPresent(const std::string& name) const;
    /// The value itself, or null for a missing name, which stays missing.
    const UniVar* findParameter(std::string_view name);

    /// Stores a copy; returns 1 (`setParameter` returns 0).
    int setResource(const std::string& name, const UniVar& value);
    /// A copy of the value; inserts an empty value for a missing name, like `getParameter`.
    UniVar getResource(const std::string& name);
    /// Whether there is a value under this name.
    bool isResourcePresent(const std::string& name) const;
    /// The value itself, or null for a missing name, which stays missing.
    const UniVar* findResource(std::string_view name);
    /// Owns the block behind resource `name` from now on, until another takes its place under that
    /// name or the module ends.
    void keepStructResource(const std::string& name, std::unique_ptr<unsigned char[]> block);

    /// Stores a copy, or removes the option when the value is undefined. "RespectEOD" also sets
    /// `respectEOD`: true when the value, as a 32-bit integer, is not zero.
    void setProcessingOption(const std::string& name, const UniVar& value);
    /// A copy of the value; undefined when absent, and nothing is inserted.
    UniVar getProcessingOption(const std::string& name) const;
    /// Whether the module runs with empty input at end of data.
    bool isRespectEOD() const { return respectEOD; }

    /// Keeps the first value given for a key.
    void setMetaData(const std::string& key, const std::string& value);
    /// The metadata that the module has produced.
    std::map<std::string, std::string>& getMetaData() { return moduleMetaData; }

    /// Charges a block of `size` bytes to this module; returns `ptr`.
    void* calcAllocateResource(void* ptr, int size);
    /// Uncharges a block; nothing when this module does not list it.
    void calcFreeResource(void* ptr);

    /// Whole seconds, truncated.
    int getTotalModuleWorkTime() const;
    /// Bytes held now.
    int getTotalModuleMemoryUsed() const { return totalModuleMemoryUsed; }
    /// As the field of this name.
    int getInputTracesProcessed() const { return inputTracesProcessed; }
    /// As the field of this name.
    int getOutputTracesProcessed() const { return outputTracesProcessed; }

private:
    std::unique_ptr<RecentNames<UniVar>> recentParameters;
    std::unique_ptr<RecentNames<UniVar>> recentResources;

    void callTimed(AnyProcessFunctionType entryPoint);
};

#endif
