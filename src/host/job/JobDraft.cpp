#include "job/JobDraft.h"

#include "job/JobCheck.h"

#include <utility>

namespace host {

JobDraft::JobDraft(std::string home, std::vector<std::string> directories)
    : moduleTree(std::move(home)), moduleDirectories(std::move(directories))
{
}

void JobDraft::read(const std::string& path)
{
    job = readJobFile(path, found);
}

void JobDraft::parse(const std::string& text, const std::string& path)
{
    job = parseJobFile(text, path, found);
}

void JobDraft::set(const std::string& setting)
{
    if (job)
        applySetting(*job, setting, found);
}

ResolvedJob JobDraft::check(Diagnostics& all) const
{
    all = found;
    return job ? checkJob(*job, catalog(), all) : ResolvedJob();
}

} // namespace host
