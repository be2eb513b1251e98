#include "private/TraceAttributeList.h"

#include "SeisTrace.h"
#include "UniVar.h"
#include "private/RecentNames.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

// A module has few trace sets. More than these are looked up again and again.
constexpr std::size_t mostSets = 16;

// clang-format off
constexpr traceAttVarType headerType(const int*)     { return int32AttType; }
constexpr traceAttVarType headerType(const int64_t*) { return int64AttType; }
constexpr traceAttVarType headerType(const float*)   { return float32AttType; }
constexpr traceAttVarType headerType(const double*)  { return float64AttType; }

void unpack(const UniVar& value, int* out)     { *out = value.getI32Value(); }
void unpack(const UniVar& value, int64_t* out) { *out = value.getI64Value(); }
void unpack(const UniVar& value, float* out)   { *out = value.getF32Value(); }
void unpack(const UniVar& value, double* out)  { *out = value.getF64Value(); }
// clang-format on

// Whether the header holds the attribute as one number of exactly this type: then it is copied.
template <typename T>
bool isPlain(const SeisTrace& trace, const traceAttIdent& ident)
{
    return ident.type == headerType(static_cast<const T*>(nullptr)) &&
           ident.size == static_cast<int>(sizeof(T)) && trace.holds(ident);
}

} // namespace

TraceAttributeList::TraceAttributeList(ModuleEntity& module, std::vector<std::string> attributes)
    : owner(module), names(std::move(attributes))
{
}

template <typename Value>
std::size_t TraceAttributeList::countFor(std::span<Value> values) const
{
    return std::min(values.size(), names.size());
}

int TraceAttributeList::countPresent(const SeisTraceSet& set, int* types, std::size_t count)
{
    const Places& places = placesIn(set);
    int present = 0;
    for (std::size_t i = 0; i < std::min(count, names.size()); ++i) {
        const Definition* definition = places.definitions[i];
        if (types != nullptr)
            types[i] = definition != nullptr ? definition->second.type : undefinedAttType;
        present += definition != nullptr ? 1 : 0;
    }
    return present;
}

template <typename T>
int TraceAttributeList::get(SeisTraceSet& set, int traceNo, std::span<T> values)
{
    if (traceNo < 0)
        return 0;
    const Places& places = placesIn(set);
    const SeisTrace* trace = nullptr;
    int written = 0;
    for (std::size_t i = 0; i < countFor(values); ++i) {
        const Definition* definition = places.definitions[i];
        if (definition == nullptr)
            continue;
        // Asking for attributes that the set does not have makes no trace.
        if (written++ == 0)
            trace = set.getTrace(traceNo, true);
        const traceAttIdent& ident = definition->second;
        if (trace != nullptr && isPlain<T>(*trace, ident))
            std::memcpy(&values[i], trace->traceHeader + ident.offset, sizeof(T));
        else
            unpack(trace != nullptr ? trace->getAttribute(ident) : UniVar(), &values[i]);
    }
    return written;
}

template <typename T>
int TraceAttributeList::set(SeisTraceSet& set, int traceNo, std::span<const T> values)
{
    const Places& places = placesIn(set);
    const std::size_t count = countFor(values);
    int written = 0;
    const auto end = places.definitions.begin() + static_cast<std::ptrdiff_t>(count);
    if (std::find(places.definitions.begin(), end, nullptr) != end) {
        // The order of definitions and growths decides where attributes lie, so it is kept.
        for (std::size_t i = 0; i < count; ++i)
            written += set.setAttribute(names[i], UniVar(values[i]), traceNo);
        return written;
    }
    SeisTrace* trace = count > 0 ? set.getTrace(traceNo, true) : nullptr;
    if (trace == nullptr)
        return 0;
    for (std::size_t i = 0; i < count; ++i) {
        const traceAttIdent& ident = places.definitions[i]->second;
        if (isPlain<T>(*trace, ident))
            std::memcpy(trace->traceHeader + ident.offset, &values[i], sizeof(T));
        else
            trace->setAttribute(ident, UniVar(values[i]));
    }
    return static_cast<int>(count);
}

template int TraceAttributeList::get(SeisTraceSet&, int, std::span<int>);
template int TraceAttributeList::get(SeisTraceSet&, int, std::span<int64_t>);
template int TraceAttributeList::get(SeisTraceSet&, int, std::span<float>);
template int TraceAttributeList::get(SeisTraceSet&, int, std::span<double>);
template int TraceAttributeList::set(SeisTraceSet&, int, std::span<const int>);
template int TraceAttributeList::set(SeisTraceSet&, int, std::span<const int64_t>);
template int TraceAttributeList::set(SeisTraceSet&, int, std::span<const float>);
template int TraceAttributeList::set(SeisTraceSet&, int, std::span<const double>);

const TraceAttributeList::Places& TraceAttributeList::placesIn(const SeisTraceSet& set)
{
    if (current >= known.size() || known[current].set != &set) {
        current = 0;
        while (current < known.size() && known[current].set != &set)
            ++current;
        if (current == mostSets)
            current = nextToGo++ % mostSets;
        else if (current == known.size())
            known.emplace_back();
    }
    Places& places = known[current];
    if (!areValid(places, set))
        lookUp(places, set);
    return places;
}

// No two sets have the same layout number, also where one lies at the address of a former one. A
// host that assigns a map to another reuses its entries under other names.
bool TraceAttributeList::areValid(const Places& places, const SeisTraceSet& set) const
{
    if (places.layoutNumber != set.layoutNumber || places.count != set.attrDefs.size())
        return false;
    if (places.count == 0)
        return true;
    if (places.first != &*set.attrDefs.begin() || places.last != &*set.attrDefs.rbegin())
        return false;
    for (std::size_t i = 0; i < names.size(); ++i) {
        if (places.definitions[i] != nullptr && !isSameName(places.definitions[i]->first, names[i]))
            return false;
    }
    return true;
}

void TraceAttributeList::lookUp(Places& places, const SeisTraceSet& set) const
{
    places.definitions.clear();
    for (const std::string& name : names) {
        const auto found = set.attrDefs.find(name);
        places.definitions.push_back(found != set.attrDefs.end() ? &*found : nullptr);
    }
    places.set = &set;
    places.layoutNumber = set.layoutNumber;
    places.count = set.attrDefs.size();
    places.first = places.count != 0 ? &*set.attrDefs.begin() : nullptr;
    places.last = places.count != 0 ? &*set.attrDefs.rbegin() : nullptr;
}
