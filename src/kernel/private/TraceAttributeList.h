/// @file TraceAttributeList.h
///
/// Private to the kernel: named attributes that a module reads or writes together, trace by trace.
#ifndef TRACEATTRIBUTELIST_H
#define TRACEATTRIBUTELIST_H

#include "SeisTraceSet.h"
#include "TraceAttribute.h"
#include "private/RecentNames.h"

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

class ModuleEntity;

/// A list of attribute names whose places in a trace set's headers are looked up once and used for
/// every trace. A module that passes on a whole trace header asks for a hundred names per trace;
/// looking each of them up costs several times what reading the value does.
///
/// Every use checks that the set's layout is still the one that was looked up, and that each entry
/// of its attribute map still has its name and its place; otherwise the names are looked up again.
/// So a place that changes is seen at once. A host that changes the map by hand is noticed as far
/// as RecentNames notices it.
///
/// Names that are neighbours in the list and in the headers, as those of a whole trace header are,
/// are copied together.
///
/// Values, conversions, traces and headers that come into being are those of the functions by name,
/// called for one name after the other.
class TraceAttributeList
{
public:
    /// A list that `owner` will delete.
    TraceAttributeList(ModuleEntity& owner, std::vector<std::string> names);

    ModuleEntity& getOwner() const { return owner; }
    int getSize() const { return static_cast<int>(names.size()); }

    /// How many of the first `count` names the set has. `types`, unless null, gets how the set
    /// stores each of them: a traceAttVarType, undefinedAttType for one that it does not have.
    int countPresent(const SeisTraceSet& set, int* types, std::size_t count);

    /// Reads the attributes of trace `traceNo`, as many as there is room for. Values of attributes
    /// that the set does not have stay as they are. Returns how many have been written.
    template <typename T>
    int get(SeisTraceSet& set, int traceNo, std::span<T> values);

    /// Writes the attributes of trace `traceNo`, as many as there are values, and defines those
    /// that the set does not have. Returns how many have been written.
    template <typename T>
    int set(SeisTraceSet& set, int traceNo, std::span<const T> values);

private:
    using Definition = std::map<std::string, traceAttIdent>::value_type;

    /// Attributes that follow each other in the list, and numbers of one type that do so in the
    /// headers, too. Any other attribute is a run of its own.
    struct Run
    {
        traceAttVarType type = undefinedAttType; // undefined: not a number
        std::size_t index = 0;                   // of the first one, in the list
        std::size_t entry = 0;                   // of the first one, among the entries
        std::size_t count = 0;
        int offset = 0; // of the first one, in the headers
    };

    /// An entry of a set's attribute map as it was looked up.
    struct Entry
    {
        const Definition* definition;
        traceAttIdent ident;
        NameToCompare name;
    };

    /// Where the names stand in one set's attribute map.
    struct Places
    {
        const SeisTraceSet* set = nullptr;
        int64_t layoutNumber = 0;
        std::size_t count = 0; // of the map's entries
        const Definition* first = nullptr;
        const Definition* last = nullptr;
        std::vector<const Definition*> definitions; // by name; null: the set does not have it
        std::vector<Entry> entries;                 // those that the set has
        std::vector<Run> runs;                      // of those that the set has
        std::size_t firstMissing = 0;               // that it does not have; the size of the list
    };

    const Places& placesIn(const SeisTraceSet& set);
    bool areValid(const Places& places, const SeisTraceSet& set) const;
    void lookUp(Places& places, const SeisTraceSet& set) const;
    static void findRuns(Places& places);
    template <typename T>
    static bool isPlainIn(const SeisTrace& trace, const Run& run);
    template <typename Value>
    std::size_t countFor(std::span<Value> values) const;

    ModuleEntity& owner;
    const std::vector<std::string> names;
    std::vector<Places> known; // of the sets met so far
    std::size_t current = 0;   // the set used last
    std::size_t nextToGo = 0;  // whose place a new set takes when too many are known
};

#endif
