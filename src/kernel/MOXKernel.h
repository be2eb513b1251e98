/// @file MOXKernel.h
///
/// The facade: the free functions through which every call of a module reaches the kernel's
/// objects. The C form (knl.h) and the Fortran form (knl_fortran.h) are adapters over it; C++
/// modules may call it as it stands.
///
/// What holds for every function here:
///
/// - **The running module.** Parameters, resources, options, buffers, memory and names are those
///   of the job's active module, the one whose entry point is running. Without one, names count as
///   absent, values are empty, buffers are null, and nothing is stored.
/// - **Handles** are `void*`: a SeisTraceSet (input buffers are DataChannels, which are trace
///   sets), a LibraryEntity or a GroupEntity, handed out by the functions here and owned by
///   others. They are cast back unchecked, so that anything but a handle of the right kind is a
///   programming error. A null handle is answered as said at each group of functions, and nothing
///   is done.
/// - **Values** are UniVar. Those handed back are copies of the caller's own.
/// - **Texts in** are copied before use; a null one counts as the empty text.
/// - **Texts out** (`const char*`) are held by the kernel, one buffer for each function: never
///   freed by the caller, valid until the next call of the same function.
/// - **Numbers count from zero**: channels, work buffers, traces, rows of a group.
/// - No function here sends a message of its own, and none checks whether a name exists before it
///   fetches its value; ask the presence function first.
///
/// Called on the host's thread only, the one that runs the entry points.
#ifndef MOXKERNEL_H
#define MOXKERNEL_H

#include "UniVar.h"
#include "vorn_export.h"

#include <cstdint>
#include <string>

/// @name Parameters, resources and options of the running module
/// @{

/// 1 when the module has the parameter, else 0.
VORN_EXPORT int isModuleParameterPresent(const char* attKey);
/// The parameter's value. Asking for an absent one makes it present with an empty value.
VORN_EXPORT UniVar getModuleParameter(const char* paramKey);
/// 1 when the module keeps the resource, else 0.
VORN_EXPORT int isModuleResourcePresent(const char* attKey);
/// The resource's value. Asking for an absent one makes it present with an empty value.
VORN_EXPORT UniVar getModuleResource(const char* attKey);
/// Keeps a value from one entry point to the next, in place of an earlier one. 1 when kept, 0
/// without a running module.
VORN_EXPORT int setModuleResource(const char* attKey, const UniVar& attValue);
/// Sets a processing option; an empty value removes it.
VORN_EXPORT void setModuleProcessingOption(const char* key, const UniVar& var);
/// The option's value, empty when it is not set.
VORN_EXPORT UniVar getModuleProcessingOption(const char* key);
/// @}

/// @name Trace buffers of the running module
/// The handle of a buffer, or null when there is none.
/// @{

/// The input channel, a DataChannel.
VORN_EXPORT void* getInputTraceBuffer(int channel);
/// The output channel, a DataChannel.
VORN_EXPORT void* getOutputTraceBuffer(int channel);
/// Makes the work buffer, and all below it, when it does not exist.
VORN_EXPORT void* getWorkTraceBuffer(int wtset);
/// Gives an output channel its trace length (samples), its sample interval and the attributes of
/// the trace set `templ`, which may be null.
VORN_EXPORT void* bldOutputTraceBuffer(int channel, int traceLength, int sampleInterval,
                                       void* templ);
/// The same for work buffer `channel`; `numTraces` is accepted and not used.
VORN_EXPORT void* bldWorkTraceBuffer(int channel, int traceLength, int sampleInterval,
                                     int numTraces, void* templ);
/// Gives a work buffer that is new the length, the interval and the very header layout of `model`:
/// traces move between the two as they are. Its handle, or null when it has attributes or traces.
VORN_EXPORT void* bldWorkTraceBufferLike(int channel, void* model);
/// Sets the bits `flag` on an input channel (bit 1: keep the current trace for the next call). 1
/// when done; 0 when the buffer does not exist or is not a DataChannel.
VORN_EXPORT int setInputTraceBufferFlag(int channel, int flag);
/// 1 when any of the bits `flag` is set on an input channel; they stay set. 0 when none is, when
/// the buffer does not exist, or when it is not a DataChannel.
VORN_EXPORT int isInputTraceBufferFlagged(int channel, int flag);
/// @}

/// @name Trace sets
/// A null handle gives 0, null or an empty value, except where said.
/// @{

/// 1 when the set has the attribute, else 0. The answer is that of trace 0.
VORN_EXPORT int isTraceAttributeExist(void* trace, const char* attKey);
/// Gives the attribute a place in the set's headers, where it has none. 1 when it has one now.
VORN_EXPORT int defineTraceAttribute(void* trace, const char* attKey);
/// The attribute's value in one trace; the set makes attribute and trace where they are missing.
VORN_EXPORT UniVar getTraceAttribute(void* trace, const char* attKey, int traceNo);
/// Writes the attribute in one trace, making both where missing. 1 when written, else 0.
VORN_EXPORT int setTraceAttribute(void* trace, const char* attKey, const UniVar& attValue,
                                  int traceNo);
/// The samples of a trace, in place; null when there are none. Owned by the trace.
VORN_EXPORT float* getTraceSamples(void* traceSet, int traceNo);
/// Copies as many samples as the trace has. 1 when copied.
VORN_EXPORT int setTraceSamples(void* traceSet, const float* samples, int traceNo);
/// Places for traces; one whose trace was moved away counts.
VORN_EXPORT int getNumberOfTraces(void* traceSet);
/// Samples of each trace that the set makes.
VORN_EXPORT int getTraceLength(void* traceSet);
/// As it was set; microseconds by agreement of the modules.
VORN_EXPORT int getTraceSampleInterval(void* traceSet);
/// Makes traces until there are `numTraces`; takes none away. Always 0.
VORN_EXPORT int setNumberOfTraces(void* traceSet, int numTraces);
/// For traces made from now on. Always 0.
VORN_EXPORT int setTraceLength(void* traceSet, int traceLength);
/// Always 0.
VORN_EXPORT int setTraceSampleInterval(void* traceSet, int sampleInterval);
/// Zeroes samples and headers of all traces, which stay. 1 when done.
VORN_EXPORT int clearTraceSet(void* traceSet);
/// Copies trace `traceNoFrom` of `traceFrom` into trace `traceNoTo` of `traceTo`: header and
/// samples where the two flags are not 0, the trace flag always. 1 when copied, 0 when either is
/// missing.
VORN_EXPORT int copyTraceToTrace(void* traceFrom, void* traceTo, int copyHeader, int copySamples,
                                 int traceNoFrom, int traceNoTo);
/// Moves a trace from `traceFrom` to `traceTo`, leaving an empty place. A source trace that is
/// missing is made first, as by every access to a trace by its number; transferTraceToTrace() makes
/// none. 1 when moved; 0 where the place is empty, or for a null handle.
VORN_EXPORT int moveTraceToTrace(void* traceFrom, void* traceTo, int traceNoFrom, int traceNoTo);
/// What copyTraceToTrace() of header and samples gives, without copying where that is possible: the
/// trace itself goes to `traceTo`, its header is laid out as there, and its place in `traceFrom` is
/// left empty. It is copied, and stays, where other modules wait for it or the lengths differ. 1
/// when done; 0 when the trace (none is made) or memory for its header is missing.
VORN_EXPORT int transferTraceToTrace(void* traceFrom, void* traceTo, int traceNoFrom,
                                     int traceNoTo);
/// Destroys a trace of a work buffer, or takes an empty place away; later traces move down. 1 when
/// done; 0, nothing changed, when the place does not exist or the set is an input or an output.
VORN_EXPORT int removeTrace(void* traceSet, int traceNo);
/// Destroys all traces of all work buffers of the running module; the buffers stay. How many places
/// they had.
VORN_EXPORT int removeWorkTraces();
/// Announces how many traces will pass through the set in all.
VORN_EXPORT void informTotalTracesNumber(void* trace, int64_t numTraces);
/// Whether the set's traces may be paged out to the scratch file: not 0 for yes.
VORN_EXPORT void setTraceBufferUseScratch(void* trace, int use);
/// 1 when the set's traces may be paged out, else 0.
VORN_EXPORT int isTraceBufferUseScratch(void* trace);
/// The flag of the first trace, or of the set while it holds no trace.
VORN_EXPORT int getDataChannelFlag(void* trace);
/// Sets the flag of the last trace, or of the set while it holds no trace. 0; 1 for a null handle.
VORN_EXPORT int setDataChannelFlag(void* trace, int flag);
/// @}

/// @name The job that runs
/// @{

/// 1 when the host has asked to cancel the job, else 0. A loop that takes long looks at it and ends
/// its entry point; no other is called for data. From any thread.
VORN_EXPORT int isJobCancelled();
/// As setMetaDataValue() of scope 0, for what modules tell each other during one job: the job's
/// metadata may outlive it, and this entry is gone when the next job begins its pre-processing.
VORN_EXPORT void setMetaDataOfRun(const std::string& name, const std::string& value);
/// @}

/// @name Many trace attributes at once
/// For modules that read or write the same names in every trace. A list holds the names, looks up
/// their places in a trace set once, and looks them up again when the set's layout has changed. It
/// serves any number of trace sets. Values, conversions and traces that are made are those of the
/// functions by name, called for one name after the other. A null handle gives 0.
/// @{

/// A list of `count` names, in this order; a name may stand in it more than once. Null when no
/// module is running, for a negative count and for null `names` with a count above 0. It belongs to
/// the running module and ends with it, unless it is freed before.
VORN_EXPORT void* bldAttributeList(const char* const* names, int count);
/// Frees a list; null is accepted.
VORN_EXPORT void freeAttributeList(void* list);
/// The number of names.
VORN_EXPORT int getAttributeListSize(void* list);
/// How many of the names the set has. `types` (unless null; room for all names) gets the type under
/// which the set stores each, as a number of traceAttVarType: 0 when it does not have it, 1 text, 2
/// and 3 integers of 32 and 64 bits, 4 and 5 floats of 32 and 64 bits, 6 to 9 arrays of these.
VORN_EXPORT int getAttributeListPresence(void* list, void* traceSet, int* types);
/// Reads all attributes of trace `traceNo` that the set has into `values`, by their places in the
/// list; the other values stay as they are. Returns how many were read: 0 for a negative number.
VORN_EXPORT int getTraceAttributes(void* list, void* traceSet, int traceNo, int* values);
/// See above.
VORN_EXPORT int getTraceAttributes(void* list, void* traceSet, int traceNo, int64_t* values);
/// See above.
VORN_EXPORT int getTraceAttributes(void* list, void* traceSet, int traceNo, float* values);
/// See above.
VORN_EXPORT int getTraceAttributes(void* list, void* traceSet, int traceNo, double* values);
/// Writes all attributes of trace `traceNo`, making attributes and trace where they are missing.
/// Returns how many were written: all, or 0 when the trace does not exist (a negative number, a
/// trace that was moved away).
VORN_EXPORT int setTraceAttributes(void* list, void* traceSet, int traceNo, const int* values);
/// See above.
VORN_EXPORT int setTraceAttributes(void* list, void* traceSet, int traceNo, const int64_t* values);
/// See above.
VORN_EXPORT int setTraceAttributes(void* list, void* traceSet, int traceNo, const float* values);
/// See above.
VORN_EXPORT int setTraceAttributes(void* list, void* traceSet, int traceNo, const double* values);
/// @}

/// @name Libraries and groups
/// A null handle gives 0 or an empty value, except where said. `num` is the row of a group.
/// @{

/// The library's two-letter kind as a number: "CN" 0, "GD" 1, "GR" 2, "MU" 3, "VI" 4, "ED" 5, "GE"
/// 6, "GX" 7, "ST" 8, "XY" 9, "UM" 10, "FD" 11, "HZ" 12; -1 for anything else and for a null
/// handle.
VORN_EXPORT int getLibraryType(void* libri);
/// 1 when the library holds the parameter, else 0.
VORN_EXPORT int isLibraryParameterPresent(void* libri, const char* attKey);
/// Asking for an absent parameter makes it present with an empty value.
VORN_EXPORT UniVar getLibraryParameter(void* libri, const char* attKey);
/// 1 when stored, else 0.
VORN_EXPORT int setLibraryParameter(void* libri, const char* attKey, const UniVar& attValue);
/// Number of rows.
VORN_EXPORT int getGroupParameterSize(void* group);
/// 1 when row `num` exists and holds the parameter, else 0; makes nothing.
VORN_EXPORT int isGroupParameterPresent(void* group, const char* attKey, int num);
/// Makes row and parameter (with an empty value) where they are missing.
VORN_EXPORT UniVar getGroupParameter(void* group, const char* attKey, int num);
/// Makes rows up to `num` where they are missing. 1 when stored, else 0.
VORN_EXPORT int setGroupParameter(void* group, const char* attKey, int num, const UniVar& attValue);
/// @}

/// @name Attribute schema of the job
/// What the host's definition of `trAttDefName` says; -1 (the description: "") for a name that is
/// not defined.
/// @{

/// 1 text, 2 and 3 integers of 32 and 64 bits, 4 and 5 floats of 32 and 64 bits, 9 and 10 texts
/// of 32 and 64 bytes.
VORN_EXPORT int getTraceAttributeType(const char* trAttDefName);
/// Elements of an array, characters of a text.
VORN_EXPORT int getTraceAttributeDimension(const char* trAttDefName);
/// Kept for host and modules; the kernel gives it no meaning. So are the four
/// below.
VORN_EXPORT int getTraceAttributeCstSlot(const char* trAttDefName);
/// See getTraceAttributeCstSlot().
VORN_EXPORT int getTraceAttributeBitA(const char* trAttDefName);
/// See getTraceAttributeCstSlot().
VORN_EXPORT int getTraceAttributeBitZ(const char* trAttDefName);
/// See getTraceAttributeCstSlot().
VORN_EXPORT int getTraceAttributeCstType(const char* trAttDefName);
/// See getTraceAttributeCstSlot().
VORN_EXPORT int getTraceAttributeMapCoef(const char* trAttDefName);
/// The free description.
VORN_EXPORT const char* getTraceAttributeDescription(const char* trAttDefName);
/// Writes every field whose address is not null, -1 where the name is not defined. 1 when it is
/// defined, else -1.
VORN_EXPORT int getTraceAttributeDef(const char* trAttDefName, int* type, int* dim, int* slot,
                                     int* ba, int* bz, int* cst_type, int* coeff);
/// @}

/// @name Messages, commands and pads
/// Passed on to the host's call-backs; lost where the host has installed none.
/// @{

/// One line to the host, under the running module's name: 0 detail, 1 information, 2 warning,
/// 3 error, 4 fatal; any other type passes, too.
VORN_EXPORT void sendMessage(int msgType, const char* msg);
/// One value, as text, that belongs to a message.
VORN_EXPORT void addMessageArgument(const UniVar& arg);
/// A command for another application, passed on as it is.
VORN_EXPORT void execAppliCmd(const char* cmd);
/// The identifier of a new pad, -1 when the host offers none.
VORN_EXPORT int createPad(int type, int align, int visible, const char* title);
/// Shows the trace set `trace` on a pad. Nothing happens for a null handle.
VORN_EXPORT void addTraceToPad(int ident, void* trace);
/// Moves the pen or draws to a position.
VORN_EXPORT void addPlotToPad(int ident, float xpage, float ypage, int ipen);
/// Draws the number `fpn` with `ndec` decimals.
VORN_EXPORT void addNumberToPad(int ident, float xpage, float ypage, float height, float fpn,
                                float angle, int ndec);
/// Draws a text, or the special symbol `inteq`.
VORN_EXPORT void addSymbolToPad(int ident, float xpage, float ypage, float height,
                                const std::string& cbcd, int inteq, float angle, int inchar);
/// Scales what is drawn from now on.
VORN_EXPORT void addFactorToPad(int ident, float factor);
/// Takes another pen.
VORN_EXPORT void addNewPenToPad(int ident, int newpen);
/// @}

/// @name Memory, files, directories, names
/// @{

/// `size` zero bytes charged to the running module and the job, or null (and the kernel's message
/// to the host) when there are none.
VORN_EXPORT void* allocateResource(int size);
/// Frees memory of `allocateResource`; null is accepted. Always 0.
VORN_EXPORT int freeResource(void* ptr);
/// A POSIX descriptor for reading the file; -1 when it cannot be opened.
VORN_EXPORT int fileOpen(const char* fileName);
/// A POSIX descriptor for writing the file, which is made or emptied; -1 when that fails. A new
/// file's permission bits are 0674 (octal) less the process's file creation mask.
VORN_EXPORT int fileCreate(const char* fileName);
/// Closes a descriptor of the two functions above.
VORN_EXPORT void fileClose(int fileHandle);
/// In the local 8-bit encoding.
VORN_EXPORT const char* getScratchDir();
/// In the local 8-bit encoding.
VORN_EXPORT const char* getProjectDir();
/// The running module's name; "" without one.
VORN_EXPORT const char* getModuleName();
/// Day, month counted from 0 and years since 1900, as in 15.10.126 for 15 November 2026.
VORN_EXPORT const char* getCurrentDate();
/// @}

/// @name Metadata, locks, events
/// Scope 0 is the job's metadata, any other the running module's (the job's when none is running).
/// @{

/// The first value written for a name stays.
VORN_EXPORT void setMetaDataValue(int scope, const std::string& name, const std::string& value);
/// A text, empty when the value does not exist. In module scope the modules upstream are asked, not
/// the running one. Fails with std::out_of_range for the empty name in module scope.
VORN_EXPORT UniVar getMetaDataValue(int scope, const std::string& name);
/// Packs all that is visible in module scope into a block that the caller releases with `free`, as
/// a metadata file holds it. The block's size in bytes.
VORN_EXPORT int packMetaDataValues(char** buf);
/// Stores all that is visible in module scope as the metadata of a data file. 1 when done, else 0.
VORN_EXPORT int storeExternalMetaDataFor(const std::string& fileName);
/// Adds the metadata of a data file to the running module's. 1 when there were any, else 0.
VORN_EXPORT int loadExternalMetaDataFor(const std::string& fileName);
/// Makes the lock file of a data file. 0; -1 when it is locked, -2 when that cannot be done.
VORN_EXPORT int lockDataFile(const std::string& fileName, int mode);
/// Removes the lock file of a data file. 0; -2 when there is none.
VORN_EXPORT int unlockDataFile(const std::string& fileName);
/// Reserved: does nothing. 0.
VORN_EXPORT int broadcastEvent(const std::string& theme, int code);
/// @}

#endif
