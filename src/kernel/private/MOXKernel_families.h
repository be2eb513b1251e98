/// @file MOXKernel_families.h
///
/// Private to the C and the Fortran form: the rules of their families of functions.
///
/// Two thirds of the interface is one of eleven types of value times the places where values live.
/// A *source* says where one named value lives (and a name can be missing there); a template says
/// what every function of a kind does with it. An exported function is the one line that joins the
/// two:
///
///     int knl_getF32LibraryParameter(void* libri, const char* attKey, float* var)
///     { return getValue(LibraryParameter{libri, attKey}, var); }
///
/// A source offers `find()` where the value itself can be shown, `fetch(value)` where one look-up
/// gives both answers, or else `present()` and `value()`; and `store(value)` where modules may
/// write. Presence comes first, always: getting an absent value would make it present.
///
/// Scalars pass without any allocation. An array is fetched once, and kept by the job until the
/// running entry point returns.
#ifndef MOXKERNEL_FAMILIES_H
#define MOXKERNEL_FAMILIES_H

#include "GroupEntity.h"
#include "MOXKernel.h"
#include "TraceAttribute.h"
#include "UniVar.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

namespace families {

/// Stores a value for as long as the running entry point runs, so that what it holds can be handed
/// to the module.
const UniVar& keepUntilReturn(UniVar value);

/// Keeps a copy of `size` bytes (none for a negative size) as a resource of the running module. The
/// copy lives as long as the module or until the name gets another; it is not charged to the
/// module. 1 when kept, 0 without a running module.
int setModuleStructResource(const char* attKey, const void* bytes, int size);

/// The running module's value under this name, or null; the module keeps it.
const UniVar* findModuleParameter(const char* key);
const UniVar* findModuleResource(const char* key);

/// As SeisTraceSet::findNumber; null for a null handle or name.
unsigned char* findTraceNumber(void* traceSet, const char* key, int traceNo, traceAttVarType type,
                               int size);

/// The value of an attribute that the set has; false, and nothing changed, when it has not.
bool fetchTraceAttribute(void* traceSet, const char* key, int traceNo, UniVar& value);

/// Samples that may be touched in a trace: the set's trace length, or less where the trace itself
/// is shorter. The set's trace length where the trace has no samples; 0 for a null handle.
int getTraceSampleCount(void* traceSet, int traceNo);

/// @name Lists of attributes
/// As the facade's functions of these names, for the first `count` names of the list at most.
/// @{
int countPresent(void* list, void* traceSet, int* types, int count);
template <typename T>
int getAttributes(void* list, void* traceSet, int traceNo, T* values, int count);
template <typename T>
int setAttributes(void* list, void* traceSet, int traceNo, const T* values, int count);
/// @}

// clang-format off
inline traceAttVarType headerType(const int*)     { return int32AttType; }
inline traceAttVarType headerType(const int64_t*) { return int64AttType; }
inline traceAttVarType headerType(const float*)   { return float32AttType; }
inline traceAttVarType headerType(const double*)  { return float64AttType; }
// clang-format on

// --------------------------------------------------------------------------------------- sources

struct ModuleParameter
{
    const char* key;

    const UniVar* find() const { return findModuleParameter(key); }
};

struct ModuleResource
{
    const char* key;

    const UniVar* find() const { return findModuleResource(key); }
};

struct GroupParameter
{
    void* group;
    const char* key;
    int row;

    bool present() const { return isGroupParameterPresent(group, key, row) != 0; }
    UniVar value() const { return getGroupParameter(group, key, row); }
    int store(const UniVar& value) const { return setGroupParameter(group, key, row, value); }
};

struct LibraryParameter
{
    void* library;
    const char* key;

    bool present() const { return isLibraryParameterPresent(library, key) != 0; }
    UniVar value() const { return getLibraryParameter(library, key); }
    int store(const UniVar& value) const { return setLibraryParameter(library, key, value); }
};

struct AttributeOfTrace
{
    void* traceSet;
    const char* key;
    int traceNo;

    // Every trace has the attributes of its set; below the first one there is no trace.
    bool fetch(UniVar& value) const
    {
        return traceNo >= 0 && fetchTraceAttribute(traceSet, key, traceNo, value);
    }

    // The number goes straight from the header or to it where nothing is to be converted, which is
    // what modules do with every trace. False: nothing has been done.
    template <typename T>
    bool readNumber(T* out) const
    {
        const unsigned char* from =
            findTraceNumber(traceSet, key, traceNo, headerType(out), int{sizeof(T)});
        if (from != nullptr)
            std::memcpy(out, from, sizeof(T));
        return from != nullptr;
    }
    template <typename T>
    bool writeNumber(T value) const
    {
        unsigned char* to =
            findTraceNumber(traceSet, key, traceNo, headerType(&value), int{sizeof(T)});
        if (to != nullptr)
            std::memcpy(to, &value, sizeof(T));
        return to != nullptr;
    }
    int store(const UniVar& value) const
    {
        return setTraceAttribute(traceSet, key, value, traceNo);
    }
};

// ----------------------------------------------------------- from a value to what the caller wants

// clang-format off
inline void unpack(const UniVar& value, int* out)     { *out = value.getI32Value(); }
inline void unpack(const UniVar& value, int64_t* out) { *out = value.getI64Value(); }
inline void unpack(const UniVar& value, float* out)   { *out = value.getF32Value(); }
inline void unpack(const UniVar& value, double* out)  { *out = value.getF64Value(); }

// The elements stay the value's own; null when it is not an array of exactly this type.
inline void unpack(const UniVar& value, int** out)     { *out = value.getI32ArrayValue(); }
inline void unpack(const UniVar& value, int64_t** out) { *out = value.getI64ArrayValue(); }
inline void unpack(const UniVar& value, float** out)   { *out = value.getF32ArrayValue(); }
inline void unpack(const UniVar& value, double** out)  { *out = value.getF64ArrayValue(); }
// clang-format on

// -------------------------------------------------------------------------------------- families

// Every getter of both forms: 1 after `take` has had the value, or 0 and outputs left alone.
template <typename Source, typename Take>
int getWith(const Source& source, Take take)
{
    if constexpr (requires { source.find(); }) {
        const UniVar* value = source.find();
        if (value == nullptr)
            return 0;
        take(*value);
    } else if constexpr (requires(UniVar & value) { source.fetch(value); }) {
        UniVar value;
        if (!source.fetch(value))
            return 0;
        take(std::move(value));
    } else {
        if (!source.present())
            return 0;
        take(source.value());
    }
    return 1;
}

template <typename Source, typename T>
int getValue(const Source& source, T* out)
{
    if constexpr (requires { source.readNumber(out); }) {
        if (source.readNumber(out))
            return 1;
    }
    return getWith(source, [out](const UniVar& value) { unpack(value, out); });
}

template <typename Source, typename T>
int getArray(const Source& source, T** out, int* size)
{
    return getWith(source, [out, size](UniVar value) {
        const UniVar& kept = keepUntilReturn(std::move(value));
        unpack(kept, out);
        *size = kept.getArraySize();
    });
}

template <typename Source>
int getText(const Source& source, char* out)
{
    return getWith(source,
                   [out](const UniVar& value) { std::strcpy(out, value.getStrValue().c_str()); });
}

/// Copies at most `n` bytes, the NUL included, and nothing for an `n` below 1; the length of the
/// whole text, with which a caller can ask again for more.
int copyBounded(const std::string& text, char* out, int n);

template <typename Source>
int getTextBounded(const Source& source, char* out, int n)
{
    int length = -1;
    getWith(source,
            [&](const UniVar& value) { length = copyBounded(value.getStrValue(), out, n); });
    return length;
}

// Every element as a value of its own: whatever single numbers convert to, elements do, too.
template <typename From, typename T>
void convertElements(const From* from, int count, T* out)
{
    for (int i = 0; i < count; ++i)
        unpack(UniVar(from[i]), out + i);
}

template <typename Source, typename T>
int copyNumbers(const Source& source, T* out, int n)
{
    int count = -1;
    getWith(source, [&](const UniVar& value) {
        const UniVarType type = value.getType();
        const bool isArray = type >= int32ArrayType && type <= float64ArrayType;
        count = isArray ? value.getArraySize() : 1;
        const int copied = std::min(count, n);
        if (type == int32ArrayType)
            convertElements(value.getI32ArrayValue(), copied, out);
        else if (type == int64ArrayType)
            convertElements(value.getI64ArrayValue(), copied, out);
        else if (type == float32ArrayType)
            convertElements(value.getF32ArrayValue(), copied, out);
        else if (type == float64ArrayType)
            convertElements(value.getF64ArrayValue(), copied, out);
        else if (copied == 1)
            unpack(value, out);
    });
    return count;
}

template <typename Source>
int getLibrary(const Source& source, void** out)
{
    return getWith(source, [out](const UniVar& value) { *out = value.getLibraryValue(); });
}

template <typename Source>
int getGroup(const Source& source, void** out)
{
    return getWith(source, [out](const UniVar& value) { *out = value.getGroupValue(); });
}

template <typename Source>
int getPointer(const Source& source, void** out)
{
    return getWith(source, [out](const UniVar& value) { *out = value.getPointerValue(); });
}

template <typename Source, typename T>
int setValue(const Source& source, T value)
{
    if constexpr (requires { source.writeNumber(value); }) {
        if (source.writeNumber(value))
            return 1;
    }
    return source.store(UniVar(value));
}

template <typename Source, typename T>
int setArray(const Source& source, const T* elements, int size)
{
    return source.store(UniVar(elements, size));
}

template <typename Source>
int setText(const Source& source, const char* text)
{
    return source.store(UniVar(std::string(text == nullptr ? "" : text)));
}

// A group once stored has no owner: values refer to it, and the kernel never deletes groups.
template <typename Source>
int getOrMakeGroup(const Source& source, void** out)
{
    if (!source.present()) {
        auto made = std::make_unique<GroupEntity>();
        if (source.store(UniVar(made.get())) != 0)
            static_cast<void>(made.release());
    }
    return getGroup(source, out);
}

} // namespace families

#endif
