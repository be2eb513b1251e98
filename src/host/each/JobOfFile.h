/// @file JobOfFile.h
///
/// One job for many files: where the file goes in, and where what the job writes goes.
#ifndef JOBOFFILE_H
#define JOBOFFILE_H

#include "job/JobFile.h"
#include "job/ModuleCatalog.h"

#include <string>
#include <vector>

namespace host {

/// What stands in the name of an output for the name of the folder of each file.
constexpr char folderPlaceholder[] = "$file";

/// The source of messages about what --each sets in a job.
constexpr char eachSource[] = "--each";

/// The parameter that gets the file.
struct FileParameter
{
    std::string module; ///< name in the job
    std::string parameter;
    bool isList = false; ///< of files

    /// "read.file"
    std::string name() const { return module + "." + parameter; }
};

/// A file that the job writes.
struct JobOutput
{
    std::string module; ///< name in the job
    std::string parameter;
    std::string written; ///< as in the job file or on the command line

    /// The absolute path for the file whose results are in `resultFolder`: relative names start
    /// there, and `$file` is the folder's own name.
    std::string path(const std::string& resultFolder) const;
    bool isRelative() const;
};

/// What "--each" was given, taken apart.
struct EachPattern
{
    std::string parameter; ///< "read" or "read.file"; empty: not named
    std::string pattern;
};

/// "read=GLOB", "read.file=GLOB" or "GLOB". A pattern that itself has a "=" is known by a "/"
/// before it, or by a module of that name that the job does not have and a file that it matches.
EachPattern splitEach(const std::string& text, const JobFile& job);

/// The parameter that is meant by `named` ("read" or "read.file"), or where that is empty the only
/// parameter of input files of the job's readers, the modules without inputs. Throws CommandError,
/// which lists what can be named.
FileParameter findFileParameter(const JobFile& job, const ModuleCatalog& catalog,
                                const std::string& named);

/// The outputs that the manifests of the job's modules tell.
std::vector<JobOutput> jobOutputs(const JobFile& job, const ModuleCatalog& catalog);

/// Sets a parameter of the job to a text. Messages about it are under the name `eachSource`, or
/// with `keepPlace` at the place of the former value.
void setFile(JobFile& job, const std::string& module, const std::string& parameter,
             const std::string& value, bool keepPlace = false);

} // namespace host

#endif
