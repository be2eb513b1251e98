/// @file PartEntries.h
///
/// The entry points of modules that work in parts: save_ and merge_.
#ifndef PARTENTRIES_H
#define PARTENTRIES_H

#include "run/RunExtension.h"

#include <string>

namespace host {

/// `int save_(const char* path, int length)` and merge_ likewise; the path is not terminated.
using PartEntry = int (*)(const char* path, int length);

/// The entry `name` of the module's library; null where the manifest does not say that it has one:
/// any library may have functions of these names. Throws CommandError where it says so wrongly.
PartEntry findPartEntry(const ResolvedModule& module, const ModuleEntity& entity, const char* name);

/// Calls `entry` with the path as the running module. Throws CommandError, which names the module
/// and says `failure`, when it does not return 0; nothing where the module has said why.
void callPartEntry(const RunView& view, ModuleEntity& module, PartEntry entry,
                   const std::string& path, const std::string& failure);

} // namespace host

#endif
