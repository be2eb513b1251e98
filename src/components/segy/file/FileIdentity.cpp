#include "file/FileIdentity.h"

#include <filesystem>
#include <sys/stat.h>
#include <system_error>

namespace VORN {

std::string fileIdentity(const std::string& path)
{
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        return {};
    return std::to_string(status.st_dev) + "." + std::to_string(status.st_ino);
}

std::string canonicalPath(const std::string& path)
{
    std::error_code none;
    const std::filesystem::path canonical =
        std::filesystem::weakly_canonical(std::filesystem::absolute(path, none), none);
    return none ? path : canonical.string();
}

bool isWriteProtected(const std::string& path)
{
    struct stat status;
    return stat(path.c_str(), &status) == 0 && (status.st_mode & S_IWUSR) == 0;
}

} // namespace VORN
