/// @file JobFile.h
///
/// A job as it is written: the YAML file's content with the place of everything, before it is held
/// against the modules.
#ifndef JOBFILE_H
#define JOBFILE_H

#include "job/YamlReader.h"

#include <optional>
#include <string>
#include <vector>

namespace host {

/// A connection as written: "read" or "split.2".
struct JobConnection
{
    std::string text;
    Place place;
};

struct JobParameter
{
    std::string name;
    Place place; ///< of the name
    YamlValue value;
    std::string folder; ///< against which a relative path is taken
};

struct JobModule
{
    Place place; ///< of the entry in the list
    std::string name;
    Place namePlace;
    std::string module;
    Place modulePlace;
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

struct JobFile
{
    std::string path;    ///< as the person gave it
    std::string folder;  ///< absolute, of the file
    std::string name;    ///< the file's name without ending where the job has none
    std::string project; ///< absolute
    Place projectPlace;
    std::optional<std::string> scratchDirectory; ///< absolute
    Place scratchPlace;
    std::optional<int> scratchTraces;
    std::string schema; ///< "segy", "list", or "" without one
    bool hasSegySchema = false;
    std::vector<JobAttribute> attributes;
    std::vector<JobModule> modules;

    const JobModule* find(const std::string& moduleName) const;
    std::vector<std::string> moduleNames() const;
};

/// Fewest and most traces that a job may keep in memory: what the kernel accepts.
constexpr int fewestScratchTraces = 1;
constexpr int mostScratchTraces = 99999999;

/// The job in `path`; nothing when the file cannot be read or is no YAML. Errors in it are
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
