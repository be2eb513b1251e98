/// @file JobDraft.h
///
/// A job file on its way to a run: read, changed, checked. The command and the library VORN::job
/// both begin with it.
#ifndef JOBDRAFT_H
#define JOBDRAFT_H

#include "job/JobFile.h"
#include "job/ModuleCatalog.h"
#include "job/ResolvedJob.h"

#include <optional>
#include <string>
#include <vector>

namespace host {

/// A job that may still be changed.
///
///     JobDraft draft(findVornHome());
///     draft.read("line.job.yaml");
///     draft.set("read.file=line.sgy");
///     Diagnostics found;
///     const ResolvedJob job = draft.check(found);
class JobDraft
{
public:
    /// `home` is a module tree, `directories` have further modules.
    explicit JobDraft(std::string home, std::vector<std::string> directories = {});

    /// @name The text
    /// One of the two is called first. A text that is not YAML makes no job, only errors.
    /// @{
    void read(const std::string& path);
    void parse(const std::string& text, const std::string& path);
    /// @}

    /// @name Changes
    /// @{
    /// Null where the text is not YAML.
    JobFile* file() { return job ? &*job : nullptr; }
    const JobFile* file() const { return job ? &*job : nullptr; }
    /// Of the text and the changes; those of a change are added here.
    Diagnostics& diagnostics() { return found; }
    /// MODULE.PARAMETER=VALUE, see applySetting(). Nothing happens where the text is not YAML.
    void set(const std::string& setting);
    /// @}

    /// The modules as they are now in the directories.
    ModuleCatalog catalog() const { return ModuleCatalog(moduleTree, moduleDirectories); }

    /// Checks the job as it is; `all` becomes the errors and warnings of text, changes and check.
    /// The result is to be used only when there are no errors.
    ResolvedJob check(Diagnostics& all) const;

private:
    std::string moduleTree;
    std::vector<std::string> moduleDirectories;
    std::optional<JobFile> job;
    Diagnostics found;
};

} // namespace host

#endif
