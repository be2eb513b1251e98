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

// Bytes of a number of that type; 0 for what is not one.
int numberSize(traceAttVarType type)
{
    if (type == int32AttType || type == float32AttType)
        return 4;
    return type == int64AttType || type == float64AttType ? 8 : 0;
}

bool isSameIdent(const traceAttIdent& a, const traceAttIdent& b)
{
    static_assert(sizeof(traceAttIdent) == 4 * sizeof(int), "it has nothing but four numbers");
    return std::memcmp(&a, &b, sizeof a) == 0;
}

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

// Whether the header of `trace` holds the whole run as numbers of exactly this type.
template <typename T>
bool TraceAttributeList::isPlainIn(const SeisTrace& trace, const Run& run)
{
    return run.type == headerType(static_cast<const T*>(nullptr)) && trace.traceHeader != nullptr &&
           run.offset + static_cast<int64_t>(run.count * sizeof(T)) <= trace.traceHeaderSize;
}

template <typename T>
int TraceAttributeList::get(SeisTraceSet& set, int traceNo, std::span<T> values)
{
    if (traceNo < 0)
        return 0;
    const Places& places = placesIn(set);
    const std::size_t count = countFor(values);
    const SeisTrace* trace = nullptr;
    std::size_t written = 0;
    for (const Run& run : places.runs) {
        if (run.index >= count)
            break;
        // Asking for attributes that the set does not have makes no trace.
        if (written == 0)
            trace = set.getTrace(traceNo, true);
        const std::size_t some = std::min(run.count, count - run.index);
        written += some;
        if (trace != nullptr && isPlainIn<T>(*trace, run)) {
            std::memcpy(&values[run.index], trace->traceHeader + run.offset, some * sizeof(T));
            continue;
        }
        for (std::size_t k = 0; k < some; ++k) {
            const std::size_t i = run.index + k;
            const traceAttIdent& ident = places.entries[run.entry + k].ident;
            if (trace != nullptr && isPlain<T>(*trace, ident))
                std::memcpy(&values[i], trace->traceHeader + ident.offset, sizeof(T));
            else
                unpack(trace != nullptr ? trace->getAttribute(ident) : UniVar(), &values[i]);
        }
    }
    return static_cast<int>(written);
}

template <typename T>
int TraceAttributeList::set(SeisTraceSet& set, int traceNo, std::span<const T> values)
{
    const Places& places = placesIn(set);
    const std::size_t count = countFor(values);
    if (places.firstMissing < count) {
        // The order of definitions and growths decides where attributes lie, so it is kept.
        int written = 0;
        for (std::size_t i = 0; i < count; ++i)
            written += set.setAttribute(names[i], UniVar(values[i]), traceNo);
        return written;
    }
    SeisTrace* trace = count > 0 ? set.getTrace(traceNo, true) : nullptr;
    if (trace == nullptr)
        return 0;
    for (const Run& run : places.runs) {
        if (run.index >= count)
            break;
        const std::size_t some = std::min(run.count, count - run.index);
        if (trace != nullptr && isPlainIn<T>(*trace, run)) {
            std::memcpy(trace->traceHeader + run.offset, &values[run.index], some * sizeof(T));
            continue;
        }
        for (std::size_t k = 0; k < some; ++k) {
            const std::size_t i = run.index + k;
            const traceAttIdent& ident = places.entries[run.entry + k].ident;
            if (isPlain<T>(*trace, ident))
                std::memcpy(trace->traceHeader + ident.offset, &values[i], sizeof(T));
            else
                trace->setAttribute(ident, UniVar(values[i]));
        }
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
    return std::all_of(places.entries.begin(), places.entries.end(), [](const Entry& entry) {
        return isSameIdent(entry.definition->second, entry.ident) &&
               entry.name.is(entry.definition->first);
    });
}

void TraceAttributeList::lookUp(Places& places, const SeisTraceSet& set) const
{
    places.definitions.assign(names.size(), nullptr);
    places.entries.clear();
    places.entries.reserve(names.size());
    places.firstMissing = names.size();
    for (std::size_t i = 0; i < names.size(); ++i) {
        const auto found = set.attrDefs.find(names[i]);
        if (found == set.attrDefs.end()) {
            places.firstMissing = std::min(places.firstMissing, i);
            continue;
        }
        places.definitions[i] = &*found;
        places.entries.push_back({&*found, found->second, NameToCompare(names[i])});
    }
    findRuns(places);
    places.set = &set;
    places.layoutNumber = set.layoutNumber;
    places.count = set.attrDefs.size();
    places.first = places.count != 0 ? &*set.attrDefs.begin() : nullptr;
    places.last = places.count != 0 ? &*set.attrDefs.rbegin() : nullptr;
}

void TraceAttributeList::findRuns(Places& places)
{
    places.runs.clear();
    std::size_t entry = 0;
    for (std::size_t i = 0; i < places.definitions.size(); ++i) {
        if (places.definitions[i] == nullptr)
            continue;
        const traceAttIdent& ident = places.entries[entry].ident;
        const bool isNumber =
            ident.offset >= 0 && ident.size > 0 && ident.size == numberSize(ident.type);
        Run* last = places.runs.empty() ? nullptr : &places.runs.back();
        if (isNumber && last != nullptr && last->type == ident.type &&
            last->index + last->count == i &&
            last->offset + static_cast<int64_t>(last->count) * ident.size == ident.offset)
            ++last->count;
        else
            places.runs.push_back(
                {isNumber ? ident.type : undefinedAttType, i, entry, 1, ident.offset});
        ++entry;
    }
}
