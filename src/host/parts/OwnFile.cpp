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

namespace {

std::string uniqueName(const std::string& path)
{
    std::random_device random;
    return fmt::format("{}.{:08x}{:08x}", path, random(), random());
}

} // namespace

OwnFile::OwnFile(const std::string& path) : name(path), hidden(uniqueName(path)) {}

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
