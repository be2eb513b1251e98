// The C form: one line for each function, which names where the value lives and the rule that it
// follows (MOXKernel_families.h), or the facade's function of the same meaning.

#include "knl.h"

#include "JobManager.h"
#include "MOXKernel.h"
#include "SeisTraceSet.h"
#include "private/MOXKernel_families.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

using namespace families;

namespace {

// Schema queries: the code is written in any case, and 0 is success here.
int writeCode(int code, int* out)
{
    *out = code;
    return code < 1 ? 1 : 0;
}

// Buffer look-ups: 0 for a handle, 1 for none, written in both cases.
int writeHandle(void* handle, void** out)
{
    *out = handle;
    return handle == nullptr ? 1 : 0;
}

int builtOrNot(void* handle)
{
    return handle == nullptr ? 1 : 0;
}

// A trace set makes a source trace that is missing, and stops the process where the destination has
// a negative number. A module in C or Fortran asks for neither by a wrong number: it is told.
int moveTrace(SeisTraceSet* from, SeisTraceSet* to, int traceNoFrom, int traceNoTo)
{
    if (from == nullptr || to == nullptr || traceNoFrom < 0 || traceNoTo < 0 ||
        traceNoFrom >= from->getNumberOfTraces())
        return 0;
    return moveTraceToTrace(from, to, traceNoFrom, traceNoTo);
}

std::string text(const char* characters)
{
    return characters == nullptr ? std::string() : std::string(characters);
}

// Exactly `n` bytes, NULs among them; none for a negative number or a null address.
std::string bytes(const char* first, int n)
{
    return first == nullptr || n < 0 ? std::string() : std::string(first, static_cast<size_t>(n));
}

// The job manager looks at the last character of a key in module scope and fails on a key that has
// none. No exception may cross into C or Fortran code: such a key has no value.
std::string metaDataValue(int scope, const char* name)
{
    try {
        return getMetaDataValue(scope, text(name)).getStrValue();
    } catch (const std::out_of_range&) {
        return std::string();
    }
}

} // namespace

int families::copyBounded(const std::string& text, char* out, int n)
{
    const int length = static_cast<int>(text.size());
    if (n > 0) {
        const int copied = std::min(length, n - 1);
        std::memcpy(out, text.data(), static_cast<size_t>(copied));
        out[copied] = '\0';
    }
    return length;
}

// clang-format off

// ----------------------------------------------------------------- module parameters and options

int knl_getI32ModuleParameter(const char* attKey, int* var)                      { return getValue(ModuleParameter{attKey}, var); }
int knl_getI64ModuleParameter(const char* attKey, int64_t* var)                  { return getValue(ModuleParameter{attKey}, var); }
int knl_getF32ModuleParameter(const char* attKey, float* var)                    { return getValue(ModuleParameter{attKey}, var); }
int knl_getF64ModuleParameter(const char* attKey, double* var)                   { return getValue(ModuleParameter{attKey}, var); }
int knl_getI32ArrayModuleParameter(const char* attKey, int** var, int* size)     { return getArray(ModuleParameter{attKey}, var, size); }
int knl_getI64ArrayModuleParameter(const char* attKey, int64_t** var, int* size) { return getArray(ModuleParameter{attKey}, var, size); }
int knl_getF32ArrayModuleParameter(const char* attKey, float** var, int* size)   { return getArray(ModuleParameter{attKey}, var, size); }
int knl_getF64ArrayModuleParameter(const char* attKey, double** var, int* size)  { return getArray(ModuleParameter{attKey}, var, size); }
int knl_getStrModuleParameter(const char* attKey, char* var)                     { return getText(ModuleParameter{attKey}, var); }
int knl_getLibModuleParameter(const char* attKey, void** var)                    { return getLibrary(ModuleParameter{attKey}, var); }
int knl_getGroupModuleParameter(const char* attKey, void** var)                  { return getGroup(ModuleParameter{attKey}, var); }

int knl_getStrModuleParameterN(const char* attKey, char* var, int n)        { return getTextBounded(ModuleParameter{attKey}, var, n); }
int knl_copyI32ModuleParameter(const char* attKey, int* values, int n)      { return copyNumbers(ModuleParameter{attKey}, values, n); }
int knl_copyI64ModuleParameter(const char* attKey, int64_t* values, int n)  { return copyNumbers(ModuleParameter{attKey}, values, n); }
int knl_copyF32ModuleParameter(const char* attKey, float* values, int n)    { return copyNumbers(ModuleParameter{attKey}, values, n); }
int knl_copyF64ModuleParameter(const char* attKey, double* values, int n)   { return copyNumbers(ModuleParameter{attKey}, values, n); }

void knl_setModuleProcessingOption(const char* option, int value) { setModuleProcessingOption(option, UniVar(value)); }
int knl_getModuleProcessingOption(const char* option, int* value)
{
    const UniVar set = getModuleProcessingOption(option);
    if (set.getType() == undefinedType)
        return 0;
    *value = set.getI32Value();
    return 1;
}

// ---------------------------------------------------------------------------------------- groups

int knl_getGroupParameterSize(void* group) { return getGroupParameterSize(group); }

int knl_getI32GroupParameter(void* group, const char* attKey, int num, int* var)                      { return getValue(GroupParameter{group, attKey, num}, var); }
int knl_getI64GroupParameter(void* group, const char* attKey, int num, int64_t* var)                  { return getValue(GroupParameter{group, attKey, num}, var); }
int knl_getF32GroupParameter(void* group, const char* attKey, int num, float* var)                    { return getValue(GroupParameter{group, attKey, num}, var); }
int knl_getF64GroupParameter(void* group, const char* attKey, int num, double* var)                   { return getValue(GroupParameter{group, attKey, num}, var); }
int knl_getI32ArrayGroupParameter(void* group, const char* attKey, int num, int** var, int* size)     { return getArray(GroupParameter{group, attKey, num}, var, size); }
int knl_getI64ArrayGroupParameter(void* group, const char* attKey, int num, int64_t** var, int* size) { return getArray(GroupParameter{group, attKey, num}, var, size); }
int knl_getF32ArrayGroupParameter(void* group, const char* attKey, int num, float** var, int* size)   { return getArray(GroupParameter{group, attKey, num}, var, size); }
int knl_getF64ArrayGroupParameter(void* group, const char* attKey, int num, double** var, int* size)  { return getArray(GroupParameter{group, attKey, num}, var, size); }
int knl_getStrGroupParameter(void* group, const char* attKey, int num, char* var)                     { return getText(GroupParameter{group, attKey, num}, var); }
int knl_getLibGroupParameter(void* group, const char* attKey, int num, void** var)                    { return getLibrary(GroupParameter{group, attKey, num}, var); }
int knl_getGrpGroupParameter(void* group, const char* attKey, int num, void** var)                    { return getGroup(GroupParameter{group, attKey, num}, var); }

int knl_getStrGroupParameterN(void* group, const char* attKey, int num, char* var, int n)       { return getTextBounded(GroupParameter{group, attKey, num}, var, n); }
int knl_copyI32GroupParameter(void* group, const char* attKey, int num, int* values, int n)     { return copyNumbers(GroupParameter{group, attKey, num}, values, n); }
int knl_copyI64GroupParameter(void* group, const char* attKey, int num, int64_t* values, int n) { return copyNumbers(GroupParameter{group, attKey, num}, values, n); }
int knl_copyF32GroupParameter(void* group, const char* attKey, int num, float* values, int n)   { return copyNumbers(GroupParameter{group, attKey, num}, values, n); }
int knl_copyF64GroupParameter(void* group, const char* attKey, int num, double* values, int n)  { return copyNumbers(GroupParameter{group, attKey, num}, values, n); }

int knl_setI32GroupParameter(void* group, const char* attKey, int num, int var)
{ return setValue(GroupParameter{group, attKey, num}, var); }
int knl_setI64GroupParameter(void* group, const char* attKey, int num, int64_t var)
{ return setValue(GroupParameter{group, attKey, num}, var); }
int knl_setF32GroupParameter(void* group, const char* attKey, int num, float var)
{ return setValue(GroupParameter{group, attKey, num}, var); }
int knl_setF64GroupParameter(void* group, const char* attKey, int num, double var)
{ return setValue(GroupParameter{group, attKey, num}, var); }
int knl_setI32ArrayGroupParameter(void* group, const char* attKey, int num, const int* var, int size)
{ return setArray(GroupParameter{group, attKey, num}, var, size); }
int knl_setI64ArrayGroupParameter(void* group, const char* attKey, int num, const int64_t* var, int size)
{ return setArray(GroupParameter{group, attKey, num}, var, size); }
int knl_setF32ArrayGroupParameter(void* group, const char* attKey, int num, const float* var, int size)
{ return setArray(GroupParameter{group, attKey, num}, var, size); }
int knl_setF64ArrayGroupParameter(void* group, const char* attKey, int num, const double* var, int size)
{ return setArray(GroupParameter{group, attKey, num}, var, size); }
int knl_setStringGroupParameter(void* group, const char* attKey, int num, const char* var)
{ return setText(GroupParameter{group, attKey, num}, var); }

int knl_setGrpGroupParameter(void* group, const char* attKey, int num, void** var) { return getOrMakeGroup(GroupParameter{group, attKey, num}, var); }

// ------------------------------------------------------------------------------------- libraries

int knl_getLibraryType(void* libri) { return getLibraryType(libri); }

int knl_getI32LibraryParameter(void* libri, const char* attKey, int* var)                      { return getValue(LibraryParameter{libri, attKey}, var); }
int knl_getI64LibraryParameter(void* libri, const char* attKey, int64_t* var)                  { return getValue(LibraryParameter{libri, attKey}, var); }
int knl_getF32LibraryParameter(void* libri, const char* attKey, float* var)                    { return getValue(LibraryParameter{libri, attKey}, var); }
int knl_getF64LibraryParameter(void* libri, const char* attKey, double* var)                   { return getValue(LibraryParameter{libri, attKey}, var); }
int knl_getI32ArrayLibraryParameter(void* libri, const char* attKey, int** var, int* size)     { return getArray(LibraryParameter{libri, attKey}, var, size); }
int knl_getI64ArrayLibraryParameter(void* libri, const char* attKey, int64_t** var, int* size) { return getArray(LibraryParameter{libri, attKey}, var, size); }
int knl_getF32ArrayLibraryParameter(void* libri, const char* attKey, float** var, int* size)   { return getArray(LibraryParameter{libri, attKey}, var, size); }
int knl_getF64ArrayLibraryParameter(void* libri, const char* attKey, double** var, int* size)  { return getArray(LibraryParameter{libri, attKey}, var, size); }
int knl_getStrLibraryParameter(void* libri, const char* attKey, char* var)                     { return getText(LibraryParameter{libri, attKey}, var); }
int knl_getLibLibraryParameter(void* libri, const char* attKey, void** var)                    { return getLibrary(LibraryParameter{libri, attKey}, var); }
int knl_getGroupLibraryParameter(void* libri, const char* attKey, void** var)                  { return getGroup(LibraryParameter{libri, attKey}, var); }

int knl_getStrLibraryParameterN(void* libri, const char* attKey, char* var, int n)       { return getTextBounded(LibraryParameter{libri, attKey}, var, n); }
int knl_copyI32LibraryParameter(void* libri, const char* attKey, int* values, int n)     { return copyNumbers(LibraryParameter{libri, attKey}, values, n); }
int knl_copyI64LibraryParameter(void* libri, const char* attKey, int64_t* values, int n) { return copyNumbers(LibraryParameter{libri, attKey}, values, n); }
int knl_copyF32LibraryParameter(void* libri, const char* attKey, float* values, int n)   { return copyNumbers(LibraryParameter{libri, attKey}, values, n); }
int knl_copyF64LibraryParameter(void* libri, const char* attKey, double* values, int n)  { return copyNumbers(LibraryParameter{libri, attKey}, values, n); }

int knl_setI32LibraryParameter(void* libri, const char* attKey, int var)                           { return setValue(LibraryParameter{libri, attKey}, var); }
int knl_setI64LibraryParameter(void* libri, const char* attKey, int64_t var)                       { return setValue(LibraryParameter{libri, attKey}, var); }
int knl_setF32LibraryParameter(void* libri, const char* attKey, float var)                         { return setValue(LibraryParameter{libri, attKey}, var); }
int knl_setF64LibraryParameter(void* libri, const char* attKey, double var)                        { return setValue(LibraryParameter{libri, attKey}, var); }
int knl_setI32ArrayLibraryParameter(void* libri, const char* attKey, const int* var, int size)     { return setArray(LibraryParameter{libri, attKey}, var, size); }
int knl_setI64ArrayLibraryParameter(void* libri, const char* attKey, const int64_t* var, int size) { return setArray(LibraryParameter{libri, attKey}, var, size); }
int knl_setF32ArrayLibraryParameter(void* libri, const char* attKey, const float* var, int size)   { return setArray(LibraryParameter{libri, attKey}, var, size); }
int knl_setF64ArrayLibraryParameter(void* libri, const char* attKey, const double* var, int size)  { return setArray(LibraryParameter{libri, attKey}, var, size); }
int knl_setStringLibraryParameter(void* libri, const char* attKey, const char* var)                { return setText(LibraryParameter{libri, attKey}, var); }

int knl_setGrpLibraryParameter(void* libri, const char* attKey, void** var) { return getOrMakeGroup(LibraryParameter{libri, attKey}, var); }

// ----------------------------------------------------------- trace attributes, always of trace 0

int knl_defineTraceAttribute(void* trace, const char* attKey) { return defineTraceAttribute(trace, attKey); }

int knl_getI32TraceAttribute(void* trace, const char* attKey, int* var)                      { return getValue(AttributeOfTrace{trace, attKey, 0}, var); }
int knl_getI64TraceAttribute(void* trace, const char* attKey, int64_t* var)                  { return getValue(AttributeOfTrace{trace, attKey, 0}, var); }
int knl_getF32TraceAttribute(void* trace, const char* attKey, float* var)                    { return getValue(AttributeOfTrace{trace, attKey, 0}, var); }
int knl_getF64TraceAttribute(void* trace, const char* attKey, double* var)                   { return getValue(AttributeOfTrace{trace, attKey, 0}, var); }
int knl_getI32ArrayTraceAttribute(void* trace, const char* attKey, int** var, int* size)     { return getArray(AttributeOfTrace{trace, attKey, 0}, var, size); }
int knl_getI64ArrayTraceAttribute(void* trace, const char* attKey, int64_t** var, int* size) { return getArray(AttributeOfTrace{trace, attKey, 0}, var, size); }
int knl_getF32ArrayTraceAttribute(void* trace, const char* attKey, float** var, int* size)   { return getArray(AttributeOfTrace{trace, attKey, 0}, var, size); }
int knl_getF64ArrayTraceAttribute(void* trace, const char* attKey, double** var, int* size)  { return getArray(AttributeOfTrace{trace, attKey, 0}, var, size); }
int knl_getStrTraceAttribute(void* trace, const char* attKey, char* var)                     { return getText(AttributeOfTrace{trace, attKey, 0}, var); }

int knl_setI32TraceAttribute(void* trace, const char* attKey, int var)                           { return setValue(AttributeOfTrace{trace, attKey, 0}, var); }
int knl_setI64TraceAttribute(void* trace, const char* attKey, int64_t var)                       { return setValue(AttributeOfTrace{trace, attKey, 0}, var); }
int knl_setF32TraceAttribute(void* trace, const char* attKey, float var)                         { return setValue(AttributeOfTrace{trace, attKey, 0}, var); }
int knl_setF64TraceAttribute(void* trace, const char* attKey, double var)                        { return setValue(AttributeOfTrace{trace, attKey, 0}, var); }
int knl_setI32ArrayTraceAttribute(void* trace, const char* attKey, const int* var, int size)     { return setArray(AttributeOfTrace{trace, attKey, 0}, var, size); }
int knl_setI64ArrayTraceAttribute(void* trace, const char* attKey, const int64_t* var, int size) { return setArray(AttributeOfTrace{trace, attKey, 0}, var, size); }
int knl_setF32ArrayTraceAttribute(void* trace, const char* attKey, const float* var, int size)   { return setArray(AttributeOfTrace{trace, attKey, 0}, var, size); }
int knl_setF64ArrayTraceAttribute(void* trace, const char* attKey, const double* var, int size)  { return setArray(AttributeOfTrace{trace, attKey, 0}, var, size); }
int knl_setStrTraceAttribute(void* trace, const char* attKey, const char* var)                   { return setText(AttributeOfTrace{trace, attKey, 0}, var); }

int knl_mgetI32TraceAttribute(void* trace, const char* attKey, int traceNo, int* var) { return getValue(AttributeOfTrace{trace, attKey, traceNo}, var); }
int knl_mgetI64TraceAttribute(void* trace, const char* attKey, int traceNo, int64_t* var) { return getValue(AttributeOfTrace{trace, attKey, traceNo}, var); }
int knl_mgetF32TraceAttribute(void* trace, const char* attKey, int traceNo, float* var) { return getValue(AttributeOfTrace{trace, attKey, traceNo}, var); }
int knl_mgetF64TraceAttribute(void* trace, const char* attKey, int traceNo, double* var) { return getValue(AttributeOfTrace{trace, attKey, traceNo}, var); }
int knl_mgetI32ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, int** var, int* size) { return getArray(AttributeOfTrace{trace, attKey, traceNo}, var, size); }
int knl_mgetI64ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, int64_t** var, int* size) { return getArray(AttributeOfTrace{trace, attKey, traceNo}, var, size); }
int knl_mgetF32ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, float** var, int* size) { return getArray(AttributeOfTrace{trace, attKey, traceNo}, var, size); }
int knl_mgetF64ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, double** var, int* size) { return getArray(AttributeOfTrace{trace, attKey, traceNo}, var, size); }

int knl_mgetStrTraceAttributeN(void* trace, const char* attKey, int traceNo, char* var, int n) { return getTextBounded(AttributeOfTrace{trace, attKey, traceNo}, var, n); }
int knl_mcopyI32TraceAttribute(void* trace, const char* attKey, int traceNo, int* values, int n) { return copyNumbers(AttributeOfTrace{trace, attKey, traceNo}, values, n); }
int knl_mcopyI64TraceAttribute(void* trace, const char* attKey, int traceNo, int64_t* values, int n) { return copyNumbers(AttributeOfTrace{trace, attKey, traceNo}, values, n); }
int knl_mcopyF32TraceAttribute(void* trace, const char* attKey, int traceNo, float* values, int n) { return copyNumbers(AttributeOfTrace{trace, attKey, traceNo}, values, n); }
int knl_mcopyF64TraceAttribute(void* trace, const char* attKey, int traceNo, double* values, int n) { return copyNumbers(AttributeOfTrace{trace, attKey, traceNo}, values, n); }

int knl_msetI32TraceAttribute(void* trace, const char* attKey, int traceNo, int var) { return traceNo < 0 ? 0 : setValue(AttributeOfTrace{trace, attKey, traceNo}, var); }
int knl_msetI64TraceAttribute(void* trace, const char* attKey, int traceNo, int64_t var) { return traceNo < 0 ? 0 : setValue(AttributeOfTrace{trace, attKey, traceNo}, var); }
int knl_msetF32TraceAttribute(void* trace, const char* attKey, int traceNo, float var) { return traceNo < 0 ? 0 : setValue(AttributeOfTrace{trace, attKey, traceNo}, var); }
int knl_msetF64TraceAttribute(void* trace, const char* attKey, int traceNo, double var) { return traceNo < 0 ? 0 : setValue(AttributeOfTrace{trace, attKey, traceNo}, var); }
int knl_msetI32ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, const int* var, int size) { return traceNo < 0 ? 0 : setArray(AttributeOfTrace{trace, attKey, traceNo}, var, size); }
int knl_msetI64ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, const int64_t* var, int size) { return traceNo < 0 ? 0 : setArray(AttributeOfTrace{trace, attKey, traceNo}, var, size); }
int knl_msetF32ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, const float* var, int size) { return traceNo < 0 ? 0 : setArray(AttributeOfTrace{trace, attKey, traceNo}, var, size); }
int knl_msetF64ArrayTraceAttribute(void* trace, const char* attKey, int traceNo, const double* var, int size) { return traceNo < 0 ? 0 : setArray(AttributeOfTrace{trace, attKey, traceNo}, var, size); }
int knl_msetStrTraceAttribute(void* trace, const char* attKey, int traceNo, const char* var) { return traceNo < 0 ? 0 : setText(AttributeOfTrace{trace, attKey, traceNo}, var); }

// ------------------------------------------------------------------ many trace attributes at once

int knl_bldAttributeList(const char* const* names, int count, void** list) { return writeHandle(bldAttributeList(names, count), list); }
void knl_freeAttributeList(void* list)                                     { freeAttributeList(list); }
int knl_getAttributeListSize(void* list)                                   { return getAttributeListSize(list); }

int knl_getAttributeListPresence(void* list, void* traceSet, int* types) { return getAttributeListPresence(list, traceSet, types); }

int knl_getI32TraceAttributes(void* list, void* traceSet, int traceNo, int* values)     { return getTraceAttributes(list, traceSet, traceNo, values); }
int knl_getI64TraceAttributes(void* list, void* traceSet, int traceNo, int64_t* values) { return getTraceAttributes(list, traceSet, traceNo, values); }
int knl_getF32TraceAttributes(void* list, void* traceSet, int traceNo, float* values)   { return getTraceAttributes(list, traceSet, traceNo, values); }
int knl_getF64TraceAttributes(void* list, void* traceSet, int traceNo, double* values)  { return getTraceAttributes(list, traceSet, traceNo, values); }

int knl_setI32TraceAttributes(void* list, void* traceSet, int traceNo, const int* values)     { return setTraceAttributes(list, traceSet, traceNo, values); }
int knl_setI64TraceAttributes(void* list, void* traceSet, int traceNo, const int64_t* values) { return setTraceAttributes(list, traceSet, traceNo, values); }
int knl_setF32TraceAttributes(void* list, void* traceSet, int traceNo, const float* values)   { return setTraceAttributes(list, traceSet, traceNo, values); }
int knl_setF64TraceAttributes(void* list, void* traceSet, int traceNo, const double* values)  { return setTraceAttributes(list, traceSet, traceNo, values); }

// ------------------------------------------------------------------------------ attribute schema

int knl_getTraceAttributeType(const char* trAttDefName, int* trAttDefType)     { return writeCode(getTraceAttributeType(trAttDefName), trAttDefType); }
int knl_getTraceAttributeDimension(const char* trAttDefName, int* trAttDefDim) { return writeCode(getTraceAttributeDimension(trAttDefName), trAttDefDim); }

// ------------------------------------------------------------------- resources, memory and files

int knl_getModuleResource(const char* attKey, void** attrib) { return getPointer(ModuleResource{attKey}, attrib); }
int knl_setModuleResource(const char* attKey, void* attrib)  { return setModuleResource(attKey, UniVar(attrib)); }

void* knl_allocateResource(int size) { return allocateResource(size); }
int knl_freeResource(void* ptr)      { return freeResource(ptr); }

void knl_fileOpen(const char* fileName, int* fileHandle)   { *fileHandle = fileOpen(fileName); }
void knl_fileCreate(const char* fileName, int* fileHandle) { *fileHandle = fileCreate(fileName); }
void knl_fileClose(int fileHandle)                         { fileClose(fileHandle); }

// ------------------------------------------------------------------- trace buffers of the module

int knl_getInputTraceBuffer(void** trace, int channel)  { return writeHandle(getInputTraceBuffer(channel), trace); }
int knl_getOutputTraceBuffer(void** trace, int channel) { return writeHandle(getOutputTraceBuffer(channel), trace); }
int knl_getWorkTraceBuffer(void** trace, int wtset)     { return writeHandle(getWorkTraceBuffer(wtset), trace); }

int knl_bldOutputTraceBuffer(int channel, int traceLength, int sampleInterval, void* templ)
{ return builtOrNot(bldOutputTraceBuffer(channel, traceLength, sampleInterval, templ)); }
int knl_bldWorkTraceBuffer(int channel, int traceLength, int sampleInterval, int numTraces, void* templ)
{ return builtOrNot(bldWorkTraceBuffer(channel, traceLength, sampleInterval, numTraces, templ)); }

int knl_bldWorkTraceBufferLike(int channel, void* model)           { return builtOrNot(bldWorkTraceBufferLike(channel, model)); }

int knl_setInputTraceBufferFlag(int channel, int flag)             { return setInputTraceBufferFlag(channel, flag); }
int knl_isInputTraceBufferFlagged(int channel, int flag)           { return isInputTraceBufferFlagged(channel, flag); }

// ------------------------------------------------------------------------------------ trace sets

int knl_copyTraceToTrace(void* traceFrom, void* traceTo, int copyHeader, int copySamples)
{ return copyTraceToTrace(traceFrom, traceTo, copyHeader, copySamples, 0, 0); }
int knl_mcopyTraceToTrace(void* traceFrom, void* traceTo, int copyHeader, int copySamples, int traceNoFrom, int traceNoTo)
{ return copyTraceToTrace(traceFrom, traceTo, copyHeader, copySamples, traceNoFrom, traceNoTo); }
int knl_moveTraceToTrace(void* traceFrom, void* traceTo, int traceNoFrom, int traceNoTo)
{ return moveTrace(static_cast<SeisTraceSet*>(traceFrom), static_cast<SeisTraceSet*>(traceTo), traceNoFrom, traceNoTo); }

int knl_transferTraceToTrace(void* traceFrom, void* traceTo, int traceNoFrom, int traceNoTo)
{ return transferTraceToTrace(traceFrom, traceTo, traceNoFrom, traceNoTo); }
int knl_removeTrace(void* traceSet, int traceNo)                   { return removeTrace(traceSet, traceNo); }
int knl_removeWorkTraces(void)                                     { return removeWorkTraces(); }

int knl_setTraceSamples(void* trace, float** samples, int traceNo) { return setTraceSamples(trace, *samples, traceNo); }
int knl_clearTraceSet(void* trace)                                 { return clearTraceSet(trace); }

int knl_getNumberOfTraces(void* traceSet)                          { return getNumberOfTraces(traceSet); }
int knl_getTraceLength(void* traceSet)                             { return getTraceLength(traceSet); }
int knl_getTraceSampleInterval(void* traceSet)                     { return getTraceSampleInterval(traceSet); }
int knl_setNumberOfTraces(void* traceSet, int numTraces)           { return setNumberOfTraces(traceSet, numTraces); }
int knl_setTraceLength(void* traceSet, int traceLength)            { return setTraceLength(traceSet, traceLength); }
int knl_setTraceSampleInterval(void* traceSet, int sampleInterval) { return setTraceSampleInterval(traceSet, sampleInterval); }
int knl_getDataChannelFlag(void* traceSet)                         { return getDataChannelFlag(traceSet); }
int knl_setDataChannelFlag(void* traceSet, int flag)               { return setDataChannelFlag(traceSet, flag); }
void knl_informTotalTracesNumber(void* trace, int64_t numTraces)   { informTotalTracesNumber(trace, numTraces); }

// ---------------------------------------------------------------------- messages, commands, pads

void knl_sendMessage(int msgType, const char* msg) { sendMessage(msgType, msg); }
void knl_addI32MessageArgument(int arg)            { addMessageArgument(UniVar(arg)); }
void knl_addI64MessageArgument(int64_t arg)        { addMessageArgument(UniVar(arg)); }
void knl_addF32MessageArgument(float arg)          { addMessageArgument(UniVar(arg)); }
void knl_addF64MessageArgument(double arg)         { addMessageArgument(UniVar(arg)); }
void knl_addStrMessageArgument(const char* arg)    { addMessageArgument(UniVar(text(arg))); }
void knl_execAppliCmd(const char* cmd)             { execAppliCmd(cmd); }

int knl_createPad(int type, int align, int visible, const char* title)
{ return createPad(type, align, visible, title); }
void knl_plot(int ident, float xpage, float ypage, int ipen)
{ addPlotToPad(ident, xpage, ypage, ipen); }
void knl_number(int ident, float xpage, float ypage, float height, float fpn, float angle, int ndec)
{ addNumberToPad(ident, xpage, ypage, height, fpn, angle, ndec); }
void knl_symbol(int ident, float xpage, float ypage, float height, const char* cbcd, int inteq, float angle, int inchar)
{ addSymbolToPad(ident, xpage, ypage, height, text(cbcd), inteq, angle, inchar); }
void knl_factor(int ident, float factor)
{ addFactorToPad(ident, factor); }
void knl_newpen(int ident, int newpen)
{ addNewPenToPad(ident, newpen); }

// ---------------------------------------------------------------- directories, date and metadata

int knl_isCancelled(void)           { return isJobCancelled(); }

const char* knl_currentDate(void)   { return getCurrentDate(); }
const char* knl_getProjectDir(void) { return getProjectDir(); }
const char* knl_getScratchDir(void) { return getScratchDir(); }

void knl_setMetaDataValue(int scope, const char* name, const char* value)         { setMetaDataValue(scope, text(name), text(value)); }
void knl_setMetaDataValueN(int scope, const char* name, const char* value, int n) { setMetaDataValue(scope, text(name), bytes(value, n)); }

// clang-format on

// -------------------------------------------------------------- what follows no family's pattern

// 0 always: a name that the schema does not know has the empty description.
int knl_getTraceAttributeDescription(const char* trAttDefName, char* trAttDefDesc)
{
    std::strcpy(trAttDefDesc, getTraceAttributeDescription(trAttDefName));
    return 0;
}

int knl_getTraceAttributeDescriptionN(const char* trAttDefName, char* trAttDefDesc, int n)
{
    return copyBounded(getTraceAttributeDescription(trAttDefName), trAttDefDesc, n);
}

// 1 for samples and 0 for none, the other way round than the buffer look-ups.
int knl_getTraceSamples(void* trace, float** samples, int traceNo)
{
    *samples = getTraceSamples(trace, traceNo);
    return *samples == nullptr ? 0 : 1;
}

// The metadata store refuses an empty directory with an exception, after the job manager has stored
// it; that much is done, and the exception ends here.
void knl_setProjectDir(const char* project)
{
    try {
        JobManager::getInstance()->setProjectDir(QString::fromLocal8Bit(text(project).c_str()));
    } catch (const std::out_of_range&) {
        return;
    }
}

int knl_getMetaDataValue(int scope, const char* name, char* value_ret, int n)
{
    return copyBounded(metaDataValue(scope, name), value_ret, n);
}
