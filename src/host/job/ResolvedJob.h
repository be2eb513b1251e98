/// @file ResolvedJob.h
///
/// A job that has been checked: everything looked up, converted and connected, ready to run.
#ifndef RESOLVEDJOB_H
#define RESOLVEDJOB_H

#include "job/Manifest.h"
#include "job/ParameterValue.h"
#include "job/ReplacedModule.h"

#include <optional>
#include <string>
#include <vector>

namespace host {

/// A parameter with its converted value.
struct ResolvedParameter
{
    std::string name;
    ParameterValue value;
    std::string type; ///< as in manifests; empty without one
    std::string unit;
    bool given = true; ///< in the job file or on the command line; false: the manifest's default
    bool isInputFile = false; ///< or several: `ParameterValue::items`
    bool isOutputFile = false;
    Place place; ///< of the value in the job file; line 0 for defaults
    /// A number was given without a unit, so that the manifest's is taken for it.
    bool isUnitAssumed = false;
};

/// The files that a parameter of files names, the matches of a pattern one by one; a pattern
/// without any stands for itself.
std::vector<std::string> filesOf(const ResolvedParameter& parameter);

/// Where one input port takes its traces from.
struct ResolvedInput
{
    int module = 0; ///< index in ResolvedJob::modules
    int port = 0;   ///< output port there, from 0
};

/// A module of the job, ready to be created.
struct ResolvedModule
{
    std::string name;
    Place place; ///< of the entry in the job file
    std::string module;
    std::string library;      ///< relative to VORN_HOME/lib
    ManifestPointer manifest; ///< null: the module has none
    /// What the application has put in its place; then it has no library, no parameters but maps of
    /// header words, and a manifest with the ports of what stands there.
    ReplacedModulePointer replaced;
    std::vector<ResolvedInput> inputs;
    std::vector<ResolvedParameter>
        parameters; ///< in the manifest's order, those without a value left out
    /// Consumers of each output port that gets a data channel. A port without consumers, which the
    /// module needs all the same, is emptied by the command.
    std::vector<int> consumers;
};

/// A trace attribute that the job defines.
struct ResolvedAttribute
{
    std::string name;
    int type = 0; ///< kernel type code
    int dimension = 1;
    std::string description;
};

/// That a source gives its traces sorted, since a module that sorts is the only one to see them.
struct ReadingOrder
{
    int source = -1;               ///< index in ResolvedJob::modules
    std::string sorter;            ///< name of the module that sorts
    std::vector<std::string> keys; ///< "cdp", "-offset"
    /// Where the order of the traces is kept: the source makes it there, unless it exists, and
    /// ranges of its traces are ranges of that order. Empty: nowhere.
    std::string file;
};

/// A checked job. All paths are absolute.
struct ResolvedJob
{
    std::string file; ///< absolute path
    std::string name;
    std::string project;
    std::string scratchDirectory;
    int scratchTraces = 0;
    std::string schema; ///< "segy" or "list"
    std::vector<ResolvedAttribute> attributes;
    std::string vornHome;
    std::string teeLibrary; ///< of the module that stands before several readers of one output,
                            ///< relative to VORN_HOME/lib; empty: there is none
    std::vector<ResolvedModule> modules; ///< in the order of the job file
    std::optional<ReadingOrder> order;   ///< nothing: sources give their traces as they have them

    /// The name of a port of a module for display: that of the manifest, or the number from 1.
    std::string portName(int module, int port) const;
};

/// The whole job as a job file in YAML, with defaults and absolute paths.
std::string resolvedYaml(const ResolvedJob& job);

} // namespace host

#endif
