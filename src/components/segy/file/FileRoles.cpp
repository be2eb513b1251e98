#include "file/FileRoles.h"

#include "file/FileIdentity.h"

#include <sys/stat.h>

namespace VORN {

namespace {

bool hasNoContent(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

} // namespace

void FileRoles::add(const std::string& path, const std::string& role, const std::string& owner)
{
    const std::lock_guard<std::mutex> lock(mutex);
    // An output is replaced, and the file system gives the number of the old file to a new one.
    const std::string identity = owner.empty() ? fileIdentity(path) : std::string();
    entries.push_back({canonicalPath(path), identity, role, owner});
}

std::string FileRoles::roleOf(const std::string& path, const std::string& owner) const
{
    const std::lock_guard<std::mutex> lock(mutex);
    if (entries.empty() || hasNoContent(path))
        return {};
    const std::string canonical = canonicalPath(path);
    const std::string identity = fileIdentity(path);
    for (const Entry& entry : entries) {
        const bool isOwn = !entry.owner.empty() && entry.owner == owner;
        const bool isSame = entry.path == canonical ||
                            (!identity.empty() &&
                             (entry.identity == identity || fileIdentity(entry.path) == identity));
        if (isSame && !isOwn)
            return entry.role;
    }
    return {};
}

void FileRoles::clear()
{
    const std::lock_guard<std::mutex> lock(mutex);
    entries.clear();
}

FileRoles& usedFiles()
{
    static FileRoles files;
    return files;
}

} // namespace VORN
