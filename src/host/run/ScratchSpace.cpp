#include "run/ScratchSpace.h"

#include "base/CommandError.h"
#include "base/Escaping.h"
#include "run/DirectoryRemoval.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace host {

ScratchSpace::ScratchSpace(const std::string& parent)
{
    std::string pattern = parent + "/vorn-XXXXXX";
    const bool made = mkdtemp(pattern.data()) != nullptr;
    if (made)
        descriptor = open(pattern.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        const int reason = errno;
        if (made)
            rmdir(pattern.c_str());
        throw CommandError("no scratch directory can be made in " + quote(parent) + ": " +
                           std::strerror(reason));
    }
    directory.swap(pattern); // a copy could fail and leave the directory
}

ScratchSpace::~ScratchSpace()
{
    remove();
    close(descriptor);
}

void ScratchSpace::remove() const noexcept
{
    // The kernel has removed its file as a rule; nothing is needed for an empty directory.
    if (rmdir(directory.c_str()) == 0 || errno == ENOENT)
        return;
    removeEntries(descriptor);
    rmdir(directory.c_str());
}

} // namespace host
