#include "run/ScratchSpace.h"

#include "base/CommandError.h"
#include "base/Escaping.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace host {

ScratchSpace::ScratchSpace(const std::string& parent)
{
    std::string pattern = parent + "/vorn-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr)
        throw CommandError("no scratch directory can be made in " + quote(parent) + ": " +
                           std::strerror(errno));
    directory.swap(pattern); // a copy could fail and leave the directory
}

ScratchSpace::~ScratchSpace()
{
    remove();
}

void ScratchSpace::remove() const
{
    // The kernel has removed its file as a rule; nothing is needed for an empty directory.
    if (rmdir(directory.c_str()) == 0)
        return;
    std::error_code ignored;
    std::filesystem::remove_all(directory, ignored);
}

} // namespace host
