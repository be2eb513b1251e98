/// @file ModuleWords.h
///
/// What a module of a checked job does to header words, from its manifest and its parameters.
#ifndef MODULEWORDS_H
#define MODULEWORDS_H

#include "job/ResolvedJob.h"

#include <string>
#include <vector>

namespace host {

/// The header words that the module writes: those of its manifest, those that its assignments
/// name, and those that it takes from the columns of its table. None without a manifest.
std::vector<std::string> wordsWritten(const ResolvedModule& module);

/// Whether a formula of the module counts traces or gathers, as count(fldr) does: its value depends
/// on all traces before.
bool countsInFormulas(const ResolvedModule& module);

/// The header words by which the module gathers traces, as its manifest says: none where it does
/// not, and where it has chosen not to look at words.
std::vector<std::string> gatherWords(const ResolvedModule& module);

/// What the manifest of the module says of jobs in parts; without a manifest, nothing.
const ParallelSpec& parallelOf(const ResolvedModule& module);

/// The parameter of the module with that name; null when it has no value.
const ResolvedParameter* findParameter(const ResolvedModule& module, const std::string& name);

} // namespace host

#endif
