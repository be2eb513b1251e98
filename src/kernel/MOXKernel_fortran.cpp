// The Fortran form: what Fortran passes (addresses, blank-padded texts, numbers from one) becomes
// what the C form takes, and its answers become what Fortran reads. One line for each function;
// the rules of behaviour are those of the C form and of the templates here and in
// MOXKernel_families.h.

#include "knl_fortran.h"

#include "MOXKernel.h"
#include "knl.h"
#include "private/MOXKernel_families.h"
#include "vorn_assert.h"
#include "vorn_tools.h"

#include <fcntl.h>

#include <algorithm>
#include <climits>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

using namespace families;

namespace {

// ------------------------------------------------------------------------------------- arguments

// Whatever is below the first one does not exist, and stays so however far below it is.
int zeroBased(const int* number)
{
    return *number > 0 ? *number - 1 : -1;
}

// Trace attributes answer 0 for found and 1 for absent.
int inverted(int found)
{
    return found != 0 ? 0 : 1;
}

std::string_view withoutBlanks(const char* field, int length)
{
    std::string_view text(field, length > 0 ? static_cast<size_t>(length) : 0);
    const size_t first = text.find_first_not_of(' ');
    if (first == std::string_view::npos)
        return {};
    text.remove_prefix(first);
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

// A blank-padded text as C text, for the length of a call. Converts as f2ccpy does, but cuts what
// does not fit instead of writing beyond the buffer, and leaves the rest of the buffer alone: names
// are converted once per trace and attribute.
template <size_t size>
class FixedText
{
public:
    FixedText(const char* field, int length)
    {
        const size_t copied = withoutBlanks(field, length).copy(characters, size - 1);
        characters[copied] = '\0';
    }
    operator const char*() const { return characters; }

private:
    char characters[size];
};

using Name = FixedText<256>;
using MessageText = FixedText<1024>;

// The same for texts that may have any length.
class Text
{
public:
    Text(const char* field, int length) : characters(withoutBlanks(field, length)) {}
    operator const char*() const { return characters.c_str(); }

private:
    std::string characters;
};

// -------------------------------------------------------------------- values into caller's storage

// An array getter of the C form, asked for the value at `place`, and its elements copied to the
// caller, which has room for all of them.
template <typename T, typename Get, typename... Place>
int copyArray(Get get, T* out, int* size, const Place&... place)
{
    T* elements = nullptr;
    const int found = get(place..., &elements, size);
    if (elements != nullptr)
        std::memcpy(out, elements, static_cast<size_t>(*size) * sizeof(T));
    return found;
}

// Array attributes of traces go straight from the value to the caller, which says how many fit.
template <typename Source, typename T>
int getElements(const Source& source, T* out, int capacity)
{
    return getWith(source, [out, capacity](const UniVar& value) {
        T* elements;
        unpack(value, &elements);
        const int count = std::min(capacity, value.getArraySize());
        if (elements != nullptr && count > 0)
            std::memcpy(out, elements, static_cast<size_t>(count) * sizeof(T));
    });
}

// Deliberate: 255 bytes, however long the caller's variable is.
template <typename Source>
int getPaddedText(const Source& source, char* out, int length)
{
    constexpr size_t longest = 255;
    return getWith(source, [out, length](const UniVar& value) {
        c2fcpy(value.getStrValue().substr(0, longest).c_str(), out, length);
    });
}

// The names stand one behind the other, padded to one length.
int buildList(const char* names, int count, int length, void** list)
{
    std::vector<Name> texts;
    std::vector<const char*> addresses;
    texts.reserve(static_cast<std::size_t>(std::max(count, 0)));
    for (int i = 0; i < count; ++i)
        texts.emplace_back(names + static_cast<std::ptrdiff_t>(i) * std::max(length, 0), length);
    addresses.assign(texts.begin(), texts.end());
    return knl_bldAttributeList(addresses.data(), count, list);
}

int readGeometry(void* traceSet, int (*get)(void*), int* out)
{
    if (traceSet == nullptr)
        return 1;
    *out = get(traceSet);
    return 0;
}

// ----------------------------------------------------------------------------------- descriptors

template <typename Descriptor>
constexpr bool hasAgreedLayout = sizeof(Descriptor) == 72 && offsetof(Descriptor, data) == 0 &&
                                 offsetof(Descriptor, dsize) == 8 &&
                                 offsetof(Descriptor, offset) == 16 &&
                                 offsetof(Descriptor, bordr) == 24 &&
                                 offsetof(Descriptor, rank) == 32 &&
                                 offsetof(Descriptor, rserv) == 40 &&
                                 offsetof(Descriptor, dim) == 48;

static_assert(sizeof(one_arr_dim) == 24 && offsetof(one_arr_dim, extent) == 0 &&
              offsetof(one_arr_dim, distance) == 8 && offsetof(one_arr_dim, lbound) == 16);
static_assert(hasAgreedLayout<one_int_arr>);
static_assert(hasAgreedLayout<one_long_arr>);
static_assert(hasAgreedLayout<one_float_arr>);
static_assert(hasAgreedLayout<one_double_arr>);
static_assert(hasAgreedLayout<one_char_arr>);

template <typename Descriptor>
constexpr int elementBytes(const Descriptor& array)
{
    return static_cast<int>(sizeof(*array.data));
}

// Everything but the data, and but the reserved word, which is the caller's.
template <typename Descriptor>
void writeShape(Descriptor& array, int bytesPerElement, int extent)
{
    array.dsize = bytesPerElement;
    array.offset = 0;
    array.bordr = 3;
    array.rank = 1;
    array.dim[0].extent = extent;
    array.dim[0].distance = bytesPerElement;
    array.dim[0].lbound = 1;
}

template <typename Descriptor>
void pointAt(Descriptor& array, void* data, int bytesPerElement, int extent)
{
    array.data = static_cast<decltype(array.data)>(data);
    writeShape(array, bytesPerElement, extent);
}

// What to ask the kernel for. It takes a 32-bit size, and refuses a negative one with a message: so
// does everything else that cannot be had.
int bytesToAllocate(int bytesPerElement, int extent)
{
    const int64_t bytes = int64_t{bytesPerElement} * extent;
    const bool bothNegative = bytesPerElement < 0 && extent < 0;
    return bothNegative || bytes < INT_MIN || bytes > INT_MAX ? -1 : static_cast<int>(bytes);
}

template <typename Descriptor>
void allocate(Descriptor& array, int bytesPerElement, int extent)
{
    void* data = knl_allocateResource(bytesToAllocate(bytesPerElement, extent));
    pointAt(array, data, bytesPerElement, extent);
}

// What empty arrays point at.
alignas(16) char emptyArrayData[32];

template <typename Descriptor>
void makeEmpty(Descriptor& array, int bytesPerElement)
{
    pointAt(array, emptyArrayData, bytesPerElement, 0);
}

template <typename Descriptor>
int pointAtResource(const char* key, Descriptor& array, int bytesPerElement)
{
    return getWith(ModuleResource{key}, [&array, bytesPerElement](const UniVar& value) {
        pointAt(array, value.getPointerValue(), bytesPerElement, value.getArraySize());
    });
}

int pointAtSamples(void* traceSet, int traceNo, one_float_arr& array)
{
    float* samples;
    const int found = knl_getTraceSamples(traceSet, &samples, traceNo);
    if (found != 0)
        array.data = samples;
    writeShape(array, elementBytes(array), getTraceSampleCount(traceSet, traceNo));
    return found != 0 ? 0 : 1;
}

} // namespace

// clang-format off

// ----------------------------------------------------------------- module parameters and options

void knl_geti32moduleparameter_(const char* attKey, int* var, int* istat, int lattKey)
{ *istat = knl_getI32ModuleParameter(Name(attKey, lattKey), var); }
void knl_geti64moduleparameter_(const char* attKey, int64_t* var, int* istat, int lattKey)
{ *istat = knl_getI64ModuleParameter(Name(attKey, lattKey), var); }
void knl_getf32moduleparameter_(const char* attKey, float* var, int* istat, int lattKey)
{ *istat = knl_getF32ModuleParameter(Name(attKey, lattKey), var); }
void knl_getf64moduleparameter_(const char* attKey, double* var, int* istat, int lattKey)
{ *istat = knl_getF64ModuleParameter(Name(attKey, lattKey), var); }
void knl_geti32arraymoduleparameter_(const char* attKey, int** var, int* size, int* istat, int lattKey)
{ *istat = copyArray(knl_getI32ArrayModuleParameter, *var, size, Name(attKey, lattKey)); }
void knl_geti64arraymoduleparameter_(const char* attKey, int64_t** var, int* size, int* istat, int lattKey)
{ *istat = copyArray(knl_getI64ArrayModuleParameter, *var, size, Name(attKey, lattKey)); }
void knl_getf32arraymoduleparameter_(const char* attKey, float** var, int* size, int* istat, int lattKey)
{ *istat = copyArray(knl_getF32ArrayModuleParameter, *var, size, Name(attKey, lattKey)); }
void knl_getf64arraymoduleparameter_(const char* attKey, double** var, int* size, int* istat, int lattKey)
{ *istat = copyArray(knl_getF64ArrayModuleParameter, *var, size, Name(attKey, lattKey)); }
void knl_getstrmoduleparameter_(const char* attKey, char* var, int* istat, int lattKey, int lvar)
{ *istat = getPaddedText(ModuleParameter{Name(attKey, lattKey)}, var, lvar); }
void knl_getlibmoduleparameter_(const char* attKey, void** var, int* istat, int lattKey)
{ *istat = knl_getLibModuleParameter(Name(attKey, lattKey), var); }
void knl_getgroupmoduleparameter_(const char* attKey, void** var, int* istat, int lattKey)
{ *istat = knl_getGroupModuleParameter(Name(attKey, lattKey), var); }

// ---------------------------------------------------------------------------------------- groups

void knl_getgroupparametersize_(void** group, int* size, int* istat)
{ *size = knl_getGroupParameterSize(*group); *istat = 1; }

void knl_geti32groupparameter_(void** group, const char* attKey, int* num, int* var, int* istat, int lattKey)
{ *istat = knl_getI32GroupParameter(*group, Name(attKey, lattKey), zeroBased(num), var); }
void knl_geti64groupparameter_(void** group, const char* attKey, int* num, int64_t* var, int* istat, int lattKey)
{ *istat = knl_getI64GroupParameter(*group, Name(attKey, lattKey), zeroBased(num), var); }
void knl_getf32groupparameter_(void** group, const char* attKey, int* num, float* var, int* istat, int lattKey)
{ *istat = knl_getF32GroupParameter(*group, Name(attKey, lattKey), zeroBased(num), var); }
void knl_getf64groupparameter_(void** group, const char* attKey, int* num, double* var, int* istat, int lattKey)
{ *istat = knl_getF64GroupParameter(*group, Name(attKey, lattKey), zeroBased(num), var); }
void knl_geti32arraygroupparameter_(void** group, const char* attKey, int* num, int** var, int* size, int* istat, int lattKey)
{ *istat = copyArray(knl_getI32ArrayGroupParameter, *var, size, *group, Name(attKey, lattKey), zeroBased(num)); }
void knl_geti64arraygroupparameter_(void** group, const char* attKey, int* num, int64_t** var, int* size, int* istat, int lattKey)
{ *istat = copyArray(knl_getI64ArrayGroupParameter, *var, size, *group, Name(attKey, lattKey), zeroBased(num)); }
void knl_getf32arraygroupparameter_(void** group, const char* attKey, int* num, float** var, int* size, int* istat, int lattKey)
{ *istat = copyArray(knl_getF32ArrayGroupParameter, *var, size, *group, Name(attKey, lattKey), zeroBased(num)); }
void knl_getf64arraygroupparameter_(void** group, const char* attKey, int* num, double** var, int* size, int* istat, int lattKey)
{ *istat = copyArray(knl_getF64ArrayGroupParameter, *var, size, *group, Name(attKey, lattKey), zeroBased(num)); }
void knl_getstrgroupparameter_(void** group, const char* attKey, int* num, char* var, int* istat, int lattKey, int lvar)
{ *istat = getPaddedText(GroupParameter{*group, Name(attKey, lattKey), zeroBased(num)}, var, lvar); }
void knl_getlibgroupparameter_(void** group, const char* attKey, int* num, void** var, int* istat, int lattKey)
{ *istat = knl_getLibGroupParameter(*group, Name(attKey, lattKey), zeroBased(num), var); }
void knl_getgrpgroupparameter_(void** group, const char* attKey, int* num, void** var, int* istat, int lattKey)
{ *istat = knl_getGrpGroupParameter(*group, Name(attKey, lattKey), zeroBased(num), var); }

void knl_seti32groupparameter_(void** group, const char* attKey, int* num, int* var, int* istat, int lattKey)
{ *istat = knl_setI32GroupParameter(*group, Name(attKey, lattKey), zeroBased(num), *var); }
void knl_seti64groupparameter_(void** group, const char* attKey, int* num, int64_t* var, int* istat, int lattKey)
{ *istat = knl_setI64GroupParameter(*group, Name(attKey, lattKey), zeroBased(num), *var); }
void knl_setf32groupparameter_(void** group, const char* attKey, int* num, float* var, int* istat, int lattKey)
{ *istat = knl_setF32GroupParameter(*group, Name(attKey, lattKey), zeroBased(num), *var); }
void knl_setf64groupparameter_(void** group, const char* attKey, int* num, double* var, int* istat, int lattKey)
{ *istat = knl_setF64GroupParameter(*group, Name(attKey, lattKey), zeroBased(num), *var); }
void knl_seti32arraygroupparameter_(void** group, const char* attKey, int* num, int** var, int* size, int* istat, int lattKey)
{ *istat = knl_setI32ArrayGroupParameter(*group, Name(attKey, lattKey), zeroBased(num), *var, *size); }
void knl_seti64arraygroupparameter_(void** group, const char* attKey, int* num, int64_t** var, int* size, int* istat, int lattKey)
{ *istat = knl_setI64ArrayGroupParameter(*group, Name(attKey, lattKey), zeroBased(num), *var, *size); }
void knl_setf32arraygroupparameter_(void** group, const char* attKey, int* num, float** var, int* size, int* istat, int lattKey)
{ *istat = knl_setF32ArrayGroupParameter(*group, Name(attKey, lattKey), zeroBased(num), *var, *size); }
void knl_setf64arraygroupparameter_(void** group, const char* attKey, int* num, double** var, int* size, int* istat, int lattKey)
{ *istat = knl_setF64ArrayGroupParameter(*group, Name(attKey, lattKey), zeroBased(num), *var, *size); }
void knl_setstrgroupparameter_(void** group, const char* attKey, int* num, const char* var, int* istat, int lattKey, int lvar)
{ *istat = knl_setStringGroupParameter(*group, Name(attKey, lattKey), zeroBased(num), Text(var, lvar)); }
void knl_setgrpgroupparameter_(void** group, const char* attKey, int* num, void** var, int* istat, int lattKey)
{ *istat = knl_setGrpGroupParameter(*group, Name(attKey, lattKey), zeroBased(num), var); }

// ------------------------------------------------------------------------------------- libraries

void knl_geti32libraryparameter_(void** libri, const char* attKey, int* var, int* istat, int lattKey)
{ *istat = knl_getI32LibraryParameter(*libri, Name(attKey, lattKey), var); }
void knl_geti64libraryparameter_(void** libri, const char* attKey, int64_t* var, int* istat, int lattKey)
{ *istat = knl_getI64LibraryParameter(*libri, Name(attKey, lattKey), var); }
void knl_getf32libraryparameter_(void** libri, const char* attKey, float* var, int* istat, int lattKey)
{ *istat = knl_getF32LibraryParameter(*libri, Name(attKey, lattKey), var); }
void knl_getf64libraryparameter_(void** libri, const char* attKey, double* var, int* istat, int lattKey)
{ *istat = knl_getF64LibraryParameter(*libri, Name(attKey, lattKey), var); }
void knl_geti32arraylibraryparameter_(void** libri, const char* attKey, int** var, int* size, int* istat, int lattKey)
{ *istat = copyArray(knl_getI32ArrayLibraryParameter, *var, size, *libri, Name(attKey, lattKey)); }
void knl_geti64arraylibraryparameter_(void** libri, const char* attKey, int64_t** var, int* size, int* istat, int lattKey)
{ *istat = copyArray(knl_getI64ArrayLibraryParameter, *var, size, *libri, Name(attKey, lattKey)); }
void knl_getf32arraylibraryparameter_(void** libri, const char* attKey, float** var, int* size, int* istat, int lattKey)
{ *istat = copyArray(knl_getF32ArrayLibraryParameter, *var, size, *libri, Name(attKey, lattKey)); }
void knl_getf64arraylibraryparameter_(void** libri, const char* attKey, double** var, int* size, int* istat, int lattKey)
{ *istat = copyArray(knl_getF64ArrayLibraryParameter, *var, size, *libri, Name(attKey, lattKey)); }
void knl_getstrlibraryparameter_(void** libri, const char* attKey, char* var, int* istat, int lattKey, int lvar)
{ *istat = getPaddedText(LibraryParameter{*libri, Name(attKey, lattKey)}, var, lvar); }
void knl_getliblibraryparameter_(void** libri, const char* attKey, void** var, int* istat, int lattKey)
{ *istat = knl_getLibLibraryParameter(*libri, Name(attKey, lattKey), var); }
void knl_getgrouplibraryparameter_(void** libri, const char* attKey, void** var, int* istat, int lattKey)
{ *istat = knl_getGroupLibraryParameter(*libri, Name(attKey, lattKey), var); }

void knl_seti32libraryparameter_(void** libri, const char* attKey, int* var, int* istat, int lattKey)
{ *istat = knl_setI32LibraryParameter(*libri, Name(attKey, lattKey), *var); }
void knl_seti64libraryparameter_(void** libri, const char* attKey, int64_t* var, int* istat, int lattKey)
{ *istat = knl_setI64LibraryParameter(*libri, Name(attKey, lattKey), *var); }
void knl_setf32libraryparameter_(void** libri, const char* attKey, float* var, int* istat, int lattKey)
{ *istat = knl_setF32LibraryParameter(*libri, Name(attKey, lattKey), *var); }
void knl_setf64libraryparameter_(void** libri, const char* attKey, double* var, int* istat, int lattKey)
{ *istat = knl_setF64LibraryParameter(*libri, Name(attKey, lattKey), *var); }
void knl_seti32arraylibraryparameter_(void** libri, const char* attKey, int** var, int* size, int* istat, int lattKey)
{ *istat = knl_setI32ArrayLibraryParameter(*libri, Name(attKey, lattKey), *var, *size); }
void knl_seti64arraylibraryparameter_(void** libri, const char* attKey, int64_t** var, int* size, int* istat, int lattKey)
{ *istat = knl_setI64ArrayLibraryParameter(*libri, Name(attKey, lattKey), *var, *size); }
void knl_setf32arraylibraryparameter_(void** libri, const char* attKey, float** var, int* size, int* istat, int lattKey)
{ *istat = knl_setF32ArrayLibraryParameter(*libri, Name(attKey, lattKey), *var, *size); }
void knl_setf64arraylibraryparameter_(void** libri, const char* attKey, double** var, int* size, int* istat, int lattKey)
{ *istat = knl_setF64ArrayLibraryParameter(*libri, Name(attKey, lattKey), *var, *size); }
void knl_setstringlibraryparameter_(void** libri, const char* attKey, const char* var, int* istat, int lattKey, int lvar)
{ *istat = knl_setStringLibraryParameter(*libri, Name(attKey, lattKey), Text(var, lvar)); }
void knl_setgrplibraryparameter_(void** libri, const char* attKey, void** var, int* istat, int lattKey)
{ *istat = knl_setGrpLibraryParameter(*libri, Name(attKey, lattKey), var); }

// ------------------------------------------------------------------------------ trace attributes

void knl_definetraceattribute_(void** trace, const char* attKey, int* istat, int lattKey)
{ *istat = knl_defineTraceAttribute(*trace, Name(attKey, lattKey)); }
void knl_istraceattributeexist_(void** trace, const char* attKey, int* istat, int lattKey)
{ *istat = inverted(isTraceAttributeExist(*trace, Name(attKey, lattKey))); }

void knl_geti32traceattribute_(void** trace, const char* attKey, int* var, int* istat, int lattKey)
{ *istat = inverted(getValue(AttributeOfTrace{*trace, Name(attKey, lattKey), 0}, var)); }
void knl_geti64traceattribute_(void** trace, const char* attKey, int64_t* var, int* istat, int lattKey)
{ *istat = inverted(getValue(AttributeOfTrace{*trace, Name(attKey, lattKey), 0}, var)); }
void knl_getf32traceattribute_(void** trace, const char* attKey, float* var, int* istat, int lattKey)
{ *istat = inverted(getValue(AttributeOfTrace{*trace, Name(attKey, lattKey), 0}, var)); }
void knl_getf64traceattribute_(void** trace, const char* attKey, double* var, int* istat, int lattKey)
{ *istat = inverted(getValue(AttributeOfTrace{*trace, Name(attKey, lattKey), 0}, var)); }
void knl_geti32arraytraceattribute_(void** trace, const char* attKey, int** var, int* size, int* istat, int lattKey)
{ *istat = inverted(getElements(AttributeOfTrace{*trace, Name(attKey, lattKey), 0}, *var, *size)); }
void knl_geti64arraytraceattribute_(void** trace, const char* attKey, int64_t** var, int* size, int* istat, int lattKey)
{ *istat = inverted(getElements(AttributeOfTrace{*trace, Name(attKey, lattKey), 0}, *var, *size)); }
void knl_getf32arraytraceattribute_(void** trace, const char* attKey, float** var, int* size, int* istat, int lattKey)
{ *istat = inverted(getElements(AttributeOfTrace{*trace, Name(attKey, lattKey), 0}, *var, *size)); }
void knl_getf64arraytraceattribute_(void** trace, const char* attKey, double** var, int* size, int* istat, int lattKey)
{ *istat = inverted(getElements(AttributeOfTrace{*trace, Name(attKey, lattKey), 0}, *var, *size)); }
void knl_getstringtraceattribute_(void** trace, const char* attKey, char* var, int* istat, int lattKey, int lvar)
{ *istat = inverted(getPaddedText(AttributeOfTrace{*trace, Name(attKey, lattKey), 0}, var, lvar)); }

void knl_mgeti32traceattribute_(void** trace, const char* attKey, int* var, int* traceno, int* istat, int lattKey)
{ *istat = inverted(getValue(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, var)); }
void knl_mgeti64traceattribute_(void** trace, const char* attKey, int64_t* var, int* traceno, int* istat, int lattKey)
{ *istat = inverted(getValue(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, var)); }
void knl_mgetf32traceattribute_(void** trace, const char* attKey, float* var, int* traceno, int* istat, int lattKey)
{ *istat = inverted(getValue(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, var)); }
void knl_mgetf64traceattribute_(void** trace, const char* attKey, double* var, int* traceno, int* istat, int lattKey)
{ *istat = inverted(getValue(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, var)); }
void knl_mgeti32arraytraceattribute_(void** trace, const char* attKey, int** var, int* size, int* traceno, int* istat, int lattKey)
{ *istat = inverted(getElements(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, *var, *size)); }
void knl_mgeti64arraytraceattribute_(void** trace, const char* attKey, int64_t** var, int* size, int* traceno, int* istat, int lattKey)
{ *istat = inverted(getElements(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, *var, *size)); }
void knl_mgetf32arraytraceattribute_(void** trace, const char* attKey, float** var, int* size, int* traceno, int* istat, int lattKey)
{ *istat = inverted(getElements(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, *var, *size)); }
void knl_mgetf64arraytraceattribute_(void** trace, const char* attKey, double** var, int* size, int* traceno, int* istat, int lattKey)
{ *istat = inverted(getElements(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, *var, *size)); }
void knl_mgetstringtraceattribute_(void** trace, const char* attKey, char* var, int* traceno, int* istat, int lattKey, int lvar)
{ *istat = inverted(getPaddedText(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, var, lvar)); }

void knl_seti32traceattribute_(void** trace, const char* attKey, int* var, int* istat, int lattKey)
{ *istat = knl_setI32TraceAttribute(*trace, Name(attKey, lattKey), *var); }
void knl_seti64traceattribute_(void** trace, const char* attKey, int64_t* var, int* istat, int lattKey)
{ *istat = knl_setI64TraceAttribute(*trace, Name(attKey, lattKey), *var); }
void knl_setf32traceattribute_(void** trace, const char* attKey, float* var, int* istat, int lattKey)
{ *istat = knl_setF32TraceAttribute(*trace, Name(attKey, lattKey), *var); }
void knl_setf64traceattribute_(void** trace, const char* attKey, double* var, int* istat, int lattKey)
{ *istat = knl_setF64TraceAttribute(*trace, Name(attKey, lattKey), *var); }
void knl_seti32arraytraceattribute_(void** trace, const char* attKey, int** var, int* size, int* istat, int lattKey)
{ *istat = knl_setI32ArrayTraceAttribute(*trace, Name(attKey, lattKey), *var, *size); }
void knl_seti64arraytraceattribute_(void** trace, const char* attKey, int64_t** var, int* size, int* istat, int lattKey)
{ *istat = knl_setI64ArrayTraceAttribute(*trace, Name(attKey, lattKey), *var, *size); }
void knl_setf32arraytraceattribute_(void** trace, const char* attKey, float** var, int* size, int* istat, int lattKey)
{ *istat = knl_setF32ArrayTraceAttribute(*trace, Name(attKey, lattKey), *var, *size); }
void knl_setf64arraytraceattribute_(void** trace, const char* attKey, double** var, int* size, int* istat, int lattKey)
{ *istat = knl_setF64ArrayTraceAttribute(*trace, Name(attKey, lattKey), *var, *size); }
void knl_setstringtraceattribute_(void** trace, const char* attKey, const char* var, int* istat, int lattKey)
{ *istat = knl_setStrTraceAttribute(*trace, Name(attKey, lattKey), var); }

void knl_mseti32traceattribute_(void** trace, const char* attKey, int* var, int* traceno, int* istat, int lattKey)
{ *istat = setValue(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, *var); }
void knl_mseti64traceattribute_(void** trace, const char* attKey, int64_t* var, int* traceno, int* istat, int lattKey)
{ *istat = setValue(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, *var); }
void knl_msetf32traceattribute_(void** trace, const char* attKey, float* var, int* traceno, int* istat, int lattKey)
{ *istat = setValue(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, *var); }
void knl_msetf64traceattribute_(void** trace, const char* attKey, double* var, int* traceno, int* istat, int lattKey)
{ *istat = setValue(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, *var); }
void knl_mseti32arraytraceattribute_(void** trace, const char* attKey, int** var, int* size, int* traceno, int* istat, int lattKey)
{ *istat = setArray(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, *var, *size); }
void knl_mseti64arraytraceattribute_(void** trace, const char* attKey, int64_t** var, int* size, int* traceno, int* istat, int lattKey)
{ *istat = setArray(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, *var, *size); }
void knl_msetf32arraytraceattribute_(void** trace, const char* attKey, float** var, int* size, int* traceno, int* istat, int lattKey)
{ *istat = setArray(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, *var, *size); }
void knl_msetf64arraytraceattribute_(void** trace, const char* attKey, double** var, int* size, int* traceno, int* istat, int lattKey)
{ *istat = setArray(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, *var, *size); }
void knl_msetstringtraceattribute_(void** trace, const char* attKey, const char* var, int* traceno, int* istat, int lattKey)
{ *istat = setText(AttributeOfTrace{*trace, Name(attKey, lattKey), zeroBased(traceno)}, var); }

// ------------------------------------------------------------------ many trace attributes at once

void knl_bldattributelist_(const char* names, int* count, void** list, int* istat, int lnames)
{ *istat = buildList(names, *count, lnames, list); }
void knl_freeattributelist_(void** list)
{ knl_freeAttributeList(*list); *list = nullptr; }
void knl_getattributelistsize_(void** list, int* size)
{ *size = knl_getAttributeListSize(*list); }
void knl_getattributelistpresence_(void** list, void** trace, int* types, int* size, int* count)
{ *count = countPresent(*list, *trace, types, *size); }

void knl_geti32traceattributes_(void** list, void** trace, int* traceno, int* values, int* size, int* count)
{ *count = getAttributes(*list, *trace, zeroBased(traceno), values, *size); }
void knl_geti64traceattributes_(void** list, void** trace, int* traceno, int64_t* values, int* size, int* count)
{ *count = getAttributes(*list, *trace, zeroBased(traceno), values, *size); }
void knl_getf32traceattributes_(void** list, void** trace, int* traceno, float* values, int* size, int* count)
{ *count = getAttributes(*list, *trace, zeroBased(traceno), values, *size); }
void knl_getf64traceattributes_(void** list, void** trace, int* traceno, double* values, int* size, int* count)
{ *count = getAttributes(*list, *trace, zeroBased(traceno), values, *size); }

void knl_seti32traceattributes_(void** list, void** trace, int* traceno, int* values, int* size, int* count)
{ *count = setAttributes(*list, *trace, zeroBased(traceno), static_cast<const int*>(values), *size); }
void knl_seti64traceattributes_(void** list, void** trace, int* traceno, int64_t* values, int* size, int* count)
{ *count = setAttributes(*list, *trace, zeroBased(traceno), static_cast<const int64_t*>(values), *size); }
void knl_setf32traceattributes_(void** list, void** trace, int* traceno, float* values, int* size, int* count)
{ *count = setAttributes(*list, *trace, zeroBased(traceno), static_cast<const float*>(values), *size); }
void knl_setf64traceattributes_(void** list, void** trace, int* traceno, double* values, int* size, int* count)
{ *count = setAttributes(*list, *trace, zeroBased(traceno), static_cast<const double*>(values), *size); }

// ------------------------------------------------------------------------------ attribute schema

void knl_gettraceattributetype_(const char* trAttDefName, int* trAttDefType, int ltrAttDefName)
{ knl_getTraceAttributeType(Name(trAttDefName, ltrAttDefName), trAttDefType); }
void knl_gettraceattributedimension_(const char* trAttDefName, int* trAttDefDim, int ltrAttDefName)
{ knl_getTraceAttributeDimension(Name(trAttDefName, ltrAttDefName), trAttDefDim); }

// ------------------------------------------------------------------- memory and module resources

void knl_allocatei32resource_(one_int_arr* resource, int* size)
{ allocate(*resource, elementBytes(*resource), *size); }
void knl_allocatei64resource_(one_long_arr* resource, int* size)
{ allocate(*resource, elementBytes(*resource), *size); }
void knl_allocatef32resource_(one_float_arr* resource, int* size)
{ allocate(*resource, elementBytes(*resource), *size); }
void knl_allocatef64resource_(one_double_arr* resource, int* size)
{ allocate(*resource, elementBytes(*resource), *size); }
void knl_allocatestrresource_(one_char_arr* resource, int* dim, int* size)
{ allocate(*resource, *dim, *size); }

void knl_zeroi32array_(one_int_arr* resource)
{ makeEmpty(*resource, elementBytes(*resource)); }
void knl_zeroi64array_(one_long_arr* resource)
{ makeEmpty(*resource, elementBytes(*resource)); }
void knl_zerof32array_(one_float_arr* resource)
{ makeEmpty(*resource, elementBytes(*resource)); }
void knl_zerof64array_(one_double_arr* resource)
{ makeEmpty(*resource, elementBytes(*resource)); }
void knl_zerostrarray_(one_char_arr* resource, int* dim)
{ makeEmpty(*resource, *dim); }
void knl_getmodulei32resource_(const char* attKey, one_int_arr* resource, int* istat, int lattKey)
{ *istat = pointAtResource(Name(attKey, lattKey), *resource, elementBytes(*resource)); }
void knl_getmodulei64resource_(const char* attKey, one_long_arr* resource, int* istat, int lattKey)
{ *istat = pointAtResource(Name(attKey, lattKey), *resource, elementBytes(*resource)); }
void knl_getmodulef32resource_(const char* attKey, one_float_arr* resource, int* istat, int lattKey)
{ *istat = pointAtResource(Name(attKey, lattKey), *resource, elementBytes(*resource)); }
void knl_getmodulef64resource_(const char* attKey, one_double_arr* resource, int* istat, int lattKey)
{ *istat = pointAtResource(Name(attKey, lattKey), *resource, elementBytes(*resource)); }
void knl_getmodulestrresource_(const char* attKey, one_char_arr* resource, int* dim, int* istat, int lattKey)
{ *istat = pointAtResource(Name(attKey, lattKey), *resource, *dim); }

// --------------------------------------------------------------------------------- trace samples

void knl_ssettracesamples_(void** trace, float** samples, int* istat)
{ *istat = knl_setTraceSamples(*trace, samples, 0); }
void knl_msettracesamples_(void** trace, float** samples, int* traceNo, int* istat)
{ *istat = knl_setTraceSamples(*trace, samples, zeroBased(traceNo)); }

// ------------------------------------------------------------------- trace buffers of the module

void knl_getinputtracebuffer_(void** trace, int* channel, int* istat)
{ *istat = knl_getInputTraceBuffer(trace, zeroBased(channel)); }
void knl_getoutputtracebuffer_(void** trace, int* channel, int* istat)
{ *istat = knl_getOutputTraceBuffer(trace, zeroBased(channel)); }
void knl_getworktracebuffer_(void** trace, int* wtset, int* istat)
{ *istat = knl_getWorkTraceBuffer(trace, zeroBased(wtset)); }

void knl_bldoutputtracebuffer_(int* channel, int* traceLength, int* sampleInterval, void** templ, int* istat)
{ *istat = knl_bldOutputTraceBuffer(zeroBased(channel), *traceLength, *sampleInterval, *templ); }
void knl_bldworktracebufferf0_(int* channel, int* traceLength, int* sampleInterval, int* numTraces, int* istat)
{ *istat = knl_bldWorkTraceBuffer(zeroBased(channel), *traceLength, *sampleInterval, *numTraces, nullptr); }
void knl_bldworktracebufferf1_(int* channel, int* traceLength, int* sampleInterval, int* numTraces, void** templ, int* istat)
{ *istat = knl_bldWorkTraceBuffer(zeroBased(channel), *traceLength, *sampleInterval, *numTraces, *templ); }
void knl_bldworktracebuffer_(int* channel, int* traceLength, int* sampleInterval, int* numTraces, void** templ, int* istat)
{ *istat = knl_bldWorkTraceBuffer(zeroBased(channel), *traceLength, *sampleInterval, *numTraces, *templ); }

void knl_setinputtracebufferflag_(int* channel, int* flag)
{ setInputTraceBufferFlag(zeroBased(channel), *flag); }
void knl_isinputtracebufferflagged_(int* channel, int* flag, int* ret)
{ *ret = isInputTraceBufferFlagged(zeroBased(channel), *flag); }

// ------------------------------------------------------------------------------------ trace sets

void knl_settracebufferusescratch_(void** trace, int* use)
{ setTraceBufferUseScratch(*trace, *use); }
void knl_istracebufferusescratch(void** trace, int* use)
{ *use = isTraceBufferUseScratch(*trace); }
void knl_informtotaltracesnumber_(void** trace, int* numTraces)
{ knl_informTotalTracesNumber(*trace, *numTraces); }

void knl_gettracelength_(void** traceSet, int* value, int* istat)
{ *istat = readGeometry(*traceSet, knl_getTraceLength, value); }
void knl_gettracesampleinterval_(void** traceSet, int* value, int* istat)
{ *istat = readGeometry(*traceSet, knl_getTraceSampleInterval, value); }
void knl_getnumberoftraces_(void** traceSet, int* value, int* istat)
{ *istat = readGeometry(*traceSet, knl_getNumberOfTraces, value); }

void knl_settracelength_(void** traceSet, int* value, int* istat)
{ *istat = knl_setTraceLength(*traceSet, *value); }
void knl_settracesampleinterval_(void** traceSet, int* value, int* istat)
{ *istat = knl_setTraceSampleInterval(*traceSet, *value); }
void knl_setnumberoftraces_(void** traceSet, int* value, int* istat)
{ *istat = knl_setNumberOfTraces(*traceSet, *value); }

void knl_getdatachannelflag_(void** traceSet, int* flag)
{ *flag = knl_getDataChannelFlag(*traceSet); }
void knl_setdatachannelflag_(void** traceSet, int* flag)
{ knl_setDataChannelFlag(*traceSet, *flag); }
void knl_cleartraceset_(void** trace, int* istat)
{ *istat = knl_clearTraceSet(*trace); }

void knl_scopytracetotrace_(void** traceFrom, void** traceTo, int* copyHeader, int* copySamples, int* istat)
{ *istat = knl_copyTraceToTrace(*traceFrom, *traceTo, *copyHeader, *copySamples); }
void knl_mcopytracetotrace_(void** traceFrom, void** traceTo, int* copyHeader, int* copySamples, int* traceNoFrom, int* traceNoTo, int* istat)
{ *istat = knl_mcopyTraceToTrace(*traceFrom, *traceTo, *copyHeader, *copySamples, zeroBased(traceNoFrom), zeroBased(traceNoTo)); }

// ---------------------------------------------------------------------- messages, commands, pads

void knl_sendmessage_(int* msgType, const char* msg, int lmsg)
{ knl_sendMessage(*msgType, MessageText(msg, lmsg)); }
void knl_addi32messageargument_(int* arg)
{ knl_addI32MessageArgument(*arg); }
void knl_addi64messageargument_(int64_t* arg)
{ knl_addI64MessageArgument(*arg); }
void knl_addf32messageargument_(float* arg)
{ knl_addF32MessageArgument(*arg); }
void knl_addf64messageargument_(double* arg)
{ knl_addF64MessageArgument(*arg); }
void knl_execapplicmd_(const char* cmd, int lcmd)
{ knl_execAppliCmd(Text(cmd, lcmd)); }

void knl_plot_(int* ident, float* xpage, float* ypage, int* ipen)
{ knl_plot(*ident, *xpage, *ypage, *ipen); }
void knl_number_(int* ident, float* xpage, float* ypage, float* height, float* fpn, float* angle, int* ndec)
{ knl_number(*ident, *xpage, *ypage, *height, *fpn, *angle, *ndec); }
void knl_symbol_(int* ident, float* xpage, float* ypage, float* height, const char* cbcd, int* inteq, float* angle, int* inchar, int lcbcd)
{ knl_symbol(*ident, *xpage, *ypage, *height, Text(cbcd, lcbcd), *inteq, *angle, *inchar); }
void knl_factor_(int* ident, float* factor)
{ knl_factor(*ident, *factor); }
void knl_newpen_(int* ident, int* newpen)
{ knl_newpen(*ident, *newpen); }

// ------------------------------------------------------------ files, directories, date, metadata

void knl_fileopen_(const char* fileName, int* fileHandle, int lfileName)
{ knl_fileOpen(Text(fileName, lfileName), fileHandle); }
void knl_filecreate_(const char* fileName, int* fileHandle, int lfileName)
{ knl_fileCreate(Text(fileName, lfileName), fileHandle); }
void knl_fileclose_(int* fileHandle)
{ knl_fileClose(*fileHandle); }
void knl_iscancelled_(int* istat)
{ *istat = knl_isCancelled(); }
void knl_date_(char* datestr, int ldatestr)
{ c2fcpy(knl_currentDate(), datestr, ldatestr); }
void knl_getscratchdir_(char* dirstr, int ldirstr)
{ c2fcpy(knl_getScratchDir(), dirstr, ldirstr); }

void knl_setmetadatavalue_(int* scope, const char* name, const char* value, int lname, int lvalue)
{ knl_setMetaDataValue(*scope, MessageText(name, lname), MessageText(value, lvalue)); }
void knl_setmetadatavaluen_(int* scope, const char* name, const char* value, int* n, int lname, int lvalue)
{ knl_setMetaDataValue(*scope, MessageText(name, lname), MessageText(value, std::min(*n, lvalue))); }

// clang-format on

// -------------------------------------------------------------- what follows no family's pattern

// Deliberate: the option is C text already, as existing modules pass it.
void knl_setmoduleprocessingoption_(const char* option, int* value, int /*option_len*/)
{
    knl_setModuleProcessingOption(option, *value);
}

void knl_getlibrarytype_(void** libri, int* type, int* istat)
{
    const int kind = knl_getLibraryType(*libri);
    *istat = kind < 0 ? 1 : 0;
    if (kind >= 0)
        *type = kind;
}

// Deliberate: no answer, and `istat` keeps what the caller had in it. Modules were written against
// a function that answers nothing; one that began to would change their course.
void knl_islibraryattributeexist_(void** /*libri*/, const char* /*attKey*/, int* /*istat*/,
                                  int /*lattKey*/)
{
}

// Deliberate: the caller's text is not touched. Modules pass variables here whose contents they go
// on using.
void knl_gettraceattributedescription_(const char* /*trAttDefName*/, char* /*trAttDefDesc*/,
                                       int /*ltrAttDefName*/, int /*ltrAttDefDesc*/)
{
}

// What empty arrays point at was never allocated.
void knl_freeresource_(void** ptr)
{
    if (*ptr != emptyArrayData)
        knl_freeResource(*ptr);
}

// `resource` is the caller's storage itself, as the address of its first element arrives here. It
// may be the very block that is kept.
void knl_getmodulestructresource_(const char* attKey, void** resource, int* istat, int lattKey)
{
    const Name name(attKey, lattKey);
    *istat = getWith(ModuleResource{name}, [resource](const UniVar& value) {
        const void* block = value.getPointerValue();
        if (block != nullptr && value.getArraySize() > 0)
            std::memmove(static_cast<void*>(resource), block,
                         static_cast<size_t>(value.getArraySize()));
    });
}

void knl_setmoduleresource_(const char* attKey, void** resource, int* size, int* istat, int lattKey)
{
    *istat = setModuleResource(Name(attKey, lattKey), UniVar(static_cast<void*>(resource), *size));
}

void knl_setmodulestructresource_(const char* attKey, void** resource, int* size, int* istat,
                                  int lattKey)
{
    *istat = setModuleStructResource(Name(attKey, lattKey), static_cast<void*>(resource), *size);
}

void knl_sgettracesamples_(void** traceSet, one_float_arr* samples, int* istat)
{
    *istat = pointAtSamples(*traceSet, 0, *samples);
}

void knl_mgettracesamples_(void** traceSet, one_float_arr* samples, int* traceNo, int* istat)
{
    *istat = pointAtSamples(*traceSet, zeroBased(traceNo), *samples);
}

// The one text whose length is checked: an argument that is cut would say something else.
void knl_addstrmessageargument_(const char* arg, int larg)
{
    const int buf_size = 4096;
    VORN_ASSERT(larg < buf_size);
    knl_addStrMessageArgument(FixedText<buf_size>(arg, larg));
}

// Deliberate: never visible at first, whatever the host's default is.
void knl_createpad_(int* ident, int* type, int* align, const char* title, int ltitle)
{
    *ident = knl_createPad(*type, *align, 0, Text(title, ltitle));
}

// Deliberate: C text, flags and mode pass as they are; the unit number belongs to the caller.
int knl_OpenFile(const char* fileName, int* openFlags, int* createMode, int* /*unitNumber*/,
                 int /*filenameLength*/)
{
    return open(fileName, *openFlags, static_cast<mode_t>(*createMode));
}
