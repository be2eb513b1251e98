/// @file GroupEntity.h
///
/// A group of parameters that a module's configuration repeats.
#ifndef GROUPENTITY_H
#define GROUPENTITY_H

#include "UniVar.h"
#include "vorn_export.h"

#include <map>
#include <string>
#include <vector>

/// A numbered list of occurrences, each a set of named values: one occurrence per repetition of the
/// group in the configuration. Indices count from 0.
///
/// Setting and getting make every missing occurrence up to the index they are given; nothing ever
/// shrinks the list but the destructor. A negative index is not an occurrence: see each function.
///
/// A group travels inside a UniVar as a `groupType` and reaches modules as an untyped handle.
/// Neither the value nor the kernel ever deletes it; it must outlive the values that refer to it.
class VORN_EXPORT GroupEntity
{
public:
    std::vector<std::map<std::string, UniVar>> groupParams; ///< values by name, per occurrence

    /// A group without occurrences.
    GroupEntity() = default;

    /// A group in which index `numOccurences` is valid: it has `numOccurences` + 1 occurrences, all
    /// empty; none when `numOccurences` is negative.
    explicit GroupEntity(int numOccurences);

    /// Number of occurrences.
    int getSize() const;

    /// Appends empty occurrences until index `numOccurences` is valid, that is until there are
    /// `numOccurences` + 1 (deliberate: callers pass the index that they are about to use). Leaves
    /// a longer group alone, and any group when `numOccurences` is negative.
    void setNumberOfOccurences(int numOccurences);

    /// Stores a copy of `value` under `name` in occurrence `index`, in place of any earlier one,
    /// after making occurrences up to `index`.
    /// @return 1; 0 for a negative index, and then nothing is stored
    int setParameter(const std::string& name, int index, const UniVar& value);

    /// A copy of the value under `name` in occurrence `index`, after making occurrences up to
    /// `index`. Asking for a missing name stores an undefined value under it, so that it is present
    /// from then on (deliberate, as for module parameters). A negative index gives an undefined
    /// value and stores nothing.
    UniVar getParameter(const std::string& name, int index);

    /// Whether occurrence `index` exists and holds `name`. Never makes or stores anything.
    bool isParameterPresent(const std::string& name, int index) const;
};

#endif
