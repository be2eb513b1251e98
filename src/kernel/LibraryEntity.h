/// @file LibraryEntity.h
///
/// A typed library that a job works with, such as an output table, as modules meet it.
#ifndef LIBRARYENTITY_H
#define LIBRARYENTITY_H

#include "UniVar.h"
#include "vorn_export.h"

#include <map>
#include <string>

/// A library of the job: what kind it is, where its data lie, and its named parameters.
///
/// It travels inside a UniVar as a `libraryType` and reaches modules as an untyped handle. Neither
/// the value nor the kernel ever deletes it; it belongs to its creator and must outlive the
/// values that refer to it. Parameter names are compared exactly; a look-up costs O(log n).
class VORN_EXPORT LibraryEntity
{
public:
    std::string libraryType; ///< two-letter code, as "CN" or "HZ"; stored unchecked
    std::string libraryPath; ///< where the library's data lie; stored unchecked
    std::map<std::string, UniVar> libriParams; ///< the parameters by name

    /// A library without type, path and parameters.
    LibraryEntity() = default;

    /// A library of the type `libType` at `libPath`, without parameters.
    LibraryEntity(const std::string& libType, const std::string& libPath);

    /// The two-letter code as stored.
    std::string getLibraryType() const;

    /// The path as stored.
    std::string getLibraryPath() const;

    /// Stores a copy of `value` under `name`, in place of any earlier one.
    /// @return always 1
    int setParameter(const std::string& name, const UniVar& value);

    /// A copy of the value under `name`. Asking for a missing name stores an undefined value under
    /// it, so that it is present from then on (deliberate, as for module parameters).
    UniVar getParameter(const std::string& name);

    /// Whether `name` has been set, or asked for. Never stores anything.
    bool isParameterPresent(const std::string& name) const;
};

#endif
