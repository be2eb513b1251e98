#include "file/FileIdentity.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace VORN {

namespace {

namespace fs = std::filesystem;

constexpr int mostLinks = 40; // as many as Linux follows

// Whether a link in `directory` that belongs to `owner` may be somebody else's trap.
bool isForeign(const fs::path& directory, uid_t owner)
{
    constexpr mode_t forAll = S_ISVTX | S_IWOTH;
    struct stat status;
    return stat(directory.c_str(), &status) == 0 && (status.st_mode & forAll) == forAll &&
           owner != geteuid() && owner != status.st_uid;
}

bool isNumber(const std::string& text)
{
    return !text.empty() && text.size() < 10 &&
           std::all_of(text.begin(), text.end(),
                       [](unsigned char c) { return std::isdigit(c) != 0; });
}

// /proc/PID/fd and /proc/PID/task/TID/fd of this process, links followed.
bool isDescriptorDirectory(const std::string& directory)
{
    const std::string own = "/proc/" + std::to_string(getpid());
    return directory == own + "/fd" ||
           (directory.starts_with(own + "/task/") && directory.ends_with("/fd"));
}

} // namespace

std::string fileIdentity(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        return {};
    std::string identity = std::to_string(status.st_dev) + "." + std::to_string(status.st_ino);
    struct statx more = {};
    if (statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &more) == 0 &&
        (more.stx_mask & STATX_BTIME) != 0)
        identity += "." + std::to_string(more.stx_btime.tv_sec) + "." +
                    std::to_string(more.stx_btime.tv_nsec);
    return identity;
}

std::string canonicalPath(const std::string& path)
{
    std::error_code error;
    fs::path canonical = fs::weakly_canonical(fs::absolute(path, error), error);
    // A link to a file that does not exist yet stays in it.
    std::error_code noLink;
    for (int links = 0; !error && links < mostLinks; ++links) {
        const fs::path target = fs::read_symlink(canonical, noLink);
        if (noLink)
            break;
        canonical = fs::weakly_canonical(canonical.parent_path() / target, error);
    }
    return error ? path : canonical.string();
}

bool isSameFile(const std::string& a, const std::string& b)
{
    const std::string identity = fileIdentity(a);
    return identity.empty() ? canonicalPath(a) == canonicalPath(b) : identity == fileIdentity(b);
}

bool isWriteProtected(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && (status.st_mode & S_IWUSR) == 0;
}

std::string foreignLinkOn(const std::string& path)
{
    std::error_code none;
    std::deque<fs::path> ahead;
    const fs::path whole = fs::absolute(path, none);
    for (const fs::path& name : whole)
        ahead.push_back(name);
    fs::path reached;
    int links = 0;
    while (!ahead.empty()) {
        const fs::path directory = reached;
        const fs::path name = ahead.front();
        ahead.pop_front();
        if (name == "..") {
            reached = reached.parent_path(); // links before it have been resolved
            continue;
        }
        reached /= name; // a name that begins with "/" starts anew
        struct stat status;
        if (lstat(reached.c_str(), &status) != 0)
            return {};
        if (!S_ISLNK(status.st_mode))
            continue;
        if (isForeign(directory, status.st_uid))
            return reached.string();
        const fs::path target = fs::read_symlink(reached, none);
        if (none || ++links > mostLinks)
            return {};
        ahead.insert(ahead.begin(), target.begin(), target.end());
        reached = directory;
    }
    return {};
}

int descriptorOf(const std::string& path)
{
    std::error_code none;
    fs::path place = fs::absolute(path, none);
    for (int links = 0; !none && links <= mostLinks; ++links) {
        const fs::path directory = fs::canonical(place.parent_path(), none);
        const std::string name = place.filename().string();
        if (none)
            return -1;
        if (isNumber(name) && isDescriptorDirectory(directory.string()))
            return std::atoi(name.c_str());
        const fs::path target = fs::read_symlink(directory / name, none);
        place = directory / target;
    }
    return -1;
}

bool isWrittenThrough(const std::string& path)
{
    struct stat status;
    return descriptorOf(path) >= 0 || (stat(path.c_str(), &status) == 0 &&
                                       (S_ISCHR(status.st_mode) || S_ISFIFO(status.st_mode)));
}

} // namespace VORN
