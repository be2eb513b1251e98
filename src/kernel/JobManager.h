/// @file JobManager.h
///
/// The object through which a host builds and runs a job, and through which the module interface
/// reaches the running module.
#ifndef JOBMANAGER_H
#define JOBMANAGER_H

#include "BlockMap.h"
#include "EndOfDataFlags.h"
#include "ModuleEntity.h"
#include "TraceAttribute.h"
#include "UniVar.h"
#include "hostcallbacks.h"
#include "vorn_export.h"
#include "vorn_version.h"

// Qt's keywords are macros that take names from every header that follows (`emit` from
// <syncstream>). They stay away unless the source has included Qt before, or defines
// VORN_QT_KEYWORDS. The guard of Qt 6's header that makes `signals`, `slots` and `emit` goes, too:
// a source that includes <QObject> behind this header gets them from there. For `foreach` and
// `forever`, include a header of Qt first.
#if !defined(QT_VERSION) && !defined(QT_NO_KEYWORDS) && !defined(VORN_QT_KEYWORDS)
#include <QString>
#undef signals
#undef slots
#undef emit
#undef foreach
#undef forever
#undef QTMETAMACROS_H
#else
#include <QString>
#endif
#if QT_VERSION_MAJOR != VORN_QT_MAJOR
#error "VORN is built with another major version of Qt: see VORN_QT_MAJOR in vorn_version.h"
#endif

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <vector>

class DataChannel;
class LibraryEntity;
struct JobOutcome;
class SeisTrace;
class SeisTraceSet;

/// Modules, referenced.
using ModuleList = std::vector<ModuleEntity*>;

/// An entry point that is a function of the host; see JobManager::addModule().
using HostModuleFunction = int (*)(void* context);

/// One job at a time, in one process, on one thread: directories and call-backs are set, modules
/// created, channels attached, parameters set; then `preProcessJob`, `processJob` and
/// `postProcessJob` run in this order. Post-processing deletes modules, channels and work buffers,
/// and the same manager takes the next job.
///
/// While an entry point runs, its module is the active module: buffers, parameters, resources,
/// options, memory and metadata are resolved against it. Without an active module the operations
/// that need one return null, 0, false or an empty value, and store nothing.
class VORN_EXPORT JobManager
{
public:
    ModuleList jobModules; ///< owned; in order of creation, by depth once pre-processing has begun
    std::vector<LibraryEntity*> jobOutputTables; ///< deleted by resetJob() alone
    std::map<std::string, UniVar> jobResources;  ///< kept for the job as a whole
    ModuleEntity* activeModule;                  ///< the module whose entry point runs, or null
    MsgFunctionType messageFunc;                 ///< host call-backs; null: service off
    MsgArgumentFunctionType messageArgumentFunc; ///< gets `messageFuncObj`
    StatFunctionType statisticFunc;              ///< gets `statisticFuncObj`
    CreatePadFunctionType createPadFunc;         ///< gets `createPadFuncObj`
    AddTraceToPadFunctionType addTraceToPadFunc; ///< gets `addTraceToPadFuncObj`
    AddPlotToPadFunctionType addPlotToPadFunc;   ///< gets `addPlotToPadFuncObj`
    ExecAppliFunctionType execAppliFunc;         ///< gets `execAppliFuncObj`
    std::map<std::string, trAttDefStr> trAttDefsList; ///< the job's attribute schema, by name
    QString projectDir;                               ///< see setProjectDir()
    QString scratchDir;                               ///< kept for host and modules
    std::string jobName;                              ///< also used in the statistics
    void* messageFuncObj;                             ///< handed back to the host with each call
    void* statisticFuncObj;                           ///< likewise
    void* createPadFuncObj;                           ///< likewise
    void* addTraceToPadFuncObj;                       ///< likewise
    void* addPlotToPadFuncObj;                        ///< likewise
    void* execAppliFuncObj;                           ///< likewise
    int64_t jobStartTime;   ///< microseconds since the epoch when the manager was created
    int totalJobMemoryUsed; ///< bytes held now, by modules, traces and host; 32 bits, wraps
    BlockMap jobMemoryMap;  ///< the blocks that `totalJobMemoryUsed` counts
    std::map<std::string, std::string> metaDataMap; ///< job-wide metadata, first value kept

    /// Values whose arrays a module has been given pointers to; dropped when its entry point
    /// returns.
    std::deque<UniVar> keptValues;

    static JobManager* jobManagerInstance; ///< the singleton, or null before first use

    /// The manager of the process, created on first use. The host may delete it; it then sets
    /// `jobManagerInstance` to null itself before the next use.
    static JobManager* getInstance()
    {
        if (jobManagerInstance == nullptr) [[unlikely]]
            makeInstance();
        return jobManagerInstance;
    }

    /// Everything empty; seeds the C library's pseudo-random numbers with the time, unless
    /// leaveRandomNumbers() has been called.
    JobManager();
    JobManager(const JobManager&) = delete;
    JobManager& operator=(const JobManager&) = delete;
    /// Deletes the modules, which closes their libraries; channels, buffers and tables stay.
    ~JobManager();

    /// For hosts that use the C library's pseudo-random numbers themselves. From now on the kernel
    /// neither seeds nor draws them: pads are numbered from 1 on, each number once in the process,
    /// and scratch files are named otherwise. To be called before the first getInstance(), else
    /// that one has seeded already.
    static void leaveRandomNumbers();

    /// @name Building a job
    /// @{

    /// A new module of the job, or null when its library could not be loaded: the job is then as it
    /// was, and messages have said why. Names need not be unique. The first call in a process also
    /// looks whether modules reach the kernel's functions: where the application has a function of
    /// its own under a name of MOXKernel.h, a message of type 3 names function and object. A
    /// library that is preloaded in order to take them exports a symbol `vorn_interposes_kernel`.
    ModuleEntity* initJobModule(const std::string& modName, const std::string& modLib);
    /// A new module of the job whose entry points are functions of the host: each is called with
    /// `context`, and what it returns is ignored; a null one does nothing. Never null.
    /// HostModules.h has the same for functions that are objects, and modules that read and write
    /// arrays.
    ModuleEntity* addModule(const std::string& name, HostModuleFunction preprocess,
                            HostModuleFunction process, HostModuleFunction postprocess,
                            void* context);
    /// A new output table of the job; `libType` is not checked. resetJob() deletes it.
    LibraryEntity* initCDTablePrototype(const std::string& libType, const std::string& libPath);
    void setJobName(const char* name);

    QString getProjectDir() const { return projectDir; }
    QString getScratchDir() const { return scratchDir; }
    /// Also makes it (as UTF-8) the directory under which metadata files are kept. An empty
    /// directory is stored and then throws std::out_of_range, as the metadata store does.
    void setProjectDir(const QString& dir);
    void setScratchDir(const QString& dir) { scratchDir = dir; }
    /// @}

    /// @name The active module
    /// @{
    void setActiveModule(ModuleEntity* module) { activeModule = module; }
    ModuleEntity* getActiveModule() const { return activeModule; }
    std::string getCurrentModuleName() const;

    SeisTraceSet* getInputTraceBuffer(int ch);
    SeisTraceSet* getOutputTraceBuffer(int ch);
    SeisTraceSet* getWorkTraceBuffer(int wtset);
    /// Output channel `channelNo` with length (samples), interval (microseconds) and the attributes
    /// of `templ` (null: none); null when the channel does not exist.
    SeisTraceSet* bldOutputTraceBuffer(int channelNo, int traceLength, int sampleInterval,
                                       SeisTraceSet* templ);
    /// The same for work buffer `wtset`, created on demand. `numTraces` is accepted and ignored.
    SeisTraceSet* bldWorkTraceBuffer(int wtset, int traceLength, int sampleInterval, int numTraces,
                                     SeisTraceSet* templ);

    void setModuleParameter(const std::string& name, const UniVar& value);
    UniVar getModuleParameter(const std::string& name);
    bool isModuleParameterPresent(const std::string& name) const;

    /// Resources of `module`, or of the active module when it is null. Setting returns 1, or 0 when
    /// there is neither.
    int setModuleResource(const std::string& name, const UniVar& value, ModuleEntity* module);
    UniVar getModuleResource(const std::string& name, ModuleEntity* module);
    bool isModuleResourcePresent(const std::string& name, ModuleEntity* module) const;

    /// Keeps `value` until the running entry point returns; what it holds can be handed to the
    /// module as a pointer. Where a host runs another entry point from within a call-back, that one
    /// drops its own values only.
    const UniVar& keepUntilReturn(UniVar value);
    /// Drops what `keepUntilReturn` kept but for the first `outer` values; called when an entry
    /// point has returned.
    void releaseKeptValues(std::size_t outer = 0)
    {
        while (keptValues.size() > outer)
            keptValues.pop_back();
    }
    /// @}

    /// @name Date and time
    /// @{

    /// Local date as "%d.%d.%d" from the C library's broken-down time as it stands: day, month from
    /// 0, years since 1900 (15 November 2026 is 15.10.126). Deliberate: existing modules parse it
    /// so.
    std::string getCurrentDate() const;
    /// Microseconds since the epoch.
    int64_t getCurrentTime() const;
    /// @}

    /// @name Trace attribute schema
    /// Numbers are -1 and the description is empty for a name that is not defined. Looking up never
    /// inserts.
    /// @{

    /// Defines `name`, replacing an earlier definition. Mind the order: `cstType` comes after the
    /// bits.
    void addTraceAttributeDefinition(const std::string& name, int type, int dim,
                                     const std::string& descr, int cstSlot, int bitA, int bitZ,
                                     int cstType, int mapCoef);
    /// Defines the 91 words of the SEG-Y trace header, each an integer of 32 bits, by their usual
    /// keys (`tracl`, `fldr`, `offset`, ...): what the job files of the command call the schema
    /// `segy`, and most modules expect.
    void defineSegySchema();
    int getTraceAttributeType(const std::string& name) const;
    int getTraceAttributeDimension(const std::string& name) const;
    int getTraceAttributeCstSlot(const std::string& name) const;
    int getTraceAttributeBitA(const std::string& name) const;
    int getTraceAttributeBitZ(const std::string& name) const;
    int getTraceAttributeCstType(const std::string& name) const;
    int getTraceAttributeMapCoef(const std::string& name) const;
    std::string getTraceAttributeDescription(const std::string& name) const;
    /// Fills the outputs that are not null; returns 1, or -1 (and -1 in every output) for a name
    /// that is not defined.
    int getTraceAttributeDef(const std::string& name, int* type, int* dim, int* cstSlot, int* bitA,
                             int* bitZ, int* cstType, int* mapCoef) const;
    /// @}

    /// @name Phases
    /// Each returns 0, or 1 when a module failed; since entry-point results are ignored, 0, or 1
    /// when the job was cancelled. jobOutcome() knows what modules have reported. Banners are
    /// messages of type 1. A phase that is called while one is running, as from an entry point, is
    /// refused: 1, after a message of type 3. When an exception leaves a phase, no module is
    /// active.
    /// @{

    /// Sorts the modules by depth and runs every pre-process entry once, statistics before each.
    int preProcessJob();
    /// Pulls traces from the sinks until none is left to serve. A job that by its modules' flags
    /// never ends does not end.
    int processJob();
    /// Runs every post-process entry once, then deletes channels, work buffers, modules and the
    /// scratch file. Where processing has begun and was not finished, no module gives a file its
    /// final name. The first exception that is met on the way (of a module, or std::bad_alloc) is
    /// thrown when all that is done.
    int postProcessJob();

    void sortJobModules();
    /// Gives `module` at least `priority` and everything below it more; returns the deepest level
    /// reached. Cycles are not supported.
    int defineModulePriority(ModuleEntity* module, std::map<ModuleEntity*, int>& prioritiesMap,
                             int priority);
    /// One pass over `jobModulesForProcess`, asking producers where input is missing: 1 when a
    /// module failed, -1 when one left the list or none is left to serve, else 0.
    int processModules(ModuleList& jobModulesForProcess, EndOfDataFlags& jobModulesEodFlag);
    /// The same with the flags in a plain map: modules that are missing in it start at 0.
    int processModules(ModuleList& jobModulesForProcess,
                       std::map<ModuleEntity*, int>& jobModulesEodFlag);
    /// Runs `module`, which stays the active module.
    int processModule(ModuleEntity* module);
    /// @}

    /// @name Cancel, outcome, the next job
    /// @{

    /// Ends the job of this process as soon as the module that is running returns: no other entry
    /// point is called for its data, and the phase returns 1. The host then calls postProcessJob(),
    /// as ever: modules that have been prepared free what they hold, no file gets its final name,
    /// and the result is 0. Long loops of modules can ask for it (knl_isCancelled). Requested while
    /// postProcessJob() runs, it keeps from their names the outputs of modules that have not ended
    /// yet. It holds until resetJob(), so that a phase that begins later ends at once. From any
    /// thread, and from a signal handler; costs a hop of a trace one look at a word of memory.
    static void requestCancel() noexcept;
    /// Whether requestCancel() has been called since the manager was made or reset. From any
    /// thread.
    static bool isCancelRequested() noexcept;

    /// How the job has ended so far; see JobOutcome.h. Kept when postProcessJob() has deleted the
    /// modules, until the next preProcessJob() or resetJob(). Modules report failures by messages
    /// and the phases return 0 all the same, so that this, and not their results, says whether a
    /// job has failed.
    JobOutcome jobOutcome() const;

    /// The state of a new process for the next job: no modules, metadata, attribute definitions,
    /// tables, resources and kept values, an empty name, no outcome, no request to cancel;
    /// `jobStartTime` is now. Call-backs, directories and what was set by setStatisticInterval()
    /// and setReleaseAtEnd() stay. A job that has not been post-processed is dropped, with its
    /// channels, work buffers and the traces in them: modules that have been prepared run their
    /// post-process entry, and publish nothing; no entry point of the others is called. Tables of
    /// initCDTablePrototype() are deleted. Returns 0; 1, and nothing changed, after a message of
    /// type 3, while a phase is running. An exception of a module is thrown when all is done.
    int resetJob();

    /// Sends statistics of processing at least every `milliseconds` (250 is a good value for a
    /// progress bar), besides those by count; 0, as at first, sends none by time. A record is sent
    /// between two calls of modules: while one call lasts longer, it is late.
    void setStatisticInterval(int milliseconds);

    /// Whether the end of a job (postProcessJob(), resetJob()) frees all that the job holds: traces
    /// that are left in channels and work buffers, and accounted blocks that modules have taken
    /// from now on and not freed. At first it does not: traces stay alive, and blocks stay in
    /// `totalJobMemoryUsed`. Traces and blocks that a host keeps beyond the job it must then have
    /// taken out of them, or copied.
    void setReleaseAtEnd(bool release);
    /// @}

    /// @name Accounted memory
    /// @{

    /// A zero-filled block of `size` bytes from the C heap, charged to the job and to the active
    /// module; null after a message of type 4 when there is none (a negative size, for one).
    void* allocateResource(int size);
    /// The same with whatever the memory held before, for callers that overwrite all of it, and
    /// with the block's place in the kernel's table of blocks.
    AccountedBlock allocateUncleared(int size);
    /// Uncharges the block from the job and from every module of the job that lists it, and frees
    /// it, in every case.
    void freeResource(void* ptr);
    /// The same, without a search where the block says its place.
    void freeBlock(const AccountedBlock& block);
    /// Gives `trace` the blocks of one of the same sizes that was deleted, uncleared, as two calls
    /// of `allocateUncleared` would; false, and nothing done, where none are kept.
    bool reuseTraceBlocks(SeisTrace& trace, int sampleBytes, int headerBytes);
    /// Frees header and samples of a trace, as far as it has them, each as `freeBlock` does; the
    /// trace still says where they were.
    void freeTraceBlocks(const SeisTrace& trace);
    /// Gives blocks that were freed, and are kept for the next request of their size, to the heap.
    void releaseSpareBlocks();
    /// @}

    /// @name Host call-backs
    /// Installing replaces what was installed and returns 0; a null function switches the service
    /// off. `funcObj` is handed back with every call.
    /// @{
    int installMessageFunc(MsgFunctionType func, MsgArgumentFunctionType argFunc, void* funcObj);
    int installStatisticFunc(StatFunctionType func, void* funcObj);
    int installCreatePadFunc(CreatePadFunctionType func, void* funcObj);
    int installAddTraceToPadFuncFunc(AddTraceToPadFunctionType func, void* funcObj);
    int installAddPlotToPadFuncFunc(AddPlotToPadFunctionType func, void* funcObj);
    int installExecAppliFunc(ExecAppliFunctionType func, void* funcObj);

    /// Sends a message in the name of the active module, or of the "Kernel".
    void sendMessage(int msgType, const std::string& message);
    /// Sends one message argument as text.
    void addMessageArgument(const UniVar& arg);
    void execAppliCmdSend(const std::string& cmd);
    /// Reserved hook of the module interface: accepts the call, does nothing, returns 0.
    int broadcastEvent(const std::string& theme, int code);
    /// Sends a statistics record for phase 1, 2 or 3.
    void sendModulesStatistic(int jobPhase);
    /// @}

    /// @name Pads
    /// Drawing surfaces that the host owns; the kernel passes on what modules draw.
    /// @{

    /// The identifier of a new pad (a pseudo-random number, not checked for collisions), or -1 when
    /// the host offers no pads.
    int createPad(int type, int align, int visible, const std::string& title);
    void addTraceToPad(int ident, SeisTraceSet* trace);
    void addPlotToPad(int ident, float xpage, float ypage, int ipen);
    void addPlotToPad(int ident, float xpage, float ypage, float height, float fpn, float angle,
                      int ndec);
    /// Mind the order: `angle` comes after `inteq`.
    void addPlotToPad(int ident, float xpage, float ypage, float height, const std::string& cbcd,
                      int inteq, float angle, int inchar);
    void addPlotToPad(int ident, float factor);
    void addPlotToPad(int ident, int newpen);
    /// @}

    /// @name Metadata
    /// Scope 0 is the job-wide map, any other the active module's; without an active module every
    /// scope is job-wide. The first value given for a key is kept. Keys that end with "$" are
    /// additive: their values are collected from all modules that hold one.
    /// @{

    /// In a module's scope empty keys and keys that begin with "#" are not stored.
    void setMetaDataValue(int scope, const std::string& key, const std::string& value);
    /// Job-wide, until the next job begins its pre-processing: what modules tell each other during
    /// one job. An entry that is there already stays.
    void setMetaDataOfRun(const std::string& key, const std::string& value);
    /// Job-wide: the value or "". Else the value found upstream of the active module, whose own map
    /// is not looked at: its producers first, then the producers of the one met last. Additive
    /// values are joined without a separator, once per path. An empty key throws std::out_of_range
    /// there.
    std::string getMetaDataValue(int scope, const std::string& key);
    /// Job-wide: a copy of the map. Else everything visible from the active module, its own values
    /// above those upstream above job-wide ones; additive values are joined by a line feed.
    std::map<std::string, std::string> getMetaDataValues(int scope);
    /// Writes what `getMetaDataValues(1)` gives as the metadata file of a data file.
    bool storeExternalMetaData(const std::string& _file);
    /// Sets each entry of a data file's metadata file in the module's scope.
    bool loadExternalMetaData(const std::string& _file);
    /// Lock files beside data files: see VORN::FileLocksProvider.
    int lockFile(const std::string& nm, int lockMode);
    int unlockFile(const std::string& nm, int lockMode);
    /// @}

private:
    enum class Inputs
    {
        ready,    // every input holds a pending trace, or the module wants to run without
        waiting,  // a later pass may find one
        exhausted // none will come any more
    };
    struct InputScan;

    static void makeInstance(); // apart: what asks for the instance stays small

    Inputs askForInputs(ModuleEntity* module, EndOfDataFlags& jobModulesEodFlag);
    static InputScan scanInputs(ModuleEntity* module, EndOfDataFlags& jobModulesEodFlag);
    static bool everyInputPending(ModuleEntity* module);
    static void consumeInputTraces(ModuleEntity* module);
    static void noteEndOfData(ModuleEntity* module, EndOfDataFlags& jobModulesEodFlag);
    bool isOfJob(ModuleEntity* module) const;
    bool isFoundInJob(ModuleEntity* module) const;
    AccountedBlock enterBlock(void* block, int size);
    bool freeTogether(const SeisTrace& trace);
    void freeListed(void* ptr);
    BlockMap* activeModuleMap() const;
    void chargeActive(int size);
    void deleteChannelsAndBuffers();
    std::set<SeisTraceSet*> channelsAndBuffers() const;
    void releaseTraces();
    void releaseBlocks();
    void noteBlock(void* block);
    bool enterPhase(int phase, const char* function);
    void leavePhase() noexcept;
    void beginOutcome();
    int runPhase(int phase, const char* function, int (JobManager::*run)());
    int runPreProcessing();
    int runProcessing();
    int runPostProcessing();
    int runPass(ModuleList& jobModulesForProcess, EndOfDataFlags& jobModulesEodFlag);
    bool isToStop();
    void noteCancelled();
    void noteException() noexcept;
    void noteMark();
    void markFailed(const char* why) noexcept;
    void deleteModules();
    const trAttDefStr* findDefinition(const std::string& name) const;
    void sendPlotCommand(int ident, const plotCommandStruct& command);
};

namespace VORN::JobManagerUtils {

/// Sets a metadata value in the module's scope; the visitor of `loadExternalMetaData`. `ctx` is
/// ignored.
VORN_EXPORT void storeModuleMetadata(void* ctx, const std::string& key, const std::string& val);

} // namespace VORN::JobManagerUtils

#endif
