#include "FileOutput.h"

#include "CommandTable.h"
#include "TextTools.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace vorn {

void writeWholeFile(const std::string& path, const std::string& bytes)
{
    const std::string temporary = path + "." + std::to_string(getpid()) + ".part";
    std::FILE* file = std::fopen(temporary.c_str(), "wbe");
    bool good = file != nullptr;
    int reason = errno;
    if (good) {
        good = std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
        reason = errno;
        good = std::fclose(file) == 0 && good;
        good = good && std::rename(temporary.c_str(), path.c_str()) == 0;
        reason = good || reason != 0 ? reason : errno;
    }
    if (good)
        return;
    unlink(temporary.c_str());
    throw CommandError("the file " + quote(path) + " cannot be written: " + std::strerror(reason));
}

} // namespace vorn
