// The facade turns what a module passes (C texts, untyped handles) into the kernel's own types and
// passes the call on: to the job manager, which resolves it against the active module, or to the
// object behind the handle. Rules of behaviour live there; here is only what stands between.

#include "MOXKernel.h"

#include "DataChannel.h"
#include "GroupEntity.h"
#include "JobManager.h"
#include "LibraryEntity.h"
#include "ModuleEntity.h"
#include "SeisTrace.h"
#include "SeisTraceSet.h"
#include "metadataprovider.h"
#include "private/MOXKernel_families.h"
#include "private/TraceAttributeList.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <climits>
#include <cstring>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <utility>

namespace {

JobManager& job()
{
    return *JobManager::getInstance();
}

// Names of up to 15 characters stay within the string object: no call on the way of a trace
// allocates for its name.
std::string text(const char* characters)
{
    return characters == nullptr ? std::string() : std::string(characters);
}

// The one place where handles become objects. `action` is a member function or takes the object;
// on a null handle it is not called and the answer is `otherwise`.
template <typename Object, typename Answer, typename Action, typename... Arguments>
Answer ask(void* handle, Answer otherwise, Action action, Arguments&&... arguments)
{
    if (handle == nullptr)
        return otherwise;
    return std::invoke(action, *static_cast<Object*>(handle),
                       std::forward<Arguments>(arguments)...);
}

// As `ask`, for what has no answer.
template <typename Object, typename Action, typename... Arguments>
void tell(void* handle, Action action, Arguments&&... arguments)
{
    if (handle != nullptr)
        std::invoke(action, *static_cast<Object*>(handle), std::forward<Arguments>(arguments)...);
}

// Trace sets leave the facade as SeisTraceSet and nothing else, so that the cast back is right for
// data channels, too.
void* handleOf(SeisTraceSet* set)
{
    return set;
}

SeisTraceSet* traceSetOf(void* handle)
{
    return static_cast<SeisTraceSet*>(handle);
}

// Every call of a module asks for its buffers: straight from the active module's list. Numbers that
// do not exist give null; a negative one lies beyond the end.
template <std::vector<DataChannel*> ModuleEntity::*channels>
void* bufferOfActive(int channel)
{
    const ModuleEntity* module = job().getActiveModule();
    const std::size_t index = static_cast<std::size_t>(channel);
    return module != nullptr && index < (module->*channels).size()
               ? handleOf((module->*channels)[index])
               : nullptr;
}

int oneOrZero(bool truth)
{
    return truth ? 1 : 0;
}

// The active module's input channel as a channel; null when there is none or it is a plain set.
DataChannel* inputDataChannel(int channel)
{
    return dynamic_cast<DataChannel*>(job().getInputTraceBuffer(channel));
}

// The place of a kind in this list is its number.
constexpr std::array<std::string_view, 13> libraryKinds = {"CN", "GD", "GR", "MU", "VI", "ED", "GE",
                                                           "GX", "ST", "XY", "UM", "FD", "HZ"};

int numberOfKind(std::string_view kind)
{
    for (size_t number = 0; number < libraryKinds.size(); ++number) {
        if (libraryKinds[number] == kind)
            return static_cast<int>(number);
    }
    return -1;
}

// Deliberate: the decimal number, which as permission bits is 0674, not 0444. Files made so are
// what users of existing modules have.
constexpr mode_t creationMode = 444;

} // namespace

// In the watched library other functions have the names of the facade, and call these.
#ifdef VORN_WATCHED
namespace unwatched {
#endif

// ----------------------------------------- parameters, resources and options of the running module

int isModuleParameterPresent(const char* attKey)
{
    return oneOrZero(job().isModuleParameterPresent(text(attKey)));
}

UniVar getModuleParameter(const char* paramKey)
{
    return job().getModuleParameter(text(paramKey));
}

int isModuleResourcePresent(const char* attKey)
{
    return oneOrZero(job().isModuleResourcePresent(text(attKey), nullptr));
}

UniVar getModuleResource(const char* attKey)
{
    return job().getModuleResource(text(attKey), nullptr);
}

int setModuleResource(const char* attKey, const UniVar& attValue)
{
    return job().setModuleResource(text(attKey), attValue, nullptr);
}

void setModuleProcessingOption(const char* key, const UniVar& var)
{
    if (ModuleEntity* module = job().getActiveModule())
        module->setProcessingOption(text(key), var);
}

UniVar getModuleProcessingOption(const char* key)
{
    ModuleEntity* module = job().getActiveModule();
    return module == nullptr ? UniVar() : module->getProcessingOption(text(key));
}

// ----------------------------------------------------------- trace buffers of the running module

void* getInputTraceBuffer(int channel)
{
    return bufferOfActive<&ModuleEntity::inputDataChannels>(channel);
}

void* getOutputTraceBuffer(int channel)
{
    return bufferOfActive<&ModuleEntity::outputDataChannels>(channel);
}

void* getWorkTraceBuffer(int wtset)
{
    return handleOf(job().getWorkTraceBuffer(wtset));
}

void* bldOutputTraceBuffer(int channel, int traceLength, int sampleInterval, void* templ)
{
    return handleOf(
        job().bldOutputTraceBuffer(channel, traceLength, sampleInterval, traceSetOf(templ)));
}

void* bldWorkTraceBuffer(int channel, int traceLength, int sampleInterval, int numTraces,
                         void* templ)
{
    return handleOf(job().bldWorkTraceBuffer(channel, traceLength, sampleInterval, numTraces,
                                             traceSetOf(templ)));
}

void* bldWorkTraceBufferLike(int channel, void* model)
{
    SeisTraceSet* set = job().getWorkTraceBuffer(channel);
    return set != nullptr && set->configureLike(traceSetOf(model)) != 0 ? handleOf(set) : nullptr;
}

int setInputTraceBufferFlag(int channel, int flag)
{
    DataChannel* input = inputDataChannel(channel);
    if (input == nullptr)
        return 0;
    input->setFlag(flag, true);
    return 1;
}

int isInputTraceBufferFlagged(int channel, int flag)
{
    DataChannel* input = inputDataChannel(channel);
    return oneOrZero(input != nullptr && input->isFlagged(flag, false));
}

// ------------------------------------------------------------------------------------ trace sets

int isTraceAttributeExist(void* trace, const char* attKey)
{
    return oneOrZero(
        ask<SeisTraceSet>(trace, false, &SeisTraceSet::isAttributePresent, text(attKey), 0));
}

int defineTraceAttribute(void* trace, const char* attKey)
{
    return oneOrZero(ask<SeisTraceSet>(trace, 0, &SeisTraceSet::defineAttribute, text(attKey)) !=
                     0);
}

UniVar getTraceAttribute(void* trace, const char* attKey, int traceNo)
{
    return ask<SeisTraceSet>(trace, UniVar(), &SeisTraceSet::getAttribute, text(attKey), traceNo);
}

int setTraceAttribute(void* trace, const char* attKey, const UniVar& attValue, int traceNo)
{
    return oneOrZero(ask<SeisTraceSet>(trace, 0, &SeisTraceSet::setAttribute, text(attKey),
                                       attValue, traceNo) != 0);
}

float* getTraceSamples(void* traceSet, int traceNo)
{
    return ask<SeisTraceSet>(traceSet, static_cast<float*>(nullptr), &SeisTraceSet::getSamples,
                             traceNo);
}

int setTraceSamples(void* traceSet, const float* samples, int traceNo)
{
    return ask<SeisTraceSet>(traceSet, 0, &SeisTraceSet::setSamples, samples, traceNo);
}

int getNumberOfTraces(void* traceSet)
{
    return ask<SeisTraceSet>(traceSet, 0, &SeisTraceSet::getNumberOfTraces);
}

int getTraceLength(void* traceSet)
{
    return ask<SeisTraceSet>(traceSet, 0, &SeisTraceSet::getTraceLength);
}

int getTraceSampleInterval(void* traceSet)
{
    return ask<SeisTraceSet>(traceSet, 0, &SeisTraceSet::getTraceSampleInterval);
}

int setNumberOfTraces(void* traceSet, int numTraces)
{
    tell<SeisTraceSet>(traceSet, &SeisTraceSet::setNumberOfTraces, numTraces);
    return 0;
}

int setTraceLength(void* traceSet, int traceLength)
{
    tell<SeisTraceSet>(traceSet, &SeisTraceSet::setTraceLength, traceLength);
    return 0;
}

int setTraceSampleInterval(void* traceSet, int sampleInterval)
{
    tell<SeisTraceSet>(traceSet, &SeisTraceSet::setTraceSampleInterval, sampleInterval);
    return 0;
}

int clearTraceSet(void* traceSet)
{
    return oneOrZero(ask<SeisTraceSet>(traceSet, 0, &SeisTraceSet::clearTraceSet) != 0);
}

// Modules name the source first; the destination's operation takes the source as its argument.
int copyTraceToTrace(void* traceFrom, void* traceTo, int copyHeader, int copySamples,
                     int traceNoFrom, int traceNoTo)
{
    if (traceFrom == nullptr)
        return 0;
    return ask<SeisTraceSet>(traceTo, 0, &SeisTraceSet::copyFromTrace, traceSetOf(traceFrom),
                             copyHeader != 0, copySamples != 0, traceNoFrom, traceNoTo);
}

int moveTraceToTrace(void* traceFrom, void* traceTo, int traceNoFrom, int traceNoTo)
{
    if (traceFrom == nullptr)
        return 0;
    return ask<SeisTraceSet>(traceTo, 0, &SeisTraceSet::moveFromTrace, traceSetOf(traceFrom),
                             traceNoFrom, traceNoTo);
}

int transferTraceToTrace(void* traceFrom, void* traceTo, int traceNoFrom, int traceNoTo)
{
    return ask<SeisTraceSet>(traceTo, 0, &SeisTraceSet::transferFromTrace, traceSetOf(traceFrom),
                             traceNoFrom, traceNoTo);
}

int removeTrace(void* traceSet, int traceNo)
{
    SeisTraceSet* set = traceSetOf(traceSet);
    if (set == nullptr || traceNo < 0 || traceNo >= set->getNumberOfTraces() ||
        dynamic_cast<DataChannel*>(set) != nullptr)
        return 0;
    set->removeTrace(traceNo);
    return 1;
}

int removeWorkTraces()
{
    const ModuleEntity* module = job().getActiveModule();
    if (module == nullptr)
        return 0;
    int places = 0;
    for (SeisTraceSet* set : module->workTraceSets) {
        places += set->getNumberOfTraces();
        set->removeAllTraces();
    }
    return places;
}

void informTotalTracesNumber(void* trace, int64_t numTraces)
{
    tell<SeisTraceSet>(trace, &SeisTraceSet::informTotalTracesNumber, numTraces);
}

void setTraceBufferUseScratch(void* trace, int use)
{
    tell<SeisTraceSet>(trace, &SeisTraceSet::setUseScratch, use != 0);
}

int isTraceBufferUseScratch(void* trace)
{
    return oneOrZero(ask<SeisTraceSet>(trace, false, &SeisTraceSet::isUseScratch));
}

int getDataChannelFlag(void* trace)
{
    return ask<SeisTraceSet>(trace, 0, &SeisTraceSet::getDataChannelFlag);
}

int setDataChannelFlag(void* trace, int flag)
{
    tell<SeisTraceSet>(trace, &SeisTraceSet::setDataChannelFlag, flag);
    return oneOrZero(trace == nullptr);
}

// ------------------------------------------------------------------ many trace attributes at once

void* bldAttributeList(const char* const* names, int count)
{
    ModuleEntity* module = job().getActiveModule();
    if (module == nullptr || count < 0 || (names == nullptr && count > 0))
        return nullptr;
    std::vector<std::string> texts;
    texts.reserve(static_cast<std::size_t>(count));
    for (int i = 0; i < count; ++i)
        texts.push_back(text(names[i]));
    return module->attributeLists
        .emplace_back(std::make_unique<TraceAttributeList>(*module, std::move(texts)))
        .get();
}

void freeAttributeList(void* list)
{
    if (list == nullptr)
        return;
    auto& lists = static_cast<TraceAttributeList*>(list)->getOwner().attributeLists;
    const auto known = std::find_if(lists.begin(), lists.end(),
                                    [list](const auto& one) { return one.get() == list; });
    if (known != lists.end())
        lists.erase(known);
}

int getAttributeListSize(void* list)
{
    return ask<TraceAttributeList>(list, 0, &TraceAttributeList::getSize);
}

int getAttributeListPresence(void* list, void* traceSet, int* types)
{
    return families::countPresent(list, traceSet, types, getAttributeListSize(list));
}

// As many values as the list has names.
constexpr int everyName = INT_MAX;

// clang-format off
int getTraceAttributes(void* list, void* traceSet, int traceNo, int* values)     { return families::getAttributes(list, traceSet, traceNo, values, everyName); }
int getTraceAttributes(void* list, void* traceSet, int traceNo, int64_t* values) { return families::getAttributes(list, traceSet, traceNo, values, everyName); }
int getTraceAttributes(void* list, void* traceSet, int traceNo, float* values)   { return families::getAttributes(list, traceSet, traceNo, values, everyName); }
int getTraceAttributes(void* list, void* traceSet, int traceNo, double* values)  { return families::getAttributes(list, traceSet, traceNo, values, everyName); }

int setTraceAttributes(void* list, void* traceSet, int traceNo, const int* values)     { return families::setAttributes(list, traceSet, traceNo, values, everyName); }
int setTraceAttributes(void* list, void* traceSet, int traceNo, const int64_t* values) { return families::setAttributes(list, traceSet, traceNo, values, everyName); }
int setTraceAttributes(void* list, void* traceSet, int traceNo, const float* values)   { return families::setAttributes(list, traceSet, traceNo, values, everyName); }
int setTraceAttributes(void* list, void* traceSet, int traceNo, const double* values)  { return families::setAttributes(list, traceSet, traceNo, values, everyName); }
// clang-format on

// -------------------------------------------------------------------------- libraries and groups

int getLibraryType(void* libri)
{
    return ask<LibraryEntity>(
        libri, -1, [](const LibraryEntity& library) { return numberOfKind(library.libraryType); });
}

int isLibraryParameterPresent(void* libri, const char* attKey)
{
    return oneOrZero(
        ask<LibraryEntity>(libri, false, &LibraryEntity::isParameterPresent, text(attKey)));
}

UniVar getLibraryParameter(void* libri, const char* attKey)
{
    return ask<LibraryEntity>(libri, UniVar(), &LibraryEntity::getParameter, text(attKey));
}

int setLibraryParameter(void* libri, const char* attKey, const UniVar& attValue)
{
    return oneOrZero(
        ask<LibraryEntity>(libri, 0, &LibraryEntity::setParameter, text(attKey), attValue) != 0);
}

int getGroupParameterSize(void* group)
{
    return ask<GroupEntity>(group, 0, &GroupEntity::getSize);
}

int isGroupParameterPresent(void* group, const char* attKey, int num)
{
    return oneOrZero(
        ask<GroupEntity>(group, false, &GroupEntity::isParameterPresent, text(attKey), num));
}

UniVar getGroupParameter(void* group, const char* attKey, int num)
{
    return ask<GroupEntity>(group, UniVar(), &GroupEntity::getParameter, text(attKey), num);
}

int setGroupParameter(void* group, const char* attKey, int num, const UniVar& attValue)
{
    return oneOrZero(
        ask<GroupEntity>(group, 0, &GroupEntity::setParameter, text(attKey), num, attValue) != 0);
}

// --------------------------------------------------------------------- attribute schema of the job

int getTraceAttributeType(const char* trAttDefName)
{
    return job().getTraceAttributeType(text(trAttDefName));
}

int getTraceAttributeDimension(const char* trAttDefName)
{
    return job().getTraceAttributeDimension(text(trAttDefName));
}

int getTraceAttributeCstSlot(const char* trAttDefName)
{
    return job().getTraceAttributeCstSlot(text(trAttDefName));
}

int getTraceAttributeBitA(const char* trAttDefName)
{
    return job().getTraceAttributeBitA(text(trAttDefName));
}

int getTraceAttributeBitZ(const char* trAttDefName)
{
    return job().getTraceAttributeBitZ(text(trAttDefName));
}

int getTraceAttributeCstType(const char* trAttDefName)
{
    return job().getTraceAttributeCstType(text(trAttDefName));
}

int getTraceAttributeMapCoef(const char* trAttDefName)
{
    return job().getTraceAttributeMapCoef(text(trAttDefName));
}

const char* getTraceAttributeDescription(const char* trAttDefName)
{
    static std::string held;
    held = job().getTraceAttributeDescription(text(trAttDefName));
    return held.c_str();
}

int getTraceAttributeDef(const char* trAttDefName, int* type, int* dim, int* slot, int* ba, int* bz,
                         int* cst_type, int* coeff)
{
    return job().getTraceAttributeDef(text(trAttDefName), type, dim, slot, ba, bz, cst_type, coeff);
}

// ------------------------------------------------------------------- messages, commands and pads

void sendMessage(int msgType, const char* msg)
{
    job().sendMessage(msgType, text(msg));
}

void addMessageArgument(const UniVar& arg)
{
    job().addMessageArgument(arg);
}

void execAppliCmd(const char* cmd)
{
    job().execAppliCmdSend(text(cmd));
}

int createPad(int type, int align, int visible, const char* title)
{
    return job().createPad(type, align, visible, text(title));
}

void addTraceToPad(int ident, void* trace)
{
    tell<SeisTraceSet>(trace, [ident](SeisTraceSet& set) { job().addTraceToPad(ident, &set); });
}

void addPlotToPad(int ident, float xpage, float ypage, int ipen)
{
    job().addPlotToPad(ident, xpage, ypage, ipen);
}

void addNumberToPad(int ident, float xpage, float ypage, float height, float fpn, float angle,
                    int ndec)
{
    job().addPlotToPad(ident, xpage, ypage, height, fpn, angle, ndec);
}

void addSymbolToPad(int ident, float xpage, float ypage, float height, const std::string& cbcd,
                    int inteq, float angle, int inchar)
{
    job().addPlotToPad(ident, xpage, ypage, height, cbcd, inteq, angle, inchar);
}

void addFactorToPad(int ident, float factor)
{
    job().addPlotToPad(ident, factor);
}

void addNewPenToPad(int ident, int newpen)
{
    job().addPlotToPad(ident, newpen);
}

// ----------------------------------------------------------------------------- the job that runs

int isJobCancelled()
{
    return oneOrZero(JobManager::isCancelRequested());
}

void setMetaDataOfRun(const std::string& name, const std::string& value)
{
    job().setMetaDataOfRun(name, value);
}

// ------------------------------------------------------------- memory, files, directories, names

void* allocateResource(int size)
{
    return job().allocateResource(size);
}

int freeResource(void* ptr)
{
    job().freeResource(ptr);
    return 0;
}

int fileOpen(const char* fileName)
{
    return open(text(fileName).c_str(), O_RDONLY, creationMode);
}

int fileCreate(const char* fileName)
{
    return open(text(fileName).c_str(), O_WRONLY | O_CREAT | O_TRUNC, creationMode);
}

void fileClose(int fileHandle)
{
    close(fileHandle);
}

const char* getScratchDir()
{
    static QByteArray held;
    held = job().getScratchDir().toLocal8Bit();
    return held.constData();
}

const char* getProjectDir()
{
    static QByteArray held;
    held = job().getProjectDir().toLocal8Bit();
    return held.constData();
}

const char* getModuleName()
{
    static std::string held;
    held = job().getCurrentModuleName();
    return held.c_str();
}

const char* getCurrentDate()
{
    static std::string held;
    held = job().getCurrentDate();
    return held.c_str();
}

// ----------------------------------------------------------------------- metadata, locks, events

void setMetaDataValue(int scope, const std::string& name, const std::string& value)
{
    job().setMetaDataValue(scope, name, value);
}

UniVar getMetaDataValue(int scope, const std::string& name)
{
    return UniVar(job().getMetaDataValue(scope, name));
}

int packMetaDataValues(char** buf)
{
    return VORN::MetadataProvider::getInstance()->packMetadata(buf, job().getMetaDataValues(1));
}

int storeExternalMetaDataFor(const std::string& fileName)
{
    return oneOrZero(job().storeExternalMetaData(fileName));
}

int loadExternalMetaDataFor(const std::string& fileName)
{
    return oneOrZero(job().loadExternalMetaData(fileName));
}

int lockDataFile(const std::string& fileName, int mode)
{
    return job().lockFile(fileName, mode);
}

int unlockDataFile(const std::string& fileName)
{
    return job().unlockFile(fileName, 0);
}

int broadcastEvent(const std::string& theme, int code)
{
    return job().broadcastEvent(theme, code);
}

#ifdef VORN_WATCHED
} // namespace unwatched
#endif

// ------------------------------------------------------------- for the C and Fortran forms alone

namespace families {

const UniVar& keepUntilReturn(UniVar value)
{
    return job().keepUntilReturn(std::move(value));
}

int getTraceSampleCount(void* traceSet, int traceNo)
{
    return ask<SeisTraceSet>(traceSet, 0, [traceNo](SeisTraceSet& set) {
        const SeisTrace* trace = set.getTrace(traceNo, true);
        if (trace == nullptr || trace->traceSamples == nullptr)
            return set.getTraceLength();
        return std::min(set.getTraceLength(), trace->traceLength);
    });
}

#ifdef VORN_WATCHED
namespace unwatched {
#endif

const UniVar* findModuleParameter(const char* key)
{
    ModuleEntity* module = job().getActiveModule();
    return module != nullptr ? module->findParameter(key != nullptr ? key : "") : nullptr;
}

const UniVar* findModuleResource(const char* key)
{
    ModuleEntity* module = job().getActiveModule();
    return module != nullptr ? module->findResource(key != nullptr ? key : "") : nullptr;
}

unsigned char* findTraceNumber(void* traceSet, const char* key, int traceNo, traceAttVarType type,
                               int size)
{
    if (traceSet == nullptr || key == nullptr)
        return nullptr;
    return traceSetOf(traceSet)->findNumber(key, traceNo, type, size);
}

bool fetchTraceAttribute(void* traceSet, const char* key, int traceNo, UniVar& value)
{
    return ask<SeisTraceSet>(traceSet, false, &SeisTraceSet::fetchAttribute, text(key), traceNo,
                             value);
}

namespace {

// The first `count` of them, and no more than the list has names.
template <typename T>
std::span<T> valuesFor(TraceAttributeList& list, T* values, int count)
{
    return {values, static_cast<std::size_t>(std::clamp(count, 0, list.getSize()))};
}

} // namespace

int countPresent(void* list, void* traceSet, int* types, int count)
{
    if (list == nullptr || traceSet == nullptr)
        return 0;
    auto& attributes = *static_cast<TraceAttributeList*>(list);
    return attributes.countPresent(*traceSetOf(traceSet), types,
                                   valuesFor(attributes, types, count).size());
}

template <typename T>
int getAttributes(void* list, void* traceSet, int traceNo, T* values, int count)
{
    if (list == nullptr || traceSet == nullptr)
        return 0;
    auto& attributes = *static_cast<TraceAttributeList*>(list);
    return attributes.get(*traceSetOf(traceSet), traceNo, valuesFor(attributes, values, count));
}

template <typename T>
int setAttributes(void* list, void* traceSet, int traceNo, const T* values, int count)
{
    if (list == nullptr || traceSet == nullptr)
        return 0;
    auto& attributes = *static_cast<TraceAttributeList*>(list);
    return attributes.set(*traceSetOf(traceSet), traceNo, valuesFor(attributes, values, count));
}

template int getAttributes(void*, void*, int, int*, int);
template int getAttributes(void*, void*, int, int64_t*, int);
template int getAttributes(void*, void*, int, float*, int);
template int getAttributes(void*, void*, int, double*, int);
template int setAttributes(void*, void*, int, const int*, int);
template int setAttributes(void*, void*, int, const int64_t*, int);
template int setAttributes(void*, void*, int, const float*, int);
template int setAttributes(void*, void*, int, const double*, int);

int setModuleStructResource(const char* attKey, const void* bytes, int size)
{
    const size_t count = size > 0 ? static_cast<size_t>(size) : 0;
    auto block = std::make_unique<unsigned char[]>(count);
    if (count > 0)
        std::memcpy(block.get(), bytes, count);

    const int status =
        setModuleResource(attKey, UniVar(static_cast<void*>(block.get()), static_cast<int>(count)));
    // The earlier block of this name goes now, when nothing refers to it any more.
    if (ModuleEntity* module = job().getActiveModule())
        module->keepStructResource(text(attKey), std::move(block));
    return status;
}

#ifdef VORN_WATCHED
} // namespace unwatched
#endif

} // namespace families
