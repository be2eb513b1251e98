// The facade of the watched library: every function tells the observer, and passes on to the one of
// the same name in MOXKernel.cpp, which is compiled into the namespace `unwatched` here.

#include "MOXKernel.h"
#include "SeisTraceSet.h"
#include "private/MOXKernel_families.h"
#include "watched/WatchedCalls.h"

#include <dlfcn.h>
#include <execinfo.h>

#include <array>
#include <string>
#include <type_traits>

namespace unwatched {

#define WATCHED(type, name, parameters, arguments) type name parameters;
#include "watched/watched_functions.inc"
#undef WATCHED
float* getTraceSamples(void* traceSet, int traceNo);
int setTraceSamples(void* traceSet, const float* samples, int traceNo);
void* bldAttributeList(const char* const* names, int count);
int getAttributeListPresence(void* list, void* traceSet, int* types);
int getTraceAttributeDef(const char* name, int* type, int* dim, int* slot, int* bitA, int* bitZ,
                         int* cstType, int* coefficient);
int packMetaDataValues(char** buffer);

} // namespace unwatched

namespace families::unwatched {

const UniVar* findModuleParameter(const char* key);
const UniVar* findModuleResource(const char* key);
bool fetchTraceAttribute(void* traceSet, const char* key, int traceNo, UniVar& value);
int countPresent(void* list, void* traceSet, int* types, int count);
template <typename T>
int getAttributes(void* list, void* traceSet, int traceNo, T* values, int count);
template <typename T>
int setAttributes(void* list, void* traceSet, int traceNo, const T* values, int count);
int setModuleStructResource(const char* attKey, const void* bytes, int size);

} // namespace families::unwatched

namespace {

using watched::Argument;
using watched::Numbers;

watched::Observer* observer = nullptr;
thread_local int depth = 0; // functions of the kernel that run on this thread, one in the other

struct Deeper
{
    Deeper() { ++depth; }
    ~Deeper() { --depth; }
    Deeper(const Deeper&) = delete;
    Deeper& operator=(const Deeper&) = delete;
};

// The observer may call the kernel: nobody sees that.
template <typename Function, typename ResultOf>
auto watch(const char* name, std::initializer_list<Argument> arguments, Function function,
           ResultOf resultOf)
{
    if (observer == nullptr || depth > 0)
        return function();
    const Deeper deeper;
    const watched::Call call{name, {arguments.begin(), arguments.size()}};
    observer->called(call);
    if constexpr (std::is_void_v<decltype(function())>) {
        function();
        if (observer != nullptr)
            observer->returned(call, Argument());
    } else {
        auto result = function();
        if (observer != nullptr)
            observer->returned(call, resultOf(result));
        return result;
    }
}

template <typename Function>
auto watch(const char* name, std::initializer_list<Argument> arguments, Function function)
{
    return watch(name, arguments, function, [](const auto& result) { return Argument(result); });
}

void announce(const char* name, std::initializer_list<Argument> handles)
{
    if (observer == nullptr || depth > 0)
        return;
    const Deeper deeper;
    observer->passed({name, {handles.begin(), handles.size()}});
}

template <typename T>
constexpr Numbers::Type typeOf()
{
    if constexpr (std::is_same_v<T, int>)
        return Numbers::Type::int32;
    else if constexpr (std::is_same_v<T, int64_t>)
        return Numbers::Type::int64;
    else if constexpr (std::is_same_v<T, float>)
        return Numbers::Type::float32;
    else
        return Numbers::Type::float64;
}

template <typename T>
Numbers input(const T* first, int64_t count)
{
    return {typeOf<T>(), first, first != nullptr ? count : 0, false};
}

template <typename T>
Numbers output(T* first, int64_t count)
{
    return {typeOf<T>(), first, first != nullptr ? count : 0, true};
}

constexpr int everyName = 0x7fffffff;

int64_t sizeOf(void* list, int count)
{
    const int size = unwatched::getAttributeListSize(list);
    return count < size ? (count > 0 ? count : 0) : size;
}

// How many samples setTraceSamples() takes: as many as the trace has, whatever length the set has
// been given since, or gives to a trace that it makes.
int64_t samplesTaken(void* handle, int traceNo)
{
    const auto* set = static_cast<const SeisTraceSet*>(handle);
    if (set == nullptr || traceNo < 0)
        return 0;
    if (traceNo >= set->getNumberOfTraces())
        return set->getTraceLength();
    const SeisTrace* trace = set->traces[static_cast<std::size_t>(traceNo)];
    return trace != nullptr ? trace->traceLength : 0;
}

// The frame of the module that called lies behind those of this library; the one before it is the
// exported function.
std::string interfaceFunction(const watched::Call& call)
{
    std::array<void*, 32> frames;
    const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
    Dl_info own{};
    if (dladdr(reinterpret_cast<void*>(&vornWatchCalls), &own) == 0)
        return call.function;
    // This function (a sanitizer stands in front of it), the observer, then what is looked for.
    enum class Part
    {
        front,
        here,
        others,
        facade
    } part = Part::front;
    std::string name;
    for (int i = 0; i < count; ++i) {
        Dl_info info{};
        const bool known = dladdr(frames[static_cast<std::size_t>(i)], &info) != 0;
        const bool isOwn = known && info.dli_fbase == own.dli_fbase;
        if (part == Part::facade && !isOwn)
            break;
        if (part == Part::front && isOwn)
            part = Part::here;
        if (part == Part::here && !isOwn)
            part = Part::others;
        if (part == Part::others && isOwn)
            part = Part::facade;
        if (part == Part::facade)
            name = info.dli_sname != nullptr ? info.dli_sname : "";
    }
    // Exported names of C++ are mangled: those are functions of the facade.
    return name.empty() || name.starts_with("_Z") ? call.function : name;
}

} // namespace

const watched::Watch* vornWatchCalls(watched::Observer* next)
{
    static const watched::Watch watch{interfaceFunction};
    observer = next;
    return &watch;
}

// -------------------------------------------------------------------------------------- the facade

#define WATCHED_ARGUMENTS(...)                                                                     \
    {                                                                                              \
        __VA_ARGS__                                                                                \
    }
#define WATCHED(type, name, parameters, arguments)                                                 \
    type name parameters                                                                           \
    {                                                                                              \
        return watch(#name, WATCHED_ARGUMENTS arguments,                                           \
                     [&] { return unwatched::name arguments; });                                   \
    }
#include "watched/watched_functions.inc"
#undef WATCHED

float* getTraceSamples(void* traceSet, int traceNo)
{
    return watch(
        "getTraceSamples", {traceSet, traceNo},
        [&] { return unwatched::getTraceSamples(traceSet, traceNo); },
        [&](float* samples) {
            return samples == nullptr
                       ? Argument(input(samples, 0))
                       : Argument(input(samples, families::getTraceSampleCount(traceSet, traceNo)));
        });
}

int setTraceSamples(void* traceSet, const float* samples, int traceNo)
{
    announce("setTraceSamples", {traceSet});
    return watch("setTraceSamples",
                 {traceSet, input(samples, samplesTaken(traceSet, traceNo)), traceNo},
                 [&] { return unwatched::setTraceSamples(traceSet, samples, traceNo); });
}

void* bldAttributeList(const char* const* names, int count)
{
    return watch("bldAttributeList", {watched::Names{names, count}, count},
                 [&] { return unwatched::bldAttributeList(names, count); });
}

int getAttributeListPresence(void* list, void* traceSet, int* types)
{
    announce("getAttributeListPresence", {list, traceSet});
    return watch("getAttributeListPresence",
                 {list, traceSet, output(types, sizeOf(list, everyName))},
                 [&] { return unwatched::getAttributeListPresence(list, traceSet, types); });
}

int getTraceAttributeDef(const char* name, int* type, int* dim, int* slot, int* bitA, int* bitZ,
                         int* cstType, int* coefficient)
{
    return watch("getTraceAttributeDef",
                 {name, output(type, 1), output(dim, 1), output(slot, 1), output(bitA, 1),
                  output(bitZ, 1), output(cstType, 1), output(coefficient, 1)},
                 [&] {
                     return unwatched::getTraceAttributeDef(name, type, dim, slot, bitA, bitZ,
                                                            cstType, coefficient);
                 });
}

int packMetaDataValues(char** buffer)
{
    return watch("packMetaDataValues", {}, [&] { return unwatched::packMetaDataValues(buffer); });
}

int getTraceAttributes(void* list, void* traceSet, int traceNo, int* values)
{
    return families::getAttributes(list, traceSet, traceNo, values, everyName);
}

int getTraceAttributes(void* list, void* traceSet, int traceNo, int64_t* values)
{
    return families::getAttributes(list, traceSet, traceNo, values, everyName);
}

int getTraceAttributes(void* list, void* traceSet, int traceNo, float* values)
{
    return families::getAttributes(list, traceSet, traceNo, values, everyName);
}

int getTraceAttributes(void* list, void* traceSet, int traceNo, double* values)
{
    return families::getAttributes(list, traceSet, traceNo, values, everyName);
}

int setTraceAttributes(void* list, void* traceSet, int traceNo, const int* values)
{
    return families::setAttributes(list, traceSet, traceNo, values, everyName);
}

int setTraceAttributes(void* list, void* traceSet, int traceNo, const int64_t* values)
{
    return families::setAttributes(list, traceSet, traceNo, values, everyName);
}

int setTraceAttributes(void* list, void* traceSet, int traceNo, const float* values)
{
    return families::setAttributes(list, traceSet, traceNo, values, everyName);
}

int setTraceAttributes(void* list, void* traceSet, int traceNo, const double* values)
{
    return families::setAttributes(list, traceSet, traceNo, values, everyName);
}

// ------------------------------------------------- what the C and the Fortran form call besides it

namespace families {

// A value that is found, or nothing: what a getter of the facade returns for it.
static Argument found(const UniVar* value)
{
    return value != nullptr ? Argument(*value) : Argument();
}

const UniVar* findModuleParameter(const char* key)
{
    return watch(
        "getModuleParameter", {key}, [&] { return unwatched::findModuleParameter(key); }, found);
}

const UniVar* findModuleResource(const char* key)
{
    return watch(
        "getModuleResource", {key}, [&] { return unwatched::findModuleResource(key); }, found);
}

// Numbers that go straight to or from the header would not be seen: there are none here, and the
// forms go by fetchTraceAttribute() and setTraceAttribute(), with the same result.
unsigned char* findTraceNumber(void*, const char*, int, traceAttVarType, int)
{
    return nullptr;
}

bool fetchTraceAttribute(void* traceSet, const char* key, int traceNo, UniVar& value)
{
    return watch(
        "getTraceAttribute", {traceSet, key, traceNo},
        [&] { return unwatched::fetchTraceAttribute(traceSet, key, traceNo, value); },
        [&](bool exists) { return exists ? Argument(value) : Argument(); });
}

int countPresent(void* list, void* traceSet, int* types, int count)
{
    announce("getAttributeListPresence", {list, traceSet});
    return watch("getAttributeListPresence", {list, traceSet, output(types, sizeOf(list, count))},
                 [&] { return unwatched::countPresent(list, traceSet, types, count); });
}

template <typename T>
int getAttributes(void* list, void* traceSet, int traceNo, T* values, int count)
{
    announce("getTraceAttributes", {list, traceSet});
    return watch("getTraceAttributes",
                 {list, traceSet, traceNo, output(values, sizeOf(list, count))},
                 [&] { return unwatched::getAttributes(list, traceSet, traceNo, values, count); });
}

template <typename T>
int setAttributes(void* list, void* traceSet, int traceNo, const T* values, int count)
{
    announce("setTraceAttributes", {list, traceSet});
    return watch("setTraceAttributes",
                 {list, traceSet, traceNo, input(values, sizeOf(list, count))},
                 [&] { return unwatched::setAttributes(list, traceSet, traceNo, values, count); });
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
    return watch("setModuleStructResource", {attKey, Argument(bytes), size},
                 [&] { return unwatched::setModuleStructResource(attKey, bytes, size); });
}

} // namespace families
