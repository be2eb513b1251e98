#include "parts/OwnFile.h"

#include "base/CommandError.h"
#include "base/Escaping.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fmt/format.h>
#include <random>
#include <unistd.h>

namespace host {

OwnFile::OwnFile(const std::string& path) : name(path)
{
    std::random_device random;
    hidden = fmt::format("{}.{:08x}{:08x}", path, random(), random());
}

OwnFile::~OwnFile()
{
    if (!published)
        unlink(hidden.c_str());
}

void OwnFile::publish()
{
    if (std::rename(hidden.c_str(), name.c_str()) != 0)
        throw CommandError("the file " + quote(name) +
                               " cannot get its name: " + std::strerror(errno),
                           exitTryAgain);
    published = true;
}

} // namespace host
