/// @file FileRoles.h
///
/// What the files that a process uses are for, so that no output replaces one of them.
#ifndef FILEROLES_H
#define FILEROLES_H

#include "segy_export.h"

#include <mutex>
#include <string>
#include <vector>

namespace VORN {

/// A list of files, each with its role in words, such as: the input file "line.sgy" of module
/// "read". Files are compared as the file system does: links are followed, hard links are one file,
/// and a file that has been moved to another name since it was added is still known.
///
///     usedFiles().add("job.yaml", "the job file \"job.yaml\"");
///     usedFiles().roleOf("link-to-job.yaml")  // the job file "job.yaml"
///
/// May be used by several threads.
class VORN_SEGY_EXPORT FileRoles
{
public:
    /// The file at `path`, which need not exist, has this role. Outputs have an `owner`, any text:
    /// what the same owner writes replaces its own file, which is its purpose.
    void add(const std::string& path, const std::string& role, const std::string& owner = "");

    /// The role of the file that an output of `owner` at `path` would replace; "" when there is
    /// none. Devices and pipes are never replaced.
    std::string roleOf(const std::string& path, const std::string& owner = "") const;

    /// Forgets all files.
    void clear();

private:
    struct Entry
    {
        std::string path;     // canonical
        std::string identity; // when it was added; empty for outputs
        std::string role;
        std::string owner;
    };

    mutable std::mutex mutex;
    std::vector<Entry> entries;
};

/// The files that this process uses. Every OutputFile asks it, before it begins and again before it
/// gets its final name; a process that adds nothing refuses nothing.
VORN_SEGY_EXPORT FileRoles& usedFiles();

} // namespace VORN

#endif
