/// @file JobFile.h
///
/// A job as it is written: the YAML file's content with the place of everything, before it is
/// checked against the modules.
#ifndef JOBFILE_H
#define JOBFILE_H

#include "job/ReplacedModule.h"
#include "job/YamlReader.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// A connection as written: "read" or "split.2".
struct JobConnection
{
    std::string text; ///< MODULE, MODULE.NUMBER or MODULE.PORT
    Place place;      ///< of the text
};

/// A parameter of a module as written.
struct JobParameter
{
    std::string name;
    Place place; ///< of the name
    YamlValue value;
    std::string folder; ///< absolute; relative paths in the value start here
};

/// An entry of the list `modules`.
struct JobModule
{
    Place place; ///< of the entry in the list
    std::string name;
    Place namePlace;    ///< of the value of `name`
    std::string module; ///< library and manifest; empty after an error
    Place modulePlace;  ///< of the value of `module`
    std::vector<JobConnection> inputs;
    Place inputsPlace; ///< of the key `input` or `inputs`; the entry's without one
    std::vector<JobParameter> parameters;
};

/// A trace attribute that the job defines itself.
struct JobAttribute
{
    std::string name;
    int type = 0; ///< kernel type code
    int dimension = 1;
    std::string description;
    Place place;
};

/// The content of a job file.
struct JobFile
{
    std::string path;    ///< as given by the user
    std::string folder;  ///< absolute, of the file
    std::string name;    ///< the file's name without ending where the job has none
    std::string project; ///< absolute
    Place projectPlace;
    std::optional<std::string> scratchDirectory; ///< absolute
    Place scratchPlace;
    std::optional<int> scratchTraces;
    std::string schema; ///< "segy", "list", or "" without one
    bool hasSegySchema = false;
    std::vector<JobAttribute> attributes; ///< of a schema that the job lists
    std::vector<JobModule> modules;       ///< in the order of the file
    /// The map of header words (`words`) for all readers that have none of their own.
    std::optional<JobParameter> words;
    /// What the application puts in the place of modules, by their names. No text says so.
    std::map<std::string, ReplacedModulePointer> replaced;

    /// The module of that name, or null.
    const JobModule* find(const std::string& moduleName) const;
    /// The names of all modules, in the order of the file.
    std::vector<std::string> moduleNames() const;
};

/// Fewest and most traces that a job may keep in memory: what the kernel accepts.
constexpr int fewestScratchTraces = 1;
constexpr int mostScratchTraces = 99999999;

/// The job in `path`; nothing when the file cannot be read or is not valid YAML. Errors in it are
/// collected, and what is left of the job is returned.
std::optional<JobFile> readJobFile(const std::string& path, Diagnostics& diagnostics);
/// The same from a text; `path` is the file's name.
std::optional<JobFile> parseJobFile(const std::string& text, const std::string& path,
                                    Diagnostics& diagnostics);

/// Applies MODULE.PARAMETER=VALUE from the command line: sets or replaces the parameter. Relative
/// paths in the value are taken from the current directory.
void applySetting(JobFile& job, const std::string& setting, Diagnostics& diagnostics);

} // namespace host

#endif
