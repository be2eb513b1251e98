/// @file JobCheck.h
///
/// The checks of a job that are possible without running it.
#ifndef JOBCHECK_H
#define JOBCHECK_H

#include "job/JobFile.h"
#include "job/ModuleCatalog.h"
#include "job/ResolvedJob.h"

namespace host {

/// Checks `job` against the modules of `catalog`: names, libraries (each is loaded in a child
/// process), parameters with types, units, ranges and files, and the wiring. Adds all errors and
/// warnings to `diagnostics`. The result is a job to run when there are no errors; otherwise it
/// is incomplete.
ResolvedJob checkJob(const JobFile& job, const ModuleCatalog& catalog, Diagnostics& diagnostics);

/// @name Parts of the check
/// `modules`, also those of `resolved`, has one element for each module of `job`.
/// @{

/// Converts the parameters of module `i` and adds the defaults.
void checkParameters(const JobFile& job, std::size_t i, ResolvedModule& module,
                     Diagnostics& diagnostics);
/// The formulas of a module, and the rules between its parameters. Requires: a manifest, and
/// parameters without errors.
void checkRules(const JobModule& job, const ResolvedModule& module, Diagnostics& diagnostics);
/// Files that are read exist, files that are written can be, and replace nothing that the job uses.
void checkFiles(const JobFile& job, const ResolvedJob& resolved, Diagnostics& diagnostics);
/// Connects the modules: inputs, numbers of ports, cycles, modules that would never run.
void checkWiring(const JobFile& job, std::vector<ResolvedModule>& modules,
                 Diagnostics& diagnostics);
/// Collects the definitions of trace attributes from the schema and from manifests.
std::vector<ResolvedAttribute> checkAttributes(const JobFile& job,
                                               const std::vector<ResolvedModule>& modules,
                                               Diagnostics& diagnostics);
/// The sources and sinks of the application: modules of the job, data and header words. Requires:
/// the attributes of `resolved`.
void checkReplaced(const JobFile& job, const ResolvedJob& resolved, Diagnostics& diagnostics);
/// @}

/// @name Header words in formulas
/// Empty for parameters that hold none; what does not parse is left out.
/// @{

/// The words and columns ("table.x") that the formulas of a parameter use.
std::vector<std::string> namesInFormulas(const ParameterSpec& spec, const YamlNode& value);
/// The words that the assignments of a parameter write.
std::vector<std::string> wordsAssigned(const ParameterSpec& spec, const YamlNode& value);
/// The words that a module takes from the columns of its table. Requires: a manifest.
std::vector<std::string> wordsOfTable(const ResolvedModule& module);
/// @}

} // namespace host

#endif
