#include "file/InputNames.h"

#include <algorithm>
#include <cstring>
#include <glob.h>
#include <sys/stat.h>

namespace VORN {

bool isFilePattern(const std::string& name)
{
    return name.find_first_of("*?[") != std::string::npos;
}

std::vector<std::string> inputFiles(const std::string& name)
{
    struct stat found;
    if (!isFilePattern(name) || stat(name.c_str(), &found) == 0)
        return {name};
    glob_t matches;
    std::vector<std::string> files;
    if (glob(name.c_str(), GLOB_NOSORT, nullptr, &matches) == 0)
        files.assign(matches.gl_pathv, matches.gl_pathv + matches.gl_pathc);
    globfree(&matches);
    std::sort(files.begin(), files.end(), [](const std::string& a, const std::string& b) {
        return strverscmp(a.c_str(), b.c_str()) < 0;
    });
    return files;
}

} // namespace VORN
